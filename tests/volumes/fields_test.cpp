// Fields to volumes, field masks, and filters masked by fields.
#include <gtest/gtest.h>
#include <openvdb/tools/Interpolation.h>

#include "host/fields/fieldlist.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace {

using namespace zelmar;
using openvdb::Coord;
using openvdb::FloatGrid;

// 1 within `inner` of `centre`, falling linearly to 0 at `radius`.
FieldSampleData Ball(const Vector& centre, double radius, double inner) {
  auto list = std::make_shared<zta::FieldList>();
  auto layer = std::make_unique<zta::SphericalFieldLayer>(radius, inner / radius);
  layer->SetMatrix(zta::MatrixMove(centre));
  list->InsertLayer(std::move(layer));
  FieldSampleData data;
  data.fields = list;
  return data;
}

// 1 for x in [0, 4], |y|, |z| <= 4; 0 elsewhere.
FieldSampleData PositiveX() {
  auto list = std::make_shared<zta::FieldList>();
  auto layer = std::make_unique<zta::BoxFieldLayer>(Vector(2, 4, 4), 0.0);
  layer->SetMatrix(zta::MatrixMove({2, 0, 0}));
  list->InsertLayer(std::move(layer));
  FieldSampleData data;
  data.fields = list;
  return data;
}

FloatGrid::Ptr Grid(const Volume& v) { return openvdb::gridPtrCast<FloatGrid>(VolumeImpl::GetGrid(v)); }

double WorldValue(const Volume& v, const Vector& p) {
  openvdb::tools::GridSampler<FloatGrid, openvdb::tools::BoxSampler> s(*Grid(v));
  return s.wsSample(openvdb::Vec3d(p.x, p.y, p.z));
}

TEST(FieldsToVolume, SamplesEveryVoxelOfTheBox) {
  const FieldSampleData ball = Ball({0, 0, 0}, 1.0, 0.5);
  const BoundingBox box{{-1, -1, -1}, {1, 1, 1}};
  auto fog = VolumeToolsInterface::ConvertFieldsToVolume(ball, 0.1, box, nullptr, Volume(), nullptr);
  ASSERT_TRUE(fog.IsOk()) << fog.GetError().GetMessage();
  EXPECT_EQ(fog->GetGridType(), GRIDTYPE::FLOAT);
  // Index -10 .. 11 on each axis: the upper corner gains one voxel.
  EXPECT_EQ(fog->GetActiveVoxelCount(), 22 * 22 * 22);
  const auto acc = Grid(*fog)->getConstAccessor();
  EXPECT_FLOAT_EQ(acc.getValue(Coord(0)), 1.0f);
  EXPECT_NEAR(acc.getValue(Coord(7, 0, 0)), 0.6f, 1e-5f);
  EXPECT_FLOAT_EQ(acc.getValue(Coord(10, 10, 10)), 0.0f);
  EXPECT_FALSE(acc.isValueOn(Coord(12, 0, 0)));

  // In the frame of a reference volume: its voxel size and offset.
  auto ref = VolumeToolsInterface::CreateNewFloat32Volume(0.0f);
  ref->SetGridTransform(zta::MatrixMove({0.5, 0, 0}) * zta::MatrixScale(Vector(0.25)));
  auto coarse = VolumeToolsInterface::ConvertFieldsToVolume(ball, 0.1, box, nullptr, *ref, nullptr);
  ASSERT_TRUE(coarse.IsOk());
  EXPECT_EQ(coarse->GetGridTransform(), ref->GetGridTransform());
  EXPECT_NEAR(WorldValue(*coarse, {0.75, 0, 0}), 0.5, 1e-5);

  // Directions: toward growing values, with the slope's length.
  auto vec = VolumeToolsInterface::ConvertFieldsToVectorVolume(ball, 0.1, box, nullptr, Volume(), nullptr);
  ASSERT_TRUE(vec.IsOk());
  EXPECT_EQ(vec->GetGridType(), GRIDTYPE::VEC3S);
  const auto v = openvdb::gridPtrCast<openvdb::Vec3SGrid>(VolumeImpl::GetGrid(*vec))->getConstAccessor();
  const openvdb::Vec3s d = v.getValue(Coord(0, 7, 0));
  EXPECT_NEAR(d.x(), 0.0f, 1e-5f);
  EXPECT_NEAR(d.y(), -2.0f, 1e-4f);

  // A voxel of no size is OpenVDB's to refuse, in its own words.
  auto flat = VolumeToolsInterface::ConvertFieldsToVolume(ball, 0.0, box, nullptr, Volume(), nullptr);
  ASSERT_FALSE(flat.IsOk());
  EXPECT_NE(flat.GetError().GetMessage().find("scale"), std::string::npos) << flat.GetError().GetMessage();
  // No field list samples as an empty one: the box, all 0.
  auto unset = VolumeToolsInterface::ConvertFieldsToVolume(FieldSampleData(), 0.1, box, nullptr, Volume(), nullptr);
  ASSERT_TRUE(unset.IsOk()) << unset.GetError().GetMessage();
  EXPECT_EQ(unset->GetActiveVoxelCount(), 22 * 22 * 22);
  EXPECT_EQ(unset->GetMinMaxValues(false).max, 0.0);
}

