// Resampling: a volume on a new transform.
#include <openvdb/tools/GridTransformer.h>

#include "host/core/format.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

template <typename Sampler, typename GridT>
void Resample(const GridT& in, GridT& out, ThreadInterrupter& interrupter) {
  // For a level set the library rebuilds the narrow band and ignores the sampler.
  openvdb::tools::resampleToMatch<Sampler>(in, out, interrupter);
}

// Samples `in` into `out`, which has the same value type and the new transform.
// Integer scalars and bool are not sampled: `out` stays empty.
void SampleInto(const openvdb::GridBase::Ptr& in, const openvdb::GridBase::Ptr& out,
                RESAMPLEINTERPOLATIONTYPE interpolationType, ThreadInterrupter& interrupter) {
  ApplyToGrid(in, [&](const auto& typedIn) {
    using GridT = typename std::decay_t<decltype(typedIn)>::element_type;
    using ValueT = typename GridT::ValueType;
    if constexpr (std::is_floating_point_v<ValueT> || openvdb::VecTraits<ValueT>::IsVec) {
      auto typedOut = openvdb::gridPtrCast<GridT>(out);
      switch (interpolationType) {
        case RESAMPLEINTERPOLATIONTYPE::NEAREST:
          Resample<openvdb::tools::PointSampler>(*typedIn, *typedOut, interrupter);
          break;
        case RESAMPLEINTERPOLATIONTYPE::LINEAR:
          Resample<openvdb::tools::BoxSampler>(*typedIn, *typedOut, interrupter);
          break;
        case RESAMPLEINTERPOLATIONTYPE::QUADRATIC:
          Resample<openvdb::tools::QuadraticSampler>(*typedIn, *typedOut, interrupter);
          break;
        default:
          break;
      }
    }
  });
}

}  // namespace

Result<Volume> VolumeToolsInterface::ResampleVolume(const Volume& volume, const Matrix& resampleTransform,
                                                    RESAMPLEINTERPOLATIONTYPE interpolationType,
                                                    const ThreadRef& thread) {
  if (!volume.GetImpl()) return zta::IllegalArgumentError("volume is not initialized");
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalArgumentError("volume has no grid attached");

  openvdb::math::Transform::Ptr xform;
  try {
    xform = openvdb::math::Transform::createLinearTransform(ToMat4d(resampleTransform));
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (const std::exception& e) {
    return zta::IllegalArgumentError(zta::FormatString("the resample transform is not valid: @", e.what()));
  }

  openvdb::GridBase::Ptr result = grid;
  // Equal transforms cost nothing: the result shares the input's grid.
  if (xform && !(*xform == grid->transform())) {
    try {
      result = grid->copyGridWithNewTree();
      result->setTransform(xform);
    } catch (const std::bad_alloc&) {
      return zta::OutOfMemoryError();
    } catch (...) {
      return zta::UnexpectedError("");
    }
    // The only tree copy inside resampleToMatch is for equal transforms, which
    // never get here: what fails is the sampling, and it says so itself.
    try {
      ThreadInterrupter interrupter(thread);
      SampleInto(grid, result, interpolationType, interrupter);
    } catch (const std::bad_alloc&) {
      return zta::OutOfMemoryError();
    } catch (const std::exception& e) {
      return zta::UnexpectedError(e.what());
    } catch (...) {
      return zta::UnexpectedError({});
    }
  }

  // A cancelled resample may be partial; the caller gets no grid rather than part of one.
  if (thread && thread->TestBreak()) return Volume::Create();
  return MakeVolume(result);
}

}  // namespace zelmar
