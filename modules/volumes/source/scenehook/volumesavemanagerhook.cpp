#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <new>
#include <system_error>

#include "host/core/diagnostics.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/messages.h"
#include "host/scene/plugins.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr const char* kHookName = "Volume Save Manager Hook";
constexpr zta::Int32 kHookPriority = 3000;
constexpr zta::Int32 kDiskLevel = 0;
constexpr float kLoadFactor = 0.65f;
constexpr const char* kSourceSceneKey = "source_zta_file";
// Item trees that get their object as owner when it is added from the menu.
constexpr zta::Int32 ID_VOLUMEBUILDER = 1039859;
constexpr zta::Int32 VOLUMEBUILDER_TREE = 6016;
constexpr zta::Int32 VOLUMESET_TREE = 6001;
constexpr size_t kMaxNameBytes = 200;

bool IsVolumeType(zta::Int32 type) { return type == ID_VOLUMEOBJECT || type == ID_VOLUMESET; }

bool IsRelative(const zta::Url& url) {
  return url.IsFile() && !std::filesystem::path(url.GetPath()).is_absolute();
}

bool EqualsIgnoringCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// The url with its last path part replaced by `name`.
zta::Url WithFileName(const zta::Url& url, const std::string& name) {
  const std::filesystem::path parent = std::filesystem::path(url.GetPath()).parent_path();
  const std::string path = parent.empty() ? name : (parent / name).string();
  return url.IsFile() || url.IsEmpty() ? zta::Url(path) : zta::Url::Memory(path);
}

std::string FileNameOf(const zta::Url& url) { return std::filesystem::path(url.GetPath()).filename().string(); }

// The scene a .vdb file was written for, from its "source_zta_file"; empty
// when the file has no such key.
zta::Result<std::string> SourceSceneOf(const zta::Url& file) {
  auto meta = VolumeToolsInterface::GetMetaDataFromFile(file);
  if (!meta) return meta.GetError();
  for (const zta::DataDictionary& entry : *meta)
    if (const auto* text = entry.Get(kSourceSceneKey).TryGet<std::string>()) return *text;
  return std::string();
}

}  // namespace

std::string SafeVolumeFileName(const std::string& objectName) {
  std::string name;
  name.reserve(objectName.size());
  for (const char c : objectName) {
    const auto u = static_cast<unsigned char>(c);
    name += (c == '/' || c == '\\' || u < 0x20 || u == 0x7f) ? '_' : c;
  }
  if (name.size() > kMaxNameBytes) {
    size_t cut = kMaxNameBytes;
    // Not inside a UTF-8 sequence: continuation bytes are 10xxxxxx.
    while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
    name.resize(cut);
  }
  if (name.find_first_not_of('.') == std::string::npos) name = "Volume";
  return name + ".vdb";
}

VolumeSaveManagerHook::VolumeSaveManagerHook() {
  usedFiles_.max_load_factor(kLoadFactor);
  objectFiles_.max_load_factor(kLoadFactor);
  pendingWrites_.max_load_factor(kLoadFactor);
  reservedFiles_.max_load_factor(kLoadFactor);
}

VolumeSaveManagerHook::~VolumeSaveManagerHook() = default;

std::unique_ptr<zta::NodeData> VolumeSaveManagerHook::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeSaveManagerHook());
}

bool VolumeSaveManagerHook::Register() {
  return zta::RegisterSceneHookPlugin(ID_VOLUMESAVEHOOK, kHookName, 0, &VolumeSaveManagerHook::Alloc, kHookPriority,
                                      kDiskLevel);
}

// ---- registration

zta::Result<void> VolumeSaveManagerHook::RegisterVolumeFile(zta::BaseList2D* object, zta::Url& url) {
  if (!object) return zta::NullptrError("no object to register");
  if (!IsVolumeType(object->GetType())) return zta::IllegalArgumentError("non volumes is registered");
  if (objectFiles_.count(object)) return UpdateVolumeFile(object, url);
  return AddVolumeFile(object, url);
}

zta::Result<void> VolumeSaveManagerHook::AddVolumeFile(zta::BaseList2D* object, zta::Url& url) {
  if (!object) return zta::NullptrError("no object to register");
  if (auto ok = PurgeDeadEntries(object->GetDocument()); !ok) return ok;
  if (objectFiles_.count(object)) return zta::IllegalStateError("volume already registered");
  url = MakeUniqueFileName(url, false);
  if (url.IsEmpty()) return zta::OK();
  auto link = std::unique_ptr<zta::BaseLink>(new (std::nothrow) zta::BaseLink(object));
  if (!link) return zta::OutOfMemoryError();
  links_.emplace_back(std::move(link), object);
  objectFiles_[object] = url;
  usedFiles_.insert(url);
  return zta::OK();
}

