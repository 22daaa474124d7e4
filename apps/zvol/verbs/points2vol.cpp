// zvol points2vol: particles from PLY, CSV or XYZ files to a level set of
// spheres, or of trails along their velocities.
#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/core/format.h"
#include "zelmar/pointstovolume.h"
#include "zvol.h"

namespace {

struct Particles {
  std::vector<zta::Vector> positions;
  std::vector<double> radii;  // empty without a radius attribute
  std::vector<zta::Vector> velocities;  // empty without velocities
};

// Which column holds what; -1 for absent.
struct Columns {
  int x = -1, y = -1, z = -1, r = -1, vx = -1, vy = -1, vz = -1;

  static Columns FromNames(const std::vector<std::string>& names) {
    Columns c;
    for (int i = 0; i < int(names.size()); ++i) {
      std::string n = names[size_t(i)];
      std::transform(n.begin(), n.end(), n.begin(), [](unsigned char ch) { return char(std::tolower(ch)); });
      if (n == "x" || n == "px") c.x = i;
      else if (n == "y" || n == "py") c.y = i;
      else if (n == "z" || n == "pz") c.z = i;
      else if (n == "radius" || n == "r" || n == "pscale" || n == "rad") c.r = i;
      else if (n == "vx" || n == "velocity_x" || n == "v_x") c.vx = i;
      else if (n == "vy" || n == "velocity_y" || n == "v_y") c.vy = i;
      else if (n == "vz" || n == "velocity_z" || n == "v_z") c.vz = i;
    }
    return c;
  }
  // Unnamed columns: x y z, then a radius (4 or 7 columns), then a velocity (6 or 7).
  static Columns FromCount(size_t n) {
    Columns c;
    c.x = 0, c.y = 1, c.z = 2;
    if (n == 4 || n >= 7) c.r = 3;
    if (n == 6) c.vx = 3, c.vy = 4, c.vz = 5;
    if (n >= 7) c.vx = 4, c.vy = 5, c.vz = 6;
    return c;
  }
  bool HasVelocity() const { return vx >= 0 && vy >= 0 && vz >= 0; }
  int Needed() const { return std::max({x, y, z, r, vx, vy, vz}) + 1; }
};

void Add(Particles& p, const Columns& c, const std::vector<double>& v) {
  p.positions.push_back({v[size_t(c.x)], v[size_t(c.y)], v[size_t(c.z)]});
  if (c.r >= 0) p.radii.push_back(v[size_t(c.r)]);
  if (c.HasVelocity()) p.velocities.push_back({v[size_t(c.vx)], v[size_t(c.vy)], v[size_t(c.vz)]});
}

bool ParseNumber(std::string_view s, double& out) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && end == s.data() + s.size() && !s.empty();
}

std::vector<std::string> Split(const std::string& line, bool csv) {
  std::vector<std::string> out;
  if (csv) {
    std::string cell;
    std::istringstream in(line);
    while (std::getline(in, cell, ',')) out.push_back(cell);
    if (!line.empty() && line.back() == ',') out.emplace_back();
  } else {
    std::istringstream in(line);
    for (std::string t; in >> t;) out.push_back(t);
  }
  return out;
}

// CSV with an optional header of names, or whitespace-separated XYZ columns.
Particles ReadText(const std::string& path, bool csv) {
  std::ifstream in(path);
  if (!in) throw zvol::Failure("could not open " + path);
  Particles p;
  Columns c;
  bool haveColumns = false;
  std::string line;
  std::vector<double> values;
  for (int lineNo = 1; std::getline(in, line); ++lineNo) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const auto first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    const std::vector<std::string> cells = Split(line, csv);
    values.assign(cells.size(), 0.0);
    bool numeric = true;
    for (size_t i = 0; i < cells.size() && numeric; ++i) numeric = ParseNumber(cells[i], values[i]);
    if (!haveColumns) {
      c = numeric ? Columns::FromCount(cells.size()) : Columns::FromNames(cells);
      if (c.x < 0 || c.y < 0 || c.z < 0)
        throw zvol::Failure(zta::FormatString("@:@: no x, y and z columns", path, lineNo));
      haveColumns = true;
      if (!numeric) continue;
    }
    if (!numeric || int(cells.size()) < c.Needed())
      throw zvol::Failure(zta::FormatString("@:@: expected @ numbers", path, lineNo, c.Needed()));
    Add(p, c, values);
  }
  if (in.bad()) throw zvol::Failure("could not read " + path);
  return p;
}

// PLY, ASCII or binary: the x, y, z, radius and velocity properties of the vertex element.
class PlyReader {
 public:
  explicit PlyReader(const std::string& path) : path_(path), in_(path, std::ios::binary) {
    if (!in_) throw zvol::Failure("could not open " + path);
  }

