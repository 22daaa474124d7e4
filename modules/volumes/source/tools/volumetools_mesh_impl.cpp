// Polygon meshes to signed distance fields.
#include <openvdb/tools/MeshToVolume.h>

#include <limits>

#include "host/core/format.h"
#include "host/objects/polygonobject.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// OpenVDB's mesh data contract over the caller's arrays, read in place. The
// vertices are already in the grid's index space.
class ConversionMeshAdapter {
 public:
  ConversionMeshAdapter(const std::vector<Vector>& vertices, const std::vector<VolumeConversionPolygon>& polygons)
      : points_(vertices.data()), pointCount_(vertices.size()), polygons_(polygons.data()),
        polygonCount_(polygons.size()) {}

  size_t polygonCount() const { return polygonCount_; }
  size_t pointCount() const { return pointCount_; }
  size_t vertexCount(size_t n) const { return polygons_[n].d == VolumeConversionPolygon::TRIANGLE ? 3 : 4; }
  void getIndexSpacePoint(size_t n, size_t v, openvdb::Vec3d& pos) const {
    const VolumeConversionPolygon& poly = polygons_[n];
    const uint32_t index = v == 0 ? poly.a : v == 1 ? poly.b : v == 2 ? poly.c : poly.d;
    const Vector& p = points_[index];
    pos = openvdb::Vec3d(p.x, p.y, p.z);
  }

 private:
  const Vector* points_;
  size_t pointCount_;
  const VolumeConversionPolygon* polygons_;
  size_t polygonCount_;
};

static_assert(VolumeConversionPolygon::TRIANGLE == std::numeric_limits<openvdb::Index32>::max());
static_assert(int(POLYGONCONVERSIONFLAGS::UNSIGNED_DISTANCE_FIELD) == openvdb::tools::UNSIGNED_DISTANCE_FIELD);
static_assert(int(POLYGONCONVERSIONFLAGS::DISABLE_INTERSECTING_VOXEL_REMOVAL) ==
              openvdb::tools::DISABLE_INTERSECTING_VOXEL_REMOVAL);
static_assert(int(POLYGONCONVERSIONFLAGS::DISABLE_RENORMALIZATION) == openvdb::tools::DISABLE_RENORMALIZATION);
static_assert(int(POLYGONCONVERSIONFLAGS::DISABLE_NARROW_BAND_TRIMMING) ==
              openvdb::tools::DISABLE_NARROW_BAND_TRIMMING);

constexpr const char* kConversionFailed = "An error occured trying to convert a mesh to a sdf volume";

bool IndexInRange(uint32_t index, Int pointCount) { return Int(index) < pointCount; }

}  // namespace

