#include <gtest/gtest.h>
#include <openvdb/tools/MeshToVolume.h>

#include <cmath>

#include "host/modeling/neighbor.h"
#include "host/objects/polygonobject.h"
#include "host/scene/basedocument.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace {

using zelmar::POLYGONCONVERSIONFLAGS;
using zelmar::Volume;
using zelmar::VolumeConversionPolygon;
using zelmar::VolumeToolsInterface;
using zta::Matrix;
using zta::Vector;

constexpr uint32_t kTri = VolumeConversionPolygon::TRIANGLE;

struct Mesh {
  std::vector<Vector> points;
  std::vector<VolumeConversionPolygon> polygons;
};

// An axis-aligned cube of edge `size` with its low corner at `low`; six quads,
// or twelve triangles, or the two mixed.
Mesh Cube(const Vector& low, double size, bool quads = true, bool triangles = false) {
  Mesh m;
  for (int i = 0; i < 8; ++i) m.points.push_back(low + Vector(i & 1 ? size : 0, i & 2 ? size : 0, i & 4 ? size : 0));
  const uint32_t faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (int f = 0; f < 6; ++f) {
    const auto& q = faces[f];
    const bool asQuad = quads && (!triangles || f % 2 == 0);
    if (asQuad) {
      m.polygons.push_back({q[0], q[1], q[2], q[3]});
    } else {
      m.polygons.push_back({q[0], q[1], q[2], kTri});
      m.polygons.push_back({q[0], q[2], q[3], kTri});
    }
  }
  return m;
}

openvdb::FloatGrid::Ptr FloatGridOf(const Volume& v) {
  return openvdb::gridPtrCast<openvdb::FloatGrid>(zelmar::VolumeImpl::GetGrid(v));
}

// OpenVDB's own conversion of the same mesh with a uniform voxel size.
openvdb::FloatGrid::Ptr Reference(const Mesh& m, double voxelSize, float exterior, float interior, int flags = 0) {
  std::vector<openvdb::Vec3s> points;
  for (const Vector& p : m.points) points.emplace_back(float(p.x / voxelSize), float(p.y / voxelSize), float(p.z / voxelSize));
  std::vector<openvdb::Vec4I> polys;
  for (const auto& p : m.polygons) polys.emplace_back(p.a, p.b, p.c, p.d);
  openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec4I> adapter(points, polys);
  return openvdb::tools::meshToVolume<openvdb::FloatGrid>(
      adapter, *openvdb::math::Transform::createLinearTransform(voxelSize), exterior, interior, flags);
}

// Same active voxels, and values equal to float precision where both are active.
void ExpectSameLevelSet(const openvdb::FloatGrid& got, const openvdb::FloatGrid& want, float tolerance) {
  EXPECT_EQ(got.activeVoxelCount(), want.activeVoxelCount());
  EXPECT_FLOAT_EQ(got.background(), want.background());
  auto acc = got.getConstAccessor();
  size_t differing = 0;
  for (auto it = want.cbeginValueOn(); it; ++it) {
    if (!acc.isValueOn(it.getCoord()) || std::abs(acc.getValue(it.getCoord()) - *it) > tolerance) ++differing;
  }
  EXPECT_EQ(differing, 0u);
}

Volume Convert(Mesh m, double gridSize, int32_t interior = 3, int32_t exterior = 3,
               const Matrix& object = Matrix(), const Matrix* creation = nullptr,
               POLYGONCONVERSIONFLAGS flags = POLYGONCONVERSIONFLAGS::NONE) {
  auto r = VolumeToolsInterface::MeshToVolume(m.points, m.polygons, object, gridSize, interior, exterior, nullptr,
                                              flags, creation);
  EXPECT_TRUE(r.IsOk()) << (r ? "" : r.GetError().GetMessage());
  return r ? *r : Volume();
}

TEST(MeshToVolume, MatchesOpenVdbForQuadsTrianglesAndMixedPolygons) {
  for (auto [quads, triangles] : {std::pair{true, false}, std::pair{false, false}, std::pair{true, true}}) {
    SCOPED_TRACE(quads ? (triangles ? "mixed" : "quads") : "triangles");
    const Mesh cube = Cube({-0.37, -0.52, -0.41}, 1.03, quads, triangles);
    const Volume v = Convert(cube, 0.05, 3, 3);
    ASSERT_TRUE(v.HasGrid());
    EXPECT_EQ(v.GetGridClass(), zelmar::GRIDCLASS::SDF);
    EXPECT_EQ(v.GetGridType(), zelmar::GRIDTYPE::FLOAT);
    ExpectSameLevelSet(*FloatGridOf(v), *Reference(cube, 0.05, 3.0f, 3.0f), 1e-5f);
  }
}

