// zvol export: the host's .vdb export from the command line. The scene is
// evaluated at a frame, or at each frame of a range, and the volumes that its
// objects show are written: one file, or one file per frame named by a form.
#include <errno.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "host/core/format.h"
#include "host/scene/parameters.h"
#include "host/scene/sceneio.h"
#include "sceneio.h"
#include "zvol.h"

namespace {

namespace fs = std::filesystem;
using zta::Int32;

constexpr Int32 kSaver = 1039865;
enum : Int32 { ANIMATION = 1000, FIRST = 1001, LAST = 1002, SELECTION = 1003, NAMING = 1004, UNIT = 1005 };

extern "C" char** environ;

// Runs `args` (this program's own arguments) in a child process; its pid, or
// -1 when it could not start.
pid_t SpawnSelf(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv.data(), environ) != 0) return -1;
  return pid;
}

// Frames A to B split into `workers` runs of neighbouring frames, each run
// exported by a process of its own: each process loads the scene once and
// its frames follow one another, as a serial export's would. A run that
// fails is tried once more; files that runs wrote stay. The result is the
// runs that failed twice, as "A:B" texts.
std::vector<std::string> ExportInProcesses(const zvol::Context& ctx, const std::vector<std::string>& common,
                                           long long a, long long b, int workers) {
  const long long count = b - a + 1;
  workers = int(std::min<long long>(workers, count));
  std::vector<std::pair<long long, long long>> runs;
  for (int k = 0; k < workers; ++k) {
    const long long from = a + count * k / workers, to = a + count * (k + 1) / workers - 1;
    runs.emplace_back(from, to);
  }
  auto argsOf = [&](const std::pair<long long, long long>& r) {
    std::vector<std::string> args = {"zvol", "-q"};
    if (ctx.threads > 0) args.insert(args.end(), {"--threads", std::to_string(ctx.threads)});
    args.insert(args.end(), common.begin(), common.end());
    args.insert(args.end(), {"--frames", std::to_string(r.first) + ":" + std::to_string(r.second)});
    return args;
  };
  std::vector<std::string> failed;
  for (int attempt = 0; attempt < 2 && !runs.empty(); ++attempt) {
    std::vector<std::pair<pid_t, std::pair<long long, long long>>> running;
    std::vector<std::pair<long long, long long>> again;
    for (const auto& r : runs) {
      const pid_t pid = SpawnSelf(argsOf(r));
      if (pid < 0) again.push_back(r);
      else running.emplace_back(pid, r);
    }
    bool stopped = false;
    for (const auto& [pid, r] : running) {
      int status = 0;
      for (;;) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid || (done < 0 && errno != EINTR)) break;
        // A stop of this process (Ctrl-C) is passed on to every child once.
        if (!stopped && ctx.thread && ctx.thread->TestBreak()) {
          stopped = true;
          for (const auto& child : running) kill(child.first, SIGINT);
        }
        usleep(20000);
      }
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) again.push_back(r);
    }
    if (ctx.thread && ctx.thread->TestBreak()) break;
    runs = std::move(again);
  }
  for (const auto& r : runs) failed.push_back(std::to_string(r.first) + ":" + std::to_string(r.second));
  return failed;
}

