// The Volume Mesher against raw openvdb::tools::volumeToMesh on the same grid:
// a sphere level set of voxel size 0.004 (about 4.7M active voxels, 800k
// quads). Each run is a child process of its own, which makes the grid, then
// times one case and measures the peak memory the case adds to what the grid
// holds; the cases alternate, and the medians and ratios are printed.
//
//   raw            openvdb::tools::volumeToMesh into point and quad arrays
//   tool           VolumeToolsInterface::VolumeToMesh (polygon object and UVs)
//   tool-nouv      the same without UVs, as zvol makes a mesh for an STL file
//   mesher         a document pass of a mesher over a volume object, absolute iso
//   mesher+curv    the same with the curvature map
//   mesher+range   relative iso: the first build walks the grid's values
//   curvature      the mean curvature volume alone, the first part of the map's cost
//
// The mesher's polygon objects always carry spherical UVs (the mesh tool
// makes them); the tool's line shows their share.
#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>
#include <openvdb/tools/VolumeToMesh.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "host/objects/polygonobject.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumemesher.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/releasing.h"
#include "zelmar/volumetools.h"

namespace {

constexpr float kVoxel = 0.004f;

long StatusKb(const char* key) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind(key, 0) == 0) return std::atol(line.c_str() + std::char_traits<char>::length(key));
  return -1;
}

double CpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

// Page faults cost much more in a virtual machine than on bare metal; they
// explain most of the spread between runs there.
long MinorFaults() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_minflt;
}

struct Sample {
  double seconds = 0.0;
  double cpu = 0.0;  // of all threads
  double peakMb = 0.0;
  long faults = 0;
  long polygons = 0;
};

// Runs in the child: the grid, then the case under the clock.
Sample RunCase(const std::string& name) {
  if (!zelmar::StartModuleStandalone(ZV_BIN_DIR).IsOk()) std::exit(3);
  openvdb::FloatGrid::Ptr grid =
      openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f), kVoxel);
  const zelmar::Volume volume = *zelmar::MakeVolume(grid);

  std::unique_ptr<zta::BaseDocument> doc;
  zta::BaseObject* mesher = nullptr;
  if (name.rfind("mesher", 0) == 0) {
    doc = zta::AllocDocument();
    mesher = zta::AllocObject(zelmar::ID_VOLUMEMESHER).release();
    doc->InsertObject(mesher);
    zelmar::VolumeObjectData::MakeObject(volume).release()->InsertUnderLast(mesher);
    zta::BaseContainer* bc = mesher->GetDataInstance();
    bc->SetBool(zelmar::MESHER_USE_ABSOLUTE, name != "mesher+range");
    bc->SetFloat(zelmar::MESHER_THRESHOLD_ABSOLUTE, 0.0);
    bc->SetBool(zelmar::MESHER_CURVATURE_MAP, name == "mesher+curv");
  }

  // The peak from here on: the grid's making is not the case's.
  { std::ofstream("/proc/self/clear_refs") << "5"; }
  const long before = StatusKb("VmRSS:");
  Sample s;
  const double cpu0 = CpuSeconds();
  const long faults0 = MinorFaults();
  const auto t0 = std::chrono::steady_clock::now();
  if (name == "raw") {
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    std::vector<openvdb::Vec4I> quads;
    openvdb::tools::volumeToMesh(*grid, points, triangles, quads, 0.0, 0.0);
    s.polygons = long(triangles.size() + quads.size());
  } else if (name == "curvature") {
    auto c = zelmar::VolumeToolsInterface::CreateMeanCurvatureVolume(volume, nullptr);
    s.polygons = c ? 0 : -1;
  } else if (name == "tool") {
    auto op = zelmar::VolumeToolsInterface::VolumeToMesh(volume, 0.0, 0.0);
    s.polygons = op && *op ? (*op)->GetPolygonCount() : -1;
  } else if (name == "tool-nouv") {
    // The copy shares the grid, which stays.
    auto op = zelmar::VolumeToMeshReleasing(zelmar::Volume(volume), 0.0, 0.0, /*withUVs=*/false);
    s.polygons = op && *op ? (*op)->GetPolygonCount() : -1;
  } else {
    zta::ExecutePasses(doc.get(), nullptr);
    auto* poly = dynamic_cast<zta::PolygonObject*>(mesher->GetCache());
    s.polygons = poly ? poly->GetPolygonCount() : -1;
  }
  s.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  s.cpu = CpuSeconds() - cpu0;
  s.faults = MinorFaults() - faults0;
  s.peakMb = double(StatusKb("VmHWM:") - before) / 1024.0;
  return s;
}

double Median(std::vector<double> v);

