// The volume object's display: what it takes from a grid, and what a view
// shows of it, drawn offscreen and read back.
#include <gtest/gtest.h>

#include <openvdb/openvdb.h>

#include <array>
#include <cmath>
#include <set>
#include <memory>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/ui/basedraw.h"
#include "host/ui/glcontext.h"
#include "modules/volumes/source/objects/volumedraw.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Vector;
using zta::Vector32;

namespace {

Volume Sphere(double radius, double voxel) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

Volume FogOf(const std::vector<std::pair<openvdb::Coord, float>>& voxels) {
  auto grid = openvdb::FloatGrid::create(0.0f);
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  for (const auto& [c, v] : voxels) grid->tree().setValue(c, v);
  return *MakeVolume(grid);
}

// A view of 160x160 pixels on its own offscreen context, looking at the
// origin from the front.
class DrawTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto ctx = zta::OffscreenContext::Create(160, 160);
    ASSERT_TRUE(ctx) << ctx.GetError().GetMessage();
    context_ = std::move(ctx.GetValue());
    bd_ = std::make_unique<zta::BaseDraw>(160, 160);
    bd_->SetView({0, 0, -5}, {0, 0, 0}, {0, 1, 0}, 0.6, 1.0, 20.0, true);
    doc_ = zta::BaseDocument::Alloc();
  }
  void TearDown() override {
    doc_.reset();
    bd_.reset();
    context_.reset();
  }

  zta::BaseObject* Insert(const Volume& volume) {
    zta::BaseObject* op = VolumeObjectData::MakeObject(volume).release();
    doc_->InsertObject(op);
    return op;
  }

  // Draws the object alone and returns the picture.
  std::vector<uint8_t> Draw(zta::BaseObject* op) {
    bd_->Clear();
    zta::BaseDrawHelp bh(bd_.get(), doc_.get());
    bh.SetMg(op->GetMg());
    EXPECT_EQ(op->GetNodeData<VolumeObjectData>()->DrawObject(op, zta::DRAWPASS::OBJECT, bd_.get(), &bh),
              zta::DRAWRESULT::OK);
    return bd_->ReadPixels();
  }

  // Pixels that are neither the background nor the box's colours.
  static int VoxelPixels(const std::vector<uint8_t>& rgba) {
    int n = 0;
    for (size_t i = 0; i < rgba.size(); i += 4) {
      const int r = rgba[i], g = rgba[i + 1], b = rgba[i + 2];
      const bool background = std::abs(r - 56) <= 2 && std::abs(g - 61) <= 2 && std::abs(b - 71) <= 2;
      const bool box = (r > 200 && g < 100 && b < 60) || (g > 200 && r < 60 && b < 60);
      n += !background && !box;
    }
    return n;
  }

  std::unique_ptr<zta::OffscreenContext> context_;
  std::unique_ptr<zta::BaseDraw> bd_;
  std::unique_ptr<zta::BaseDocument> doc_;
};

}  // namespace

TEST(VolumeDisplayPoints, LevelSetGivesItsSurfaceVoxelsWithOutwardGradients) {
  const Volume ball = Sphere(1.0, 0.1);
  std::vector<Vector32> points, colors, normals;
  colors.push_back({1, 2, 3});  // cleared first
  CollectDisplayPoints(ball, points, colors, normals);
  ASSERT_GT(points.size(), 500u);
  EXPECT_TRUE(colors.empty());
  ASSERT_EQ(normals.size(), points.size());
  auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(ball));
  auto acc = grid->getConstAccessor();
  for (size_t i = 0; i < points.size(); ++i) {
    const openvdb::Coord c(int(points[i].x), int(points[i].y), int(points[i].z));
    const float v = acc.getValue(c);
    EXPECT_LE(std::abs(v), 1.02f * 0.05f + 1e-6f);
    EXPECT_GT(std::abs(v), 1e-5f);
    // Points are index positions; the gradient leads away from the centre.
    const double outward = points[i].x * normals[i].x + points[i].y * normals[i].y + points[i].z * normals[i].z;
    EXPECT_GT(outward, 0.0);
    // Central differences, whether the neighbours lie in the voxel's leaf or in the next.
    EXPECT_FLOAT_EQ(normals[i].x, 0.5f * (acc.getValue(c.offsetBy(1, 0, 0)) - acc.getValue(c.offsetBy(-1, 0, 0))));
    EXPECT_FLOAT_EQ(normals[i].y, 0.5f * (acc.getValue(c.offsetBy(0, 1, 0)) - acc.getValue(c.offsetBy(0, -1, 0))));
    EXPECT_FLOAT_EQ(normals[i].z, 0.5f * (acc.getValue(c.offsetBy(0, 0, 1)) - acc.getValue(c.offsetBy(0, 0, -1))));
  }
  // Every band voxel of the grid is there: no more than the cap.
  size_t band = 0;
  for (auto it = grid->cbeginValueOn(); it; ++it) band += std::abs(*it) <= 0.051f && std::abs(*it) > 1e-5f;
  EXPECT_EQ(points.size(), band);
}

