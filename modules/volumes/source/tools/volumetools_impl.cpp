// Empty and primitive volumes.
#include <openvdb/tools/LevelSetPlatonic.h>
#include <openvdb/tools/LevelSetSphere.h>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

template <typename GridT>
Result<Volume> CreateEmpty(const typename GridT::ValueType& background, const char* words) {
  typename GridT::Ptr grid;
  try {
    grid = GridT::create(background);
  } catch (const std::bad_alloc&) {
  }
  if (!grid) return zta::OutOfMemoryError(words);
  grid->setGridClass(openvdb::GRID_UNKNOWN);
  return MakeVolume(grid);
}

// The centre in the frame of `creationTransform` without its scale: the shape is
// built at world size and only then takes the scaled transform.
openvdb::Vec3f PrimitiveCentre(const Vector& position, const Matrix* creationTransform) {
  Vector p = position;
  if (creationTransform) {
    Matrix unscaled = zta::GetRotation(*creationTransform);
    unscaled.off = creationTransform->off;
    p = unscaled.GetInverse().TransformPoint(position);
  }
  return openvdb::Vec3f(float(p.x), float(p.y), float(p.z));
}

Result<Volume> FinishPrimitive(openvdb::FloatGrid::Ptr grid, const Matrix* creationTransform) {
  if (creationTransform) {
    auto xform = openvdb::math::Transform::createLinearTransform(ToMat4d(*creationTransform));
    if (!xform) return zta::OutOfMemoryError();
    grid->setTransform(xform);
  }
  return MakeVolume(grid);
}

}  // namespace

Result<Volume> VolumeToolsInterface::CreateNewFloat32Volume(float background) {
  return CreateEmpty<openvdb::FloatGrid>(background, "could not create vdb grid");
}

Result<Volume> VolumeToolsInterface::CreateNewVector32Volume(const zta::Vector32& background) {
  return CreateEmpty<openvdb::Vec3SGrid>(openvdb::Vec3s(background.x, background.y, background.z),
                                         "could not create vector vdb grid");
}

Result<Volume> VolumeToolsInterface::CreateSphereVolume(double radius, const Vector& position, double gridSize,
                                                        int32_t bandWidth, const ThreadRef& thread,
                                                        const Matrix* creationTransform) {
  if (gridSize == 0.0 || bandWidth == 0)
    return zta::IllegalArgumentError("Could not create spherical volume with those settings");
  const openvdb::Vec3f centre = PrimitiveCentre(position, creationTransform);
  const float r = float(std::max(radius, 1e-10));
  try {
    ThreadInterrupter interrupter(thread);
    openvdb::tools::LevelSetSphere<openvdb::FloatGrid, ThreadInterrupter> factory(r, centre, &interrupter);
    openvdb::FloatGrid::Ptr grid = factory.getLevelSet(float(gridSize), float(bandWidth));
    return FinishPrimitive(grid, creationTransform);
  } catch (...) {
    return zta::UnexpectedError("Failed to create a SDF sphere");
  }
}

Result<Volume> VolumeToolsInterface::CreatePlatonicVolume(int32_t sides, double size, const Vector& position,
                                                          double gridSize, int32_t bandWidth, const ThreadRef& thread,
                                                          const Matrix* creationTransform) {
  if (gridSize == 0.0 || bandWidth == 0 || sides == 0)
    return zta::IllegalArgumentError("Could not create platonic volume with those settings");
  const openvdb::Vec3f centre = PrimitiveCentre(position, creationTransform);
  const float s = float(std::max(size, 1e-10));
  try {
    ThreadInterrupter interrupter(thread);
    openvdb::FloatGrid::Ptr grid = openvdb::tools::createLevelSetPlatonic<openvdb::FloatGrid, ThreadInterrupter>(
        sides, s, centre, float(gridSize), float(bandWidth), &interrupter);
    return FinishPrimitive(grid, creationTransform);
  } catch (...) {
    return zta::UnexpectedError("Failed to create a SDF platonic");
  }
}

}  // namespace zelmar
