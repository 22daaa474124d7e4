#include "modules/volumes/source/objects/volumetag.h"

#include <algorithm>
#include <new>
#include <utility>

#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/messages.h"
#include "host/scene/plugins.h"
#include "modules/volumes/source/helper/crc32c.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = zta::TAG_VISIBLE | zta::TAG_EXPRESSION;
constexpr zta::Int32 kDiskLevel = 1;
constexpr zta::Int32 kNameResource = 10089;
constexpr zta::Int32 kNoneResource = 10090;
constexpr zta::Int32 kSameAsFirstResource = 10091;
constexpr const char* kNameSeparator = " > ";

constexpr zta::Int32 kIndexIds[3] = {VOLUMETAG_FIRST, VOLUMETAG_SECOND, VOLUMETAG_THIRD};

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

// "Builder > Group > Cloud" gives "Cloud".
std::string LastPart(const std::string& name) {
  const size_t at = name.rfind(kNameSeparator);
  return at == std::string::npos ? name : name.substr(at + std::char_traits<char>::length(kNameSeparator));
}

zta::BaseObject* Resolve(const zta::BaseLink& link, const zta::BaseDocument* doc) {
  return dynamic_cast<zta::BaseObject*>(link.GetLink(doc));
}

// The first object of the tree below `root` (root included) that carries a volume tag.
zta::BaseObject* FirstWithVolumeTag(zta::BaseObject* root) {
  for (zta::GeListNode* n = root; n; n = n->GetNextInTree(root)) {
    auto* op = static_cast<zta::BaseObject*>(n);
    if (op->GetTag(ID_VOLUMETAG)) return op;
  }
  return nullptr;
}

}  // namespace

VolumeTagData::VolumeTagData() {
  for (Slot& slot : slots_) slot.link.reset(new (std::nothrow) zta::BaseLink());
}

std::unique_ptr<zta::NodeData> VolumeTagData::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeTagData());
}

bool VolumeTagData::Register() {
  return zta::RegisterTagPlugin(ID_VOLUMETAG, Text(kNameResource), kInfoFlags, &VolumeTagData::Alloc, "tvolume",
                                kDiskLevel);
}

bool VolumeTagData::InitNode(zta::GeListNode* node) {
  return std::all_of(std::begin(slots_), std::end(slots_), [](const Slot& s) { return s.link != nullptr; });
}

// ---- scene file

bool VolumeTagData::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) {
  if (!node || !hf) return false;
  if (!TagData::ReadNode(node, hf, level)) return false;
  if (level < 1) return true;
  for (Slot& slot : slots_) {
    if (!slot.link) return false;
    if (!hf->ReadString(&slot.name) || !hf->ReadLink(slot.link.get())) return false;
  }
  return true;
}

bool VolumeTagData::WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const {
  if (!node || !hf) return false;
  if (!TagData::WriteNode(node, hf)) return false;
  for (const Slot& slot : slots_) {
    if (!hf->WriteString(slot.name) || !hf->WriteLink(slot.link ? *slot.link : zta::BaseLink())) return false;
  }
  return true;
}

bool VolumeTagData::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                             zta::Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeTagData*>(dest);
  if (!target) return false;
  if (!TagData::CopyNode(dest, snode, dnode, flags, trans)) return false;
  try {
    for (int i = 0; i < 3; ++i) {
      target->slots_[i].name = slots_[i].name;
      if (!target->slots_[i].link) target->slots_[i].link.reset(new zta::BaseLink());
      const zta::BaseLink source = slots_[i].link ? *slots_[i].link : zta::BaseLink();
      *target->slots_[i].link = trans ? trans->Translate(source) : source;
    }
    target->lists_ = lists_;
  } catch (const std::bad_alloc&) {
    // Out of memory: the copy is refused.
    return false;
  }
  return true;
}

// ---- parameters

int VolumeTagData::SlotOfIndexId(zta::Int32 id) {
  for (int i = 0; i < 3; ++i)
    if (kIndexIds[i] == id) return i;
  return -1;
}

zta::BaseList2D* VolumeTagData::GetSlotLink(int index, const zta::BaseDocument* doc) const {
  if (index < 0 || index > 2 || !slots_[index].link) return nullptr;
  return slots_[index].link->GetLink(doc);
}

bool VolumeTagData::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                      zta::Int32& flags) {
  if (!node) return false;
  const int slot = SlotOfIndexId(id.GetId());
  if (slot < 0) return true;
  // A pick by hand replaces what the slot remembered.
  static_cast<zta::BaseTag*>(node)->GetDataInstance()->SetInt32(id.GetId(), t_data.GetInt32());
  slots_[slot].name.clear();
  if (slots_[slot].link) slots_[slot].link->SetLink(nullptr);
  flags |= zta::DESCFLAGS_SET_PARAM_SET;
  return true;
}

