#include "host/modeling/pointsio.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

#include "host/core/format.h"
#include "host/modeling/meshio.h"
#include "host/scene/scenefile.h"

namespace zta {

namespace {

// The columns a table may have, by name.
enum Column { X, Y, Z, RADIUS, VX, VY, VZ, OTHER };

// Names in any case, also the ones other tools write (px, pscale,
// velocity_x, ...).
Column ColumnOf(String name) {
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  static const struct {
    const char* name;
    Column column;
  } names[] = {
      {"x", X}, {"px", X}, {"y", Y}, {"py", Y}, {"z", Z}, {"pz", Z},
      {"radius", RADIUS}, {"r", RADIUS}, {"rad", RADIUS}, {"pscale", RADIUS},
      {"vx", VX}, {"v_x", VX}, {"velocity_x", VX},
      {"vy", VY}, {"v_y", VY}, {"velocity_y", VY},
      {"vz", VZ}, {"v_z", VZ}, {"velocity_z", VZ},
  };
  for (const auto& n : names)
    if (name == n.name) return n.column;
  return OTHER;
}

// Builds the table from rows of named values; checks that x, y and z are
// there and that velocities come whole.
class TableBuilder {
 public:
  Result<void> SetColumns(const std::vector<Column>& columns, const String& where) {
    columns_ = columns;
    bool has[7] = {};
    for (Column c : columns)
      if (c != OTHER) has[c] = true;
    if (!has[X] || !has[Y] || !has[Z]) return IoError(where + ": the points need x, y and z");
    if ((has[VX] || has[VY] || has[VZ]) && !(has[VX] && has[VY] && has[VZ]))
      return IoError(where + ": velocities need vx, vy and vz");
    radius_ = has[RADIUS];
    velocity_ = has[VX];
    return OK();
  }
  size_t GetColumnCount() const { return columns_.size(); }

  // `where` names the row for an error; it is only made for one.
  template <typename Where>
  Result<void> AddRow(const std::vector<double>& values, const Where& where) {
    double v[7] = {};
    for (size_t i = 0; i < columns_.size(); ++i) {
      // Columns the table does not keep may hold anything.
      if (columns_[i] == OTHER) continue;
      if (!std::isfinite(values[i])) return IoError(where() + ": a value that is not finite");
      v[columns_[i]] = values[i];
    }
    if (table_.positions.size() >= size_t(std::numeric_limits<Int32>::max())) return IoError(where() + ": too many points");
    // The file is right-handed, the scene left-handed.
    table_.positions.push_back({v[X], v[Y], -v[Z]});
    if (radius_) table_.radii.push_back(v[RADIUS]);
    if (velocity_) table_.velocities.push_back({v[VX], v[VY], -v[VZ]});
    return OK();
  }
  PointTable Take() { return std::move(table_); }

