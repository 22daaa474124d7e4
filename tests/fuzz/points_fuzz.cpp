// libFuzzer target: the point reader (rows of CSV, XYZ, TXT or PTS, and PLY in
// ASCII and both binary orders) on any bytes. Each input gives a table
// or one error line, never a crash, a leak or undefined behaviour; a table has
// one radius and velocity per point when it has any, and finite values.
// Built and run by "./zv fuzz points [SECONDS]", not by the tests.
#include <cmath>

#include "host/modeling/pointsio.h"
#include "tests/fuzz/fuzzfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view ext, body;
  if (!zvfuzz::SplitFormat(data, size, ext, body) ||
      (ext != "csv" && ext != "xyz" && ext != "txt" && ext != "pts" && ext != "ply"))
    return 0;
  const std::string path = zvfuzz::WriteInput(ext, body);
  if (path.empty()) zvfuzz::Fail("could not write the input", "");
  auto table = zta::ReadPointFile(path);
  if (!table) {
    zvfuzz::CheckOneLine(table.GetError().GetMessage());
    return 0;
  }
  const zta::PointTable& t = table.GetValue();
  const size_t n = t.positions.size();
  if ((!t.radii.empty() && t.radii.size() != n) || (!t.velocities.empty() && t.velocities.size() != n))
    zvfuzz::Fail("columns of different lengths", "");
  for (const zta::Vector& p : t.positions)
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) zvfuzz::Fail("a position that is not finite", "");
  return 0;
}