TEST(FieldMask, IsActiveWhereTheReferenceIs) {
  FloatGrid::Ptr ref = FloatGrid::create(5.0f);
  ref->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
  ref->tree().setValue(Coord(7, 0, 0), 2.0f);
  ref->tree().setValueOff(Coord(-7, 0, 0), 2.0f);
  ref->tree().addTile(1, Coord(-16, -16, -16), 1.0f, true);
  const Volume reference = *MakeVolume(ref);

  auto mask = VolumeToolsInterface::CreateMaskFromField(Ball({0, 0, 0}, 1.0, 0.5), reference, 0.25, nullptr);
  ASSERT_TRUE(mask.IsOk());
  EXPECT_EQ(mask->GetGridClass(), GRIDCLASS::UNKNOWN);
  EXPECT_EQ(mask->GetActiveVoxelCount(), reference.GetActiveVoxelCount());
  const FloatGrid::Ptr g = Grid(*mask);
  EXPECT_EQ(g->tree().activeTileCount(), 0u);  // the tile became voxels
  EXPECT_FLOAT_EQ(g->background(), 0.25f);
  EXPECT_NEAR(g->tree().getValue(Coord(7, 0, 0)), 0.6f, 1e-5f);
  EXPECT_NEAR(g->tree().getValue(Coord(-10, -9, -9)), 0.0f, 1e-5f);
  EXPECT_FLOAT_EQ(g->tree().getValue(Coord(-7, 0, 0)), 0.25f);
  EXPECT_FLOAT_EQ(g->tree().getValue(Coord(100, 0, 0)), 0.25f);

  auto empty = VolumeToolsInterface::CreateMaskFromField(Ball({0, 0, 0}, 1.0, 0.5),
                                                         *VolumeToolsInterface::CreateNewFloat32Volume(0.0f), 0.0,
                                                         nullptr);
  ASSERT_TRUE(empty.IsOk());
  EXPECT_EQ(empty->GetActiveVoxelCount(), 0);
  // Without a field list: nothing to sample on an empty reference, and 0 on the voxels of another.
  auto emptyUnset = VolumeToolsInterface::CreateMaskFromField(
      FieldSampleData(), *VolumeToolsInterface::CreateNewFloat32Volume(0.0f), 0.5, nullptr);
  ASSERT_TRUE(emptyUnset.IsOk()) << emptyUnset.GetError().GetMessage();
  EXPECT_EQ(emptyUnset->GetActiveVoxelCount(), 0);
  EXPECT_FLOAT_EQ(Grid(*emptyUnset)->background(), 0.5f);
  auto unset = VolumeToolsInterface::CreateMaskFromField(FieldSampleData(), reference, 0.25, nullptr);
  ASSERT_TRUE(unset.IsOk()) << unset.GetError().GetMessage();
  EXPECT_EQ(unset->GetActiveVoxelCount(), reference.GetActiveVoxelCount());
  EXPECT_FLOAT_EQ(Grid(*unset)->tree().getValue(Coord(7, 0, 0)), 0.0f);

  auto noRef = VolumeToolsInterface::CreateMaskFromField(Ball({0, 0, 0}, 1, 0.5), Volume(), 0.0, nullptr);
  ASSERT_FALSE(noRef.IsOk());
  EXPECT_EQ(noRef.GetError().GetMessage(), "volumeref not initialized");
  auto noGrid = VolumeToolsInterface::CreateMaskFromField(Ball({0, 0, 0}, 1, 0.5), *Volume::Create(), 0.0, nullptr);
  ASSERT_FALSE(noGrid.IsOk());
  EXPECT_EQ(noGrid.GetError().GetMessage(), "volume has no grid attached");

  // Sampling that is stopped fails, and the error is the result.
  auto stopped = std::make_shared<zta::ZTAThread>();
  stopped->End();
  EXPECT_FALSE(VolumeToolsInterface::CreateMaskFromField(Ball({0, 0, 0}, 1, 0.5), reference, 0.0, stopped).IsOk());
}

