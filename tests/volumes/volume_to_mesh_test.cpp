#include <gtest/gtest.h>
#include <openvdb/tools/LevelSetSphere.h>
#include <openvdb/tools/VolumeToMesh.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/releasing.h"
#include "zelmar/volumetools.h"

namespace {

using zelmar::Volume;
using zelmar::VolumeToolsInterface;
using zta::CPolygon;
using zta::Matrix;
using zta::PolygonObject;
using zta::Vector;

Volume Sphere(double radius, double voxel, const Vector& centre = {}) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, centre, voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

std::unique_ptr<PolygonObject> Mesh(const Volume& v, double iso = 0.0, double adaptivity = 0.0) {
  auto r = VolumeToolsInterface::VolumeToMesh(v, iso, adaptivity);
  EXPECT_TRUE(r.IsOk()) << (r ? "" : r.GetError().GetMessage());
  return r ? std::move(r.GetValue()) : nullptr;
}

// Signed volume of the closed mesh by the right-hand rule, in world units.
double SignedVolume(const PolygonObject& op) {
  const Matrix mg = op.GetMg();
  const Vector* p = op.GetPointR();
  double sum = 0.0;
  for (int i = 0; i < op.GetPolygonCount(); ++i) {
    const CPolygon& q = op.GetPolygonR()[i];
    const Vector a = mg * p[q.a], b = mg * p[q.b], c = mg * p[q.c], d = mg * p[q.d];
    sum += zta::Dot(a, zta::Cross(b, c)) / 6.0;
    if (!q.IsTriangle()) sum += zta::Dot(a, zta::Cross(c, d)) / 6.0;
  }
  return sum;
}

const zta::UVWTag* UVs(const PolygonObject& op) {
  return static_cast<const zta::UVWTag*>(op.GetTag(zta::HOST_TAG_UVW));
}

// Whether `got` is `want` read from some corner on.
bool SameCycle(const CPolygon& got, const std::array<uint32_t, 4>& want) {
  for (int s = 0; s < 4; ++s) {
    bool same = true;
    for (int k = 0; k < 4; ++k) same = same && uint32_t(got[k]) == want[size_t((s + k) % 4)];
    if (same) return true;
  }
  return false;
}

TEST(VolumeToMesh, SphereBecomesClosedMeshWithOutwardWindingAndUVs) {
  const Volume sphere = Sphere(1.0, 0.05, {0.5, -1.0, 2.0});
  auto op = Mesh(sphere);
  ASSERT_TRUE(op);

  // Exactly OpenVDB's surface, with the winding turned.
  openvdb::tools::VolumeToMesh mesher(0.0, 0.0);
  mesher(*openvdb::gridPtrCast<openvdb::FloatGrid>(zelmar::VolumeImpl::GetGrid(sphere)));
  ASSERT_EQ(size_t(op->GetPointCount()), mesher.pointListSize());
  size_t quads = 0, triangles = 0;
  for (size_t n = 0; n < mesher.polygonPoolListSize(); ++n) {
    quads += mesher.polygonPoolList()[n].numQuads();
    triangles += mesher.polygonPoolList()[n].numTriangles();
  }
  ASSERT_EQ(size_t(op->GetPolygonCount()), quads + triangles);
  const openvdb::Vec4I& q0 = mesher.polygonPoolList()[0].quad(0);
  EXPECT_EQ(op->GetPolygonR()[0], CPolygon(q0[0], q0[3], q0[2], q0[1]));
  for (int i = 0; i < op->GetPointCount(); ++i) {
    const openvdb::Vec3s& p = mesher.pointList()[size_t(i)];
    ASSERT_NEAR((op->GetMg() * op->GetPointR()[i] - Vector(p[0], p[1], p[2])).GetLength(), 0.0, 1e-6);
  }

  // Outward by the right-hand rule, where the sphere is, of its size.
  EXPECT_NEAR(SignedVolume(*op), 4.0 / 3.0 * std::numbers::pi, 0.05);
  EXPECT_EQ(op->GetMg().off, Vector(0, 0, 0));
  for (int i = 0; i < op->GetPointCount(); i += 7)
    EXPECT_NEAR((op->GetPointR()[i] - Vector(0.5, -1.0, 2.0)).GetLength(), 1.0, 0.01);

  // One UV set per polygon: a spherical projection about the mesh's centre.
  const zta::UVWTag* uvw = UVs(*op);
  ASSERT_TRUE(uvw);
  ASSERT_EQ(uvw->GetDataCount(), op->GetPolygonCount());
  for (int i = 0; i < op->GetPolygonCount(); ++i) {
    const CPolygon& poly = op->GetPolygonR()[i];
    const zta::UVWStruct uv = uvw->Get(i);
    const Vector corners[4] = {uv.a, uv.b, uv.c, uv.d};
    for (int k = 0; k < 4; ++k) {
      const Vector rel = op->GetPointR()[poly[k]] - Vector(0.5, -1.0, 2.0);
      const Vector& t = corners[k];
      ASSERT_GE(t.y, 0.0);
      ASSERT_LE(t.y, 1.0);
      EXPECT_EQ(t.z, 0.0);
      if (t.x == 1e10) continue;  // a pole
      ASSERT_GE(t.x, 0.0);
      ASSERT_LE(t.x, 1.0);
      // Upper half at the top of the texture, back half in its right half.
      if (rel.y > 0.05) {
        EXPECT_LT(t.y, 0.5);
      } else if (rel.y < -0.05) {
        EXPECT_GT(t.y, 0.5);
      }
      if (rel.z > 0.05) {
        EXPECT_LT(t.x, 0.5);
      } else if (rel.z < -0.05) {
        EXPECT_GT(t.x, 0.5);
      }
    }
  }
}

// Every corner's UV is the spherical projection of its point about the centre
// of the points' box, to single precision, also far from the origin.
TEST(VolumeToMesh, UVsAreTheSphericalProjectionAboutTheBoxCentre) {
  for (const Vector& at : {Vector(0.5, -1.0, 2.0), Vector(1000.0, -2000.0, 500.0)}) {
    auto op = Mesh(Sphere(1.0, 0.05, at));
    ASSERT_TRUE(op);
    const Vector* p = op->GetPointR();
    Vector lo(1e300), hi(-1e300);
    for (int i = 0; i < op->GetPointCount(); ++i)
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], p[i][k]);
        hi[k] = std::max(hi[k], p[i][k]);
      }
    const Vector centre = (lo + hi) * 0.5;
    int poles = 0;
    for (int i = 0; i < op->GetPolygonCount(); ++i) {
      const CPolygon& poly = op->GetPolygonR()[i];
      const zta::UVWStruct uv = UVs(*op)->Get(i);
      const Vector corners[4] = {uv.a, uv.b, uv.c, uv.d};
      for (int k = 0; k < 4; ++k) {
        const Vector v = p[poly[k]] - centre;
        const double r = std::hypot(v.x, v.z);
        if (r < 1e-6) {
          ++poles;
          EXPECT_EQ(corners[k].x, 1e10);
          continue;
        }
        double u = std::acos(std::clamp(v.x / r, -1.0, 1.0)) / (2.0 * std::numbers::pi);
        if (v.z < 0.0) u = 1.0 - u;
        const double w = 0.5 - std::atan(v.y / r) / std::numbers::pi;
        // u wraps at the seam: 0 and 1 are the same place.
        EXPECT_NEAR(std::remainder(corners[k].x - u, 1.0), 0.0, 1e-6) << i << " " << k;
        EXPECT_NEAR(corners[k].y, w, 1e-6) << i << " " << k;
        EXPECT_EQ(corners[k].z, 0.0);
      }
    }
    EXPECT_EQ(poles, 0);  // no vertex of this sphere lies on the vertical axis
  }
}

