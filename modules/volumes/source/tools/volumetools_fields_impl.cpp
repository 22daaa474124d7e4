// Fields written into grids: the module picks the voxels and hands the host
// one batch of world positions; the host only evaluates them.
#include <openvdb/tree/LeafManager.h>
#include <tbb/parallel_for.h>

#include <cmath>
#include <limits>
#include <numeric>

#include "host/fields/fieldlist.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/memoryneed.h"
#include "modules/volumes/source/helper/threadprogress.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// Active voxels of `grid` in leaf order, the order that ties samples to voxels.
template <typename GridT>
struct VoxelOrder {
  openvdb::tree::LeafManager<typename GridT::TreeType> leaves;
  std::vector<size_t> start;  // first sample of each leaf

  explicit VoxelOrder(GridT& grid) : leaves(grid.tree()), start(leaves.leafCount() + 1, 0) {
    for (size_t i = 0; i < leaves.leafCount(); ++i) start[i + 1] = start[i] + leaves.leaf(i).onVoxelCount();
  }
  size_t Count() const { return start.back(); }

  // f(leaf, voxel iterator, sample index) for every active voxel, leaves in parallel.
  template <typename F>
  void ForEach(F&& f) {
    tbb::parallel_for(tbb::blocked_range<size_t>(0, leaves.leafCount(), 16), [&](const tbb::blocked_range<size_t>& r) {
      for (size_t i = r.begin(); i != r.end(); ++i) {
        size_t n = start[i];
        for (auto it = leaves.leaf(i).beginValueOn(); it; ++it) f(it, n++);
      }
    });
  }
};

