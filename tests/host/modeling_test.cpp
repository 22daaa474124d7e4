#include <gtest/gtest.h>

#include <set>

#include "host/modeling/join.h"
#include "host/modeling/modeling.h"
#include "host/modeling/neighbor.h"
#include "host/objects/primitives.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/basedocument.h"

using namespace zta;

namespace {
// A cube of `sub` x `sub` quads a face with the polygons in `holes` taken out.
std::unique_ptr<PolygonObject> HoledCube(Int32 sub, const std::set<Int32>& holes) {
  auto cube = MakeCubePolygons(Vector(200), sub, sub, sub);
  std::vector<CPolygon> kept;
  for (Int32 i = 0; i < cube->GetPolygonCount(); ++i)
    if (!holes.count(i)) kept.push_back(cube->GetPolygonR()[i]);
  auto out = PolygonObject::Alloc(cube->GetPointCount(), Int32(kept.size()));
  std::copy(cube->GetPointR(), cube->GetPointR() + cube->GetPointCount(), out->GetPointW());
  std::copy(kept.begin(), kept.end(), out->GetPolygonW());
  return out;
}

// `count` polygons of a cube of 20 quads a face that share no point with one another.
std::set<Int32> ApartPolygons(Int32 count) {
  std::set<Int32> out;
  for (Int32 face = 0; face < 6; ++face)
    for (Int32 i = 1; i < 19; i += 2)
      for (Int32 j = 1; j < 19; j += 2)
        if (Int32(out.size()) < count) out.insert((face * 20 + i) * 20 + j);
  return out;
}

Int32 OpenEdgeCount(const PolygonObject& op) {
  Neighbor nb;
  EXPECT_TRUE(nb.Init(op).IsOk());
  Int32 n = 0;
  for (Int32 p = 0; p < nb.GetPolygonCount(); ++p)
    for (Int32 s = 0; s < 4; ++s)
      if (HasSide(op.GetPolygonR()[p], s) && nb.GetNeighbor(p, s) == NOTOK) ++n;
  return n;
}
}  // namespace

TEST(Modeling, NeighbourTableAndOpenEdges) {
  auto cube = MakeCubePolygons(Vector(200), 2, 2, 2);
  Neighbor nb;
  ASSERT_TRUE(nb.Init(*cube).IsOk());
  EXPECT_EQ(nb.FindOpenEdge().polygon, NOTOK);
  EXPECT_EQ(OpenEdgeCount(*cube), 0);
  const CPolygon p0 = cube->GetPolygonR()[0];
  EXPECT_EQ(nb.GetEdgeUseCount(p0.a, p0.b), 2);
  EXPECT_EQ(nb.GetPointPolys(p0.a).size(), 3u);  // a corner of the cube
  EXPECT_NE(nb.GetNeighbor(p0.a, p0.b, 0), NOTOK);

  // Without polygon 0 its four neighbours each have one open edge.
  auto holed = HoledCube(2, {0});
  ASSERT_TRUE(nb.Init(*holed).IsOk());
  EXPECT_EQ(OpenEdgeCount(*holed), 4);
  const OpenEdge e = nb.FindOpenEdge();
  ASSERT_NE(e.polygon, NOTOK);
  EXPECT_EQ(e.edge / 4, e.polygon);
  EXPECT_EQ(nb.FindOpenEdge(e.polygon + 1).polygon > e.polygon, true);
  const std::vector<Int32> loop = nb.GetHoleLoop(e.edge);
  ASSERT_EQ(loop.size(), 4u);
  std::set<Int32> corners(loop.begin(), loop.end());
  EXPECT_EQ(corners, std::set<Int32>({p0.a, p0.b, p0.c, p0.d}));

  // Edges of a triangle: sides a-b, b-c and d-a (= c-a); side 2 does not exist.
  const CPolygon tris[2] = {CPolygon(0, 1, 2), CPolygon(2, 1, 3)};
  ASSERT_TRUE(nb.Init(4, tris, 2).IsOk());
  EXPECT_EQ(nb.GetNeighbor(0, 1), 1);
  EXPECT_EQ(nb.GetNeighbor(0, 2), NOTOK);
  EXPECT_EQ(nb.FindOpenEdge().edge, 0 * 4 + 0);
  const OpenEdge second = nb.FindOpenEdge(0);
  EXPECT_EQ(second.edge, 0);
  EXPECT_EQ(nb.GetHoleLoop(0).size(), 4u);  // the border of the two triangles

  const CPolygon bad[1] = {CPolygon(0, 1, 9)};
  EXPECT_TRUE(nb.Init(3, bad, 1).IsError());
}

