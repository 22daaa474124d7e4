#include "host/modeling/pointsio.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "host/core/format.h"
#include "host/modeling/meshio.h"
#include "host/scene/scenefile.h"

namespace zta {

namespace {

// The columns a table may have, by name.
enum Column { X, Y, Z, RADIUS, VX, VY, VZ, OTHER };

Column ColumnOf(const String& name) {
  static const char* names[] = {"x", "y", "z", "radius", "vx", "vy", "vz"};
  for (int i = 0; i < 7; ++i)
    if (name == names[i]) return Column(i);
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

  Result<void> AddRow(const std::vector<double>& values, const String& where) {
    double v[7] = {};
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (!std::isfinite(values[i])) return IoError(where + ": a value that is not finite");
      if (columns_[i] != OTHER) v[columns_[i]] = values[i];
    }
    if (table_.positions.size() >= size_t(std::numeric_limits<Int32>::max())) return IoError(where + ": too many points");
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

Result<PointTable> ReadCsv(const String& path, const std::vector<char>& bytes) {
  std::istringstream in(String(bytes.begin(), bytes.end()));
  String line;
  TableBuilder table;
  bool columns = false;
  int lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    const String where = FormatString("@: line @", path, lineNo);
    const std::vector<String> f = Fields(line);
    if (f.empty() || f[0][0] == '#') continue;
    std::vector<double> values(f.size());
    bool numbers = true;
    for (size_t i = 0; i < f.size() && numbers; ++i) numbers = ParseNumber(f[i], &values[i]);
    if (!columns) {
      columns = true;
      std::vector<Column> names;
      if (numbers) {
        // No names: x y z, then a radius, then a velocity.
        static const Column order[] = {X, Y, Z, RADIUS, VX, VY, VZ};
        for (size_t i = 0; i < f.size(); ++i) names.push_back(i < 7 ? order[i] : OTHER);
        if (f.size() == 5 || f.size() == 6) return IoError(where + ": expected x y z [radius [vx vy vz]]");
      } else {
        for (const String& name : f) names.push_back(ColumnOf(name));
      }
      if (auto r = table.SetColumns(names, where); !r) return r.GetError();
      if (!numbers) continue;
    }
    if (!numbers) return IoError(where + ": expected numbers");
    if (f.size() != table.GetColumnCount())
      return IoError(FormatString("@: @ values, the file has @ columns", where, f.size(), table.GetColumnCount()));
    if (auto r = table.AddRow(values, where); !r) return r.GetError();
  }
  if (!columns) return IoError(path + ": no points");
  return table.Take();
}

// PLY: the header's vertex element and its properties; other elements are
// skipped when they come after the vertices, refused before them in binary.
Result<PointTable> ReadPly(const String& path, const std::vector<char>& bytes) {
  size_t pos = 0;
  auto nextLine = [&](String* line) {
    if (pos >= bytes.size()) return false;
    const char* start = bytes.data() + pos;
    const void* nl = std::memchr(start, '\n', bytes.size() - pos);
    const size_t len = nl ? size_t(static_cast<const char*>(nl) - start) : bytes.size() - pos;
    line->assign(start, len);
    if (!line->empty() && line->back() == '\r') line->pop_back();
    pos += len + (nl ? 1 : 0);
    return true;
  };
  String line;
  if (!nextLine(&line) || line != "ply") return IoError(path + ": not a PLY file");
  enum { ASCII, LITTLE, BIG } format = ASCII;
  Int64 vertices = -1;
  bool inVertex = false, vertexFirst = true, seenElement = false;
  struct Property {
    Column column;
    int size;
    bool isFloat, isSigned;
  };
  std::vector<Property> props;
  int lineNo = 1;
  for (;;) {
    if (!nextLine(&line)) return IoError(path + ": the header has no end");
    ++lineNo;
    const std::vector<String> w = Fields(line);
    const String where = FormatString("@: line @", path, lineNo);
    if (w.empty() || w[0] == "comment" || w[0] == "obj_info") continue;
    if (w[0] == "end_header") break;
    if (w[0] == "format" && w.size() >= 2) {
      format = w[1] == "ascii" ? ASCII : w[1] == "binary_little_endian" ? LITTLE : w[1] == "binary_big_endian" ? BIG : ASCII;
      if (w[1] != "ascii" && w[1] != "binary_little_endian" && w[1] != "binary_big_endian")
        return IoError(where + ": unknown format " + w[1]);
    } else if (w[0] == "element" && w.size() == 3) {
      inVertex = w[1] == "vertex";
      if (inVertex) {
        double n = 0;
        if (!ParseNumber(w[2], &n) || n < 0 || n > double(std::numeric_limits<Int32>::max()) || n != std::floor(n))
          return IoError(where + ": bad vertex count " + w[2]);
        vertices = Int64(n);
        vertexFirst = !seenElement;
      }
      seenElement = true;
    } else if (w[0] == "property" && inVertex) {
      if (w.size() != 3) return IoError(where + ": a vertex property that is a list");
      static const struct { const char* name; int size; bool isFloat, isSigned; } types[] = {
          {"char", 1, false, true},    {"int8", 1, false, true},    {"uchar", 1, false, false}, {"uint8", 1, false, false},
          {"short", 2, false, true},   {"int16", 2, false, true},   {"ushort", 2, false, false}, {"uint16", 2, false, false},
          {"int", 4, false, true},     {"int32", 4, false, true},   {"uint", 4, false, false},  {"uint32", 4, false, false},
          {"float", 4, true, true},    {"float32", 4, true, true},  {"double", 8, true, true},  {"float64", 8, true, true}};
      bool known = false;
      for (const auto& t : types)
        if (w[1] == t.name) {
          props.push_back({ColumnOf(w[2]), t.size, t.isFloat, t.isSigned});
          known = true;
        }
      if (!known) return IoError(where + ": unknown property type " + w[1]);
    }
  }
  if (vertices < 0) return IoError(path + ": no vertex element");
  if (format != ASCII && !vertexFirst) return IoError(path + ": the vertices are not the first element");
  TableBuilder table;
  std::vector<Column> columns;
  for (const Property& p : props) columns.push_back(p.column);
  if (auto r = table.SetColumns(columns, path); !r) return r.GetError();
  std::vector<double> values(props.size());
  for (Int64 v = 0; v < vertices; ++v) {
    const String where = FormatString("@: vertex @", path, v);
    if (format == ASCII) {
      do {
        if (!nextLine(&line)) return IoError(where + ": the file ends early");
      } while (Fields(line).empty());
      const std::vector<String> f = Fields(line);
      if (f.size() != props.size()) return IoError(FormatString("@: @ values, the vertex has @", where, f.size(), props.size()));
      for (size_t i = 0; i < f.size(); ++i)
        if (!ParseNumber(f[i], &values[i])) return IoError(where + ": expected numbers");
    } else {
      for (size_t i = 0; i < props.size(); ++i) {
        const Property& p = props[i];
        if (pos + size_t(p.size) > bytes.size()) return IoError(where + ": the file ends early");
        unsigned char b[8];
        std::memcpy(b, bytes.data() + pos, size_t(p.size));
        pos += size_t(p.size);
        if (format == BIG) std::reverse(b, b + p.size);
        if (p.isFloat) {
          if (p.size == 4) {
            float f;
            std::memcpy(&f, b, 4);
            values[i] = f;
          } else {
            double d;
            std::memcpy(&d, b, 8);
            values[i] = d;
          }
        } else {
          UInt64 u = 0;
          std::memcpy(&u, b, size_t(p.size));
          if (p.isSigned && p.size < 8 && (u >> (p.size * 8 - 1)) & 1) u |= ~UInt64(0) << (p.size * 8);
          values[i] = p.isSigned ? double(Int64(u)) : double(u);
        }
      }
    }
    if (auto r = table.AddRow(values, where); !r) return r.GetError();
  }
  return table.Take();
}

}  // namespace

bool IsPointFile(const String& path) {
  const String ext = MeshFileExtension(path);
  return ext == ".csv" || ext == ".ply";
}

Result<PointTable> ReadPointFile(const String& path) {
  const String ext = MeshFileExtension(path);
  if (ext != ".csv" && ext != ".ply") return IoError(path + ": points are read from .csv or .ply files");
  auto bytes = ReadWholeFile(path);
  if (!bytes) return bytes.GetError();
  try {
    return ext == ".csv" ? ReadCsv(path, bytes.GetValue()) : ReadPly(path, bytes.GetValue());
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError("out of memory reading " + path);
  }
}

}  // namespace zta
