#include "host/core/result.h"

namespace zta {

const char* ErrorKindName(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::IllegalArgument: return "illegal argument";
    case ErrorKind::IllegalState: return "illegal state";
    case ErrorKind::OutOfMemory: return "out of memory";
    case ErrorKind::InputOutput: return "input/output";
    case ErrorKind::Unexpected: return "unexpected";
    case ErrorKind::NullPointer: return "null pointer";
  }
  return "unknown";
}

std::string Error::ToString() const {
  std::string s = message_.empty() ? std::string(ErrorKindName(kind_)) : message_;
  s += " [";
  s += file_;
  s += ':';
  s += std::to_string(line_);
  s += ']';
  return s;
}

}  // namespace zta