TEST(Modeling, OptimiseMergesPointsAndCleansPolygons) {
  // Six faces with their own corners, as a mesh file often gives them.
  auto source = MakeCubePolygons(Vector(2), 1, 1, 1);
  const Int32 faces = source->GetPolygonCount();
  auto op = PolygonObject::Alloc(faces * 4 + 1, faces + 2);
  for (Int32 f = 0; f < faces; ++f) {
    const CPolygon q = source->GetPolygonR()[f];
    for (int k = 0; k < 4; ++k) {
      Vector p = source->GetPointR()[q[k]];
      if (f == 3) p.x += 0.004;  // close enough to merge at 0.01
      op->GetPointW()[f * 4 + k] = p;
    }
    op->GetPolygonW()[f] = CPolygon(f * 4, f * 4 + 1, f * 4 + 2, f * 4 + 3);
  }
  op->GetPointW()[faces * 4] = Vector(50, 50, 50);  // used by nothing
  op->GetPolygonW()[faces] = CPolygon(0, 1, 2, 3);       // the same points as polygon 0
  op->GetPolygonW()[faces + 1] = CPolygon(4, 4, 5, 5);   // collapses to an edge
  auto uvw = UVWTag::Alloc(faces + 2);
  for (Int32 f = 0; f < faces + 2; ++f) uvw->Set(f, {Vector(f), Vector(f), Vector(f), Vector(f)});
  op->InsertTag(uvw.release());
  auto vmap = VertexMapTag::Alloc(faces * 4 + 1);
  for (Int32 i = 0; i < faces * 4 + 1; ++i) vmap->GetDataAddressW()[i] = float(i);
  op->InsertTag(vmap.release());

  ModelingCommandData data;
  data.op = op.get();
  data.bc.SetFloat(MDATA_OPTIMIZE_TOLERANCE, 0.01);
  data.bc.SetBool(MDATA_OPTIMIZE_POINTS, true);
  data.bc.SetBool(MDATA_OPTIMIZE_POLYGONS, true);
  data.bc.SetBool(MDATA_OPTIMIZE_UNUSEDPOINTS, true);
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_OPTIMIZE, data).IsOk());
  EXPECT_EQ(op->GetPointCount(), 8);
  EXPECT_EQ(op->GetPolygonCount(), faces);
  EXPECT_TRUE(op->IsValid());
  EXPECT_EQ(OpenEdgeCount(*op), 0);
  // Tags follow: UVWs stay with their polygons, weights with their points.
  auto* t = static_cast<UVWTag*>(op->GetTag(HOST_TAG_UVW));
  ASSERT_EQ(t->GetDataCount(), faces);
  for (Int32 f = 0; f < faces; ++f) EXPECT_EQ(t->Get(f).a, Vector(f));
  auto* w = static_cast<VertexMapTag*>(op->GetTag(HOST_TAG_VERTEXMAP));
  ASSERT_EQ(w->GetDataCount(), 8);
  EXPECT_EQ(w->GetDataAddressR()[0], 0.0f);

  // Tolerance 0 merges only equal points; the shifted face stays apart.
  auto again = PolygonObject::Alloc(0, 0);
  ASSERT_TRUE(again->ResizeObject(faces * 4, faces));
  for (Int32 f = 0; f < faces; ++f) {
    const CPolygon q = source->GetPolygonR()[f];
    for (int k = 0; k < 4; ++k) again->GetPointW()[f * 4 + k] = source->GetPointR()[q[k]] + Vector(f == 3 ? 0.004 : 0, 0, 0);
    again->GetPolygonW()[f] = CPolygon(f * 4, f * 4 + 1, f * 4 + 2, f * 4 + 3);
  }
  data.op = again.get();
  data.bc.SetFloat(MDATA_OPTIMIZE_TOLERANCE, 0.0);
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_OPTIMIZE, data).IsOk());
  EXPECT_EQ(again->GetPointCount(), 12);

  // Bad input changes nothing.
  data.bc.SetFloat(MDATA_OPTIMIZE_TOLERANCE, -1.0);
  EXPECT_TRUE(SendModelingCommand(MCOMMAND_OPTIMIZE, data).IsError());
  EXPECT_EQ(again->GetPointCount(), 12);
  auto null = BaseObject::Alloc(HOST_TYPE_NULL);
  data.op = null.get();
  data.bc.SetFloat(MDATA_OPTIMIZE_TOLERANCE, 0.01);
  EXPECT_TRUE(SendModelingCommand(MCOMMAND_OPTIMIZE, data).IsError());
  EXPECT_TRUE(SendModelingCommand(123, data).IsError());
}

