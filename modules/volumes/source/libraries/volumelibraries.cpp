#include "modules/volumes/source/libraries/volumelibraries.h"

#include "host/core/registry.h"
#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
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

}  // namespace

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
