#pragma once
// VolumeObjectData: the scene object (1039858) that holds one Volume. It
// stands where the grid's transform puts it, measures itself by the grid's
// active voxels, and shows the grid's type and size in two read-only texts.
#include <limits>
#include <memory>
#include <string>

#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "zelmar/volume.h"

namespace zelmar {

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

class VolumeObjectData : public zta::ObjectData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "Volume-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  void GetObjectBounds(zta::BaseObject* op, zta::Vector* mp, zta::Vector* rad) override;

  // Stores the reference, moves the object to where the grid stands,
  // refreshes the two info texts and takes the grid's box as the bounds.
  void SetVolume(zta::BaseObject* op, const Volume& volume);
  const Volume& GetVolume() const { return volume_; }
  bool IsDisplayDirty() const { return displayDirty_; }

  // The Volume of a volume object; an uninitialised reference for a null or any other object.
  static Volume GetVolume(const zta::BaseObject* op);
  // A new volume object holding `volume`, or null when it cannot be made.
  static std::unique_ptr<zta::BaseObject> MakeObject(const Volume& volume);

  // The texts of VOLUMEOBJECT_INFO_TYPE and VOLUMEOBJECT_INFO_SIZE.
  static std::string InfoTypeText(const Volume& volume);
  static std::string InfoSizeText(const Volume& volume);

 private:
  void SyncMatrixFromGrid(zta::BaseObject* op) const;

  Volume volume_;
  zta::Matrix lastMatrix_;
  zta::Vector boundsMin_{std::numeric_limits<double>::max()};
  zta::Vector boundsMax_{-std::numeric_limits<double>::max()};
  bool displayDirty_ = true;
};

}  // namespace zelmar