TEST(Modeling, ClosePolygonHoleTool) {
  auto doc = BaseDocument::Alloc();
  auto holed = HoledCube(2, {0});
  auto uvw = UVWTag::Alloc(holed->GetPolygonCount());
  holed->InsertTag(uvw.release());
  PolygonObject* op = holed.release();
  doc->InsertObject(op);
  Neighbor nb;
  ASSERT_TRUE(nb.Init(*op).IsOk());
  const Int32 before = op->GetPolygonCount();

  // The object comes through the link; a quad hole takes one quad.
  ModelingCommandData data;
  data.doc = doc.get();
  data.bc.SetInt32(MDATA_CLOSEPOLYGONHOLE_EDGEINDEX, nb.FindOpenEdge().edge);
  data.bc.SetLink(MDATA_CLOSEPOLYGONHOLE_OBJECT, op);
  data.bc.SetBool(MDATA_CLOSEPOLYGONHOLE_TRIANGULATE, false);
  ASSERT_TRUE(SendModelingCommand(ID_MODELING_CLOSEPOLYGONHOLE, data).IsOk());
  EXPECT_EQ(op->GetPolygonCount(), before + 1);
  EXPECT_FALSE(op->GetPolygonR()[before].IsTriangle());
  EXPECT_EQ(OpenEdgeCount(*op), 0);
  EXPECT_EQ(static_cast<UVWTag*>(op->GetTag(HOST_TAG_UVW))->GetDataCount(), op->GetPolygonCount());

  // A closed edge is refused, and the object stays as it was.
  EXPECT_TRUE(SendModelingCommand(ID_MODELING_CLOSEPOLYGONHOLE, data).IsError());
  EXPECT_EQ(op->GetPolygonCount(), before + 1);

  // Triangulated: two triangles, wound against the border like their neighbours.
  auto tri = HoledCube(2, {5});
  ASSERT_TRUE(nb.Init(*tri).IsOk());
  ModelingCommandData t;
  t.op = tri.get();
  t.bc.SetInt32(MDATA_CLOSEPOLYGONHOLE_EDGEINDEX, nb.FindOpenEdge().edge);
  t.bc.SetBool(MDATA_CLOSEPOLYGONHOLE_TRIANGULATE, true);
  ASSERT_TRUE(SendModelingCommand(ID_MODELING_CLOSEPOLYGONHOLE, t).IsOk());
  EXPECT_EQ(tri->GetPolygonCount(), 25);
  EXPECT_TRUE(tri->GetPolygonR()[23].IsTriangle());
  EXPECT_TRUE(tri->GetPolygonR()[24].IsTriangle());
  EXPECT_EQ(OpenEdgeCount(*tri), 0);
  // Consistent winding: every edge is run once in each direction.
  std::set<std::pair<Int32, Int32>> directed;
  for (Int32 p = 0; p < tri->GetPolygonCount(); ++p)
    for (Int32 s = 0; s < 4; ++s) {
      if (!HasSide(tri->GetPolygonR()[p], s)) continue;
      Int32 a, b;
      GetSidePoints(tri->GetPolygonR()[p], s, a, b);
      EXPECT_TRUE(directed.insert({a, b}).second) << a << "-" << b;
    }
}

TEST(Modeling, FillHoleWorksFromTheTableItIsGiven) {
  auto op = HoledCube(2, {0, 5});
  Neighbor nb;
  ASSERT_TRUE(nb.Init(*op).IsOk());
  const Int32 before = op->GetPolygonCount();
  const OpenEdge first = nb.FindOpenEdge();
  ASSERT_TRUE(FillHole(*op, nb, first.edge, false).IsOk());
  EXPECT_EQ(op->GetPolygonCount(), before + 1);
  EXPECT_EQ(OpenEdgeCount(*op), 4);  // the other hole

  // An edge that borders no hole is refused and changes nothing.
  ASSERT_TRUE(nb.Init(*op).IsOk());
  Int32 closedEdge = NOTOK;
  for (Int32 side = 0; side < 4 && closedEdge == NOTOK; ++side)
    if (nb.GetNeighbor(before, side) != NOTOK) closedEdge = before * 4 + side;  // a side of the new quad
  ASSERT_NE(closedEdge, NOTOK);
  auto refused = FillHole(*op, nb, closedEdge, false);
  ASSERT_TRUE(refused.IsError());
  EXPECT_EQ(refused.GetError().GetKind(), ErrorKind::IllegalArgument);
  EXPECT_EQ(op->GetPolygonCount(), before + 1);

  // The loop over holes takes a table the caller built, and closes the rest.
  auto closed = CloseHoles(*op, nb, true);
  ASSERT_TRUE(closed.IsOk());
  EXPECT_EQ(*closed, 1);
  EXPECT_EQ(OpenEdgeCount(*op), 0);
}

