// libFuzzer target: the mesh readers, each format zvol takes (OBJ, PLY, STL,
// OFF, glTF, Collada, FBX, 3DS, ...) on any bytes. Each input gives a polygon
// object or one error line, never a crash, a leak or undefined behaviour; an
// object's corners are its points and its points are finite. The readers are
// Assimp's (not instrumented); what is checked is what our side makes of them.
// Built and run by "./zv fuzz mesh [SECONDS]", not by the tests.
#include <cmath>

#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "tests/fuzz/fuzzfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view ext, body;
  if (!zvfuzz::SplitFormat(data, size, ext, body)) return 0;
  for (char c : ext)
    if (!(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9')) return 0;
  const std::string path = zvfuzz::WriteInput(ext, body);
  if (path.empty()) zvfuzz::Fail("could not write the input", "");
  if (!zta::IsReadableMeshFile(path)) return 0;
  zta::MeshFileInfo info;
  auto op = zta::ReadMeshFile(path, nullptr, {}, &info);
  if (!op) {
    zvfuzz::CheckOneLine(op.GetError().GetMessage());
    return 0;
  }
  const zta::PolygonObject& mesh = *op.GetValue();
  const zta::Int32 points = mesh.GetPointCount();
  const zta::Vector* p = mesh.GetPointR();
  for (zta::Int32 i = 0; i < points; ++i)
    if (!std::isfinite(p[i].x) || !std::isfinite(p[i].y) || !std::isfinite(p[i].z)) zvfuzz::Fail("a point that is not finite", "");
  const zta::CPolygon* polygons = mesh.GetPolygonR();
  for (zta::Int32 i = 0; i < mesh.GetPolygonCount(); ++i)
    for (zta::Int32 k = 0; k < 4; ++k)
      if (polygons[i][k] < 0 || polygons[i][k] >= points) zvfuzz::Fail("a corner that is not a point", std::to_string(i));
  if (!(info.scale > 0.0) || !std::isfinite(info.scale)) zvfuzz::Fail("a scale that is no scale", std::to_string(info.scale));
  return 0;
}
