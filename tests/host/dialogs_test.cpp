// Dialogs answer by policy: questions, file dialogs, modal dialogs, progress
// dialogs, and the host mode that says whether anyone watches.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/ui/dialogs.h"
#include "host/ui/hostmode.h"
#include "host/ui/mainthreadqueue.h"
#include "host/ui/modaldialog.h"
#include "host/ui/progressdialog.h"
#include "host/ui/statusbar.h"

using namespace zta;

namespace {

// Restores the policies after each test.
struct PolicyGuard {
  ~PolicyGuard() {
    SetDialogPolicy(DIALOGPOLICY::ALWAYS_NO);
    SetDialogCallback(nullptr);
    SetSaveFileAnswer(String());
    SetFileDialogCallback(nullptr);
    SetModalDialogCallback(nullptr);
    SetProgressCancelCallback(nullptr);
    SetHostMode(HOSTMODE_LIBRARY);
  }
};

class SettingsDialog : public GeModalDialog {
 public:
  bool InitValues() override {
    ++inits;
    SetFloat(1, 10.0, 0.01, 100.0);
    SetInt32(2, 0, 0, 7);
    SetBool(3, true);
    SetString(4, "name");
    return initOk;
  }
  bool AskClose() override {
    Float size = 0;
    return GetFloat(1, size) && size == 13.0;  // a value the dialog refuses
  }
  int inits = 0;
  bool initOk = true;
};

// Counts to `steps`, reporting progress and posting a job to the main thread
// each step; stops when asked.
class CountingDialog : public ProgressDialog {
 public:
  void Main(ZTAThread* thread) override {
    for (int i = 0; i < steps; ++i) {
      if (thread->TestBreak()) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      SetPercent(double(i + 1) / steps);
      MainThreadQueue::Get().Post([this] { ++jobsOnMain; });
      done = i + 1;
    }
    if (fail) SetError(IllegalStateError("bake failed"));
  }
  int steps = 50;
  std::atomic<int> done{0};
  std::atomic<int> jobsOnMain{0};
  bool fail = false;
};

}  // namespace

TEST(DialogsPolicy, FileDialogsAnswerLikeQuestions) {
  PolicyGuard guard;
  String path = "unchanged";
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_NO);
  SetSaveFileAnswer("/tmp/out");
  EXPECT_FALSE(SaveFileDialog(path, "Save Volume", "vdb"));
  EXPECT_EQ(path, "unchanged");
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_YES);
  ASSERT_TRUE(SaveFileDialog(path, "Save Volume", "vdb"));
  EXPECT_EQ(path, "/tmp/out.vdb");
  SetSaveFileAnswer("/tmp/out.vdb");
  ASSERT_TRUE(SaveFileDialog(path, "Save Volume", "vdb"));
  EXPECT_EQ(path, "/tmp/out.vdb");
  SetSaveFileAnswer(String());
  EXPECT_FALSE(SaveFileDialog(path, "Save Volume", "vdb"));
  SetDialogPolicy(DIALOGPOLICY::CALLBACK);
  EXPECT_FALSE(SaveFileDialog(path, "Save Volume", "vdb"));  // no one to ask
  SetFileDialogCallback([](const String& title, const String& ext) { return title == "Save Volume" ? "/v/" + ext : String(); });
  ASSERT_TRUE(SaveFileDialog(path, "Save Volume", "vdb"));
  EXPECT_EQ(path, "/v/vdb.vdb");
  EXPECT_FALSE(SaveFileDialog(path, "Other", "vdb"));
}

