#pragma once
// VolumeObjectData: the scene object (1039858) that holds one Volume. It
// stands where the grid's transform puts it and moves the grid when it is
// moved, measures itself by the grid's active voxels, shows the grid's type
// and size in two read-only texts, and keeps the grid either in a .vdb file
// beside the scene (through the document's save hook) or inside the scene.
#include <limits>
#include <memory>
#include <string>

#include "host/core/url.h"
#include "host/scene/baselink.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "modules/volumes/source/objects/volumesavehookinterface.h"
#include "zelmar/volume.h"

namespace zta {
class BaseDocument;
}

namespace zelmar {

class VolumeObjectDisplay;

enum : zta::Int32 {
  ID_VOLUMEOBJECT = 1039858,
  // Parameters.
  VOLUMEOBJECT_FILE = 6000,
  VOLUMEOBJECT_INFO_TYPE = 6001,
  VOLUMEOBJECT_INFO_SIZE = 6002,
  VOLUMEOBJECT_SAVE = 6003,
  VOLUMEOBJECT_RELOAD = 6004,
  // The sub-container whose bool key 1 InitNode sets.
  VOLUMEOBJECT_HOSTFLAGS = 1041667,
};

// Messages of the application that the host layer does not define.
enum : zta::Int32 {
  // The node may choose the icon it is shown with: GetCustomIconData.
  MSG_GETCUSTOMICON = 1001090,
  // A scale tool applies a matrix to the object: ScaleMatrixData.
  MSG_SCALEMATRIX = 1025528,
};

// Icons of volume objects.
enum : zta::Int32 {
  ICON_VOLUME_FOG = 1040741,
  ICON_VOLUME_VECTOR = 1040742,
  ICON_VOLUME_SDF_MISSING = 1040743,
  ICON_VOLUME_FOG_MISSING = 1040744,
  ICON_VOLUME_VECTOR_MISSING = 1040745,
  // The id under which the icon's settings are kept.
  ICON_SETTINGS_ID = 1041699,
};

struct GetCustomIconData {
  // Filled by the node when it chose: the icon id, and the settings id.
  zta::Int32 iconId = 0;
  zta::Int32 settingsId = 0;
  bool filled = false;
};

struct ScaleMatrixData {
  zta::Matrix matrix;
  // 0 and 1 mean the tool does not scale.
  zta::Float factor = 0.0;
};

class VolumeObjectData : public zta::ObjectData {
 public:
  VolumeObjectData();
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "Volume-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  void GetObjectBounds(zta::BaseObject* op, zta::Vector* mp, zta::Vector* rad) override;
  // volumedraw.cpp: the box, and the voxels by the grid's kind.
  zta::DRAWRESULT DrawObject(zta::BaseObject* op, zta::DRAWPASS pass, zta::BaseDraw* bd,
                             zta::BaseDrawHelp* bh) override;
  bool AddToExecution(zta::BaseObject* op, zta::PriorityList* list) override;
  zta::EXECUTIONRESULT ExecuteObject(zta::BaseObject* op, zta::BaseDocument* doc, zta::ZTAThread* bt,
                                     zta::Int32 priority, zta::Int32 flags) override;

  // Stores the reference, moves the object to where the grid stands,
  // refreshes the two info texts and takes the grid's box as the bounds.
  void SetVolume(zta::BaseObject* op, const Volume& volume);
  const Volume& GetVolume() const { return volume_; }
  bool IsDisplayDirty() const { return displayDirty_; }
  bool IsFileFound() const { return fileFound_; }
  bool IsFileMissing() const { return fileMissing_; }
  bool IsGridChanged() const { return gridChanged_; }
  bool IsConvertToSetPending() const { return convertToSet_; }
  // The resolved form of the file parameter, as the last execution or load found it.
  const Url& GetFileUrl() const { return fileUrl_; }
  // Asks the next execution to save the grid; without a scene folder it may
  // then ask for a file once.
  void RequestSave() {
    saveRequested_ = true;
    saveDialogDone_ = false;
  }

