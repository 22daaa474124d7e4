#include "modules/volumes/source/libraries/volumelibraries.h"

#include "host/core/registry.h"
#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
#include "host/scene/itemtree.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumetag.h"
#include "zelmar/volumelibraries.h"

namespace zelmar {

namespace {

VolumeObjectData* ObjectData(const zta::BaseObject* op) {
  return op && op->GetType() == ID_VOLUMEOBJECT ? const_cast<zta::BaseObject*>(op)->GetNodeData<VolumeObjectData>()
                                                : nullptr;
}

VolumeTagData* TagData(zta::BaseTag* tag) {
  return tag && tag->GetType() == ID_VOLUMETAG ? tag->GetNodeData<VolumeTagData>() : nullptr;
}

// A module that starts again replaces its own tables.
bool Install(zta::Int32 id, const void* table) {
  zta::UnregisterLibrary(id);
  return zta::RegisterLibrary(id, table).IsOk();
}

bool SetVolume(zta::BaseObject* op, const Volume* volume) {
  VolumeObjectData* data = ObjectData(op);
  if (!data || !volume) return false;
  data->SetVolume(op, *volume);
  return true;
}

int64_t GetInfoNumber(const zta::BaseObject* op, zta::Int32 index) {
  const VolumeObjectData* data = ObjectData(op);
  if (!data) return -1;
  const Volume& v = data->GetVolume();
  switch (index) {
    case 0: return int64_t(v.GetActiveVoxelCount());
    case 1: return int64_t(v.GetMemUsage());
    case 2: return int64_t(v.GetGridType());
    case 3: return int64_t(v.GetGridClass());
    default: return -1;
  }
}

const Volume* GetVolumePointer(zta::BaseObject* op) {
  VolumeObjectData* data = ObjectData(op);
  if (!data) return nullptr;
  // A caller of the pointer sees the grid where the object stands now.
  data->SyncMatrixToGrid(op);
  return &data->GetVolume();
}

bool CopyVolume(const zta::BaseObject* op, Volume* out) {
  const VolumeObjectData* data = ObjectData(op);
  if (!data || !out) return false;
  *out = data->GetVolume();
  return true;
}

GRIDTYPE GetGridType(const zta::BaseObject* op) {
  const VolumeObjectData* data = ObjectData(op);
  return data ? data->GetVolume().GetGridType() : GRIDTYPE::NONE;
}

GRIDCLASS GetGridClass(const zta::BaseObject* op) {
  const VolumeObjectData* data = ObjectData(op);
  return data ? data->GetVolume().GetGridClass() : GRIDCLASS::NONE;
}

// Slots of the table count from 0; the tag's slot numbers put the first at 2.
constexpr zta::Int32 kTagSlotOf[3] = {2, 1, 3};

zta::BaseObject* GetSlotObject(zta::BaseTag* tag, zta::Int32 slot) {
  VolumeTagData* data = TagData(tag);
  if (!data || slot < 0 || slot > 2) return nullptr;
  return data->SlotVolume(tag, tag->GetObject(), kTagSlotOf[slot]);
}

bool GetSlotVolume(zta::BaseTag* tag, zta::Int32 slot, Volume* out) {
  const Volume v = VolumeObjectData::GetVolume(GetSlotObject(tag, slot));
  if (!out || !v.HasGrid()) return false;
  *out = v;
  return true;
}

zta::BaseObject* GetVolumeByIndex(zta::BaseTag* tag, zta::Int32 index) {
  VolumeTagData* data = TagData(tag);
  if (!data || data->IsInsideGenerator()) return nullptr;
  const auto& links = data->GetLists().links;
  if (index < 0 || size_t(index) >= links.size()) return nullptr;
  const zta::BaseDocument* doc = tag->GetDocument();
  return static_cast<zta::BaseObject*>(links[size_t(index)].GetLink(doc, ID_VOLUMEOBJECT));
}

// ---- the Volume Builder: rows that hold an object, counted depth first

VolumeBuilderData* BuilderData(zta::BaseObject* op) {
  return op && op->GetType() == ID_VOLUMEBUILDER ? op->GetNodeData<VolumeBuilderData>() : nullptr;
}

zta::BaseObject* RowObject(const zta::ItemTreeItem* item, const zta::BaseDocument* doc) {
  return static_cast<zta::BaseObject*>(doc ? item->GetLink().GetLink(doc) : item->GetLink().ForceGetLink());
}

// The row at `index` among the rows with an object; null past the end.
zta::ItemTreeItem* InputRow(zta::BaseObject* builder, zta::Int32 index) {
  zta::ItemTree* tree = BuilderData(builder) ? VolumeBuilderData::GetTree(builder) : nullptr;
  if (!tree || index < 0) return nullptr;
  const zta::BaseDocument* doc = builder->GetDocument();
  for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item))
    if (RowObject(item, doc) && index-- == 0) return item;
  return nullptr;
}

