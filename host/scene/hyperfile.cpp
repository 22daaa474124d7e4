#include "host/scene/hyperfile.h"

#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/baselink.h"
#include "host/scene/baseobject.h"
#include "host/scene/customdataclass.h"
#include "host/scene/gedata.h"
#include "host/scene/opaquenodedata.h"
#include "host/scene/plugins.h"

namespace zta {

static_assert(std::endian::native == std::endian::little, "the stream is written in the machine's order");

namespace {

// Value tags: the byte in front of every value. Those of GeData's value types
// are their DATATYPE numbers.
enum TAG : uint8_t {
  T_NONE = 0,
  T_INT32 = 1,
  T_INT64 = 2,
  T_BOOL = 3,
  T_FLOAT = 4,
  T_VECTOR = 5,
  T_MATRIX = 6,
  T_STRING = 7,
  T_TIME = 8,
  T_LINK = 9,
  T_CONTAINER = 10,
  T_CUSTOM = 11,
  T_MEMORY = 12,
  T_FLOAT32 = 13,
  T_UINT32 = 14,
  T_UINT64 = 15,
  T_ARRAY = 16,
  T_BLOCK = 17,
  T_LIST = 32,
  T_NODE = 33,
  T_LISTEND = 34,
  T_END = 35,
};

// PNG's trick: a high byte, the name, and line ends that a text-mode copy would mangle.
constexpr char kMagic[8] = {'\x89', 'Z', 'T', 'A', '\r', '\n', '\x1a', '\n'};
constexpr size_t kFlushAt = size_t(4) << 20;

const char* TagName(uint8_t tag) {
  switch (tag) {
    case T_NONE: return "an empty value";
    case T_INT32: return "an int32";
    case T_INT64: return "an int64";
    case T_BOOL: return "a bool";
    case T_FLOAT: return "a float64";
    case T_VECTOR: return "a vector";
    case T_MATRIX: return "a matrix";
    case T_STRING: return "a string";
    case T_TIME: return "a time";
    case T_LINK: return "a link";
    case T_CONTAINER: return "a container";
    case T_CUSTOM: return "a custom value";
    case T_MEMORY: return "a memory block";
    case T_FLOAT32: return "a float32";
    case T_UINT32: return "a uint32";
    case T_UINT64: return "a uint64";
    case T_ARRAY: return "an array";
    case T_BLOCK: return "a block";
    case T_LIST: return "a node list";
    case T_NODE: return "a node";
    case T_LISTEND: return "the end of a node list";
    case T_END: return "the end of the stream";
    default: return nullptr;
  }
}

std::string DescribeTag(uint8_t tag) {
  if (const char* name = TagName(tag)) return name;
  return FormatString("an unknown tag (@)", int(tag));
}

const char* ClassName(NODECLASS cls) {
  switch (cls) {
    case NODECLASS::OBJECT: return "objects";
    case NODECLASS::TAG: return "tags";
    case NODECLASS::SCENEHOOK: return "scene hooks";
  }
  return "nodes";
}

// Counts a nesting level for as long as it lives.
struct Nest {
  Int32& depth;
  explicit Nest(Int32& d) : depth(d) { ++depth; }
  ~Nest() { --depth; }
};

// A name for messages: the node's name in quotes, or its type.
std::string NodeText(const BaseList2D& node) {
  return node.GetName().empty() ? FormatString("a node of type @", node.GetType())
                                : FormatString("'@' (type @)", node.GetName(), node.GetType());
}
}  // namespace

HyperFile::~HyperFile() = default;

// ---- opening

std::unique_ptr<HyperFile> HyperFile::OpenWrite(Int32 kind) {
  std::unique_ptr<HyperFile> hf(new HyperFile());
  hf->writing_ = true;
  hf->kind_ = kind;
  hf->buffer_.reserve(size_t(1) << 16);
  hf->Put(kMagic, sizeof(kMagic));
  hf->PutPod(kFormatVersion);
  hf->PutPod(kind);
  return hf;
}

std::unique_ptr<HyperFile> HyperFile::OpenWrite(Int32 kind, int fd) {
  std::unique_ptr<HyperFile> hf = OpenWrite(kind);
  hf->fd_ = fd;
  hf->buffer_.reserve(kFlushAt + (size_t(1) << 16));
  return hf;
}

Result<std::unique_ptr<HyperFile>> HyperFile::OpenRead(const char* bytes, Int64 size) {
  std::unique_ptr<HyperFile> hf(new HyperFile());
  hf->data_ = bytes;
  hf->size_ = hf->limit_ = std::max<Int64>(size, 0);
  if (hf->size_ < Int64(sizeof(kMagic)) || std::memcmp(bytes, kMagic, sizeof(kMagic)) != 0)
    return IoError("byte 0: not a scene file (it does not start with the scene file mark)");
  hf->pos_ = sizeof(kMagic);
  UInt32 version = 0;
  Int32 kind = 0;
  if (!hf->Take(&version, 4, "the format version", hf->pos_) || !hf->Take(&kind, 4, "the file kind", hf->pos_))
    return IoError(hf->GetErrorText());
  if (version == 0) return IoError("byte 8: format version 0 is not valid");
  if (version > kFormatVersion)
    return IoError(FormatString("byte 8: scene file format version @ is newer than this program reads (@)", version,
                                kFormatVersion));
  if (kind < HYPERFILE_KIND_SCENE || kind > HYPERFILE_KIND_MEMORY)
    return IoError(FormatString("byte 12: file kind @ is not known", kind));
  hf->version_ = version;
  hf->kind_ = kind;
  return hf;
}

// ---- failures

bool HyperFile::Fail(const String& what) { return Fail(what, pos_); }

bool HyperFile::Fail(const String& what, Int64 at) {
  if (!failed_) {
    failed_ = true;
    error_ = what;
    errorOffset_ = at;
  }
  return false;
}

String HyperFile::GetErrorText() const {
  if (!failed_) return {};
  return FormatString("byte @: @", errorOffset_, error_);
}

bool HyperFile::CheckThread() {
  if (thread_ && thread_->TestBreak()) return Fail("interrupted");
  return !failed_;
}

// ---- writing

void HyperFile::Put(const void* data, size_t size) {
  if (failed_ || size == 0) return;
  const size_t old = buffer_.size();
  buffer_.resize(old + size);
  std::memcpy(buffer_.data() + old, data, size);
  pos_ += Int64(size);
  if (fd_ >= 0 && buffer_.size() >= kFlushAt) Flush();
}

bool HyperFile::PutTag(uint8_t tag) {
  PutPod(tag);
  return !failed_;
}

bool HyperFile::Flush() {
  if (failed_) return false;
  if (fd_ < 0) return true;
  size_t done = 0;
  while (done < buffer_.size()) {
    const ssize_t n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return Fail(std::string("could not write: ") + std::strerror(n < 0 ? errno : EIO));
    done += size_t(n);
  }
  flushed_ += Int64(buffer_.size());
  buffer_.clear();
  return true;
}

void HyperFile::Patch(Int64 at, const void* data, size_t size) {
  if (failed_) return;
  const char* bytes = static_cast<const char*>(data);
  // What is still in the buffer is patched there, what has gone to the file in place.
  while (size > 0 && at < flushed_) {
    const size_t n = std::min<size_t>(size, size_t(flushed_ - at));
    const ssize_t w = ::pwrite(fd_, bytes, n, at);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      Fail(std::string("could not write: ") + std::strerror(w < 0 ? errno : EIO));
      return;
    }
    bytes += w;
    at += w;
    size -= size_t(w);
  }
  if (size > 0) std::memcpy(buffer_.data() + (at - flushed_), bytes, size);
}