TEST(VolumeDisplayPoints, FogSkipsNearZeroMapsByRangeAndKeepsToTheCap) {
  std::vector<Vector32> points, colors, normals;
  CollectDisplayPoints(FogOf({{{0, 0, 0}, 0.0f}, {{1, 0, 0}, 1e-6f}, {{2, 0, 0}, 0.5f}, {{3, 0, 0}, 1.0f}}), points,
                       colors, normals);
  ASSERT_EQ(points.size(), 2u);
  EXPECT_EQ(points[0].x, 2.0f);
  // The range runs over the active values, zeros included: 0 to 1.
  EXPECT_NEAR(colors[0].x, 0.5f, 1e-6f);
  EXPECT_NEAR(colors[1].y, 1.0f, 1e-6f);
  EXPECT_TRUE(normals.empty());

  // 1.2 million voxels (a tile among them): every third is shown.
  auto grid = openvdb::FloatGrid::create(0.0f);
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  grid->tree().sparseFill(openvdb::CoordBBox({0, 0, 0}, {99, 99, 119}), 0.7f, true);
  const Volume big = *MakeVolume(grid);
  ASSERT_EQ(big.GetActiveVoxelCount(), 1200000);
  CollectDisplayPoints(big, points, colors, normals);
  EXPECT_EQ(points.size(), 400000u);
  EXPECT_LE(zta::Int64(points.size()), kMaxDisplayPoints);

  CollectDisplayPoints(Volume(), points, colors, normals);
  EXPECT_TRUE(points.empty());
}

TEST(VolumeDisplayPoints, VectorsGiveTheirIndexLengthAndTheColourOfTheirDirection) {
  auto grid = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.0f));
  grid->setTransform(openvdb::math::Transform::createLinearTransform(0.5));
  grid->tree().setValue({1, 1, 1}, openvdb::Vec3s(1, 0, 0));
  grid->tree().setValue({2, 1, 1}, openvdb::Vec3s(0, 0, 0));
  grid->tree().setValue({3, 1, 1}, openvdb::Vec3s(0, -2, 0));
  std::vector<Vector32> points, colors, normals;
  CollectDisplayPoints(*MakeVolume(grid), points, colors, normals);
  ASSERT_EQ(points.size(), 2u);
  EXPECT_NEAR(colors[0].x, 1.0f, 1e-6f);
  EXPECT_NEAR(colors[0].y, 0.5f, 1e-6f);
  EXPECT_NEAR(colors[1].y, 0.0f, 1e-6f);
  // One world unit is two voxels.
  EXPECT_NEAR(normals[0].x, 2.0f, 1e-5f);
  EXPECT_NEAR(normals[1].y, -4.0f, 1e-5f);
}

TEST_F(DrawTest, EmptyGridDrawsItsBoxAlone) {
  auto empty = openvdb::FloatGrid::create(0.3f);
  empty->setGridClass(openvdb::GRID_LEVEL_SET);
  empty->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
  zta::BaseObject* op = Insert(*MakeVolume(empty));
  EXPECT_EQ(VoxelPixels(Draw(op)), 0);
  // The same view shows a sphere's voxels: the count above can see them.
  zta::BaseObject* ball = Insert(Sphere(1.0, 0.1));
  EXPECT_GT(VoxelPixels(Draw(ball)), 2000);
  // Passes other than the object and X-ray ones are not the display's.
  zta::BaseDrawHelp bh(bd_.get(), doc_.get());
  EXPECT_EQ(ball->GetNodeData<VolumeObjectData>()->DrawObject(ball, zta::DRAWPASS::HANDLES, bd_.get(), &bh),
            zta::DRAWRESULT::SKIP);
  EXPECT_EQ(ball->GetNodeData<VolumeObjectData>()->DrawObject(ball, zta::DRAWPASS::OBJECT, nullptr, &bh),
            zta::DRAWRESULT::ERROR_);
}