TEST(MeshToVolume, BandsAndFlags) {
  const Mesh cube = Cube({-0.5, -0.5, -0.5}, 1.0);
  // Asymmetric bands reach their own widths on each side of the surface.
  {
    const Volume v = Convert(cube, 0.1, 2, 5);
    const auto grid = FloatGridOf(v);
    ExpectSameLevelSet(*grid, *Reference(cube, 0.1, 5.0f, 2.0f), 1e-5f);
    EXPECT_FLOAT_EQ(grid->background(), 0.5f);
    const zelmar::ValueRange range = v.GetMinMaxValues(false);
    EXPECT_LT(range.min, -0.05);
    EXPECT_GE(range.min, -0.2);
    EXPECT_GT(range.max, 0.35);
  }
  // The largest width fills the inside: the centre is active and as deep as it gets.
  {
    const Volume v = Convert(cube, 0.1, VolumeToolsInterface::kFillInteriorBand, 3);
    const auto grid = FloatGridOf(v);
    EXPECT_TRUE(grid->tree().isValueOn(openvdb::Coord(0, 0, 0)));
    EXPECT_NEAR(grid->tree().getValue(openvdb::Coord(0, 0, 0)), -0.5f, 1e-4f);
    size_t inside = 0;
    for (int i = -4; i <= 4; ++i)
      for (int j = -4; j <= 4; ++j)
        for (int k = -4; k <= 4; ++k) inside += grid->tree().isValueOn(openvdb::Coord(i, j, k)) ? 1 : 0;
    EXPECT_EQ(inside, 9u * 9u * 9u);
    ExpectSameLevelSet(*grid, *Reference(cube, 0.1, 3.0f, std::numeric_limits<float>::max()), 1e-5f);
  }
  // Flags go through bit for bit: an unsigned field has no negative value.
  {
    const Volume v = Convert(cube, 0.1, 3, 3, Matrix(), nullptr, POLYGONCONVERSIONFLAGS::UNSIGNED_DISTANCE_FIELD);
    EXPECT_GE(v.GetMinMaxValues(false).min, 0.0);
    EXPECT_EQ(v.GetGridClass(), zelmar::GRIDCLASS::UNKNOWN);
    ExpectSameLevelSet(*FloatGridOf(v), *Reference(cube, 0.1, 3.0f, 3.0f, openvdb::tools::UNSIGNED_DISTANCE_FIELD),
                       1e-5f);
  }
}

TEST(MeshToVolume, FrameFollowsObjectMatrixOrCreationTransform) {
  const Mesh cube = Cube({-0.5, -0.5, -0.5}, 1.0);
  // The grid stands in the object's frame: its scale multiplies the voxel size, its
  // offset moves the grid, and the world positions end in that frame's index space.
  {
    Matrix object = zta::MatrixScale({2, 2, 2});
    object.off = {10, 0, -4};
    Mesh m = cube;
    for (Vector& p : m.points) p = object * p;
    auto r = VolumeToolsInterface::MeshToVolume(m.points, m.polygons, object, 0.1, 3, 3, nullptr,
                                                POLYGONCONVERSIONFLAGS::NONE, nullptr);
    ASSERT_TRUE(r.IsOk());
    const Matrix t = r->GetGridTransform();
    EXPECT_NEAR(t.v1.x, 0.2, 1e-12);
    EXPECT_NEAR(t.v3.z, 0.2, 1e-12);
    EXPECT_EQ(t.off, Vector(10, 0, -4));
    // World (11, 1, -3) is local (0.5, 0.5, 0.5), five voxels of 0.2 from the offset.
    EXPECT_NEAR(m.points[7].x, 5.0, 1e-9);
    EXPECT_NEAR(m.points[7].z, 5.0, 1e-9);
    EXPECT_NEAR(m.points[0].y, -5.0, 1e-9);
    const auto grid = FloatGridOf(*r);
    EXPECT_NEAR(grid->tree().getValue(openvdb::Coord(5, 0, 0)), 0.0f, 1e-4f);
    EXPECT_NEAR(grid->tree().getValue(openvdb::Coord(3, 0, 0)), -0.4f, 1e-4f);
  }
  // A creation transform decides the voxel size; gridSize does not matter.
  {
    const Matrix creation = zta::MatrixScale({0.05, 0.05, 0.05});
    const Volume a = Convert(cube, 0.1, 3, 3, Matrix(), &creation);
    const Volume b = Convert(cube, 7.0, 3, 3, Matrix(), &creation);
    EXPECT_EQ(a.GetGridTransform(), creation);
    EXPECT_EQ(a.GetActiveVoxelCount(), b.GetActiveVoxelCount());
    ExpectSameLevelSet(*FloatGridOf(a), *Reference(cube, 0.05, 3.0f, 3.0f), 1e-5f);
  }
}

