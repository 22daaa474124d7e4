// Module start and stop, driven through the host entry as the host drives it.
#include <gtest/gtest.h>
#include <openvdb/openvdb.h>
#include <openvdb/points/PointDataGrid.h>

#include <cstdlib>

#include "host/core/diagnostics.h"
#include "host/core/registry.h"
#include "modules/volumes/source/main.h"
#include "support/run.h"

using namespace zelmar;

namespace {

int32_t Load(int32_t version, const char* folder) { return zta_main(zta::MODULE_LOAD, &version, nullptr, const_cast<char*>(folder)); }
int32_t Message(int32_t id, void* data = nullptr) {
  return zta_main(zta::MODULE_MESSAGE, reinterpret_cast<void*>(intptr_t(id)), data, nullptr);
}
int32_t End() { return zta_main(zta::MODULE_END, nullptr, nullptr, nullptr); }

}  // namespace

TEST(ModuleEntry, LoadCountsAndOnlyTheLastEndReleases) {
  ASSERT_EQ(GetLoadCount(), 0);
  EXPECT_EQ(Load(21000, ZV_BIN_DIR), -3);  // host too old
  EXPECT_EQ(Load(kMinimumHostVersion, nullptr), -3);  // no file context
  EXPECT_EQ(GetLoadCount(), 0);

  EXPECT_EQ(Load(kMinimumHostVersion, ZV_BIN_DIR), 1);
  EXPECT_EQ(Load(kMinimumHostVersion, "/elsewhere"), 1);  // a second load changes nothing
  EXPECT_EQ(GetLoadCount(), 2);
  EXPECT_EQ(GetModuleFolder(), ZV_BIN_DIR);
  EXPECT_EQ(zta_main(zta::MODULE_QUERY, nullptr, nullptr, nullptr), 5);
  EXPECT_EQ(zta_main(99, nullptr, nullptr, nullptr), -1);

  EXPECT_EQ(End(), 1);
  EXPECT_EQ(GetModuleFolder(), ZV_BIN_DIR);
  EXPECT_EQ(End(), 1);
  EXPECT_EQ(GetModuleFolder(), "");
  EXPECT_EQ(GetLoadCount(), 0);
}

TEST(ModuleEntry, StartNeedsTheResourceAndLogsFailedRegistrations) {
  const std::string empty = zvtest::TempDir();
  ASSERT_EQ(Load(kMinimumHostVersion, empty.c_str()), 1);
  EXPECT_EQ(zta_main(zta::MODULE_START, nullptr, nullptr, nullptr), 0);  // no res/strings.txt
  End();

  ASSERT_EQ(Load(kMinimumHostVersion, ZV_BIN_DIR), 1);
  std::vector<std::string> log;
  auto old = zta::SetDiagnosticSink([&](const std::string& l) { log.push_back(l); });
  EXPECT_EQ(zta_main(zta::MODULE_START, nullptr, nullptr, nullptr), 1);
  zta::SetDiagnosticSink(old);
  EXPECT_TRUE(GetModuleResource().IsLoaded());
  EXPECT_EQ(GetModuleResource().Get(10006), "Volume Builder");
  EXPECT_TRUE(log.empty());  // every registration of the table succeeded

  int32_t field = 42;
  EXPECT_EQ(Message(zta::MSG_RELOAD_RESOURCES, &field), 1);
  EXPECT_EQ(field, 0);
  EXPECT_EQ(Message(4242), -1);
  End();
}

