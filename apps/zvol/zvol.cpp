#include "zvol.h"

#include <tbb/parallel_for.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include "memorylimit.h"
#include "zelmar/fileframe.h"
#include "zelmar/volumetools.h"

namespace zvol {

void Context::Say(const std::string& text) const {
  if (!quiet) std::fprintf(stderr, "%s\n", text.c_str());
}

void Context::CheckInterrupted() const {
  if (thread && thread->TestBreak()) throw Failure("interrupted");
}

Step::Step(const Context& ctx, std::string name)
    : ctx_(ctx), name_(std::move(name)), start_(std::chrono::steady_clock::now()) {}

Step::~Step() {
  if (!ctx_.verbose) return;
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
  std::fprintf(stderr, "%-28s %10.1f ms\n", name_.c_str(), ms);
}

struct Progress::State {
  std::mutex mutex;
  std::string title;
  std::atomic<double> fraction{-1.0};
  std::atomic<bool> done{false};
  std::thread drawer;
};

Progress::Progress(const Context& ctx, std::string title) : state_(std::make_shared<State>()) {
  if (ctx.quiet || !isatty(STDOUT_FILENO) || !isatty(STDERR_FILENO)) return;
  state_->title = std::move(title);
  state_->drawer = std::thread([s = state_]() {
    static const char spin[] = "|/-\\";
    int tick = 0;
    while (!s->done.load()) {
      const double f = s->fraction.load();
      std::string line = "\r" + s->title + " ";
      if (f < 0.0) {
        line += spin[tick % 4];
      } else {
        const int width = 30, filled = int(std::min(1.0, f) * width);
        line += "[" + std::string(filled, '#') + std::string(width - filled, ' ') + "] " +
                std::to_string(int(std::min(1.0, f) * 100)) + "%";
      }
      std::fputs(line.c_str(), stderr);
      std::fflush(stderr);
      ++tick;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
  });
}

Progress::~Progress() {
  state_->done.store(true);
  if (state_->drawer.joinable()) state_->drawer.join();
}

void Progress::Set(double fraction) { state_->fraction.store(fraction); }

void CheckOutputPath(const std::string& path) {
  namespace fs = std::filesystem;
  const fs::path p(path);
  const fs::path folder = p.parent_path().empty() ? fs::path(".") : p.parent_path();
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) throw Failure("the folder of " + path + " does not exist");
  if (fs::is_directory(p, ec)) throw Failure(path + " is a folder");
}

AtomicOutput::AtomicOutput(std::string target) : target_(std::move(target)) {
  namespace fs = std::filesystem;
  const fs::path t(target_);
  CheckOutputPath(target_);
  std::random_device rd;
  std::ostringstream name;
  name << "." << t.filename().string() << ".zvol-" << std::hex << rd() << t.extension().string();
  temp_ = (t.parent_path() / name.str()).string();
}

AtomicOutput::~AtomicOutput() {
  if (!committed_) {
    std::error_code ec;
    std::filesystem::remove(temp_, ec);
  }
}

void AtomicOutput::Commit() {
  std::error_code ec;
  std::filesystem::rename(temp_, target_, ec);
  if (ec) throw Failure("could not write " + target_ + ": " + ec.message());
  committed_ = true;
}

std::vector<VerbEntry>& MutableVerbs() {
  static std::vector<VerbEntry> verbs;
  return verbs;
}
const std::vector<VerbEntry>& Verbs() { return MutableVerbs(); }

VerbRegistration::VerbRegistration(const char* name, const char* help, VerbSetup setup) {
  MutableVerbs().push_back({name, help, std::move(setup)});
}

zta::Matrix ToOutside(const zta::Matrix& m) {
  const zta::Matrix mirror = zta::MatrixScale({1, 1, -1});
  return mirror * m * mirror;
}

zta::Vector ParseVector(const std::string& text, const char* what) {
  zta::Vector v;
  char c1 = 0, c2 = 0;
  std::istringstream in(text);
  if (!(in >> v.x >> c1 >> v.y >> c2 >> v.z) || c1 != ',' || c2 != ',' || !(in >> std::ws).eof())
    throw CLI::ValidationError(what, "expected three numbers as X,Y,Z, got '" + text + "'");
  return v;
}

CLI::Option* AddVectorOption(CLI::App& app, const std::string& name, zta::Vector& target, const std::string& help) {
  return app
      .add_option_function<std::string>(
          name, [&target, name](const std::string& s) { target = ParseVector(s, name.c_str()); }, help)
      ->type_name("X,Y,Z");
}

int64_t ChooseGrid(const std::string& path, const std::string& grid) {
  const auto names = Take(zelmar::VolumeToolsInterface::GetGridNamesFromFile(zta::Url::FromSystemPath(path)));
  int64_t index = 0;
  if (!grid.empty()) {
    index = -1;
    for (size_t i = 0; i < names.size() && index < 0; ++i)
      if (names[i] == grid) index = int64_t(i);
    if (index < 0) {
      char* end = nullptr;
      const long n = std::strtol(grid.c_str(), &end, 10);
      if (end && *end == '\0' && n >= 0 && size_t(n) < names.size()) index = n;
    }
    if (index < 0) throw Failure("no grid '" + grid + "' in " + path);
  } else {
    while (size_t(index) < names.size() && names[size_t(index)].ends_with("~NotSupported")) ++index;
  }
  if (size_t(index) >= names.size()) throw Failure(path + " holds no grid that can be loaded");
  if (names[size_t(index)].ends_with("~NotSupported"))
    throw Failure("grid '" + grid + "' of " + path + " is a point data grid, which is not supported");
  return index;
}

Frame PointwiseFrame(const std::vector<std::string>& paths, bool pairsByIndex) {
  if (pairsByIndex) return Frame::FILE;
  try {
    std::optional<zta::Matrix> shared;
    for (const std::string& path : paths) {
      const zta::Url url = zta::Url::FromSystemPath(path);
      if (zta::IoDetect(url) != zta::IODETECT::FILE) return Frame::SCENE;
      auto transforms = zelmar::FileFrameInterface::GetGridTransformsFromFile(url);
      if (!transforms) return Frame::SCENE;
      const zta::Matrix m = transforms.GetValue().at(size_t(ChooseGrid(path, {})));
      if (!shared) shared = m;
      else if (!(*shared == m)) return Frame::SCENE;
    }
  } catch (const std::exception&) {
    return Frame::SCENE;
  }
  return Frame::FILE;
}

namespace {
double ValueBytes(zelmar::GRIDTYPE type) {
  switch (type) {
    case zelmar::GRIDTYPE::BOOL: return 1.0 / 8.0;
    case zelmar::GRIDTYPE::DOUBLE:
    case zelmar::GRIDTYPE::INT64: return 8.0;
    case zelmar::GRIDTYPE::VEC3I:
    case zelmar::GRIDTYPE::VEC3S: return 12.0;
    case zelmar::GRIDTYPE::VEC3D: return 24.0;
    case zelmar::GRIDTYPE::STRING: return 32.0;
    default: return 4.0;
  }
}
}  // namespace

zelmar::Volume LoadVolume(const std::string& path, const std::string& grid, Frame frame) {
  const zta::Url url = zta::Url::FromSystemPath(path);
  if (zta::IoDetect(url) != zta::IODETECT::FILE) throw Failure("File could not be found: " + path);
  const int64_t index = ChooseGrid(path, grid);
  zelmar::Volume volume = frame == Frame::FILE ? Take(zelmar::FileFrameInterface::LoadGrid(url, index))
                                               : Take(zelmar::Volume::CreateFromFile(url, 1.0, index));
  // A small file can claim a huge grid through active tiles; the tools that
  // work voxel by voxel would make each of them real.
  CheckMemoryNeed(double(volume.GetActiveVoxelCount()) * ValueBytes(volume.GetGridType()),
                  path + " (" + std::to_string(volume.GetActiveVoxelCount()) + " active voxels)");
  return volume;
}

void SaveVolumes(const Context& ctx, const std::string& path, const std::vector<zelmar::Volume>& volumes,
                 Frame frame) {
  Step step(ctx, "write " + std::filesystem::path(path).filename().string());
  AtomicOutput out(path);
  const zta::Url url = zta::Url::FromSystemPath(out.TempPath());
  if (frame == Frame::FILE) Check(zelmar::FileFrameInterface::SaveVDBFile(url, volumes, {}));
  else Check(zelmar::VolumeToolsInterface::SaveVDBFile(url, 1.0, volumes, {}));
  ctx.CheckInterrupted();
  out.Commit();
}

void WriteResult(const Context& ctx, const std::string& path, const zelmar::Volume& result, const std::string& what,
                 Frame frame) {
  ctx.CheckInterrupted();
  if (!result.HasGrid()) throw Failure(what + " gave no grid");
  SaveVolumes(ctx, path, {result}, frame);
  ctx.Say("wrote " + path);
}

std::vector<zelmar::Volume> LoadVolumes(const Context& ctx, const std::vector<std::string>& paths, Frame frame) {
  Step step(ctx, "read");
  std::vector<zelmar::Volume> volumes(paths.size());
  // OpenVDB reads and decompresses a file on one thread: files go side by side.
  // A failure is held until every read has ended: thrown out of the loop, it
  // would cancel the reads still running half-way, inside the library.
  std::vector<std::exception_ptr> failures(paths.size());
  tbb::parallel_for(size_t(0), paths.size(), [&](size_t i) {
    try {
      volumes[i] = LoadVolume(paths[i], {}, frame);
    } catch (...) {
      failures[i] = std::current_exception();
    }
  });
  for (const std::exception_ptr& failure : failures)
    if (failure) std::rethrow_exception(failure);
  return volumes;
}

std::pair<zelmar::Volume, zelmar::Volume> LoadPair(const Context& ctx, const std::string& a, const std::string& b,
                                                   Frame frame) {
  std::vector<zelmar::Volume> both = LoadVolumes(ctx, {a, b}, frame);
  return {std::move(both[0]), std::move(both[1])};
}

void RequireSameType(const std::string& verb, const std::string& pathA, const zelmar::Volume& a,
                     const std::string& pathB, const zelmar::Volume& b) {
  if (a.GetGridType() == b.GetGridType()) return;
  throw Failure(verb + " needs two grids of one type; " + pathA + " holds " + zelmar::GridTypeName(a.GetGridType()) +
                ", " + pathB + " holds " + zelmar::GridTypeName(b.GetGridType()));
}

}  // namespace zvol