TEST(MeshToVolume, EmptyMeshGivesEmptyLevelSet) {
  const Matrix object = zta::MatrixMove({1, 2, 3});
  for (bool noPolygons : {true, false}) {
    Mesh m = Cube({0, 0, 0}, 1.0);
    if (noPolygons) m.polygons.clear();
    else m.points.clear();
    const Volume v = Convert(m, 0.25, 3, 4, object);
    ASSERT_TRUE(v.HasGrid());
    EXPECT_EQ(v.GetGridClass(), zelmar::GRIDCLASS::SDF);
    EXPECT_EQ(v.GetActiveVoxelCount(), 0);
    EXPECT_FLOAT_EQ(v.GetBackground().Get<float>(), 1.0f);
    const Matrix t = v.GetGridTransform();
    EXPECT_EQ(t.off, Vector(1, 2, 3));
    EXPECT_DOUBLE_EQ(t.v2.y, 0.25);
  }
  // With a creation transform only the background still follows gridSize.
  const Matrix creation = zta::MatrixScale({0.5, 0.5, 0.5});
  Mesh none;
  const Volume v = Convert(none, 0.25, 3, 4, Matrix(), &creation);
  EXPECT_EQ(v.GetGridTransform(), creation);
  EXPECT_FLOAT_EQ(v.GetBackground().Get<float>(), 1.0f);
}

TEST(MeshToVolume, BadIndicesAreRefusedWithoutTouchingTheVertices) {
  using Polys = std::vector<VolumeConversionPolygon>;
  EXPECT_TRUE(VolumeToolsInterface::CheckPolyIndexValidity({}, 0).IsOk());
  EXPECT_TRUE(VolumeToolsInterface::CheckPolyIndexValidity(Polys{{0, 1, 2, kTri}, {0, 1, 2, 3}}, 4).IsOk());

  auto r = VolumeToolsInterface::CheckPolyIndexValidity(Polys{{0, 1, 3, kTri}}, 3);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "Index 3 of polygon 0 is out of bounds");
  // The largest index of the first bad polygon is named, the fourth one included.
  r = VolumeToolsInterface::CheckPolyIndexValidity(Polys{{0, 1, 2, kTri}, {0, 1, 2, 3}, {9, 1, 2, 12}}, 4);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "Index 12 of polygon 2 is out of bounds");
  r = VolumeToolsInterface::CheckPolyIndexValidity(Polys{{kTri, kTri, kTri, kTri}}, 4);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "VolumeConversionPolygon is uninitialized");
  r = VolumeToolsInterface::CheckPolyIndexValidity(Polys{{0, kTri, 1, kTri}}, 4);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetMessage(), "VolumeConversionPolygon is uninitialized");

  // The tool itself refuses such a mesh rather than read past the points.
  Mesh m = Cube({0, 0, 0}, 1.0);
  m.polygons[3].c = 8;
  const std::vector<Vector> before = m.points;
  auto v = VolumeToolsInterface::MeshToVolume(m.points, m.polygons, Matrix(), 0.1, 3, 3, nullptr,
                                              POLYGONCONVERSIONFLAGS::NONE, nullptr);
  ASSERT_TRUE(v.IsError());
  EXPECT_EQ(v.GetError().GetMessage(), "Index 8 of polygon 3 is out of bounds");
  EXPECT_EQ(m.points, before);
}

TEST(MeshToVolume, SingularFrameOrStoppedThread) {
  Mesh m = Cube({0, 0, 0}, 1.0);
  // A flat object matrix cannot become a transform.
  auto r = VolumeToolsInterface::MeshToVolume(m.points, m.polygons, zta::MatrixScale({1, 0, 1}), 0.1, 3, 3, nullptr,
                                              POLYGONCONVERSIONFLAGS::NONE, nullptr);
  ASSERT_TRUE(r.IsError());
  EXPECT_EQ(r.GetError().GetKind(), zta::ErrorKind::OutOfMemory);

  // A thread asked to stop ends the conversion early; what was built is returned.
  auto thread = std::make_shared<zta::ZTAThread>();
  thread->End();
  m = Cube({0, 0, 0}, 1.0);
  r = VolumeToolsInterface::MeshToVolume(m.points, m.polygons, Matrix(), 0.01, 3, 3, thread,
                                         POLYGONCONVERSIONFLAGS::NONE, nullptr);
  ASSERT_TRUE(r.IsOk());
  EXPECT_LT(r->GetActiveVoxelCount(), Convert(Cube({0, 0, 0}, 1.0), 0.01).GetActiveVoxelCount());
}

