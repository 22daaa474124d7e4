#pragma once
// Url: where data lives. The file scheme names a path on disk; the memory
// scheme names a buffer held in the process (data kept inside a scene, tests),
// which the file tools read and write as a stream.
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "host/core/result.h"

namespace zta {

enum class URLSCHEME { NONE, FILE, MEMORY };

class Url {
 public:
  Url() = default;
  // "memory://name" gives the memory scheme, "file://path" or a plain path the file scheme.
  explicit Url(const std::string& text);
  static Url FromSystemPath(const std::string& path);
  static Url Memory(const std::string& name);

  bool IsEmpty() const { return scheme_ == URLSCHEME::NONE; }
  URLSCHEME GetScheme() const { return scheme_; }
  bool IsFile() const { return scheme_ == URLSCHEME::FILE; }
  const std::string& GetPath() const { return path_; }
  std::string GetSystemPath() const { return path_; }
  // The plain path for files, "memory://name" for buffers.
  std::string ToString() const;
  std::string GetSuffix() const;

  Result<std::unique_ptr<std::istream>> OpenInputStream() const;
  // A memory buffer is replaced when the returned stream is destroyed.
  Result<std::unique_ptr<std::ostream>> OpenOutputStream() const;

  bool operator==(const Url&) const = default;

 private:
  URLSCHEME scheme_ = URLSCHEME::NONE;
  std::string path_;
};

// The host's file query.
enum class IODETECT { NONEXISTENT, FILE, DIRECTORY };
IODETECT IoDetect(const Url& url);

// The process-wide store behind the memory scheme.
namespace MemoryStore {
void Put(const std::string& name, std::vector<char> bytes);
bool Get(const std::string& name, std::vector<char>& bytes);
bool Erase(const std::string& name);
bool Contains(const std::string& name);
}  // namespace MemoryStore

}  // namespace zta
