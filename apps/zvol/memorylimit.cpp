#include "memorylimit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "host/core/format.h"
#include "meshio.h"
#include "zelmar/memorylimit.h"
#include "zvol.h"

namespace zvol {

uint64_t g_memoryLimit = 0;

namespace {

// Bytes a voxel of a narrow band costs at the peak of a conversion: the float
// distance, the closest-polygon index grid OpenVDB builds beside it, and leaf
// nodes the band fills only in part.
constexpr double kBytesPerConvertedVoxel = 16.0;

// "3.2e+12" rather than fifteen digits.
std::string FormatCount(double n) {
  char text[32];
  std::snprintf(text, sizeof text, n < 1e7 ? "%.0f" : "%.2g", n);
  return text;
}

}  // namespace

uint64_t ParseMemorySize(const std::string& text) {
  if (text == "none") return std::numeric_limits<uint64_t>::max();
  char* end = nullptr;
  const double n = std::strtod(text.c_str(), &end);
  double unit = 1.0;
  const std::string suffix = end ? std::string(end) : std::string();
  if (suffix == "K" || suffix == "k") unit = 1024.0;
  else if (suffix == "M" || suffix == "m") unit = 1024.0 * 1024.0;
  else if (suffix == "G" || suffix == "g") unit = 1024.0 * 1024.0 * 1024.0;
  else if (suffix == "T" || suffix == "t") unit = 1024.0 * 1024.0 * 1024.0 * 1024.0;
  else if (!suffix.empty() || end == text.c_str()) unit = -1.0;
  if (unit < 0.0 || !(n > 0.0) || !std::isfinite(n * unit) || n * unit >= 1.8e19)
    throw CLI::ValidationError("--memory-limit", "expected a size such as 512M, 16G or 2T, or none; got '" + text + "'");
  return uint64_t(n * unit);
}

uint64_t AvailableMemory() { return zelmar::MemoryLimitInterface::GetAvailable(); }

std::string MemoryText(double bytes) {
  const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  int u = 0;
  while (bytes >= 1024.0 && u < 6) {
    bytes /= 1024.0;
    ++u;
  }
  char text[48];
  std::snprintf(text, sizeof text, u == 0 ? "%.0f %s" : "%.1f %s", bytes, units[u]);
  return text;
}

void CheckMemoryNeed(double bytes, const std::string& what) {
  if (g_memoryLimit == std::numeric_limits<uint64_t>::max()) return;
  const bool stated = g_memoryLimit != 0;
  const uint64_t limit = stated ? g_memoryLimit : AvailableMemory();
  // Without a figure from the system there is nothing to hold the work to.
  if (limit == 0 || bytes <= double(limit)) return;
  throw Failure(what + " needs about " + MemoryText(bytes) + ", more than the " + MemoryText(double(limit)) +
                (stated ? " that --memory-limit allows" : " of memory available") +
                " (--memory-limit SIZE or none overrides the check)");
}

double EstimateMeshVoxels(const ConversionMesh& mesh, double voxelSize, double bandVoxels, bool fill) {
  double area = 0.0, volume = 0.0;
  const auto& p = mesh.points;
  auto triangle = [&](uint32_t a, uint32_t b, uint32_t c) {
    if (size_t(a) >= p.size() || size_t(b) >= p.size() || size_t(c) >= p.size()) return;
    const zta::Vector e1 = p[size_t(b)] - p[size_t(a)], e2 = p[size_t(c)] - p[size_t(a)];
    area += 0.5 * zta::Cross(e1, e2).GetLength();
    // The divergence theorem: signed volumes of the tetrahedra to the origin.
    volume += zta::Dot(p[size_t(a)], zta::Cross(p[size_t(b)], p[size_t(c)])) / 6.0;
  };
  for (const auto& poly : mesh.polygons) {
    triangle(poly.a, poly.b, poly.c);
    if (!poly.IsTriangle()) triangle(poly.a, poly.c, poly.d);
  }
  double voxels = area / (voxelSize * voxelSize) * std::max(bandVoxels, 1.0);
  if (fill) voxels += std::fabs(volume) / (voxelSize * voxelSize * voxelSize);
  return voxels;
}

void CheckMeshConversion(const ConversionMesh& mesh, double voxelSize, double bandVoxels, bool fill,
                         const std::string& path) {
  const double voxels = EstimateMeshVoxels(mesh, voxelSize, bandVoxels, fill);
  CheckMemoryNeed(voxels * kBytesPerConvertedVoxel,
                  zta::FormatString("@ at voxel size @ (about @ voxels)", path, voxelSize, FormatCount(voxels)));
}

}  // namespace zvol
