#include <gtest/gtest.h>

#include <cmath>

#include "host/modeling/neighbor.h"
#include "host/objects/particles.h"
#include "host/objects/phongtag.h"
#include "host/objects/primitives.h"
#include "host/scene/basedocument.h"

using namespace zta;

namespace {
// Closed, consistently wound, and every normal points away from the centre.
void ExpectClosedOutward(const PolygonObject& op) {
  Neighbor nb;
  ASSERT_TRUE(nb.Init(op).IsOk());
  EXPECT_EQ(nb.FindOpenEdge().polygon, NOTOK);
  for (Int32 i = 0; i < op.GetPolygonCount(); ++i) {
    const CPolygon& p = op.GetPolygonR()[i];
    const Vector a = op.GetPointR()[p.a], b = op.GetPointR()[p.b], c = op.GetPointR()[p.c];
    EXPECT_GT(Dot(Cross(b - a, c - a), a + b + c), 0.0) << "polygon " << i;
  }
}
}  // namespace

TEST(Objects, Primitives) {
  auto sphere = MakeSpherePolygons(2.0, 16, PRIM_SPHERE_TYPE_STANDARD);
  ASSERT_TRUE(sphere);
  ExpectClosedOutward(*sphere);
  for (Int32 i = 0; i < sphere->GetPointCount(); ++i) EXPECT_NEAR(sphere->GetPointR()[i].GetLength(), 2.0, 1e-12);
  EXPECT_EQ(sphere->GetPointCount(), 2 + 7 * 16);

  const Int32 faces[] = {4, 6, 8, 20};
  const Int32 kinds[] = {PRIM_SPHERE_TYPE_TETRA, PRIM_SPHERE_TYPE_HEXA, PRIM_SPHERE_TYPE_OCTA, PRIM_SPHERE_TYPE_ICOSA};
  for (int k = 0; k < 4; ++k) {
    auto p = MakeSpherePolygons(1.0, 0, kinds[k]);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->GetPolygonCount(), faces[k]);
    ExpectClosedOutward(*p);
  }
  auto hemi = MakeSpherePolygons(1.0, 8, PRIM_SPHERE_TYPE_HEMISPHERE);
  Neighbor nb;
  ASSERT_TRUE(nb.Init(*hemi).IsOk());
  EXPECT_NE(nb.FindOpenEdge().polygon, NOTOK);  // open at the equator
  EXPECT_EQ(MakeSpherePolygons(-1.0, 8, 0), nullptr);
  EXPECT_EQ(MakeSpherePolygons(1.0, 8, 17), nullptr);

  auto cube = MakeCubePolygons(Vector(2, 4, 6), 2, 3, 4);
  ExpectClosedOutward(*cube);
  EXPECT_EQ(cube->GetPolygonCount(), 2 * (2 * 3 + 3 * 4 + 4 * 2));
  EXPECT_EQ(cube->GetRad(), Vector(1, 2, 3));

  // As generators: parameters decide the cache; an unchanged object keeps it.
  auto gen = BaseObject::Alloc(HOST_TYPE_SPHERE);
  ASSERT_TRUE(gen);
  EXPECT_EQ(gen->GetDataInstance()->GetFloat(PRIM_SPHERE_RAD), 100.0);
  EXPECT_TRUE(gen->GetInfo() & OBJECT_GENERATOR);
  gen->GetDataInstance()->SetFloat(PRIM_SPHERE_RAD, 3.0);
  HierarchyHelp hh(nullptr, nullptr, 0);
  std::unique_ptr<BaseObject> built(gen->GetObjectData()->BuildVirtualObjects(gen.get(), &hh));
  ASSERT_TRUE(built);
  EXPECT_NE(built->GetTag(HOST_TAG_PHONG), nullptr);
  gen->SetCache(std::move(built));
  EXPECT_EQ(gen->GetObjectData()->BuildVirtualObjects(gen.get(), &hh), gen->GetCache());
  EXPECT_NEAR(gen->GetRad().x, 3.0, 1e-9);
  gen->GetDataInstance()->SetInt32(PRIM_SPHERE_TYPE, PRIM_SPHERE_TYPE_OCTA);
  std::unique_ptr<BaseObject> rebuilt(gen->GetObjectData()->BuildVirtualObjects(gen.get(), &hh));
  ASSERT_NE(rebuilt.get(), gen->GetCache());
  EXPECT_EQ(static_cast<PolygonObject*>(rebuilt.get())->GetPolygonCount(), 8);

  auto phong = PhongTag::Alloc();
  EXPECT_NEAR(phong->GetSmoothingAngle(), 80.0 * M_PI / 180.0, 1e-12);
  phong->GetDataInstance()->SetBool(PHONGTAG_PHONG_ANGLELIMIT, false);
  EXPECT_NEAR(phong->GetSmoothingAngle(), M_PI, 1e-12);
}

