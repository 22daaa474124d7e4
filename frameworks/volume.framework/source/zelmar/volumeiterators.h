#pragma once
// Grid iterators: a walk over the values of one Volume (its active values,
// its inactive ones, or all) without the caller naming a tree. Voxels and
// tiles both come along; GetDepth tells them apart.
//
// An iterator belongs to one thread, and the Volume must not be written
// during a walk.
#include "zelmar/api.h"
#include <memory>
#include <string>

#include "host/core/math.h"
#include "host/core/result.h"
#include "zelmar/volume.h"
#include "zelmar/volumeaccessors.h"

namespace zelmar {

// Which values a walk visits. Any value other than 1 and 2 walks all values.
enum class GRIDITERATORTYPE : int32_t {
  ACTIVE = 1,
  INACTIVE = 2,
  ALL = 3,
};

class ZELMAR_API GridIteratorBase {
 public:
  virtual ~GridIteratorBase() = default;

  // The value type GetValue gives.
  virtual GRIDTYPE GetDataType() const = 0;
  // The grid type the walk expects; NONE until set or until Init takes the
  // value type's own. A float iterator also walks double grids and a vec3s
  // iterator vec3d grids (and back), converting each value; any other
  // pairing gives "Passed grid does not have the correct type".
  virtual GRIDTYPE GetGridType() const = 0;
  virtual Result<void> SetGridType(GRIDTYPE gridType) = 0;

  // Starts a walk at the first value of the selection. An uninitialised
  // Volume, a Volume without grid and a grid of a type outside the cascade
  // leave nothing to walk and succeed.
  virtual Result<void> Init(const Volume& volume) = 0;
  // Whether the walk stands on a value.
  virtual bool IsValid() const = 0;
  virtual void MoveNext() = 0;
  // Index coordinate of the current voxel, or of a tile's first voxel; zeros
  // when the walk stands on nothing.
  virtual IntVector32 GetCoords() const = 0;
  // 3 on a voxel, 2 on a tile of the first internal level, 1 on the next,
  // 0 on a tile of the root; 3 before a grid type is set.
  virtual int32_t GetDepth() const = 0;
};

using GridIteratorBaseRef = std::shared_ptr<GridIteratorBase>;

template <typename T>
class ZELMAR_API GridIteratorInterface : public GridIteratorBase {
 public:
  using ValueType = T;
  // The current value; the zero value when the walk stands on nothing.
  virtual T GetValue() const = 0;
};

template <typename T>
using GridIteratorRef = std::shared_ptr<GridIteratorInterface<T>>;

// "net.zelmar.volume.interface.griditeratorcreation"
class ZELMAR_API GridIteratorCreationImpl {
 public:
  GridIteratorCreationImpl() = delete;

  // A new iterator of the value type `dataType` for the walk `iteratorType`
  // (1 active, 2 inactive, anything else all). A type outside GRIDTYPE's nine
  // gives "iterator creation failed".
  static Result<GridIteratorBaseRef> Create(GRIDTYPE dataType, int32_t iteratorType);

  template <typename T>
  static Result<GridIteratorRef<T>> Create(GRIDITERATORTYPE iteratorType) {
    auto base = Create(kGridTypeOf<T>, int32_t(iteratorType));
    if (!base) return base.GetError();
    return std::static_pointer_cast<GridIteratorInterface<T>>(std::move(base.GetValue()));
  }
};

}  // namespace zelmar