zta::Result<void> VolumeSaveManagerHook::UpdateVolumeFile(zta::BaseList2D* object, zta::Url& url) {
  if (!object) return zta::NullptrError("no object to register");
  // Without a document there is nothing to resolve the links in.
  if (zta::BaseDocument* doc = object->GetDocument()) {
    if (auto ok = PurgeDeadEntries(doc); !ok) return ok;
  }
  auto it = objectFiles_.find(object);
  if (it == objectFiles_.end()) return AddVolumeFile(object, url);
  usedFiles_.erase(it->second);
  url = MakeUniqueFileName(url, false);
  if (!url.IsEmpty()) usedFiles_.insert(url);
  it->second = url;
  return zta::OK();
}

void VolumeSaveManagerHook::ForgetObject(zta::BaseList2D* object) {
  auto it = objectFiles_.find(object);
  if (it == objectFiles_.end()) return;
  usedFiles_.erase(it->second);
  objectFiles_.erase(it);
  pendingWrites_.erase(object);
}

zta::Result<void> VolumeSaveManagerHook::PurgeDeadEntries(zta::BaseDocument* doc) {
  // Without a document nothing can be told alive; nothing is forgotten then.
  if (!doc) return zta::OK();
  // Pointers of dead entries are only compared, never followed: the node may be gone.
  for (size_t i = 0; i < links_.size();) {
    const auto& [link, object] = links_[i];
    if (link && link->GetLink(doc) == object) {
      ++i;
      continue;
    }
    ForgetObject(object);
    links_.erase(links_.begin() + std::ptrdiff_t(i));
  }
  return zta::OK();
}

bool VolumeSaveManagerHook::IsLive(const zta::BaseList2D* object, zta::BaseDocument* doc) const {
  for (const auto& [link, registered] : links_)
    if (registered == object) return link && doc && link->GetLink(doc) == object;
  return false;
}

zta::Result<void> VolumeSaveManagerHook::RelinkObjects(zta::BaseDocument* doc) {
  for (size_t i = 0; i < links_.size();) {
    zta::BaseList2D* node = links_[i].first ? links_[i].first->GetLink(doc) : nullptr;
    if (!node) {
      ForgetObject(links_[i].second);
      links_.erase(links_.begin() + std::ptrdiff_t(i));
      continue;
    }
    ++i;
    if (!IsVolumeType(node->GetType())) return zta::IllegalStateError("non volumes is registered");
    zta::BaseContainer* bc = node->GetDataInstance();
    const zta::Url old(bc->GetString(VOLUMEOBJECT_FILE));
    if (old.IsEmpty() || !old.IsFile()) continue;
    zta::Url url(FileNameOf(old));
    if (auto ok = UpdateVolumeFile(node, url); !ok) return ok;
    bc->SetString(VOLUMEOBJECT_FILE, url.ToString());
  }
  return zta::OK();
}

// ---- names

bool VolumeSaveManagerHook::ExistsAtSaveTarget(const zta::Url& url) const {
  if (IsRelative(url) && !saveFolder_.empty()) {
    auto target = MakeSaveUrl(saveFolder_, url);
    return target && zta::IoDetect(*target) == zta::IODETECT::FILE;
  }
  return zta::IoDetect(url) == zta::IODETECT::FILE;
}

zta::Url VolumeSaveManagerHook::MakeUniqueFileName(const zta::Url& url, bool checkDisk) const {
  const auto taken = [&](const zta::Url& u) {
    return usedFiles_.count(u) || reservedFiles_.count(u) || (checkDisk && ExistsAtSaveTarget(u));
  };
  if (url.IsEmpty() || !taken(url)) return url;
  zta::Url current = url;
  for (zta::Int64 counter = 0;;) {
    std::string name = FileNameOf(current);
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".vdb") == 0) name.resize(name.size() - 4);
    // The template is chosen again at every pass, from the name as the last pass cut it.
    const char* separator = "_";
    const size_t lastNonDigit = name.find_last_not_of("0123456789");
    const bool digitsEnd = !name.empty() && (lastNonDigit == std::string::npos || lastNonDigit + 1 < name.size());
    if (digitsEnd && lastNonDigit != std::string::npos) {
      const char before = name[lastNonDigit];
      if (before == '_' || before == '.') {
        if (before == '.') separator = ".";
        name.resize(lastNonDigit);
      }
    }
    current = WithFileName(current, name);
    ++counter;
    const zta::Url candidate = WithFileName(current, name + separator + std::to_string(counter) + ".vdb");
    if (!taken(candidate)) return candidate;
  }
}

