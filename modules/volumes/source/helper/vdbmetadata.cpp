#include "modules/volumes/source/helper/vdbmetadata.h"

#include <openvdb/io/DelayedLoadMetadata.h>

#include <cstdint>
#include <limits>

#include "host/core/format.h"

namespace zelmar {

namespace {

template <typename T>
const T* As(const openvdb::Metadata& m) {
  return &static_cast<const openvdb::TypedMetadata<T>&>(m).value();
}

template <typename Out, typename VdbMat>
Out ToMat44(const VdbMat& m) {
  Out r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) r(i, j) = m(i, j);
  return r;
}

template <typename VdbMat, typename In>
VdbMat FromMat44(const In& m) {
  VdbMat r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) r(i, j) = m(i, j);
  return r;
}

Data ToData(const openvdb::Metadata& m) {
  using namespace openvdb;
  const Name t = m.typeName();
  if (t == "string") return *As<std::string>(m);
  if (t == "double") return *As<double>(m);
  if (t == "float") return *As<float>(m);
  if (t == "bool") return *As<bool>(m);
  if (t == "int32") return *As<int32_t>(m);
  if (t == "int64") return *As<int64_t>(m);
  if (t == "mat4d") return ToMat44<zta::Matrix4d64>(*As<Mat4d>(m));
  if (t == "mat4s") return ToMat44<zta::Matrix4d32>(*As<Mat4s>(m));
  if (t == "vec2d") { const auto& v = *As<Vec2d>(m); return zta::Vector2d64{v[0], v[1]}; }
  if (t == "vec2s") { const auto& v = *As<Vec2s>(m); return zta::Vector2d32{v[0], v[1]}; }
  if (t == "vec2i") { const auto& v = *As<Vec2i>(m); return zta::IntVector2d32{v[0], v[1]}; }
  if (t == "vec3d") { const auto& v = *As<Vec3d>(m); return zta::Vector64(v[0], v[1], v[2]); }
  if (t == "vec3s") { const auto& v = *As<Vec3s>(m); return zta::Vector32(v[0], v[1], v[2]); }
  if (t == "vec3i") { const auto& v = *As<Vec3i>(m); return zta::IntVector32(v[0], v[1], v[2]); }
  return Data();
}

openvdb::Metadata::Ptr ToMetadata(const Data& d) {
  using namespace openvdb;
  return std::visit(
      [](const auto& v) -> Metadata::Ptr {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) return std::make_shared<StringMetadata>(v);
        else if constexpr (std::is_same_v<T, double>) return std::make_shared<DoubleMetadata>(v);
        else if constexpr (std::is_same_v<T, float>) return std::make_shared<FloatMetadata>(v);
        else if constexpr (std::is_same_v<T, bool>) return std::make_shared<BoolMetadata>(v);
        else if constexpr (std::is_same_v<T, int32_t>) return std::make_shared<Int32Metadata>(v);
        else if constexpr (std::is_same_v<T, int64_t>) return std::make_shared<Int64Metadata>(v);
        else if constexpr (std::is_same_v<T, zta::Matrix4d64>) return std::make_shared<Mat4DMetadata>(FromMat44<Mat4d>(v));
        else if constexpr (std::is_same_v<T, zta::Matrix4d32>) return std::make_shared<Mat4SMetadata>(FromMat44<Mat4s>(v));
        else if constexpr (std::is_same_v<T, zta::Vector2d64>) return std::make_shared<Vec2DMetadata>(Vec2d(v.x, v.y));
        else if constexpr (std::is_same_v<T, zta::Vector2d32>) return std::make_shared<Vec2SMetadata>(Vec2s(v.x, v.y));
        else if constexpr (std::is_same_v<T, zta::IntVector2d32>) return std::make_shared<Vec2IMetadata>(Vec2i(v.x, v.y));
        else if constexpr (std::is_same_v<T, zta::Vector64>) return std::make_shared<Vec3DMetadata>(Vec3d(v.x, v.y, v.z));
        else if constexpr (std::is_same_v<T, zta::Vector32>) return std::make_shared<Vec3SMetadata>(Vec3s(v.x, v.y, v.z));
        else if constexpr (std::is_same_v<T, zta::IntVector32>) return std::make_shared<Vec3IMetadata>(Vec3i(v.x, v.y, v.z));
        else return nullptr;
      },
      d.GetValue());
}

}  // namespace

MetaDataArray MetaMapToArray(const openvdb::MetaMap& map) {
  MetaDataArray out;
  for (auto it = map.beginMeta(); it != map.endMeta(); ++it) {
    if (!it->second) continue;
    Data d = ToData(*it->second);
    if (d.IsEmpty()) continue;
    DataDictionary entry;
    entry.Set(it->first, std::move(d));
    out.push_back(std::move(entry));
  }
  return out;
}

openvdb::MetaMap::Ptr DictionaryToMetaMap(const DataDictionary& dict) {
  auto map = std::make_shared<openvdb::MetaMap>();
  for (const auto& [name, value] : dict) {
    if (auto m = ToMetadata(value)) map->insertMeta(name, *m);
  }
  return map;
}


