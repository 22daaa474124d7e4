#include <gtest/gtest.h>

#include <thread>

#include "host/ui/mainthreadqueue.h"
#include "host/ui/statusbar.h"
#include "modules/volumes/source/helper/progresshandler.h"

using zelmar::ProgressHandler;

namespace {
std::shared_ptr<ProgressHandler> Fresh() {
  auto h = ProgressHandler::Get();
  EXPECT_TRUE(h.IsOk());
  (*h)->SetActive(true);
  (*h)->ClearProgress(false);  // back to the defaults
  zta::MainThreadQueue::Get().SetMainThread(std::this_thread::get_id());
  zta::MainThreadQueue::Get().Drain();
  zta::StatusClear();
  return *h;
}
}  // namespace

TEST(ProgressHandler, StepArithmetic) {
  auto h = Fresh();
  EXPECT_EQ(ProgressHandler::Get()->get(), h.get());  // one handler for the process
  auto s = h->GetState();
  EXPECT_EQ(s.stepCount, 1);
  EXPECT_EQ(s.stepSize, 100);
  EXPECT_FALSE(s.active);

  h->SetStepCount(0);
  h->SetStepCount(-2);
  EXPECT_EQ(h->GetState().stepCount, 1);
  h->SetStepCount(3);
  EXPECT_EQ(h->GetState().stepSize, 33);

  h->SetStepProgress(50, false);
  EXPECT_EQ(h->GetState().percent, 16);  // 0 * 33 + trunc(0.5 * 33)
  h->NextStep(false);
  EXPECT_EQ(h->GetState().percent, 33);
  EXPECT_EQ(h->GetState().stepPercent, 0);
  h->NextStep(false);
  h->SetStepProgress(100, false);
  EXPECT_EQ(h->GetState().percent, 99);  // three steps of 33 end short of 100
  h->NextStep(false);
  EXPECT_EQ(h->GetState().currentStep, 2);  // never past the last step
  EXPECT_EQ(h->GetState().percent, 99);

  h->SetTitle("Meshing");
  h->ClearProgress(true);
  EXPECT_EQ(h->GetState().title, "Meshing");
  h->ClearProgress(false);
  s = h->GetState();
  EXPECT_EQ(s.currentStep, 0);
  EXPECT_EQ(s.stepCount, 1);
  EXPECT_EQ(s.percent, 0);
  EXPECT_EQ(s.title, "");
  EXPECT_FALSE(s.active);
}

TEST(ProgressHandler, JobsReachTheStatusBarOnlyWhileActive) {
  auto h = Fresh();
  zta::MainThreadQueue& q = zta::MainThreadQueue::Get();
  // Inactive: numbers change, nothing is posted.
  h->SetStepCount(4);
  h->SetStepProgress(50, true);
  h->SetSpinning();
  h->TriggerProgressDisplay();
  h->ClearProgress(true);
  EXPECT_EQ(h->GetState().percent, 12);
  EXPECT_EQ(q.GetPendingCount(), 0);

  // Active: jobs posted from a worker touch the bar only when the main thread drains.
  h->SetActive(true);
  h->SetTitle("Building");
  std::thread worker([&] { h->SetStepProgress(100, true); });
  worker.join();
  EXPECT_EQ(q.GetPendingCount(), 1);
  EXPECT_EQ(zta::GetStatusState().bar, zta::STATUSBAR::OFF);
  q.Drain();
  zta::StatusState st = zta::GetStatusState();
  EXPECT_EQ(st.bar, zta::STATUSBAR::PERCENT);
  EXPECT_EQ(st.percent, 25);
  EXPECT_EQ(st.text, "Building 25%");

  h->SetSpinning();
  q.Drain();
  EXPECT_EQ(zta::GetStatusState().bar, zta::STATUSBAR::SPIN);
  EXPECT_EQ(zta::GetStatusState().text, "Building");

  // Without a title and with an empty status text, the text is left alone.
  h->SetTitle("");
  zta::StatusClear();
  h->TriggerProgressDisplay();
  q.Drain();
  EXPECT_EQ(zta::GetStatusState().text, "");
  EXPECT_EQ(zta::GetStatusState().bar, zta::STATUSBAR::PERCENT);
  // With a text already showing, an empty title replaces it.
  zta::StatusSetText("old");
  h->SetSpinning();
  q.Drain();
  EXPECT_EQ(zta::GetStatusState().text, "");

  h->ClearProgress(false);
  EXPECT_EQ(q.GetPendingCount(), 1);
  q.Drain();
  EXPECT_EQ(zta::GetStatusState().bar, zta::STATUSBAR::OFF);
  EXPECT_FALSE(h->GetState().active);
  // Jobs keep the handler alive; a handler's jobs can run after it is released.
  h->SetActive(true);
  h->TriggerProgressDisplay();
  h.reset();
  EXPECT_EQ(q.Drain(), 1);
  (*ProgressHandler::Get())->ClearProgress(false);
  q.Drain();
}