zta::Result<zta::Url> VolumeSaveManagerHook::MakeSaveUrl(const std::string& documentPath, const zta::Url& url) {
  std::string name = FileNameOf(url);
  if (name.empty()) return zta::IllegalArgumentError("filename cannot be empty");
  if (zta::Url(name).GetSuffix() != "vdb") {
    name += ".vdb";
    if (zta::Url(name).GetSuffix() != "vdb") return zta::IllegalArgumentError("volume name ending not vdb");
  }
  if (!IsRelative(url)) return url;
  // Only the last part of a relative name counts, made safe as an object's
  // name is, so that nothing a relative name says leaves "vol".
  const std::string base = name.substr(0, name.size() - 4);
  name = SafeVolumeFileName(base);
  return zta::Url::FromSystemPath((std::filesystem::path(documentPath) / "vol" / name).string());
}

// ---- saving

void VolumeSaveManagerHook::Rename(zta::BaseList2D* object, const zta::Url& url) {
  auto it = objectFiles_.find(object);
  if (it == objectFiles_.end()) return;
  usedFiles_.erase(it->second);
  it->second = url;
  usedFiles_.insert(url);
  object->GetDataInstance()->SetString(VOLUMEOBJECT_FILE, url.ToString());
}

zta::Result<void> VolumeSaveManagerHook::PrepareSave(zta::BaseDocument* doc, const zta::DocumentInfoData& info) {
  if (auto ok = PurgeDeadEntries(doc); !ok) return ok;
  if (info.type == zta::DOCUMENTINFO_TYPE_SAVEAS_BEFORE) {
    if (auto ok = RelinkObjects(doc); !ok) return ok;
  }
  const std::filesystem::path scene(info.url);
  const std::string sceneName = scene.filename().string();
  saveFolder_ = scene.parent_path().string();
  metadata_ = zta::DataDictionary();
  metadata_.Set(kSourceSceneKey, sceneName);
  pendingWrites_.clear();
  reservedFiles_.clear();

  // A copy: renaming below changes the tables.
  std::vector<std::pair<zta::BaseList2D*, zta::Url>> entries(objectFiles_.begin(), objectFiles_.end());
  for (auto& [object, url] : entries) {
    if (!object || url.IsEmpty()) continue;
    const bool relative = IsRelative(url);
    auto target = MakeSaveUrl(saveFolder_, url);
    if (!target) return target.GetError();
    // A relative name is written as one file name inside "vol"; the object
    // takes that name, so that it finds its file when the scene is read.
    if (relative && url.GetPath() != FileNameOf(*target)) {
      usedFiles_.erase(url);
      const zta::Url bare = MakeUniqueFileName(zta::Url(FileNameOf(*target)), false);
      Rename(object, bare);
      url = bare;
      target = MakeSaveUrl(saveFolder_, bare);
      if (!target) return target.GetError();
    }
    bool foreign = false;
    if (relative && zta::IoDetect(*target) == zta::IODETECT::FILE) {
      // A file that is no readable .vdb is nobody's volume we may overwrite:
      // it is kept like another scene's file.
      auto source = SourceSceneOf(*target);
      foreign = !source || (!source->empty() && !EqualsIgnoringCase(*source, sceneName));
    }
    // Two registrations that land on one file (a relative and an absolute
    // name of it) would overwrite each other: the later one moves too.
    if (!foreign && reservedFiles_.count(*target)) foreign = relative;
    if (foreign) {
      const zta::Url renamed = MakeUniqueFileName(url, true);
      Rename(object, renamed);
      auto moved = MakeSaveUrl(saveFolder_, renamed);
      if (!moved) return moved.GetError();
      target = moved;
    }
    reservedFiles_.insert(*target);
    pendingWrites_[object] = *target;
  }
  return zta::OK();
}

bool VolumeSaveManagerHook::WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const {
  if (!SceneHookData::WriteNode(node, hf)) return false;
  if (!hf || hf->GetFileKind() != zta::HYPERFILE_KIND_SCENE || collecting_) return true;
  zta::BaseDocument* doc = hf->GetDocument();
  if (!doc && node) doc = static_cast<const zta::BaseList2D*>(node)->GetDocument();
  bool ok = true;
  for (const auto& [object, url] : pendingWrites_) {
    // An object that went away since the save began is not touched.
    if (!object || url.IsEmpty() || !IsLive(object, doc)) continue;
    zta::Result<void> written = zta::OK();
    if (url.IsFile()) {
      std::error_code ec;
      std::filesystem::create_directories(std::filesystem::path(url.GetPath()).parent_path(), ec);
      if (ec) written = zta::IoError("could not make the folder of " + url.ToString() + ": " + ec.message());
    }
    if (written) {
      auto* op = static_cast<zta::BaseObject*>(object);
      if (object->GetType() == ID_VOLUMEOBJECT) {
        Volume volume = VolumeObjectData::GetVolume(op);
        // An object without a grid has nothing to write; its file stays as it is.
        if (volume.HasGrid()) {
          volume.SetGridName(object->GetName());
          written = volume.WriteToFile(url, 1.0, metadata_);
        }
      } else {
        written = WriteVolumeGroup(op, url, metadata_);
      }
    }
    if (!written) {
      zta::DiagnosticOutput("could not write @: @", url.ToString(), written.GetError().GetMessage());
      ok = false;
      break;
    }
  }
  pendingWrites_.clear();
  return ok;
}

