// Mesh files in through Assimp: every format it reads, but PLY, which is read
// by our own reader (plyio). The only translation unit that includes Assimp,
// so that programs that only write meshes need not link it.
#include <assimp/Importer.hpp>
#include <assimp/ProgressHandler.hpp>
#include <assimp/scene.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>

#include "host/core/format.h"
#include "host/modeling/meshio.h"
#include "host/modeling/plyio.h"
#include "host/scene/scenefile.h"
#include "host/objects/polygonobject.h"

namespace zta {

namespace {

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};


// Lets a stop request end a long import.
class InterruptHandler : public Assimp::ProgressHandler {
 public:
  explicit InterruptHandler(ThreadRef thread) : thread_(std::move(thread)) {}
  bool Update(float) override { return !(thread_ && thread_->TestBreak()); }

 private:
  ThreadRef thread_;
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
};

std::vector<Instance> CollectInstances(const aiScene& scene) {
  std::vector<Instance> out;
  if (!scene.mRootNode) {
    for (unsigned i = 0; i < scene.mNumMeshes; ++i) out.push_back({scene.mMeshes[i], aiMatrix4x4()});
    return out;
  }
  std::vector<std::pair<const aiNode*, aiMatrix4x4>> stack{{scene.mRootNode, scene.mRootNode->mTransformation}};
  while (!stack.empty()) {
    auto [node, m] = stack.back();
    stack.pop_back();
    for (unsigned i = 0; i < node->mNumMeshes; ++i)
      if (node->mMeshes[i] < scene.mNumMeshes) out.push_back({scene.mMeshes[node->mMeshes[i]], m});
    for (unsigned i = node->mNumChildren; i-- > 0;)
      stack.emplace_back(node->mChildren[i], m * node->mChildren[i]->mTransformation);
  }
  return out;
}

size_t PolygonCountOf(const aiFace& f) { return f.mNumIndices < 3 ? 0 : f.mNumIndices <= 4 ? 1 : f.mNumIndices - 2; }

// Every corner of every polygon of one mesh must be one of its points; the
// count of polygons of three or more corners names the culprit.
void CheckFaces(const aiMesh& mesh, const std::string& where) {
  size_t polygon = 0;
  for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
    const aiFace& face = mesh.mFaces[f];
    if (face.mNumIndices < 3) continue;
    unsigned largest = 0;
    bool bad = false;
    for (unsigned k = 0; k < face.mNumIndices; ++k) {
      largest = std::max(largest, face.mIndices[k]);
      bad = bad || face.mIndices[k] >= mesh.mNumVertices;
    }
    if (bad) throw Failure(where + ": " + FormatString("Index @ of polygon @ is out of bounds", largest, polygon));
    ++polygon;
  }
}

// ---- counts a header declares

// PLY and OFF headers declare their element counts, and Assimp reserves room
// for them before it reads a single element: a small file declaring 10^9
// faces would take tens of gigabytes first. Every element needs some bytes of
// the file, so a count that the file is too short to hold is refused here.
// Assimp 5.2's OFF reader skips a face whose point count is 0 (or not a
// number) but loses its place in the face list doing so: the mesh then holds
// no faces, or faces it never filled, and reading one such file crashed. The
// lines follow Assimp's reading: one element a line and blank lines skipped;
// below the counts a comment is an element too (a face of no points).
void CheckOffFaces(std::istream& in, const std::string& path, uint64_t points, uint64_t faces) {
  std::string line;
  auto nextElement = [&]() {
    while (std::getline(in, line)) {
      if (line.find_first_not_of(" \t\r") != std::string::npos) return true;
    }
    return false;
  };
  for (uint64_t i = 0; i < points; ++i)
    if (!nextElement()) return;  // the importer says the file is short
  for (uint64_t f = 0; f < faces; ++f) {
    if (!nextElement()) return;
    const char* at = line.c_str();
    while (*at == ' ' || *at == '\t') ++at;
    uint64_t count = 0;
    for (; *at >= '0' && *at <= '9' && count < 10; ++at) count = count * 10 + uint64_t(*at - '0');
    if (count == 0)
      throw Failure(FormatString("@: polygon @ of the OFF file has no points: @", path, f, line.substr(0, 40)));
  }
}