bool VolumeTagData::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                       zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  if (!node) return false;
  auto* tag = static_cast<zta::BaseTag*>(node);
  const zta::BaseContainer* bc = tag->GetDataInstance();
  zta::BaseObject* op = tag->GetObject();
  zta::BaseDocument* doc = op ? op->GetDocument() : nullptr;
  const bool picksSet = doc && slots_[0].link && slots_[1].link && !slots_[0].link->IsEmpty() &&
                        !slots_[1].link->IsEmpty();
  switch (id.GetId()) {
    case VOLUMETAG_FIRST_MAX:
    case VOLUMETAG_FIRST_MIN:
    case VOLUMETAG_FIRST_FIT: return bc->GetInt32(VOLUMETAG_FIRST) != 0;
    case VOLUMETAG_SECOND_MAX:
    case VOLUMETAG_SECOND_MIN:
    case VOLUMETAG_SECOND_FIT: {
      if (bc->GetInt32(VOLUMETAG_SECOND) == 0) return false;
      if (!picksSet) return true;
      // The second range means nothing when it shows the first slot's volume, or nothing.
      return GetSlotLink(0, doc) != GetSlotLink(1, doc);
    }
    case VOLUMETAG_THIRD_MAX:
    case VOLUMETAG_THIRD_MIN:
    case VOLUMETAG_THIRD_FIT: {
      if (bc->GetInt32(VOLUMETAG_THIRD) == 0) return false;
      if (!picksSet) return true;
      zta::BaseList2D* third = GetSlotLink(2, doc);
      return third && third != GetSlotLink(0, doc) && third != GetSlotLink(1, doc);
    }
    default: return TagData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

bool VolumeTagData::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  if (!node || !description) return false;
  if (!description->LoadDescription(static_cast<zta::BaseList2D*>(node)->GetType())) return false;
  for (int i = 0; i < 3; ++i) {
    const zta::BaseContainer* settings = description->GetParameter(zta::DescID(kIndexIds[i]));
    if (!settings) continue;
    zta::BaseContainer cycle = *settings;
    zta::BaseContainer names, icons;
    names.SetString(0, Text(i == 0 ? kNoneResource : kSameAsFirstResource));
    for (size_t k = 0; k < lists_.names.size(); ++k) {
      names.SetString(zta::Int32(k + 1), lists_.names[k]);
      icons.SetInt32(zta::Int32(k + 1), lists_.icons[k]);
    }
    cycle.SetContainer(zta::DESC_CYCLE, names);
    cycle.SetContainer(zta::DESC_CYCLEICONS, icons);
    description->SetParameter(zta::DescID(kIndexIds[i]), cycle);
  }
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

// ---- messages

bool VolumeTagData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  auto* tag = static_cast<zta::BaseTag*>(node);
  switch (type) {
    case zta::MSG_MENUPREPARE: justAdded_ = true; break;
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (!command) break;
      const zta::Int32 id = command->id.GetId();
      if (id >= VOLUMETAG_FIRST_FIT && id <= VOLUMETAG_THIRD_FIT && !FitRange(tag, id)) return false;
      break;
    }
    case zta::MSG_DESCRIPTION_CHECKDRAGANDDROP: {
      auto* drag = static_cast<zta::DescriptionCheckDragAndDrop*>(data);
      if (!drag || drag->id.GetId() != VOLUMETAG_TARGET) break;
      // The element must be of the target type and live in the tag's own document.
      zta::BaseList2D* element = drag->element;
      drag->accept = element && element->GetType() == VOLUMETAG_TARGET_TYPE &&
                     element->GetDocument() == tag->GetDocument();
      return true;
    }
    default: break;
  }
  return TagData::HandleMessage(node, type, data);
}

bool VolumeTagData::FitRange(zta::BaseTag* tag, zta::Int32 buttonId) {
  struct Fit {
    zta::Int32 button, slot, minId, maxId;
  };
  static constexpr Fit kFits[3] = {{VOLUMETAG_FIRST_FIT, 2, VOLUMETAG_FIRST_MIN, VOLUMETAG_FIRST_MAX},
                                   {VOLUMETAG_SECOND_FIT, 1, VOLUMETAG_SECOND_MIN, VOLUMETAG_SECOND_MAX},
                                   {VOLUMETAG_THIRD_FIT, 3, VOLUMETAG_THIRD_MIN, VOLUMETAG_THIRD_MAX}};
  const Fit* fit = nullptr;
  for (const Fit& f : kFits)
    if (f.button == buttonId) fit = &f;
  if (!fit) return true;
  const Volume volume = VolumeObjectData::GetVolume(SlotVolume(tag, tag->GetObject(), fit->slot));
  if (!volume.HasGrid()) return true;
  const ValueRange range = volume.GetMinMaxValues(true);
  zta::BaseContainer* bc = tag->GetDataInstance();
  bc->SetFloat(fit->minId, std::min(range.min, range.max));
  bc->SetFloat(fit->maxId, std::max(range.min, range.max));
  return true;
}

