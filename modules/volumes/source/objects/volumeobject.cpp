#include "modules/volumes/source/objects/volumeobject.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <new>
#include <system_error>

#include "host/core/format.h"
#include "host/objects/phongtag.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/messages.h"
#include "host/scene/parameters.h"
#include "host/scene/plugins.h"
#include "host/ui/dialogs.h"
#include "modules/volumes/source/helper/volumeblock.h"
#include "modules/volumes/source/helper/phong.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/fileparameter.h"
#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x20008000;
constexpr zta::Int32 kDiskLevel = 1;
constexpr zta::Int32 kNameResource = 10001;
constexpr zta::Int32 kFileNotFoundResource = 10047;
constexpr zta::Int32 kSaveTitleResource = 10048;
constexpr zta::Int32 kVoxelsLabelResource = 10060;
constexpr zta::Int32 kMemoryLabelResource = 10061;
constexpr zta::Int32 kPriorityFile = zta::EXECUTIONPRIORITY_INITIAL;
constexpr zta::Int32 kPriorityScale = zta::EXECUTIONPRIORITY_GENERATOR + 1;
constexpr const char* kSourceSceneKey = "source_zta_file";

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

zta::Int32 TypeResource(GRIDTYPE type) {
  switch (type) {
    case GRIDTYPE::FLOAT: return 10033;
    case GRIDTYPE::DOUBLE: return 10034;
    case GRIDTYPE::INT32: return 10035;
    case GRIDTYPE::INT64: return 10036;
    case GRIDTYPE::VEC3I: return 10040;
    case GRIDTYPE::VEC3S: return 10039;
    case GRIDTYPE::VEC3D: return 10038;
    case GRIDTYPE::STRING: return 10041;
    case GRIDTYPE::BOOL: return 10037;
    case GRIDTYPE::NONE: break;
  }
  return 0;
}

zta::Int32 ClassResource(GRIDCLASS gridClass) {
  switch (gridClass) {
    case GRIDCLASS::SDF: return 10042;
    case GRIDCLASS::FOG: return 10043;
    case GRIDCLASS::STAGGERED: return 10044;
    case GRIDCLASS::UNKNOWN: return 10045;
    case GRIDCLASS::NONE: break;
  }
  return 0;
}

// 1234567 as "1,234,567".
std::string Grouped(Int value) {
  const std::string digits = std::to_string(value < 0 ? -value : value);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return value < 0 ? "-" + out : out;
}

bool IsExistingFile(const Url& url) { return zta::IoDetect(url) == zta::IODETECT::FILE; }

zta::Vector ReadScale(zta::BaseObject* op) {
  zta::GeData value;
  if (!zta::GetParameter(op, zta::DescID(zta::ID_BASEOBJECT_ABS_SCALE), value)) return op->GetScale();
  return value.GetVector();
}

// Scales and matrices read back from an object carry rounding from the matrix
// they are kept in; what differs by less is taken as unchanged.
bool Differs(double a, double b) { return std::abs(a - b) > 1e-9 * std::max({1.0, std::abs(a), std::abs(b)}); }

bool Differs(const zta::Vector& a, const zta::Vector& b) {
  return Differs(a.x, b.x) || Differs(a.y, b.y) || Differs(a.z, b.z);
}

bool MatrixDiffers(const zta::Matrix& a, const zta::Matrix& b) {
  const zta::Vector* x[4] = {&a.off, &a.v1, &a.v2, &a.v3};
  const zta::Vector* y[4] = {&b.off, &b.v1, &b.v2, &b.v3};
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 3; ++k)
      if (std::abs((*x[i])[k] - (*y[i])[k]) > 1e-10) return true;
  return false;
}

bool IsScaleId(zta::Int32 id) { return id == zta::ID_BASEOBJECT_REL_SCALE || id == zta::ID_BASEOBJECT_ABS_SCALE; }

bool IsTransformId(zta::Int32 id) {
  return (id >= zta::ID_BASEOBJECT_REL_POSITION && id <= zta::ID_BASEOBJECT_REL_SCALE) ||
         (id >= zta::ID_BASEOBJECT_ABS_POSITION && id <= zta::ID_BASEOBJECT_ABS_SCALE);
}

}  // namespace

