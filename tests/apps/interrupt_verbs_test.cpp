// Ctrl-C at any moment of a long zvol run: the run ends with status 130 and
// "error: interrupted" (or finishes, when the signal comes after the work),
// leaves no partial or temporary file, and changes no input.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include "support/run.h"

namespace {

namespace fs = std::filesystem;

const std::string kKnot = std::string(ZV_SOURCE_DIR) + "/examples/knot.obj";

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::map<std::string, std::string> Contents(const std::string& dir) {
  std::map<std::string, std::string> files;
  for (const auto& e : fs::directory_iterator(dir)) files[e.path().filename().string()] = Slurp(e.path().string());
  return files;
}

struct Outcome {
  int status = -1;  // the exit status, or 256 + the signal that ended the process
  std::string err;
};

// When SIGINT goes: at once (while zvol starts), as the first step of the work
// reports its end on stderr (--verbose), or a while after that.
enum class Moment { AT_START, FIRST_STEP, LATER };

Outcome Interrupt(const std::vector<std::string>& args, Moment moment, const std::string& errPath) {
  std::vector<std::string> all{std::string(ZV_BIN_DIR) + "/zvol", "--verbose"};
  all.insert(all.end(), args.begin(), args.end());
  Outcome o;
  const pid_t pid = zvtest::Spawn(all, {.err = errPath});
  if (pid <= 0) return o;
  int status = 0;
  bool ended = false;
  if (moment != Moment::AT_START) {
    // Waits for the first step's line; a run that ends first has nothing to stop.
    while (Slurp(errPath).empty() && !(ended = waitpid(pid, &status, WNOHANG) == pid))
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    if (moment == Moment::LATER && !ended) std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  if (!ended) {
    kill(pid, SIGINT);
    waitpid(pid, &status, 0);
  }
  o.status = WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
  o.err = Slurp(errPath);
  fs::remove(errPath);
  return o;
}

}  // namespace

TEST(Interrupt, EveryLongVerbStopsCleanlyAtAnyMoment) {
  const std::string in = zvtest::TempDir(), work = zvtest::TempDir(), logs = zvtest::TempDir();
  // Inputs: a level set and particles large enough that each verb works for a while.
  fs::copy_file(kKnot, in + "/knot.obj");
  ASSERT_EQ(zvtest::Zvol({"mesh2vol", kKnot, "--voxel-size", "0.02", "-o", in + "/knot.vdb"}).status, 0);
  {
    std::ofstream csv(in + "/points.csv");
    csv << "x,y,z,radius\n";
    for (int i = 0; i < 20000; ++i) csv << (i % 97) * 0.1 << "," << (i % 89) * 0.1 << "," << (i % 83) * 0.1 << ",0.3\n";
  }
  const auto inputs = Contents(in);

  const std::vector<std::vector<std::string>> runs = {
      {"mesh2vol", in + "/knot.obj", "--voxel-size", "0.01", "-o", work + "/out.vdb"},
      {"remesh", in + "/knot.obj", "--voxel-size", "0.01", "-o", work + "/out.obj"},
      {"vol2mesh", in + "/knot.vdb", "-o", work + "/out.ply"},
      {"filter", "sdf", "mean", in + "/knot.vdb", "--iterations", "20", "-o", work + "/out.vdb"},
      {"resample", in + "/knot.vdb", "--voxel-size", "0.007", "-o", work + "/out.vdb"},
      {"points2vol", in + "/points.csv", "--voxel-size", "0.01", "-o", work + "/out.vdb"},
  };
  int stopped = 0;
  for (const auto& args : runs) {
    for (const Moment moment : {Moment::AT_START, Moment::FIRST_STEP, Moment::LATER}) {
      SCOPED_TRACE(args[0] + " interrupted at moment " + std::to_string(int(moment)));
      const Outcome o = Interrupt(args, moment, logs + "/err");
      const auto left = Contents(work);
      if (o.status == 0) {
        // The signal came after the work: the whole output, and nothing else.
        EXPECT_EQ(left.size(), 1u);
      } else if (o.status == 256 + SIGINT) {
        // Before zvol listens for Ctrl-C, the signal ends it, before any work.
        EXPECT_EQ(moment, Moment::AT_START);
        EXPECT_TRUE(left.empty());
      } else {
        // Stopped: 130 and one error line after the steps' timings.
        EXPECT_EQ(o.status, 130) << o.err;
        const size_t last = o.err.rfind("error: ");
        EXPECT_EQ(o.err.substr(last == std::string::npos ? 0 : last), "error: interrupted\n") << o.err;
        EXPECT_EQ(o.err.find("error: "), last) << o.err;
        EXPECT_TRUE(left.empty()) << left.begin()->first;
        ++stopped;
      }
      EXPECT_EQ(Contents(in), inputs);
      for (const auto& e : fs::directory_iterator(work)) fs::remove(e.path());
    }
  }
  // Most runs outlast their signal; a test that never interrupts proves nothing.
  EXPECT_GE(stopped, int(runs.size()));
}