// A host polygon object of the mesh; triangles end with c == d.
std::unique_ptr<zta::PolygonObject> ToObject(const Mesh& m) {
  auto op = zta::PolygonObject::Alloc(int(m.points.size()), int(m.polygons.size()));
  std::copy(m.points.begin(), m.points.end(), op->GetPointW());
  for (size_t i = 0; i < m.polygons.size(); ++i) {
    const auto& p = m.polygons[i];
    op->GetPolygonW()[i] = p.IsTriangle() ? zta::CPolygon(p.a, p.b, p.c) : zta::CPolygon(p.a, p.b, p.c, p.d);
  }
  return op;
}

bool HasOpenEdge(const zta::PolygonObject& op) {
  zta::Neighbor n;
  EXPECT_TRUE(n.Init(op).IsOk());
  return n.FindOpenEdge(0).polygon != zta::NOTOK;
}

TEST(ClosePolygonObject, ClosesHolesAfterMergingNearPoints) {
  // A cube without its top, whose corners are split along one seam: the
  // split points merge first, then the one real hole is filled.
  Mesh m = Cube({0, 0, 0}, 1.0);
  m.polygons.erase(m.polygons.begin() + 1);
  m.points.push_back(m.points[0] + Vector(1e-5, 0, 0));
  m.polygons[0].a = 8;
  auto doc = zta::BaseDocument::Alloc();
  zta::PolygonObject* op = ToObject(m).release();
  doc->InsertObject(op);
  const int undoBefore = doc->GetUndoCount();
  auto r = zelmar::ClosePolygonObject(op, doc.get(), true);
  ASSERT_TRUE(r.IsOk());
  EXPECT_TRUE(*r);
  EXPECT_EQ(op->GetPointCount(), 8);
  EXPECT_FALSE(HasOpenEdge(*op));
  EXPECT_EQ(op->GetPolygonCount(), 7);  // the square hole as two triangles
  EXPECT_EQ(doc->GetUndoCount(), undoBefore + 1);
  // The closed object is a watertight mesh: its level set has a solid inside.
  std::vector<Vector> points(op->GetPointR(), op->GetPointR() + op->GetPointCount());
  std::vector<VolumeConversionPolygon> polys;
  for (int i = 0; i < op->GetPolygonCount(); ++i) {
    const zta::CPolygon& p = op->GetPolygonR()[i];
    polys.push_back({uint32_t(p.a), uint32_t(p.b), uint32_t(p.c), p.IsTriangle() ? kTri : uint32_t(p.d)});
  }
  auto v = VolumeToolsInterface::MeshToVolume(points, polys, Matrix(), 0.1, VolumeToolsInterface::kFillInteriorBand,
                                              3, nullptr, POLYGONCONVERSIONFLAGS::NONE, nullptr);
  ASSERT_TRUE(v.IsOk());
  EXPECT_LT(FloatGridOf(*v)->tree().getValue(openvdb::Coord(5, 5, 5)), -0.4f);

  // Without a document, or on a closed object, nothing is recorded; a closed
  // object answers false.
  auto closed = ToObject(Cube({0, 0, 0}, 1.0));
  r = zelmar::ClosePolygonObject(closed.get(), nullptr, true);
  ASSERT_TRUE(r.IsOk());
  EXPECT_FALSE(*r);
  EXPECT_EQ(closed->GetPolygonCount(), 6);
  auto none = zta::PolygonObject::Alloc(3, 0);
  r = zelmar::ClosePolygonObject(none.get(), nullptr, false);
  ASSERT_TRUE(r.IsOk());
  EXPECT_FALSE(*r);
}

TEST(ClosePolygonObject, StopsAfterFourHundredHoles) {
  // 401 loose triangles, each a hole of its own as seen from its back.
  Mesh m;
  for (uint32_t i = 0; i < 401; ++i) {
    const Vector o(double(i % 20) * 2.0, double(i / 20) * 2.0, 0.0);
    m.points.insert(m.points.end(), {o, o + Vector(1, 0, 0), o + Vector(0, 1, 0)});
    m.polygons.push_back({3 * i, 3 * i + 1, 3 * i + 2, kTri});
  }
  auto op = ToObject(m);
  auto r = zelmar::ClosePolygonObject(op.get(), nullptr, false);
  ASSERT_TRUE(r.IsOk());
  EXPECT_TRUE(*r);
  EXPECT_EQ(op->GetPolygonCount(), 801);
  zta::Neighbor n;
  ASSERT_TRUE(n.Init(*op).IsOk());
  EXPECT_EQ(n.FindOpenEdge(0).polygon, 400);
}

}  // namespace
