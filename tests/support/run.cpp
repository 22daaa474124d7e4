#include "support/run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

extern char** environ;

namespace zvtest {

namespace {
std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}
}  // namespace

std::string TempDir() {
  std::random_device rd;
  const auto dir = std::filesystem::temp_directory_path() / ("zvtest-" + std::to_string(getpid()) + "-" + std::to_string(rd()));
  std::filesystem::create_directories(dir);
  return dir.string();
}

pid_t Spawn(const std::vector<std::string>& args, const SpawnIo& io, const std::vector<std::string>& env) {
  const auto target = [](const std::string& path) { return path.empty() ? "/dev/null" : path.c_str(); };
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, target(io.out), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, target(io.err), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (io.passFd >= 0) posix_spawn_file_actions_adddup2(&actions, io.passFd, 3);
  std::vector<char*> argv;
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> envStore;
  for (char** e = environ; *e; ++e) envStore.emplace_back(*e);
  for (const auto& e : env) envStore.push_back(e);
  std::vector<char*> envp;
  for (auto& e : envStore) envp.push_back(e.data());
  envp.push_back(nullptr);
  pid_t pid = -1;
  if (args.empty() || posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

RunResult Run(const std::vector<std::string>& args, const std::vector<std::string>& env) {
  const std::string dir = TempDir();
  const std::string outPath = dir + "/out", errPath = dir + "/err";
  RunResult r;
  if (const pid_t pid = Spawn(args, {outPath, errPath}, env); pid > 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  r.out = Slurp(outPath);
  r.err = Slurp(errPath);
  std::filesystem::remove_all(dir);
  return r;
}

RunResult Zvol(const std::vector<std::string>& args) {
  std::vector<std::string> all{std::string(ZV_BIN_DIR) + "/zvol"};
  all.insert(all.end(), args.begin(), args.end());
  return Run(all);
}

RunResult Python(const std::string& script) { return Run({ZV_PYTHON, "-c", script}); }

}  // namespace zvtest