  // Writes the object's global matrix into the grid (making a shared volume
  // the object's own first). True when the matrix differed from the last one applied.
  bool ApplyMatrixToGrid(zta::BaseObject* op);
  // The same, only when the global matrix moved since the last time.
  void SyncMatrixToGrid(zta::BaseObject* op);
  // Sets the object's local matrix to where the grid's transform puts it.
  void SyncMatrixFromGrid(zta::BaseObject* op) const;
  // Holds the scale of a signed distance volume uniform: one changed
  // component sets all three, several give their mean.
  void EnforceUniformScale(zta::BaseObject* op);

  // The document's save hook, connected on demand.
  zta::Result<VolumeSaveHookInterface*> GetSaveHook(zta::BaseObject* op, zta::BaseDocument* doc);
  zta::Result<void> ConnectSaveHook(zta::BaseObject* op, zta::BaseDocument* doc);

  // The Volume of a volume object; an uninitialised reference for a null or any other object.
  static Volume GetVolume(const zta::BaseObject* op);
  // A new volume object holding `volume`, or null when it cannot be made.
  static std::unique_ptr<zta::BaseObject> MakeObject(const Volume& volume);

  // The texts of VOLUMEOBJECT_INFO_TYPE and VOLUMEOBJECT_INFO_SIZE.
  static std::string InfoTypeText(const Volume& volume);
  static std::string InfoSizeText(const Volume& volume);
  // The voxel-and-memory text for totals (a Volume Set's members).
  static std::string InfoSizeText(Int activeVoxels, Int memoryBytes);

  // Resolves a relative volume file: "vol" beside the scene first, then the
  // scene's folder; without a scene folder as it stands. Rewrites `url` with
  // the file found; false when there is none.
  static bool FindVolumeFile(Url& url, const zta::BaseDocument* doc);
  // Whether `op` is a member of a Volume Set (lives in a set's branch).
  static bool IsInsideVolumeSet(const zta::BaseObject* op);
  // Replaces the object by a Volume Set loading its file; the object is freed.
  static zta::EXECUTIONRESULT ConvertToVolumeSet(zta::BaseDocument* doc, zta::BaseObject* op);

 private:
  // The icon that the grid's type and class choose, or 0 for the object's own.
  zta::Int32 ChooseIcon() const;
  // Reads a one-grid file into a new volume; an error (and nothing changes)
  // when it fails. Files of another number of grids set convertToSet_ when
  // `allowConvert`, and are left alone otherwise.
  zta::Result<void> LoadFile(zta::BaseObject* op, const Url& url, bool allowConvert);
  bool SaveButton(zta::BaseObject* op, zta::BaseDocument* doc);
  bool ReloadButton(zta::BaseObject* op, zta::BaseDocument* doc);
  zta::Result<void> RegisterWithHook(zta::BaseObject* op, zta::BaseDocument* doc, Url& url);
  void RefreshInfo(zta::BaseObject* op) const;

  Volume volume_;
  zta::Matrix lastMatrix_;
  std::string gridName_;
  zta::Vector boundsMin_{std::numeric_limits<double>::max()};
  zta::Vector boundsMax_{-std::numeric_limits<double>::max()};
  zta::Vector lastScale_{1.0};
  bool transformPending_ = false;
  bool fileFound_ = false;
  bool gridChanged_ = false;
  bool convertToSet_ = false;
  bool saveRequested_ = false;
  bool saveDialogDone_ = true;
  bool fileMissing_ = false;
  bool displayDirty_ = true;
  // A disk save clears it once the grid went into the scene.
  mutable bool embedNextSave_ = false;
  // EnforceUniformScale writes the scale through the parameter path, which asks it again.
  bool enforcing_ = false;
  Url fileUrl_;
  std::unique_ptr<zta::BaseLink> hookLink_;
  // Made at the first draw; each copy of the object draws with its own.
  std::shared_ptr<VolumeObjectDisplay> display_;
};

}  // namespace zelmar