// Raw and the tool again and again in one process, after a first untimed
// pass of each: memory the process has touched before is reused, so this
// compares the work of the two without the first touch of fresh pages, which
// costs a virtual machine much more than bare metal.
int Warm(int runs) {
  if (!zelmar::StartModuleStandalone(ZV_BIN_DIR).IsOk()) return 3;
  openvdb::FloatGrid::Ptr grid =
      openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f), kVoxel);
  const zelmar::Volume volume = *zelmar::MakeVolume(grid);
  auto timeRaw = [&] {
    const auto t0 = std::chrono::steady_clock::now();
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    std::vector<openvdb::Vec4I> quads;
    openvdb::tools::volumeToMesh(*grid, points, triangles, quads, 0.0, 0.0);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  };
  auto timeTool = [&] {
    const auto t0 = std::chrono::steady_clock::now();
    auto op = zelmar::VolumeToolsInterface::VolumeToMesh(volume, 0.0, 0.0);
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (!op || !*op) std::exit(1);
    return s;
  };
  timeRaw();
  timeTool();
  std::vector<double> raw, tool;
  for (int r = 0; r < runs; ++r) {
    if (r % 2) {
      raw.push_back(timeRaw());
      tool.push_back(timeTool());
    } else {
      tool.push_back(timeTool());
      raw.push_back(timeRaw());
    }
  }
  std::printf("warm, one process, medians of %d: raw %.1f ms, tool %.1f ms, tool / raw = %.3f\n", runs,
              Median(raw) * 1000.0, Median(tool) * 1000.0, Median(tool) / Median(raw));
  return 0;
}

Sample Spawn(const std::string& name) {
  int fd[2];
  if (pipe(fd) != 0) std::exit(2);
  const pid_t pid = fork();
  if (pid == 0) {
    close(fd[0]);
    const Sample s = RunCase(name);
    if (write(fd[1], &s, sizeof(s)) != ssize_t(sizeof(s))) _exit(4);
    _exit(0);
  }
  close(fd[1]);
  Sample s;
  const bool got = read(fd[0], &s, sizeof(s)) == ssize_t(sizeof(s));
  close(fd[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (!got || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "mesher_bench: the case %s failed\n", name.c_str());
    std::exit(1);
  }
  return s;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  // An optional second argument picks cases ("raw,tool"), for a profiler's
  // run, or is "warm" for raw and the tool repeated in one process.
  std::vector<std::string> cases = {"raw", "tool", "tool-nouv", "mesher", "mesher+curv", "mesher+range", "curvature"};
  if (argc > 2 && std::string(argv[2]) == "warm") return Warm(runs);
  if (argc > 2) {
    cases.clear();
    std::string list = argv[2];
    for (size_t at = 0; at <= list.size();) {
      const size_t comma = std::min(list.find(',', at), list.size());
      cases.push_back(list.substr(at, comma - at));
      at = comma + 1;
    }
    for (const std::string& c : cases)
      if (c != "raw" && c != "tool" && c != "tool-nouv" && c != "curvature" && c.rfind("mesher", 0) != 0) {
        std::fprintf(stderr, "mesher_bench: no case %s\n", c.c_str());
        return 2;
      }
    if (std::find(cases.begin(), cases.end(), "raw") == cases.end()) cases.insert(cases.begin(), "raw");
  }
  std::map<std::string, std::vector<double>> times, cpus, peaks, faults;
  std::map<std::string, long> polygons;
  for (int r = 0; r < runs; ++r)
    for (const std::string& c : cases) {
      const Sample s = Spawn(c);
      times[c].push_back(s.seconds);
      cpus[c].push_back(s.cpu);
      peaks[c].push_back(s.peakMb);
      faults[c].push_back(double(s.faults));
      polygons[c] = s.polygons;
    }
  const double raw = Median(times["raw"]), rawCpu = Median(cpus["raw"]);
  std::printf("%-14s %10s %8s %10s %8s %12s %10s %10s\n", "case", "wall (ms)", "ratio", "cpu (ms)", "ratio",
              "peak (MB)", "faults", "polygons");
  for (const std::string& c : cases)
    std::printf("%-14s %10.1f %8.3f %10.1f %8.3f %12.1f %10.0f %10ld\n", c.c_str(), Median(times[c]) * 1000.0,
                Median(times[c]) / raw, Median(cpus[c]) * 1000.0, Median(cpus[c]) / rawCpu, Median(peaks[c]),
                Median(faults[c]), polygons[c]);
  std::printf("medians of %d runs each, alternating; peak: memory above the grid while the case ran\n", runs);
  if (!times.count("mesher") || !times.count("mesher+curv") || !times.count("mesher+range")) return 0;
  std::printf("mesher / raw = %.3f wall, %.3f cpu (target <= 1.05); curvature map adds %.1f%%, the value walk %.1f%%\n",
              Median(times["mesher"]) / raw, Median(cpus["mesher"]) / rawCpu,
              100.0 * (Median(times["mesher+curv"]) - Median(times["mesher"])) / Median(times["mesher"]),
              100.0 * (Median(times["mesher+range"]) - Median(times["mesher"])) / Median(times["mesher"]));
  return 0;
}