zta::BaseObject* VolumeTagData::SlotVolume(const zta::BaseTag* tag, const zta::BaseObject* op, zta::Int32 slot) const {
  if (!tag || !op) return nullptr;
  const zta::BaseContainer* bc = tag->GetDataInstance();
  zta::Int32 index = 0;
  switch (slot) {
    case 1:
      index = bc->GetInt32(VOLUMETAG_SECOND);
      if (index == 0) index = bc->GetInt32(VOLUMETAG_FIRST);
      break;
    case 2: index = bc->GetInt32(VOLUMETAG_FIRST); break;
    case 3: index = bc->GetInt32(VOLUMETAG_THIRD); break;
    default: return nullptr;
  }
  if (index <= 0 || size_t(index) > lists_.links.size()) return nullptr;
  return Resolve(lists_.links[size_t(index - 1)], op->GetDocument());
}

// ---- execution

bool VolumeTagData::AddTagToExecution(zta::BaseTag* tag, zta::PriorityList* list) {
  if (!tag || !list) return false;
  // After the generators, so that the caches it reads are this pass's.
  list->Add(tag, zta::EXECUTIONPRIORITY_GENERATOR);
  return true;
}

zta::EXECUTIONRESULT VolumeTagData::ExecuteTag(zta::BaseTag* tag, zta::BaseDocument* doc, zta::BaseObject* op,
                                               zta::ZTAThread* bt, zta::Int32 priority, zta::Int32 flags) {
  if (!tag || !op) return zta::EXECUTIONRESULT::OK;
  zta::BaseContainer* bc = tag->GetDataInstance();
  const zta::Int32 dirty = zta::Int32(op->GetDirty(8));
  const zta::Int32 checksum = zta::Int32(ObjectTreeChecksum(op));

  zta::BaseObject* generator = op->GetUp();
  while (generator && generator->GetType() != zta::HOST_TYPE_CLONER) generator = generator->GetUp();
  insideGenerator_ = generator != nullptr;

  const bool linksLive = std::all_of(lists_.links.begin(), lists_.links.end(),
                                     [&](const zta::BaseLink& l) { return l.GetLink(doc) != nullptr; });
  if (op == lastObject_ && dirty == lastDirty_ && checksum == lastChecksum_ && linksLive) {
    for (int i = 0; i < 3; ++i)
      if (!MatchSlot(lists_, bc, kIndexIds[i], slots_[i].name, slots_[i].link.get(), doc, true))
        return zta::EXECUTIONRESULT::OUTOFMEMORY;
    return zta::EXECUTIONRESULT::OK;
  }

  lastObject_ = op;
  lastDirty_ = dirty;
  lastChecksum_ = checksum;
  VolumeTagLists found;
  zta::BaseObject* start = op;
  if (insideGenerator_) start = generator->GetCache() ? FirstWithVolumeTag(generator->GetCache()) : nullptr;

  // Pairs of a node and whether its next siblings are walked too.
  std::vector<std::pair<zta::BaseObject*, bool>> stack;
  if (start) stack.emplace_back(start, false);
  while (!stack.empty()) {
    auto [node, siblings] = stack.back();
    stack.pop_back();
    if (!CollectVolumes(node, found)) return zta::EXECUTIONRESULT::OUTOFMEMORY;
    if (node->GetDown()) stack.emplace_back(node->GetDown(), true);
    if (siblings && node->GetNext()) stack.emplace_back(node->GetNext(), true);
    if (node->GetCache()) stack.emplace_back(node->GetCache(), false);
  }
  const bool listsChanged = !(found == lists_);
  lists_ = std::move(found);

  for (int i = 0; i < 3; ++i)
    if (!MatchSlot(lists_, bc, kIndexIds[i], slots_[i].name, slots_[i].link.get(), doc, false))
      return zta::EXECUTIONRESULT::OUTOFMEMORY;

  if (justAdded_ && !lists_.links.empty()) {
    slots_[0].name = lists_.names[0];
    slots_[0].link->SetLink(BottomCloneSource(lists_.links[0].GetLink(doc)));
    bc->SetInt32(VOLUMETAG_FIRST, 1);
  }
  justAdded_ = false;
  // The cycles list what was found: their description changed only when the
  // lists did. Marking it on every new cache would rebuild a generator that
  // carries the tag at every pass, since its new cache is a new checksum.
  if (listsChanged) op->SetDirty(zta::DIRTYFLAGS_DESCRIPTION);
  return zta::EXECUTIONRESULT::OK;
}

