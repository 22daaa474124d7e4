// The module's own readers of a tree's compressed chunks, in place of
// OpenVDB 10's. Its unzipFromStream and bloscFromStream read a chunk that the
// file marks as stored raw at the length the file states, into a buffer the
// node sized for what it expects, and compare the two only afterwards: a
// damaged file writes past that buffer by as much as it likes. They also
// allocate a compressed chunk's stated length before reading any of it.
//
// Every tree the module reads is read by its own instances of OpenVDB's node
// templates (it registers its grid types itself), and their calls bind to
// these definitions: in the plug-in the export map keeps them local, so they
// stand in for nobody else; a program that links the module's archive gets
// them before OpenVDB's library. The tests read damaged chunks through every
// way in and check that these are the ones that answer.
#include <blosc.h>
#include <zlib.h>

#include <openvdb/Exceptions.h>
#include <openvdb/io/Compression.h>

#include <istream>
#include <limits>
#include <sstream>
#include <vector>

namespace {

// The chunk's stated length, or -1 where the stream fails first.
int64_t ReadLength(std::istream& is) {
  int64_t n = 0;
  is.read(reinterpret_cast<char*>(&n), sizeof n);
  return is.good() ? n : -1;
}

[[noreturn]] void Refuse(const std::string& what) { OPENVDB_THROW(openvdb::IoError, what); }

std::string Text(const char* a, int64_t x, const char* b, uint64_t y, const char* c = "") {
  std::ostringstream out;
  out << a << x << b << y << c;
  return out.str();
}

// A raw chunk (stated as -length): its length is held to what the node
// expects before anything is read.
void ReadRaw(std::istream& is, int64_t stated, char* data, size_t numBytes) {
  if (stated == std::numeric_limits<int64_t>::min() || uint64_t(-stated) != numBytes)
    Refuse(Text("a raw chunk of the file states ", stated == std::numeric_limits<int64_t>::min() ? stated : -stated,
                " bytes where ", numBytes, " were expected"));
  if (data) is.read(data, std::streamsize(numBytes));
  else is.seekg(std::streamoff(numBytes), std::ios_base::cur);
  if (!is) Refuse("the file ends inside a raw chunk of " + std::to_string(numBytes) + " bytes");
}

// The `stated` bytes of a compressed chunk, taken as the stream holds them:
// a length beyond the stream's end fails at its end, not at an allocation.
std::vector<char> ReadCompressed(std::istream& is, int64_t stated) {
  constexpr uint64_t kStep = uint64_t(1) << 20;
  std::vector<char> out;
  while (out.size() < uint64_t(stated)) {
    const size_t at = out.size();
    const size_t step = size_t(std::min<uint64_t>(kStep, uint64_t(stated) - at));
    out.resize(at + step);
    is.read(out.data() + at, std::streamsize(step));
    if (size_t(is.gcount()) != step)
      Refuse(Text("a compressed chunk of the file states ", stated, " bytes, the file ends after ",
                  uint64_t(at) + uint64_t(is.gcount())));
  }
  return out;
}

// One chunk: its stated length, then the raw bytes (a length of -N) or a
// compressed block that `unpack` turns into the node's `numBytes`. Without
// `data` the chunk is passed over.
template <typename Unpack>
void ReadChunk(std::istream& is, char* data, size_t numBytes, Unpack&& unpack) {
  const int64_t stated = ReadLength(is);
  if (!is) Refuse("the file ends before a chunk's length");
  if (stated <= 0) return ReadRaw(is, stated, data, numBytes);
  if (!data) {
    is.seekg(std::streamoff(stated), std::ios_base::cur);
    return;
  }
  unpack(ReadCompressed(is, stated), stated);
}

}  // namespace

namespace openvdb {
OPENVDB_USE_VERSION_NAMESPACE
namespace OPENVDB_VERSION_NAME {
namespace io {

void unzipFromStream(std::istream& is, char* data, size_t numBytes) {
  ReadChunk(is, data, numBytes, [&](const std::vector<char>& zipped, int64_t) {
    uLongf unzipped = uLongf(numBytes);
    const int status = uncompress(reinterpret_cast<Bytef*>(data), &unzipped,
                                  reinterpret_cast<const Bytef*>(zipped.data()), uLong(zipped.size()));
    if (status != Z_OK || unzipped != numBytes)
      Refuse(Text("a zipped chunk of the file holds ", status == Z_OK ? int64_t(unzipped) : -1, " bytes where ",
                  numBytes, status == Z_OK ? " were expected" : " were expected (it is damaged)"));
  });
}

void bloscFromStream(std::istream& is, char* data, size_t numBytes) {
  ReadChunk(is, data, numBytes, [&](const std::vector<char>& packed, int64_t stated) {
    // Blosc reads as far as the chunk's own header says: that header must fit
    // the bytes there are and unpack to what the node expects.
    size_t unpacked = 0;
    if (blosc_cbuffer_validate(packed.data(), packed.size(), &unpacked) != 0 || unpacked != numBytes)
      Refuse(Text("a Blosc chunk of the file unpacks to ", int64_t(unpacked), " bytes where ", numBytes,
                  " were expected"));
    if (blosc_decompress_ctx(packed.data(), data, numBytes, 1) != int(numBytes))
      Refuse(Text("a Blosc chunk of the file is damaged (", stated, " bytes, ", numBytes, " expected)"));
  });
}

}  // namespace io
}  // namespace OPENVDB_VERSION_NAME
}  // namespace openvdb
