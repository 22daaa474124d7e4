#pragma once
// Volume: the reference through which the system handles one sparse voxel
// grid, or none. Copies of a Volume share one VolumeImpl; Clone() gives a new
// VolumeImpl that shares the grid's tree until a writer calls MakeUnique().
#include "zelmar/api.h"
#include <cstdint>
#include <memory>
#include <string>

#include "host/core/data.h"
#include "host/core/math.h"
#include "host/core/result.h"
#include "host/core/url.h"

namespace zelmar {

using zta::Data;
using zta::DataDictionary;
using zta::Matrix;
using zta::Result;
using zta::Url;
using zta::Vector;
using Int = int64_t;

enum class GRIDTYPE : int32_t {
  NONE = 0,
  FLOAT = 1,
  DOUBLE = 2,
  INT32 = 3,
  INT64 = 4,
  VEC3I = 5,
  VEC3S = 6,
  VEC3D = 7,
  STRING = 8,
  BOOL = 9,
};

enum class GRIDCLASS : int32_t {
  NONE = 0,
  SDF = 1,
  FOG = 2,
  STAGGERED = 3,
  UNKNOWN = 4,
};

enum class VOLUMESAMPLER : int32_t {
  NEAREST = 1,
  LINEAR = 2,
  QUADRATIC = 3,
};

struct BoundingBox {
  Vector min;
  Vector max;
};

struct ValueRange {
  double min;
  double max;
  bool operator==(const ValueRange&) const = default;
};

class VolumeImpl;

class ZELMAR_API Volume {
 public:
  // An uninitialised reference; operations on it answer as for a volume without grid.
  Volume() = default;
  explicit Volume(std::shared_ptr<VolumeImpl> impl) : impl_(std::move(impl)) {}

  // A new VolumeImpl without grid, from the class "net.zelmar.volume.class.volume".
  static Result<Volume> Create();
  static Result<Volume> CreateFromFile(const Url& url, double scale, Int gridIndex);

  bool IsInitialized() const { return impl_ != nullptr; }
  explicit operator bool() const { return impl_ != nullptr; }
  bool operator==(const Volume& o) const { return impl_ == o.impl_; }

  Result<void> LoadFromFile(const Url& url, double scale, Int gridIndex);
  Result<void> WriteToFile(const Url& url, double scale, const DataDictionary& metaData) const;
  bool HasGrid() const;
  GRIDTYPE GetGridType() const;
  GRIDCLASS GetGridClass() const;
  void SetGridClass(GRIDCLASS gridClass);
  void SetGridTransform(const Matrix& newTransform);
  Matrix GetGridTransform() const;
  void SetGridName(const std::string& name);
  std::string GetGridName() const;
  // Index-space box of the active voxels, cached when the grid was set.
  const BoundingBox& GetWorldBoundingBox() const;
  zta::IntVector32 GetActiveVoxelDim() const;
  Int GetActiveVoxelCount() const;
  Data GetBackground() const;
  Int GetMemUsage() const;
  ValueRange GetMinMaxValues(bool includeBackground) const;

  // A new VolumeImpl sharing this one's tree (a shallow grid copy).
  Result<Volume> Clone() const;
  // Replaces the grid by a deep copy before a write.
  Result<void> MakeUnique();

  VolumeImpl* GetImpl() const { return impl_.get(); }
  const std::shared_ptr<VolumeImpl>& GetImplRef() const { return impl_; }

 private:
  std::shared_ptr<VolumeImpl> impl_;
};

ZELMAR_API const char* GridTypeName(GRIDTYPE type);
ZELMAR_API const char* GridClassName(GRIDCLASS gridClass);

}  // namespace zelmar