Int64 HyperFile::BeginBlock() {
  PutTag(T_BLOCK);
  const Int64 at = pos_;
  PutPod(UInt64(0));
  return at;
}

bool HyperFile::EndBlock(Int64 lengthAt) {
  const UInt64 length = UInt64(pos_ - lengthAt - 8);
  Patch(lengthAt, &length, sizeof(length));
  return !failed_;
}

bool HyperFile::WriteInt32(Int32 v) { return PutTag(T_INT32) && (PutPod(v), !failed_); }
bool HyperFile::WriteUInt32(UInt32 v) { return PutTag(T_UINT32) && (PutPod(v), !failed_); }
bool HyperFile::WriteInt64(Int64 v) { return PutTag(T_INT64) && (PutPod(v), !failed_); }
bool HyperFile::WriteUInt64(UInt64 v) { return PutTag(T_UINT64) && (PutPod(v), !failed_); }
bool HyperFile::WriteBool(bool v) { return PutTag(T_BOOL) && (PutPod(uint8_t(v ? 1 : 0)), !failed_); }
bool HyperFile::WriteFloat32(Float32 v) { return PutTag(T_FLOAT32) && (PutPod(v), !failed_); }
bool HyperFile::WriteFloat(Float v) { return PutTag(T_FLOAT) && (PutPod(v), !failed_); }

bool HyperFile::WriteVector(const Vector& v) {
  const double d[3] = {v.x, v.y, v.z};
  return PutTag(T_VECTOR) && (Put(d, sizeof(d)), !failed_);
}

bool HyperFile::WriteMatrix(const Matrix& m) {
  const double d[12] = {m.off.x, m.off.y, m.off.z, m.v1.x, m.v1.y, m.v1.z,
                        m.v2.x,  m.v2.y,  m.v2.z,  m.v3.x, m.v3.y, m.v3.z};
  return PutTag(T_MATRIX) && (Put(d, sizeof(d)), !failed_);
}