 private:
  std::vector<Column> columns_;
  bool radius_ = false, velocity_ = false;
  PointTable table_;
};

bool ParseNumber(const String& s, double* out) {
  const char* b = s.data();
  const char* e = b + s.size();
  if (b != e && *b == '+') ++b;
  auto r = std::from_chars(b, e, *out);
  return r.ec == std::errc() && r.ptr == e && b != e;
}

std::vector<String> Fields(const String& line) {
  std::vector<String> out;
  String cur;
  bool any = false;
  for (char c : line) {
    if (c == ',' || c == ';' || c == ' ' || c == '\t' || c == '\r') {
      if (any || c == ',' || c == ';') {
        if (any) out.push_back(cur);
        cur.clear();
        any = false;
      }
      continue;
    }
    cur += c;
    any = true;
  }
  if (any) out.push_back(cur);
  return out;
}

// Columns without names: x y z, then a radius (4), a velocity (6) or both
// (7 and more; the rest are kept apart). Empty for counts that say neither.
std::vector<Column> UnnamedColumns(size_t count) {
  static const Column both[] = {X, Y, Z, RADIUS, VX, VY, VZ};
  static const Column velocity[] = {X, Y, Z, VX, VY, VZ};
  std::vector<Column> out;
  if (count < 3 || count == 5) return out;
  for (size_t i = 0; i < count; ++i) out.push_back(count == 6 ? velocity[i] : i < 7 ? both[i] : OTHER);
  return out;
}

// Rows of numbers: .csv and the blank-separated .xyz, .txt and .pts.
Result<PointTable> ReadRows(const String& path, const std::vector<char>& bytes) {
  std::istringstream in(String(bytes.begin(), bytes.end()));
  String line;
  TableBuilder table;
  bool columns = false;
  int lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    auto where = [&] { return FormatString("@: line @", path, lineNo); };
    if (const size_t hash = line.find('#'); hash != String::npos) line.resize(hash);
    const std::vector<String> f = Fields(line);
    if (f.empty()) continue;
    std::vector<double> values(f.size());
    bool numbers = true;
    for (size_t i = 0; i < f.size() && numbers; ++i) numbers = ParseNumber(f[i], &values[i]);
    if (!columns) {
      columns = true;
      std::vector<Column> names;
      if (numbers) {
        names = UnnamedColumns(f.size());
        if (names.empty()) return IoError(where() + ": expected x y z [radius] [vx vy vz]");
      } else {
        for (const String& name : f) names.push_back(ColumnOf(name));
      }
      if (auto r = table.SetColumns(names, where()); !r) return r.GetError();
      if (!numbers) continue;
    }
    if (!numbers) return IoError(where() + ": expected numbers");
    if (f.size() != table.GetColumnCount())
      return IoError(FormatString("@: @ values, the file has @ columns", where(), f.size(), table.GetColumnCount()));
    if (auto r = table.AddRow(values, where); !r) return r.GetError();
  }
  // A file without rows is an empty table, as one with names alone and a PLY
  // of no vertices are: a frame of a simulation may hold no particles yet.
  return table.Take();
}

struct PlyType {
  int size = 0;
  bool isFloat = false, isSigned = false;
};

bool PlyTypeOf(const String& name, PlyType* out) {
  static const struct {
    const char* name;
    PlyType type;
  } types[] = {{"char", {1, false, true}},   {"int8", {1, false, true}},   {"uchar", {1, false, false}},
               {"uint8", {1, false, false}}, {"short", {2, false, true}},  {"int16", {2, false, true}},
               {"ushort", {2, false, false}}, {"uint16", {2, false, false}}, {"int", {4, false, true}},
               {"int32", {4, false, true}},  {"uint", {4, false, false}},  {"uint32", {4, false, false}},
               {"float", {4, true, true}},   {"float32", {4, true, true}}, {"double", {8, true, true}},
               {"float64", {8, true, true}}};
  for (const auto& t : types)
    if (name == t.name) {
      *out = t.type;
      return true;
    }
  return false;
}

struct PlyProperty {
  Column column = OTHER;
  PlyType type;
  // A list: its length (of type `count`) and then that many values, none of
  // which the table keeps.
  bool list = false;
  PlyType count;
};

struct PlyElement {
  String name;
  Int64 count = 0;
  std::vector<PlyProperty> properties;
};

enum class PlyFormat { ASCII, LITTLE, BIG };

// The bytes of a PLY file and where the reading stands in them.
class PlyStream {
 public:
  PlyStream(const String& path, const std::vector<char>& bytes) : path_(path), bytes_(bytes) {}

  void SetFormat(PlyFormat format) { format_ = format; }
  PlyFormat GetFormat() const { return format_; }

  bool NextLine(String* line) {
    if (pos_ >= bytes_.size()) return false;
    const char* start = bytes_.data() + pos_;
    const void* nl = std::memchr(start, '\n', bytes_.size() - pos_);
    const size_t len = nl ? size_t(static_cast<const char*>(nl) - start) : bytes_.size() - pos_;
    line->assign(start, len);
    if (!line->empty() && line->back() == '\r') line->pop_back();
    pos_ += len + (nl ? 1 : 0);
    return true;
  }

  // Record `index` of the element: the values of its properties that are
  // not lists, in their order, into `values` (when given).
  Result<void> ReadRecord(const PlyElement& e, Int64 index, std::vector<double>* values) {
    if (values) values->clear();
    return format_ == PlyFormat::ASCII ? ReadAsciiRecord(e, index, values) : ReadBinaryRecord(e, index, values);
  }
  // "file: vertex 3", for errors.
  String Where(const PlyElement& e, Int64 index) const { return FormatString("@: @ @", path_, e.name, index); }

