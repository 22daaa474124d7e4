// Grid accessors: one generic implementation over OpenVDB's value accessor and
// its three grid samplers, instantiated for each value type.
#include <openvdb/tools/Interpolation.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <variant>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumeaccessors.h"

namespace zelmar {

namespace {

constexpr const char* kNoVolume = "No allocated object Ref was passed to the init function";
constexpr const char* kNoGrid = "The passed volume has no openvdb grid attached";
constexpr const char* kNullGrid = "passed grid pointer is not initialized";
constexpr const char* kWrongType = "volume datatype does not fit to accessor type";
constexpr const char* kNoAccessor = "accessor creation failed";
constexpr const char* kNoSampler = "grid sampler creation failed";
constexpr const char* kNotInitialized = "Accessor not initialized";
constexpr const char* kReadOnly = "Accessor was not initialized with write access";
constexpr const char* kSetValueFailed = "An error occured setting a value to a grid voxel";
constexpr const char* kSetActiveFailed = "An error occured setting a grid voxel active";

bool IsSamplerValue(VOLUMESAMPLER s) {
  return s == VOLUMESAMPLER::NEAREST || s == VOLUMESAMPLER::LINEAR || s == VOLUMESAMPLER::QUADRATIC;
}

openvdb::Coord ToCoord(IntVector32 c) { return openvdb::Coord(c.x, c.y, c.z); }

// Values between the interface's types and OpenVDB's.
template <typename T>
struct ValueBridge {
  using VdbT = T;
  static VdbT ToVdb(const T& v) { return v; }
  static T FromVdb(const VdbT& v) { return v; }
};
template <typename Elem, typename VdbElem>
struct VecBridge {
  using VdbT = openvdb::math::Vec3<VdbElem>;
  static VdbT ToVdb(const zta::Vec3<Elem>& v) { return VdbT(v.x, v.y, v.z); }
  static zta::Vec3<Elem> FromVdb(const VdbT& v) { return {v.x(), v.y(), v.z()}; }
};
template <> struct ValueBridge<zta::IntVector32> : VecBridge<int32_t, int32_t> {};
template <> struct ValueBridge<zta::Vector32> : VecBridge<float, float> {};
template <> struct ValueBridge<zta::Vector64> : VecBridge<double, double> {};

template <typename T>
class GridAccessorImpl final : public GridAccessorInterface<T> {
  using Bridge = ValueBridge<T>;
  using VdbT = typename Bridge::VdbT;
  using GridT = openvdb::Grid<typename openvdb::tree::Tree4<VdbT, 5, 4, 3>::Type>;
  using TreeT = typename GridT::TreeType;
  using AccessorT = openvdb::tree::ValueAccessor<TreeT>;
  template <typename S>
  using SamplerT = openvdb::tools::GridSampler<AccessorT, S>;
  using AnySampler = std::variant<std::monostate, SamplerT<openvdb::tools::PointSampler>,
                                  SamplerT<openvdb::tools::BoxSampler>, SamplerT<openvdb::tools::QuadraticSampler>>;

 public:
  GRIDTYPE GetDataType() const override { return kGridTypeOf<T>; }

  Result<void> Init(const Volume& volume, VOLUMESAMPLER sampler) override {
    auto r = Open(volume, sampler);
    if (!r) Close();
    return r;
  }

  Result<void> InitWithWriteAccess(Volume& volume, VOLUMESAMPLER sampler) override {
    if (!volume.IsInitialized()) {
      Close();
      return zta::NullptrError(kNoVolume);
    }
    if (auto unique = volume.MakeUnique(); !unique) {
      Close();
      return unique;
    }
    // The cached range no longer holds once values change.
    volume.GetImpl()->valueRangeValid = false;
    auto r = Init(volume, sampler);
    if (r) writeAccess_ = true;
    return r;
  }

  Result<void> SetSampler(VOLUMESAMPLER sampler) override {
    if (!accessor_) {
      sampler_ = sampler;
      return zta::OK();
    }
    return MakeSampler(sampler);
  }

  VOLUMESAMPLER GetSampler() const override { return sampler_; }

  // Index positions past what a 32-bit coordinate holds, and ones that are no
  // number, lie where no voxel can be. OpenVDB converts them to coordinates
  // without a check and its samplers step past the integer range from there.
  static bool BeyondCoords(const openvdb::Vec3d& index) {
    constexpr double kMost = double(std::numeric_limits<int32_t>::max()) - 4.0;
    return !(std::abs(index.x()) <= kMost && std::abs(index.y()) <= kMost && std::abs(index.z()) <= kMost);
  }

