// Boolean operations on two level sets.
#include <openvdb/tools/Composite.h>
#include <openvdb/tools/Merge.h>
#include <openvdb/tools/Prune.h>
#include <openvdb/tree/NodeManager.h>

#include <type_traits>
#include <utility>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/releasing.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// A level set that was never filled: no active voxel, or a background of exactly 0.
bool IsEmptyLevelSet(const openvdb::FloatGrid& grid, float background) {
  return background == 0.0f || !grid.tree().cbeginValueOn();
}

const Volume* ChooseForEmptyInput(BOOLTYPE type, bool oneEmpty, const Volume& one, const Volume& two) {
  switch (type) {
    case BOOLTYPE::UNION: return oneEmpty ? &two : &one;
    case BOOLTYPE::DIFFERENCE: return &one;
    case BOOLTYPE::INTERSECTION: return oneEmpty ? &one : &two;
    default: return nullptr;
  }
}

// OpenVDB's csgUnion, csgDifference and csgIntersection with pruning, but
// taking B's nodes by `Tag`: Steal consumes B as those tools do; DeepCopy
// copies only the nodes the result needs and leaves B as it was.
template <typename Op, typename Tag>
void Csg(openvdb::FloatTree& a, std::conditional_t<std::is_same_v<Tag, openvdb::DeepCopy>, const openvdb::FloatTree&,
                                                   openvdb::FloatTree&> b) {
  for (const openvdb::FloatTree* t : {static_cast<const openvdb::FloatTree*>(&a), static_cast<const openvdb::FloatTree*>(&b)}) {
    if (!(t->background() > 0.0f) || !(-t->background() < 0.0f))
      OPENVDB_THROW(openvdb::ValueError, "expected a level set outside value > 0");
  }
  Op op(b, Tag());
  openvdb::tree::DynamicNodeManager<openvdb::FloatTree> nodes(a);
  nodes.foreachTopDown(op);
  openvdb::tools::pruneLevelSet(a);
}

template <typename Tag, typename TreeB>
void RunBool(BOOLTYPE type, openvdb::FloatTree& a, TreeB& b) {
  using Tree = openvdb::FloatTree;
  switch (type) {
    case BOOLTYPE::UNION: Csg<openvdb::tools::CsgUnionOp<Tree>, Tag>(a, b); break;
    case BOOLTYPE::DIFFERENCE: Csg<openvdb::tools::CsgDifferenceOp<Tree>, Tag>(a, b); break;
    case BOOLTYPE::INTERSECTION: Csg<openvdb::tools::CsgIntersectionOp<Tree>, Tag>(a, b); break;
    default: break;
  }
}

// Whether `volume` is all that holds its grid and the grid all that holds its
// tree, so that the tree may be used up.
bool SoleHolder(const Volume& volume) {
  if (!volume.GetImpl() || volume.GetImplRef().use_count() != 1) return false;
  const openvdb::GridBase::Ptr& grid = volume.GetImpl()->grid;
  // baseTreePtr hands out one more reference of its own.
  return grid && grid.use_count() == 1 && grid->baseTreePtr().use_count() == 2;
}

// BoolVolumes; `consumeOne` and `consumeTwo` say that the grids of those
// volumes are nobody else's and may be used up.
Result<Volume> Bool(const Volume& volumeOne, const Volume& volumeTwo, BOOLTYPE type, const ThreadRef& thread,
                    bool consumeOne, bool consumeTwo) {
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
    // A new volume on the chosen grid, shared; its caches come along, so not
    // even the bounding box is walked again.
    const Volume* chosen = ChooseForEmptyInput(type, oneEmpty, volumeOne, volumeTwo);
    return chosen ? ShareGrid(*chosen) : Volume::Create();
  }

  const auto map = gridOne->transform().baseMap();
  const auto affine = map ? map->getAffineMap() : nullptr;
  if (!affine) return zta::IllegalStateError("volume has no grid attached or transform is illegal");
  auto resampled = VolumeToolsInterface::ResampleVolume(volumeTwo, FromMat4d(affine->getMat4()), RESAMPLEINTERPOLATIONTYPE::QUADRATIC, thread);
  if (!resampled) return resampled.GetError();

  openvdb::FloatGrid::Ptr result;
  try {
    if (consumeOne) result = openvdb::gridPtrCast<openvdb::FloatGrid>(gridOne);
    else result = floatOne->deepCopy();
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
    // A resampled grid is ours to consume; one still shared with an input
    // (equal transforms) is only read.
    const bool shared = resampledGrid == gridOne || (resampledGrid == gridTwo && !consumeTwo);
    if (shared)
      RunBool<openvdb::DeepCopy>(type, result->tree(), std::as_const(other->tree()));
    else
      RunBool<openvdb::Steal>(type, result->tree(), other->tree());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("bool on two grids failed");
  }
  return MakeVolume(result);
}

}  // namespace

Result<Volume> VolumeToolsInterface::BoolVolumes(const Volume& volumeOne, const Volume& volumeTwo, BOOLTYPE type,
                                                 const ThreadRef& thread) {
  return Bool(volumeOne, volumeTwo, type, thread, false, false);
}

Result<Volume> BoolVolumesReleasing(Volume&& volumeOne, Volume&& volumeTwo, BOOLTYPE type, const ThreadRef& thread) {
  const Volume one = std::move(volumeOne), two = std::move(volumeTwo);
  return Bool(one, two, type, thread, SoleHolder(one), SoleHolder(two));
}

}  // namespace zelmar
