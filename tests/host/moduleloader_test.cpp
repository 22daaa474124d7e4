// A module linked into the program, brought up and ended through the loader
// as a shared library would be. The fake modules log what their entry hears.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/core/moduleloader.h"

namespace {

std::vector<std::string> g_heard;
int32_t g_startAnswer = 1;
std::string g_folder;
const std::string kLoad = "a:1:" + std::to_string(zta::HOST_INTERFACE_VERSION);

int32_t FakeEntry(const char* who, int32_t action, void* first, void* second, void* third) {
  std::string line = std::string(who) + ":" + std::to_string(action);
  if (action == zta::MODULE_LOAD) {
    g_folder = static_cast<const char*>(third);
    line += ":" + std::to_string(*static_cast<const int32_t*>(first));
  }
  if (action == zta::MODULE_MESSAGE) line += ":" + std::to_string(int32_t(reinterpret_cast<intptr_t>(first)));
  g_heard.push_back(line);
  if (action == zta::MODULE_START) return g_startAnswer;
  if (action == zta::MODULE_QUERY) return 7;
  if (action == zta::MODULE_MESSAGE) return int32_t(reinterpret_cast<intptr_t>(first)) < 2000 ? 1 : -1;
  return 1;
}
int32_t EntryA(int32_t action, void* first, void* second, void* third) {
  return FakeEntry("a", action, first, second, third);
}
int32_t EntryB(int32_t action, void* first, void* second, void* third) {
  return FakeEntry("b", action, first, second, third);
}

zta::CpuYieldDelegate g_yieldA = nullptr;
zta::CpuYieldDelegate g_yieldB = nullptr;

}  // namespace

TEST(ModuleLoader, LinkedModulesStartAndEndAsLoadedOnesDo) {
  g_heard.clear();
  const zta::ModuleRecord recordA{"net.example.a", zta::HOST_INTERFACE_VERSION};
  const zta::ModuleRecord recordB{"net.example.b", zta::HOST_INTERFACE_VERSION - 1};
  {
    auto a = zta::StartLinkedModule(&EntryA, &recordA, &g_yieldA, "/modules/a");
    ASSERT_TRUE(a) << a.GetError().GetMessage();
    // Load with the host's interface and the folder, start, then system-ready.
    EXPECT_EQ(g_heard, (std::vector<std::string>{kLoad, "a:2", "a:6:1000"}));
    EXPECT_EQ(g_folder, "/modules/a");
    EXPECT_EQ(g_yieldA, &zta::CpuYield);
    EXPECT_EQ(a.GetValue()->GetIdentifier(), "net.example.a");
    EXPECT_EQ(a.GetValue()->GetPath(), "");
    EXPECT_EQ(a.GetValue()->Query(), 7);
    EXPECT_TRUE(a.GetValue()->SendMessage(1));
    EXPECT_FALSE(a.GetValue()->SendMessage(4242));

    // A second start hands back the started module and runs nothing.
    g_heard.clear();
    auto again = zta::StartLinkedModule(&EntryA, &recordA, &g_yieldA, "/elsewhere");
    ASSERT_TRUE(again);
    EXPECT_EQ(again.GetValue(), a.GetValue());
    EXPECT_TRUE(g_heard.empty());

    ASSERT_TRUE(zta::StartLinkedModule(&EntryB, &recordB, &g_yieldB, "/modules/b"));
    EXPECT_EQ(zta::GetLoadedModules().size(), 2u);
  }

  // The end: system-end and end, the last started first.
  g_heard.clear();
  zta::UnloadModules();
  EXPECT_EQ(g_heard, (std::vector<std::string>{"b:6:1001", "b:3", "a:6:1001", "a:3"}));
  EXPECT_TRUE(zta::GetLoadedModules().empty());

  // Ended, it starts afresh.
  g_heard.clear();
  ASSERT_TRUE(zta::StartLinkedModule(&EntryA, &recordA, &g_yieldA, "/modules/a"));
  EXPECT_EQ(g_heard.size(), 3u);
  zta::UnloadModules();
}

TEST(ModuleLoader, LinkedModulesThatCannotStartLeaveNothingStarted) {
  g_heard.clear();
  zta::CpuYieldDelegate yield = nullptr;
  const zta::ModuleRecord good{"net.example.a", zta::HOST_INTERFACE_VERSION};
  EXPECT_FALSE(zta::StartLinkedModule(nullptr, &good, &yield, "/m"));
  EXPECT_FALSE(zta::StartLinkedModule(&EntryA, nullptr, &yield, "/m"));
  EXPECT_FALSE(zta::StartLinkedModule(&EntryA, &good, nullptr, "/m"));

  // The record is read before any of the module's code runs.
  const zta::ModuleRecord newer{"net.example.a", zta::HOST_INTERFACE_VERSION + 1};
  auto tooNew = zta::StartLinkedModule(&EntryA, &newer, &yield, "/m");
  ASSERT_FALSE(tooNew);
  EXPECT_NE(tooNew.GetError().GetMessage().find("needs a newer host"), std::string::npos);
  const zta::ModuleRecord anonymous{nullptr, zta::HOST_INTERFACE_VERSION};
  EXPECT_FALSE(zta::StartLinkedModule(&EntryA, &anonymous, &yield, "/m"));
  EXPECT_TRUE(g_heard.empty());
  EXPECT_EQ(yield, nullptr);

  // A refused start is ended at once and names the folder of the resources.
  g_startAnswer = 0;
  auto refused = zta::StartLinkedModule(&EntryA, &good, &yield, "/m");
  g_startAnswer = 1;
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.GetError().GetMessage(),
            "module net.example.a did not start: its resources are missing from /m/res");
  EXPECT_EQ(g_heard, (std::vector<std::string>{kLoad, "a:2", "a:3"}));
  EXPECT_TRUE(zta::GetLoadedModules().empty());
  g_heard.clear();
  zta::UnloadModules();
  EXPECT_TRUE(g_heard.empty());
}