// The row that holds `object`, or null.
zta::ItemTreeItem* RowOf(zta::BaseObject* builder, const zta::BaseObject* object) {
  zta::ItemTree* tree = object && BuilderData(builder) ? VolumeBuilderData::GetTree(builder) : nullptr;
  if (!tree) return nullptr;
  const zta::BaseDocument* doc = builder->GetDocument();
  for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item))
    if (RowObject(item, doc) == object) return item;
  return nullptr;
}

zta::Int32 GetInputCount(zta::BaseObject* builder) {
  zta::Int32 n = 0;
  while (InputRow(builder, n)) ++n;
  return n;
}

zta::BaseObject* GetInputObject(zta::BaseObject* builder, zta::Int32 index) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  return item ? RowObject(item, builder->GetDocument()) : nullptr;
}

zta::BaseObject* GetSelectedObject(zta::BaseObject* builder) {
  zta::ItemTree* tree = BuilderData(builder) ? VolumeBuilderData::GetTree(builder) : nullptr;
  if (!tree) return nullptr;
  for (zta::ItemTreeItem* item : tree->GetSelection()) {
    if (item->GetFlags() & LAYERFLAG_FOLDER) continue;
    if (zta::BaseObject* object = RowObject(item, builder->GetDocument())) return object;
  }
  return nullptr;
}

bool GetInputFlagsOf(zta::BaseObject* builder, zta::Int32 index, zta::Int32* flags) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  if (!item || !flags) return false;
  *flags = item->GetFlags();
  return true;
}

bool AddInput(zta::BaseObject* builder, zta::BaseObject* object, zta::BaseObject* parent, zta::BaseObject* previous) {
  VolumeBuilderData* data = BuilderData(builder);
  if (!data || !object) return false;
  zta::ItemTreeItem* parentRow = parent ? RowOf(builder, parent) : nullptr;
  zta::ItemTreeItem* previousRow = !parentRow && previous ? RowOf(builder, previous) : nullptr;
  const bool isChild = object->GetUp() == builder;
  return data->AddLayer(builder, object, parentRow, previousRow, isChild, false, false) != nullptr;
}

bool RemoveInput(zta::BaseObject* builder, zta::Int32 index) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  if (!item) return false;
  zta::ItemTree* tree = item->GetTree();
  tree->RemoveItem(item);
  tree->Changed();
  return true;
}

void ClearSelection(zta::BaseObject* builder) {
  if (zta::ItemTree* tree = BuilderData(builder) ? VolumeBuilderData::GetTree(builder) : nullptr)
    tree->Select(nullptr, zta::SELECTION_NEW);
}

zta::BaseTag* GetInputTag(zta::BaseObject* builder, zta::Int32 index) {
  zta::BaseObject* object = GetInputObject(builder, index);
  return object ? FindTag(builder, object) : nullptr;
}

zta::BaseContainer* GetInputSettingsContainer(zta::BaseObject* builder, zta::Int32 index) {
  zta::BaseTag* tag = GetInputTag(builder, index);
  return tag ? tag->GetDataInstance() : nullptr;
}

bool SetMode(zta::BaseObject* builder, zta::Int32 index, zta::Int32 type, zta::Int32 mode) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  if (!item) return false;
  VolumeBuilderData::SetLayerMode(item, type, mode);
  item->GetTree()->Changed();
  return true;
}

zta::Int32 GetMode(zta::BaseObject* builder, zta::Int32 index, zta::Int32 type) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  return item ? VolumeBuilderData::GetLayerMode(item, type) : -1;
}