TEST(ModuleEntry, RegistrationsRunInOrderPastFailuresAndRespectTheGate) {
  static std::vector<std::string> ran;
  ran.clear();
  const std::vector<RegistrationRow> rows = {
      {"Volume-", false, [] { ran.push_back("Volume"); return true; }},
      {"VolumeTag-", true, [] { ran.push_back("VolumeTag"); return false; }},
      {"Filter-", false, [] { ran.push_back("Filter"); return false; }},
      {"ObjVol-", false, [] { ran.push_back("ObjVol"); return true; }},
      {"VolSeq-", false, [] { ran.push_back("VolSeq"); return false; }},
  };
  EXPECT_EQ(RunRegistrations(rows, true), "VolumeTag-Filter-VolSeq-");
  EXPECT_EQ(ran, (std::vector<std::string>{"Volume", "VolumeTag", "Filter", "ObjVol", "VolSeq"}));
  ran.clear();
  EXPECT_EQ(RunRegistrations(rows, false), "Filter-VolSeq-");  // gated rows skipped silently
  EXPECT_EQ(ran, (std::vector<std::string>{"Volume", "Filter", "ObjVol", "VolSeq"}));
}

TEST(ModuleEntry, RenderingSwitchIsReadFromEnvironment) {
  unsetenv("g_rprEnableVolumeRendering");
  EXPECT_TRUE(g_rprEnableVolumeRendering.Read());
  setenv("g_rprEnableVolumeRendering", "false", 1);
  EXPECT_FALSE(g_rprEnableVolumeRendering.Read());
  unsetenv("g_rprEnableVolumeRendering");
  EXPECT_STREQ(g_rprEnableVolumeRendering.GetHelp(), "Activate Volume Rendering components in RPR");
}

TEST(ModuleEntry, OpenVdbComesUpOnlyAtSystemReadyAndGoesAtSystemEnd) {
  ASSERT_EQ(Load(kMinimumHostVersion, ZV_BIN_DIR), 1);
  ASSERT_EQ(zta_main(zta::MODULE_START, nullptr, nullptr, nullptr), 1);
  EXPECT_FALSE(IsOpenVDBReady());
  EXPECT_FALSE(openvdb::FloatGrid::isRegistered());

  EXPECT_EQ(Message(zta::MSG_SYSTEM_END), 1);  // without system-ready: nothing to undo
  EXPECT_FALSE(IsOpenVDBReady());

  EXPECT_EQ(Message(zta::MSG_SYSTEM_READY), 1);
  EXPECT_TRUE(IsOpenVDBReady());
  EXPECT_TRUE(openvdb::BoolGrid::isRegistered());
  EXPECT_TRUE(openvdb::MaskGrid::isRegistered());
  EXPECT_TRUE(openvdb::FloatGrid::isRegistered());
  EXPECT_TRUE(openvdb::Vec3DGrid::isRegistered());
  EXPECT_TRUE(openvdb::points::PointDataGrid::isRegistered());

  EXPECT_EQ(Message(zta::MSG_SYSTEM_END), 1);
  EXPECT_FALSE(IsOpenVDBReady());
  EXPECT_FALSE(openvdb::FloatGrid::isRegistered());
  End();
}

TEST(ModuleEntry, VersionRecordsAnnounceTheLibraries) {
  const auto entries = zta::ModuleVersionInfos().GetEntries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].first, "net.zelmar.moduleinfo.openvdb");
  EXPECT_EQ(entries[1].first, "net.zelmar.moduleinfo.cblosc");
  EXPECT_EQ(entries[2].first, "net.zelmar.moduleinfo.tbb");
  const auto& vdb = entries[0].second;
  EXPECT_EQ(vdb.Get("net.zelmar.moduleversioninfo.modulename").Get<std::string>(), "openvdb");
  EXPECT_EQ(vdb.Get("net.zelmar.moduleversioninfo.description").Get<std::string>(), "OpenVDB");
  EXPECT_EQ(vdb.Get("net.zelmar.moduleversioninfo.versionnumberstring").Get<std::string>(),
            openvdb::getLibraryVersionString());
  const std::string tbb = entries[2].second.Get("net.zelmar.moduleversioninfo.versionnumberstring").Get<std::string>();
  EXPECT_EQ(std::count(tbb.begin(), tbb.end(), '.'), 1);
}
