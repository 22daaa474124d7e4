#include "host/modeling/meshio.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/core/atomicfile.h"
#include "host/core/format.h"
#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"

namespace zta {

namespace {

using zta::CPolygon;
using zta::Int32;
using zta::Vector;

// Writers stop at the first failure by throwing it; WriteMeshFile turns it into an error.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};



// A buffered file that reports the first failure.
class Writer {
 public:
  Writer(std::FILE* file, const std::string& path) : path_(path), file_(file) { buffer_.reserve(kFlushAt + 256); }
  void Text(std::string_view s) {
    buffer_.append(s);
    MaybeFlush();
  }
  void Number(float v) {
    char tmp[32];
    const auto r = std::to_chars(tmp, tmp + sizeof(tmp), v);
    buffer_.append(tmp, r.ptr);
  }
  void Number(int64_t v) {
    char tmp[24];
    const auto r = std::to_chars(tmp, tmp + sizeof(tmp), v);
    buffer_.append(tmp, r.ptr);
  }
  template <typename T>
  void Binary(const T& v) {
    buffer_.append(reinterpret_cast<const char*>(&v), sizeof(T));
    MaybeFlush();
  }
  // Everything is handed to the file; the owner closes it.
  void Close() {
    Flush();
    const int err = errno;
    if (std::ferror(file_) != 0) throw Failure("could not write " + path_ + ": " + std::strerror(err ? err : EIO));
  }
  void MaybeFlush() {
    if (buffer_.size() >= kFlushAt) Flush();
  }

 private:
  static constexpr size_t kFlushAt = size_t(1) << 20;
  void Flush() {
    if (!buffer_.empty() && std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size())
      throw Failure("could not write " + path_ + ": " + std::strerror(errno));
    buffer_.clear();
  }
  std::string path_;
  std::FILE* file_;
  std::string buffer_;
};

// The object's mesh as a file holds it, read from the object while the file
// is written: points placed and mirrored, corners in reversed order, with the
// UV of each corner. Nothing of the size of the polygons is copied; only when
// every corner's UV is that of its point (as the mesher makes them) is one UV
// per point kept, which the formats then store once per point.
class FileView {
 public:
  explicit FileView(const zta::PolygonObject& op)
      : mg_(op.GetMg()), points_(op.GetPointR()), polygons_(op.GetPolygonR()), pointCount_(op.GetPointCount()),
        polygonCount_(op.GetPolygonCount()) {
    const Int32 n = pointCount_;
    for (Int32 i = 0; i < polygonCount_; ++i) {
      const CPolygon& p = polygons_[i];
      if (p.a < 0 || p.b < 0 || p.c < 0 || p.d < 0 || p.a >= n || p.b >= n || p.c >= n || p.d >= n)
        throw Failure(zta::FormatString("Index @ of polygon @ is out of bounds", std::max({p.a, p.b, p.c, p.d}), i));
    }
    for (const zta::BaseTag* t = op.GetFirstTag(); t; t = t->GetNext()) {
      if (t->GetType() != zta::HOST_TAG_VERTEXMAP) continue;
      const auto* map = static_cast<const zta::VertexMapTag*>(t);
      if (map->GetDataCount() != n || n == 0) continue;
      std::string name = AttributeName(map->GetName());
      // Two maps of one name would give the formats two attributes of that name.
      while (std::any_of(maps_.begin(), maps_.end(), [&](const VertexMap& m) { return m.name == name; })) name += "_";
      maps_.push_back({std::move(name), map->GetDataAddressR()});
    }
    const auto* tag = static_cast<const zta::UVWTag*>(op.GetTag(zta::HOST_TAG_UVW));
    if (tag && tag->GetDataCount() == polygonCount_) uvs_ = tag->GetDataAddressR();
    if (!uvs_ || n == 0) return;
    std::vector<std::array<float, 2>> per(static_cast<size_t>(n));
    std::vector<char> seen(static_cast<size_t>(n), 0);
    for (Int32 i = 0; i < polygonCount_; ++i) {
      int32_t corners[4] = {};
      const int size = Corners(i, corners);
      for (int k = 0; k < size; ++k) {
        const size_t pt = size_t(corners[k]);
        const std::array<float, 2> t = CornerUV(i, k);
        if (!seen[pt]) {
          seen[pt] = 1;
          per[pt] = t;
        } else if (per[pt] != t) {
          return;
        }
      }
    }
    pointUVs_ = std::move(per);
  }

