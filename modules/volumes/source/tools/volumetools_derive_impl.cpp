// Derived volumes: gradient, curl, mean curvature, normalised and rotated vectors.
#include <openvdb/tools/GridOperators.h>
#include <openvdb/tools/Interpolation.h>
#include <openvdb/tools/ValueTransformer.h>

#include "host/core/diagnostics.h"
#include "modules/volumes/source/helper/filtermasksource.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr const char* kNotVector = "grid type is not a vector type";

enum class Accepts { SCALAR, VECTOR };

// The frame shared by the four grid operators: `op(typedGrid, interrupter)`
// returns the new grid. Scalar operators answer int64 and other types with a
// Volume without grid; vector operators fail on anything but the three vector types.
template <Accepts kind, typename Op>
Result<Volume> DeriveVolume(const Volume& volume, const ThreadRef& thread, Op&& op) {
  if (!volume.IsInitialized()) return zta::IllegalArgumentError({});
  Result<Volume> result = Volume::Create();
  if (!result) return result;
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalStateError("no vdb grid attached to volume");

  const GRIDTYPE type = volume.GetGridType();
  if constexpr (kind == Accepts::VECTOR) {
    if (type != GRIDTYPE::VEC3I && type != GRIDTYPE::VEC3S && type != GRIDTYPE::VEC3D)
      return zta::IllegalArgumentError(kNotVector);
  } else {
    if (type == GRIDTYPE::INT64) {
      zta::DiagnosticOutput("64bit integer not yet supported");
      return result;
    }
    if (type != GRIDTYPE::FLOAT && type != GRIDTYPE::DOUBLE && type != GRIDTYPE::INT32) return result;
  }

  ThreadInterrupter interrupter(thread);
  openvdb::GridBase::Ptr out;
  try {
    ApplyToGrid(grid, [&](auto typed) {
      using GridT = typename decltype(typed)::element_type;
      using ValueT = typename GridT::ValueType;
      constexpr bool isVector = openvdb::VecTraits<ValueT>::IsVec;
      if constexpr (kind == Accepts::VECTOR && isVector) {
        out = op(*typed, interrupter);
      } else if constexpr (kind == Accepts::SCALAR && !isVector && !std::is_same_v<ValueT, bool> &&
                           !std::is_same_v<ValueT, int64_t>) {
        out = op(*typed, interrupter);
      }
    });
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (const std::exception& e) {
    return zta::UnexpectedError(zta::FormatString("deriving a volume failed: @", e.what()));
  }
  Result<void> set = VolumeImpl::SetGrid(*result, out);
  if (!set) return set.GetError();
  return result;
}

// Rotates every active vector by `rotation`; with a mask, blended by its alpha.
template <typename GridT>
void RotateVectors(GridT& grid, const openvdb::math::Mat3d& rotation, const openvdb::FloatGrid* mask) {
  using ValueT = typename GridT::ValueType;
  using ElemT = typename ValueT::value_type;
  auto rotate = [&rotation](const ValueT& v) {
    const openvdb::Vec3d r = rotation * openvdb::Vec3d(double(v[0]), double(v[1]), double(v[2]));
    return ValueT(ElemT(r[0]), ElemT(r[1]), ElemT(r[2]));
  };
  if (!mask) {
    openvdb::tools::foreach(grid.beginValueOn(), [&](const typename GridT::ValueOnIter& it) { it.setValue(rotate(*it)); });
    return;
  }
  // Serial: the sampler holds accessors.
  openvdb::tools::AlphaMask<GridT, openvdb::FloatGrid, openvdb::tools::BoxSampler, double> alpha(grid, *mask, 0.0,
                                                                                                  1.0, false);
  double a = 0.0, b = 0.0;
  for (auto it = grid.beginValueOn(); it; ++it) {
    if (!alpha(it.getCoord(), a, b)) continue;
    const ValueT v = *it, r = rotate(v);
    ValueT out;
    for (int i = 0; i < 3; ++i) out[i] = ElemT(b * double(v[i]) + a * double(r[i]));
    it.setValue(out);
  }
}

}  // namespace

Result<Volume> VolumeToolsInterface::CreateGradientVolume(const Volume& volume, const ThreadRef& thread) {
  return DeriveVolume<Accepts::SCALAR>(volume, thread, [](const auto& grid, ThreadInterrupter& i) {
    return openvdb::GridBase::Ptr(openvdb::tools::gradient(grid, true, &i));
  });
}

Result<Volume> VolumeToolsInterface::CreateMeanCurvatureVolume(const Volume& volume, const ThreadRef& thread) {
  return DeriveVolume<Accepts::SCALAR>(volume, thread, [](const auto& grid, ThreadInterrupter& i) {
    return openvdb::GridBase::Ptr(openvdb::tools::meanCurvature(grid, true, &i));
  });
}

Result<Volume> VolumeToolsInterface::CreateCurlVolume(const Volume& volume, const ThreadRef& thread) {
  return DeriveVolume<Accepts::VECTOR>(volume, thread, [](const auto& grid, ThreadInterrupter& i) {
    return openvdb::GridBase::Ptr(openvdb::tools::curl(grid, true, &i));
  });
}

Result<Volume> VolumeToolsInterface::NormalizeVectorVolume(const Volume& volume, const ThreadRef& thread) {
  return DeriveVolume<Accepts::VECTOR>(volume, thread, [](const auto& grid, ThreadInterrupter& i) {
    return openvdb::GridBase::Ptr(openvdb::tools::normalize(grid, true, &i));
  });
}

Result<Volume> VolumeToolsInterface::RotateVectorVolume(const Volume& volume, const Vector& rotationAxis, double angle,
                                                        const ThreadRef& thread, const FieldSampleData* maskField) {
  const GRIDTYPE type = volume.GetGridType();
  if (type != GRIDTYPE::VEC3I && type != GRIDTYPE::VEC3S && type != GRIDTYPE::VEC3D)
    return zta::IllegalArgumentError("Only geometric Vector type grids can be rotated");
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalStateError({});

  openvdb::math::Mat3d rotation = openvdb::math::Mat3d::identity();
  const double length = rotationAxis.GetLength();
  if (length > 0.0) {
    const openvdb::Vec3d axis = ToVec3d(rotationAxis) * (1.0 / length);
    // Column-vector form: R * v turns v by `angle` about `axis`, counter-clockwise
    // when the axis points at the viewer.
    rotation = openvdb::math::rotation<openvdb::math::Mat3d>(axis, angle).transpose();
  }

  openvdb::GridBase::Ptr copy;
  try {
    copy = grid->deepCopyGrid();
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  if (!copy) return zta::OutOfMemoryError();
  Result<Volume> working = MakeVolume(copy);
  if (!working) return working;

  FilterMaskSource source{maskField, 1.0, &*working, thread, Volume()};
  Result<Volume> mask = BuildFilterMask(source);
  if (!mask) return mask.GetError();
  const openvdb::FloatGrid::ConstPtr maskGrid = MaskGrid(*mask);

  try {
    ApplyToGrid(copy, [&](auto typed) {
      using GridT = typename decltype(typed)::element_type;
      if constexpr (openvdb::VecTraits<typename GridT::ValueType>::IsVec) RotateVectors(*typed, rotation, maskGrid.get());
    });
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("An exception was thrown while rotating a vector volume");
  }
  return MakeVolume(copy);
}

}  // namespace zelmar