  // Passes over all records of an element that the table does not need.
  Result<void> Skip(const PlyElement& e) {
    if (e.properties.empty()) return OK();
    const bool fixed = std::none_of(e.properties.begin(), e.properties.end(), [](const PlyProperty& p) { return p.list; });
    if (format_ != PlyFormat::ASCII && fixed) {
      // Records of one size are passed over at once.
      size_t stride = 0;
      for (const PlyProperty& p : e.properties) stride += size_t(p.type.size);
      if (UInt64(e.count) > (bytes_.size() - pos_) / stride)
        return IoError(FormatString("@: the file ends in the @ element", path_, e.name));
      pos_ += size_t(e.count) * stride;
      return OK();
    }
    // Each record takes at least a line or a byte, so a count larger than
    // the file ends at its end.
    for (Int64 i = 0; i < e.count; ++i)
      if (auto r = ReadRecord(e, i, nullptr); !r) return r;
    return OK();
  }

 private:
  // A list's length: a whole number that a file of 2^31 values could hold.
  static bool ListLength(double n) {
    return n >= 0 && n == std::floor(n) && n <= double(std::numeric_limits<Int32>::max());
  }

  Result<void> ReadAsciiRecord(const PlyElement& e, Int64 index, std::vector<double>* values) {
    String line;
    std::vector<String> f;
    do {
      if (!NextLine(&line)) return IoError(Where(e, index) + ": the file ends early");
      f = Fields(line);
    } while (f.empty());
    // `at` counts the values the properties take, also past the line's end,
    // so that a short line says how many it should have had.
    size_t at = 0;
    for (const PlyProperty& p : e.properties) {
      double v = 0;
      if (at < f.size() && !ParseNumber(f[at], &v)) return IoError(Where(e, index) + ": expected numbers");
      ++at;
      if (p.list) {
        if (!ListLength(v)) return IoError(Where(e, index) + ": a list with a bad length");
        at += size_t(v);
      } else if (values) {
        values->push_back(v);
      }
    }
    if (at != f.size()) return IoError(FormatString("@: @ values, the @ has @", Where(e, index), f.size(), e.name, at));
    return OK();
  }

  Result<void> ReadBinaryRecord(const PlyElement& e, Int64 index, std::vector<double>* values) {
    for (const PlyProperty& p : e.properties) {
      double v = 0;
      if (!Decode(p.list ? p.count : p.type, &v)) return IoError(Where(e, index) + ": the file ends early");
      if (p.list) {
        if (!ListLength(v)) return IoError(Where(e, index) + ": a list with a bad length");
        const size_t skip = size_t(v) * size_t(p.type.size);
        if (skip > bytes_.size() - pos_) return IoError(Where(e, index) + ": the file ends early");
        pos_ += skip;
      } else if (values) {
        values->push_back(v);
      }
    }
    return OK();
  }

  // One binary value in the file's byte order; false at the end of the file.
  bool Decode(const PlyType& t, double* out) {
    if (size_t(t.size) > bytes_.size() - pos_) return false;
    unsigned char b[8];
    std::memcpy(b, bytes_.data() + pos_, size_t(t.size));
    pos_ += size_t(t.size);
    if ((format_ == PlyFormat::BIG) != (std::endian::native == std::endian::big)) std::reverse(b, b + t.size);
    if (t.isFloat) {
      if (t.size == 4) {
        float f;
        std::memcpy(&f, b, 4);
        *out = f;
      } else {
        double d;
        std::memcpy(&d, b, 8);
        *out = d;
      }
      return true;
    }
    UInt64 u = 0;
    std::memcpy(&u, b, size_t(t.size));
    if (t.isSigned && t.size < 8 && (u >> (t.size * 8 - 1)) & 1) u |= ~UInt64(0) << (t.size * 8);
    *out = t.isSigned ? double(Int64(u)) : double(u);
    return true;
  }

