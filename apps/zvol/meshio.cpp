#include "meshio.h"

#include <assimp/Importer.hpp>
#include <assimp/ProgressHandler.hpp>
#include <assimp/scene.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "host/core/format.h"
#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "zvol.h"

namespace zvol {

namespace {

using zta::CPolygon;
using zta::Int32;
using zta::Vector;
using zelmar::VolumeConversionPolygon;

std::string Extension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

// Lets Ctrl-C end a long import.
class InterruptHandler : public Assimp::ProgressHandler {
 public:
  explicit InterruptHandler(zta::ThreadRef thread) : thread_(std::move(thread)) {}
  bool Update(float) override { return !(thread_ && thread_->TestBreak()); }

 private:
  zta::ThreadRef thread_;
};

// ---- n-gons

// Cuts a polygon of more than four corners into triangles by ear clipping in
// the plane of its Newell normal, keeping the file's winding. A polygon too
// twisted for that falls back to a fan.
std::vector<std::array<uint32_t, 3>> Triangulate(const std::vector<uint32_t>& corners,
                                                 const std::vector<Vector>& pos) {
  const size_t n = corners.size();
  Vector normal;
  for (size_t i = 0; i < n; ++i) {
    const Vector& a = pos[i];
    const Vector& b = pos[(i + 1) % n];
    normal += {(a.y - b.y) * (a.z + b.z), (a.z - b.z) * (a.x + b.x), (a.x - b.x) * (a.y + b.y)};
  }
  // Drop the dominant axis of the normal; flip so that the outline runs counter-clockwise.
  int drop = 2;
  if (std::abs(normal.x) >= std::abs(normal.y) && std::abs(normal.x) >= std::abs(normal.z)) drop = 0;
  else if (std::abs(normal.y) >= std::abs(normal.z)) drop = 1;
  const int u = drop == 0 ? 1 : 0, v = drop == 2 ? 1 : 2;
  const double sign = normal[drop] >= 0.0 ? 1.0 : -1.0;
  std::vector<std::array<double, 2>> p(n);
  for (size_t i = 0; i < n; ++i) p[i] = {pos[i][u], pos[i][v] * (drop == 1 ? -sign : sign)};

  auto cross = [&](size_t a, size_t b, size_t c) {
    return (p[b][0] - p[a][0]) * (p[c][1] - p[a][1]) - (p[b][1] - p[a][1]) * (p[c][0] - p[a][0]);
  };
  std::vector<size_t> ring(n);
  for (size_t i = 0; i < n; ++i) ring[i] = i;
  std::vector<std::array<uint32_t, 3>> out;
  out.reserve(n - 2);
  while (ring.size() > 3) {
    bool clipped = false;
    for (size_t k = 0; k < ring.size() && !clipped; ++k) {
      const size_t a = ring[(k + ring.size() - 1) % ring.size()], b = ring[k], c = ring[(k + 1) % ring.size()];
      if (cross(a, b, c) <= 0.0) continue;  // reflex or flat corner
      bool empty = true;
      for (size_t o : ring) {
        if (o == a || o == b || o == c) continue;
        if (cross(a, b, o) >= 0.0 && cross(b, c, o) >= 0.0 && cross(c, a, o) >= 0.0) {
          empty = false;
          break;
        }
      }
      if (!empty) continue;
      out.push_back({corners[a], corners[b], corners[c]});
      ring.erase(ring.begin() + std::ptrdiff_t(k));
      clipped = true;
    }
    if (!clipped) break;
  }
  if (ring.size() == 3) {
    out.push_back({corners[ring[0]], corners[ring[1]], corners[ring[2]]});
    return out;
  }
  out.clear();
  for (size_t i = 1; i + 1 < n; ++i) out.push_back({corners[0], corners[i], corners[i + 1]});
  return out;
}

// ---- reading

struct Instance {
  const aiMesh* mesh;
  aiMatrix4x4 transform;
  bool identity;
};

std::vector<Instance> CollectInstances(const aiScene& scene) {
  std::vector<Instance> out;
  if (!scene.mRootNode) {
    for (unsigned i = 0; i < scene.mNumMeshes; ++i) out.push_back({scene.mMeshes[i], aiMatrix4x4(), true});
    return out;
  }
  std::vector<std::pair<const aiNode*, aiMatrix4x4>> stack{{scene.mRootNode, scene.mRootNode->mTransformation}};
  while (!stack.empty()) {
    auto [node, m] = stack.back();
    stack.pop_back();
    for (unsigned i = 0; i < node->mNumMeshes; ++i)
      if (node->mMeshes[i] < scene.mNumMeshes)
        out.push_back({scene.mMeshes[node->mMeshes[i]], m, m.IsIdentity()});
    for (unsigned i = node->mNumChildren; i-- > 0;)
      stack.emplace_back(node->mChildren[i], m * node->mChildren[i]->mTransformation);
  }
  return out;
}

size_t PolygonCountOf(const aiFace& f) { return f.mNumIndices < 3 ? 0 : f.mNumIndices <= 4 ? 1 : f.mNumIndices - 2; }

// Faces of one mesh, checked by the polygon index rule before any is used.
void CheckFaces(const aiMesh& mesh, const std::string& where) {
  std::vector<VolumeConversionPolygon> polys;
  polys.reserve(mesh.mNumFaces);
  for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
    const aiFace& face = mesh.mFaces[f];
    if (face.mNumIndices < 3) continue;
    if (face.mNumIndices <= 4) {
      const unsigned* i = face.mIndices;
      polys.push_back({i[0], i[1], i[2], face.mNumIndices == 4 ? i[3] : VolumeConversionPolygon::TRIANGLE});
    } else {
      // Larger polygons are checked as quads of their corners, in order.
      for (unsigned k = 0; k < face.mNumIndices; k += 4) {
        const unsigned* i = face.mIndices;
        auto at = [&](unsigned j) { return i[std::min(k + j, face.mNumIndices - 1)]; };
        polys.push_back({at(0), at(1), at(2), at(3)});
      }
    }
  }
  if (auto r = zelmar::VolumeToolsInterface::CheckPolyIndexValidity(polys, zelmar::Int(mesh.mNumVertices)); !r)
    throw Failure(where + ": " + r.GetError().GetMessage());
}

}  // namespace

