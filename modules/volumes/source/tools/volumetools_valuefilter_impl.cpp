// Value filters of float and vector volumes: neighbourhood filters through
// tools::Filter, per-voxel filters as loops of our own, one blending form.
#include <openvdb/tools/Filter.h>
#include <openvdb/tools/Interpolation.h>
#include <openvdb/tools/ValueTransformer.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/fields/splinedata.h"
#include "modules/volumes/source/helper/filtermasksource.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// Applies a per-component function to a scalar or a vector.
template <typename ValueT, typename F>
ValueT PerComponent(const ValueT& v, F&& f) {
  if constexpr (openvdb::VecTraits<ValueT>::IsVec) {
    ValueT out;
    for (int i = 0; i < openvdb::VecTraits<ValueT>::Size; ++i) out[i] = f(v[i]);
    return out;
  } else {
    return f(v);
  }
}

// out = b * v + a * f(v) under a mask, f(v) without one. Inactive values and
// the background are never touched.
template <typename GridT, typename F>
void ApplyPerVoxel(GridT& grid, const openvdb::FloatGrid* mask, F&& f) {
  using ValueT = typename GridT::ValueType;
  if (!mask) {
    openvdb::tools::foreach(grid.beginValueOn(), [&f](const typename GridT::ValueOnIter& it) {
      it.setValue(f(*it));
    });
    return;
  }
  // Serial: the sampler holds accessors.
  openvdb::tools::AlphaMask<GridT, openvdb::FloatGrid, openvdb::tools::BoxSampler, float> alpha(grid, *mask, 0.0f,
                                                                                                 1.0f, false);
  float a = 0.0f, b = 0.0f;
  for (auto it = grid.beginValueOn(); it; ++it) {
    if (!alpha(it.getCoord(), a, b)) continue;
    const ValueT v = *it;
    it.setValue(ValueT(v * b + f(v) * a));
  }
}

template <typename GridT>
Result<void> RunPerVoxelFilter(GridT& grid, const FilterSettings& s, FilterMaskSource& source) {
  using ValueT = typename GridT::ValueType;
  using ElemT = typename openvdb::VecTraits<ValueT>::ElementType;

  // Only remaps fade by the strength; for the others it is the factor, or nothing.
  if (s.filterType == FILTERTYPE::ABS || s.filterType == FILTERTYPE::MULTIPLY || s.filterType == FILTERTYPE::INVERT)
    source.strength = 1.0;
  Result<Volume> mask = BuildFilterMask(source);
  if (!mask) return mask.GetError();
  const openvdb::FloatGrid::ConstPtr maskGrid = MaskGrid(*mask);
  const openvdb::FloatGrid* m = maskGrid.get();

  switch (s.filterType) {
    case FILTERTYPE::REMAP: {
      const float oldMin = float(s.remap_oldMin), oldMax = float(s.remap_oldMax);
      const float newMin = float(s.remap_newMin), newMax = float(s.remap_newMax);
      if (oldMin == oldMax) return zta::OK();
      const float k = (newMax - newMin) / (oldMax - oldMin);
      ApplyPerVoxel(grid, m, [=](const ValueT& v) {
        return PerComponent(v, [=](ElemT c) { return ElemT((c - oldMin) * k + newMin); });
      });
      return zta::OK();
    }
    case FILTERTYPE::CURVEREMAP: {
      if (!s.remapCurve) return zta::IllegalArgumentError("could not initialize spline cache");
      Result<zta::SplineCache> cache = s.remapCurve->MakeCache(100);
      if (!cache) return zta::IllegalStateError("could not initialize spline cache");
      const zta::SplineCache& curve = *cache;
      ApplyPerVoxel(grid, m, [&curve](const ValueT& v) {
        return PerComponent(v, [&curve](ElemT c) { return ElemT(curve.Evaluate(double(c))); });
      });
      return zta::OK();
    }
    case FILTERTYPE::MULTIPLY: {
      const double factor = s.strength;
      ApplyPerVoxel(grid, m, [=](const ValueT& v) {
        return PerComponent(v, [=](ElemT c) { return ElemT(double(c) * factor); });
      });
      return zta::OK();
    }
    case FILTERTYPE::ABS:
      ApplyPerVoxel(grid, m, [](const ValueT& v) { return PerComponent(v, [](ElemT c) { return std::abs(c); }); });
      return zta::OK();
    case FILTERTYPE::INVERT: {
      const double twice = 2.0 * s.invertCenter;
      ApplyPerVoxel(grid, m, [=](const ValueT& v) {
        return PerComponent(v, [=](ElemT c) { return ElemT(twice - double(c)); });
      });
      return zta::OK();
    }
    default:
      return zta::OK();
  }
}