  IntVector32 GetCoords(const Vector& position) const override {
    if (!transform_) return {0, 0, 0};
    // The nearest coordinate, held to the range a coordinate has; no number gives 0.
    const openvdb::Vec3d index = transform_->worldToIndex(ToVec3d(position));
    auto nearest = [](double v) {
      constexpr double kLow = double(std::numeric_limits<int32_t>::min());
      constexpr double kHigh = double(std::numeric_limits<int32_t>::max());
      return std::isnan(v) ? 0 : int32_t(std::clamp(std::floor(v + 0.5), kLow, kHigh));
    };
    return {nearest(index.x()), nearest(index.y()), nearest(index.z())};
  }

  bool GetActiveState(IntVector32 coord) const override {
    return accessor_ && accessor_->isValueOn(ToCoord(coord));
  }

  T GetValueIntVector32(IntVector32 coord) const override {
    if (!accessor_) return T{};
    return Bridge::FromVdb(accessor_->getValue(ToCoord(coord)));
  }

  T GetValueVector(const Vector& position) const override {
    if (!accessor_) return T{};
    const openvdb::Vec3d p = ToVec3d(position);
    if (BeyondCoords(transform_->worldToIndex(p))) return Bridge::FromVdb(grid_->background());
    return std::visit(
        [&p](const auto& s) -> T {
          if constexpr (std::is_same_v<std::decay_t<decltype(s)>, std::monostate>) return T{};
          else return Bridge::FromVdb(s.wsSample(p));
        },
        gridSampler_);
  }

  Result<void> SetValue(IntVector32 coord, const T& value) override {
    if (auto ok = CheckWrite(); !ok) return ok;
    try {
      accessor_->setValue(ToCoord(coord), Bridge::ToVdb(value));
    } catch (...) {
      return zta::UnexpectedError(kSetValueFailed);
    }
    return zta::OK();
  }

  Result<void> SetValueOnly(IntVector32 coord, const T& value) override {
    if (auto ok = CheckWrite(); !ok) return ok;
    try {
      accessor_->setValueOnly(ToCoord(coord), Bridge::ToVdb(value));
    } catch (...) {
      return zta::UnexpectedError(kSetValueFailed);
    }
    return zta::OK();
  }

  Result<void> SetActiveState(IntVector32 coord, bool state) override {
    if (auto ok = CheckWrite(); !ok) return ok;
    try {
      accessor_->setActiveState(ToCoord(coord), state);
    } catch (...) {
      return zta::UnexpectedError(kSetActiveFailed);
    }
    return zta::OK();
  }

 private:
  Result<void> Open(const Volume& volume, VOLUMESAMPLER sampler) {
    if (!volume.IsInitialized()) return zta::NullptrError(kNoVolume);
    sampler_ = sampler;
    writeAccess_ = false;
    openvdb::GridBase::Ptr base = VolumeImpl::GetGrid(volume);
    if (!base) return zta::IllegalStateError(kNoGrid);
    auto typed = TypedGrid(base);
    if (!typed) return typed.GetError();

    // The sampler refers to the accessor and the transform: drop it before them.
    auto keptKind = gridSampler_.index();
    gridSampler_ = std::monostate{};
    try {
      grid_ = *typed;
      transform_ = std::make_unique<openvdb::math::Transform>(grid_->transform());
      accessor_ = std::make_unique<AccessorT>(grid_->tree());
    } catch (const std::bad_alloc&) {
      accessor_.reset();
    }
    if (!accessor_) return zta::OutOfMemoryError(kNoAccessor);
    if (!IsSamplerValue(sampler) && keptKind != 0) sampler = VOLUMESAMPLER(int32_t(keptKind));
    return MakeSampler(sampler);
  }

  // The grid in the accessor's value type, through the one type cascade: every
  // other type has its branch with the same words.
  Result<typename GridT::Ptr> TypedGrid(const openvdb::GridBase::Ptr& base) const {
    if (!base) return zta::NullptrError(kNullGrid);
    typename GridT::Ptr typed;
    ApplyToGrid(base, [&typed](auto g) {
      using G = typename decltype(g)::element_type;
      if constexpr (std::is_same_v<G, GridT>) typed = g;
    });
    if (!typed) return zta::IllegalArgumentError(kWrongType);
    return typed;
  }

  // Any value outside VOLUMESAMPLER keeps the grid sampler that stands, and is
  // an error only when there is none.
  Result<void> MakeSampler(VOLUMESAMPLER sampler) {
    switch (sampler) {
      case VOLUMESAMPLER::NEAREST:
        gridSampler_.template emplace<1>(*accessor_, *transform_);
        break;
      case VOLUMESAMPLER::LINEAR:
        gridSampler_.template emplace<2>(*accessor_, *transform_);
        break;
      case VOLUMESAMPLER::QUADRATIC:
        gridSampler_.template emplace<3>(*accessor_, *transform_);
        break;
      default:
        if (gridSampler_.index() == 0) return zta::IllegalArgumentError(kNoSampler);
        return zta::OK();
    }
    sampler_ = sampler;
    return zta::OK();
  }

