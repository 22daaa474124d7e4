#include "modules/volumes/source/objects/volumesequence.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <limits>
#include <new>
#include <system_error>

#include "host/scene/basedocument.h"
#include "host/scene/checklist.h"
#include "host/scene/execution.h"
#include "host/scene/messages.h"
#include "host/scene/plugins.h"
#include "host/scene/unitscale.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x10004004;
constexpr zta::Int32 kDiskLevel = 0;
constexpr zta::Int32 kNameResource = 10008;
constexpr zta::Int32 kFilesMissingResource = 10047;
constexpr zta::Int32 kMissingIcon = 1040747;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::string Lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

}  // namespace

SequenceName ParseSequenceName(const std::string& fileName) {
  SequenceName out;
  if (fileName.empty()) return out;
  // A movie's suffix may end in a digit; its number is looked for before it.
  const std::string suffix = Lower(std::filesystem::path(fileName).extension().string());
  long pos = long(fileName.size()) - 1;
  if (suffix == ".mp4") pos = long(fileName.size()) - 4;
  while (pos >= 0 && !IsDigit(fileName[size_t(pos)])) --pos;
  if (pos < 0) return out;
  const long end = pos + 1;
  while (pos >= 0 && IsDigit(fileName[size_t(pos)])) --pos;
  const long start = pos + 1;
  if (start < 1) return out;
  const std::string digits = fileName.substr(size_t(start), size_t(end - start));
  // More digits than a frame number holds is no frame number.
  if (digits.size() > 18) return out;
  out.valid = true;
  out.prefix = fileName.substr(0, size_t(start));
  out.suffix = fileName.substr(size_t(end));
  out.number = std::stoll(digits);
  out.digits = zta::Int32(digits.size());
  return out;
}

bool MapFrameToSeries(const zta::BaseContainer& bc, zta::Int64 frame, zta::Int32* position) {
  const double speed = bc.GetFloat(SEQUENCE_SPEED, 1.0);
  const zta::Int64 first = bc.GetInt32(SEQUENCE_FIRST);
  const zta::Int64 last = bc.GetInt32(SEQUENCE_LAST);
  const zta::Int64 offset = bc.GetInt32(SEQUENCE_OFFSET);
  const bool loop = bc.GetBool(SEQUENCE_LOOP);
  const zta::Int64 count = last - first + 1;
  const double length = speed == 0.0 ? 0.0 : (1.0 / speed) * double(count);
  const zta::Int64 whole = zta::Int64(length);
  zta::Int64 relative = frame - offset;
  // A length of 0 (speed 0) shows the first file; count / length would not be a number.
  const auto index = [&](zta::Int64 r) -> zta::Int64 {
    if (count == 0 || length == 0.0) return 0;
    return zta::Int64(double(r) * (double(count) / length));
  };
  zta::Int64 at = 0;
  if (!loop) {
    if (frame < offset || frame > offset + whole) return false;
    at = index(relative);
  } else {
    const zta::Int64 step = std::max<zta::Int64>(count, 1);
    // One addition per pass would take as many passes as frames before the start.
    if (relative < 0) relative += ((-relative + step - 1) / step) * step;
    relative = length >= 1.0 && whole > 0 ? relative % whole : 0;
    at = index(std::abs(relative));
  }
  if (position) *position = zta::Int32(first + at);
  return true;
}

std::unique_ptr<zta::NodeData> VolumeSequence::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeSequence());
}

bool VolumeSequence::Register() {
  return zta::RegisterObjectPlugin(ID_VOLUMESEQUENCE, Text(kNameResource), kInfoFlags, &VolumeSequence::Alloc,
                                   "ovolumesequence", kDiskLevel);
}

bool VolumeSequence::InitNode(zta::GeListNode* node) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseObject*>(node)->GetDataInstance();
  if (!bc->GetCustomDataTyped<zta::UnitScaleData>(SEQUENCE_UNIT))
    bc->SetCustomData(SEQUENCE_UNIT, std::make_shared<zta::UnitScaleData>(1.0, zta::DOCUMENTUNIT::CM));
  if (!bc->GetCustomDataTyped<zta::CheckListData>(SEQUENCE_GRIDS))
    bc->SetCustomData(SEQUENCE_GRIDS, std::make_shared<zta::CheckListData>());
  if (zta::BaseContainer* host = bc->GetContainerInstance(VOLUMEOBJECT_HOSTFLAGS)) host->SetBool(1, true);
  return true;
}