VolumeObjectData::VolumeObjectData() : hookLink_(new (std::nothrow) zta::BaseLink()) {}

std::unique_ptr<zta::NodeData> VolumeObjectData::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeObjectData());
}

bool VolumeObjectData::Register() {
  return zta::RegisterObjectPlugin(ID_VOLUMEOBJECT, Text(kNameResource), kInfoFlags, &VolumeObjectData::Alloc,
                                   "ovolume", kDiskLevel);
}

bool VolumeObjectData::InitNode(zta::GeListNode* node) {
  auto* op = static_cast<zta::BaseList2D*>(node);
  if (zta::BaseContainer* flags = op->GetDataInstance()->GetContainerInstance(VOLUMEOBJECT_HOSTFLAGS))
    flags->SetBool(1, true);
  return true;
}

// ---- scene file

bool VolumeObjectData::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) {
  if (!node || !hf) return false;
  if (!ObjectData::ReadNode(node, hf, level)) return false;
  if (level < 1) return true;
  auto* op = static_cast<zta::BaseObject*>(node);
  bool embedded = false;
  if (!hf->ReadBool(&embedded)) return false;

  if (embedded) {
    std::vector<char> block;
    if (!hf->ReadMemory(&block)) return false;
    auto loaded = DecodeVolumeBlock(std::move(block));
    if (!loaded) return hf->SetError("the embedded volume could not be read: " + loaded.GetError().GetMessage());
    if (loaded->size() == 1) {
      SetVolume(op, (*loaded)[0]);
    } else {
      fileMissing_ = true;
    }
    return true;
  }

  Url url(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE));
  if (url.IsEmpty()) return true;
  // While a scene is read its folder is not known yet; a relative file is
  // looked for again when the document says it was loaded.
  if (!FindVolumeFile(url, nullptr)) {
    fileMissing_ = true;
    return true;
  }
  auto created = Volume::Create();
  if (!created) return hf->SetError(created.GetError().GetMessage());
  Volume volume = *created;
  if (auto ok = volume.LoadFromFile(url, 1.0, 0); !ok)
    return hf->SetError("the volume file " + url.GetPath() + " could not be read: " + ok.GetError().GetMessage());
  fileUrl_ = url;
  fileFound_ = true;
  fileMissing_ = false;
  SetVolume(op, volume);
  return true;
}

bool VolumeObjectData::WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const {
  if (!node || !hf) return false;
  if (!ObjectData::WriteNode(node, hf)) return false;
  // A scene on disk leaves the grid to the save hook's file beside it,
  // unless the asset message found no file to take it.
  if (hf->GetFileKind() == zta::HYPERFILE_KIND_SCENE && !embedNextSave_) return hf->WriteBool(false);
  embedNextSave_ = false;
  if (!volume_.HasGrid()) return hf->WriteBool(false);

  const auto block = EncodeVolumeBlock({volume_});
  if (!block) return hf->SetError("the volume could not be embedded: " + block.GetError().GetMessage());
  return hf->WriteBool(true) && hf->WriteMemory(block->data(), zta::Int64(block->size()));
}

bool VolumeObjectData::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                                zta::Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeObjectData*>(dest);
  if (!target || !snode || !dnode) return false;
  if (!ObjectData::CopyNode(dest, snode, dnode, flags, trans)) return false;
  // The copy shares the grid until a change makes one of them unique.
  target->volume_ = volume_;
  target->boundsMin_ = boundsMin_;
  target->boundsMax_ = boundsMax_;
  target->gridChanged_ = gridChanged_;
  target->fileMissing_ = fileMissing_;
  target->fileUrl_ = fileUrl_;
  target->lastMatrix_ = lastMatrix_;
  target->lastScale_ = lastScale_;
  target->gridName_ = gridName_;
  target->displayDirty_ = true;
  return true;
}

// ---- parameters

