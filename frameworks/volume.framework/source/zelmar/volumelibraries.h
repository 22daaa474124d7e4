#pragma once
// The function tables through which other modules reach the scene objects of
// the volume module without knowing its classes: each table is registered
// with the host under its library id (zta::FindLibrary) when the module
// starts. A table starts with eight bytes kept for the host; the functions
// follow at eight-byte steps. Every entry returns null, false, 0 or -1 for a
// node of another type, a missing layer list, or an index past the end.
#include <cstdint>

#include "host/core/types.h"
#include "zelmar/volume.h"

namespace zta {
class BaseObject;
class BaseTag;
class BaseContainer;
}  // namespace zta

namespace zelmar {

inline constexpr zta::Int32 kVolumeLibraryVersion = 1000;

// Volume objects (1039858), first table.
inline constexpr zta::Int32 ID_VOLUMEOBJECT_LIBRARY = 1050526;
struct VolumeObjectLibrary {
  void* hostHeader;
  // Gives the object `volume` (moves it to where the grid stands).
  bool (*SetVolume)(zta::BaseObject* op, const Volume* volume);
  void* reserved2;
  void* reserved3;
  // A number of the object's info list: 0 active voxels, 1 memory in bytes,
  // 2 the GRIDTYPE, 3 the GRIDCLASS; -1 past the end.
  int64_t (*GetInfoNumber)(const zta::BaseObject* op, zta::Int32 index);
};
static_assert(sizeof(VolumeObjectLibrary) == 40);

// Volume objects, second table.
inline constexpr zta::Int32 ID_VOLUMEOBJECT_LIBRARY2 = 1039962;
struct VolumeObjectLibrary2 {
  void* hostHeader;
  // The object's own Volume, after the object has brought it in step with its
  // file and matrix; it lives as long as the object leaves it.
  const Volume* (*GetVolumePointer)(zta::BaseObject* op);
  // A reference to the object's Volume.
  bool (*CopyVolume)(const zta::BaseObject* op, Volume* out);
  GRIDTYPE (*GetGridType)(const zta::BaseObject* op);
  GRIDCLASS (*GetGridClass)(const zta::BaseObject* op);
};
static_assert(sizeof(VolumeObjectLibrary2) == 40);

// The volume tag (1050995).
inline constexpr zta::Int32 ID_VOLUMETAG_LIBRARY = 1050997;
struct VolumeTagLibrary {
  void* hostHeader;
  // The volume object that the tag's slot (0 first, 1 second, 2 third) shows, or null.
  zta::BaseObject* (*GetSlotObject)(zta::BaseTag* tag, zta::Int32 slot);
  // The Volume of that slot's object; false when the slot shows none.
  bool (*GetSlotVolume)(zta::BaseTag* tag, zta::Int32 slot, Volume* out);
  // The volume object of the tag's list at `index`; null inside a cloner,
  // whose copies share the list.
  zta::BaseObject* (*GetVolumeByIndex)(zta::BaseTag* tag, zta::Int32 index);
};
static_assert(sizeof(VolumeTagLibrary) == 32);

// The Volume Builder (1039859). Indices count the rows that hold an object,
// depth first (a row's children before its next sibling).
inline constexpr zta::Int32 ID_VOLUMEBUILDER_LIBRARY = 1040366;
struct VolumeBuilderLibrary {
  void* hostHeader;
  zta::Int32 (*GetInputCount)(zta::BaseObject* builder);
  zta::BaseObject* (*GetInputObject)(zta::BaseObject* builder, zta::Int32 index);
  // The object of the first selected row, folders skipped.
  zta::BaseObject* (*GetSelectedObject)(zta::BaseObject* builder);
  // The row's flag word into `flags`.
  bool (*GetInputFlagsOf)(zta::BaseObject* builder, zta::Int32 index, zta::Int32* flags);
  // Adds a row for `object`: under the row of `parent` when given, else after the row of `previous`.
  bool (*AddInput)(zta::BaseObject* builder, zta::BaseObject* object, zta::BaseObject* parent,
                   zta::BaseObject* previous);
  bool (*RemoveInput)(zta::BaseObject* builder, zta::Int32 index);
  void (*ClearSelection)(zta::BaseObject* builder);
  zta::BaseTag* (*GetInputTag)(zta::BaseObject* builder, zta::Int32 index);
  zta::BaseContainer* (*GetInputSettingsContainer)(zta::BaseObject* builder, zta::Int32 index);
  bool (*SetSdfMode)(zta::BaseObject* builder, zta::Int32 index, zta::Int32 mode);
  zta::Int32 (*GetSdfMode)(zta::BaseObject* builder, zta::Int32 index);
  bool (*SetFogMode)(zta::BaseObject* builder, zta::Int32 index, zta::Int32 mode);
  zta::Int32 (*GetFogMode)(zta::BaseObject* builder, zta::Int32 index);
  bool (*SetEnabled)(zta::BaseObject* builder, zta::Int32 index, bool on);
  bool (*GetEnabled)(zta::BaseObject* builder, zta::Int32 index);
  bool (*SetSelected)(zta::BaseObject* builder, zta::Int32 index, bool on);
  bool (*GetSelected)(zta::BaseObject* builder, zta::Int32 index);
  // Whether the first row's results are current.
  bool (*GetInputCacheState)(zta::BaseObject* builder);
  bool (*SetVectorMode)(zta::BaseObject* builder, zta::Int32 index, zta::Int32 mode);
  zta::Int32 (*GetVectorMode)(zta::BaseObject* builder, zta::Int32 index);
};
static_assert(sizeof(VolumeBuilderLibrary) == 168);

}  // namespace zelmar
