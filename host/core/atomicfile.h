#pragma once
// A file written in full or not at all: the bytes go to a fresh temporary
// file beside the target, which Commit renames into place. Until then a file
// that stood at the target stays as it was; a failure or a destructor without
// Commit removes the temporary file.
#include <cstdio>
#include <string>

#include "host/core/result.h"

namespace zta {

class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(AtomicFile&& o) noexcept;
  AtomicFile& operator=(AtomicFile&& o) noexcept;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile();

  // Creates the temporary file; fails, in words a person knows, when the
  // folder is missing, is not writable, or the target is a folder.
  static Result<AtomicFile> Open(const std::string& target);

  std::FILE* GetFile() const { return file_; }

  // Flushes and closes the temporary file (with `sync`, also to the disk, so
  // that the rename never exposes a file whose bytes are not yet stored) and
  // renames it over the target.
  Result<void> Commit(bool sync = true);
  // Closes and removes the temporary file; the target is untouched.
  void Discard();

 private:
  std::string target_;
  std::string temp_;
  std::FILE* file_ = nullptr;
};

}  // namespace zta