// Assimp takes a PLY file by its first three bytes, in either case.
bool HasPlyMagic(std::string_view head) {
  auto lower = [](char c) { return char(std::tolower(static_cast<unsigned char>(c))); };
  return head.size() >= 3 && lower(head[0]) == 'p' && lower(head[1]) == 'l' && lower(head[2]) == 'y';
}

// Assimp reads a file whose extension no importer claims (".xml", ".txt", ...)
// by what it holds: such a file beginning with a PLY or OFF magic is read as
// one, and needs the same checks.
std::string FormatByContent(const std::string& path, const std::string& ext) {
  if (ext == ".ply" || ext == ".off") return ext;
  char head[3] = {};
  std::ifstream(path, std::ios::binary).read(head, 3);
  const std::string_view start(head, 3);
  if (HasPlyMagic(start)) return ".ply";
  if (start == "OFF") return ".off";
  return ext;
}

// The first `count` numbers of an OFF header as Assimp reads them: from
// `text` (the rest of the keyword's line) on, across line ends and comment
// lines, each as far as it has digits and wrapped to 32 bits as its strtoul10
// wraps it; a word reads as 0. False when the file ends first.
bool OffNumbers(std::istream& in, std::string text, uint32_t* numbers, int count) {
  size_t at = 0;
  for (int i = 0; i < count; ++i) {
    for (;;) {
      at = text.find_first_not_of(" \t\r", at);
      if (at != std::string::npos && text[at] != '#') break;
      if (!std::getline(in, text)) return false;
      at = 0;
    }
    uint32_t v = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) v = v * 10u + uint32_t(text[at] - '0');
    numbers[i] = v;
  }
  return true;
}

void CheckOffCounts(const std::string& path, const std::string& ext) {
  if (ext != ".off") return;
  std::error_code ec;
  const uintmax_t room = std::filesystem::file_size(path, ec);
  if (ec) return;  // the importer says what is wrong with the file
  std::ifstream in(path, std::ios::binary);
  std::string magic;
  if (!std::getline(in, magic) || magic.find("OFF") == std::string::npos || magic.find("BINARY") != std::string::npos)
    return;
  const size_t keyword = magic.find("OFF");
  // "nOFF" states the points' dimension before the counts.
  const bool dimension = keyword > 0 && magic[keyword - 1] == 'n';
  uint32_t numbers[3] = {};
  if (!OffNumbers(in, magic.substr(keyword + 3), numbers, dimension ? 3 : 2)) return;
  const double points = numbers[dimension ? 1 : 0], faces = numbers[dimension ? 2 : 1];
  // "0 0 0\n" for a point, "0\n" for a face at the least.
  if (points * 6.0 + faces * 2.0 > double(room)) {
    const bool byPoints = points * 6.0 > double(room);
    throw Failure(FormatString("@: the header declares @ @, more than the file's @ bytes can hold", path,
                               uint64_t(byPoints ? points : faces), byPoints ? "points" : "faces", room));
  }
  CheckOffFaces(in, path, uint64_t(points), uint64_t(faces));
}

// ---- PLY

// PLY files are read here rather than by Assimp, whose reader sizes lists
// and elements by what the file states before it reads them (a damaged list
// length asked for 32 GB). The result takes Assimp's form, so that both meet
// one path below. Null when `thread` was stopped.
std::unique_ptr<aiMesh> ReadPlyMesh(const std::string& path, const ThreadRef& thread) {
  auto bytes = ReadWholeFile(path);
  if (!bytes) throw Failure(bytes.GetError().GetMessage());
  auto read = ply::ReadMesh(path, bytes.GetValue(), [&] { return thread && thread->TestBreak(); });
  if (!read) {
    if (thread && thread->TestBreak()) return nullptr;
    throw Failure(read.GetError().GetMessage());
  }
  const ply::Mesh& m = read.GetValue();
  constexpr size_t kMax = std::numeric_limits<unsigned>::max();
  if (m.xyz.size() / 3 > kMax || m.sizes.size() > kMax) throw Failure(path + ": too many points or polygons for one object");
  auto out = std::make_unique<aiMesh>();
  out->mNumVertices = unsigned(m.xyz.size() / 3);
  out->mVertices = new aiVector3D[out->mNumVertices];
  for (size_t i = 0; i < out->mNumVertices; ++i)
    out->mVertices[i] = aiVector3D(ai_real(m.xyz[3 * i]), ai_real(m.xyz[3 * i + 1]), ai_real(m.xyz[3 * i + 2]));
  out->mNumFaces = unsigned(m.sizes.size());
  out->mFaces = new aiFace[out->mNumFaces];
  const uint32_t* corner = m.corners.data();
  for (size_t f = 0; f < out->mNumFaces; ++f) {
    aiFace& face = out->mFaces[f];
    face.mNumIndices = m.sizes[f];
    face.mIndices = new unsigned[face.mNumIndices];
    std::copy(corner, corner + face.mNumIndices, face.mIndices);
    corner += face.mNumIndices;
  }
  return out;
}

