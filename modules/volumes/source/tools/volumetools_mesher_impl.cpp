// Float grids to polygon objects.
#include <openvdb/tools/VolumeToMesh.h>
#include <tbb/combinable.h>
#include <tbb/parallel_for.h>

#include <cmath>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <functional>
#include <limits>
#include <vector>

#include "host/core/format.h"
#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "host/ui/parallel.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/sphericaluv.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/releasing.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

using zta::CPolygon;
using zta::Int32;
using zta::Int64;

// The host's "object data changed" message.
constexpr Int32 kMsgUpdate = 5;

// Below these counts the parallel passes run on the calling thread.
constexpr Int64 kSerialPointCount = 10240;
constexpr Int64 kGrain = 64;

struct Box {
  Vector min{std::numeric_limits<double>::max()};
  Vector max{-std::numeric_limits<double>::max()};
  void Add(const Vector& p) {
    for (int i = 0; i < 3; ++i) {
      min[i] = std::min(min[i], p[i]);
      max[i] = std::max(max[i], p[i]);
    }
  }
  void Add(const Box& b) {
    Add(b.min);
    Add(b.max);
  }
};

void ForRange(Int64 count, Int64 serialLimit, const std::function<void(Int64, Int64)>& fn) {
  if (count <= serialLimit) fn(0, count);
  else zta::ParallelForRange(0, count, fn, kGrain);
}

// Grown by one unit and made a cube about its centre, so that the UV
// projection keeps proportions along every axis.
Box CubeAround(Box box) {
  box.min -= Vector(1.0);
  box.max += Vector(1.0);
  const Vector size = box.max - box.min;
  const double edge = std::max({size.x, size.y, size.z});
  for (int i = 0; i < 3; ++i) {
    const double grow = (edge - size[i]) * 0.5;
    box.min[i] -= grow;
    box.max[i] += grow;
  }
  return box;
}

// Whether p3 lies in the triangle (p0, p1, p2), with a generous margin.
bool Inside(const Vector& p0, const Vector& p1, const Vector& p2, const Vector& p3) {
  const Vector e0 = p2 - p0, e1 = p1 - p0, e2 = p3 - p0;
  const double d00 = zta::Dot(e0, e0), d01 = zta::Dot(e0, e1), d02 = zta::Dot(e0, e2);
  const double d11 = zta::Dot(e1, e1), d12 = zta::Dot(e1, e2);
  const double denominator = d00 * d11 - d01 * d01;
  if (denominator == 0.0) return false;
  const double u = (d11 * d02 - d01 * d12) / denominator;
  const double v = (d00 * d12 - d01 * d02) / denominator;
  return u >= -0.1 && v >= -0.1 && u + v < 1.1;
}

// A concave quad folds along the host's implicit diagonal (a-c) unless turned.
bool FoldsOnDiagonal(const Vector* p, const openvdb::Vec4I& q) {
  return Inside(p[q[0]], p[q[2]], p[q[1]], p[q[3]]) || Inside(p[q[2]], p[q[0]], p[q[3]], p[q[1]]);
}

