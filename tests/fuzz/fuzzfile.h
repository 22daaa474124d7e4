// What the file-reading fuzz targets share: the readers take paths, so each
// input goes to a file of this process, and a failure must be one line.
#pragma once
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace zvfuzz {

[[noreturn]] inline void Fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
  std::abort();
}

inline void CheckOneLine(const std::string& message) {
  if (message.empty() || message.find('\n') != std::string::npos) Fail("an error that is not one line", message);
}

// Inputs name their format in a first line ("obj\n..."), so that the corpus
// stays readable and a mutation mostly keeps the format it started from.
inline bool SplitFormat(const uint8_t* data, size_t size, std::string_view& ext, std::string_view& body) {
  const std::string_view all(reinterpret_cast<const char*>(data), size);
  const size_t nl = all.find('\n');
  if (nl == std::string_view::npos || nl == 0 || nl > 8) return false;
  ext = all.substr(0, nl);
  body = all.substr(nl + 1);
  return true;
}

// Writes `body` to a file of this process named by `ext`; empty on failure.
inline std::string WriteInput(std::string_view ext, std::string_view body) {
  const char* tmp = std::getenv("TMPDIR");
  std::string path = std::string(tmp && *tmp ? tmp : "/tmp") + "/zv-fuzz-" + std::to_string(getpid()) + "." + std::string(ext);
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return {};
  const bool ok = std::fwrite(body.data(), 1, body.size(), f) == body.size();
  if (std::fclose(f) != 0 || !ok) return {};
  return path;
}

}  // namespace zvfuzz