bool HyperFile::WriteString(const String& v) {
  if (v.size() > std::numeric_limits<UInt32>::max()) return Fail("a string longer than 4 GB cannot be written");
  PutTag(T_STRING);
  PutPod(UInt32(v.size()));
  Put(v.data(), v.size());
  return !failed_;
}

bool HyperFile::WriteTime(const BaseTime& v) {
  PutTag(T_TIME);
  PutPod(v.GetNumerator());
  PutPod(v.GetDenominator());
  return !failed_;
}

bool HyperFile::WriteLink(const BaseLink& v) { return PutTag(T_LINK) && (PutPod(v.GetMarker()), !failed_); }

bool HyperFile::WriteMemory(const void* data, Int64 size) {
  if (size < 0 || (size > 0 && !data)) return Fail("a memory block without data cannot be written");
  PutTag(T_MEMORY);
  PutPod(UInt64(size));
  Put(data, size_t(size));
  return !failed_;
}

bool HyperFile::WriteArray(const void* data, Int64 count, Int32 elementSize) {
  if (count < 0 || elementSize <= 0 || (count > 0 && !data)) return Fail("an array without data cannot be written");
  PutTag(T_ARRAY);
  PutPod(elementSize);
  PutPod(UInt64(count));
  Put(data, size_t(count) * size_t(elementSize));
  return !failed_;
}

bool HyperFile::WriteRaw(const std::vector<char>& bytes) {
  Put(bytes.data(), bytes.size());
  return !failed_;
}

bool HyperFile::WriteContainer(const BaseContainer& bc) {
  if (nesting_ >= kMaxNesting) return Fail(FormatString("containers are nested deeper than @", kMaxNesting));
  Nest nest(nesting_);
  PutTag(T_CONTAINER);
  PutPod(bc.GetId());
  PutPod(UInt32(bc.GetCount()));
  for (const auto& [id, data] : bc) {
    PutPod(id);
    if (!WriteGeData(data)) return false;
  }
  return !failed_;
}

bool HyperFile::WriteGeData(const GeData& v) {
  switch (v.GetType()) {
    case DATATYPE::NONE: return PutTag(T_NONE);
    case DATATYPE::INT32: return WriteInt32(v.GetInt32());
    case DATATYPE::INT64: return WriteInt64(v.GetInt64());
    case DATATYPE::BOOL: return WriteBool(v.GetBool());
    case DATATYPE::FLOAT: return WriteFloat(v.GetFloat());
    case DATATYPE::VECTOR: return WriteVector(v.GetVector());
    case DATATYPE::MATRIX: return WriteMatrix(v.GetMatrix());
    case DATATYPE::STRING: return WriteString(v.GetString());
    case DATATYPE::TIME: return WriteTime(v.GetTime());
    case DATATYPE::LINK: return WriteLink(v.GetBaseLink());
    case DATATYPE::CONTAINER: return WriteContainer(*v.GetContainer());
    case DATATYPE::CUSTOM: {
      const CustomDataType* custom = v.GetCustomData();
      if (!custom) return PutTag(T_NONE);
      return WriteCustomData(*custom);
    }
  }
  return Fail("a value of an unknown type cannot be written");
}

bool HyperFile::WriteCustomData(const CustomDataType& v) {
  const Int32 typeId = v.GetCustomTypeId();
  const CustomDataTypeClass* cls = FindCustomDataTypeClass(typeId);
  const auto* opaque = dynamic_cast<const OpaqueCustomData*>(&v);
  if (!cls && !opaque) return Fail(FormatString("custom data of type @ has no registered class", typeId));
  if (nesting_ >= kMaxNesting) return Fail(FormatString("values are nested deeper than @", kMaxNesting));
  Nest nest(nesting_);
  PutTag(T_CUSTOM);
  PutPod(typeId);
  PutPod(opaque ? opaque->GetLevel() : cls->GetDiskLevel());
  const Int64 block = BeginBlock();
  if (opaque) {
    WriteRaw(opaque->GetBytes());
  } else if (!cls->Write(v, *this)) {
    return Fail(FormatString("the custom data of type @ (@) could not be written", typeId, cls->GetName()));
  }
  return EndBlock(block);
}

// ---- reading

bool HyperFile::Take(void* out, Int64 size, const char* what) { return Take(out, size, what, pos_); }

bool HyperFile::Take(void* out, Int64 size, const char* what, Int64 at) {
  if (failed_) return false;
  if (size < 0 || size > limit_ - pos_) {
    if (limit_ == size_)
      return Fail(FormatString("truncated: @ needs @ bytes, @ remain", what, size, size_ - pos_), at);
    return Fail(FormatString("@ runs past the end of its block at byte @", what, limit_), at);
  }
  if (size > 0) std::memcpy(out, data_ + pos_, size_t(size));
  pos_ += size;
  return true;
}