bool IsReadableMeshPath(const std::string& path) {
  const std::string ext = Extension(path);
  return ext == ".obj" || ext == ".ply" || ext == ".stl" || ext == ".gltf" || ext == ".glb";
}

bool IsWritableMeshPath(const std::string& path) {
  const std::string ext = Extension(path);
  return ext == ".obj" || ext == ".ply" || ext == ".stl";
}

CLI::Validator MeshOutputValidator() {
  return CLI::Validator(
      [](std::string& path) {
        return IsWritableMeshPath(path) ? std::string() : "'" + path + "' is not an .obj, .ply or .stl file";
      },
      "OBJ|PLY|STL");
}

std::unique_ptr<zta::PolygonObject> ReadMesh(const std::string& path, const zta::ThreadRef& thread) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) throw Failure("File could not be found: " + path);
  if (!IsReadableMeshPath(path))
    throw Failure(path + ": not a mesh format zvol reads (OBJ, PLY, STL, glTF)");

  Assimp::Importer importer;
  importer.SetProgressHandler(new InterruptHandler(thread));  // the importer owns it
  // No post-processing: quads stay quads, and points are taken as the file has them.
  const aiScene* scene = importer.ReadFile(path, 0);
  if (thread && thread->TestBreak()) throw Failure("interrupted");
  if (!scene) throw Failure("could not read " + path + ": " + importer.GetErrorString());

  const std::vector<Instance> instances = CollectInstances(*scene);
  size_t pointCount = 0, polygonCount = 0;
  for (const Instance& in : instances) {
    const aiMesh& mesh = *in.mesh;
    CheckFaces(mesh, instances.size() > 1 ? path + " (mesh \"" + std::string(mesh.mName.C_Str()) + "\")" : path);
    pointCount += mesh.mNumVertices;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) polygonCount += PolygonCountOf(mesh.mFaces[f]);
  }
  constexpr size_t kMax = size_t(std::numeric_limits<Int32>::max());
  if (pointCount > kMax || polygonCount > kMax) throw Failure(path + ": too many points or polygons for one object");
  auto op = zta::PolygonObject::Alloc(Int32(pointCount), Int32(polygonCount));
  if (!op) throw Failure("out of memory reading " + path);

  Vector* points = op->GetPointW();
  CPolygon* polygons = op->GetPolygonW();
  size_t base = 0, out = 0;
  std::vector<uint32_t> corners;
  std::vector<Vector> cornerPos;
  for (const Instance& in : instances) {
    const aiMesh& mesh = *in.mesh;
    for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
      const aiVector3D p = in.identity ? mesh.mVertices[i] : in.transform * mesh.mVertices[i];
      if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
        throw Failure(zta::FormatString("@: point @ is not a finite position", path, base + i));
      // The scene mirrors the file's third axis.
      points[base + i] = Vector(double(p.x), double(p.y), -double(p.z));
    }
    const Int32 b = Int32(base);
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
      const aiFace& face = mesh.mFaces[f];
      const unsigned* i = face.mIndices;
      // Reversed winding; a quad keeps its first corner and so its diagonal.
      if (face.mNumIndices == 3) {
        polygons[out++] = CPolygon(b + Int32(i[0]), b + Int32(i[2]), b + Int32(i[1]));
      } else if (face.mNumIndices == 4) {
        polygons[out++] = CPolygon(b + Int32(i[0]), b + Int32(i[3]), b + Int32(i[2]), b + Int32(i[1]));
      } else if (face.mNumIndices > 4) {
        corners.assign(i, i + face.mNumIndices);
        cornerPos.clear();
        for (uint32_t c : corners) {
          const aiVector3D& v = mesh.mVertices[c];
          cornerPos.emplace_back(v.x, v.y, v.z);
        }
        for (const auto& t : Triangulate(corners, cornerPos))
          polygons[out++] = CPolygon(b + Int32(t[0]), b + Int32(t[2]), b + Int32(t[1]));
      }
    }
    base += mesh.mNumVertices;
  }
  op->SetDirty(zta::DIRTYFLAGS_DATA);
  return op;
}