TEST(VolumeToMesh, RotatedGridGivesRotatedObjectAtUnitScale) {
  Volume sphere = Sphere(1.0, 0.1);
  Matrix t = zta::MatrixRotY(0.6) * zta::MatrixScale({0.1, 0.1, 0.1});
  t.off = {3, 0, 1};
  sphere.SetGridTransform(t);
  auto op = Mesh(sphere);
  ASSERT_TRUE(op);
  const Matrix mg = op->GetMg();
  EXPECT_NEAR(mg.v1.GetLength(), 1.0, 1e-12);
  EXPECT_NEAR(mg.v3.GetLength(), 1.0, 1e-12);
  EXPECT_NEAR((mg.v1 - zta::MatrixRotY(0.6).v1).GetLength(), 0.0, 1e-12);
  EXPECT_EQ(mg.off, Vector(3, 0, 1));
  // The points carry the world size: a sphere of radius one about the object's origin.
  double far = 0.0;
  for (int i = 0; i < op->GetPointCount(); ++i) far = std::max(far, op->GetPointR()[i].GetLength());
  EXPECT_NEAR(far, 1.0, 0.02);
  EXPECT_GT(SignedVolume(*op), 4.0);
}

TEST(VolumeToMesh, AdaptivityKeepsEachQuadButMayTurnItsDiagonal) {
  auto platonic = VolumeToolsInterface::CreatePlatonicVolume(8, 1.0, {}, 0.02, 3, nullptr, nullptr);
  ASSERT_TRUE(platonic.IsOk());
  const auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(zelmar::VolumeImpl::GetGrid(*platonic));
  for (double adaptivity : {0.0, 0.9}) {
    SCOPED_TRACE(adaptivity);
    auto op = Mesh(*platonic, 0.0, adaptivity);
    ASSERT_TRUE(op);
    openvdb::tools::VolumeToMesh mesher(0.0, adaptivity);
    mesher(*grid);
    size_t i = 0, turned = 0;
    for (size_t n = 0; n < mesher.polygonPoolListSize(); ++n) {
      const auto& pool = mesher.polygonPoolList()[n];
      for (size_t k = 0; k < pool.numQuads(); ++k, ++i) {
        const openvdb::Vec4I& q = pool.quad(k);
        const CPolygon& got = op->GetPolygonR()[i];
        ASSERT_TRUE(SameCycle(got, {q[0], q[3], q[2], q[1]}));
        if (got != CPolygon(q[0], q[3], q[2], q[1])) ++turned;
      }
      for (size_t k = 0; k < pool.numTriangles(); ++k, ++i) {
        const openvdb::Vec3I& t = pool.triangle(k);
        ASSERT_EQ(op->GetPolygonR()[i], CPolygon(t[2], t[1], t[0], t[0]));
        const zta::UVWStruct uv = UVs(*op)->Get(int(i));
        EXPECT_EQ(uv.d, uv.c);
      }
    }
    if (adaptivity == 0.0) {
      EXPECT_EQ(turned, 0u);
    }
    EXPECT_GT(SignedVolume(*op), 0.0);
  }
  EXPECT_LT(Mesh(*platonic, 0.0, 0.9)->GetPolygonCount(), Mesh(*platonic, 0.0, 0.0)->GetPolygonCount() / 2);
}

