// The Volume Filter: one operation of one volume type, run on a volume
// object's grid directly (as a builder does) or as a modifier in a scene.
#include <gtest/gtest.h>

#include <memory>

#include "host/scene/basedocument.h"
#include "host/scene/description.h"
#include "host/scene/execution.h"
#include "host/ui/hostmode.h"
#include "host/ui/statusbar.h"
#include "modules/volumes/source/objects/volumefilter.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "support/expect.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Vector;

namespace {

Volume Sphere() {
  auto r = VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0.2, 0, 0), 0.1, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

Volume FogSphere() {
  auto r = VolumeToolsInterface::ConvertSDFToFog(Sphere(), 1e300);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

std::unique_ptr<zta::BaseObject> VolumeObject(const Volume& v) {
  auto made = CreateVolumeObject(v);
  EXPECT_TRUE(made.IsOk());
  return made ? std::move(*made) : nullptr;
}

std::unique_ptr<zta::BaseObject> NewFilter(zta::Int32 volumeType) {
  std::unique_ptr<zta::BaseObject> f = zta::AllocObject(ID_VOLUMEFILTER);
  EXPECT_NE(f, nullptr);
  if (f) f->GetDataInstance()->SetInt32(VOLUMEFILTER_VOLUMETYPE, volumeType);
  return f;
}

double ValueAt(const Volume& v, const Vector& world) {
  auto acc = GridAccessorCreationImpl::Create<float>();
  EXPECT_TRUE(acc.IsOk());
  EXPECT_TRUE((*acc)->Init(v, VOLUMESAMPLER::LINEAR).IsOk());
  return (*acc)->GetValueVector(world);
}

// Runs the filter on a fresh volume object holding `v` and gives the object's new volume.
Volume Filtered(zta::BaseObject* filter, const Volume& v) {
  auto op = VolumeObject(v);
  const zta::Result<void> done = VolumeFilter::Filter(filter, op.get(), nullptr, nullptr, zta::Matrix());
  EXPECT_TRUE(done.IsOk()) << (done ? "" : done.GetError().GetMessage());
  return VolumeObjectData::GetVolume(op.get());
}

}  // namespace

TEST(VolumeFilter, RunsTheOperationOfItsOwnTypeAsTheCommandsDo) {
  const Volume sdf = Sphere();
  {  // SDF dilate: the surface moves out by the offset, as the sdffilter command makes it
    auto f = NewFilter(VOLUMEFILTER_TYPE_SDF);
    zta::BaseContainer* bc = f->GetDataInstance();
    bc->SetInt32(VOLUMEFILTER_SDFTYPE, int32_t(SDFFILTERTYPE::DILATE));
    bc->SetFloat(VOLUMEFILTER_OFFSET, 0.2);
    const Volume out = Filtered(f.get(), sdf);
    ASSERT_TRUE(out.HasGrid());
    EXPECT_NEAR(ValueAt(out, Vector(1.2, 0, 0)), ValueAt(sdf, Vector(1.2, 0, 0)) - 0.2, 0.03);
    EXPECT_LT(ValueAt(out, Vector(1.3, 0, 0)), 0.0);
  }
  {  // Fog multiply, faded by the strength: v * (1 + 0.5 * (3 - 1))
    auto f = NewFilter(VOLUMEFILTER_TYPE_FOG);
    f->GetDataInstance()->SetInt32(VOLUMEFILTER_FOGTYPE, int32_t(FILTERTYPE::MULTIPLY));
    f->GetDataInstance()->SetFloat(VOLUMEFILTER_FOG_MULTIPLY, 3.0);
    f->GetDataInstance()->SetFloat(VOLUMEFILTER_STRENGTH, 0.5);
    const Volume fog = FogSphere();
    EXPECT_NEAR(ValueAt(Filtered(f.get(), fog), Vector(0.7, 0, 0)), 2.0 * ValueAt(fog, Vector(0.7, 0, 0)), 1e-5);
  }
  {  // Fog add: every active value grows by the amount
    auto f = NewFilter(VOLUMEFILTER_TYPE_FOG);
    f->GetDataInstance()->SetInt32(VOLUMEFILTER_FOGTYPE, int32_t(FILTERTYPE::ADD));
    f->GetDataInstance()->SetFloat(VOLUMEFILTER_FOG_ADD, 0.25);
    const Volume fog = FogSphere();
    const Volume out = Filtered(f.get(), fog);
    EXPECT_NEAR(ValueAt(out, Vector(0.2, 0, 0)), ValueAt(fog, Vector(0.2, 0, 0)) + 0.25, 1e-5);
    EXPECT_EQ(out.GetActiveVoxelCount(), fog.GetActiveVoxelCount());
  }
  {  // Fog invert about a centre relative to the value range: 0..1 about 0.5
    auto f = NewFilter(VOLUMEFILTER_TYPE_FOG);
    zta::BaseContainer* bc = f->GetDataInstance();
    bc->SetInt32(VOLUMEFILTER_FOGTYPE, int32_t(FILTERTYPE::INVERT));
    bc->SetFloat(VOLUMEFILTER_RESHAPE_AMOUNT, 0.5);
    bc->SetBool(VOLUMEFILTER_RESHAPE_NORMALIZE, true);
    const Volume fog = FogSphere();
    const ValueRange range = fog.GetMinMaxValues(false);
    const double centre = range.min + 0.5 * (range.max - range.min);
    const Volume out = Filtered(f.get(), fog);
    EXPECT_NEAR(ValueAt(out, Vector(0.2, 0, 0)), 2 * centre - ValueAt(fog, Vector(0.2, 0, 0)), 1e-5);
  }
  {  // Vector scale multiplies each component
    auto grad = VolumeToolsInterface::CreateGradientVolume(sdf, nullptr);
    ASSERT_TRUE(grad.IsOk());
    auto f = NewFilter(VOLUMEFILTER_TYPE_VECTOR);
    f->GetDataInstance()->SetInt32(VOLUMEFILTER_VECTORTYPE, int32_t(VECTORFILTERTYPE::SCALE));
    f->GetDataInstance()->SetFloat(VOLUMEFILTER_VECTOR_SCALE, 3.0);
    const Volume out = Filtered(f.get(), *grad);
    ASSERT_EQ(out.GetGridType(), GRIDTYPE::VEC3S);
    auto acc = GridAccessorCreationImpl::Create<zta::Vector32>();
    ASSERT_TRUE((*acc)->Init(*grad, VOLUMESAMPLER::NEAREST).IsOk());
    const zta::Vector32 g = (*acc)->GetValueVector(Vector(1.0, 0.3, 0));
    ASSERT_TRUE((*acc)->Init(out, VOLUMESAMPLER::NEAREST).IsOk());
    const zta::Vector32 s = (*acc)->GetValueVector(Vector(1.0, 0.3, 0));
    EXPECT_NEAR(s.x, 3.0 * g.x, 1e-4);
    EXPECT_NEAR(s.y, 3.0 * g.y, 1e-4);
  }
}

TEST(VolumeFilter, LeavesAloneWhatItDoesNotServe) {
  const Volume sdf = Sphere();
  {  // strength 0 does nothing
    auto f = NewFilter(VOLUMEFILTER_TYPE_SDF);
    f->GetDataInstance()->SetInt32(VOLUMEFILTER_SDFTYPE, int32_t(SDFFILTERTYPE::DILATE));
    f->GetDataInstance()->SetFloat(VOLUMEFILTER_STRENGTH, 0.0);
    EXPECT_TRUE(Filtered(f.get(), sdf)== sdf);
  }
  {  // a fog filter on an SDF volume, and an SDF filter on fog
    EXPECT_TRUE(Filtered(NewFilter(VOLUMEFILTER_TYPE_FOG).get(), sdf)== sdf);
    const Volume fog = FogSphere();
    EXPECT_TRUE(Filtered(NewFilter(VOLUMEFILTER_TYPE_SDF).get(), fog)== fog);
  }
  {  // a disabled filter
    auto f = NewFilter(VOLUMEFILTER_TYPE_SDF);
    f->SetDeformMode(false);
    EXPECT_TRUE(Filtered(f.get(), sdf)== sdf);
  }
  {  // an object that is no volume object is left as it was
    auto f = NewFilter(VOLUMEFILTER_TYPE_SDF);
    std::unique_ptr<zta::BaseObject> null = zta::AllocObject(zta::HOST_TYPE_NULL);
    EXPECT_TRUE(VolumeFilter::Filter(f.get(), null.get(), nullptr, nullptr, zta::Matrix()).IsOk());
  }
}

TEST(VolumeFilter, WorksAsAModifierUnderAVolumeObjectAndKeepsItsPlacement) {
  auto doc = zta::AllocDocument();
  auto op = VolumeObject(Sphere());
  zta::BaseObject* vol = op.release();
  doc->InsertObject(vol);
  const zta::Matrix placed = vol->GetMl();
  const Volume original = VolumeObjectData::GetVolume(vol);
  auto f = NewFilter(VOLUMEFILTER_TYPE_SDF);
  f->GetDataInstance()->SetInt32(VOLUMEFILTER_SDFTYPE, int32_t(SDFFILTERTYPE::ERODE));
  f->GetDataInstance()->SetFloat(VOLUMEFILTER_OFFSET, 0.2);
  zta::BaseObject* filter = f.release();
  doc->InsertObject(filter, vol);
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));

  zta::BaseObject* deformed = vol->GetDeformCache();
  ASSERT_NE(deformed, nullptr);
  const Volume out = VolumeObjectData::GetVolume(deformed);
  ASSERT_TRUE(out.HasGrid());
  EXPECT_GT(ValueAt(out, Vector(1.1, 0, 0)), ValueAt(Sphere(), Vector(1.1, 0, 0)) + 0.1);
  // The object itself and its grid stay as they were.
  EXPECT_DOUBLE_EQ(ValueAt(VolumeObjectData::GetVolume(vol), Vector(1.1, 0, 0)), ValueAt(original, Vector(1.1, 0, 0)));
  EXPECT_EQ(vol->GetMl().off, placed.off);
  EXPECT_EQ(deformed->GetMl().off, zta::Matrix().off);
}

