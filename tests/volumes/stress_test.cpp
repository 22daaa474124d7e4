// Eight threads run different tools at once on volumes that share one grid
// (clones share the tree until a write makes it unique), each reading through
// accessors of its own and one writing to its own clone. Each tool must give
// on every round the result it gives alone, and the shared grid must stay as
// it was. Bounded by rounds and by a short time, so the suite hardly grows;
// the thread sanitizer build runs it for data races.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/objects/polygonobject.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using Tools = VolumeToolsInterface;
using zta::IntVector32;
using zta::Vector;

namespace {

// What a caller can see of a result: its kind, its size and its values at a few voxels.
std::string Fingerprint(const Volume& v) {
  if (!v.HasGrid()) return "no grid";
  std::string s = std::string(GridTypeName(v.GetGridType())) + " " + std::to_string(v.GetActiveVoxelCount());
  if (v.GetGridType() == GRIDTYPE::FLOAT) {
    auto acc = *GridAccessorCreationImpl::Create<float>();
    if (!acc->Init(v, VOLUMESAMPLER::NEAREST)) return "no accessor";
    for (int i = -24; i <= 24; i += 3) s += " " + std::to_string(acc->GetValueIntVector32(IntVector32(i, i / 2, -i / 3)));
  }
  return s;
}

std::string Fingerprint(const zta::Result<Volume>& r) {
  return r ? Fingerprint(r.GetValue()) : "error: " + r.GetError().GetMessage();
}

}  // namespace

TEST(Stress, ToolsOnSharedGridsFromEightThreads) {
  const Volume sphere = *Tools::CreateSphereVolume(2.0, Vector(0.0), 0.1, 3, nullptr, nullptr);
  const Volume other = *Tools::CreateSphereVolume(1.5, Vector(1.0, 0.5, 0.0), 0.1, 3, nullptr, nullptr);
  const Volume otherFog = *Tools::ConvertSDFToFog(other, 0.3);
  const std::string sphereBefore = Fingerprint(sphere);

  SDFFilterSettings gaussian;
  gaussian.filterType = SDFFILTERTYPE::GAUSSIAN;
  FilterSettings mean;
  mean.filterType = FILTERTYPE::MEANVALUE;
  const zta::Matrix coarser = zta::MatrixScale(Vector(0.15));

  // Each job works on a clone of the shared sphere and says what it made.
  const std::vector<std::function<std::string(const Volume&)>> jobs = {
      [&](const Volume& v) { return Fingerprint(Tools::ApplySDFFilterToVolume(v, gaussian, nullptr, Volume(), nullptr)); },
      [&](const Volume& v) { return Fingerprint(Tools::BoolVolumes(v, other, BOOLTYPE::UNION)); },
      [&](const Volume& v) {
        auto fog = Tools::ConvertSDFToFog(v, 0.3);
        if (!fog) return Fingerprint(fog);
        return Fingerprint(Tools::MixVolumes(fog.GetValue(), otherFog, MIXTYPE::MAXIMUM));
      },
      [&](const Volume& v) {
        return Fingerprint(Tools::ResampleVolume(v, coarser, RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr));
      },
      [&](const Volume& v) {
        auto mesh = Tools::VolumeToMesh(v, 0.0, 0.0);
        return mesh && *mesh ? std::to_string((*mesh)->GetPolygonCount()) : std::string("no mesh");
      },
      [&](const Volume& v) {
        auto fog = Tools::ConvertSDFToFog(v, 0.3);
        if (!fog) return Fingerprint(fog);
        return Fingerprint(Tools::ApplyFilterToVolume(fog.GetValue(), mean, nullptr, Volume(), nullptr));
      },
      [&](const Volume& v) { return Fingerprint(Tools::CreateGradientVolume(v, nullptr)); },
      // A writer: its clone becomes unique, and the others never see its writes.
      [&](const Volume& v) {
        Volume mine = *v.Clone();
        auto acc = *GridAccessorCreationImpl::Create<float>();
        if (!acc->InitWithWriteAccess(mine, VOLUMESAMPLER::NEAREST)) return std::string("no write access");
        for (int i = -24; i <= 24; ++i)
          if (!acc->SetValue(IntVector32(i, i / 2, -i / 3), float(i))) return std::string("write failed");
        return Fingerprint(mine);
      },
  };

  // Alone first: what each job gives.
  std::vector<std::string> expected;
  for (const auto& job : jobs) expected.push_back(job(*sphere.Clone()));
  for (const std::string& e : expected) ASSERT_TRUE(e.rfind("error", 0) != 0 && e.rfind("no ", 0) != 0) << e;

  std::atomic<bool> go{false};
  std::vector<std::vector<std::string>> seen(jobs.size());
  std::vector<std::thread> threads;
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
  for (size_t t = 0; t < jobs.size(); ++t) {
    threads.emplace_back([&, t] {
      while (!go) std::this_thread::yield();
      // Readers of the shared grid beside each tool, one accessor per thread.
      auto reader = *GridAccessorCreationImpl::Create<float>();
      for (int round = 0; round < 20 && (round < 2 || std::chrono::steady_clock::now() < until); ++round) {
        const Volume clone = *sphere.Clone();
        seen[t].push_back(jobs[t](clone));
        seen[t].push_back(reader->Init(clone, VOLUMESAMPLER::LINEAR) ? Fingerprint(clone) : "no reader");
      }
    });
  }
  go = true;
  for (auto& th : threads) th.join();

  for (size_t t = 0; t < jobs.size(); ++t) {
    ASSERT_GE(seen[t].size(), 4u) << "job " << t;
    for (size_t i = 0; i < seen[t].size(); i += 2) {
      EXPECT_EQ(seen[t][i], expected[t]) << "job " << t << ", round " << i / 2;
      EXPECT_EQ(seen[t][i + 1], sphereBefore) << "job " << t << ", round " << i / 2;
    }
  }
  EXPECT_EQ(Fingerprint(sphere), sphereBefore);
  EXPECT_NE(expected.back(), sphereBefore);  // the writer did write
}
