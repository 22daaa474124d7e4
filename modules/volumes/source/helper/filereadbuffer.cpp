#include "modules/volumes/source/helper/filereadbuffer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zelmar {

FileReadBuffer::FileReadBuffer(const std::string& path, size_t blockBytes) : block_(blockBytes) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  setg(block_.data(), block_.data(), block_.data());
}

FileReadBuffer::~FileReadBuffer() {
  if (fd_ >= 0) ::close(fd_);
}

size_t FileReadBuffer::ReadAt(char* to, size_t count, off_t offset) {
  size_t done = 0;
  while (fd_ >= 0 && done < count) {
    const ssize_t n = ::pread(fd_, to + done, count - done, offset + off_t(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += size_t(n);
  }
  return done;
}

FileReadBuffer::int_type FileReadBuffer::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  blockStart_ += off_t(gptr() - eback());
  const size_t n = ReadAt(block_.data(), block_.size(), blockStart_);
  setg(block_.data(), block_.data(), block_.data() + n);
  return n == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

std::streamsize FileReadBuffer::xsgetn(char* s, std::streamsize count) {
  std::streamsize done = 0;
  auto takeHeld = [&] {
    const std::streamsize part = std::min<std::streamsize>(count - done, egptr() - gptr());
    std::memcpy(s + done, gptr(), size_t(part));
    gbump(int(part));
    done += part;
  };
  // What the block holds first; a read larger than a block then goes straight to the caller.
  takeHeld();
  if (done < count && count - done >= std::streamsize(block_.size())) {
    blockStart_ += off_t(gptr() - eback());
    const size_t n = ReadAt(s + done, size_t(count - done), blockStart_);
    blockStart_ += off_t(n);
    setg(block_.data(), block_.data(), block_.data());
    return done + std::streamsize(n);
  }
  while (done < count && underflow() != traits_type::eof()) takeHeld();
  return done;
}

FileReadBuffer::pos_type FileReadBuffer::seekoff(off_type off, std::ios_base::seekdir dir,
                                                 std::ios_base::openmode which) {
  off_type base = 0;
  if (dir == std::ios_base::cur) {
    base = off_type(blockStart_) + off_type(gptr() - eback());
  } else if (dir == std::ios_base::end) {
    struct stat st {};
    if (fd_ < 0 || ::fstat(fd_, &st) != 0) return pos_type(off_type(-1));
    base = off_type(st.st_size);
  }
  return seekpos(pos_type(base + off), which);
}

FileReadBuffer::pos_type FileReadBuffer::seekpos(pos_type pos, std::ios_base::openmode which) {
  const off_type at = off_type(pos);
  if (fd_ < 0 || !(which & std::ios_base::in) || at < 0) return pos_type(off_type(-1));
  if (at >= off_type(blockStart_) && at <= off_type(blockStart_) + off_type(egptr() - eback())) {
    setg(eback(), eback() + (at - off_type(blockStart_)), egptr());
  } else {
    // Outside the block: the next read fills it from there.
    blockStart_ = off_t(at);
    setg(block_.data(), block_.data(), block_.data());
  }
  return pos;
}

}  // namespace zelmar
