#pragma once
// PLY files (ASCII and both binary orders) read from memory: the header's
// elements, then their records in order. Shared by the point reader (the
// vertex element) and the mesh reader (vertices and faces).
//
// Nothing is sized by what a header states: a count that the bytes after the
// header cannot hold is refused before any record is read, and a list's
// length is checked against what is left of the file (or of its line) before
// its values are taken.
#include <functional>
#include <vector>

#include "host/core/result.h"
#include "host/core/types.h"

namespace zta::ply {

struct Type {
  int size = 0;  // 0: a type name this reader does not know
  bool isFloat = false, isSigned = false;
};

struct Property {
  String name;
  Type type;
  // A list: its length (of type `count`) and then that many values of `type`.
  bool list = false;
  Type count;
};

struct Element {
  String name;
  Int64 count = 0;
  std::vector<Property> properties;
};

// One record: the values of the properties that are not lists, in their
// order, and the values of each list property, in theirs.
struct Record {
  std::vector<double> values;
  std::vector<std::vector<double>> lists;
};

class Reader {
 public:
  // `path` names the file in errors; both must outlive the reader.
  Reader(const String& path, const std::vector<char>& bytes);

  // The header up to end_header. Errors: no "ply" line, an unknown format,
  // an element line without a whole count, a header without an end.
  Result<void> ReadHeader();
  const std::vector<Element>& GetElements() const { return elements_; }

  // Refuses the first of elements [0, last] whose count the bytes after the
  // header cannot hold: "file: the header declares N faces, more than the
  // file's M bytes can hold".
  Result<void> CheckCounts(size_t last) const;

  // Record `index` of `e`, which must be the next one in the file.
  Result<void> Read(const Element& e, Int64 index, Record* out);
  // Passes over all records of `e`.
  Result<void> Skip(const Element& e);

  // "file: vertex 3", for errors.
  String Where(const Element& e, Int64 index) const;

 private:
  bool NextLine(String* line);
  Result<void> ReadAscii(const Element& e, Int64 index, Record* out);
  Result<void> ReadBinary(const Element& e, Int64 index, Record* out);
  bool Decode(const Type& t, double* out);
  Result<void> Known(const Element& e) const;

  enum class Format { ASCII, LITTLE, BIG };
  const String& path_;
  const std::vector<char>& bytes_;
  size_t pos_ = 0, bodyStart_ = 0;
  Format format_ = Format::ASCII;
  std::vector<Element> elements_;
  String line_;
  std::vector<String> fields_;
};

// A mesh: x, y and z of the vertex element, and the polygons of the face
// element's "vertex_indices" (or "vertex_index") lists; a "tristrips" element
// adds its strips as triangles (a negative index ends a strip). Indices are
// not checked against the point count here; one that is negative or beyond
// 2^32 comes as 0xFFFFFFFF, out of every mesh's range.
struct Mesh {
  std::vector<double> xyz;
  std::vector<uint32_t> corners;
  std::vector<uint32_t> sizes;  // corners of each polygon
};
// `cancelled` (may be empty) is polled while records are read.
Result<Mesh> ReadMesh(const String& path, const std::vector<char>& bytes, const std::function<bool()>& cancelled);

}  // namespace zta::ply