// Samples the fields at every active voxel of `target` and stores the value
// (a float target) or the direction (a vector target) there.
template <typename GridT>
Result<void> WriteFieldValues(GridT& target, const FieldSampleData& fieldData, const ThreadRef& thread) {
  using ValueT = typename GridT::ValueType;
  constexpr bool kVector = openvdb::VecTraits<ValueT>::IsVec;
  try {
    target.tree().voxelizeActiveTiles();
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("activating voxels of grid tiles for mask failed");
  }
  if (target.tree().activeVoxelCount() == 0) return zta::OK();

  VoxelOrder<GridT> order(target);
  std::vector<Vector> positions;
  try {
    positions.resize(order.Count());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  const openvdb::math::Transform& xform = target.transform();
  order.ForEach([&](const auto& it, size_t n) { positions[n] = FromVec3d(xform.indexToWorld(it.getCoord())); });
  // Sampling is the bulk of the work; placing positions and writing values
  // back are the tenth before and after it.
  ReportThreadProgress(thread, 0.1);

  // The grid's world into the fields' space.
  const zta::FieldInput input(positions.data(), zta::Int64(positions.size()),
                              fieldData.extraTransform * fieldData.targetRelativeSpace);
  zta::FieldOutput output;
  const zta::Int32 flags = fieldData.flags | (kVector ? zta::FIELDSAMPLE_FLAG_DIRECTION : zta::FIELDSAMPLE_FLAG_VALUE);
  // No field list samples as an empty one: every value 0.
  static const zta::FieldList kNoFields;
  Result<void> sampled = zta::SampleField(fieldData.fields ? *fieldData.fields : kNoFields, input, output, flags, thread);
  if (!sampled) return sampled;
  ReportThreadProgress(thread, 0.9);

  try {
    if constexpr (kVector) {
      if (output.directions.size() != positions.size()) throw std::length_error("directions");
      order.ForEach([&](const auto& it, size_t n) {
        const zta::Vector32& d = output.directions[n];
        it.setValue(ValueT(d.x, d.y, d.z));
      });
    } else {
      if (output.values.size() != positions.size()) throw std::length_error("values");
      order.ForEach([&](const auto& it, size_t n) { it.setValue(ValueT(output.values[n])); });
    }
  } catch (...) {
    return zta::UnexpectedError("Writing grid values from field failed");
  }
  return zta::OK();
}

// A grid of `GridT` active over `sampleBox`, holding the sampled fields.
template <typename GridT>
Result<Volume> FieldsToVolume(const FieldSampleData& fieldData, double gridSize, const BoundingBox& sampleBox,
                              const ThreadRef& thread, const Volume& volumeReference, const Matrix* creationTransform,
                              openvdb::GridClass gridClass) {
  const openvdb::GridBase::Ptr reference = VolumeImpl::GetGrid(volumeReference);
  try {
    openvdb::math::Transform::Ptr xform;
    if (reference) xform = reference->transform().copy();
    else if (creationTransform) xform = openvdb::math::Transform::createLinearTransform(ToMat4d(*creationTransform));
    else xform = openvdb::math::Transform::createLinearTransform(gridSize);
    if (!xform) return zta::OutOfMemoryError();

    typename GridT::Ptr grid = GridT::create();
    if (!grid) return zta::OutOfMemoryError("could not create vdb grid");
    grid->setTransform(xform);
    grid->setGridClass(gridClass);

    const openvdb::Vec3d a = xform->worldToIndex(ToVec3d(sampleBox.min));
    const openvdb::Vec3d b = xform->worldToIndex(ToVec3d(sampleBox.max)) + openvdb::Vec3d(1.0);
    // The box between the two corners, whichever way the transform turns them.
    openvdb::Coord lo, hi;
    double voxels = 1.0;
    for (int i = 0; i < 3; ++i) {
      // Index coordinates beyond OpenVDB's range (or not numbers) cannot be filled.
      constexpr double kMax = double(std::numeric_limits<int32_t>::max() - 1);
      if (!(std::abs(a[i]) < kMax && std::abs(b[i]) < kMax))
        return zta::IllegalArgumentError("the fields' box lies beyond the grid's index range");
      const int32_t p = int32_t(a[i]), q = int32_t(b[i]);
      lo[i] = std::min(p, q);
      hi[i] = std::max(p, q);
      voxels *= double(int64_t(hi[i]) - int64_t(lo[i]) + 1);
    }
    // Every voxel of the box is sampled: its value, its world position and its sample.
    using ValueT = typename GridT::ValueType;
    const openvdb::CoordBBox box(lo, hi);
    if (const std::string why = MemoryNeedRefusal(voxels * double(2 * sizeof(ValueT) + sizeof(Vector)),
                                                  "to sample the fields over their box");
        !why.empty())
      return zta::OutOfMemoryError("the volume " + why);
    grid->tree().fill(box, grid->background(), true);
    Result<void> written = WriteFieldValues(*grid, fieldData, thread);
    if (!written) return written.GetError();
    return MakeVolume(grid);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (const std::exception& e) {
    // OpenVDB's refusals (a transform of no scale, say) in its own words.
    return zta::UnexpectedError(e.what());
  } catch (...) {
    return zta::UnexpectedError({});
  }
}

}  // namespace

Result<Volume> VolumeToolsInterface::CreateMaskFromField(const FieldSampleData& fieldData,
                                                         const Volume& volumeReference, double background,
                                                         const ThreadRef& thread) {
  if (!volumeReference.IsInitialized()) return zta::IllegalStateError("volumeref not initialized");
  const openvdb::GridBase::Ptr reference = VolumeImpl::GetGrid(volumeReference);
  if (!reference) return zta::IllegalStateError("volume has no grid attached");

  try {
    openvdb::FloatGrid::Ptr mask = openvdb::FloatGrid::create(float(background));
    if (!mask) return zta::OutOfMemoryError("could not create vdb grid");
    mask->setTransform(reference->transform().copy());
    mask->setGridClass(openvdb::GRID_UNKNOWN);
    // The mask is active where the reference is, whatever its value type; a
    // reference of a type outside the cascade leaves it without voxels.
    if (volumeReference.GetGridType() != GRIDTYPE::NONE) {
      const bool cast = ApplyToGrid(reference, [&](auto typed) { mask->tree().topologyUnion(typed->tree()); });
      if (!cast) return zta::IllegalStateError("reference grid is not initialized");
      Result<void> written = WriteFieldValues(*mask, fieldData, thread);
      if (!written) return written.GetError();
    }
    return MakeVolume(mask);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (const std::exception& e) {
    return zta::UnexpectedError(e.what());
  } catch (...) {
    return zta::UnexpectedError({});
  }
}

Result<Volume> VolumeToolsInterface::ConvertFieldsToVolume(const FieldSampleData& fieldData, double gridSize,
                                                           const BoundingBox& sampleBox, const ThreadRef& thread,
                                                           const Volume& volumeReference,
                                                           const Matrix* creationTransform) {
  return FieldsToVolume<openvdb::FloatGrid>(fieldData, gridSize, sampleBox, thread, volumeReference,
                                            creationTransform, openvdb::GRID_FOG_VOLUME);
}

Result<Volume> VolumeToolsInterface::ConvertFieldsToVectorVolume(const FieldSampleData& fieldData, double gridSize,
                                                                 const BoundingBox& sampleBox, const ThreadRef& thread,
                                                                 const Volume& volumeReference,
                                                                 const Matrix* creationTransform) {
  return FieldsToVolume<openvdb::Vec3SGrid>(fieldData, gridSize, sampleBox, thread, volumeReference,
                                            creationTransform, openvdb::GRID_UNKNOWN);
}

}  // namespace zelmar
