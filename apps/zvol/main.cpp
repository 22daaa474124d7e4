// zvol: Zelmar Volumes from the command line.
#include <tbb/global_control.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>

#include <unistd.h>

#include "host/core/moduleloader.h"
#include "host/ui/dialogs.h"
#include "host/ui/hostmode.h"
#include "host/ui/mainthreadqueue.h"
#include "host/ui/parallel.h"
#include "memorylimit.h"
#include "zelmar/memorylimit.h"
#include "zvol.h"

namespace {

zta::ThreadRef g_thread;

extern "C" void OnInterrupt(int) {
  if (g_thread) g_thread->End();
  // A second Ctrl-C ends the program at once.
  std::signal(SIGINT, SIG_DFL);
}

// The volume module sits beside zvol, with its resources in "res".
std::string ModulePath(const char* argv0) {
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) exe = std::filesystem::absolute(argv0);
  return (exe.parent_path() / "libzelmar_volumes.so").string();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"zvol: sparse voxel volumes from meshes, points, fields and .vdb files", "zvol"};
  app.require_subcommand(1);
  app.fallthrough();
  zvol::Context ctx;
  app.add_flag("-q,--quiet", ctx.quiet, "print no messages, only errors");
  app.add_flag("-v,--verbose", ctx.verbose, "print the timing of each step");
  app.add_option("--threads", ctx.threads, "use at most N worker threads")->check(CLI::PositiveNumber);
  app.add_option_function<std::string>(
         "--memory-limit", [](const std::string& s) {
           zvol::g_memoryLimit = zvol::ParseMemorySize(s);
           zelmar::MemoryLimitInterface::SetLimit(zvol::g_memoryLimit);
         },
         "refuse work estimated to need more than SIZE (512M, 16G, ...; none: no check; default: the memory available)")
      ->type_name("SIZE");
  bool yes = false;
  app.add_flag("-y,--yes", yes, "answer yes to the questions the tools ask (default: no)");

  std::map<CLI::App*, zvol::VerbRun> runs;
  for (const auto& verb : zvol::Verbs()) {
    CLI::App* sub = app.add_subcommand(verb.name, verb.help);
    runs[sub] = verb.setup(*sub);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? 0 : 2;
  }

  std::optional<tbb::global_control> threadCap;
  if (ctx.threads > 0) {
    threadCap.emplace(tbb::global_control::max_allowed_parallelism, size_t(ctx.threads));
    zta::SetMaxThreads(ctx.threads);
  }
  // zvol is the host's main thread: it answers dialogs by policy and runs the
  // jobs that the tools post for it. A person watches only on a terminal.
  zta::SetDialogPolicy(yes ? zta::DIALOGPOLICY::ALWAYS_YES : zta::DIALOGPOLICY::ALWAYS_NO);
  zta::SetHostMode(!ctx.quiet && isatty(STDERR_FILENO) ? zta::HOSTMODE_INTERACTIVE : zta::HOSTMODE_COMMANDLINE);
  zta::MainThreadQueue::Get().SetMainThread(std::this_thread::get_id());

  g_thread = std::make_shared<zta::ZTAThread>();
  ctx.thread = g_thread;
  std::signal(SIGINT, OnInterrupt);

  int status = 0;
  try {
    zvol::Take(zta::LoadModule(ModulePath(argv[0])));
    for (auto* sub : app.get_subcommands()) {
      // The output option may sit on a nested verb ("filter sdf ... -o OUT").
      for (CLI::App* level = sub; level; level = level->get_subcommands().empty() ? nullptr : level->get_subcommands()[0])
        if (const CLI::Option* out = level->get_option_no_throw("--output"); out && out->count() > 0)
          zvol::CheckOutputPath(out->as<std::string>());
      status = runs.at(sub)(ctx);
    }
    zta::MainThreadQueue::Get().Drain();
  } catch (const zvol::Failure& f) {
    std::fprintf(stderr, "error: %s\n", f.what());
    status = g_thread->TestBreak() ? 130 : 1;
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    status = 2;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "error: out of memory\n");
    status = 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    status = 1;
  }
  zta::UnloadModules();
  return status;
}