// ---- statics

zta::Result<void> VolumeTagData::CollectVolumes(zta::BaseList2D* node, VolumeTagLists& lists) {
  auto* op = dynamic_cast<zta::BaseObject*>(node);
  if (!op || op->GetType() != ID_VOLUMEOBJECT) return zta::OK();
  try {
    std::vector<std::string> parents;
    for (zta::BaseObject* up = op->GetUp(); up; up = up->GetUp())
      if (up->GetType() != ID_VOLUMESET) parents.push_back(up->GetName());
    std::string name;
    for (auto it = parents.rbegin(); it != parents.rend(); ++it) name += *it + kNameSeparator;
    name += op->GetName();

    const Volume volume = VolumeObjectData::GetVolume(op);
    const GRIDTYPE type = volume.GetGridType();
    zta::Int32 icon = 0;
    if (type >= GRIDTYPE::FLOAT && type <= GRIDTYPE::INT64)
      icon = volume.GetGridClass() == GRIDCLASS::SDF ? zta::Int32(ID_VOLUMEOBJECT) : zta::Int32(ICON_VOLUME_FOG);
    else if (type >= GRIDTYPE::VEC3I && type <= GRIDTYPE::VEC3D)
      icon = ICON_VOLUME_VECTOR;

    lists.names.push_back(std::move(name));
    lists.links.emplace_back(op);
    lists.icons.push_back(icon);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  return zta::OK();
}

zta::UInt32 VolumeTagData::ObjectTreeChecksum(const zta::BaseObject* op, bool tableForm) {
  Crc32c crc(tableForm ? Crc32c::FORM::TABLE : Crc32c::FORM::AUTOMATIC);
  if (!op) return crc.Get();
  std::vector<const zta::BaseObject*> stack;
  if (op->GetCache()) stack.push_back(op->GetCache());
  bool first = true;
  while (!stack.empty()) {
    const zta::BaseObject* node = stack.back();
    stack.pop_back();
    crc.AppendUInt64(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(node)));
    if (!first) crc.AppendUInt32(node->GetDirty(zta::DIRTYFLAGS_DATA));
    first = false;
    if (node->GetNext()) stack.push_back(node->GetNext());
    if (node->GetDown()) stack.push_back(node->GetDown());
    if (node->GetCache()) stack.push_back(node->GetCache());
  }
  return crc.Get();
}

zta::Result<void> VolumeTagData::MatchSlot(const VolumeTagLists& lists, zta::BaseContainer* bc, zta::Int32 id,
                                           std::string& name, zta::BaseLink* link, const zta::BaseDocument* doc,
                                           bool reuse) {
  if (!link) return zta::NullptrError("Autoalloc baselink not initialized");
  if (!bc) return zta::NullptrError("no parameters to match the slot in");
  const zta::Int32 index = bc->GetInt32(id);
  if (index == 0) {
    name.clear();
    link->SetLink(nullptr);
    return zta::OK();
  }
  const size_t count = lists.links.size();
  // A pick made by hand has no name or link yet to compare: it stands.
  const bool fresh = name.empty() && link->IsEmpty();
  if (index > 0 && size_t(index) <= count && (reuse || fresh || name == lists.names[size_t(index - 1)])) {
    name = lists.names[size_t(index - 1)];
    link->SetLink(BottomCloneSource(lists.links[size_t(index - 1)].GetLink(doc)));
    return zta::OK();
  }

  // The entry the slot showed, found again: by its link first, so a renamed
  // volume keeps its pick; then by name, whole or its last part, so a volume
  // whose link is gone (a rebuilt cache) or that moved elsewhere is found.
  const zta::BaseList2D* target = link->GetLink(doc);
  size_t hit = count;
  for (size_t i = 0; i < count && hit == count && target; ++i)
    if (BottomCloneSource(lists.links[i].GetLink(doc)) == target) hit = i;
  for (size_t i = 0; i < count && hit == count && !name.empty(); ++i)
    if (lists.names[i] == name) hit = i;
  for (size_t i = 0; i < count && hit == count && !name.empty(); ++i)
    if (LastPart(lists.names[i]) == LastPart(name)) hit = i;

  const zta::Int32 newIndex = hit == count ? -1 + 1 : zta::Int32(hit) + 1;
  bc->SetInt32(id, newIndex);
  if (hit != count) {
    name = lists.names[hit];
    link->SetLink(BottomCloneSource(lists.links[hit].GetLink(doc)));
  }
  return zta::OK();
}

zta::BaseList2D* VolumeTagData::BottomCloneSource(zta::BaseList2D* node) {
  // The host layer keeps no record of the node a clone was made from, so a
  // node is its own first original: a slot links the object the walk found,
  // and finds a rebuilt cache's object again by name.
  return node;
}

}  // namespace zelmar
