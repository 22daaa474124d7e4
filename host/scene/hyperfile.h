#pragma once
// HyperFile: the typed, versioned binary stream that node data go through,
// for a scene on disk and for the copies that undo, the clipboard and memory
// keep. A header names the stream (magic, format version, file kind); every
// value after it starts with a byte that names its type, so a reader that
// expects an int32 and meets a string stops with an error instead of reading
// garbage. Every read checks its bounds; the first failure is kept with the
// byte offset where it happened, and every later read fails at once.
//
// Numbers are little-endian. Node lists (object trees, tag lists, the
// branches of plug-in nodes) are written without recursion, each node with
// its depth below the list's head; the plug-in data of a node sit in a block
// of known length at the node's registered disk level, so that a node whose
// plug-in is missing is kept as an opaque block and written back unchanged.
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/core/math.h"
#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/core/types.h"
#include "host/scene/basetime.h"

namespace zta {

class BaseContainer;
class BaseDocument;
class BaseLink;
class BaseList2D;
class CustomDataType;
class GeData;
class GeListHead;

// What a stream holds. Scene data in a file on disk is kind 1; node data
// write their heavy parts (grids) beside the scene then, and into the stream
// for every other kind.
enum : Int32 {
  HYPERFILE_KIND_SCENE = 1,
  HYPERFILE_KIND_UNDO = 2,
  HYPERFILE_KIND_CLIPBOARD = 3,
  HYPERFILE_KIND_MEMORY = 4,
};

// The class of the nodes of a list: what a reader must make of a type id.
enum class NODECLASS : uint8_t { OBJECT = 1, TAG = 2, SCENEHOOK = 3 };

class HyperFile {
 public:
  // The format this build writes, and the newest one it reads.
  static constexpr UInt32 kFormatVersion = 1;
  // Size of the header: magic (8 bytes), format version, file kind.
  static constexpr Int64 kHeaderSize = 16;
  // Limits that keep a damaged or hostile stream from exhausting the stack.
  static constexpr Int32 kMaxNesting = 64;
  static constexpr Int32 kMaxTreeDepth = 4096;

  HyperFile(const HyperFile&) = delete;
  HyperFile& operator=(const HyperFile&) = delete;
  ~HyperFile();

  // A stream that writes into memory, header included.
  static std::unique_ptr<HyperFile> OpenWrite(Int32 kind);
  // A stream that writes into an open file descriptor, in blocks of a few
  // megabytes, and patches block lengths in place.
  static std::unique_ptr<HyperFile> OpenWrite(Int32 kind, int fd);
  // A stream over `bytes` (not copied, kept alive by the caller). Checks the
  // header: the magic, a format version this build reads. The error names
  // the byte offset.
  static Result<std::unique_ptr<HyperFile>> OpenRead(const char* bytes, Int64 size);

  Int32 GetFileKind() const { return kind_; }
  // The format version of the stream: of the file when reading.
  UInt32 GetFormatVersion() const { return version_; }
  // The document whose nodes are read or written, for node data that need it.
  BaseDocument* GetDocument() const { return document_; }
  void SetDocument(BaseDocument* doc) { document_ = doc; }
  // Polled between nodes; a stop request fails the stream ("interrupted").
  void SetThread(ThreadRef thread) { thread_ = std::move(thread); }

  // ---- writing. Each returns false once the stream has failed.
  bool WriteInt32(Int32 v);
  bool WriteUInt32(UInt32 v);
  bool WriteInt64(Int64 v);
  bool WriteUInt64(UInt64 v);
  bool WriteBool(bool v);
  bool WriteFloat32(Float32 v);
  bool WriteFloat(Float v);
  bool WriteVector(const Vector& v);
  bool WriteMatrix(const Matrix& v);
  bool WriteString(const String& v);
  bool WriteTime(const BaseTime& v);
  bool WriteLink(const BaseLink& v);
  // A memory block: its length and its bytes.
  bool WriteMemory(const void* data, Int64 size);
  // `count` records of `elementSize` bytes, copied as they lie in memory.
  bool WriteArray(const void* data, Int64 count, Int32 elementSize);
  bool WriteContainer(const BaseContainer& bc);
  bool WriteGeData(const GeData& v);
  // A custom value through the class registered for its type; a value whose
  // class is not registered here is written back from its opaque bytes.
  bool WriteCustomData(const CustomDataType& v);
  // The nodes of the list, depth first, each with its parameters, its tags,
  // its host data and its plug-in data.
  bool WriteNodeList(const GeListHead& head, NODECLASS cls);