void VolumeSequence::FreeNode(zta::GeListNode*) { Clear(); }

void VolumeSequence::Clear() {
  files_.clear();
  cached_.clear();
  lastUrl_ = Url();
  lastFrameUrl_ = Url();
  filesFound_ = false;
  reload_ = true;
}

bool VolumeSequence::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) {
  if (!ObjectData::ReadNode(node, hf, level)) return false;
  // The series is listed again at the first build: the files may have moved with the scene.
  Clear();
  keepRange_ = true;
  return true;
}

bool VolumeSequence::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                              zta::Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeSequence*>(dest);
  if (!target || !ObjectData::CopyNode(dest, snode, dnode, flags, trans)) return false;
  target->gridsOff_ = gridsOff_;
  target->gridNames_ = gridNames_;
  target->files_ = files_;
  target->record_ = record_;
  // The volumes are shared references: the copy holds the same grids.
  target->cached_ = cached_;
  target->lastUrl_ = lastUrl_;
  target->lastFrameUrl_ = lastFrameUrl_;
  target->lastScale_ = lastScale_;
  target->filesFound_ = filesFound_;
  target->keepRange_ = keepRange_;
  return true;
}

void VolumeSequence::InitSequenceFromLoader(zta::BaseObject* op, const std::vector<std::string>& gridNames,
                                            const std::vector<bool>& gridsOn) {
  gridNames_ = gridNames;
  gridsOff_.assign(gridNames.size(), false);
  for (size_t i = 0; i < gridsOff_.size(); ++i) gridsOff_[i] = i < gridsOn.size() && !gridsOn[i];
  if (!op) return;
  auto list = std::make_shared<zta::CheckListData>();
  list->SetEntries(gridNames_);
  for (size_t i = 0; i < gridsOff_.size(); ++i) list->SetChecked(zta::Int32(i), !gridsOff_[i]);
  op->GetDataInstance()->SetCustomData(SEQUENCE_GRIDS, list);
  reload_ = true;
  keepRange_ = true;
}

Url VolumeSequence::GetFrameUrl(zta::Int32 position) const {
  auto it = files_.find(position);
  return it == files_.end() ? Url() : it->second;
}

zta::Int64 VolumeSequence::DocumentFrame(const zta::BaseDocument& doc) {
  const zta::BaseTime t = doc.GetTime();
  return zta::Int64(std::floor(double(doc.GetFps()) * double(t.GetNumerator())) /
                    std::floor(double(t.GetDenominator())));
}

bool VolumeSequence::MapTimeToFrame(const zta::BaseObject* op, const zta::BaseDocument& doc, zta::Int32* position) {
  return op && MapFrameToSeries(*op->GetDataInstance(), DocumentFrame(doc), position);
}