  const String& path_;
  const std::vector<char>& bytes_;
  size_t pos_ = 0;
  PlyFormat format_ = PlyFormat::ASCII;
};

// PLY: the header's elements up to the vertex element, whose records become
// the table; the ones before it are passed over, the ones after it not read.
Result<PointTable> ReadPly(const String& path, const std::vector<char>& bytes) {
  PlyStream in(path, bytes);
  String line;
  if (!in.NextLine(&line)) return IoError(path + ": not a PLY file");
  while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
  if (line != "ply") return IoError(path + ": not a PLY file");
  std::vector<PlyElement> elements;
  bool haveVertex = false, pastVertex = false;
  int lineNo = 1;
  for (;;) {
    if (!in.NextLine(&line)) return IoError(path + ": the header has no end");
    ++lineNo;
    const std::vector<String> w = Fields(line);
    const String where = FormatString("@: line @", path, lineNo);
    if (w.empty() || w[0] == "comment" || w[0] == "obj_info") continue;
    if (w[0] == "end_header") break;
    if (w[0] == "format" && w.size() >= 2) {
      if (w[1] == "ascii") in.SetFormat(PlyFormat::ASCII);
      else if (w[1] == "binary_little_endian") in.SetFormat(PlyFormat::LITTLE);
      else if (w[1] == "binary_big_endian") in.SetFormat(PlyFormat::BIG);
      else return IoError(where + ": unknown format " + w[1]);
    } else if (w[0] == "element") {
      // Elements after the vertices are never read.
      pastVertex = haveVertex;
      if (pastVertex) continue;
      if (w.size() != 3) return IoError(where + ": expected element NAME COUNT");
      const bool vertex = w[1] == "vertex";
      // Vertices become points, of which a table holds fewer than 2^31;
      // other counts stay where a double counts exactly.
      const double most = vertex ? double(std::numeric_limits<Int32>::max()) : 9007199254740992.0;
      double n = 0;
      if (!ParseNumber(w[2], &n) || n < 0 || n > most || n != std::floor(n))
        return IoError(FormatString("@: bad @ count @", where, w[1], w[2]));
      elements.push_back({w[1], Int64(n), {}});
      haveVertex = vertex;
    } else if (w[0] == "property") {
      if (pastVertex || elements.empty()) continue;
      PlyProperty p;
      String type;
      if (w.size() == 5 && w[1] == "list") {
        p.list = true;
        if (!PlyTypeOf(w[2], &p.count)) return IoError(where + ": unknown property type " + w[2]);
        type = w[3];
      } else if (w.size() == 3) {
        p.column = ColumnOf(w[2]);
        type = w[1];
      } else {
        return IoError(where + ": expected property TYPE NAME or property list TYPE TYPE NAME");
      }
      if (!PlyTypeOf(type, &p.type)) return IoError(where + ": unknown property type " + type);
      elements.back().properties.push_back(p);
    }
  }
  if (!haveVertex) return IoError(path + ": no vertex element");
  for (size_t i = 0; i + 1 < elements.size(); ++i)
    if (auto r = in.Skip(elements[i]); !r) return r.GetError();
  const PlyElement& vertex = elements.back();
  TableBuilder table;
  std::vector<Column> columns;
  for (const PlyProperty& p : vertex.properties)
    if (!p.list) columns.push_back(p.column);
  if (auto r = table.SetColumns(columns, path); !r) return r.GetError();
  std::vector<double> values;
  for (Int64 v = 0; v < vertex.count; ++v) {
    if (auto r = in.ReadRecord(vertex, v, &values); !r) return r.GetError();
    if (auto r = table.AddRow(values, [&] { return in.Where(vertex, v); }); !r) return r.GetError();
  }
  return table.Take();
}

bool IsRowsExtension(const String& ext) { return ext == ".csv" || ext == ".xyz" || ext == ".txt" || ext == ".pts"; }

}  // namespace

bool IsPointFile(const String& path) {
  const String ext = MeshFileExtension(path);
  return IsRowsExtension(ext) || ext == ".ply";
}

Result<PointTable> ReadPointFile(const String& path) {
  const String ext = MeshFileExtension(path);
  if (!IsPointFile(path)) return IoError(path + ": points are read from .csv, .xyz, .txt, .pts or .ply files");
  auto bytes = ReadWholeFile(path);
  if (!bytes) return bytes.GetError();
  try {
    return IsRowsExtension(ext) ? ReadRows(path, bytes.GetValue()) : ReadPly(path, bytes.GetValue());
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError("out of memory reading " + path);
  }
}

}  // namespace zta
