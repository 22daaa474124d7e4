// The volume module as the host meets it: a shared library found, identified
// and started through its entry, registering into the host's one registry.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "host/core/moduleloader.h"
#include "host/scene/baseobject.h"
#include "host/scene/plugins.h"
#include "support/run.h"

namespace {

const std::string kModule = std::string(ZV_BIN_DIR) + "/libzelmar_volumes.so";

std::set<std::string> ExportedNames(const std::string& library) {
  auto r = zvtest::Run({"/usr/bin/nm", "-D", "--defined-only", library});
  EXPECT_EQ(r.status, 0) << r.err;
  std::set<std::string> names;
  size_t at = 0;
  while (at < r.out.size()) {
    size_t end = r.out.find('\n', at);
    if (end == std::string::npos) end = r.out.size();
    const std::string line = r.out.substr(at, end - at);
    if (const size_t space = line.rfind(' '); space != std::string::npos) names.insert(line.substr(space + 1));
    at = end + 1;
  }
  return names;
}

}  // namespace

TEST(Plugin, ExportsItsEntryAndGlobalsAndHidesItsInternals) {
  const auto names = ExportedNames(kModule);
  EXPECT_TRUE(names.count("zta_main"));
  EXPECT_TRUE(names.count("g_zelmar"));
  EXPECT_TRUE(names.count("g_CpuYieldDelegate"));
  // OpenVDB's templates and the module's helpers stay inside the library.
  for (const auto& name : names) EXPECT_EQ(name.find("openvdb"), std::string::npos) << name;
}

TEST(Plugin, LoadsOnceThroughItsEntryAndRegistersIntoTheHost) {
  ASSERT_EQ(zta::FindPlugin(1039858), nullptr);  // nothing before the load

  {
    auto loaded = zta::LoadModule(kModule);
    ASSERT_TRUE(loaded) << loaded.GetError().GetMessage();
    const auto module = loaded.GetValue();
    EXPECT_EQ(module->GetIdentifier(), "net.zelmar.zta.volumes");
    EXPECT_EQ(module->Query(), 5);

    // The module's plug-ins are in the registry this program reads: one host.
    const zta::PluginInfo* volume = zta::FindPlugin(1039858);
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->diskLevel, 1);
    auto object = zta::BaseObject::Alloc(1039858);
    ASSERT_NE(object, nullptr);
    EXPECT_NE(object->GetNodeData(), nullptr);

    // A second load hands back the started module instead of starting it again.
    auto again = zta::LoadModule(kModule);
    ASSERT_TRUE(again);
    EXPECT_EQ(again.GetValue(), module);
    EXPECT_EQ(zta::GetLoadedModules().size(), 1u);
    EXPECT_FALSE(module->SendMessage(424242));  // unknown messages are not handled
  }
  zta::UnloadModules();
  EXPECT_TRUE(zta::GetLoadedModules().empty());
}

TEST(Plugin, RefusesWhatIsNotAModule) {
  auto missing = zta::LoadModule(std::string(ZV_BIN_DIR) + "/no-such-module.so");
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.GetError().GetMessage().find("cannot load module"), std::string::npos);

  // The host library is a shared library but exports no entry.
  auto host = zta::LoadModule(std::string(ZV_BIN_DIR) + "/libzta_host.so");
  ASSERT_FALSE(host);
  EXPECT_NE(host.GetError().GetMessage().find("is not a module"), std::string::npos)
      << host.GetError().GetMessage();
}