bool HyperFile::PeekTag(uint8_t* tag) {
  if (failed_) return false;
  if (pos_ >= limit_) {
    if (limit_ == size_) return Fail("truncated: the stream ends where a value should start");
    return Fail(FormatString("a value runs past the end of its block at byte @", limit_));
  }
  *tag = uint8_t(data_[pos_]);
  return true;
}

bool HyperFile::ExpectTag(uint8_t tag, const char* what) {
  uint8_t found = 0;
  if (!PeekTag(&found)) return false;
  if (found != tag) return Fail(FormatString("expected @, found @", what, DescribeTag(found)));
  ++pos_;
  return true;
}

template <typename T>
bool HyperFile::ReadPod(uint8_t tag, T* out) {
  const Int64 at = pos_;
  const char* what = TagName(tag);
  if (!ExpectTag(tag, what)) return false;
  T v;
  if (!Take(&v, sizeof(T), what, at)) return false;
  *out = v;
  return true;
}

bool HyperFile::ReadInt32(Int32* v) { return ReadPod(T_INT32, v); }
bool HyperFile::ReadUInt32(UInt32* v) { return ReadPod(T_UINT32, v); }
bool HyperFile::ReadInt64(Int64* v) { return ReadPod(T_INT64, v); }
bool HyperFile::ReadUInt64(UInt64* v) { return ReadPod(T_UINT64, v); }
bool HyperFile::ReadFloat32(Float32* v) { return ReadPod(T_FLOAT32, v); }
bool HyperFile::ReadFloat(Float* v) { return ReadPod(T_FLOAT, v); }

bool HyperFile::ReadBool(bool* v) {
  const Int64 at = pos_;
  uint8_t b = 0;
  if (!ReadPod(T_BOOL, &b)) return false;
  if (b > 1) return Fail(FormatString("a bool holds @", int(b)), at);
  *v = b != 0;
  return true;
}

bool HyperFile::ReadVector(Vector* v) {
  std::array<double, 3> d;
  if (!ReadPod(T_VECTOR, &d)) return false;
  *v = Vector(d[0], d[1], d[2]);
  return true;
}

bool HyperFile::ReadMatrix(Matrix* v) {
  std::array<double, 12> d;
  if (!ReadPod(T_MATRIX, &d)) return false;
  *v = Matrix{{d[0], d[1], d[2]}, {d[3], d[4], d[5]}, {d[6], d[7], d[8]}, {d[9], d[10], d[11]}};
  return true;
}

bool HyperFile::ReadString(String* v) {
  const Int64 at = pos_;
  UInt32 length = 0;
  if (!ReadPod(T_STRING, &length)) return false;
  // The length is checked against the bytes there are before anything is allocated.
  if (Int64(length) > limit_ - pos_) return Take(nullptr, length, "a string", at);
  v->assign(data_ + pos_, length);
  pos_ += length;
  return true;
}

bool HyperFile::ReadTime(BaseTime* v) {
  const Int64 at = pos_;
  std::array<Int64, 2> d;
  if (!ReadPod(T_TIME, &d)) return false;
  constexpr Int64 kMin = std::numeric_limits<Int64>::min();
  if (d[1] <= 0 || d[0] == kMin) return Fail(FormatString("a time of @/@ seconds is not valid", d[0], d[1]), at);
  *v = BaseTime(d[0], d[1]);
  return true;
}

bool HyperFile::ReadLink(BaseLink* v) {
  UInt64 marker = 0;
  if (!ReadPod(T_LINK, &marker)) return false;
  *v = BaseLink();
  v->marker_ = marker;
  return true;
}

bool HyperFile::ReadMemory(std::vector<char>* v) {
  const Int64 at = pos_;
  UInt64 size = 0;
  if (!ReadPod(T_MEMORY, &size)) return false;
  if (size > UInt64(limit_ - pos_)) return Take(nullptr, Int64(std::min<UInt64>(size, INT64_MAX)), "a memory block", at);
  v->assign(data_ + pos_, data_ + pos_ + size);
  pos_ += Int64(size);
  return true;
}

bool HyperFile::ReadArrayHeader(Int32 elementSize, Int64* count) {
  const Int64 at = pos_;
  if (!ExpectTag(T_ARRAY, "an array")) return false;
  Int32 size = 0;
  UInt64 n = 0;
  if (!Take(&size, 4, "an array", at) || !Take(&n, 8, "an array", at)) return false;
  if (size != elementSize)
    return Fail(FormatString("expected records of @ bytes, found records of @", elementSize, size), at);
  if (n > UInt64(limit_ - pos_) / UInt64(elementSize))
    return Take(nullptr, Int64(std::min<UInt64>(n, INT64_MAX / elementSize)) * elementSize, "an array", at);
  *count = Int64(n);
  return true;
}