bool SetFlag(zta::BaseObject* builder, zta::Int32 index, zta::Int32 flag, bool on) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  if (!item) return false;
  item->SetFlags(on ? item->GetFlags() | flag : item->GetFlags() & ~flag);
  item->GetTree()->Changed();
  return true;
}

bool GetFlag(zta::BaseObject* builder, zta::Int32 index, zta::Int32 flag) {
  zta::ItemTreeItem* item = InputRow(builder, index);
  return item && (item->GetFlags() & flag) != 0;
}

bool GetInputCacheState(zta::BaseObject* builder) {
  VolumeBuilderData* data = BuilderData(builder);
  zta::ItemTree* tree = data ? VolumeBuilderData::GetTree(builder) : nullptr;
  const EvalNode* node = tree && tree->GetFirst() ? data->FindEvalNode(tree->GetFirst()) : nullptr;
  return node && node->valid;
}

}  // namespace

bool RegisterVolumeBuilderLibrary() {
  static VolumeBuilderLibrary table{};
  table = {};
  table.GetInputCount = &GetInputCount;
  table.GetInputObject = &GetInputObject;
  table.GetSelectedObject = &GetSelectedObject;
  table.GetInputFlagsOf = &GetInputFlagsOf;
  table.AddInput = &AddInput;
  table.RemoveInput = &RemoveInput;
  table.ClearSelection = &ClearSelection;
  table.GetInputTag = &GetInputTag;
  table.GetInputSettingsContainer = &GetInputSettingsContainer;
  table.SetSdfMode = [](zta::BaseObject* b, zta::Int32 i, zta::Int32 m) { return SetMode(b, i, BUILDERTYPE_SDF, m); };
  table.GetSdfMode = [](zta::BaseObject* b, zta::Int32 i) { return GetMode(b, i, BUILDERTYPE_SDF); };
  table.SetFogMode = [](zta::BaseObject* b, zta::Int32 i, zta::Int32 m) { return SetMode(b, i, BUILDERTYPE_FOG, m); };
  table.GetFogMode = [](zta::BaseObject* b, zta::Int32 i) { return GetMode(b, i, BUILDERTYPE_FOG); };
  table.SetEnabled = [](zta::BaseObject* b, zta::Int32 i, bool on) { return SetFlag(b, i, LAYERFLAG_ENABLED, on); };
  table.GetEnabled = [](zta::BaseObject* b, zta::Int32 i) { return GetFlag(b, i, LAYERFLAG_ENABLED); };
  table.SetSelected = [](zta::BaseObject* b, zta::Int32 i, bool on) { return SetFlag(b, i, LAYERFLAG_SELECTED, on); };
  table.GetSelected = [](zta::BaseObject* b, zta::Int32 i) { return GetFlag(b, i, LAYERFLAG_SELECTED); };
  table.GetInputCacheState = &GetInputCacheState;
  table.SetVectorMode = [](zta::BaseObject* b, zta::Int32 i, zta::Int32 m) {
    return SetMode(b, i, BUILDERTYPE_VECTOR, m);
  };
  table.GetVectorMode = [](zta::BaseObject* b, zta::Int32 i) { return GetMode(b, i, BUILDERTYPE_VECTOR); };
  return Install(ID_VOLUMEBUILDER_LIBRARY, &table);
}

bool RegisterVolumeObjectLibraries() {
  static VolumeObjectLibrary first{};
  static VolumeObjectLibrary2 second{};
  first = {};
  first.SetVolume = &SetVolume;
  first.GetInfoNumber = &GetInfoNumber;
  second = {};
  second.GetVolumePointer = &GetVolumePointer;
  second.CopyVolume = &CopyVolume;
  second.GetGridType = &GetGridType;
  second.GetGridClass = &GetGridClass;
  return Install(ID_VOLUMEOBJECT_LIBRARY, &first) && Install(ID_VOLUMEOBJECT_LIBRARY2, &second);
}

bool RegisterVolumeTagLibrary() {
  static VolumeTagLibrary table{};
  table = {};
  table.GetSlotObject = &GetSlotObject;
  table.GetSlotVolume = &GetSlotVolume;
  table.GetVolumeByIndex = &GetVolumeByIndex;
  return Install(ID_VOLUMETAG_LIBRARY, &table);
}

}  // namespace zelmar