void Set(zta::BaseList2D* node, Int32 id, const zta::GeData& value) {
  if (!zta::SetParameter(node, zta::DescID(id), value)) throw zvol::Failure(zta::FormatString("setting @ was refused", id));
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string scene;
    std::string output;
    std::string frames;
    int naming = 4;
    std::string selection;
    std::string unit;
    int workers = 1;
  };
  auto o = std::make_shared<Options>();
  app.add_option("scene", o->scene, "the scene file (.zscene or .json)")->required();
  app.add_option("-o,--output", o->output, "the .vdb file; with --frames the name the frame numbers go into")->required();
  app.add_option("--frames", o->frames, "A:B: one file per frame from A to B (default: the scene's current frame, one file)");
  app.add_option("--naming", o->naming,
                 "file names of --frames: 0 out0001.vdb, 1 out001.vdb, 2 out_0001.vdb, 3 out_001.vdb, "
                 "4 out.0001.vdb (default), 5 out.001.vdb")
      ->check(CLI::Range(0, 5));
  app.add_option("--selection", o->selection, "only these objects and what lies below them: PATH,... as a/b/c by names");
  app.add_option("--unit", o->unit, "the unit of the file's lengths (km, m, cm, mm, ..., with an optional scale: 10m; default: cm)");
  app.add_option("--workers", o->workers,
                 "with --frames: export in N processes, each a run of neighbouring frames (default 1)")
      ->check(CLI::Range(1, 256));

  return [o](const zvol::Context& ctx) {
    zvol::RequireSceneFile(o->scene, "scene");
    if (fs::path(o->output).extension() != ".vdb")
      throw CLI::ValidationError("--output", "'" + o->output + "' is not a .vdb file");
    long long a = 0, b = 0;
    if (!o->frames.empty()) {
      char rest = 0;
      if (std::sscanf(o->frames.c_str(), "%lld:%lld%c", &a, &b, &rest) != 2 || b < a || b - a > 1000000 ||
          a < -1000000000 || b > 1000000000)
        throw CLI::ValidationError("--frames", "expected A:B with A <= B, got '" + o->frames + "'");
    }
    std::optional<zta::UnitScaleData> unit;
    if (!o->unit.empty()) unit = zvol::ParseUnit(o->unit, "--unit");
    zvol::CheckOutputPath(o->output);
    if (o->workers > 1 && !o->frames.empty() && b > a) {
      // Each process checks the scene and the options again; they are the ones checked here.
      std::vector<std::string> common = {"export", o->scene, "-o", o->output, "--naming", std::to_string(o->naming)};
      if (!o->selection.empty()) common.insert(common.end(), {"--selection", o->selection});
      if (!o->unit.empty()) common.insert(common.end(), {"--unit", o->unit});
      const std::vector<std::string> failed = [&] {
        zvol::Step step(ctx, zta::FormatString("export in @ processes", o->workers));
        return ExportInProcesses(ctx, common, a, b, o->workers);
      }();
      ctx.CheckInterrupted();
      if (!failed.empty()) {
        std::string list;
        for (const auto& f : failed) list += (list.empty() ? "" : ", ") + f;
        throw zvol::Failure("the export failed for the frames " + list + " (twice each); the other frames were written");
      }
      ctx.Say(zta::FormatString("wrote the frames @ to @ in @ processes", a, b, std::min<long long>(o->workers, b - a + 1)));
      return 0;
    }

    auto doc = zvol::LoadScene(ctx, o->scene);
    auto node = zta::AllocSceneFilter(kSaver);
    auto* saver = node ? node->GetNodeData<zta::SceneSaverData>() : nullptr;
    if (!saver) throw zvol::Failure("the .vdb export is not registered");
    const zta::Url url = zta::Url::FromSystemPath(o->output);
    zta::SceneFilterPrepare prepare{doc.get(), url};
    node->Message(zta::MSG_SCENEFILTER_PREPARE, &prepare);

    Set(node.get(), ANIMATION, zta::GeData(!o->frames.empty()));
    if (!o->frames.empty()) {
      Set(node.get(), LAST, zta::GeData(Int32(b)));
      Set(node.get(), FIRST, zta::GeData(Int32(a)));
      Set(node.get(), NAMING, zta::GeData(Int32(o->naming)));
    }
    if (!o->selection.empty()) zvol::SelectObjectsByPath(*doc, o->selection);
    Set(node.get(), SELECTION, zta::GeData(!o->selection.empty()));
    if (unit) Set(node.get(), UNIT, zta::GeData(std::shared_ptr<const zta::CustomDataType>(unit->Clone())));

    zta::SceneFilterRun run;
    run.thread = ctx.thread;
    Int32 status = 0;
    {
      zvol::Progress progress(ctx, "export");
      run.progress = [&progress](double f) { progress.Set(f); };
      zvol::Step step(ctx, "export " + fs::path(o->output).filename().string());
      status = saver->SaveScene(node.get(), doc.get(), url, zta::SCENEFILTER_DIALOGSALLOWED, run);
    }
    ctx.CheckInterrupted();
    if (status != zta::FILEERROR_NONE) throw zvol::Failure(run.error.empty() ? "the export failed" : run.error);
    if (o->frames.empty()) ctx.Say("wrote " + o->output);
    else ctx.Say(zta::FormatString("wrote @ file@ for frames @ to @", run.filesWritten, run.filesWritten == 1 ? "" : "s", a, b));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("export", "export the volumes of a scene to .vdb files, one frame or a range", Setup);
