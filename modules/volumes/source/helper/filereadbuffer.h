#pragma once
// A read-only stream buffer over a file that knows its own position. OpenVDB
// asks a stream for its position once per leaf it reads; a std::ifstream asks
// the kernel each time, one system call per leaf. Here the position comes from
// the buffer, and the file is read in large blocks.
#include <streambuf>
#include <string>
#include <vector>

namespace zelmar {

class FileReadBuffer : public std::streambuf {
 public:
  explicit FileReadBuffer(const std::string& path, size_t blockBytes = size_t(1) << 20);
  ~FileReadBuffer() override;
  FileReadBuffer(const FileReadBuffer&) = delete;
  FileReadBuffer& operator=(const FileReadBuffer&) = delete;

  bool IsOpen() const { return fd_ >= 0; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* s, std::streamsize count) override;
  pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) override;
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

 private:
  // Reads at `offset` into `to`, retrying interrupted calls; bytes read, 0 at the end or on failure.
  size_t ReadAt(char* to, size_t count, off_t offset);

  int fd_ = -1;
  std::vector<char> block_;
  off_t blockStart_ = 0;  // the file offset of eback()
};

}  // namespace zelmar
