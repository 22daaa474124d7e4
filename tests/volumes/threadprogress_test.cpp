// Tools tell a thread that listens how far their work has come.
#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "host/fields/fieldlist.h"
#include "modules/volumes/source/helper/threadprogress.h"
#include "zelmar/volumetools.h"

namespace {

using namespace zelmar;

class RecordingThread : public zta::ZTAThread, public ThreadProgressListener {
 public:
  void OnProgress(double fraction) override {
    std::lock_guard<std::mutex> lock(mutex_);
    seen_.push_back(fraction);
  }
  std::vector<double> Take() {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(seen_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<double> seen_;
};

Volume Sphere(const zta::ThreadRef& thread = nullptr) {
  auto r = VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0.0), 0.1, 3, thread, nullptr);
  EXPECT_TRUE(r.IsOk());
  return r.GetValue();
}

TEST(ThreadProgress, ToolsReportTheirShareToAListeningThread) {
  auto thread = std::make_shared<RecordingThread>();
  const Volume sphere = Sphere();

  SDFFilterSettings gaussian;
  gaussian.filterType = SDFFILTERTYPE::GAUSSIAN;
  gaussian.iterations = 4;
  ASSERT_TRUE(VolumeToolsInterface::ApplySDFFilterToVolume(sphere, gaussian, thread, Volume(), nullptr).IsOk());
  EXPECT_EQ(thread->Take(), (std::vector<double>{0.25, 0.5, 0.75, 1.0}));

  // Opening shrinks, then grows: each half of the work is one half of the fraction.
  SDFFilterSettings open;
  open.filterType = SDFFILTERTYPE::OPEN;
  open.iterations = 2;
  open.offset = 0.05f;
  ASSERT_TRUE(VolumeToolsInterface::ApplySDFFilterToVolume(sphere, open, thread, Volume(), nullptr).IsOk());
  EXPECT_EQ(thread->Take(), (std::vector<double>{0.25, 0.5, 0.75, 1.0}));

  auto fields = std::make_shared<zta::FieldList>();
  fields->InsertLayer(std::make_unique<zta::SphericalFieldLayer>(1.0, 0.5));
  FieldSampleData data;
  data.fields = fields;
  ASSERT_TRUE(VolumeToolsInterface::ConvertFieldsToVolume(data, 0.1, {{-1, -1, -1}, {1, 1, 1}}, thread, Volume(), nullptr)
                  .IsOk());
  EXPECT_EQ(thread->Take(), (std::vector<double>{0.1, 0.9}));

  // OpenVDB's own percentages of a mesh conversion come through, in order.
  std::vector<Vector> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
  std::vector<VolumeConversionPolygon> quads = {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1},
                                                {2, 6, 7, 3}, {1, 5, 6, 2}, {0, 3, 7, 4}};
  ASSERT_TRUE(VolumeToolsInterface::MeshToVolume(points, quads, Matrix(), 0.1, 3, 3, thread,
                                                 POLYGONCONVERSIONFLAGS::NONE, nullptr)
                  .IsOk());
  const std::vector<double> mesh = thread->Take();
  ASSERT_GE(mesh.size(), 3u);
  EXPECT_TRUE(std::is_sorted(mesh.begin(), mesh.end()));
  EXPECT_GT(mesh.front(), 0.0);
  EXPECT_LE(mesh.back(), 1.0);
  EXPECT_GE(mesh.back(), 0.9);
}

TEST(ThreadProgress, ThreadsThatDoNotListenGetTheSameResults) {
  SDFFilterSettings gaussian;
  gaussian.filterType = SDFFILTERTYPE::GAUSSIAN;
  gaussian.iterations = 2;
  const Volume sphere = Sphere();
  auto listening = std::make_shared<RecordingThread>();
  auto plain = std::make_shared<zta::ZTAThread>();
  auto a = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, gaussian, listening, Volume(), nullptr);
  auto b = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, gaussian, plain, Volume(), nullptr);
  auto c = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, gaussian, nullptr, Volume(), nullptr);
  ASSERT_TRUE(a.IsOk() && b.IsOk() && c.IsOk());
  EXPECT_EQ(a.GetValue().GetActiveVoxelCount(), b.GetValue().GetActiveVoxelCount());
  EXPECT_EQ(a.GetValue().GetActiveVoxelCount(), c.GetValue().GetActiveVoxelCount());
  EXPECT_EQ(listening->Take().size(), 2u);
  // A stopped filter hands back its input and reports no further pass.
  listening->End();
  auto stopped = VolumeToolsInterface::ApplySDFFilterToVolume(sphere, gaussian, listening, Volume(), nullptr);
  ASSERT_TRUE(stopped.IsOk());
  EXPECT_TRUE(listening->Take().empty());
}

}  // namespace