  Int32 PointCount() const { return pointCount_; }
  Int32 PolygonCount() const { return polygonCount_; }
  std::array<float, 3> Point(Int32 i) const {
    const Vector p = mg_ * points_[i];
    return {float(p.x), float(p.y), float(-p.z)};
  }
  // The corners of polygon i in the file's order; gives their count, 3 or 4.
  int Corners(Int32 i, int32_t out[4]) const {
    const CPolygon& p = polygons_[i];
    if (p.IsTriangle()) {
      out[0] = p.a, out[1] = p.c, out[2] = p.b;
      return 3;
    }
    out[0] = p.a, out[1] = p.d, out[2] = p.c, out[3] = p.b;
    return 4;
  }
  // Triangles once quads are cut over their first diagonal.
  size_t TriangleCount() const {
    size_t triangles = 0;
    for (Int32 i = 0; i < polygonCount_; ++i) triangles += polygons_[i].IsTriangle() ? 1 : 2;
    return triangles;
  }
  // Whether the object has a UV for each polygon corner.
  bool HasUVs() const { return uvs_ != nullptr && polygonCount_ > 0; }
  // The UV of corner k (in the file's order) of polygon i.
  std::array<float, 2> CornerUV(Int32 i, int k) const {
    const zta::UVWStruct32& uv = uvs_[i];
    const bool triangle = polygons_[i].IsTriangle();
    const zta::Vector32& t = k == 0 ? uv.a : k == 1 ? (triangle ? uv.c : uv.d) : k == 2 ? (triangle ? uv.b : uv.c) : uv.b;
    return {t.x, t.y};
  }
  // One UV per point, or empty.
  const std::vector<std::array<float, 2>>& PointUVs() const { return pointUVs_; }
  // The object's vertex maps of one weight per point, by names that the
  // formats accept.
  struct VertexMap {
    std::string name;
    const float* values;
  };
  const std::vector<VertexMap>& VertexMaps() const { return maps_; }

 private:
  zta::Matrix mg_;
  const Vector* points_;
  const CPolygon* polygons_;
  Int32 pointCount_, polygonCount_;
  const zta::UVWStruct32* uvs_ = nullptr;
  std::vector<std::array<float, 2>> pointUVs_;
  std::vector<VertexMap> maps_;

  // Letters, digits and underscores, not starting with a digit; "map" for an empty name.
  static std::string AttributeName(const std::string& name) {
    std::string out;
    for (unsigned char c : name) out += std::isalnum(c) ? char(c) : '_';
    if (out.empty()) out = "map";
    if (std::isdigit(static_cast<unsigned char>(out[0]))) out = "_" + out;
    return out;
  }
};

void WriteObj(const FileView& fm, Writer& w) {
  w.Text("# written by Zelmar Volumes\n");
  for (Int32 i = 0; i < fm.PointCount(); ++i) {
    const std::array<float, 3> p = fm.Point(i);
    w.Text("v ");
    w.Number(p[0]);
    w.Text(" ");
    w.Number(p[1]);
    w.Text(" ");
    w.Number(p[2]);
    w.Text("\n");
  }
  const bool perPoint = !fm.PointUVs().empty();
  const bool withUV = fm.HasUVs();
  auto uvLine = [&](const std::array<float, 2>& t) {
    w.Text("vt ");
    w.Number(t[0]);
    w.Text(" ");
    w.Number(t[1]);
    w.Text("\n");
  };
  int32_t corners[4] = {};
  if (perPoint) {
    for (const auto& t : fm.PointUVs()) uvLine(t);
  } else if (withUV) {
    for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
      const int size = fm.Corners(i, corners);
      for (int k = 0; k < size; ++k) uvLine(fm.CornerUV(i, k));
    }
  }
  int64_t corner = 1;
  for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
    const int size = fm.Corners(i, corners);
    w.Text("f");
    for (int k = 0; k < size; ++k) {
      const int64_t v = int64_t(corners[k]) + 1;
      w.Text(" ");
      w.Number(v);
      if (withUV) {
        w.Text("/");
        w.Number(perPoint ? v : corner++);
      }
    }
    w.Text("\n");
  }
}