bool VolumeObjectData::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                         zta::Int32& flags) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  if (id.GetId() == VOLUMEOBJECT_FILE) {
    const FileParameterSteps steps{
        [&](zta::BaseDocument* doc, Url& url) { return RegisterWithHook(op, doc, url); },
        // Members of a set read nothing of their own: the set holds the file.
        [&](Url& url, zta::BaseDocument* doc) { return !IsInsideVolumeSet(op) && FindVolumeFile(url, doc); },
        [&](const Url& url) { return LoadFile(op, url, true); }};
    if (!ChangeFileParameter(op, VOLUMEOBJECT_FILE, t_data, flags, steps, fileUrl_, fileFound_)) return false;
  }
  return ObjectData::SetParameterValue(node, id, t_data, flags);
}

bool VolumeObjectData::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                          zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  switch (id.GetId()) {
    case VOLUMEOBJECT_RELOAD: return fileFound_;
    case VOLUMEOBJECT_SAVE: return (gridChanged_ || !fileFound_) && volume_.GetActiveVoxelCount() > 0;
    default: return ObjectData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

// ---- bounds and execution

void VolumeObjectData::GetObjectBounds(zta::BaseObject* op, zta::Vector* mp, zta::Vector* rad) {
  if (mp) *mp = (boundsMin_ + boundsMax_) * 0.5;
  if (!rad) return;
  const bool empty = boundsMax_.x < boundsMin_.x || boundsMax_.y < boundsMin_.y || boundsMax_.z < boundsMin_.z;
  *rad = empty ? zta::Vector(0.0) : (boundsMax_ - boundsMin_) * 0.5;
}

bool VolumeObjectData::AddToExecution(zta::BaseObject* op, zta::PriorityList* list) {
  if (!op || !list) return false;
  list->Add(op, kPriorityFile);
  list->Add(op, kPriorityScale);
  return true;
}

zta::EXECUTIONRESULT VolumeObjectData::ExecuteObject(zta::BaseObject* op, zta::BaseDocument* doc, zta::ZTAThread* bt,
                                                     zta::Int32 priority, zta::Int32 flags) {
  if (!op || !doc) return zta::EXECUTIONRESULT::OUTOFMEMORY;
  // The object is freed on the way: nothing of it may be touched after.
  if (convertToSet_) return ConvertToVolumeSet(doc, op);

  if (priority == kPriorityScale) {
    const zta::Vector scale = ReadScale(op);
    if (Differs(scale, lastScale_)) {
      if (lastScale_ != zta::Vector(0.0) && volume_.HasGrid() && volume_.GetGridClass() == GRIDCLASS::SDF)
        EnforceUniformScale(op);
      else
        lastScale_ = scale;
    }
  }

  zta::BaseContainer* bc = op->GetDataInstance();
  if (priority == kPriorityFile) {
    if (!IsInsideVolumeSet(op)) {
      fileUrl_ = Url(bc->GetString(VOLUMEOBJECT_FILE));
      if (!hookLink_ || !hookLink_->GetLink(doc, ID_VOLUMESAVEHOOK)) {
        if (auto ok = ConnectSaveHook(op, doc); !ok) return zta::EXECUTIONRESULT::OUTOFMEMORY;
        bc->SetString(VOLUMEOBJECT_FILE, fileUrl_.ToString());
      }
      if (!fileUrl_.IsEmpty()) {
        Url found = fileUrl_;
        if (FindVolumeFile(found, doc)) {
          fileUrl_ = found;
          fileFound_ = true;
          fileMissing_ = false;
        } else {
          fileFound_ = false;
        }
      } else {
        Url url(SafeVolumeFileName(op->GetName()));
        if (auto ok = RegisterWithHook(op, doc, url); !ok) return zta::EXECUTIONRESULT::OUTOFMEMORY;
        bc->SetString(VOLUMEOBJECT_FILE, url.ToString());
      }
    } else {
      fileFound_ = false;
    }
  }

  if (fileMissing_) {
    bc->SetString(VOLUMEOBJECT_INFO_TYPE, Text(kFileNotFoundResource));
    bc->SetString(VOLUMEOBJECT_INFO_SIZE, std::string());
  }
  if (saveRequested_) {
    zta::DescriptionCommand command;
    command.id = zta::DescID(VOLUMEOBJECT_SAVE);
    op->Message(zta::MSG_DESCRIPTION_COMMAND, &command);
    saveRequested_ = false;
    saveDialogDone_ = true;
  }
  return ObjectData::ExecuteObject(op, doc, bt, priority, flags);
}

// ---- messages

bool VolumeObjectData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::BaseDocument* doc = op->GetDocument();
  zta::BaseContainer* bc = op->GetDataInstance();
  const bool inSet = IsInsideVolumeSet(op);

  switch (type) {
    case zta::MSG_DESCRIPTION_CHECKUPDATE: {
      const auto* check = static_cast<const zta::DescriptionCheckUpdate*>(data);
      if (!check) break;
      const zta::Int32 id = check->id.GetId();
      if (IsScaleId(id) && volume_.HasGrid() && volume_.GetGridClass() == GRIDCLASS::SDF) EnforceUniformScale(op);
      if (IsTransformId(id)) transformPending_ = true;
      break;
    }
    case zta::MSG_DESCRIPTION_POSTSETPARAMETER:
      // Only a move changes the grid; other parameters leave it as it is.
      if (transformPending_) {
        transformPending_ = false;
        if (ApplyMatrixToGrid(op)) gridChanged_ = true;
      }
      break;
    case zta::MSG_DESCRIPTION_USERINTERACTION_END:
      if (ApplyMatrixToGrid(op)) gridChanged_ = true;
      break;
    case zta::MSG_MENUPREPARE: {
      if (!ApplyDefaultPhong(op)) return false;
      break;
    }
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (!command || inSet) break;
      if (command->id.GetId() == VOLUMEOBJECT_SAVE && !SaveButton(op, doc)) return false;
      if (command->id.GetId() == VOLUMEOBJECT_RELOAD && !ReloadButton(op, doc)) return false;
      break;
    }
    case MSG_SCALEMATRIX: {
      const auto* scale = static_cast<const ScaleMatrixData*>(data);
      if (!scale || scale->factor == 0.0 || scale->factor == 1.0) break;
      zta::SetParameter(op, zta::DescID(zta::ID_BASEOBJECT_ABS_SCALE), zta::GeData(scale->matrix.GetScale()));
      break;
    }
    case MSG_GETCUSTOMICON: {
      auto* icon = static_cast<GetCustomIconData*>(data);
      if (!icon) break;
      if (const zta::Int32 id = ChooseIcon()) {
        icon->iconId = id;
        icon->settingsId = ICON_SETTINGS_ID;
        icon->filled = true;
      }
      break;
    }
    case zta::MSG_GETALLASSETS: {
      auto* assets = static_cast<zta::AssetData*>(data);
      // The members of a set leave their file to the set.
      if (!assets || inSet) break;
      if (!(assets->GetFlags() & (zta::ASSETDATA_FLAG_SAVEPROJECT | zta::ASSETDATA_FLAG_LISTALL))) break;
      Url url(bc->GetString(VOLUMEOBJECT_FILE));
      if (FindVolumeFile(url, doc ? doc : assets->GetDocument()))
        assets->Add(url.ToString(), op, VOLUMEOBJECT_FILE);
      else
        embedNextSave_ = true;
      break;
    }
    case zta::MSG_NAMEORPATH_CHANGED: {
      if (inSet) break;
      const FileParameterSteps steps{[&](zta::BaseDocument* d, Url& u) { return RegisterWithHook(op, d, u); }, {}, {}};
      if (!FollowObjectName(op, VOLUMEOBJECT_FILE, steps)) return false;
      break;
    }
    case zta::MSG_DOCUMENTINFO: {
      const auto* info = static_cast<const zta::DocumentInfoData*>(data);
      if (!info) break;
      if (info->type == zta::DOCUMENTINFO_TYPE_LOAD_AFTER || info->type == zta::DOCUMENTINFO_TYPE_MERGE_AFTER) {
        // A relative file read with the scene is found only now that the
        // document knows its folder.
        zta::BaseDocument* loadedInto = info->doc ? info->doc : doc;
        // A scene written by hand (the JSON form) may name the file without
        // any data of the object: it is read here as a missing one would be.
        if (!volume_.HasGrid() && !inSet && (fileMissing_ || !bc->GetString(VOLUMEOBJECT_FILE).empty())) {
          Url url(bc->GetString(VOLUMEOBJECT_FILE));
          if (FindVolumeFile(url, loadedInto) && LoadFile(op, url, false)) {
            fileUrl_ = url;
            fileMissing_ = false;
          } else {
            fileMissing_ = true;
          }
          RefreshInfo(op);
          if (fileMissing_) {
            bc->SetString(VOLUMEOBJECT_INFO_TYPE, Text(kFileNotFoundResource));
            bc->SetString(VOLUMEOBJECT_INFO_SIZE, std::string());
          }
        }
        // Without a grid there is nothing to stand by: the saved matrix stays.
        if (volume_.HasGrid()) SyncMatrixFromGrid(op);
      } else if ((info->type == zta::DOCUMENTINFO_TYPE_SAVE_BEFORE ||
                  info->type == zta::DOCUMENTINFO_TYPE_SAVEAS_BEFORE) &&
                 info->subType == zta::DOCUMENTINFO_SUBTYPE_SCENEFILE && !inSet) {
        std::filesystem::path file(bc->GetString(VOLUMEOBJECT_FILE));
        if (file.filename().empty()) {
          const std::string safe = SafeVolumeFileName(op->GetName());
          file = safe.substr(0, safe.size() - 4);
        }
        file.replace_extension("vdb");
        Url url(file.string());
        if (auto ok = RegisterWithHook(op, info->doc ? info->doc : doc, url); !ok) return false;
        bc->SetString(VOLUMEOBJECT_FILE, url.ToString());
      }
      break;
    }
    default: break;
  }
  return ObjectData::HandleMessage(node, type, data);
}