TEST(Objects, ParticleSources) {
  auto doc = BaseDocument::Alloc();
  EmitterObject* em = EmitterObject::Alloc().release();
  doc->InsertObject(em);
  BaseContainer* bc = em->GetDataInstance();
  bc->SetFloat(EMITTER_BIRTHRATE, 10.0);
  bc->SetFloat(EMITTER_LIFETIME, 1.0);
  bc->SetFloat(EMITTER_SPEED, 100.0);
  bc->SetFloat(EMITTER_RADIUS, 2.0);
  em->SetMl(MatrixMove(Vector(0, 0, 1000)));
  em->Simulate(BaseTime(0, 1));
  EXPECT_EQ(em->GetParticleCount(), 1);  // the first is born at time 0
  em->Simulate(BaseTime(5, 2));
  // Born at 1.6 .. 2.5 s, the ones still under a second old.
  ASSERT_EQ(em->GetParticleCount(), 10);
  for (Int32 i = 0; i < em->GetParticleCount(); ++i) {
    const Vector& p = em->GetPositions()[size_t(i)];
    EXPECT_GE(p.z, 1000.0);
    EXPECT_LT(p.z, 1100.0);
    EXPECT_LE(std::abs(p.x), 50.0);
    EXPECT_EQ(em->GetVelocities()[size_t(i)], Vector(0, 0, 100));
    EXPECT_EQ(em->GetRadii()[size_t(i)], 2.0);
  }
  // The same time gives the same particles; another seed other ones.
  const std::vector<Vector> first = em->GetPositions();
  em->Simulate(BaseTime(5, 2));
  EXPECT_EQ(em->GetPositions(), first);
  bc->SetInt32(EMITTER_SEED, 9);
  em->Simulate(BaseTime(5, 2));
  EXPECT_NE(em->GetPositions(), first);
  EXPECT_GT(em->GetRad().z, 40.0);

  auto group = ParticleGroupObject::Alloc();
  EXPECT_FALSE(group->SetParticles({Vector(1)}, {}, {Vector()}));
  ASSERT_TRUE(group->SetParticles({Vector(1), Vector(3)}, {0.5, 1.0}, {Vector(), Vector(0, 1, 0)}));
  EXPECT_EQ(group->GetParticleCount(), 2);
  auto copy = group->GetClone();
  EXPECT_EQ(static_cast<ParticleGroupObject*>(copy.get())->GetRadii()[1], 1.0);
  EXPECT_EQ(BaseObject::Alloc(HOST_TYPE_PARTICLE_GROUP)->GetType(), HOST_TYPE_PARTICLE_GROUP);

  auto mo = MatrixObject::Alloc();
  mo->GetDataInstance()->SetVector(MATRIXOBJECT_COUNT, Vector(2, 1, 3));
  mo->GetDataInstance()->SetVector(MATRIXOBJECT_SPACING, Vector(10));
  mo->SetMl(MatrixScale(Vector(2)));
  mo->Update();
  ASSERT_EQ(mo->GetParticleCount(), 6);
  EXPECT_EQ(mo->GetMatrices().size(), 6u);
  EXPECT_EQ(mo->GetPositions()[0], Vector(-10, 0, -20));
  EXPECT_EQ(mo->GetRadii()[0], 20.0);  // size 10 times scale 2
}
