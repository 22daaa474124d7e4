#pragma once
// The main of a benchmark program that runs the volume module: started once
// before the benchmarks, `beforeStop` (what the program's data must release
// while the module still runs) after them, and stopped.
#include <benchmark/benchmark.h>

#include <functional>

#include "modules/volumes/source/main.h"

namespace zvbench {

inline int RunWithModule(int argc, char** argv, const std::function<void()>& beforeStop = {}) {
  benchmark::Initialize(&argc, argv);
  if (!zelmar::StartModuleStandalone(ZV_BIN_DIR)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (beforeStop) beforeStop();
  zelmar::StopModuleStandalone();
  return 0;
}

}  // namespace zvbench
