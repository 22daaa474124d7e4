#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "host/core/diagnostics.h"
#include "host/ui/dialogs.h"
#include "host/ui/mainthreadqueue.h"
#include "host/ui/parallel.h"
#include "host/ui/statusbar.h"
#include "host/ui/strings.h"
#include "support/run.h"

using namespace zta;

TEST(Services, StatusBar) {
  StatusClear();
  const UInt64 c0 = GetStatusState().changes;
  StatusSetText("Meshing");
  StatusSetBar(140);
  StatusState s = GetStatusState();
  EXPECT_EQ(s.text, "Meshing");
  EXPECT_EQ(s.bar, STATUSBAR::PERCENT);
  EXPECT_EQ(s.percent, 100);
  EXPECT_EQ(s.changes, c0 + 2);
  StatusSetBar(-3);
  EXPECT_EQ(GetStatusState().percent, 0);
  StatusSetSpin();
  EXPECT_EQ(GetStatusState().bar, STATUSBAR::SPIN);
  StatusClear();
  s = GetStatusState();
  EXPECT_EQ(s.text, "");
  EXPECT_EQ(s.bar, STATUSBAR::OFF);
}

TEST(Services, MainThreadQueueRunsJobsOnlyOnTheMainThread) {
  MainThreadQueue& q = MainThreadQueue::Get();
  q.SetMainThread(std::this_thread::get_id());
  q.Drain();
  std::vector<int> order;
  std::thread::id ranOn;
  // Jobs posted from workers wait; a worker's drain runs nothing.
  std::thread worker([&] {
    for (int i = 0; i < 3; ++i) q.Post([&order, i] { order.push_back(i); });
    q.Post([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(q.Drain(), 0);
    EXPECT_FALSE(q.IsMainThread());
    ExecuteOnMainThread([&] { order.push_back(10); });
  });
  worker.join();
  EXPECT_EQ(q.GetPendingCount(), 5);
  EXPECT_TRUE(order.empty());
  // Jobs posted by jobs run in the same drain; a throwing job does not stop the rest.
  q.Post([&] { q.Post([&] { order.push_back(20); }); });
  q.Post([] { throw std::runtime_error("job failed"); });
  std::vector<std::string> lines;
  auto old = SetDiagnosticSink([&](const std::string& l) { lines.push_back(l); });
  EXPECT_EQ(q.Drain(), 8);
  SetDiagnosticSink(old);
  EXPECT_EQ(lines, (std::vector<std::string>{"main-thread job failed: job failed"}));
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 10, 20}));
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_EQ(q.GetPendingCount(), 0);
  // On the main thread ExecuteOnMainThread runs at once.
  ExecuteOnMainThread([&] { order.push_back(30); });
  EXPECT_EQ(order.back(), 30);
}

TEST(Services, LoadStringFromTheModuleTable) {
  SetModuleStrings(nullptr);
  EXPECT_EQ(LoadString(10006), "");
  const std::string dir = zvtest::TempDir();
  std::ofstream(dir + "/strings.txt") << "10006 \"Volume Builder\"\n20000 \"# of # voxels\"\n";
  StringResource table;
  ASSERT_TRUE(table.Load(dir).IsOk());
  SetModuleStrings(&table);
  EXPECT_EQ(LoadString(10006), "Volume Builder");
  EXPECT_EQ(LoadString(99999), "");
  EXPECT_EQ(LoadString(20000, "3", "10"), "3 of 10 voxels");
  EXPECT_EQ(LoadString(20000, "#"), "# of  voxels");
  SetModuleStrings(nullptr);
  EXPECT_EQ(LoadString(10006), "");
}

TEST(Services, QuestionDialogAnswersFromItsPolicy) {
  const Int64 asked = GetQuestionCount();
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_NO);
  EXPECT_EQ(QuestionDialog("Overwrite?"), DIALOG_ANSWER_NO);
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_YES);
  EXPECT_EQ(QuestionDialog("Overwrite?"), DIALOG_ANSWER_YES);
  SetDialogPolicy(DIALOGPOLICY::CALLBACK);
  SetDialogCallback(nullptr);
  EXPECT_EQ(QuestionDialog("No one to ask"), DIALOG_ANSWER_NO);
  SetDialogCallback([](const String& q) { return q.find("save") != String::npos; });
  EXPECT_EQ(QuestionDialog("save volumes?"), DIALOG_ANSWER_YES);
  EXPECT_EQ(QuestionDialog("delete?"), DIALOG_ANSWER_NO);
  EXPECT_EQ(GetLastQuestion(), "delete?");
  EXPECT_EQ(GetQuestionCount(), asked + 5);
  SetDialogCallback(nullptr);
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_NO);
}

TEST(Services, ParallelForCoversTheRangeOnce) {
  const Int64 n = 100000;
  std::vector<std::atomic<int>> hits(n);
  ParallelFor(0, n, [&](Int64 i) { hits[size_t(i)]++; });
  for (Int64 i = 0; i < n; ++i) ASSERT_EQ(hits[size_t(i)].load(), 1) << i;

  std::atomic<Int64> sum{0}, chunks{0};
  ParallelForRange(10, 1010, [&](Int64 b, Int64 e) {
    EXPECT_LE(e - b, 100);
    chunks++;
    for (Int64 i = b; i < e; ++i) sum += i;
  }, 100);
  EXPECT_EQ(sum.load(), (10 + 1009) * 1000 / 2);
  EXPECT_GE(chunks.load(), 10);
  ParallelFor(5, 5, [&](Int64) { FAIL(); });

  SetMaxThreads(1);
  EXPECT_EQ(GetMaxThreads(), 1);
  std::atomic<int> inside{0}, most{0};
  ParallelFor(0, 2000, [&](Int64) {
    const int now = ++inside;
    int m = most.load();
    while (now > m && !most.compare_exchange_weak(m, now)) {
    }
    --inside;
  });
  EXPECT_EQ(most.load(), 1);
  SetMaxThreads(0);
  EXPECT_EQ(GetMaxThreads(), 0);
}