template <typename GridT>
Result<void> RunNeighbourhoodFilter(GridT& grid, const FilterSettings& s, const FilterMaskSource& source,
                                    ThreadInterrupter& interrupter) {
  using ValueT = typename GridT::ValueType;
  openvdb::tools::Filter<GridT, openvdb::FloatGrid, ThreadInterrupter> filter(grid, &interrupter);
  filter.setGrainSize(128);
  // Tiles stay as they are: processing them would voxelize a fog's inside
  // and change its topology. Only the per-voxel filters voxelize first.
  const int radius = std::max(1, int(s.radius));
  const int iterations = int(std::clamp<int64_t>(s.iterations, 0, std::numeric_limits<int>::max()));

  if (s.filterType == FILTERTYPE::ADD) {
    // The field is sampled again after each step, on the values as they have become.
    return RunMaskedPasses(source, s.iterations,
                           [&](const openvdb::FloatGrid* m) { filter.offset(ValueT(s.offset), m); });
  }
  Result<Volume> mask = BuildFilterMask(source);
  if (!mask) return mask.GetError();
  const openvdb::FloatGrid::ConstPtr m = MaskGrid(*mask);
  if (iterations < 1) return zta::OK();
  switch (s.filterType) {
    case FILTERTYPE::GAUSSIAN: filter.gaussian(radius, iterations, m.get()); break;
    case FILTERTYPE::MEANVALUE: filter.mean(radius, iterations, m.get()); break;
    case FILTERTYPE::MEDIANVALUE: filter.median(radius, iterations, m.get()); break;
    default: break;
  }
  return zta::OK();
}

template <typename GridT>
Result<Volume> FilterTyped(const Volume& volume, const FilterSettings& s, const ThreadRef& thread,
                           const Volume& maskVolume, const FieldSampleData* maskField) {
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalArgumentError({});

  FilterMaskSource source{maskField, s.filterType == FILTERTYPE::MULTIPLY ? 1.0 : s.strength, nullptr, thread,
                          maskVolume};
  typename GridT::Ptr copy;
  try {
    copy = openvdb::gridPtrCast<GridT>(grid->deepCopyGrid());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  if (!copy) return zta::OutOfMemoryError();
  Result<Volume> working = MakeVolume(copy);
  if (!working) return working;
  source.referenceVolume = &*working;

  const int type = int(s.filterType);
  try {
    if (type >= int(FILTERTYPE::REMAP) && type <= int(FILTERTYPE::INVERT)) {
      // Each voxel gets its own value, so tiles become voxels first.
      try {
        copy->tree().voxelizeActiveTiles();
      } catch (const std::bad_alloc&) {
        throw;
      } catch (...) {
        return zta::UnexpectedError("Could not voxelize grid");
      }
      Result<void> ran = RunPerVoxelFilter(*copy, s, source);
      if (!ran) return ran.GetError();
    } else if (type >= int(FILTERTYPE::GAUSSIAN) && type <= int(FILTERTYPE::ADD)) {
      ThreadInterrupter interrupter(thread);
      Result<void> ran = RunNeighbourhoodFilter(*copy, s, source, interrupter);
      if (!ran) return ran.GetError();
    }
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("An exception was thrown while filtering a fog volume");
  }
  if (thread && thread->TestBreak()) return volume;

  Result<Volume> filtered = MakeVolume(copy);
  if (!filtered) return filtered;
  // INVERT fades by a blend with the input: in * (1 - strength) + filtered * strength.
  if (s.filterType == FILTERTYPE::INVERT && s.strength != 1.0)
    return VolumeToolsInterface::BlendVolumes(volume, *filtered, 1.0 - s.strength, thread);
  return filtered;
}

}  // namespace

Result<Volume> VolumeToolsInterface::ApplyFilterToVolume(const Volume& volume, const FilterSettings& settings,
                                                         const ThreadRef& thread, const Volume& maskVolume,
                                                         const FieldSampleData* maskField) {
  switch (volume.GetGridType()) {
    case GRIDTYPE::FLOAT: return FilterTyped<openvdb::FloatGrid>(volume, settings, thread, maskVolume, maskField);
    case GRIDTYPE::VEC3S: return FilterTyped<openvdb::Vec3SGrid>(volume, settings, thread, maskVolume, maskField);
    default: return volume;
  }
}

}  // namespace zelmar