bool VolumeObjectData::SaveButton(zta::BaseObject* op, zta::BaseDocument* doc) {
  if (!volume_.HasGrid()) return true;
  volume_.SetGridName(op->GetName());
  zta::BaseContainer* bc = op->GetDataInstance();
  // Stamped as the save hook stamps its files, so that the hook knows the file for this scene's own.
  DataDictionary metadata;
  if (doc && !doc->GetDocumentPath().empty()) metadata.Set(kSourceSceneKey, doc->GetDocumentName());

  Url url(bc->GetString(VOLUMEOBJECT_FILE));
  if (FindVolumeFile(url, doc)) {
    if (gridChanged_) {
      if (auto ok = volume_.WriteToFile(url, 1.0, metadata); !ok) return false;
      gridChanged_ = false;
    }
    fileUrl_ = url;
    fileFound_ = true;
    return true;
  }
  if (!doc) return false;

  if (!doc->GetDocumentPath().empty()) {
    Url registered;
    const FileParameterSteps steps{[&](zta::BaseDocument* d, Url& u) { return RegisterWithHook(op, d, u); }, {}, {}};
    auto prepared = PrepareFileInVol(op, doc, url, steps, registered);
    if (!prepared) return false;
    const Url target = *prepared;
    if (auto ok = volume_.WriteToFile(target, 1.0, metadata); !ok) return false;
    bc->SetString(VOLUMEOBJECT_FILE, registered.ToString());
    fileUrl_ = target;
    fileFound_ = true;
    fileMissing_ = false;
    gridChanged_ = false;
    return true;
  }

  // A scene without a folder asks where the file goes, once, from the
  // execution pass: a press first asks for that pass.
  if (saveDialogDone_) {
    RequestSave();
    doc->EventAdd();
    return true;
  }
  saveDialogDone_ = true;
  std::string path = std::filesystem::path(url.GetPath()).filename().string();
  if (path.empty()) path = SafeVolumeFileName(op->GetName());
  if (!zta::SaveFileDialog(path, Text(kSaveTitleResource), "vdb")) return true;
  Url answer = Url::FromSystemPath(path);
  if (auto ok = RegisterWithHook(op, doc, answer); !ok) return false;
  if (auto ok = volume_.WriteToFile(answer, 1.0, metadata); !ok) return false;
  bc->SetString(VOLUMEOBJECT_FILE, answer.ToString());
  fileUrl_ = answer;
  fileFound_ = true;
  fileMissing_ = false;
  gridChanged_ = false;
  return true;
}

