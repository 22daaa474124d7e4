#pragma once
// Runs a program and collects its exit status, stdout and stderr.
#include <string>
#include <vector>

namespace zvtest {

struct RunResult {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs `args` (no shell) with the environment given as "NAME=value" additions.
RunResult Run(const std::vector<std::string>& args, const std::vector<std::string>& env = {});
// build/bin/zvol with `args`.
RunResult Zvol(const std::vector<std::string>& args);
// /usr/bin/python3 (Debian's, with pyopenvdb) running `script`.
RunResult Python(const std::string& script);
// A fresh empty folder for one test's files.
std::string TempDir();

}  // namespace zvtest