// The series are the files of the folder whose names are the prefix, a
// number and the suffix. Positions count the files in the order of their
// numbers, so gaps in the numbering leave no empty frames, and SEQUENCE_FIRST
// and SEQUENCE_LAST are positions too (0 to the frame count minus 1).
bool VolumeSequence::Scan(zta::BaseObject* op, const zta::BaseDocument* doc, const Url& url) {
  files_.clear();
  cached_.clear();
  lastFrameUrl_ = Url();
  filesFound_ = false;
  Url found = url;
  if (!VolumeObjectData::FindVolumeFile(found, doc) || !found.IsFile()) return false;
  const std::filesystem::path file(found.GetPath());
  record_ = ParseSequenceName(file.filename().string());
  if (!record_.valid) {
    // A single file is a series of one.
    files_[0] = found;
  } else {
    std::map<zta::Int64, Url> byNumber;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(file.parent_path(), ec), end; !ec && it != end; it.increment(ec)) {
      const std::string name = it->path().filename().string();
      if (name.size() <= record_.prefix.size() + record_.suffix.size()) continue;
      if (name.compare(0, record_.prefix.size(), record_.prefix) != 0) continue;
      if (name.compare(name.size() - record_.suffix.size(), record_.suffix.size(), record_.suffix) != 0) continue;
      const std::string middle =
          name.substr(record_.prefix.size(), name.size() - record_.prefix.size() - record_.suffix.size());
      if (middle.size() > 18 || !std::all_of(middle.begin(), middle.end(), IsDigit)) continue;
      byNumber.emplace(std::stoll(middle), Url::FromSystemPath(it->path().string()));
    }
    zta::Int32 position = 0;
    for (const auto& [number, fileUrl] : byNumber) files_[position++] = fileUrl;
    if (files_.empty()) files_[0] = found;
  }
  filesFound_ = true;
  zta::BaseContainer* bc = op->GetDataInstance();
  const zta::Int32 count = zta::Int32(files_.size());
  // A new series plays whole; a scene read back, or the loader's choice, keeps its range.
  const zta::Int32 last = bc->GetInt32(SEQUENCE_LAST);
  if (!keepRange_ || last < 0 || last > count - 1) bc->SetInt32(SEQUENCE_LAST, count - 1);
  keepRange_ = false;
  bc->SetInt32(SEQUENCE_FIRST, std::clamp(bc->GetInt32(SEQUENCE_FIRST), 0, count - 1));
  bc->SetInt32(SEQUENCE_FRAME, std::clamp(bc->GetInt32(SEQUENCE_FRAME), 0, count - 1));

  // The grids of the first file; switches of grids of the same name stay.
  auto names = VolumeToolsInterface::GetGridNamesFromFile(files_.begin()->second);
  if (names) {
    auto old = bc->GetCustomDataTyped<zta::CheckListData>(SEQUENCE_GRIDS);
    auto list = std::make_shared<zta::CheckListData>();
    list->SetEntries(*names);
    gridsOff_.assign(names->size(), false);
    for (size_t i = 0; i < names->size(); ++i) {
      bool on = true;
      if (old)
        for (zta::Int32 k = 0; k < old->GetCount(); ++k)
          if (old->GetName(k) == (*names)[i]) on = old->IsChecked(k);
      list->SetChecked(zta::Int32(i), on);
      gridsOff_[i] = !on;
    }
    gridNames_ = *names;
    bc->SetCustomData(SEQUENCE_GRIDS, list);
  }
  return true;
}