// ---- Collada arrays

// Assimp 5.2's Collada reader trusts an array's count and an accessor's reach:
// an array of count 0 (or none) that an accessor reads is a null dereference,
// and an accessor that reaches past its array's count reads out of bounds. A
// file whose arrays do not hold the count they state, or whose accessors read
// past their arrays, is refused before Assimp reads it.
std::map<std::string, std::string> XmlAttributes(std::string_view tag) {
  std::map<std::string, std::string> out;
  auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  size_t at = 0;
  while (at < tag.size()) {
    while (at < tag.size() && (blank(tag[at]) || tag[at] == '/')) ++at;
    const size_t nameStart = at;
    while (at < tag.size() && !blank(tag[at]) && tag[at] != '=') ++at;
    const std::string name(tag.substr(nameStart, at - nameStart));
    while (at < tag.size() && blank(tag[at])) ++at;
    if (at >= tag.size() || tag[at] != '=') break;
    ++at;
    while (at < tag.size() && blank(tag[at])) ++at;
    if (at >= tag.size() || (tag[at] != '"' && tag[at] != '\'')) break;
    const size_t end = tag.find(tag[at], at + 1);
    if (end == std::string_view::npos) break;
    out[name] = std::string(tag.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return out;
}

// A count as a Collada attribute states it: digits only; -1 for anything else.
double XmlCount(const std::map<std::string, std::string>& attributes, const char* name, double missing) {
  const auto it = attributes.find(name);
  if (it == attributes.end()) return missing;
  const std::string& v = it->second;
  if (v.empty() || v.size() > 18 || v.find_first_not_of("0123456789") != std::string::npos) return -1.0;
  return std::stod(v);
}

bool LooksLikeCollada(const std::string& path, const std::string& ext) {
  if (ext == ".dae") return true;
  std::ifstream in(path, std::ios::binary);
  std::string head(4096, '\0');
  in.read(head.data(), std::streamsize(head.size()));
  head.resize(size_t(in.gcount()));
  return head.find("<COLLADA") != std::string::npos;
}

void CheckColladaArrays(const std::string& path, const std::string& ext) {
  if (!LooksLikeCollada(path, ext)) return;
  std::ifstream in(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  std::map<std::string, double> held;  // by array id
  struct Reach {
    std::string source;
    double need;
  };
  std::vector<Reach> reaches;
  constexpr auto npos = std::string::npos;
  for (size_t at = text.find('<'); at != npos; at = text.find('<', at)) {
    ++at;
    if (text.compare(at, 3, "!--") == 0) {
      at = text.find("-->", at);
      continue;
    }
    const size_t nameEnd = text.find_first_of(" \t\r\n/>", at);
    const size_t tagEnd = nameEnd == npos ? npos : text.find('>', nameEnd);
    if (tagEnd == npos) break;
    const std::string_view name(text.data() + at, nameEnd - at);
    const bool array = name.size() > 6 && name.ends_with("_array"), accessor = name == "accessor";
    // Index lists: Assimp reads them number by number without stepping past anything else, so one
    // stray character ("0 1) 2") holds it in place, appending to the list until memory runs out.
    if (name == "p" || name == "v" || name == "vcount" || name == "h") {
      const size_t close = text.find("</", tagEnd);
      const std::string_view body(text.data() + tagEnd + 1, (close == npos ? text.size() : close) - tagEnd - 1);
      const size_t bad = text[tagEnd - 1] == '/' ? npos : body.find_first_not_of("0123456789 \t\r\n");
      if (bad != npos)
        throw Failure(FormatString("@: a Collada <@> index list holds \"@\", which is not a whole number", path,
                                   std::string(name), body.substr(bad, 1)));
    }
    if (!array && !accessor) continue;
    const auto attributes = XmlAttributes(std::string_view(text.data() + nameEnd, tagEnd - nameEnd));
    const bool empty = text[tagEnd - 1] == '/';
    const size_t close = empty ? tagEnd : text.find(array ? "</" : "</accessor", tagEnd);
    const std::string_view body =
        empty || close == npos ? std::string_view() : std::string_view(text.data() + tagEnd + 1, close - tagEnd - 1);
    const auto idIt = attributes.find("id");
    const std::string id = idIt == attributes.end() ? std::string() : idIt->second;
    if (array) {
      const double count = XmlCount(attributes, "count", -1.0);
      if (count < 0)
        throw Failure(FormatString("@: the Collada @ \"@\" states no count", path, std::string(name), id));
      double values = 0;
      for (size_t c = 0; c < body.size();) {
        c = body.find_first_not_of(" \t\r\n", c);
        if (c == std::string_view::npos) break;
        ++values;
        c = body.find_first_of(" \t\r\n", c);
      }
      if (values != count)
        throw Failure(FormatString("@: the Collada @ \"@\" states count=\"@\" but holds @ values", path,
                                   std::string(name), id, uint64_t(count), uint64_t(values)));
      if (!id.empty()) held[id] = count;
    } else {
      const double count = XmlCount(attributes, "count", -1.0), stride = XmlCount(attributes, "stride", 1.0),
                   offset = XmlCount(attributes, "offset", 0.0);
      const auto source = attributes.find("source");
      if (count < 0 || stride < 0 || offset < 0 || source == attributes.end())
        throw Failure(path + ": a Collada accessor states no source, count, stride or offset it can be read by");
      double params = 0;
      for (size_t p = body.find("<param"); p != std::string_view::npos; p = body.find("<param", p + 1)) ++params;
      const std::string target = source->second.rfind('#', 0) == 0 ? source->second.substr(1) : source->second;
      if (count > 0) reaches.push_back({target, offset + (count - 1) * stride + std::max(params, 1.0)});
    }
    at = tagEnd;
  }
  for (const Reach& r : reaches) {
    const auto it = held.find(r.source);
    const double values = it == held.end() ? 0.0 : it->second;
    if (r.need > values)
      throw Failure(FormatString("@: a Collada accessor reads @ values of \"@\", which holds @", path,
                                 uint64_t(r.need), r.source, uint64_t(values)));
  }
}

// ---- the frame a file states

const aiMetadataEntry* FindMeta(const aiMetadata* md, const char* key) {
  if (!md) return nullptr;
  for (unsigned i = 0; i < md->mNumProperties; ++i)
    if (md->mKeys[i] == aiString(key)) return &md->mValues[i];
  return nullptr;
}

bool MetaNumber(const aiMetadata* md, const char* key, double& out) {
  const aiMetadataEntry* e = FindMeta(md, key);
  if (!e || !e->mData) return false;
  switch (e->mType) {
    case AI_BOOL: out = *static_cast<const bool*>(e->mData) ? 1.0 : 0.0; return true;
    case AI_INT32: out = *static_cast<const int32_t*>(e->mData); return true;
    case AI_UINT64: out = double(*static_cast<const uint64_t*>(e->mData)); return true;
    case AI_FLOAT: out = *static_cast<const float*>(e->mData); return true;
    case AI_DOUBLE: out = *static_cast<const double*>(e->mData); return true;
    default: return false;
  }
}

std::string MetaString(const aiMetadata* md, const char* key) {
  const aiMetadataEntry* e = FindMeta(md, key);
  if (!e || !e->mData || e->mType != AI_AISTRING) return {};
  return static_cast<const aiString*>(e->mData)->C_Str();
}

enum class SOURCE { OTHER, GLTF, FBX, COLLADA };

SOURCE SourceOf(const aiScene& scene, const std::string& ext) {
  const std::string format = MetaString(scene.mMetaData, "SourceAsset_Format");
  if (format.find("glTF") != std::string::npos || ext == ".gltf" || ext == ".glb") return SOURCE::GLTF;
  if (format.find("FBX") != std::string::npos || ext == ".fbx") return SOURCE::FBX;
  if (format.find("Collada") != std::string::npos || ext == ".dae" || ext == ".zae") return SOURCE::COLLADA;
  return SOURCE::OTHER;
}

// The map from the file's axes to upright ones (y up, z towards the viewer)
// that an FBX file's axis system asks for; the identity when it names none or
// names no permutation of the three axes. Assimp hands FBX axes on untouched,
// while it turns Collada upright itself and glTF is upright by definition.
aiMatrix4x4 FbxAxes(const aiMetadata* md, std::string& upAxis) {
  double up, upSign, front, frontSign, coord, coordSign;
  if (!MetaNumber(md, "UpAxis", up) || !MetaNumber(md, "UpAxisSign", upSign) || !MetaNumber(md, "FrontAxis", front) ||
      !MetaNumber(md, "FrontAxisSign", frontSign) || !MetaNumber(md, "CoordAxis", coord) ||
      !MetaNumber(md, "CoordAxisSign", coordSign))
    return aiMatrix4x4();
  const std::set<int> axes{int(up), int(front), int(coord)};
  const bool valid = axes == std::set<int>{0, 1, 2} && std::abs(upSign) == 1.0 && std::abs(frontSign) == 1.0 &&
                     std::abs(coordSign) == 1.0;
  if (!valid) return aiMatrix4x4();
  upAxis = std::string(upSign < 0 ? "-" : "+") + "XYZ"[int(up)];
  aiMatrix4x4 m;
  for (int c = 0; c < 3; ++c) m[0][c] = m[1][c] = m[2][c] = 0.0f;
  m[0][int(coord)] = float(coordSign);
  m[1][int(up)] = float(upSign);
  m[2][int(front)] = float(frontSign);
  return m;
}

// The transform from the importer's positions to upright ones in the unit the
// caller asks for.
aiMatrix4x4 StatedFrame(const aiScene& scene, const std::string& ext, const MeshReadOptions& options,
                        MeshFileInfo& info) {
  info.format = MetaString(scene.mMetaData, "SourceAsset_Format");
  aiMatrix4x4 axes;
  switch (SourceOf(scene, ext)) {
    case SOURCE::GLTF:
      info.unitMeters = 1.0;
      info.upAxis = "+Y";
      break;
    case SOURCE::COLLADA:
      // Assimp has applied the file's <unit> and <up_axis> already.
      info.unitMeters = 1.0;
      break;
    case SOURCE::FBX: {
      // FBX counts its unit in centimetres; a file without one is in centimetres.
      double cm = 1.0;
      if (!MetaNumber(scene.mMetaData, "UnitScaleFactor", cm) || !(cm > 0.0) || !std::isfinite(cm)) cm = 1.0;
      info.unitMeters = cm * 0.01;
      axes = FbxAxes(scene.mMetaData, info.upAxis);
      break;
    }
    case SOURCE::OTHER: break;
  }
  info.scale = info.unitMeters > 0.0 ? info.unitMeters / options.unitMeters : 1.0;
  aiMatrix4x4 scale;
  aiMatrix4x4::Scaling(aiVector3D(ai_real(info.scale)), scale);
  return scale * axes;
}

}  // namespace

bool IsReadableMeshFile(const String& path) {
  static const std::set<std::string> extensions = [] {
    std::string list;
    Assimp::Importer().GetExtensionList(list);
    std::set<std::string> out;
    // "*.3ds;*.fbx;..."
    for (size_t at = 0; at < list.size();) {
      size_t end = list.find(';', at);
      if (end == std::string::npos) end = list.size();
      std::string e = list.substr(at, end - at);
      if (e.rfind("*", 0) == 0) e.erase(0, 1);
      if (!e.empty()) out.insert(e);
      at = end + 1;
    }
    return out;
  }();
  return extensions.count(MeshFileExtension(path)) > 0;
}

Result<std::unique_ptr<PolygonObject>> ReadMeshFile(const String& path, const ThreadRef& thread,
                                                    const MeshReadOptions& options, MeshFileInfo* infoOut) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return IoError("File could not be found: " + path);
  if (!IsReadableMeshFile(path)) return IllegalArgumentError(path + ": not a mesh format that can be read");
  if (!(options.unitMeters > 0.0) || !std::isfinite(options.unitMeters))
    return IllegalArgumentError(FormatString("@ metres is no unit", options.unitMeters));

  try {
    const std::string format = FormatByContent(path, MeshFileExtension(path));
    MeshFileInfo info;
    aiMatrix4x4 frame;
    std::vector<Instance> instances;
    std::unique_ptr<aiMesh> plyMesh;
    Assimp::Importer importer;
    if (format == ".ply") {
      plyMesh = ReadPlyMesh(path, thread);
      if (!plyMesh) return IllegalStateError("interrupted");
      // PLY states no unit and no axes.
      info.format = "Stanford Polygon File (PLY)";
      instances.push_back({plyMesh.get(), aiMatrix4x4()});
    } else {
      CheckOffCounts(path, format);
      CheckColladaArrays(path, MeshFileExtension(path));
      importer.SetProgressHandler(new InterruptHandler(thread));  // the importer owns it
      // No post-processing: quads stay quads, and points are taken as the file has them.
      const aiScene* scene = importer.ReadFile(path, 0);
      if (thread && thread->TestBreak()) return IllegalStateError("interrupted");
      if (!scene) return IoError(OneLine("could not read " + path + ": " + importer.GetErrorString()));
      frame = StatedFrame(*scene, MeshFileExtension(path), options, info);
      instances = CollectInstances(*scene);
    }
    size_t pointCount = 0, polygonCount = 0;
    for (Instance& in : instances) {
      const aiMesh& mesh = *in.mesh;
      CheckFaces(mesh, instances.size() > 1 ? path + " (mesh \"" + std::string(mesh.mName.C_Str()) + "\")" : path);
      pointCount += mesh.mNumVertices;
      for (unsigned f = 0; f < mesh.mNumFaces; ++f) polygonCount += PolygonCountOf(mesh.mFaces[f]);
      in.transform = frame * in.transform;
    }
    constexpr size_t kMax = size_t(std::numeric_limits<Int32>::max());
    if (pointCount > kMax || polygonCount > kMax)
      return IllegalArgumentError(path + ": too many points or polygons for one object");
    auto op = PolygonObject::Alloc(Int32(pointCount), Int32(polygonCount));
    if (!op) return OutOfMemoryError("out of memory reading " + path);

    Vector* points = op->GetPointW();
    CPolygon* polygons = op->GetPolygonW();
    size_t base = 0, out = 0;
    std::vector<uint32_t> corners;
    std::vector<Vector> cornerPos;
    for (const Instance& in : instances) {
      const aiMesh& mesh = *in.mesh;
      const bool identity = in.transform.IsIdentity();
      for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
        const aiVector3D p = identity ? mesh.mVertices[i] : in.transform * mesh.mVertices[i];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
          return IllegalArgumentError(FormatString("@: point @ is not a finite position", path, base + i));
        // The scene mirrors the file's third axis.
        points[base + i] = Vector(double(p.x), double(p.y), -double(p.z));
      }
      // The mirror turns the winding; a transform that mirrors by itself (a
      // negative scale, a left-handed axis system) turns it back.
      const bool reverse = in.transform.Determinant() >= 0.0f;
      auto emit = [&](Int32 a, Int32 b, Int32 c) {
        polygons[out++] = reverse ? CPolygon(a, c, b) : CPolygon(a, b, c);
      };
      const Int32 b = Int32(base);
      for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        const unsigned* i = face.mIndices;
        // A reversed quad keeps its first corner and so its diagonal.
        if (face.mNumIndices == 3) {
          emit(b + Int32(i[0]), b + Int32(i[1]), b + Int32(i[2]));
        } else if (face.mNumIndices == 4) {
          polygons[out++] = reverse ? CPolygon(b + Int32(i[0]), b + Int32(i[3]), b + Int32(i[2]), b + Int32(i[1]))
                                    : CPolygon(b + Int32(i[0]), b + Int32(i[1]), b + Int32(i[2]), b + Int32(i[3]));
        } else if (face.mNumIndices > 4) {
          corners.assign(i, i + face.mNumIndices);
          cornerPos.clear();
          for (uint32_t c : corners) {
            const aiVector3D& v = mesh.mVertices[c];
            cornerPos.emplace_back(v.x, v.y, v.z);
          }
          for (const auto& t : Triangulate(corners, cornerPos)) emit(b + Int32(t[0]), b + Int32(t[1]), b + Int32(t[2]));
        }
      }
      base += mesh.mNumVertices;
    }
    op->SetDirty(DIRTYFLAGS_DATA);
    if (infoOut) *infoOut = info;
    return op;
  } catch (const Failure& f) {
    return IllegalArgumentError(OneLine(f.what()));
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError("out of memory reading " + path);
  } catch (const std::exception& e) {
    // An importer's own failure that got past it (a length error, ...).
    return IoError(OneLine("could not read " + path + ": " + e.what()));
  }
}

}  // namespace zta