void WritePly(const FileView& fm, Writer& w) {
  const bool perPoint = !fm.PointUVs().empty();
  const bool perCorner = fm.HasUVs() && !perPoint;
  std::string header = "ply\nformat binary_little_endian 1.0\ncomment written by Zelmar Volumes\n";
  header += "element vertex " + std::to_string(fm.PointCount()) + "\n";
  header += "property float x\nproperty float y\nproperty float z\n";
  if (perPoint) header += "property float s\nproperty float t\n";
  for (const auto& map : fm.VertexMaps()) header += "property float " + map.name + "\n";
  header += "element face " + std::to_string(fm.PolygonCount()) + "\n";
  header += "property list uchar int vertex_indices\n";
  if (perCorner) header += "property list uchar float texcoord\n";
  header += "end_header\n";
  w.Text(header);
  static_assert(std::endian::native == std::endian::little, "binary PLY is written in the machine's order");
  for (Int32 i = 0; i < fm.PointCount(); ++i) {
    w.Binary(fm.Point(i));
    if (perPoint) w.Binary(fm.PointUVs()[size_t(i)]);
    for (const auto& map : fm.VertexMaps()) w.Binary(map.values[i]);
  }
  int32_t corners[4] = {};
  for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
    const int size = fm.Corners(i, corners);
    w.Binary(uint8_t(size));
    for (int k = 0; k < size; ++k) w.Binary(corners[k]);
    if (perCorner) {
      w.Binary(uint8_t(size * 2));
      for (int k = 0; k < size; ++k) w.Binary(fm.CornerUV(i, k));
    }
  }
}

void WriteStl(const FileView& fm, Writer& w) {
  char header[80] = "binary STL written by Zelmar Volumes";
  w.Binary(header);
  w.Binary(uint32_t(fm.TriangleCount()));
  auto emit = [&](const std::array<float, 3>& pa, const std::array<float, 3>& pb, const std::array<float, 3>& pc) {
    const Vector e1(pb[0] - pa[0], pb[1] - pa[1], pb[2] - pa[2]), e2(pc[0] - pa[0], pc[1] - pa[1], pc[2] - pa[2]);
    const Vector n = zta::Cross(e1, e2).GetNormalized();
    const std::array<float, 3> normal{float(n.x), float(n.y), float(n.z)};
    w.Binary(normal);
    w.Binary(pa);
    w.Binary(pb);
    w.Binary(pc);
    w.Binary(uint16_t(0));
  };
  int32_t corners[4] = {};
  for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
    const int size = fm.Corners(i, corners);
    const std::array<float, 3> p0 = fm.Point(corners[0]), p2 = fm.Point(corners[2]);
    emit(p0, fm.Point(corners[1]), p2);
    if (size == 4) emit(p0, p2, fm.Point(corners[3]));
  }
}

// A JSON string literal of `s`.
std::string JsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20) {
      char tmp[8];
      std::snprintf(tmp, sizeof(tmp), "\\u%04x", c);
      out += tmp;
    } else {
      out += char(c);
    }
  }
  return out + "\"";
}

