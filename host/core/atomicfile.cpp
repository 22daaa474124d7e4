#include "host/core/atomicfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <utility>

namespace zta {

namespace {
std::string ErrnoText(int err) { return std::strerror(err ? err : EIO); }
}  // namespace

AtomicFile::AtomicFile(AtomicFile&& o) noexcept
    : target_(std::move(o.target_)), temp_(std::move(o.temp_)), file_(std::exchange(o.file_, nullptr)) {}

AtomicFile& AtomicFile::operator=(AtomicFile&& o) noexcept {
  if (this != &o) {
    Discard();
    target_ = std::move(o.target_);
    temp_ = std::move(o.temp_);
    file_ = std::exchange(o.file_, nullptr);
  }
  return *this;
}

AtomicFile::~AtomicFile() { Discard(); }

Result<AtomicFile> AtomicFile::Open(const std::string& target) {
  namespace fs = std::filesystem;
  const fs::path t(target);
  if (t.filename().empty()) return IllegalArgumentError("no file name in '" + target + "'");
  const fs::path folder = t.parent_path().empty() ? fs::path(".") : t.parent_path();
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) return IoError("the folder of " + target + " does not exist");
  if (fs::is_directory(t, ec)) return IoError(target + " is a folder");

  AtomicFile out;
  out.target_ = target;
  std::random_device rd;
  // O_EXCL: two writers of one target never share a temporary file.
  for (int attempt = 0; attempt < 16; ++attempt) {
    char tag[24];
    std::snprintf(tag, sizeof(tag), "%08x%08x", rd(), rd());
    std::string name(".");
    name += t.filename().string();
    name += ".tmp-";
    name += tag;
    const std::string temp = (folder / name).string();
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      return IoError("could not write " + target + ": " + ErrnoText(errno));
    }
    // A file that is replaced keeps its permissions.
    struct stat st {};
    if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode)) ::fchmod(fd, st.st_mode & 07777);
    std::FILE* f = ::fdopen(fd, "wb");
    if (!f) {
      const int err = errno;
      ::close(fd);
      ::unlink(temp.c_str());
      return IoError("could not write " + target + ": " + ErrnoText(err));
    }
    out.temp_ = temp;
    out.file_ = f;
    return out;
  }
  return IoError("could not write " + target + ": no free temporary name");
}

Result<void> AtomicFile::Commit(bool sync) {
  if (!file_) return IllegalStateError("could not write " + target_ + ": the file is not open");
  std::FILE* f = std::exchange(file_, nullptr);
  errno = 0;
  bool ok = std::fflush(f) == 0 && std::ferror(f) == 0;
  int err = errno;
  if (ok && sync && ::fsync(::fileno(f)) != 0) {
    ok = false;
    err = errno;
  }
  if (std::fclose(f) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (ok && std::rename(temp_.c_str(), target_.c_str()) != 0) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    ::unlink(temp_.c_str());
    temp_.clear();
    return IoError("could not write " + target_ + ": " + ErrnoText(err));
  }
  temp_.clear();
  return OK();
}

void AtomicFile::Discard() {
  if (file_) {
    std::fclose(file_);
    file_ = nullptr;
  }
  if (!temp_.empty()) {
    ::unlink(temp_.c_str());
    temp_.clear();
  }
}

}  // namespace zta