TEST_F(DrawTest, ColourSettingsRebuildFogButNotSurface) {
  // Voxels changed behind the object's back show only when the display
  // reads the grid again.
  std::vector<std::pair<openvdb::Coord, float>> cloud;
  for (int x = -8; x <= 8; ++x)
    for (int y = -8; y <= 8; ++y)
      for (int z = -8; z <= 8; ++z) cloud.push_back({{x, y, z}, 1.0f});
  const Volume fog = FogOf(cloud);
  VolumeImpl::GetGrid(fog)->setTransform(openvdb::math::Transform::createLinearTransform(0.05));
  zta::BaseObject* fogObject = Insert(fog);
  const int fogBefore = VoxelPixels(Draw(fogObject));
  ASSERT_GT(fogBefore, 100);
  auto fogGrid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(fog));
  fogGrid->tree().sparseFill(openvdb::CoordBBox({-20, -20, -8}, {20, 20, 8}), 1.0f, true);
  EXPECT_EQ(VoxelPixels(Draw(fogObject)), fogBefore) << "nothing changed for the display";
  doc_->GetDataInstance()->SetBool(DOCUMENT_DISPLAY_COLORS, false);
  EXPECT_GT(VoxelPixels(Draw(fogObject)), fogBefore * 2) << "the fog was read again";
  { auto removed = fogObject->Remove(); }

  const Volume ball = Sphere(0.5, 0.05);
  zta::BaseObject* ballObject = Insert(ball);
  const int ballBefore = VoxelPixels(Draw(ballObject));
  ASSERT_GT(ballBefore, 1000);
  auto ballGrid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(ball));
  ballGrid->tree().sparseFill(openvdb::CoordBBox({-20, -20, -2}, {20, 20, 2}), 0.01f, true);
  doc_->GetDataInstance()->SetBool(DOCUMENT_DISPLAY_COLORS, true);
  doc_->GetDataInstance()->SetInt32(DOCUMENT_DISPLAY_COLORSPACE, 3);
  EXPECT_EQ(VoxelPixels(Draw(ballObject)), ballBefore) << "a surface keeps its buffers";
  // A new volume marks the display dirty: the changed voxels show.
  ballObject->GetNodeData<VolumeObjectData>()->SetVolume(ballObject, ball);
  EXPECT_GT(VoxelPixels(Draw(ballObject)), ballBefore);
}

TEST_F(DrawTest, LevelSetBuffersLeaveOutInsideVoxelsHiddenByTheirOutwardNeighbours) {
  const Volume ball = Sphere(1.0, 0.05);
  std::vector<Vector32> points, colors, normals;
  CollectDisplayPoints(ball, points, colors, normals);
  VolumeObjectDisplay display;
  display.gridType = ball.GetGridType();
  display.gridClass = ball.GetGridClass();
  zta::BaseObject* op = Insert(ball);
  zta::BaseDrawHelp bh(bd_.get(), doc_.get());
  bh.SetMg(op->GetMg());
  ASSERT_TRUE(DrawVolume(display, ball, op->GetMg(), op, bd_.get(), &bh, Vector(0.8), true));
  ASSERT_EQ(display.voxelData.size(), size_t(display.pointCount) * 6);
  EXPECT_LT(display.pointCount, zta::Int64(points.size()));
  EXPECT_GT(display.pointCount, zta::Int64(points.size()) / 2);
  auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(ball));
  auto acc = grid->getConstAccessor();
  const float band = 1.02f * 0.025f;
  auto inShell = [&](const openvdb::Coord& c) {
    const float v = std::abs(acc.getValue(c));
    return v <= band && v > 1e-5f;
  };
  std::set<std::array<int, 3>> shown;
  for (size_t i = 0; i < display.voxelData.size(); i += 6) {
    const openvdb::Coord c(int(display.voxelData[i]), int(display.voxelData[i + 1]), int(display.voxelData[i + 2]));
    shown.insert({c.x(), c.y(), c.z()});
    ASSERT_TRUE(inShell(c));
    if (acc.getValue(c) >= 0.0f) continue;
    // An inside voxel stays only when nothing on the surface lies outward of it.
    const double g[3] = {display.voxelData[i + 3], display.voxelData[i + 4], display.voxelData[i + 5]};
    const int axis = std::abs(g[0]) >= std::abs(g[1]) && std::abs(g[0]) >= std::abs(g[2])
                         ? 0
                         : (std::abs(g[1]) >= std::abs(g[2]) ? 1 : 2);
    openvdb::Coord out = c;
    out[axis] += g[axis] >= 0.0 ? 1 : -1;
    EXPECT_FALSE(inShell(out)) << c;
  }
  // Every outside voxel of the surface is in the buffers.
  for (const Vector32& p : points) {
    const openvdb::Coord c(int(p.x), int(p.y), int(p.z));
    if (acc.getValue(c) > 0.0f) {
      EXPECT_TRUE(shown.count({c.x(), c.y(), c.z()})) << c;
    }
  }
}
