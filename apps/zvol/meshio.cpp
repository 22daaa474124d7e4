#include "meshio.h"

#include <algorithm>
#include <cmath>
#include <limits>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "zvol.h"

namespace zvol {

namespace {

using zta::CPolygon;
using zta::Int32;
using zta::Vector;

}  // namespace

bool IsReadableMeshPath(const std::string& path) { return zta::IsReadableMeshFile(path); }

bool IsWritableMeshPath(const std::string& path) { return zta::IsWritableMeshFile(path); }

CLI::Validator MeshOutputValidator() {
  return CLI::Validator(
      [](std::string& path) {
        return IsWritableMeshPath(path) ? std::string()
                                        : "'" + path + "' is not an " + zta::WritableMeshFormats() + " file";
      },
      "OBJ|PLY|STL|GLB");
}

std::unique_ptr<zta::PolygonObject> ReadMesh(const std::string& path, const zta::ThreadRef& thread) {
  return Take(zta::ReadMeshFile(path, thread));
}

void WriteMesh(const zta::PolygonObject& op, const std::string& path) { Check(zta::WriteMeshFile(op, path)); }

ConversionMesh ToConversionMesh(const zta::PolygonObject& op) {
  ConversionMesh cm;
  Check(zelmar::VolumeToolsInterface::GetConversionMesh(op, cm.points, cm.polygons));
  return cm;
}

void ReleaseFreedMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

bool MeshBounds(const zta::PolygonObject& op, Vector& min, Vector& max) {
  const zta::Matrix mg = op.GetMg();
  min = Vector(std::numeric_limits<double>::max());
  max = Vector(-std::numeric_limits<double>::max());
  // Only points that polygons use count: loose points do not become surface.
  std::vector<char> used(size_t(op.GetPointCount()), 0);
  for (Int32 i = 0; i < op.GetPolygonCount(); ++i) {
    const CPolygon& p = op.GetPolygonR()[i];
    for (int k = 0; k < 4; ++k)
      if (p[k] >= 0 && p[k] < op.GetPointCount()) used[size_t(p[k])] = 1;
  }
  bool any = false;
  for (Int32 i = 0; i < op.GetPointCount(); ++i) {
    if (!used[size_t(i)]) continue;
    const Vector q = mg * op.GetPointR()[i];
    for (int k = 0; k < 3; ++k) {
      min[k] = std::min(min[k], q[k]);
      max[k] = std::max(max[k], q[k]);
    }
    any = true;
  }
  return any;
}

void AddResolutionOptions(CLI::App& app, double& voxelSize, int& dim) {
  auto* vs = app.add_option("--voxel-size", voxelSize, "edge length of a voxel in the file's units")
                 ->check(CLI::PositiveNumber);
  auto* n = app.add_option("--dim", dim, "voxels along the longest side of the mesh's box")
                ->check(CLI::Range(1, 1 << 20));
  vs->excludes(n);
}

void CheckResolutionOptions(double voxelSize, int dim) {
  if (!(voxelSize > 0.0) && dim <= 0) throw CLI::RequiredError("--voxel-size or --dim");
}

double ResolveVoxelSize(const zta::PolygonObject& op, const std::string& path, double voxelSize, int dim) {
  Vector lo, hi;
  if (op.GetPolygonCount() == 0 || !MeshBounds(op, lo, hi)) throw Failure(path + " holds no polygons");
  if (voxelSize > 0.0) return voxelSize;
  const Vector size = hi - lo;
  const double longest = std::max({size.x, size.y, size.z});
  if (!(longest > 0.0)) throw Failure(path + ": all points of the mesh coincide; --dim needs a size");
  return longest / double(dim);
}

}  // namespace zvol