// Binary glTF 2.0: one node, one mesh of triangles, in metres. A quad becomes
// two triangles over its first diagonal, as in STL. glTF keeps one texture
// coordinate per vertex, so points whose corners disagree on their UV are
// written once per corner; glTF's v runs down the image.
void WriteGlb(const FileView& fm, const std::string& name, double metres, Writer& w) {
  const bool perPoint = !fm.PointUVs().empty();
  const bool perCorner = fm.HasUVs() && !perPoint;
  std::vector<std::array<float, 3>> positions;
  std::vector<std::array<float, 2>> texcoords;
  std::vector<uint32_t> indices;
  // Vertex maps as glTF's application attributes ("_NAME"), one float per vertex.
  const auto& maps = fm.VertexMaps();
  std::vector<std::vector<float>> weights(maps.size());
  indices.reserve(fm.TriangleCount() * 3);
  auto place = [&](Int32 i) {
    const std::array<float, 3> p = fm.Point(i);
    return std::array<float, 3>{float(p[0] * metres), float(p[1] * metres), float(p[2] * metres)};
  };
  int32_t corners[4] = {};
  if (perCorner) {
    for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
      const uint32_t first = uint32_t(positions.size());
      const int size = fm.Corners(i, corners);
      for (int k = 0; k < size; ++k) {
        positions.push_back(place(corners[k]));
        for (size_t m = 0; m < maps.size(); ++m) weights[m].push_back(maps[m].values[corners[k]]);
        const std::array<float, 2> uv = fm.CornerUV(i, k);
        texcoords.push_back({uv[0], 1.0f - uv[1]});
      }
      indices.insert(indices.end(), {first, first + 1, first + 2});
      if (size == 4) indices.insert(indices.end(), {first, first + 2, first + 3});
    }
  } else {
    positions.reserve(size_t(fm.PointCount()));
    for (Int32 i = 0; i < fm.PointCount(); ++i) positions.push_back(place(i));
    for (size_t m = 0; m < maps.size(); ++m) weights[m].assign(maps[m].values, maps[m].values + fm.PointCount());
    if (perPoint)
      for (const auto& t : fm.PointUVs()) texcoords.push_back({t[0], 1.0f - t[1]});
    for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
      const int size = fm.Corners(i, corners);
      const uint32_t a = uint32_t(corners[0]), b = uint32_t(corners[1]), c = uint32_t(corners[2]);
      indices.insert(indices.end(), {a, b, c});
      if (size == 4) indices.insert(indices.end(), {a, c, uint32_t(corners[3])});
    }
  }

  const size_t posBytes = positions.size() * 12, uvBytes = texcoords.size() * 8, idxBytes = indices.size() * 4;
  const size_t mapBytes = positions.size() * 4 * maps.size();
  const size_t binBytes = posBytes + uvBytes + idxBytes + mapBytes;
  std::string json = "{\"asset\":{\"version\":\"2.0\",\"generator\":\"Zelmar Volumes\"},\"scene\":0,"
                     "\"scenes\":[{\"nodes\":[0]}],";
  if (indices.empty()) {
    // glTF has no empty mesh: the node stands alone.
    json += "\"nodes\":[{\"name\":" + JsonString(name) + "}]}";
  } else {
    std::array<float, 3> lo = positions[0], hi = positions[0];
    for (const auto& p : positions)
      for (int k = 0; k < 3; ++k) {
        lo[size_t(k)] = std::min(lo[size_t(k)], p[size_t(k)]);
        hi[size_t(k)] = std::max(hi[size_t(k)], p[size_t(k)]);
      }
    auto num = [](float v) {
      char tmp[32];
      return std::string(tmp, std::to_chars(tmp, tmp + sizeof(tmp), v).ptr);
    };
    auto vec = [&](const std::array<float, 3>& v) {
      std::string s(1, '[');
      s += num(v[0]);
      s += ',';
      s += num(v[1]);
      s += ',';
      s += num(v[2]);
      return s + ']';
    };
    const bool uv = !texcoords.empty();
    // Views and accessors: positions, UVs, indices, then one per map.
    const size_t firstMap = uv ? 3 : 2;
    json += "\"nodes\":[{\"mesh\":0,\"name\":" + JsonString(name) + "}],";
    json += "\"meshes\":[{\"name\":" + JsonString(name) + ",\"primitives\":[{\"attributes\":{\"POSITION\":0";
    if (uv) json += ",\"TEXCOORD_0\":1";
    for (size_t m = 0; m < maps.size(); ++m) {
      std::string upper = maps[m].name;
      for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
      json += "," + JsonString("_" + upper) + ":" + std::to_string(firstMap + m);
    }
    json += "},\"indices\":" + std::to_string(uv ? 2 : 1) + ",\"mode\":4}]}],";
    json += "\"buffers\":[{\"byteLength\":" + std::to_string(binBytes) + "}],";
    json += "\"bufferViews\":[{\"buffer\":0,\"byteOffset\":0,\"byteLength\":" + std::to_string(posBytes) +
            ",\"target\":34962}";
    if (uv)
      json += ",{\"buffer\":0,\"byteOffset\":" + std::to_string(posBytes) + ",\"byteLength\":" + std::to_string(uvBytes) +
              ",\"target\":34962}";
    json += ",{\"buffer\":0,\"byteOffset\":" + std::to_string(posBytes + uvBytes) +
            ",\"byteLength\":" + std::to_string(idxBytes) + ",\"target\":34963}";
    for (size_t m = 0; m < maps.size(); ++m)
      json += ",{\"buffer\":0,\"byteOffset\":" + std::to_string(posBytes + uvBytes + idxBytes + m * positions.size() * 4) +
              ",\"byteLength\":" + std::to_string(positions.size() * 4) + ",\"target\":34962}";
    json += "],";
    json += "\"accessors\":[{\"bufferView\":0,\"componentType\":5126,\"count\":" + std::to_string(positions.size()) +
            ",\"type\":\"VEC3\",\"min\":" + vec(lo) + ",\"max\":" + vec(hi) + "}";
    if (uv)
      json += ",{\"bufferView\":1,\"componentType\":5126,\"count\":" + std::to_string(texcoords.size()) +
              ",\"type\":\"VEC2\"}";
    json += ",{\"bufferView\":" + std::to_string(uv ? 2 : 1) + ",\"componentType\":5125,\"count\":" +
            std::to_string(indices.size()) + ",\"type\":\"SCALAR\"}";
    for (size_t m = 0; m < maps.size(); ++m)
      json += ",{\"bufferView\":" + std::to_string(firstMap + m) + ",\"componentType\":5126,\"count\":" +
              std::to_string(positions.size()) + ",\"type\":\"SCALAR\"}";
    json += "]}";
  }
  // Chunks are padded to four bytes: JSON with blanks, the binary with zeros.
  json.append((4 - json.size() % 4) % 4, ' ');
  const size_t binPadded = (binBytes + 3) / 4 * 4;
  const size_t total = 12 + 8 + json.size() + (binBytes ? 8 + binPadded : 0);
  if (total > std::numeric_limits<uint32_t>::max()) throw Failure("the mesh is too large for one glTF file (4 GB)");
  static_assert(std::endian::native == std::endian::little, "glTF is written in the machine's order");
  w.Binary(uint32_t(0x46546C67));  // "glTF"
  w.Binary(uint32_t(2));
  w.Binary(uint32_t(total));
  w.Binary(uint32_t(json.size()));
  w.Binary(uint32_t(0x4E4F534A));  // "JSON"
  w.Text(json);
  if (binBytes == 0) return;
  w.Binary(uint32_t(binPadded));
  w.Binary(uint32_t(0x004E4942));  // "BIN"
  for (const auto& p : positions) w.Binary(p);
  for (const auto& t : texcoords) w.Binary(t);
  for (uint32_t i : indices) w.Binary(i);
  for (const auto& values : weights)
    for (float v : values) w.Binary(v);
  for (size_t i = binBytes; i < binPadded; ++i) w.Binary(uint8_t(0));
}

}  // namespace

