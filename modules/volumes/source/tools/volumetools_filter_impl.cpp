// Level set filters: one LevelSetFilter drives all twelve of them.
#include <openvdb/tools/LevelSetFilter.h>

#include "modules/volumes/source/helper/filtermasksource.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr const char* kFilterFailed = "An exception was thrown while filtering a sdf volume";
using SdfFilter = openvdb::tools::LevelSetFilter<openvdb::FloatGrid, openvdb::FloatGrid, ThreadInterrupter>;

openvdb::math::BiasedGradientScheme SpatialScheme(FILTERACCURACY accuracy) {
  switch (accuracy) {
    case FILTERACCURACY::SECOND: return openvdb::math::SECOND_BIAS;
    case FILTERACCURACY::THIRD: return openvdb::math::THIRD_BIAS;
    case FILTERACCURACY::WENO5: return openvdb::math::WENO5_BIAS;
    case FILTERACCURACY::HJWENO5: return openvdb::math::HJWENO5_BIAS;
    default: return openvdb::math::FIRST_BIAS;
  }
}

Result<void> RunSdfFilter(SdfFilter& filter, const SDFFilterSettings& s, const FilterMaskSource& source) {
  const int64_t n = s.iterations;
  const float offset = s.offset;
  // The library moves the zero crossing inward for a positive offset.
  auto grow = [&](const openvdb::FloatGrid* m) { filter.offset(-offset, m); };
  auto shrink = [&](const openvdb::FloatGrid* m) { filter.offset(offset, m); };
  switch (s.filterType) {
    case SDFFILTERTYPE::GAUSSIAN:
      return RunMaskedPasses(source, n, [&](const openvdb::FloatGrid* m) { filter.gaussian(s.stencilWidth, m); });
    case SDFFILTERTYPE::DILATE: return RunMaskedPasses(source, n, grow);
    case SDFFILTERTYPE::ERODE: return RunMaskedPasses(source, n, shrink);
    case SDFFILTERTYPE::MEANVALUE:
      return RunMaskedPasses(source, n, [&](const openvdb::FloatGrid* m) { filter.mean(s.stencilWidth, m); });
    case SDFFILTERTYPE::MEDIANVALUE:
      return RunMaskedPasses(source, n, [&](const openvdb::FloatGrid* m) { filter.median(s.stencilWidth, m); });
    case SDFFILTERTYPE::MEANCURVATURE:
      return RunMaskedPasses(source, n, [&](const openvdb::FloatGrid* m) { filter.meanCurvature(m); });
    case SDFFILTERTYPE::LAPLACIANFLOW:
      return RunMaskedPasses(source, n, [&](const openvdb::FloatGrid* m) { filter.laplacian(m); });
    case SDFFILTERTYPE::RENORMALIZE: {
      const int count = filter.getNormCount();
      filter.setNormCount(1);
      for (int64_t i = 0; i < n; ++i) {
        filter.normalize();
        ReportThreadProgress(source.thread, double(i + 1) / double(n));
      }
      filter.setNormCount(count);
      return zta::OK();
    }
    case SDFFILTERTYPE::OPEN: {
      // All shrinks first, then all grows: thin parts vanish and stay gone.
      Result<void> r = RunMaskedPasses(source, n, shrink, 0.0, 0.5);
      if (!r) return r;
      return RunMaskedPasses(source, n, grow, 0.5, 1.0);
    }
    case SDFFILTERTYPE::CLOSE: {
      Result<void> r = RunMaskedPasses(source, n, grow, 0.0, 0.5);
      if (!r) return r;
      return RunMaskedPasses(source, n, shrink, 0.5, 1.0);
    }
    case SDFFILTERTYPE::TRACK:
      for (int64_t i = 0; i < n; ++i) {
        filter.track();
        ReportThreadProgress(source.thread, double(i + 1) / double(n));
      }
      return zta::OK();
    case SDFFILTERTYPE::RESIZE:
      filter.resize(openvdb::Index(s.halfWidth));
      return zta::OK();
    default:
      return zta::OK();
  }
}

}  // namespace

Result<Volume> VolumeToolsInterface::ApplySDFFilterToVolume(const Volume& volume, const SDFFilterSettings& settings,
                                                            const ThreadRef& thread, const Volume& maskVolume,
                                                            const FieldSampleData* maskField) {
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalArgumentError({});
  if (settings.filterType == SDFFILTERTYPE::NONE) return MakeVolume(grid);
  if (!grid->isType<openvdb::FloatGrid>()) return zta::IllegalArgumentError({});
  // The library takes the half width unsigned: a negative one would dilate
  // for billions of passes, or erode past the surface.
  if (settings.filterType == SDFFILTERTYPE::RESIZE && settings.halfWidth < 0)
    return zta::IllegalArgumentError("the half width of a resized band must not be negative");
  // The library's own refusal of these two (thrown from its tracker's
  // constructor) loses the leaf manager it has just made: refuse them first,
  // with the words its exception would have brought.
  if (grid->getGridClass() != openvdb::GRID_LEVEL_SET || !grid->hasUniformVoxels())
    return zta::UnexpectedError(kFilterFailed);

  openvdb::FloatGrid::Ptr copy;
  try {
    copy = openvdb::gridPtrCast<openvdb::FloatGrid>(grid->deepCopyGrid());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  if (!copy) return zta::OutOfMemoryError();
  Result<Volume> working = MakeVolume(copy);
  if (!working) return working;

  FilterMaskSource source{maskField, settings.strength, &*working, thread, maskVolume};
  try {
    ThreadInterrupter interrupter(thread);
    SdfFilter filter(*copy, &interrupter);
    filter.setGrainSize(128);
    filter.setSpatialScheme(SpatialScheme(settings.accuracy));
    Result<void> ran = RunSdfFilter(filter, settings, source);
    if (!ran) return ran.GetError();
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError(kFilterFailed);
  }
  if (thread && thread->TestBreak()) return volume;
  return MakeVolume(copy);
}

}  // namespace zelmar