bool HyperFile::ReadArrayData(void* dest, Int64 bytes) { return Take(dest, bytes, "an array"); }

bool HyperFile::EnterBlock(Int64* end, Int64* outer, const char* what) {
  const Int64 at = pos_;
  UInt64 length = 0;
  if (!ExpectTag(T_BLOCK, what) || !Take(&length, 8, what, at)) return false;
  if (length > UInt64(limit_ - pos_)) return Take(nullptr, Int64(std::min<UInt64>(length, INT64_MAX)), what, at);
  *end = pos_ + Int64(length);
  *outer = limit_;
  limit_ = *end;
  return true;
}

void HyperFile::LeaveBlock(Int64 end, Int64 outer) {
  limit_ = outer;
  if (!failed_) pos_ = end;
}

bool HyperFile::ReadContainer(BaseContainer* bc) {
  const Int64 at = pos_;
  if (nesting_ >= kMaxNesting) return Fail(FormatString("containers are nested deeper than @", kMaxNesting));
  Nest nest(nesting_);
  Int32 id = 0;
  UInt32 count = 0;
  if (!ExpectTag(T_CONTAINER, "a container") || !Take(&id, 4, "a container", at) ||
      !Take(&count, 4, "a container", at))
    return false;
  // Each entry takes at least five bytes: a count beyond that is a damaged file.
  if (Int64(count) > (limit_ - pos_) / 5) return Take(nullptr, Int64(count) * 5, "a container", at);
  // Room grows with what is read, not with what the count claims.
  std::vector<std::pair<Int32, GeData>> entries;
  entries.reserve(std::min<UInt32>(count, 256));
  std::unordered_set<Int32> ids;
  ids.reserve(std::min<UInt32>(count, 256));
  for (UInt32 i = 0; i < count; ++i) {
    const Int64 entryAt = pos_;
    Int32 key = 0;
    if (!Take(&key, 4, "a container entry")) return false;
    if (!ids.insert(key).second) return Fail(FormatString("the id @ appears twice in one container", key), entryAt);
    GeData value;
    if (!ReadGeData(&value)) return false;
    entries.emplace_back(key, std::move(value));
  }
  // The ids are known to be unique: the entries go in without SetData's search.
  bc->id_ = id;
  bc->entries_ = std::move(entries);
  ++bc->dirty_;
  return true;
}

bool HyperFile::ReadGeData(GeData* v) {
  uint8_t tag = 0;
  if (!PeekTag(&tag)) return false;
  switch (tag) {
    case T_NONE: ++pos_; *v = GeData(); return true;
    case T_INT32: { Int32 x; if (!ReadInt32(&x)) return false; *v = GeData(x); return true; }
    case T_INT64: { Int64 x; if (!ReadInt64(&x)) return false; *v = GeData(x); return true; }
    case T_BOOL: { bool x; if (!ReadBool(&x)) return false; *v = GeData(x); return true; }
    case T_FLOAT: { Float x; if (!ReadFloat(&x)) return false; *v = GeData(x); return true; }
    case T_VECTOR: { Vector x; if (!ReadVector(&x)) return false; *v = GeData(x); return true; }
    case T_MATRIX: { Matrix x; if (!ReadMatrix(&x)) return false; *v = GeData(x); return true; }
    case T_STRING: { String x; if (!ReadString(&x)) return false; *v = GeData(x); return true; }
    case T_TIME: { BaseTime x; if (!ReadTime(&x)) return false; *v = GeData(x); return true; }
    case T_LINK: { BaseLink x; if (!ReadLink(&x)) return false; *v = GeData(x); return true; }
    case T_CONTAINER: {
      BaseContainer x;
      if (!ReadContainer(&x)) return false;
      *v = GeData(x);
      return true;
    }
    case T_CUSTOM: {
      std::shared_ptr<const CustomDataType> x;
      if (!ReadCustomData(&x)) return false;
      *v = GeData(std::move(x));
      return true;
    }
    default: return Fail(FormatString("expected a value, found @", DescribeTag(tag)));
  }
}