bool IsWritableMeshFile(const String& path) {
  const std::string ext = MeshFileExtension(path);
  return ext == ".obj" || ext == ".ply" || ext == ".stl" || ext == ".glb";
}

const char* WritableMeshFormats() { return "OBJ, PLY, STL or glTF (.glb)"; }

bool MeshFileKeepsUVs(const String& path) { return IsWritableMeshFile(path) && MeshFileExtension(path) != ".stl"; }

Result<void> WriteMeshFile(const PolygonObject& op, const String& path, const MeshWriteOptions& options) {
  const std::string ext = MeshFileExtension(path);
  if (!IsWritableMeshFile(path))
    return IllegalArgumentError(path + ": not a mesh format that can be written (" + WritableMeshFormats() + ")");
  if (!(options.unitMeters > 0.0) || !std::isfinite(options.unitMeters))
    return IllegalArgumentError(FormatString("@ metres is no unit", options.unitMeters));
  try {
    const FileView fm(op);
    auto out = AtomicFile::Open(path);
    if (!out) return out.GetError();
    Writer w(out->GetFile(), path);
    if (ext == ".obj") WriteObj(fm, w);
    else if (ext == ".ply") WritePly(fm, w);
    else if (ext == ".stl") WriteStl(fm, w);
    else WriteGlb(fm, op.GetName(), options.unitMeters, w);
    w.Close();
    return out->Commit(false);
  } catch (const Failure& f) {
    return IoError(f.what());
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError("out of memory writing " + path);
  }
}

std::string MeshFileExtension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

}  // namespace zta