Result<void> VolumeToolsInterface::GetConversionMesh(const zta::PolygonObject& object, std::vector<Vector>& vertices,
                                                     std::vector<VolumeConversionPolygon>& polygons) {
  try {
    const Matrix mg = object.GetMg();
    const Vector* points = object.GetPointR();
    vertices.resize(size_t(object.GetPointCount()));
    for (zta::Int32 i = 0; i < object.GetPointCount(); ++i) vertices[size_t(i)] = mg * points[i];
    const zta::CPolygon* polys = object.GetPolygonR();
    polygons.resize(size_t(object.GetPolygonCount()));
    for (zta::Int32 i = 0; i < object.GetPolygonCount(); ++i) {
      const zta::CPolygon& p = polys[i];
      // The host marks a triangle by c == d, the conversion by d == TRIANGLE.
      polygons[size_t(i)] = {uint32_t(p.a), uint32_t(p.b), uint32_t(p.c),
                             p.IsTriangle() ? VolumeConversionPolygon::TRIANGLE : uint32_t(p.d)};
    }
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  return zta::OK();
}

Result<void> VolumeToolsInterface::CheckPolyIndexValidity(const std::vector<VolumeConversionPolygon>& polygons,
                                                          Int pointCount) {
  constexpr uint32_t kTriangle = VolumeConversionPolygon::TRIANGLE;
  for (size_t i = 0; i < polygons.size(); ++i) {
    const VolumeConversionPolygon& p = polygons[i];
    const bool bad = !IndexInRange(p.a, pointCount) || !IndexInRange(p.b, pointCount) ||
                     !IndexInRange(p.c, pointCount) || (p.d != kTriangle && !IndexInRange(p.d, pointCount));
    if (!bad) continue;
    uint32_t largest = std::max({p.a, p.b, p.c});
    if (p.d != kTriangle) largest = std::max(largest, p.d);
    if (largest == kTriangle) return zta::IllegalArgumentError("VolumeConversionPolygon is uninitialized");
    return zta::IllegalArgumentError(zta::FormatString("Index @ of polygon @ is out of bounds", largest, i));
  }
  return zta::OK();
}

Result<Volume> VolumeToolsInterface::MeshToVolume(std::vector<Vector>& vertices,
                                                  const std::vector<VolumeConversionPolygon>& polygons,
                                                  Matrix polygonObjectMatrix, double gridSize, int32_t bandWidthInterior,
                                                  int32_t bandWidthExterior, const ThreadRef& thread,
                                                  POLYGONCONVERSIONFLAGS conversionSettings,
                                                  const Matrix* creationTransform) {
  // The voxel grid stands in the object's frame, so the object's scale multiplies
  // the voxel size; a given creation transform decides the frame on its own.
  openvdb::math::Transform::Ptr transform;
  try {
    if (!creationTransform) {
      transform = openvdb::math::Transform::createLinearTransform(gridSize);
      if (transform) transform->postMult(ToMat4d(polygonObjectMatrix));
    } else {
      transform = openvdb::math::Transform::createLinearTransform(ToMat4d(*creationTransform));
    }
  } catch (...) {
    // A singular matrix makes OpenVDB throw; like a failed allocation, no transform.
    transform.reset();
  }
  if (!transform) return zta::OutOfMemoryError();
  const openvdb::math::AffineMap::Ptr affine = transform->baseMap()->getAffineMap();
  if (!affine) return zta::UnexpectedError({});

  // The count is read as a 32-bit value, as the host's arrays report it.
  if (uint32_t(vertices.size()) == 0 || uint32_t(polygons.size()) == 0) {
    openvdb::FloatGrid::Ptr grid;
    try {
      grid = openvdb::FloatGrid::create(float(gridSize) * float(bandWidthExterior));
    } catch (const std::bad_alloc&) {
    }
    if (!grid) return zta::OutOfMemoryError("could not create grid");
    grid->setGridClass(openvdb::GRID_LEVEL_SET);
    grid->setTransform(transform);
    return MakeVolume(grid);
  }

  // Reading an index past the end would crash inside the voxeliser.
  if (auto valid = CheckPolyIndexValidity(polygons, Int(vertices.size())); !valid) return valid.GetError();

  // OpenVDB applies the transform itself and wants the points in index space.
  const Matrix toIndex = FromMat4d(affine->getMat4()).GetInverse();
  for (Vector& v : vertices) v = toIndex.TransformPoint(v);

  const int flags = int32_t(conversionSettings) &
                    (openvdb::tools::UNSIGNED_DISTANCE_FIELD | openvdb::tools::DISABLE_INTERSECTING_VOXEL_REMOVAL |
                     openvdb::tools::DISABLE_NARROW_BAND_TRIMMING | openvdb::tools::DISABLE_RENORMALIZATION);
  const float exterior = float(bandWidthExterior);
  const float interior =
      bandWidthInterior == kFillInteriorBand ? std::numeric_limits<float>::max() : float(bandWidthInterior);

  try {
    ThreadInterrupter interrupter(thread);
    const ConversionMeshAdapter mesh(vertices, polygons);
    openvdb::FloatGrid::Ptr grid = openvdb::tools::meshToVolume<openvdb::FloatGrid>(
        interrupter, mesh, *transform, exterior, interior, flags, nullptr);
    // A null grid leaves the new volume without one; the caller sees that, not an error.
    return MakeVolume(grid);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError(kConversionFailed);
  } catch (...) {
    return zta::UnexpectedError(kConversionFailed);
  }
}

}  // namespace zelmar
