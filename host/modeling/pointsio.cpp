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
#include "host/core/parsenumber.h"
#include "host/modeling/meshio.h"
#include "host/modeling/plyio.h"
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

// PLY: the vertex element's records become the table; the elements before
// it are passed over, the ones after it not read.
Result<PointTable> ReadPly(const String& path, const std::vector<char>& bytes) {
  ply::Reader in(path, bytes);
  if (auto r = in.ReadHeader(); !r) return r.GetError();
  const std::vector<ply::Element>& elements = in.GetElements();
  size_t vertex = 0;
  while (vertex < elements.size() && elements[vertex].name != "vertex") ++vertex;
  if (vertex == elements.size()) return IoError(path + ": the PLY file has no vertex element");
  if (auto r = in.CheckCounts(vertex); !r) return r.GetError();
  for (size_t i = 0; i < vertex; ++i)
    if (auto r = in.Skip(elements[i]); !r) return r.GetError();
  const ply::Element& e = elements[vertex];
  TableBuilder table;
  std::vector<Column> columns;
  for (const ply::Property& p : e.properties)
    if (!p.list) columns.push_back(ColumnOf(p.name));
  if (auto r = table.SetColumns(columns, path); !r) return r.GetError();
  ply::Record record;
  for (Int64 v = 0; v < e.count; ++v) {
    if (auto r = in.Read(e, v, &record); !r) return r.GetError();
    if (auto r = table.AddRow(record.values, [&] { return in.Where(e, v); }); !r) return r.GetError();
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