bool VolumeObjectData::ReloadButton(zta::BaseObject* op, zta::BaseDocument* doc) {
  Url url(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE));
  if (!FindVolumeFile(url, doc)) return true;
  auto names = VolumeToolsInterface::GetGridNamesFromFile(url);
  if (!names) return false;
  if (names->size() != 1) return true;
  if (auto ok = LoadFile(op, url, false); !ok) return false;
  fileUrl_ = url;
  gridChanged_ = false;
  if (doc) doc->EventAdd();
  return true;
}

zta::Result<void> VolumeObjectData::LoadFile(zta::BaseObject* op, const Url& url, bool allowConvert) {
  auto names = VolumeToolsInterface::GetGridNamesFromFile(url);
  if (!names) return names.GetError();
  if (names->size() != 1) {
    if (allowConvert) convertToSet_ = true;
    return zta::OK();
  }
  auto created = Volume::Create();
  if (!created) return created.GetError();
  Volume volume = *created;
  if (auto ok = volume.LoadFromFile(url, 1.0, 0); !ok) return ok;
  fileFound_ = true;
  fileMissing_ = false;
  SetVolume(op, volume);
  return zta::OK();
}

// ---- the save hook

zta::Result<void> VolumeObjectData::ConnectSaveHook(zta::BaseObject* op, zta::BaseDocument* doc) {
  if (!hookLink_) return zta::NullptrError("save hook not initialized");
  zta::BaseList2D* hookNode = doc ? doc->FindSceneHook(ID_VOLUMESAVEHOOK) : nullptr;
  VolumeSaveHookInterface* hook = GetSaveHookInterface(hookNode);
  if (!hook) return zta::IllegalStateError("could not create scene hook connection");
  hookLink_->SetLink(hookNode);
  if (!fileUrl_.IsEmpty()) return hook->RegisterVolumeFile(op, fileUrl_);
  return zta::OK();
}