zta::BaseObject* VolumeSequence::BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) {
  if (!op || !hh || !hh->GetDocument()) return nullptr;
  zta::BaseDocument* doc = hh->GetDocument();
  zta::BaseContainer* bc = op->GetDataInstance();
  zta::BeginDependenceList(op);
  std::unique_ptr<zta::BaseObject> root = zta::AllocObject(zta::HOST_TYPE_NULL);
  if (!root) return nullptr;
  const auto done = [&]() {
    zta::TouchDependenceList(op);
    return root.release();
  };

  // Grids switched off in the list; a change loads the frame again.
  if (auto list = bc->GetCustomDataTyped<zta::CheckListData>(SEQUENCE_GRIDS)) {
    std::vector<bool> off(size_t(list->GetCount()), false);
    for (zta::Int32 i = 0; i < list->GetCount(); ++i) off[size_t(i)] = !list->IsChecked(i);
    if (off != gridsOff_) {
      gridsOff_ = off;
      reload_ = true;
    }
  }

  double scale = 1.0;
  if (auto unit = bc->GetCustomDataTyped<zta::UnitScaleData>(SEQUENCE_UNIT)) {
    auto s = zta::CalculateTranslationScale(*unit, zta::GetDocumentUnit(doc));
    if (!s) return nullptr;
    scale = *s;
  }
  const Url url(bc->GetString(SEQUENCE_FILE));
  if (url.IsEmpty()) {
    Clear();
    return done();
  }
  if (scale != lastScale_ || url != lastUrl_ || !filesFound_) {
    lastScale_ = scale;
    lastUrl_ = url;
    reload_ = true;
    if (!Scan(op, doc, url)) {
      bc->SetString(SEQUENCE_INFO, Text(kFilesMissingResource));
      return done();
    }
  }
  bc->SetString(SEQUENCE_INFO, std::string());

  zta::Int32 position = 0;
  if (bc->GetBool(SEQUENCE_USE_RANGE, true)) {
    if (!MapTimeToFrame(op, *doc, &position)) return done();
  } else {
    position = bc->GetInt32(SEQUENCE_FRAME);
  }
  // A position past the series (the last frame of a range, at some speeds) shows nothing.
  const Url frameUrl = GetFrameUrl(position);
  if (frameUrl.IsEmpty()) return done();

  if (reload_ || frameUrl != lastFrameUrl_) {
    cached_.clear();
    lastFrameUrl_ = Url();
    auto names = VolumeToolsInterface::GetGridNamesFromFile(frameUrl);
    // A frame that cannot be read is empty; the next frame tries again.
    if (!names) return done();
    for (size_t i = 0; i < names->size(); ++i) {
      if (i < gridsOff_.size() && gridsOff_[i]) continue;
      auto created = Volume::Create();
      if (!created) return nullptr;
      Volume volume = *created;
      if (!volume.LoadFromFile(frameUrl, scale, Int(i))) return done();
      if (volume.HasGrid()) cached_.push_back(volume);
    }
    lastFrameUrl_ = frameUrl;
    reload_ = false;
  }

  for (const Volume& volume : cached_) {
    std::unique_ptr<zta::BaseObject> member = VolumeObjectData::MakeObject(volume);
    if (!member) return nullptr;  // out of memory
    const std::string name = volume.GetGridName();
    member->SetName(name.empty() ? "Volume" : name);
    member.release()->InsertUnderLast(root.get());
  }
  return done();
}

bool VolumeSequence::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                       zta::Int32& flags) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseObject*>(node)->GetDataInstance();
  // Before the series is listed there is nothing to hold the values to but 0.
  const zta::Int32 top = filesFound_ ? std::max<zta::Int32>(GetFrameCount() - 1, 0) : std::numeric_limits<zta::Int32>::max();
  const zta::Int32 value = zta::Int32(t_data.GetInt64());
  switch (id.GetId()) {
    case SEQUENCE_LAST:
      bc->SetInt32(SEQUENCE_LAST, std::max(std::min(value, top), bc->GetInt32(SEQUENCE_FIRST)));
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      break;
    case SEQUENCE_FIRST:
      bc->SetInt32(SEQUENCE_FIRST, std::max(std::min(value, bc->GetInt32(SEQUENCE_LAST, top)), 0));
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      break;
    case SEQUENCE_FRAME:
      bc->SetInt32(SEQUENCE_FRAME, std::max(std::min(value, top), 0));
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      break;
    default: break;
  }
  return ObjectData::SetParameterValue(node, id, t_data, flags);
}

bool VolumeSequence::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  if (!node || !description) return false;
  if (!description->LoadDescription(static_cast<zta::BaseList2D*>(node)->GetType())) return false;
  if (filesFound_) {
    const double top = double(std::max<zta::Int32>(GetFrameCount() - 1, 0));
    for (zta::Int32 id : {zta::Int32(SEQUENCE_FRAME), zta::Int32(SEQUENCE_FIRST), zta::Int32(SEQUENCE_LAST)}) {
      const zta::BaseContainer* settings = description->GetParameter(zta::DescID(id));
      if (!settings) continue;
      zta::BaseContainer limited = *settings;
      limited.SetFloat(zta::DESC_MAX, top);
      description->SetParameter(zta::DescID(id), limited);
    }
  }
  description->Hide(zta::DescID(SEQUENCE_GRIDS), gridNames_.empty());
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