  Result<void> CheckWrite() const {
    if (!accessor_) return zta::IllegalStateError(kNotInitialized);
    if (!writeAccess_) return zta::IllegalStateError(kReadOnly);
    return zta::OK();
  }

  void Close() {
    gridSampler_ = std::monostate{};
    accessor_.reset();
    transform_.reset();
    grid_.reset();
    writeAccess_ = false;
  }

  VOLUMESAMPLER sampler_ = VOLUMESAMPLER::NEAREST;
  // The grid outlives the accessor, and the accessor the sampler: members are
  // destroyed bottom up.
  typename GridT::Ptr grid_;
  std::unique_ptr<openvdb::math::Transform> transform_;
  std::unique_ptr<AccessorT> accessor_;
  // The index of each sampler form is its VOLUMESAMPLER value.
  AnySampler gridSampler_;
  bool writeAccess_ = false;
};

// OpenVDB 10 has no string-valued tree, so no grid can be of this type: Init
// runs the checks that do not depend on the type and then refuses the grid,
// and every write finds no accessor.
class StringGridAccessor final : public GridAccessorInterface<std::string> {
 public:
  GRIDTYPE GetDataType() const override { return GRIDTYPE::STRING; }
  Result<void> Init(const Volume& volume, VOLUMESAMPLER sampler) override {
    if (!volume.IsInitialized()) return zta::NullptrError(kNoVolume);
    sampler_ = sampler;
    if (!VolumeImpl::GetGrid(volume)) return zta::IllegalStateError(kNoGrid);
    return zta::IllegalArgumentError(kWrongType);
  }
  Result<void> InitWithWriteAccess(Volume& volume, VOLUMESAMPLER sampler) override {
    if (!volume.IsInitialized()) return zta::NullptrError(kNoVolume);
    // Without a grid the copy step gives its own words; with one, the copy of
    // a grid that Init refuses anyway is skipped.
    if (!volume.HasGrid()) return volume.MakeUnique();
    return Init(volume, sampler);
  }
  Result<void> SetSampler(VOLUMESAMPLER sampler) override {
    sampler_ = sampler;
    return zta::OK();
  }
  VOLUMESAMPLER GetSampler() const override { return sampler_; }
  IntVector32 GetCoords(const Vector&) const override { return {0, 0, 0}; }
  bool GetActiveState(IntVector32) const override { return false; }
  Result<void> SetActiveState(IntVector32, bool) override { return zta::IllegalStateError(kNotInitialized); }
  std::string GetValueIntVector32(IntVector32) const override { return {}; }
  std::string GetValueVector(const Vector&) const override { return {}; }
  Result<void> SetValue(IntVector32, const std::string&) override {
    return zta::IllegalStateError(kNotInitialized);
  }
  Result<void> SetValueOnly(IntVector32, const std::string&) override {
    return zta::IllegalStateError(kNotInitialized);
  }

 private:
  VOLUMESAMPLER sampler_ = VOLUMESAMPLER::NEAREST;
};

template <typename A>
Result<GridAccessorBaseRef> Make() {
  try {
    return GridAccessorBaseRef(std::make_shared<A>());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError(kNoAccessor);
  }
}

}  // namespace

Result<GridAccessorBaseRef> GridAccessorCreationImpl::Create(GRIDTYPE dataType) {
  switch (dataType) {
    case GRIDTYPE::BOOL: return Make<GridAccessorImpl<bool>>();
    case GRIDTYPE::FLOAT: return Make<GridAccessorImpl<float>>();
    case GRIDTYPE::DOUBLE: return Make<GridAccessorImpl<double>>();
    case GRIDTYPE::INT32: return Make<GridAccessorImpl<int32_t>>();
    case GRIDTYPE::INT64: return Make<GridAccessorImpl<int64_t>>();
    case GRIDTYPE::VEC3I: return Make<GridAccessorImpl<zta::IntVector32>>();
    case GRIDTYPE::VEC3S: return Make<GridAccessorImpl<zta::Vector32>>();
    case GRIDTYPE::VEC3D: return Make<GridAccessorImpl<zta::Vector64>>();
    case GRIDTYPE::STRING: return Make<StringGridAccessor>();
    case GRIDTYPE::NONE: break;
  }
  return zta::IllegalArgumentError(kNoAccessor);
}

}  // namespace zelmar