zta::Result<VolumeSaveHookInterface*> VolumeObjectData::GetSaveHook(zta::BaseObject* op, zta::BaseDocument* doc) {
  if (!hookLink_) return zta::NullptrError("save hook not initialized");
  auto resolve = [&]() -> VolumeSaveHookInterface* {
    return GetSaveHookInterface(doc ? hookLink_->GetLink(doc, ID_VOLUMESAVEHOOK)
                                    : hookLink_->GetLink(nullptr, ID_VOLUMESAVEHOOK));
  };
  if (VolumeSaveHookInterface* hook = resolve()) return hook;
  if (auto ok = ConnectSaveHook(op, doc); !ok) return ok.GetError();
  if (VolumeSaveHookInterface* hook = resolve()) return hook;
  return zta::IllegalStateError("scene hook seems damaged");
}

zta::Result<void> VolumeObjectData::RegisterWithHook(zta::BaseObject* op, zta::BaseDocument* doc, Url& url) {
  // A document without the save hook (its plug-in is not there) takes the
  // file as it stands, so that files can be set and saved by hand; the hook,
  // once there, registers the file at the object's next execution, which
  // alone insists on the connection.
  if (!doc || !doc->FindSceneHook(ID_VOLUMESAVEHOOK)) return zta::OK();
  auto hook = GetSaveHook(op, doc);
  if (!hook) return hook.GetError();
  return (*hook)->RegisterVolumeFile(op, url);
}

// ---- the volume and the matrix

void VolumeObjectData::SetVolume(zta::BaseObject* op, const Volume& volume) {
  volume_ = volume;
  gridName_ = volume_.GetGridName();
  if (op) {
    SyncMatrixFromGrid(op);
    RefreshInfo(op);
    lastMatrix_ = op->GetMg();
  }
  // The box is in index space, which is the object's own space once the
  // object stands where the grid's transform puts it.
  const BoundingBox& box = volume_.GetWorldBoundingBox();
  boundsMin_ = box.min;
  boundsMax_ = box.max;
  displayDirty_ = true;
}

