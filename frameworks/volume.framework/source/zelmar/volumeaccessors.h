#pragma once
// Grid accessors: random access to the voxels of one Volume, by index
// coordinate or by world position, for reading through a sampler or for
// writing, without the caller naming a tree. One accessor class per value
// type; GridAccessorCreationImpl makes them.
//
// An accessor caches tree nodes between calls, so it belongs to one thread:
// a parallel reader makes one accessor per worker. Writers must be alone on a
// grid.
#include "zelmar/api.h"
#include <memory>
#include <string>
#include <type_traits>

#include "host/core/math.h"
#include "host/core/result.h"
#include "zelmar/volume.h"

namespace zelmar {

using zta::IntVector32;

// The value type that stands for each GRIDTYPE in the accessor and iterator
// interfaces: bool, float, double, int32, int64, vec3i, vec3s, vec3d, string.
template <typename T>
struct GridValueTraits;
template <> struct GridValueTraits<bool> { static constexpr GRIDTYPE type = GRIDTYPE::BOOL; };
template <> struct GridValueTraits<float> { static constexpr GRIDTYPE type = GRIDTYPE::FLOAT; };
template <> struct GridValueTraits<double> { static constexpr GRIDTYPE type = GRIDTYPE::DOUBLE; };
template <> struct GridValueTraits<int32_t> { static constexpr GRIDTYPE type = GRIDTYPE::INT32; };
template <> struct GridValueTraits<int64_t> { static constexpr GRIDTYPE type = GRIDTYPE::INT64; };
template <> struct GridValueTraits<zta::IntVector32> { static constexpr GRIDTYPE type = GRIDTYPE::VEC3I; };
template <> struct GridValueTraits<zta::Vector32> { static constexpr GRIDTYPE type = GRIDTYPE::VEC3S; };
template <> struct GridValueTraits<zta::Vector64> { static constexpr GRIDTYPE type = GRIDTYPE::VEC3D; };
template <> struct GridValueTraits<std::string> { static constexpr GRIDTYPE type = GRIDTYPE::STRING; };

template <typename T>
inline constexpr GRIDTYPE kGridTypeOf = GridValueTraits<T>::type;

// What every accessor does whatever its value type; the base reference
// (data type "net.zelmar.volume.datatype.gridaccessorbaseref").
class ZELMAR_API GridAccessorBase {
 public:
  virtual ~GridAccessorBase() = default;

  // The value type, fixed for the accessor's life.
  virtual GRIDTYPE GetDataType() const = 0;

  // Opens `volume` for reading with `sampler` for GetValueVector. A failed
  // Init leaves the accessor unusable until an Init succeeds.
  virtual Result<void> Init(const Volume& volume, VOLUMESAMPLER sampler) = 0;
  // Makes the volume's grid unique (a deep copy, so that writes reach this
  // volume alone), then opens it as Init does, for writing.
  virtual Result<void> InitWithWriteAccess(Volume& volume, VOLUMESAMPLER sampler) = 0;
  // Changes the interpolation of GetValueVector.
  virtual Result<void> SetSampler(VOLUMESAMPLER sampler) = 0;
  virtual VOLUMESAMPLER GetSampler() const = 0;

  // Coordinates go by value: three ints travel in registers, which keeps
  // the per-voxel call cheap.
  // The index coordinate of the voxel nearest to a world position; zeros before Init.
  virtual IntVector32 GetCoords(const Vector& position) const = 0;
  // Whether the voxel is active; false before Init.
  virtual bool GetActiveState(IntVector32 coord) const = 0;
  // Sets the active state and leaves the value.
  virtual Result<void> SetActiveState(IntVector32 coord, bool state) = 0;
};

using GridAccessorBaseRef = std::shared_ptr<GridAccessorBase>;

template <typename T>
class ZELMAR_API GridAccessorInterface : public GridAccessorBase {
 public:
  using ValueType = T;

  // The value of the voxel or tile at an index coordinate; the zero value before Init.
  virtual T GetValueIntVector32(IntVector32 coord) const = 0;
  // The value at a world position, interpolated by the sampler; the zero
  // value before Init. Integer types interpolate in their own type.
  virtual T GetValueVector(const Vector& position) const = 0;
  // Writes the value and makes the voxel active.
  virtual Result<void> SetValue(IntVector32 coord, const T& value) = 0;
  // Writes the value and leaves the active state.
  virtual Result<void> SetValueOnly(IntVector32 coord, const T& value) = 0;
};

template <typename T>
using GridAccessorRef = std::shared_ptr<GridAccessorInterface<T>>;

// "net.zelmar.volume.interface.gridaccessorcreation"
class ZELMAR_API GridAccessorCreationImpl {
 public:
  GridAccessorCreationImpl() = delete;

  // A new, uninitialised accessor of the value type `dataType`; NONE and
  // values outside GRIDTYPE give "accessor creation failed".
  static Result<GridAccessorBaseRef> Create(GRIDTYPE dataType);

  template <typename T>
  static Result<GridAccessorRef<T>> Create() {
    auto base = Create(kGridTypeOf<T>);
    if (!base) return base.GetError();
    return std::static_pointer_cast<GridAccessorInterface<T>>(std::move(base.GetValue()));
  }
};

}  // namespace zelmar
