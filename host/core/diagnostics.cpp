#include "host/core/diagnostics.h"

#include <cstdio>
#include <mutex>

namespace zta {

namespace {
std::mutex g_sinkMutex;
DiagnosticSink g_sink;
}  // namespace

DiagnosticSink SetDiagnosticSink(DiagnosticSink sink) {
  std::lock_guard<std::mutex> lock(g_sinkMutex);
  std::swap(g_sink, sink);
  return sink;
}

void DiagnosticLine(const std::string& line) {
  std::lock_guard<std::mutex> lock(g_sinkMutex);
  if (g_sink) {
    g_sink(line);
    return;
  }
  std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace zta