TEST(Modeling, CloseHolesOneTwoManyAndTheLimit) {
  for (Int32 holes : {1, 2, 10}) {
    auto op = HoledCube(20, ApartPolygons(holes));
    EXPECT_EQ(OpenEdgeCount(*op), 4 * holes);
    auto closed = CloseHoles(*op, true);
    ASSERT_TRUE(closed.IsOk());
    EXPECT_EQ(*closed, holes);
    EXPECT_EQ(OpenEdgeCount(*op), 0);
  }
  // 401 holes: the first 400 close, the last stays open.
  auto op = HoledCube(20, ApartPolygons(kMaxHoleClosings + 1));
  auto closed = CloseHoles(*op, true);
  ASSERT_TRUE(closed.IsOk());
  EXPECT_EQ(*closed, kMaxHoleClosings);
  EXPECT_EQ(OpenEdgeCount(*op), 4);
  // A closed object has nothing to close.
  auto cube = MakeCubePolygons(Vector(10), 1, 1, 1);
  EXPECT_EQ(*CloseHoles(*cube, false), 0);
}

TEST(Modeling, JoinAndCurrentState) {
  auto doc = BaseDocument::Alloc();
  auto a = MakeCubePolygons(Vector(2), 1, 1, 1);
  auto b = MakeCubePolygons(Vector(2), 1, 1, 1);
  auto uvw = UVWTag::Alloc(b->GetPolygonCount());
  uvw->Set(0, {Vector(1), Vector(2), Vector(3), Vector(4)});
  b->InsertTag(uvw.release());
  PolygonObject* pa = a.release();
  PolygonObject* pb = b.release();
  doc->InsertObject(pa);
  doc->InsertObject(pb, pa);
  pa->SetMl(MatrixMove(Vector(10, 0, 0)));
  pb->SetMl(MatrixScale(Vector(2)));

  auto joined = JoinPolygonObjects({pa, pb});
  ASSERT_TRUE(joined.IsOk());
  PolygonObject& j = *joined.GetValue();
  EXPECT_EQ(j.GetPointCount(), 16);
  EXPECT_EQ(j.GetPolygonCount(), 12);
  EXPECT_EQ(j.GetMl(), Matrix());
  // World space: a's corner at 10 - 1, b's (scaled by 2 under a) at 10 - 2.
  double minX = 1e9;
  for (Int32 i = 8; i < 16; ++i) minX = std::min(minX, j.GetPointR()[i].x);
  EXPECT_DOUBLE_EQ(minX, 8.0);
  EXPECT_EQ(j.GetPolygonR()[6].a, pb->GetPolygonR()[0].a + 8);
  auto* ju = static_cast<UVWTag*>(j.GetTag(HOST_TAG_UVW));
  ASSERT_NE(ju, nullptr);
  EXPECT_EQ(ju->Get(6).b, Vector(2));
  EXPECT_EQ(ju->Get(0).b, Vector(0));
  EXPECT_TRUE(JoinPolygonObjects({pa, nullptr}).IsError());

  // Current state of a generator builds its polygons; JOIN merges in world space.
  BaseObject* sphere = BaseObject::Alloc(HOST_TYPE_SPHERE).release();
  doc->InsertObject(sphere);
  sphere->GetDataInstance()->SetFloat(PRIM_SPHERE_RAD, 5.0);
  sphere->SetMl(MatrixMove(Vector(0, 100, 0)));
  ModelingCommandData data;
  data.doc = doc.get();
  data.op = sphere;
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_CURRENTSTATETOOBJECT, data).IsOk());
  ASSERT_EQ(data.result.size(), 1u);
  auto* state = dynamic_cast<PolygonObject*>(data.result[0].get());
  ASSERT_NE(state, nullptr);
  EXPECT_NEAR(state->GetRad().y, 5.0, 1e-9);
  EXPECT_EQ(state->GetMl().off, Vector(0, 100, 0));

  ModelingCommandData join;
  join.doc = doc.get();
  join.objects = {sphere, pb};
  join.bc.SetBool(MDATA_CURRENTSTATETOOBJECT_JOIN, true);
  ASSERT_TRUE(SendModelingCommand(MCOMMAND_CURRENTSTATETOOBJECT, join).IsOk());
  ASSERT_EQ(join.result.size(), 1u);
  auto* merged = static_cast<PolygonObject*>(join.result[0].get());
  EXPECT_EQ(merged->GetPointCount(), state->GetPointCount() + 8);
  EXPECT_NEAR(merged->GetMp().y, (105.0 + -2.0) / 2, 1e-9);

  auto null = BaseObject::Alloc(HOST_TYPE_NULL);
  ModelingCommandData nothing;
  nothing.op = null.get();
  EXPECT_TRUE(SendModelingCommand(MCOMMAND_CURRENTSTATETOOBJECT, nothing).IsError());
}