namespace {

// A name read from a damaged file, fit for one line of an error.
std::string Quoted(const std::string& name) {
  constexpr size_t kMost = 64;
  return "\"" + zta::OneLine(name.substr(0, kMost)) + (name.size() > kMost ? "...\"" : "\"");
}

// A forward walk over a .vdb stream that knows how much is left of it.
class StatedSizeWalk {
 public:
  StatedSizeWalk(std::istream& in, uint64_t end) : in_(in), end_(end) {}

  template <typename T>
  bool Read(T& value) {
    in_.read(reinterpret_cast<char*>(&value), sizeof(T));
    return size_t(in_.gcount()) == sizeof(T);
  }
  bool Skip(uint64_t bytes) { return bytes <= Left() && bool(in_.seekg(std::streamoff(bytes), std::ios::cur)); }
  uint64_t Size() const { return end_; }
  // Whether the positions lie in the file, in order.
  bool Within(int64_t a, int64_t b, int64_t c) const { return 0 <= a && a <= b && b <= c && uint64_t(c) <= end_; }
  bool SeekTo(int64_t pos) { return pos >= 0 && uint64_t(pos) <= end_ && bool(in_.seekg(std::streamoff(pos))); }
  uint64_t Left() {
    const std::streamoff at = in_.tellg();
    return at < 0 || uint64_t(at) > end_ ? 0 : end_ - uint64_t(at);
  }

  // Whether `stated` fits in what is left; else `why` says "WHAT states N UNIT
  // M[ LEFTUNIT] left in the file".
  bool Fits(uint64_t stated, const std::string& what, const char* unit, std::string& why, const char* leftUnit = "") {
    if (stated <= Left()) return true;
    why = zta::FormatString("@ states @ @ @@ left in the file", what, stated, unit, Left(), leftUnit);
    return false;
  }

  // A length-prefixed string as OpenVDB's readString reads it; false when the
  // stream ends or `why` says it states too much.
  bool String(const char* what, std::string& out, std::string& why) {
    uint32_t size = 0;
    if (!Read(size)) return false;
    if (!Fits(size, what, "bytes, more than the", why)) return false;
    out.resize(size);
    in_.read(out.data(), size);
    return size_t(in_.gcount()) == size;
  }

  // The leaf table of OpenVDB's delayed loading: a leaf count, then the mask
  // (a byte a leaf) and the sizes (eight bytes a leaf), each after its stored
  // size, 0 when stored raw. OpenVDB sizes both tables by the count first;
  // every leaf takes more than a byte of the tree further on, so a count
  // beyond the bytes left is refused. On return the walk stands behind it.
  bool DelayedLoad(const std::string& name, const std::string& owner, std::string& why) {
    uint32_t count = 0;
    if (!Read(count)) return false;
    const std::string entry = "metadata " + name + " of " + owner;
    if (!Fits(count, entry, "leaves, more than the", why, " bytes")) return false;
    for (const size_t valueBytes : {sizeof(int8_t), sizeof(int64_t)}) {
      uint32_t stored = 0;
      if (!Read(stored)) return false;
      // The largest size stands for sizes not stored.
      if (valueBytes == sizeof(int64_t) && stored == std::numeric_limits<uint32_t>::max()) break;
      const uint64_t bytes = stored ? stored : uint64_t(count) * valueBytes;
      if (!Fits(bytes, entry, "bytes, more than the", why) || !Skip(bytes)) return false;
    }
    return true;
  }

  // A metadata map as MetaMap::readMeta reads it. Registered types other than
  // strings read their own size whatever the entry states.
  bool MetaMap(const std::string& owner, std::string& why) {
    uint32_t count = 0;
    if (!Read(count)) return false;
    for (uint32_t i = 0; i < count; ++i) {
      std::string name, type;
      if (!String("a metadata name", name, why) || !String("a metadata type", type, why)) return false;
      name = Quoted(name);
      uint32_t stated = 0;
      if (!Read(stated)) return false;
      uint64_t reads = stated;
      if (openvdb::Metadata::isRegisteredType(type)) {
        const openvdb::Metadata::Ptr typed = openvdb::Metadata::createMetadata(type);
        if (dynamic_cast<const openvdb::io::DelayedLoadMetadata*>(typed.get())) {
          if (stated > 0 && !DelayedLoad(name, owner, why)) return false;
          continue;
        }
        if (!dynamic_cast<const openvdb::StringMetadata*>(typed.get())) reads = typed->size();
      }
      if (!Fits(reads, "metadata " + name + " of " + owner, "bytes, more than the", why) || !Skip(reads)) return false;
    }
    return true;
  }