void VolumeObjectData::RefreshInfo(zta::BaseObject* op) const {
  zta::BaseContainer* bc = op->GetDataInstance();
  bc->SetString(VOLUMEOBJECT_INFO_TYPE, InfoTypeText(volume_));
  bc->SetString(VOLUMEOBJECT_INFO_SIZE, InfoSizeText(volume_));
}

bool VolumeObjectData::ApplyMatrixToGrid(zta::BaseObject* op) {
  if (!op) return false;
  const zta::Matrix mg = op->GetMg();
  const bool moved = MatrixDiffers(mg, lastMatrix_);
  lastMatrix_ = mg;
  if (!volume_.HasGrid()) return false;
  // Copies of the object hold the same volume: this one takes a volume of
  // its own, which shares the voxels until one of them writes them.
  if (volume_.GetImplRef().use_count() > 1) {
    auto own = volume_.Clone();
    if (!own) return false;
    volume_ = *own;
  }
  volume_.SetGridTransform(mg);
  displayDirty_ = true;
  return moved;
}

void VolumeObjectData::SyncMatrixToGrid(zta::BaseObject* op) {
  if (op && MatrixDiffers(op->GetMg(), lastMatrix_)) ApplyMatrixToGrid(op);
}

void VolumeObjectData::SyncMatrixFromGrid(zta::BaseObject* op) const {
  const zta::Matrix grid = volume_.HasGrid() ? volume_.GetGridTransform() : zta::Matrix();
  const zta::Matrix frozen = op->GetFrozenMatrix();
  // A singular frozen matrix has no inverse to take out; it counts as none.
  op->SetRelMl(std::abs(frozen.Det()) < 1e-15 ? grid : frozen.GetInverse() * grid);
}

void VolumeObjectData::EnforceUniformScale(zta::BaseObject* op) {
  if (!op || enforcing_) return;
  const zta::Vector scale = ReadScale(op);
  int changed = 0;
  zta::Int32 last = -1;
  for (int i = 0; i < 3; ++i) {
    if (Differs(scale[i], lastScale_[i])) {
      ++changed;
      last = i;
    }
  }
  if (changed == 0) return;
  const double value = changed == 1 ? scale[last] : (scale.x + scale.y + scale.z) * 0.3333333333333333;
  lastScale_ = zta::Vector(value);
  enforcing_ = true;
  zta::SetParameter(op, zta::DescID(zta::ID_BASEOBJECT_ABS_SCALE), zta::GeData(lastScale_));
  enforcing_ = false;
}

// ---- the icon

zta::Int32 VolumeObjectData::ChooseIcon() const {
  const GRIDTYPE type = volume_.IsInitialized() ? volume_.GetGridType() : GRIDTYPE::FLOAT;
  const GRIDCLASS gridClass = volume_.IsInitialized() ? volume_.GetGridClass() : GRIDCLASS::SDF;
  if (type == GRIDTYPE::VEC3S || type == GRIDTYPE::VEC3D)
    return fileMissing_ ? ICON_VOLUME_VECTOR_MISSING : ICON_VOLUME_VECTOR;
  if (gridClass == GRIDCLASS::SDF) return fileMissing_ ? ICON_VOLUME_SDF_MISSING : 0;
  if (gridClass == GRIDCLASS::FOG || gridClass == GRIDCLASS::STAGGERED || gridClass == GRIDCLASS::UNKNOWN)
    return fileMissing_ ? ICON_VOLUME_FOG_MISSING : ICON_VOLUME_FOG;
  return 0;
}

// ---- the set

bool VolumeObjectData::IsInsideVolumeSet(const zta::BaseObject* op) {
  if (!op) return false;
  const zta::GeListNode* top = op;
  while (top->GetUp()) top = top->GetUp();
  const zta::GeListHead* head = top->GetListHead();
  const auto* owner = head ? dynamic_cast<const zta::BaseList2D*>(head->GetOwner()) : nullptr;
  return owner && owner->GetType() == ID_VOLUMESET;
}