  Particles Read() {
    ReadHeader();
    Particles p;
    for (const Element& e : elements_) {
      const bool vertex = e.name == "vertex";
      Columns c;
      if (vertex) {
        std::vector<std::string> names;
        for (const auto& prop : e.properties) names.push_back(prop.name);
        c = Columns::FromNames(names);
        if (c.x < 0 || c.y < 0 || c.z < 0) Fail("the vertex element has no x, y and z");
      }
      const bool hasList = std::any_of(e.properties.begin(), e.properties.end(), [](const Property& q) { return q.list; });
      std::vector<double> values(e.properties.size());
      if (format_ != Format::ASCII && !hasList) {
        ReadFixedBinary(e, vertex ? &c : nullptr, p, values);
      } else {
        for (int64_t n = 0; n < e.count; ++n) {
          for (size_t i = 0; i < e.properties.size(); ++i) {
            const Property& prop = e.properties[i];
            if (prop.list) {
              const int64_t k = int64_t(Scalar(prop.countType));
              if (k < 0) Fail("a negative list length");
              for (int64_t j = 0; j < k; ++j) Scalar(prop.type);
            } else {
              values[i] = Scalar(prop.type);
            }
          }
          if (vertex) Add(p, c, values);
        }
      }
      if (vertex) return p;
    }
    Fail("no vertex element");
  }

 private:
  enum class Format { ASCII, LITTLE, BIG };
  enum class Type { INT8, UINT8, INT16, UINT16, INT32, UINT32, FLOAT32, FLOAT64 };
  struct Property {
    std::string name;
    Type type = Type::FLOAT32, countType = Type::UINT8;
    bool list = false;
  };
  struct Element {
    std::string name;
    int64_t count = 0;
    std::vector<Property> properties;
  };

  [[noreturn]] void Fail(const std::string& what) const { throw zvol::Failure(path_ + ": " + what); }

  void ReadHeader() {
    std::string line;
    if (!std::getline(in_, line) || line.rfind("ply", 0) != 0) Fail("not a PLY file");
    bool haveFormat = false;
    while (std::getline(in_, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      std::istringstream words(line);
      std::string key;
      words >> key;
      if (key == "end_header") {
        if (!haveFormat) Fail("no format line");
        return;
      }
      if (key == "format") {
        std::string f;
        words >> f;
        if (f == "ascii") format_ = Format::ASCII;
        else if (f == "binary_little_endian") format_ = Format::LITTLE;
        else if (f == "binary_big_endian") format_ = Format::BIG;
        else Fail("unknown format " + f);
        haveFormat = true;
      } else if (key == "element") {
        Element e;
        if (!(words >> e.name >> e.count) || e.count < 0) Fail("bad element line: " + line);
        elements_.push_back(e);
      } else if (key == "property") {
        if (elements_.empty()) Fail("a property before any element");
        Property prop;
        std::string type, countType;
        words >> type;
        if (type == "list") {
          prop.list = true;
          words >> countType >> type;
          prop.countType = TypeOf(countType);
        }
        words >> prop.name;
        prop.type = TypeOf(type);
        elements_.back().properties.push_back(prop);
      }
    }
    Fail("the header has no end");
  }

  Type TypeOf(const std::string& t) const {
    if (t == "char" || t == "int8") return Type::INT8;
    if (t == "uchar" || t == "uint8") return Type::UINT8;
    if (t == "short" || t == "int16") return Type::INT16;
    if (t == "ushort" || t == "uint16") return Type::UINT16;
    if (t == "int" || t == "int32") return Type::INT32;
    if (t == "uint" || t == "uint32") return Type::UINT32;
    if (t == "float" || t == "float32") return Type::FLOAT32;
    if (t == "double" || t == "float64") return Type::FLOAT64;
    Fail("unknown property type " + t);
  }

  static size_t Size(Type t) {
    switch (t) {
      case Type::INT8: case Type::UINT8: return 1;
      case Type::INT16: case Type::UINT16: return 2;
      case Type::FLOAT64: return 8;
      default: return 4;
    }
  }

  // One binary value at `b`, in the file's byte order.
  double Decode(Type t, const unsigned char* src) const {
    unsigned char b[8];
    const size_t n = Size(t);
    std::memcpy(b, src, n);
    if ((format_ == Format::BIG) != (std::endian::native == std::endian::big)) std::reverse(b, b + n);
    auto as = [&b](auto v) {
      std::memcpy(&v, b, sizeof v);
      return double(v);
    };
    switch (t) {
      case Type::INT8: return as(int8_t());
      case Type::UINT8: return as(uint8_t());
      case Type::INT16: return as(int16_t());
      case Type::UINT16: return as(uint16_t());
      case Type::INT32: return as(int32_t());
      case Type::UINT32: return as(uint32_t());
      case Type::FLOAT32: return as(float());
      default: return as(double());
    }
  }

  double Scalar(Type t) {
    if (format_ == Format::ASCII) {
      std::string word;
      double v = 0.0;
      if (!(in_ >> word) || !ParseNumber(word, v)) Fail("a bad or missing number");
      return v;
    }
    unsigned char b[8];
    if (!in_.read(reinterpret_cast<char*>(b), std::streamsize(Size(t)))) Fail("the file ends too early");
    return Decode(t, b);
  }

  // Records of one size: read in large blocks rather than value by value.
  void ReadFixedBinary(const Element& e, const Columns* c, Particles& p, std::vector<double>& values) {
    size_t stride = 0;
    std::vector<size_t> offsets;
    for (const Property& prop : e.properties) {
      offsets.push_back(stride);
      stride += Size(prop.type);
    }
    constexpr int64_t kBlock = 65536;
    std::vector<unsigned char> buffer;
    for (int64_t done = 0; done < e.count;) {
      const int64_t n = std::min(kBlock, e.count - done);
      buffer.resize(size_t(n) * stride);
      if (!in_.read(reinterpret_cast<char*>(buffer.data()), std::streamsize(buffer.size())))
        Fail("the file ends too early");
      if (c) {
        for (int64_t r = 0; r < n; ++r) {
          const unsigned char* record = buffer.data() + size_t(r) * stride;
          for (size_t i = 0; i < e.properties.size(); ++i) values[i] = Decode(e.properties[i].type, record + offsets[i]);
          Add(p, *c, values);
        }
      }
      done += n;
    }
  }

  std::string path_;
  std::ifstream in_;
  Format format_ = Format::ASCII;
  std::vector<Element> elements_;
};

Particles ReadParticles(const std::string& path) {
  if (!std::filesystem::is_regular_file(path)) throw zvol::Failure("File could not be found: " + path);
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char ch) { return char(std::tolower(ch)); });
  if (ext == ".ply") return PlyReader(path).Read();
  if (ext == ".csv") return ReadText(path, true);
  if (ext == ".xyz" || ext == ".txt" || ext == ".pts") return ReadText(path, false);
  throw zvol::Failure(path + ": unknown point file type; use .ply, .csv or .xyz");
}