// Writes the mesher's output into a new object, releasing each part of it as
// soon as it is copied, so that the float points and the polygon pools are
// never held beside all of the object.
Result<std::unique_ptr<zta::PolygonObject>> BuildPolygonObject(openvdb::tools::VolumeToMesh& mesher,
                                                              const Matrix& pointMatrix, bool adaptive,
                                                              bool withUVs) {
  openvdb::tools::PolygonPoolList& pools = mesher.polygonPoolList();
  const size_t poolCount = mesher.polygonPoolListSize();
  // Where each pool's polygons start; the last entry is the count.
  std::vector<size_t> firsts(poolCount + 1, 0);
  for (size_t n = 0; n < poolCount; ++n) firsts[n + 1] = firsts[n] + pools[n].numQuads() + pools[n].numTriangles();
  const size_t polygonCount = firsts.back();
  const size_t pointCount = mesher.pointListSize();
  constexpr size_t kMaxCount = size_t(std::numeric_limits<Int32>::max());
  std::unique_ptr<zta::PolygonObject> object;
  if (pointCount <= kMaxCount && polygonCount <= kMaxCount)
    object = zta::PolygonObject::Alloc(Int32(pointCount), Int32(polygonCount));
  if (!object) return zta::OutOfMemoryError("could not create polygon object");

  // Points and, for the UVs, their box in one pass.
  Vector* points = object->GetPointW();
  openvdb::Vec3s* source = mesher.pointList().get();
  tbb::combinable<Box> boxes;
  ForRange(Int64(pointCount), kSerialPointCount, [&](Int64 b, Int64 e) {
    Box& box = boxes.local();
    for (Int64 i = b; i < e; ++i) {
      const openvdb::Vec3s& p = source[size_t(i)];
      points[i] = pointMatrix.TransformPoint(Vector(double(p[0]), double(p[1]), double(p[2])));
      if (withUVs) box.Add(points[i]);
    }
  });
  Box bounds;  // "no points passed to calculation": an empty box
  if (pointCount > 0) boxes.combine_each([&](const Box& b) { bounds.Add(b); });

  std::unique_ptr<zta::UVWTag> uvw;
  zta::UVWStruct32* uvs = nullptr;
  if (withUVs) {
    uvw = zta::UVWTag::Alloc(Int32(polygonCount));
    if (!uvw) return zta::OutOfMemoryError("could not create uv tag");
    uvs = uvw->GetDataAddressW();
  }
  const Box cube = CubeAround(bounds);
  const Vector centre = (cube.min + cube.max) * 0.5;
  // A corner's UV depends on its point alone: each point's is computed once
  // and the polygons gather them, a quarter of the trigonometry. The UVs take
  // the place of the mesher's float points, which are copied by now: no
  // array to allocate, clear and fault in.
  openvdb::Vec3s* pointUVs = source;
  static_assert(sizeof(openvdb::Vec3s) == 3 * sizeof(float));
  if (withUVs && pointCount > 0)  // no points: the mesher holds no array at all
    ForRange(Int64(pointCount), kSerialPointCount,
             [&](Int64 b, Int64 e) { SphericalUVs(points, pointUVs->asPointer(), b, e, centre); });
  auto uvOf = [&](Int32 point) {
    const openvdb::Vec3s& uv = pointUVs[size_t(point)];
    return zta::Vector32(uv[0], uv[1], uv[2]);
  };

  // OpenVDB winds its polygons the other way round from the host. Pools are
  // written side by side, each from its offset in the pool order, with the
  // UVs of their corners, and freed once written.
  CPolygon* polygons = object->GetPolygonW();
  auto put = [&](size_t at, const CPolygon& p) {
    polygons[at] = p;
    if (uvs) uvs[at] = {uvOf(p.a), uvOf(p.b), uvOf(p.c), uvOf(p.d)};
  };
  tbb::parallel_for(tbb::blocked_range<size_t>(0, poolCount), [&](const tbb::blocked_range<size_t>& r) {
    for (size_t n = r.begin(); n != r.end(); ++n) {
      openvdb::tools::PolygonPool& pool = pools[n];
      size_t out = firsts[n];
      for (size_t i = 0; i < pool.numQuads(); ++i) {
        const openvdb::Vec4I& q = pool.quad(i);
        if (adaptive && FoldsOnDiagonal(points, q))
          put(out++, CPolygon(Int32(q[3]), Int32(q[2]), Int32(q[1]), Int32(q[0])));
        else
          put(out++, CPolygon(Int32(q[0]), Int32(q[3]), Int32(q[2]), Int32(q[1])));
      }
      for (size_t i = 0; i < pool.numTriangles(); ++i) {
        const openvdb::Vec3I& t = pool.triangle(i);
        put(out++, CPolygon(Int32(t[2]), Int32(t[1]), Int32(t[0]), Int32(t[0])));
      }
      pool.clearQuads();
      pool.clearTriangles();
    }
  });
  pools.reset();
  mesher.pointList().reset();
  object->Message(kMsgUpdate);
  object->SetDirty(zta::DIRTYFLAGS_DATA);
  if (uvw) object->InsertTag(uvw.release());
  return object;
}

// `release`, when given, is the caller's volume, emptied as soon as the
// mesher has read the grid.
Result<std::unique_ptr<zta::PolygonObject>> Mesh(const Volume& volume, double iso, double adaptiveValue,
                                                 Volume* release, bool withUVs) {
  if (!volume.IsInitialized()) return zta::IllegalStateError("volume is not initialized");
  openvdb::GridBase::Ptr base = VolumeImpl::GetGrid(volume);
  if (!base) return zta::IllegalStateError("volume has no grid attached");
  if (volume.GetGridType() != GRIDTYPE::FLOAT) return std::unique_ptr<zta::PolygonObject>();

  try {
    // The object stands where the grid stands at unit scale; its points keep
    // the size of the world.
    const Matrix m = volume.GetGridTransform();
    openvdb::tools::VolumeToMesh mesher(iso, adaptiveValue, /*relaxDisorientedTriangles=*/true);
    {
      const openvdb::FloatGrid::Ptr grid = openvdb::gridPtrCast<openvdb::FloatGrid>(base);
      mesher(*grid);
    }
    const std::weak_ptr<openvdb::GridBase> held = base;
    base.reset();
    if (release) {
      *release = Volume();
#ifdef __GLIBC__
      // The grid's and the mesher's nodes were many small blocks; hand their
      // pages back before the object's large arrays come. A grid that others
      // share stays, and then there is little to hand back.
      if (held.expired()) malloc_trim(0);
#endif
    }

    const Vector lengths = m.GetScale();
    if (lengths.x == 0.0 || lengths.y == 0.0 || lengths.z == 0.0) return zta::IllegalStateError("degenerated grid");
    const Matrix unit = m * zta::MatrixScale({1.0 / lengths.x, 1.0 / lengths.y, 1.0 / lengths.z});
    const Matrix toObject = unit.Det() == 0.0 ? Matrix() : unit.GetInverse();

    auto object = BuildPolygonObject(mesher, toObject, adaptiveValue > 0.0, withUVs);
    if (!object) return object.GetError();
    object.GetValue()->SetMg(unit);
    return object;
  } catch (const openvdb::Exception& e) {
    return zta::UnexpectedError(zta::FormatString("Exception in mesher: @", e.what()));
  } catch (...) {
    return zta::OutOfMemoryError();
  }
}

}  // namespace

Result<std::unique_ptr<zta::PolygonObject>> VolumeToolsInterface::VolumeToMesh(const Volume& volume, double iso,
                                                                               double adaptiveValue) {
  return Mesh(volume, iso, adaptiveValue, nullptr, /*withUVs=*/true);
}

Result<std::unique_ptr<zta::PolygonObject>> VolumeToMeshReleasing(Volume&& volume, double iso, double adaptiveValue,
                                                                  bool withUVs) {
  Volume own = std::move(volume);
  return Mesh(own, iso, adaptiveValue, &own, withUVs);
}

}  // namespace zelmar