TEST(VolumeToMesh, OtherInputs) {
  // A reference with no volume behind it, and a volume without grid.
  auto r = VolumeToolsInterface::VolumeToMesh(Volume(), 0.0, 0.0);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "volume is not initialized");
  auto empty = Volume::Create();
  ASSERT_TRUE(empty.IsOk());
  r = VolumeToolsInterface::VolumeToMesh(*empty, 0.0, 0.0);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "volume has no grid attached");

  // Grids that are not float are passed over without an error.
  auto dbl = zelmar::MakeVolume(openvdb::tools::createLevelSetSphere<openvdb::DoubleGrid>(1.0, {}, 0.1));
  ASSERT_TRUE(dbl.IsOk());
  r = VolumeToolsInterface::VolumeToMesh(*dbl, 0.0, 0.0);
  ASSERT_TRUE(r.IsOk());
  EXPECT_FALSE(r.GetValue());

  // An iso value that no voxel reaches: an empty object, still with its tag.
  auto none = Mesh(Sphere(1.0, 0.1), 5.0);
  ASSERT_TRUE(none);
  EXPECT_EQ(none->GetPointCount(), 0);
  EXPECT_EQ(none->GetPolygonCount(), 0);
  ASSERT_TRUE(UVs(*none));
  EXPECT_EQ(UVs(*none)->GetDataCount(), 0);

  // A positive iso value inside the band grows the surface by that distance.
  auto grown = Mesh(Sphere(1.0, 0.05), 0.1);
  ASSERT_TRUE(grown);
  EXPECT_NEAR(grown->GetPointR()[0].GetLength(), 1.1, 0.01);
}

}  // namespace

