// Boolean operations on two level sets.
#include <openvdb/tools/Composite.h>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// A level set that was never filled: no active voxel, or a background of exactly 0.
bool IsEmptyLevelSet(const openvdb::FloatGrid& grid, float background) {
  return background == 0.0f || !grid.tree().cbeginValueOn();
}

openvdb::GridBase::Ptr ChooseForEmptyInput(BOOLTYPE type, bool oneEmpty, const openvdb::GridBase::Ptr& one,
                                           const openvdb::GridBase::Ptr& two) {
  switch (type) {
    case BOOLTYPE::UNION: return oneEmpty ? two : one;
    case BOOLTYPE::DIFFERENCE: return one;
    case BOOLTYPE::INTERSECTION: return oneEmpty ? one : two;
    default: return nullptr;
  }
}

}  // namespace

Result<Volume> VolumeToolsInterface::BoolVolumes(const Volume& volumeOne, const Volume& volumeTwo, BOOLTYPE type,
                                                 const ThreadRef& thread) {
  if (!volumeOne.GetImpl() || !volumeTwo.GetImpl()) return zta::IllegalArgumentError("passed volumes were not initialized");
  if (volumeOne.GetGridType() != GRIDTYPE::FLOAT || volumeTwo.GetGridType() != GRIDTYPE::FLOAT ||
      volumeOne.GetGridClass() != GRIDCLASS::SDF || volumeTwo.GetGridClass() != GRIDCLASS::SDF)
    return Volume::Create();

  const Data backgroundOne = volumeOne.GetBackground();
  const Data backgroundTwo = volumeTwo.GetBackground();
  const float* bgOne = backgroundOne.TryGet<float>();
  const float* bgTwo = backgroundTwo.TryGet<float>();
  if (!bgOne || !bgTwo) return zta::IllegalStateError("could not read the background of a volume");

  const openvdb::GridBase::Ptr gridOne = VolumeImpl::GetGrid(volumeOne);
  const openvdb::GridBase::Ptr gridTwo = VolumeImpl::GetGrid(volumeTwo);
  const auto floatOne = openvdb::gridConstPtrCast<openvdb::FloatGrid>(gridOne);
  const auto floatTwo = openvdb::gridConstPtrCast<openvdb::FloatGrid>(gridTwo);
  if (!floatOne || !floatTwo) return Volume::Create();

  // Ahead of any resampling: a builder often starts from an empty accumulator,
  // and that step must cost no voxel work.
  const bool oneEmpty = IsEmptyLevelSet(*floatOne, *bgOne);
  const bool twoEmpty = IsEmptyLevelSet(*floatTwo, *bgTwo);
  if (oneEmpty || twoEmpty) {
    const openvdb::GridBase::Ptr chosen = ChooseForEmptyInput(type, oneEmpty, gridOne, gridTwo);
    return chosen ? MakeVolume(chosen) : Volume::Create();
  }

  const auto map = gridOne->transform().baseMap();
  const auto affine = map ? map->getAffineMap() : nullptr;
  if (!affine) return zta::IllegalStateError("volume has no grid attached or transform is illegal");
  auto resampled = ResampleVolume(volumeTwo, FromMat4d(affine->getMat4()), RESAMPLEINTERPOLATIONTYPE::QUADRATIC, thread);
  if (!resampled) return resampled.GetError();

  openvdb::FloatGrid::Ptr result;
  try {
    result = floatOne->deepCopy();
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("copying a grid for bool failed");
  }
  if (!result) return zta::OutOfMemoryError("grid could not be copied");

  if (!resampled->GetImpl()) return zta::IllegalStateError("volume is not initialized");
  const openvdb::GridBase::Ptr resampledGrid = VolumeImpl::GetGrid(*resampled);
  if (!resampledGrid) return zta::IllegalStateError("volume has no grid attached");

  try {
    openvdb::FloatGrid::Ptr other = openvdb::gridPtrCast<openvdb::FloatGrid>(resampledGrid);
    if (!other) return zta::UnexpectedError("bool on two grids failed");
    // The CSG tools consume their second grid; one still shared with an input is copied first.
    if (resampledGrid == gridOne || resampledGrid == gridTwo) other = other->deepCopy();
    switch (type) {
      case BOOLTYPE::UNION: openvdb::tools::csgUnion(*result, *other, /*prune=*/true); break;
      case BOOLTYPE::DIFFERENCE: openvdb::tools::csgDifference(*result, *other, /*prune=*/true); break;
      case BOOLTYPE::INTERSECTION: openvdb::tools::csgIntersection(*result, *other, /*prune=*/true); break;
      default: break;
    }
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("bool on two grids failed");
  }
  return MakeVolume(result);
}

}  // namespace zelmar
