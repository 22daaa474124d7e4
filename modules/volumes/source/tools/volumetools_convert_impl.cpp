// Conversions that change what the voxels mean: level set to density, density
// to level set, vector to length.
#include <openvdb/tools/LevelSetUtil.h>
#include <openvdb/tools/ValueTransformer.h>

#include "host/core/format.h"
#include "host/objects/polygonobject.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

template <typename GridT>
void LevelSetToFog(GridT& grid, double cutoff) {
  using ValueT = typename GridT::ValueType;
  if (grid.tree().activeVoxelCount() == 0) {
    grid.setGridClass(openvdb::GRID_FOG_VOLUME);
    return;
  }
  openvdb::tools::sdfToFogVolume(grid, ValueT(cutoff));
}

// The target takes the source's active voxels and tiles, each holding the
// length of the source's vector there.
template <typename VecGridT>
void WriteLengths(const VecGridT& source, openvdb::FloatGrid& target) {
  target.tree().topologyUnion(source.tree());
  struct Length {
    typename VecGridT::ConstAccessor acc;
    void operator()(const openvdb::FloatGrid::ValueOnIter& it) const {
      it.setValue(float(acc.getValue(it.getCoord()).length()));
    }
  };
  // Not shared: each thread gets its own accessor.
  openvdb::tools::foreach(target.beginValueOn(), Length{source.getConstAccessor()}, true, false);
}

}  // namespace

Result<Volume> VolumeToolsInterface::ConvertSDFToFog(const Volume& volume, double cutoff) {
  const GRIDCLASS gridClass = volume.GetGridClass();
  if (gridClass == GRIDCLASS::FOG || gridClass == GRIDCLASS::UNKNOWN) return volume;
  if (gridClass != GRIDCLASS::SDF) return Volume::Create();
  if (!volume.IsInitialized()) return zta::IllegalStateError("volumeref not initialized");
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalStateError("volume has no grid attached");

  openvdb::GridBase::Ptr copy;
  try {
    copy = grid->deepCopyGrid();
  } catch (...) {
    return zta::OutOfMemoryError("copying a grid for conversion failed");
  }
  if (!copy) return zta::OutOfMemoryError("grid could not be copied");

  try {
    if (auto f = openvdb::gridPtrCast<openvdb::FloatGrid>(copy)) LevelSetToFog(*f, cutoff);
    else if (auto d = openvdb::gridPtrCast<openvdb::DoubleGrid>(copy)) LevelSetToFog(*d, cutoff);
    else return zta::IllegalArgumentError("only level sets of float values can be converted to fog");
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (const std::exception& e) {
    return zta::UnexpectedError(zta::FormatString("converting a level set to fog failed: @", e.what()));
  }
  return MakeVolume(copy);
}

Result<Volume> VolumeToolsInterface::ConvertFogToSDF(const Volume& volume, double iso, const ThreadRef& thread) {
  const GRIDCLASS gridClass = volume.GetGridClass();
  if (gridClass == GRIDCLASS::SDF) return volume;
  if (gridClass != GRIDCLASS::FOG && gridClass != GRIDCLASS::UNKNOWN) return Volume::Create();
  const GRIDTYPE type = volume.GetGridType();
  if (type != GRIDTYPE::FLOAT && type != GRIDTYPE::DOUBLE && type != GRIDTYPE::INT32 && type != GRIDTYPE::INT64)
    return Volume::Create();
  if (!volume.IsInitialized()) return zta::IllegalStateError("volumeref not initialized");
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalStateError("no vdb grid attached to volume");

  // Through the surface rather than a distance transform of densities: the
  // iso surface is what the user sees of a fog, and it becomes the zero crossing.
  auto mesh = VolumeToolsInterface::VolumeToMesh(volume, iso, 0.0);
  if (!mesh) return mesh.GetError();
  if (!*mesh) return zta::IllegalArgumentError("only float volumes can be converted to a level set");
  const zta::PolygonObject& object = **mesh;

  std::vector<Vector> vertices;
  std::vector<VolumeConversionPolygon> polygons;
  if (auto mesh = GetConversionMesh(object, vertices, polygons); !mesh) return mesh.GetError();
  // The voxel size of the fog, and the usual band of three voxels either side.
  const double voxelSize = grid->voxelSize()[0];
  return VolumeToolsInterface::MeshToVolume(vertices, polygons, object.GetMg(), voxelSize, 3, 3, thread,
                                            POLYGONCONVERSIONFLAGS::NONE, nullptr);
}

Result<Volume> VolumeToolsInterface::ConvertVectorToFog(const Volume& volume, const ThreadRef& thread) {
  const GRIDTYPE type = volume.GetGridType();
  if (type != GRIDTYPE::VEC3I && type != GRIDTYPE::VEC3S && type != GRIDTYPE::VEC3D) {
    const GRIDCLASS gridClass = volume.GetGridClass();
    if (gridClass == GRIDCLASS::FOG || gridClass == GRIDCLASS::UNKNOWN) return volume;
    return Volume::Create();
  }
  if (!volume.IsInitialized()) return zta::IllegalStateError("volumeref not initialized");
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  if (!grid) return zta::IllegalStateError("volume has no grid attached");

  try {
    openvdb::FloatGrid::Ptr fog = openvdb::FloatGrid::create();
    if (!fog) return zta::OutOfMemoryError("could not create new grid");
    fog->setTransform(grid->transform().copy());
    fog->setGridClass(openvdb::GRID_FOG_VOLUME);
    ApplyToGrid(grid, [&](auto typed) {
      using GridT = typename decltype(typed)::element_type;
      if constexpr (openvdb::VecTraits<typename GridT::ValueType>::IsVec) WriteLengths(*typed, *fog);
    });
    return MakeVolume(fog);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (const std::exception& e) {
    return zta::UnexpectedError(zta::FormatString("converting vectors to fog failed: @", e.what()));
  }
}

}  // namespace zelmar