// ---- writing

namespace {

// A buffered file that reports the first failure.
class Writer {
 public:
  explicit Writer(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "wb")) {
    if (!file_) throw Failure("could not write " + path + ": " + std::strerror(errno));
    buffer_.reserve(kFlushAt + 256);
  }
  ~Writer() {
    if (file_) std::fclose(file_);
  }
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
  void Close() {
    Flush();
    const bool bad = std::ferror(file_) != 0;
    const int err = errno;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (bad || !closed) throw Failure("could not write " + path_ + ": " + std::strerror(err ? err : EIO));
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
  // Whether the object has a UV for each polygon corner.
  bool HasUVs() const { return uvs_ != nullptr; }
  // The UV of corner k (in the file's order) of polygon i.
  std::array<float, 2> CornerUV(Int32 i, int k) const {
    const zta::UVWStruct32& uv = uvs_[i];
    const bool triangle = polygons_[i].IsTriangle();
    const zta::Vector32& t = k == 0 ? uv.a : k == 1 ? (triangle ? uv.c : uv.d) : k == 2 ? (triangle ? uv.b : uv.c) : uv.b;
    return {t.x, t.y};
  }
  // One UV per point, or empty.
  const std::vector<std::array<float, 2>>& PointUVs() const { return pointUVs_; }

 private:
  zta::Matrix mg_;
  const Vector* points_;
  const CPolygon* polygons_;
  Int32 pointCount_, polygonCount_;
  const zta::UVWStruct32* uvs_ = nullptr;
  std::vector<std::array<float, 2>> pointUVs_;
};

void WriteObj(const FileView& fm, Writer& w) {
  w.Text("# written by zvol\n");
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
  const bool withUV = fm.HasUVs() && fm.PolygonCount() > 0;
  int32_t corners[4] = {};
  if (perPoint) {
    for (const auto& t : fm.PointUVs()) {
      w.Text("vt ");
      w.Number(t[0]);
      w.Text(" ");
      w.Number(t[1]);
      w.Text("\n");
    }
  } else if (withUV) {
    for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
      const int size = fm.Corners(i, corners);
      for (int k = 0; k < size; ++k) {
        const std::array<float, 2> t = fm.CornerUV(i, k);
        w.Text("vt ");
        w.Number(t[0]);
        w.Text(" ");
        w.Number(t[1]);
        w.Text("\n");
      }
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
  const bool perCorner = fm.HasUVs() && fm.PolygonCount() > 0 && !perPoint;
  std::string header = "ply\nformat binary_little_endian 1.0\ncomment written by zvol\n";
  header += "element vertex " + std::to_string(fm.PointCount()) + "\n";
  header += "property float x\nproperty float y\nproperty float z\n";
  if (perPoint) header += "property float s\nproperty float t\n";
  header += "element face " + std::to_string(fm.PolygonCount()) + "\n";
  header += "property list uchar int vertex_indices\n";
  if (perCorner) header += "property list uchar float texcoord\n";
  header += "end_header\n";
  w.Text(header);
  static_assert(std::endian::native == std::endian::little, "binary PLY is written in the machine's order");
  for (Int32 i = 0; i < fm.PointCount(); ++i) {
    w.Binary(fm.Point(i));
    if (perPoint) w.Binary(fm.PointUVs()[size_t(i)]);
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
  char header[80] = "binary STL written by zvol";
  w.Binary(header);
  uint32_t triangles = 0;
  int32_t corners[4] = {};
  for (Int32 i = 0; i < fm.PolygonCount(); ++i) triangles += fm.Corners(i, corners) == 4 ? 2 : 1;
  w.Binary(triangles);
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
  for (Int32 i = 0; i < fm.PolygonCount(); ++i) {
    const int size = fm.Corners(i, corners);
    const std::array<float, 3> p0 = fm.Point(corners[0]), p2 = fm.Point(corners[2]);
    emit(p0, fm.Point(corners[1]), p2);
    if (size == 4) emit(p0, p2, fm.Point(corners[3]));
  }
}

}  // namespace

void WriteMesh(const zta::PolygonObject& op, const std::string& path) {
  const std::string ext = Extension(path);
  if (!IsWritableMeshPath(path)) throw Failure(path + ": not a mesh format zvol writes (OBJ, PLY, STL)");
  const FileView fm(op);
  AtomicOutput out(path);
  Writer w(out.TempPath());
  if (ext == ".obj") WriteObj(fm, w);
  else if (ext == ".ply") WritePly(fm, w);
  else WriteStl(fm, w);
  w.Close();
  out.Commit();
}

ConversionMesh ToConversionMesh(const zta::PolygonObject& op) {
  ConversionMesh cm;
  Check(zelmar::VolumeToolsInterface::GetConversionMesh(op, cm.points, cm.polygons));
  return cm;
}

void ReleaseFreedMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

bool MeshBounds(const zta::PolygonObject& op, Vector& min, Vector& max) {
  const zta::Matrix mg = op.GetMg();
  min = Vector(std::numeric_limits<double>::max());
  max = Vector(-std::numeric_limits<double>::max());
  // Only points that polygons use count: loose points do not become surface.
  std::vector<char> used(size_t(op.GetPointCount()), 0);
  for (Int32 i = 0; i < op.GetPolygonCount(); ++i) {
    const CPolygon& p = op.GetPolygonR()[i];
    for (int k = 0; k < 4; ++k)
      if (p[k] >= 0 && p[k] < op.GetPointCount()) used[size_t(p[k])] = 1;
  }
  bool any = false;
  for (Int32 i = 0; i < op.GetPointCount(); ++i) {
    if (!used[size_t(i)]) continue;
    const Vector q = mg * op.GetPointR()[i];
    for (int k = 0; k < 3; ++k) {
      min[k] = std::min(min[k], q[k]);
      max[k] = std::max(max[k], q[k]);
    }
    any = true;
  }
  return any;
}

void AddResolutionOptions(CLI::App& app, double& voxelSize, int& dim) {
  auto* vs = app.add_option("--voxel-size", voxelSize, "edge length of a voxel in the file's units")
                 ->check(CLI::PositiveNumber);
  auto* n = app.add_option("--dim", dim, "voxels along the longest side of the mesh's box")
                ->check(CLI::Range(1, 1 << 20));
  vs->excludes(n);
}

void CheckResolutionOptions(double voxelSize, int dim) {
  if (!(voxelSize > 0.0) && dim <= 0) throw CLI::RequiredError("--voxel-size or --dim");
}

double ResolveVoxelSize(const zta::PolygonObject& op, const std::string& path, double voxelSize, int dim) {
  Vector lo, hi;
  if (op.GetPolygonCount() == 0 || !MeshBounds(op, lo, hi)) throw Failure(path + " holds no polygons");
  if (voxelSize > 0.0) return voxelSize;
  const Vector size = hi - lo;
  const double longest = std::max({size.x, size.y, size.z});
  if (!(longest > 0.0)) throw Failure(path + ": all points of the mesh coincide; --dim needs a size");
  return longest / double(dim);
}

}  // namespace zvol