bool HyperFile::ReadCustomData(std::shared_ptr<const CustomDataType>* v) {
  const Int64 at = pos_;
  if (nesting_ >= kMaxNesting) return Fail(FormatString("values are nested deeper than @", kMaxNesting));
  Nest nest(nesting_);
  Int32 typeId = 0, level = 0;
  if (!ExpectTag(T_CUSTOM, "a custom value") || !Take(&typeId, 4, "a custom value", at) ||
      !Take(&level, 4, "a custom value", at))
    return false;
  Int64 end = 0, outer = 0;
  if (!EnterBlock(&end, &outer, "a custom value")) return false;
  const CustomDataTypeClass* cls = FindCustomDataTypeClass(typeId);
  if (!cls) {
    // A type this build does not know keeps its bytes.
    *v = std::make_shared<OpaqueCustomData>(typeId, level, std::vector<char>(data_ + pos_, data_ + end));
    LeaveBlock(end, outer);
    return true;
  }
  std::unique_ptr<CustomDataType> value = cls->Read(*this, level);
  if (!value || failed_)
    return Fail(FormatString("the custom data of type @ (@) could not be read", typeId, cls->GetName()), at);
  if (value->GetCustomTypeId() != typeId)
    return Fail(FormatString("the class of custom type @ made a value of type @", typeId, value->GetCustomTypeId()), at);
  LeaveBlock(end, outer);
  *v = std::move(value);
  return true;
}

bool HyperFile::WriteEnd() {
  PutTag(T_END);
  return Flush();
}

bool HyperFile::ReadEnd() {
  if (!ExpectTag(T_END, "the end of the stream")) return false;
  if (pos_ != size_) return Fail(FormatString("@ bytes follow the end of the stream", size_ - pos_));
  return true;
}

// ---- nodes

bool HyperFile::WriteNodeList(const GeListHead& head, NODECLASS cls) {
  if (nesting_ >= kMaxNesting) return Fail(FormatString("node lists are nested deeper than @", kMaxNesting));
  Nest nest(nesting_);
  UInt64 count = 0;
  WalkTree(const_cast<GeListHead*>(&head), [&](GeListNode* n) { count += n != &head; });
  PutTag(T_LIST);
  PutPod(uint8_t(cls));
  PutPod(count);
  GeListNode* n = head.GetFirst();
  Int32 depth = 0;
  while (n) {
    if (!WriteNode(*static_cast<const BaseList2D*>(n), cls, depth)) return false;
    if (n->GetDown()) {
      n = n->GetDown();
      ++depth;
      continue;
    }
    while (n && !n->GetNext()) {
      n = n->GetUp();
      --depth;
    }
    if (n) n = n->GetNext();
  }
  return PutTag(T_LISTEND);
}

bool HyperFile::WriteNode(const BaseList2D& node, NODECLASS cls, Int32 depth) {
  if (!CheckThread()) return false;
  const auto* op = dynamic_cast<const BaseObject*>(&node);
  if (cls == NODECLASS::OBJECT && !op) return Fail("a list of objects holds " + NodeText(node) + ", not an object");
  PutTag(T_NODE);
  PutPod(node.GetType());
  PutPod(node.GetMarker());
  PutPod(depth);
  WriteString(node.GetName());
  WriteUInt32(node.GetAllBits());
  if (!WriteContainer(*node.GetDataInstance())) return false;
  if (cls == NODECLASS::OBJECT) {
    WriteMatrix(op->GetRelMl());
    WriteMatrix(op->GetFrozenMatrix());
    WriteInt32(op->GetInfo());
    WriteInt32(op->GetEditorMode());
    WriteInt32(op->GetRenderMode());
    WriteBool(op->GetDeformMode());
    if (!WriteNodeList(*const_cast<BaseObject*>(op)->GetTagListHead(), NODECLASS::TAG)) return false;
  }

  const Int64 host = BeginBlock();
  if (const auto* tag = dynamic_cast<const VariableTag*>(&node))
    WriteArray(tag->GetLowlevelDataAddressR(), tag->GetDataCount(), tag->GetDataSize());
  if (!WriteHostNodeData(node, *this)) return Fail("the data of " + NodeText(node) + " could not be written");
  if (!EndBlock(host)) return false;

  const NodeData* data = node.GetNodeData();
  WriteBool(data != nullptr);
  if (!data) return !failed_;
  const auto* opaque = dynamic_cast<const OpaqueNodeData*>(data);
  const PluginInfo* info = opaque ? nullptr : FindPlugin(node.GetType());
  WriteInt32(opaque ? opaque->GetLevel() : info ? info->diskLevel : 0);
  const Int64 block = BeginBlock();
  if (opaque) {
    WriteRaw(opaque->GetBytes());
  } else if (!data->WriteNode(&node, this)) {
    return Fail("the plug-in data of " + NodeText(node) + " could not be written");
  }
  return EndBlock(block);
}

