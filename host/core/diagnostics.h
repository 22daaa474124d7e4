#pragma once
// The host's diagnostic output: one line at a time, to stderr unless a sink
// has been set (tests capture it this way).
#include <functional>
#include <string>

#include "host/core/format.h"

namespace zta {

using DiagnosticSink = std::function<void(const std::string& line)>;
// Returns the previous sink; an empty sink restores stderr.
DiagnosticSink SetDiagnosticSink(DiagnosticSink sink);
void DiagnosticLine(const std::string& line);

template <typename... Args>
void DiagnosticOutput(std::string_view pattern, const Args&... args) {
  DiagnosticLine(FormatString(pattern, args...));
}

}  // namespace zta