struct Options {
  std::string input;
  std::string output;
  double voxelSize = 0.0;
  double radius = 0.0;
  double velocityScale = 0.0;
  int halfWidth = 3;
};

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "points: .ply (vertex x, y, z, radius, vx, vy, vz), .csv with a header, "
                                    "or .xyz columns x y z [radius] [vx vy vz]")
      ->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  app.add_option("--voxel-size", o->voxelSize, "edge length of a voxel in world units")
      ->required()
      ->check(CLI::PositiveNumber);
  app.add_option("--radius", o->radius, "radius of every particle; default the file's radius attribute")
      ->check(CLI::PositiveNumber);
  app.add_option("--velocity-scale", o->velocityScale,
                 "trails along velocity times this, behind each particle; 0 draws spheres only")
      ->capture_default_str();
  app.add_option("--half-width", o->halfWidth, "half width of the narrow band in voxels")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  return [o](const zvol::Context& ctx) {
    Particles points;
    {
      zvol::Step step(ctx, "read " + std::filesystem::path(o->input).filename().string());
      points = ReadParticles(o->input);
    }
    if (points.radii.empty() && o->radius <= 0.0)
      throw zvol::Failure(o->input + " has no radius attribute; give --radius");
    if (o->velocityScale != 0.0 && points.velocities.empty())
      ctx.Say("note: " + o->input + " has no velocities; the particles stay spheres");

    auto list = zvol::Take(zelmar::PointsToVolumeListInterface::Create(nullptr, 1.0, o->velocityScale));
    {
      zvol::Step step(ctx, "gather");
      for (size_t i = 0; i < points.positions.size(); ++i) {
        const double r = o->radius > 0.0 ? o->radius : points.radii[i];
        const zta::Vector v = points.velocities.empty() ? zta::Vector() : points.velocities[i] * o->velocityScale;
        zvol::Check(list.AppendPoint(zvol::ToScene(points.positions[i]), r, zvol::ToScene(v)));
      }
    }
    zelmar::Volume volume;
    {
      zvol::Progress progress(ctx, "points to volume");
      zvol::Step step(ctx, "points to volume");
      volume = zvol::Take(zelmar::VolumeToolsInterface::PointsToVolume({list}, o->voxelSize, o->halfWidth,
                                                                      ctx.thread, nullptr, o->velocityScale));
    }
    ctx.CheckInterrupted();
    volume.SetGridName("points");
    zvol::SaveVolumes(ctx, o->output, {volume});
    ctx.Say(zta::FormatString("wrote @ (@ particles, @ active voxels)", o->output, points.positions.size(),
                              volume.GetActiveVoxelCount()));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("points2vol", "turn particles into a level set of spheres or trails", Setup);