TEST(DialogsPolicy, ModalDialogsCloseByPolicy) {
  PolicyGuard guard;
  SettingsDialog dialog;
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_NO);
  EXPECT_FALSE(dialog.Open());
  EXPECT_EQ(dialog.inits, 1);
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_YES);
  ASSERT_TRUE(dialog.Open());
  Float size = 0;
  ASSERT_TRUE(dialog.GetFloat(1, size));
  EXPECT_EQ(size, 10.0);
  Int32 level = -1;
  EXPECT_FALSE(dialog.GetFloat(2, size));  // another kind
  EXPECT_FALSE(dialog.GetInt32(9, level));  // never set

  // The callback plays the person: values within the gadgets' limits.
  SetDialogPolicy(DIALOGPOLICY::CALLBACK);
  SetModalDialogCallback([](GeModalDialog& d) {
    return d.Enter(1, GeData(500.0)) && d.Enter(2, GeData(3.6)) && d.Enter(3, GeData(false)) &&
           d.Enter(4, GeData("remesh")) && !d.Enter(1, GeData("x")) && !d.Enter(99, GeData(1));
  });
  ASSERT_TRUE(dialog.Open());
  ASSERT_TRUE(dialog.GetFloat(1, size));
  EXPECT_EQ(size, 100.0);
  ASSERT_TRUE(dialog.GetInt32(2, level));
  EXPECT_EQ(level, 4);
  bool live = true;
  ASSERT_TRUE(dialog.GetBool(3, live));
  EXPECT_FALSE(live);
  String text;
  ASSERT_TRUE(dialog.GetString(4, text));
  EXPECT_EQ(text, "remesh");
  // OK on values the dialog refuses ends as Cancel: no one is there to fix them.
  SetModalDialogCallback([](GeModalDialog& d) { return d.Enter(1, GeData(13.0)); });
  EXPECT_FALSE(dialog.Open());
  SetModalDialogCallback([](GeModalDialog&) { return false; });
  EXPECT_FALSE(dialog.Open());
  SetDialogPolicy(DIALOGPOLICY::ALWAYS_YES);
  dialog.initOk = false;
  EXPECT_FALSE(dialog.Open());
}

TEST(DialogsPolicy, ProgressDialogsRunTheWorkOnTheirThreadAndCanBeCancelled) {
  PolicyGuard guard;
  MainThreadQueue::Get().SetMainThread(std::this_thread::get_id());
  MainThreadQueue::Get().Drain();
  SetHostMode(HOSTMODE_INTERACTIVE);
  EXPECT_TRUE(IsInteractive());

  // Run to the end: the jobs of the work ran here, on the main thread.
  CountingDialog full;
  full.SetTitle("Baking");
  const UInt64 statusChanges = GetStatusState().changes;
  ASSERT_TRUE(full.Open());
  EXPECT_EQ(full.done.load(), 50);
  EXPECT_EQ(full.jobsOnMain.load(), 50);
  EXPECT_DOUBLE_EQ(full.GetPercent(), 1.0);
  EXPECT_FALSE(full.WasCancelled());
  EXPECT_GT(GetStatusState().changes, statusChanges);  // progress shown while a person watches
  EXPECT_EQ(GetStatusState().bar, STATUSBAR::OFF);      // and cleared after

  // A person cancels at half way: the work stops through TestBreak.
  SetHostMode(HOSTMODE_COMMANDLINE);
  EXPECT_FALSE(IsInteractive());
  CountingDialog cancelled;
  cancelled.steps = 5000;
  SetProgressCancelCallback([](const String&, Float percent) { return percent >= 0.002; });
  const UInt64 quiet = GetStatusState().changes;
  EXPECT_FALSE(cancelled.Open());
  EXPECT_TRUE(cancelled.WasCancelled());
  EXPECT_LT(cancelled.done.load(), 5000);
  EXPECT_EQ(GetStatusState().changes, quiet);  // nobody watches: nothing shown
  SetProgressCancelCallback(nullptr);

  // The caller's own stop request (Ctrl-C) cancels as well.
  auto stop = std::make_shared<ZTAThread>();
  stop->End();
  CountingDialog stopped;
  stopped.steps = 5000;
  EXPECT_FALSE(stopped.Open(stop));
  EXPECT_TRUE(stopped.WasCancelled());

  // An error of the work is the dialog's result.
  CountingDialog failing;
  failing.steps = 2;
  failing.fail = true;
  EXPECT_FALSE(failing.Open());
  ASSERT_TRUE(failing.GetError());
  EXPECT_EQ(failing.GetError()->GetMessage(), "bake failed");

  // The thread itself: named, runs once at a time, reports when done.
  ProgressThread thread;
  EXPECT_EQ(thread.GetName(), "Progress Thread");
  std::atomic<bool> release{false};
  ASSERT_TRUE(thread.Start([&](ZTAThread*) {
    while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }));
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_FALSE(thread.Start([](ZTAThread*) {}));
  EXPECT_FALSE(thread.WaitFor(1));
  release = true;
  EXPECT_TRUE(thread.WaitFor(5000));
  EXPECT_FALSE(thread.IsRunning());
}