bool VolumeSequence::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                        zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  const zta::BaseContainer* bc = static_cast<zta::BaseObject*>(node)->GetDataInstance();
  const bool useRange = bc->GetBool(SEQUENCE_USE_RANGE, true);
  switch (id.GetId()) {
    case SEQUENCE_FIRST:
    case SEQUENCE_LAST:
    case SEQUENCE_OFFSET:
    case SEQUENCE_SPEED:
    case SEQUENCE_LOOP: return filesFound_ && useRange;
    case SEQUENCE_USE_RANGE: return filesFound_;
    case SEQUENCE_FRAME: return !useRange;
    default: return ObjectData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

bool VolumeSequence::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::BaseContainer* bc = op->GetDataInstance();
  zta::BaseDocument* doc = op->GetDocument();
  switch (type) {
    case zta::MSG_GETALLASSETS: {
      auto* assets = static_cast<zta::AssetData*>(data);
      if (!assets || !(assets->GetTargetPath().empty() || (assets->GetFlags() & zta::ASSETDATA_FLAG_LISTALL))) break;
      if (files_.empty()) (void)Scan(op, doc ? doc : assets->GetDocument(), Url(bc->GetString(SEQUENCE_FILE)));
      zta::BaseDocument* d = doc ? doc : assets->GetDocument();
      const std::string folder = d ? d->GetDocumentPath() : std::string();
      for (const auto& [position, url] : files_) {
        std::string reported = url.ToString();
        // A series beside the scene is reported relative to where it is found.
        if (!folder.empty()) {
          for (const std::filesystem::path& base : {std::filesystem::path(folder) / "vol", std::filesystem::path(folder)}) {
            const std::filesystem::path rel = std::filesystem::path(url.GetPath()).lexically_relative(base);
            if (!rel.empty() && *rel.begin() != "..") {
              reported = rel.string();
              break;
            }
          }
        }
        assets->Add(reported, op, SEQUENCE_FILE, position, position);
      }
      break;
    }
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (command && command->id.GetId() == SEQUENCE_RELOAD) {
        Clear();
        op->SetDirty(zta::DIRTYFLAGS_DATA);
        if (doc) doc->EventAdd();
      }
      break;
    }
    case zta::MSG_NAMEORPATH_CHANGED: {
      if (!doc || doc->GetDocumentPath().empty()) break;
      const Url url(bc->GetString(SEQUENCE_FILE));
      if (url.IsEmpty() || !url.IsFile()) break;
      const std::filesystem::path moved =
          std::filesystem::path(doc->GetDocumentPath()) / "vol" / std::filesystem::path(url.GetPath()).filename();
      if (zta::IoDetect(Url::FromSystemPath(moved.string())) == zta::IODETECT::FILE) {
        bc->SetString(SEQUENCE_FILE, moved.string());
        op->SetDirty(zta::DIRTYFLAGS_DATA);
      }
      break;
    }
    case MSG_GETCUSTOMICON: {
      auto* icon = static_cast<GetCustomIconData*>(data);
      if (icon && !filesFound_ && !bc->GetString(SEQUENCE_FILE).empty()) {
        icon->iconId = kMissingIcon;
        icon->settingsId = ICON_SETTINGS_ID;
        icon->filled = true;
      }
      break;
    }
    case zta::MSG_DOCUMENTINFO: {
      const auto* info = static_cast<const zta::DocumentInfoData*>(data);
      if (!info || !(info->type == zta::DOCUMENTINFO_TYPE_SAVE_BEFORE || info->type == zta::DOCUMENTINFO_TYPE_SAVEAS_BEFORE))
        break;
      zta::BaseDocument* d = info->doc ? info->doc : doc;
      const double speed = bc->GetFloat(SEQUENCE_SPEED, 1.0);
      const zta::Int32 count = bc->GetInt32(SEQUENCE_LAST) - bc->GetInt32(SEQUENCE_FIRST) + 1;
      const double frames = speed == 0.0 ? 0.0 : double(count) / speed;
      const double fps = d ? double(d->GetFps()) : 30.0;
      bc->SetData(SEQUENCE_DURATION, zta::GeData(zta::BaseTime(frames / fps)));
      break;
    }
    default: break;
  }
  return ObjectData::HandleMessage(node, type, data);
}

}  // namespace zelmar
