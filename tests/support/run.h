#pragma once
// Runs a program and collects its exit status, stdout and stderr.
#include <sys/types.h>

#include <string>
#include <vector>

namespace zvtest {

struct RunResult {
  int status = -1;
  std::string out;
  std::string err;
};

// Where a started program's streams go: files by path, /dev/null when empty;
// `passFd`, when set, becomes the program's descriptor 3.
struct SpawnIo {
  std::string out{}, err{};
  int passFd = -1;
};

// Starts `args` (no shell, stdin from /dev/null) with the environment given
// as "NAME=value" additions; the process id, -1 when it could not start.
pid_t Spawn(const std::vector<std::string>& args, const SpawnIo& io = {}, const std::vector<std::string>& env = {});
// Runs `args` (no shell) with the environment given as "NAME=value" additions.
RunResult Run(const std::vector<std::string>& args, const std::vector<std::string>& env = {});
// build/bin/zvol with `args`.
RunResult Zvol(const std::vector<std::string>& args);
// /usr/bin/python3 (Debian's, with pyopenvdb) running `script`.
RunResult Python(const std::string& script);
// A fresh empty folder for one test's files.
std::string TempDir();

}  // namespace zvtest