bool HyperFile::ReadNodeList(GeListHead* head, NODECLASS cls) {
  const Int64 at = pos_;
  if (nesting_ >= kMaxNesting) return Fail(FormatString("node lists are nested deeper than @", kMaxNesting));
  Nest nest(nesting_);
  uint8_t found = 0;
  UInt64 count = 0;
  if (!ExpectTag(T_LIST, "a node list") || !Take(&found, 1, "a node list", at) || !Take(&count, 8, "a node list", at))
    return false;
  if (found != uint8_t(cls))
    return Fail(FormatString("expected a list of @, found a list of class @", ClassName(cls), int(found)), at);
  if (!head && cls != NODECLASS::SCENEHOOK) return Fail("a node list has no place to go", at);
  std::vector<BaseList2D*> parents;
  UInt64 read = 0;
  for (;;) {
    uint8_t tag = 0;
    if (!PeekTag(&tag)) return false;
    if (tag == T_LISTEND) {
      ++pos_;
      break;
    }
    if (!ReadNode(head, cls, parents)) return false;
    ++read;
  }
  if (read != count) return Fail(FormatString("the list says it holds @ nodes, it holds @", count, read), at);
  return true;
}

bool HyperFile::ReadNode(GeListHead* head, NODECLASS cls, std::vector<BaseList2D*>& parents) {
  if (!CheckThread()) return false;
  const Int64 at = pos_;
  Int32 type = 0, depth = 0;
  UInt64 marker = 0;
  if (!ExpectTag(T_NODE, "a node") || !Take(&type, 4, "a node", at) || !Take(&marker, 8, "a node", at) ||
      !Take(&depth, 4, "a node", at))
    return false;
  if (marker == 0) return Fail("a node without id", at);
  if (!markers_.insert(marker).second) return Fail(FormatString("the node id @ is used twice", marker), at);
  if (depth < 0 || size_t(depth) > parents.size() || (cls != NODECLASS::OBJECT && depth > 0))
    return Fail(FormatString("a node at depth @ follows one at depth @", depth, Int64(parents.size()) - 1), at);
  if (depth >= kMaxTreeDepth) return Fail(FormatString("objects are nested deeper than @", kMaxTreeDepth), at);

  String name;
  UInt32 bits = 0;
  BaseContainer data;
  if (!ReadString(&name) || !ReadUInt32(&bits) || !ReadContainer(&data)) return false;
  Matrix rel, frozen;
  Int32 info = 0, editorMode = MODE_UNDEF, renderMode = MODE_UNDEF;
  bool deformMode = true;
  if (cls == NODECLASS::OBJECT &&
      (!ReadMatrix(&rel) || !ReadMatrix(&frozen) || !ReadInt32(&info) || !ReadInt32(&editorMode) ||
       !ReadInt32(&renderMode) || !ReadBool(&deformMode)))
    return false;

  // The node: of its class when this build knows the type, else a node that
  // keeps its plug-in data as bytes.
  const PluginInfo* plugin = FindPlugin(type);
  BaseList2D* node = nullptr;
  std::unique_ptr<BaseList2D> owned;
  OpaqueNodeData* opaque = nullptr;
  auto makeOpaque = [&]() {
    auto data = std::make_unique<OpaqueNodeData>();
    opaque = data.get();
    return data;
  };
  switch (cls) {
    case NODECLASS::OBJECT: {
      owned = BaseObject::Alloc(type);
      if (!owned && plugin && plugin->type == PLUGINTYPE::OBJECT)
        return Fail(FormatString("an object of type @ (@) could not be made", type, plugin->name), at);
      if (!owned) owned = BaseObject::AllocWithData(type, makeOpaque(), info);
      break;
    }
    case NODECLASS::TAG: {
      owned = BaseTag::Alloc(type);
      if (!owned && plugin && plugin->type == PLUGINTYPE::TAG)
        return Fail(FormatString("a tag of type @ (@) could not be made", type, plugin->name), at);
      if (!owned) owned = BaseTag::AllocWithData(type, makeOpaque());
      break;
    }
    case NODECLASS::SCENEHOOK: {
      if (!document_) return Fail("a scene hook is read without a document", at);
      if (plugin && plugin->type == PLUGINTYPE::SCENEHOOK) {
        node = document_->FindSceneHook(type);
        if (!node) return Fail(FormatString("the scene hook @ (@) could not be made", type, plugin->name), at);
      } else {
        node = document_->InsertSceneHook(type, makeOpaque());
      }
      break;
    }
  }
  if (owned) node = owned.get();
  if (!node) return Fail(FormatString("out of memory making a node of type @", type), at);

  node->SetMarker(marker);
  BaseList2D::ReserveMarker(marker);
  node->name_ = std::move(name);
  node->bits_ = bits;
  node->data_ = std::move(data);

  // The node goes into its tree first, so that its plug-in finds its document.
  // The last node read at its depth, if any, is its previous sibling: it goes
  // in after that one, without a walk along the siblings.
  if (owned) {
    const bool inserted = size_t(depth) < parents.size()
                              ? owned->InsertAfter(parents[size_t(depth)])
                              : owned->InsertUnderLast(depth == 0 ? static_cast<GeListNode*>(head) : parents[size_t(depth - 1)]);
    if (!inserted) return Fail("a node could not be put into its tree", at);
    owned.release();
  }
  parents.resize(size_t(depth));
  parents.push_back(node);
  if (cls == NODECLASS::OBJECT) {
    auto* op = static_cast<BaseObject*>(node);
    op->SetFrozenMatrix(frozen);
    op->SetRelMl(rel);
    op->SetEditorMode(editorMode);
    op->SetRenderMode(renderMode);
    op->SetDeformMode(deformMode);
    // The file's tags replace those that the blank object was made with.
    op->GetTagListHead()->FlushAll();
    if (!ReadNodeList(op->GetTagListHead(), NODECLASS::TAG)) return false;
  }

  Int64 end = 0, outer = 0;
  if (!EnterBlock(&end, &outer, "the data of a node")) return false;
  if (auto* tag = dynamic_cast<VariableTag*>(node)) {
    const bool ok = ReadArray(tag->GetDataSize(), [&](Int64 count) -> void* {
      if (count > std::numeric_limits<Int32>::max() || !tag->Resize(Int32(count))) return nullptr;
      return tag->GetLowlevelDataAddressW();
    });
    if (!ok) return false;
  }
  if (!ReadHostNodeData(*node, *this) || failed_)
    return Fail("the data of " + NodeText(*node) + " could not be read", at);
  LeaveBlock(end, outer);

  bool hasPlugin = false;
  if (!ReadBool(&hasPlugin)) return false;
  if (hasPlugin) {
    Int32 level = 0;
    if (!ReadInt32(&level)) return false;
    const Int64 blockAt = pos_;
    if (!EnterBlock(&end, &outer, "the plug-in data of a node")) return false;
    if (opaque) {
      opaque->Set(level, std::vector<char>(data_ + pos_, data_ + end));
    } else if (NodeData* nd = node->GetNodeData()) {
      if (!nd->ReadNode(node, this, level) || failed_)
        return Fail(FormatString("the plug-in data of @ at level @ could not be read", NodeText(*node), level), blockAt);
    }
    LeaveBlock(end, outer);
  }
  if (String wrong = CheckHostNodeData(*node); !wrong.empty()) return Fail(wrong, at);
  return !failed_;
}

