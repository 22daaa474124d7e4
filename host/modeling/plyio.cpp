#include "host/modeling/plyio.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "host/core/format.h"
#include "host/core/parsenumber.h"

namespace zta::ply {

namespace {

bool TypeOf(const String& name, Type* out) {
  static const struct {
    const char* name;
    Type type;
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

// Blank-separated words of a line.
void Words(const String& line, std::vector<String>* out) {
  out->clear();
  size_t at = 0;
  while (at < line.size()) {
    at = line.find_first_not_of(" \t\r", at);
    if (at == String::npos) break;
    size_t end = line.find_first_of(" \t\r", at);
    if (end == String::npos) end = line.size();
    out->push_back(line.substr(at, end - at));
    at = end;
  }
}

// A list's length: a whole number that a file of 2^31 values could hold.
bool ListLength(double n) { return n >= 0 && n == std::floor(n) && n <= double(std::numeric_limits<Int32>::max()); }

// The fewest bytes a record of `e` takes: in text a digit and a blank for each
// value (a list at least its length), in binary each value's size.
double MinRecordBytes(const Element& e, bool ascii) {
  double bytes = 0;
  for (const Property& p : e.properties) bytes += ascii ? 2.0 : double(p.list ? p.count.size : p.type.size);
  return bytes;
}

String CountName(const Element& e) {
  return e.name == "vertex" ? "points" : e.name == "face" ? "faces" : e.name + " elements";
}

}  // namespace

Reader::Reader(const String& path, const std::vector<char>& bytes) : path_(path), bytes_(bytes) {}

bool Reader::NextLine(String* line) {
  if (pos_ >= bytes_.size()) return false;
  const char* start = bytes_.data() + pos_;
  const void* nl = std::memchr(start, '\n', bytes_.size() - pos_);
  const size_t len = nl ? size_t(static_cast<const char*>(nl) - start) : bytes_.size() - pos_;
  line->assign(start, len);
  if (!line->empty() && line->back() == '\r') line->pop_back();
  pos_ += len + (nl ? 1 : 0);
  return true;
}

Result<void> Reader::ReadHeader() {
  String line;
  if (!NextLine(&line)) return IoError(path_ + ": not a PLY file (it is empty)");
  while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
  if (line != "ply") return IoError(OneLine(path_ + ": not a PLY file (its first line is not \"ply\")"));
  std::vector<String> w;
  for (int lineNo = 2;; ++lineNo) {
    if (!NextLine(&line)) return IoError(path_ + ": the PLY header has no end (end_header)");
    Words(line, &w);
    const String where = FormatString("@: line @", path_, lineNo);
    if (w.empty() || w[0] == "comment" || w[0] == "obj_info") continue;
    if (w[0] == "end_header") break;
    if (w[0] == "format") {
      const String format = w.size() >= 2 ? w[1] : "";
      if (format == "ascii") format_ = Format::ASCII;
      else if (format == "binary_little_endian") format_ = Format::LITTLE;
      else if (format == "binary_big_endian") format_ = Format::BIG;
      else return IoError(OneLine(where + ": unknown PLY format " + format.substr(0, 40)));
    } else if (w[0] == "element") {
      // Counts stay where a double counts exactly.
      double n = -1;
      if (w.size() != 3 || !ParseNumber(w[2], &n) || !(n >= 0) || n > 9007199254740992.0 || n != std::floor(n))
        return IoError(OneLine(where + ": the PLY header has an element without a count: " + line.substr(0, 60)));
      elements_.push_back({w[1], Int64(n), {}});
    } else if (w[0] == "property") {
      if (elements_.empty()) return IoError(where + ": a property before any element");
      Property p;
      String type;
      if (w.size() == 5 && w[1] == "list") {
        p.list = true;
        type = w[3];
        p.name = w[4];
        // An unknown type is refused when the element is read: elements
        // a reader does not reach may hold anything.
        if (!TypeOf(w[2], &p.count) || p.count.isFloat) p.count = {};
      } else if (w.size() == 3) {
        type = w[1];
        p.name = w[2];
      } else {
        return IoError(OneLine(where + ": expected property TYPE NAME or property list TYPE TYPE NAME"));
      }
      if (!TypeOf(type, &p.type)) p.type = {};
      elements_.back().properties.push_back(p);
    }
  }
  bodyStart_ = pos_;
  return OK();
}

Result<void> Reader::CheckCounts(size_t last) const {
  const size_t room = bytes_.size() - bodyStart_;
  double need = 0;
  for (size_t i = 0; i <= last && i < elements_.size(); ++i) {
    const Element& e = elements_[i];
    need += double(e.count) * MinRecordBytes(e, format_ == Format::ASCII);
    if (need > double(room))
      return IoError(FormatString("@: the header declares @ @, more than the file's @ bytes can hold", path_, e.count,
                                  CountName(e), room));
  }
  return OK();
}

String Reader::Where(const Element& e, Int64 index) const { return FormatString("@: @ @", path_, e.name, index); }

Result<void> Reader::Known(const Element& e) const {
  for (const Property& p : e.properties)
    if (p.type.size == 0 || (p.list && p.count.size == 0))
      return IoError(OneLine(FormatString("@: the @ element's property @ has a type this reader does not know", path_,
                                          e.name, p.name)));
  return OK();
}

Result<void> Reader::Read(const Element& e, Int64 index, Record* out) {
  if (index == 0)
    if (auto r = Known(e); !r) return r;
  if (out) {
    out->values.clear();
    size_t lists = 0;
    for (const Property& p : e.properties) lists += p.list ? 1 : 0;
    out->lists.resize(lists);
    for (auto& l : out->lists) l.clear();
  }
  return format_ == Format::ASCII ? ReadAscii(e, index, out) : ReadBinary(e, index, out);
}

Result<void> Reader::Skip(const Element& e) {
  if (e.properties.empty()) return OK();
  if (auto r = Known(e); !r) return r;
  const bool fixed = std::none_of(e.properties.begin(), e.properties.end(), [](const Property& p) { return p.list; });
  if (format_ != Format::ASCII && fixed) {
    // Records of one size are passed over at once.
    size_t stride = 0;
    for (const Property& p : e.properties) stride += size_t(p.type.size);
    if (UInt64(e.count) > (bytes_.size() - pos_) / stride)
      return IoError(FormatString("@: the file ends in the @ element", path_, e.name));
    pos_ += size_t(e.count) * stride;
    return OK();
  }
  for (Int64 i = 0; i < e.count; ++i)
    if (auto r = Read(e, i, nullptr); !r) return r;
  return OK();
}

Result<void> Reader::ReadAscii(const Element& e, Int64 index, Record* out) {
  do {
    if (!NextLine(&line_)) return IoError(Where(e, index) + ": the file ends early");
    Words(line_, &fields_);
  } while (fields_.empty());
  const std::vector<String>& f = fields_;
  // `at` counts the values the properties take, also past the line's end,
  // so that a short line says how many it should have had.
  size_t at = 0, list = 0;
  for (const Property& p : e.properties) {
    double v = 0;
    if (at < f.size() && !ParseNumber(f[at], &v)) return IoError(OneLine(Where(e, index) + ": expected numbers"));
    ++at;
    if (!p.list) {
      if (out) out->values.push_back(v);
      continue;
    }
    if (!ListLength(v)) return IoError(Where(e, index) + ": a list with a bad length");
    const size_t length = size_t(v), start = at;
    at += length;
    if (at > f.size()) break;
    if (!out) continue;
    std::vector<double>& values = out->lists[list++];
    for (size_t k = start; k < at; ++k) {
      double x = 0;
      if (!ParseNumber(f[k], &x)) return IoError(OneLine(Where(e, index) + ": expected numbers"));
      values.push_back(x);
    }
  }
  if (at != f.size()) return IoError(FormatString("@: @ values, the @ has @", Where(e, index), f.size(), e.name, at));
  return OK();
}

Result<void> Reader::ReadBinary(const Element& e, Int64 index, Record* out) {
  size_t list = 0;
  for (const Property& p : e.properties) {
    double v = 0;
    if (!Decode(p.list ? p.count : p.type, &v)) return IoError(Where(e, index) + ": the file ends early");
    if (!p.list) {
      if (out) out->values.push_back(v);
      continue;
    }
    if (!ListLength(v)) return IoError(Where(e, index) + ": a list with a bad length");
    const size_t length = size_t(v);
    if (length > (bytes_.size() - pos_) / size_t(p.type.size)) return IoError(Where(e, index) + ": the file ends early");
    if (!out) {
      pos_ += length * size_t(p.type.size);
      continue;
    }
    std::vector<double>& values = out->lists[list++];
    values.resize(length);
    for (size_t k = 0; k < length; ++k) Decode(p.type, &values[k]);
  }
  return OK();
}

bool Reader::Decode(const Type& t, double* out) {
  if (size_t(t.size) > bytes_.size() - pos_) return false;
  unsigned char b[8];
  std::memcpy(b, bytes_.data() + pos_, size_t(t.size));
  pos_ += size_t(t.size);
  if ((format_ == Format::BIG) != (std::endian::native == std::endian::big)) std::reverse(b, b + t.size);
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

Result<Mesh> ReadMesh(const String& path, const std::vector<char>& bytes, const std::function<bool()>& cancelled) {
  Reader in(path, bytes);
  if (auto r = in.ReadHeader(); !r) return r.GetError();
  const std::vector<Element>& elements = in.GetElements();
  auto find = [&](const char* name) {
    for (size_t i = 0; i < elements.size(); ++i)
      if (elements[i].name == name) return i;
    return elements.size();
  };
  const size_t vertex = find("vertex"), face = find("face"), strips = find("tristrips");
  if (vertex == elements.size()) return IoError(path + ": the PLY file has no vertex element");
  size_t last = vertex;
  for (size_t i : {face, strips})
    if (i < elements.size()) last = std::max(last, i);
  if (auto r = in.CheckCounts(last); !r) return r.GetError();

  // Where x, y and z stand among the vertex's values, and the index list among a face's lists.
  int xyz[3] = {-1, -1, -1};
  int at = 0;
  for (const Property& p : elements[vertex].properties) {
    if (p.list) continue;
    for (int k = 0; k < 3; ++k)
      if (p.name == String(1, char('x' + k))) xyz[k] = at;
    ++at;
  }
  if (xyz[0] < 0 || xyz[1] < 0 || xyz[2] < 0) return IoError(path + ": the PLY vertex element has no x, y and z");
  auto indexList = [&](size_t element) {
    int list = 0;
    for (const Property& p : elements[element].properties) {
      if (!p.list) continue;
      if (p.name == "vertex_indices" || p.name == "vertex_index") return list;
      ++list;
    }
    return -1;
  };
  auto index = [](double v) {
    return v >= 0 && v <= double(std::numeric_limits<uint32_t>::max()) && v == std::floor(v)
               ? uint32_t(v)
               : std::numeric_limits<uint32_t>::max();
  };

  Mesh mesh;
  Record record;
  for (size_t i = 0; i <= last; ++i) {
    const Element& e = elements[i];
    const int list = i == face || i == strips ? indexList(i) : -1;
    if (i != vertex && list < 0) {
      if (e.count > 0 && (i == face || i == strips))
        return IoError(FormatString("@: the PLY @ element has no vertex_indices list", path, e.name));
      if (auto r = in.Skip(e); !r) return r.GetError();
      continue;
    }
    // The counts fit the file, so so does room for them.
    if (i == vertex) mesh.xyz.reserve(size_t(e.count) * 3);
    for (Int64 k = 0; k < e.count; ++k) {
      if (cancelled && (k & 4095) == 0 && cancelled()) return IllegalStateError("interrupted");
      if (auto r = in.Read(e, k, &record); !r) return r.GetError();
      if (i == vertex) {
        for (int c = 0; c < 3; ++c) mesh.xyz.push_back(record.values[size_t(xyz[c])]);
        continue;
      }
      const std::vector<double>& corners = record.lists[size_t(list)];
      if (i == face) {
        // Fewer than three corners make no polygon.
        if (corners.size() < 3) continue;
        for (double c : corners) mesh.corners.push_back(index(c));
        mesh.sizes.push_back(uint32_t(corners.size()));
        continue;
      }
      // A strip: each corner after the second makes a triangle with the two
      // before it, every other one turned to keep the winding.
      size_t run = 0;
      uint32_t a = 0, b = 0;
      for (double c : corners) {
        if (c < 0) {
          run = 0;
          continue;
        }
        const uint32_t n = index(c);
        if (run >= 2) {
          const bool odd = run % 2 == 1;
          mesh.corners.insert(mesh.corners.end(), {odd ? b : a, odd ? a : b, n});
          mesh.sizes.push_back(3);
        }
        a = b;
        b = n;
        ++run;
      }
    }
  }
  return mesh;
}

}  // namespace zta::ply