TEST(VolumeToMesh, ReleasingVariantGivesTheSameMeshAndLetsTheGridGo) {
  for (double adaptivity : {0.0, 0.7}) {
    SCOPED_TRACE(adaptivity);
    Volume sphere = Sphere(1.0, 0.05, {0.3, 0.0, -0.2});
    auto want = Mesh(sphere, 0.0, adaptivity);
    ASSERT_TRUE(want);
    const std::weak_ptr<openvdb::GridBase> grid = zelmar::VolumeImpl::GetGrid(sphere);

    // Another holder of the volume keeps the grid. Without UVs the mesh is
    // the same but for its UVW tag.
    Volume keeper = sphere;
    Volume third = sphere;
    auto bare = zelmar::VolumeToMeshReleasing(std::move(third), 0.0, adaptivity, /*withUVs=*/false);
    ASSERT_TRUE(bare.IsOk() && bare.GetValue());
    EXPECT_EQ(UVs(*bare.GetValue()), nullptr);
    auto kept = zelmar::VolumeToMeshReleasing(std::move(sphere), 0.0, adaptivity);
    ASSERT_TRUE(kept.IsOk());
    EXPECT_FALSE(sphere.IsInitialized());
    EXPECT_FALSE(grid.expired());
    EXPECT_TRUE(keeper.HasGrid());

    // The last one lets it go, and the mesh is the same: points, polygons and UVs.
    auto got = zelmar::VolumeToMeshReleasing(std::move(keeper), 0.0, adaptivity);
    ASSERT_TRUE(got.IsOk());
    EXPECT_TRUE(grid.expired());
    for (const auto* op : {kept.GetValue().get(), got.GetValue().get(), bare.GetValue().get()}) {
      ASSERT_TRUE(op);
      ASSERT_EQ(op->GetPointCount(), want->GetPointCount());
      ASSERT_EQ(op->GetPolygonCount(), want->GetPolygonCount());
      EXPECT_EQ(op->GetMg(), want->GetMg());
      EXPECT_TRUE(std::equal(op->GetPointR(), op->GetPointR() + op->GetPointCount(), want->GetPointR()));
      EXPECT_TRUE(std::equal(op->GetPolygonR(), op->GetPolygonR() + op->GetPolygonCount(), want->GetPolygonR()));
      if (op == bare.GetValue().get()) continue;
      for (int i = 0; i < op->GetPolygonCount(); ++i) ASSERT_EQ(UVs(*op)->Get(i), UVs(*want)->Get(i)) << i;
    }
  }

  // Errors as the plain call gives them.
  auto r = zelmar::VolumeToMeshReleasing(Volume(), 0.0, 0.0);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "volume is not initialized");
}