// ---- documents

bool HyperFile::WriteDocument(const BaseDocument& doc) {
  PutTag(T_NODE);
  PutPod(doc.GetType());
  PutPod(doc.GetMarker());
  if (!WriteContainer(*doc.GetDataInstance())) return false;
  WriteTime(doc.GetTime());
  WriteTime(doc.GetMinTime());
  WriteTime(doc.GetMaxTime());
  WriteInt32(doc.GetFps());
  BaseLink active;
  active.SetLink(doc.GetActiveObject());
  WriteLink(active);
  auto& d = const_cast<BaseDocument&>(doc);
  if (!WriteNodeList(*d.GetObjectListHead(), NODECLASS::OBJECT)) return false;
  return WriteNodeList(*d.GetSceneHookListHead(), NODECLASS::SCENEHOOK);
}

bool HyperFile::ReadDocument(BaseDocument* doc) {
  const Int64 at = pos_;
  document_ = doc;
  Int32 type = 0;
  UInt64 marker = 0;
  if (!ExpectTag(T_NODE, "a document") || !Take(&type, 4, "a document", at) || !Take(&marker, 8, "a document", at))
    return false;
  if (type != HOST_TYPE_DOCUMENT) return Fail(FormatString("expected a document, found a node of type @", type), at);
  if (marker == 0 || !markers_.insert(marker).second) return Fail("the document has no valid id", at);
  doc->SetMarker(marker);
  BaseList2D::ReserveMarker(marker);
  BaseContainer data;
  if (!ReadContainer(&data)) return false;
  doc->data_ = std::move(data);

  BaseTime time, minTime, maxTime;
  Int32 fps = 0;
  BaseLink active;
  const Int64 settingsAt = pos_;
  if (!ReadTime(&time) || !ReadTime(&minTime) || !ReadTime(&maxTime) || !ReadInt32(&fps) || !ReadLink(&active))
    return false;
  if (!doc->SetFps(fps)) return Fail(FormatString("a frame rate of @ is not valid", fps), settingsAt);
  if (!doc->SetTimeRange(minTime, maxTime)) return Fail("the time range ends before it starts", settingsAt);
  doc->SetTime(time);

  if (!ReadNodeList(doc->GetObjectListHead(), NODECLASS::OBJECT)) return false;
  if (!ReadNodeList(doc->GetSceneHookListHead(), NODECLASS::SCENEHOOK)) return false;
  doc->SetActiveObject(static_cast<BaseObject*>(active.GetLink(doc, HOST_TYPE_OBJECT)));
  return !failed_;
}

}  // namespace zta