  // ---- reading. Each returns false (and leaves its output alone) once the
  // stream has failed; a value of another type than asked is a failure.
  bool ReadInt32(Int32* v);
  bool ReadUInt32(UInt32* v);
  bool ReadInt64(Int64* v);
  bool ReadUInt64(UInt64* v);
  bool ReadBool(bool* v);
  bool ReadFloat32(Float32* v);
  bool ReadFloat(Float* v);
  bool ReadVector(Vector* v);
  bool ReadMatrix(Matrix* v);
  bool ReadString(String* v);
  bool ReadTime(BaseTime* v);
  // The link names its node by the node's persistent id; it resolves in the
  // document once the node is there.
  bool ReadLink(BaseLink* v);
  bool ReadMemory(std::vector<char>* v);
  // An array of `elementSize` records: `destination(count)` gives where the
  // records go (room for `count` of them), or null to fail.
  template <typename F>
  bool ReadArray(Int32 elementSize, F&& destination) {
    Int64 count = 0;
    if (!ReadArrayHeader(elementSize, &count)) return false;
    void* dest = count > 0 ? destination(count) : nullptr;
    if (count > 0 && !dest) return Fail("no room for " + std::to_string(count) + " records");
    return ReadArrayData(dest, count * elementSize);
  }
  // Replaces what `bc` holds.
  bool ReadContainer(BaseContainer* bc);
  bool ReadGeData(GeData* v);
  bool ReadCustomData(std::shared_ptr<const CustomDataType>* v);
  // Appends the nodes of a list written by WriteNodeList to `head`.
  bool ReadNodeList(GeListHead* head, NODECLASS cls);

  // A whole document: its settings, its object tree and its scene hooks.
  bool WriteDocument(const BaseDocument& doc);
  // Into a fresh document.
  bool ReadDocument(BaseDocument* doc);

  // The end of a stream: a final mark, and no bytes after it.
  bool WriteEnd();
  bool ReadEnd();

  // ---- failures
  bool HasError() const { return failed_; }
  // "<what> at byte <offset>"; empty while nothing failed.
  String GetErrorText() const;
  Int64 GetErrorOffset() const { return errorOffset_; }
  // Node data that find their own data wrong fail the stream at the present place.
  bool SetError(const String& what) { return Fail(what); }
  // Bytes written or read so far, the header included.
  Int64 GetPosition() const { return pos_; }

  // The bytes of a stream written into memory (after the last write).
  const std::vector<char>& GetMemory() const { return buffer_; }
  std::vector<char> TakeMemory() { return std::move(buffer_); }
  // Writes out what is still buffered when writing into a file; false on failure.
  bool Flush();

 private:
  HyperFile() = default;

  // Writing.
  void Put(const void* data, size_t size);
  bool PutTag(uint8_t tag);
  template <typename T>
  void PutPod(const T& v) { Put(&v, sizeof(T)); }
  // A block: a length in front of the bytes that the block's writer adds.
  Int64 BeginBlock();
  bool EndBlock(Int64 lengthAt);
  void Patch(Int64 at, const void* data, size_t size);

  // Reading. A failure is reported at `at`, where the value started.
  bool Take(void* out, Int64 size, const char* what);
  bool Take(void* out, Int64 size, const char* what, Int64 at);
  bool ExpectTag(uint8_t tag, const char* what);
  bool PeekTag(uint8_t* tag);
  template <typename T>
  bool ReadPod(uint8_t tag, T* out);
  bool ReadArrayHeader(Int32 elementSize, Int64* count);
  bool ReadArrayData(void* dest, Int64 bytes);
  // Enters a block of the stream: reads stay inside it until LeaveBlock,
  // which moves to its end and gives back the outer limit.
  bool EnterBlock(Int64* end, Int64* outer, const char* what);
  void LeaveBlock(Int64 end, Int64 outer);
  bool ReadNode(GeListHead* head, NODECLASS cls, std::vector<BaseList2D*>& parents);
  bool WriteNode(const BaseList2D& node, NODECLASS cls, Int32 depth);
  bool WriteRaw(const std::vector<char>& bytes);
  bool CheckThread();

  bool Fail(const String& what);
  bool Fail(const String& what, Int64 at);

  Int32 kind_ = HYPERFILE_KIND_MEMORY;
  UInt32 version_ = kFormatVersion;
  BaseDocument* document_ = nullptr;
  ThreadRef thread_;

  // Writing: bytes not yet handed to `fd_` (all of them in memory), and the
  // offset of the first of them.
  std::vector<char> buffer_;
  Int64 flushed_ = 0;
  int fd_ = -1;
  bool writing_ = false;

  // Reading.
  const char* data_ = nullptr;
  Int64 size_ = 0;
  Int64 limit_ = 0;

  Int64 pos_ = 0;
  Int32 nesting_ = 0;
  bool failed_ = false;
  String error_;
  Int64 errorOffset_ = -1;
  // Persistent ids met while reading: each names one node.
  std::unordered_set<UInt64> markers_;
};

// The data of the host's own node classes beyond their parameters and tags
// (the segments of a spline, the particles of a group), inside a node's
// record; defined by the host's services.
bool WriteHostNodeData(const BaseList2D& node, HyperFile& hf);
bool ReadHostNodeData(BaseList2D& node, HyperFile& hf);
// Empty when a node just read is whole and consistent, else what is wrong
// with it (a polygon that names a point the object lacks).
String CheckHostNodeData(const BaseList2D& node);

}  // namespace zta