 private:
  std::istream& in_;
  uint64_t end_;
};

// One grid from its descriptor on: names, positions, compression, metadata
// and the transform's name. With `gridOffsets` the grid is reached through
// its stated position and the walk stands at its stated end on return;
// otherwise it stands behind the transform's name. False when the walk cannot
// go on, with `why` set when a stated size is the reason.
bool WalkGrid(StatedSizeWalk& walk, uint32_t version, bool gridOffsets, std::string& why) {
  std::string name, type, parent;
  if (!walk.String("a grid name", name, why) || !walk.String("a grid type", type, why)) return false;
  if (version >= openvdb::OPENVDB_FILE_VERSION_GRID_INSTANCING && !walk.String("a grid name", parent, why))
    return false;
  int64_t gridPos = 0, blockPos = 0, endPos = 0;
  if (!walk.Read(gridPos) || !walk.Read(blockPos) || !walk.Read(endPos)) return false;
  // OpenVDB seeks to these without a check and reads on from a failed
  // stream, taking lengths from whatever its variables held.
  if (gridOffsets && !walk.Within(gridPos, blockPos, endPos)) {
    why = zta::FormatString("grid @ states that it lies at bytes @ to @, outside the file's @", Quoted(name), gridPos,
                            endPos, walk.Size());
    return false;
  }
  if (gridOffsets && !walk.SeekTo(gridPos)) return false;
  if (version >= openvdb::OPENVDB_FILE_VERSION_NODE_MASK_COMPRESSION && !walk.Skip(sizeof(uint32_t))) return false;
  if (!walk.MetaMap("grid " + Quoted(name), why)) return false;
  // The transform follows, named by its map's type.
  std::string map;
  if (!walk.String(("the transform of grid " + Quoted(name)).c_str(), map, why)) return false;
  return !gridOffsets || walk.SeekTo(endPos);
}

// Empty when the walk ends without finding a size too large.
std::string WalkStatedSizes(StatedSizeWalk& walk, VdbReading reading, bool* hasGridOffsets, uint32_t* fileVersion) {
  std::string why;
  int64_t magic = 0;
  uint32_t version = 0;
  if (!walk.Read(magic) || magic != openvdb::OPENVDB_MAGIC || !walk.Read(version)) return why;
  uint32_t word = 0;
  if (version < 211) {
    // Older files state the version as major, minor and patch.
    uint32_t minor = 0, patch = 0;
    if (!walk.Read(minor) || !walk.Read(patch)) return why;
    version = 100 * version + 10 * minor + patch;
  } else if (!walk.Read(word) || !walk.Read(word)) {
    return why;  // the library's version
  }
  if (fileVersion) *fileVersion = version;
  char flag = 1;
  if (version >= 212 && !walk.Read(flag)) return why;
  if (hasGridOffsets) *hasGridOffsets = flag != 0;
  // A stream reader reads the grids one after another whatever the header says.
  const bool gridOffsets = flag != 0 && reading == VdbReading::kAsFile;
  if (version >= openvdb::OPENVDB_FILE_VERSION_SELECTIVE_COMPRESSION &&
      version < openvdb::OPENVDB_FILE_VERSION_NODE_MASK_COMPRESSION && !walk.Skip(1))
    return why;
  // The file's UUID: text from the version that brought Boost's, bytes before.
  if (!walk.Skip(version >= openvdb::OPENVDB_FILE_VERSION_BOOST_UUID ? 36 : 16)) return why;
  if (!walk.MetaMap("the file", why)) return why;

  int32_t grids = 0;
  if (!walk.Read(grids)) return why;
  for (int32_t i = 0; i < grids; ++i) {
    // Without offsets the next grid starts behind this one's tree.
    if (!WalkGrid(walk, version, gridOffsets, why) || !gridOffsets) break;
  }
  return why;
}

// Runs `body` on a walk over `in` from where it stands, and rewinds it there.
template <typename Body>
std::string WalkFromHere(std::istream& in, Body&& body) {
  std::string why;
  // The walk stops at the first short read, whatever the caller's stream throws.
  const std::ios::iostate mask = in.exceptions();
  in.exceptions(std::ios::goodbit);
  const std::streamoff at = in.tellg();
  in.seekg(0, std::ios::end);
  const std::streamoff end = in.tellg();
  if (at >= 0 && end > 0 && in) {
    in.seekg(at);
    StatedSizeWalk walk(in, uint64_t(end));
    why = body(walk);
  }
  in.clear();
  if (at >= 0) in.seekg(at);
  in.exceptions(mask);
  return why;
}

}  // namespace

std::string StatedSizeBeyondEnd(std::istream& in, VdbReading reading, bool* hasGridOffsets, uint32_t* fileVersion) {
  if (hasGridOffsets) *hasGridOffsets = true;
  in.clear();
  in.seekg(0);
  return WalkFromHere(in, [&](StatedSizeWalk& walk) {
    return WalkStatedSizes(walk, reading, hasGridOffsets, fileVersion);
  });
}

std::string NextGridStatedSizeBeyondEnd(std::istream& in, uint32_t fileVersion) {
  return WalkFromHere(in, [&](StatedSizeWalk& walk) {
    std::string why;
    WalkGrid(walk, fileVersion, /*gridOffsets=*/false, why);
    return why;
  });
}

}  // namespace zelmar