zta::Result<void> VolumeSaveManagerHook::WriteVolumeGroup(zta::BaseObject* group, const zta::Url& url,
                                                          const zta::DataDictionary& metadata) {
  if (!group) return zta::NullptrError("no volume group was passed for writing");
  zta::NodeData* data = group->GetNodeData();
  zta::BranchInfo branch;
  if (!data || data->ListBranches(group, &branch, 1, 0) < 1 || !branch.head)
    return zta::IllegalStateError("could not load branch info from group");
  std::vector<Volume> volumes;
  for (zta::GeListNode* n = branch.head->GetFirst(); n; n = n->GetNext()) {
    auto* op = static_cast<zta::BaseObject*>(n);
    if (op->GetType() != ID_VOLUMEOBJECT) continue;
    Volume volume = VolumeObjectData::GetVolume(op);
    if (!volume.HasGrid()) continue;
    volume.SetGridName(op->GetName());
    volumes.push_back(volume);
  }
  return VolumeToolsInterface::SaveVDBFile(url, 1.0, volumes, metadata);
}

bool VolumeSaveManagerHook::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  if (type == zta::MSG_GETALLASSETS) {
    const auto* assets = static_cast<const zta::AssetData*>(data);
    if (assets && (assets->GetFlags() & zta::ASSETDATA_FLAG_SAVEPROJECT)) collecting_ = true;
    return SceneHookData::HandleMessage(node, type, data);
  }
  if (type != zta::MSG_DOCUMENTINFO) return SceneHookData::HandleMessage(node, type, data);
  const auto* info = static_cast<const zta::DocumentInfoData*>(data);
  if (!info) return false;
  zta::BaseDocument* doc = info->doc ? info->doc : static_cast<zta::BaseList2D*>(node)->GetDocument();
  if (!doc) return false;
  if (info->type < zta::DOCUMENTINFO_TYPE_SAVE_BEFORE || info->type > zta::DOCUMENTINFO_TYPE_OBJECT_ADDED)
    return SceneHookData::HandleMessage(node, type, data);

  switch (info->type) {
    case zta::DOCUMENTINFO_TYPE_SAVE_AFTER:
    case zta::DOCUMENTINFO_TYPE_SAVEAS_AFTER:
      reservedFiles_.clear();
      // What the save wrote belongs to that save; a failed one leaves nothing pending.
      pendingWrites_.clear();
      saveFolder_.clear();
      collecting_ = false;
      doc->EventAdd();
      break;
    case zta::DOCUMENTINFO_TYPE_OBJECT_ADDED: {
      zta::BaseList2D* object = info->object;
      if (!object) break;
      const zta::Int32 treeId = object->GetType() == ID_VOLUMEBUILDER ? VOLUMEBUILDER_TREE
                                : object->GetType() == ID_VOLUMESET   ? VOLUMESET_TREE
                                                                      : 0;
      if (!treeId) break;
      if (auto* tree = object->GetDataInstance()->GetCustomDataWritableTyped<zta::ItemTree>(treeId))
        tree->SetOwner(object);
      break;
    }
    case zta::DOCUMENTINFO_TYPE_SAVE_BEFORE:
    case zta::DOCUMENTINFO_TYPE_SAVEAS_BEFORE:
      if (info->subType != zta::DOCUMENTINFO_SUBTYPE_SCENEFILE) break;
      if (auto ok = PrepareSave(doc, *info); !ok) {
        zta::DiagnosticOutput("@", ok.GetError().GetMessage());
        return false;
      }
      break;
    default: break;
  }
  return SceneHookData::HandleMessage(node, type, data);
}

// ---- queries

const zta::Url* VolumeSaveManagerHook::GetRegisteredFile(const zta::BaseList2D* object) const {
  auto it = objectFiles_.find(const_cast<zta::BaseList2D*>(object));
  return it == objectFiles_.end() ? nullptr : &it->second;
}

bool VolumeSaveManagerHook::IsFileUsed(const zta::Url& url) const { return usedFiles_.count(url) > 0; }

}  // namespace zelmar