TEST(VolumeFilter, PanelShowsTheSettingsOfTheChosenOperation) {
  auto f = NewFilter(VOLUMEFILTER_TYPE_FOG);
  f->GetDataInstance()->SetInt32(VOLUMEFILTER_FOGTYPE, int32_t(FILTERTYPE::REMAP));
  zta::Description d;
  ASSERT_TRUE(zta::GetNodeDescription(f.get(), d));
  EXPECT_FALSE(d.IsHidden(zta::DescID(VOLUMEFILTER_FOGTYPE)));
  EXPECT_TRUE(d.IsHidden(zta::DescID(VOLUMEFILTER_SDFTYPE)));
  EXPECT_FALSE(d.IsHidden(zta::DescID(VOLUMEFILTER_REMAP_NEWMAX)));
  EXPECT_TRUE(d.IsHidden(zta::DescID(VOLUMEFILTER_FOG_ADD)));
  EXPECT_FALSE(d.IsHidden(zta::DescID(VOLUMEFILTER_STRENGTH)));

  f->GetDataInstance()->SetInt32(VOLUMEFILTER_VOLUMETYPE, VOLUMEFILTER_TYPE_VECTOR);
  f->GetDataInstance()->SetInt32(VOLUMEFILTER_VECTORTYPE, int32_t(VECTORFILTERTYPE::ROTATE));
  zta::Description v;
  ASSERT_TRUE(zta::GetNodeDescription(f.get(), v));
  EXPECT_FALSE(v.IsHidden(zta::DescID(VOLUMEFILTER_AXIS)));
  EXPECT_FALSE(v.IsHidden(zta::DescID(VOLUMEFILTER_ANGLE)));
  EXPECT_TRUE(v.IsHidden(zta::DescID(VOLUMEFILTER_REMAP_NEWMAX)));
  EXPECT_TRUE(v.IsHidden(zta::DescID(VOLUMEFILTER_FOGTYPE)));
}