zta::EXECUTIONRESULT VolumeObjectData::ConvertToVolumeSet(zta::BaseDocument* doc, zta::BaseObject* op) {
  if (!doc || !op) return zta::EXECUTIONRESULT::OUTOFMEMORY;
  std::unique_ptr<zta::BaseObject> made = zta::AllocObject(ID_VOLUMESET);
  if (!made) return zta::EXECUTIONRESULT::OUTOFMEMORY;  // an out-of-memory error: nothing changed
  if (op->GetBit(zta::BIT_ACTIVE)) made->SetBit(zta::BIT_ACTIVE);
  made->SetName(op->GetName());
  const std::string url = op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE);

  // The object lets go of its file first: the set takes the same name, which
  // the hook would otherwise number as a clash.
  if (auto* data = op->GetNodeData<VolumeObjectData>()) {
    Url none;
    (void)data->RegisterWithHook(op, doc, none);
  }
  zta::BaseObject* set = made.release();
  if (!set->InsertBefore(op)) {
    zta::GeListNode::Free(set);
    return zta::EXECUTIONRESULT::OUTOFMEMORY;
  }
  // One undo step takes the set out and brings the object back.
  doc->StartUndo();
  doc->AddUndo(zta::UNDOTYPE::NEWOBJ, set);
  zta::SetParameter(set, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(url));
  zta::PressButton(set, zta::DescID(VOLUMEOBJECT_RELOAD));
  op->DelBit(zta::BIT_ACTIVE);
  set->SetDirty(zta::DIRTYFLAGS_DESCRIPTION);
  doc->AddUndo(zta::UNDOTYPE::DELETEOBJ, op);
  doc->EndUndo();
  zta::GeListNode::Free(op);
  doc->EventAdd();
  return zta::EXECUTIONRESULT::OK;
}

// ---- statics

bool VolumeObjectData::FindVolumeFile(Url& url, const zta::BaseDocument* doc) {
  if (url.IsEmpty()) return false;
  if (!url.IsFile()) return IsExistingFile(url);
  const std::filesystem::path path(url.GetPath());
  if (path.is_absolute()) return IsExistingFile(url);
  const std::string folder = doc ? doc->GetDocumentPath() : std::string();
  if (folder.empty()) return IsExistingFile(url);
  for (const std::filesystem::path& candidate : {std::filesystem::path(folder) / "vol" / path,
                                                 std::filesystem::path(folder) / path}) {
    const Url found = Url::FromSystemPath(candidate.string());
    if (IsExistingFile(found)) {
      url = found;
      return true;
    }
  }
  return false;
}

Volume VolumeObjectData::GetVolume(const zta::BaseObject* op) {
  if (!op || op->GetType() != ID_VOLUMEOBJECT) return Volume();
  const auto* data = op->GetNodeData<VolumeObjectData>();
  return data ? data->volume_ : Volume();
}

std::unique_ptr<zta::BaseObject> VolumeObjectData::MakeObject(const Volume& volume) {
  std::unique_ptr<zta::BaseObject> op = zta::BaseObject::Alloc(ID_VOLUMEOBJECT);
  if (!op) return nullptr;
  auto* data = op->GetNodeData<VolumeObjectData>();
  if (!data) return nullptr;
  data->SetVolume(op.get(), volume);
  return op;
}

std::string VolumeObjectData::InfoTypeText(const Volume& volume) {
  return Text(TypeResource(volume.GetGridType())) + " " + Text(ClassResource(volume.GetGridClass()));
}

std::string VolumeObjectData::InfoSizeText(const Volume& volume) {
  return InfoSizeText(volume.GetActiveVoxelCount(), volume.HasGrid() ? volume.GetMemUsage() : 0);
}

std::string VolumeObjectData::InfoSizeText(Int activeVoxels, Int memoryBytes) {
  static const char* const kUnits[] = {"kb", "mb", "gb"};
  Int size = memoryBytes / 1024;
  size_t unit = 0;
  while (size > 2048 && unit + 1 < std::size(kUnits)) {
    size /= 1024;
    ++unit;
  }
  return zta::FormatString("@: @   @: ~@ @ ", Text(kVoxelsLabelResource), Grouped(activeVoxels),
                           Text(kMemoryLabelResource), size, kUnits[unit]);
}

}  // namespace zelmar