TEST(FieldMask, LimitsFilters) {
  const FieldSampleData half = PositiveX();
  // A level set: only the +x side grows.
  const Volume sphere = *VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0.0), 0.05, 3, nullptr, nullptr);
  SDFFilterSettings dilate;
  dilate.filterType = SDFFILTERTYPE::DILATE;
  dilate.offset = 0.1f;
  auto grown = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, dilate, nullptr, Volume(), &half);
  ASSERT_TRUE(grown.IsOk());
  EXPECT_NEAR(WorldValue(*grown, {1.1, 0, 0}), 0.0, 0.005);
  EXPECT_NEAR(WorldValue(*grown, {-1.0, 0, 0}), 0.0, 0.005);
  // The strength scales the field's values.
  dilate.strength = 0.5;
  auto halfGrown = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, dilate, nullptr, Volume(), &half);
  EXPECT_NEAR(WorldValue(*halfGrown, {1.05, 0, 0}), 0.0, 0.005);
  EXPECT_NEAR(WorldValue(*halfGrown, {-1.0, 0, 0}), 0.0, 0.005);
  // A field list without layers counts as no field.
  FieldSampleData none;
  none.fields = std::make_shared<zta::FieldList>();
  dilate.strength = 1.0;
  auto everywhere = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, dilate, nullptr, Volume(), &none);
  EXPECT_NEAR(WorldValue(*everywhere, {-1.1, 0, 0}), 0.0, 0.005);

  // Stopped, a filter whose masks sample fields hands back its input: the
  // passes end before a mask is sampled on a stopped thread.
  auto stopped = std::make_shared<zta::ZTAThread>();
  stopped->End();
  auto cancelled = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, dilate, stopped, Volume(), &half);
  ASSERT_TRUE(cancelled.IsOk()) << cancelled.GetError().GetMessage();
  EXPECT_TRUE(*cancelled == sphere);

  // A value filter, and a rotation of vectors.
  FloatGrid::Ptr fog = FloatGrid::create(0.0f);
  fog->setTransform(openvdb::math::Transform::createLinearTransform(0.5));
  fog->tree().setValue(Coord(2, 0, 0), 1.0f);
  fog->tree().setValue(Coord(-2, 0, 0), 1.0f);
  FilterSettings multiply;
  multiply.filterType = FILTERTYPE::MULTIPLY;
  multiply.strength = 3.0;
  auto tripled = VolumeToolsInterface::ApplyFilterToVolume(*MakeVolume(fog), multiply, nullptr, Volume(), &half);
  ASSERT_TRUE(tripled.IsOk());
  EXPECT_FLOAT_EQ(Grid(*tripled)->tree().getValue(Coord(2, 0, 0)), 3.0f);
  EXPECT_FLOAT_EQ(Grid(*tripled)->tree().getValue(Coord(-2, 0, 0)), 1.0f);
  FilterSettings add;
  add.filterType = FILTERTYPE::ADD;
  add.offset = 1.0f;
  add.iterations = 2;
  const Volume fogVolume = *MakeVolume(fog);
  auto added = VolumeToolsInterface::ApplyFilterToVolume(fogVolume, add, stopped, Volume(), &half);
  ASSERT_TRUE(added.IsOk()) << added.GetError().GetMessage();
  EXPECT_TRUE(*added == fogVolume);

  openvdb::Vec3SGrid::Ptr vec = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.0f));
  vec->setTransform(openvdb::math::Transform::createLinearTransform(0.5));
  vec->tree().setValue(Coord(2, 0, 0), openvdb::Vec3s(1, 0, 0));
  vec->tree().setValue(Coord(-2, 0, 0), openvdb::Vec3s(1, 0, 0));
  auto turned = VolumeToolsInterface::RotateVectorVolume(*MakeVolume(vec), Vector(0, 0, 1), M_PI, nullptr, &half);
  ASSERT_TRUE(turned.IsOk());
  const auto t = openvdb::gridPtrCast<openvdb::Vec3SGrid>(VolumeImpl::GetGrid(*turned))->getConstAccessor();
  EXPECT_NEAR(t.getValue(Coord(2, 0, 0)).x(), -1.0f, 1e-6f);
  EXPECT_NEAR(t.getValue(Coord(-2, 0, 0)).x(), 1.0f, 1e-6f);
}

}  // namespace
