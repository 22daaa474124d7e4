#pragma once
// The zvol command-line tool: shared pieces of its verbs. Each verb lives in
// verbs/<name>.cpp and registers itself with ZVOL_VERB, so that adding a verb
// touches no other file.
#include <CLI/CLI.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/core/math.h"
#include "host/core/result.h"
#include "host/core/thread.h"
#include "zelmar/volume.h"

namespace zvol {

// A failure that ends the verb with "error: <text>" and exit status 1.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// An error in words: its message, or its kind when it has none ("out of memory").
inline std::string ErrorText(const zta::Error& e) {
  if (!e.GetMessage().empty()) return e.GetMessage();
  if (e.GetKind() == zta::ErrorKind::OutOfMemory) return "out of memory";
  return std::string(zta::ErrorKindName(e.GetKind())) + " error";
}

// The value of a Result, or a Failure with its message.
template <typename T>
T Take(zta::Result<T> r) {
  if (!r) throw Failure(ErrorText(r.GetError()));
  return std::move(r.GetValue());
}
inline void Check(const zta::Result<void>& r) {
  if (!r) throw Failure(ErrorText(r.GetError()));
}

// What every verb gets: the options common to all and the thread reference
// that Ctrl-C stops.
struct Context {
  bool quiet = false;
  bool verbose = false;
  int threads = 0;
  zta::ThreadRef thread;
  // Messages for people go to stderr, and --quiet silences them.
  void Say(const std::string& text) const;
  // Throws when Ctrl-C asked the work to stop.
  void CheckInterrupted() const;
};

// Times one step and prints it with --verbose.
class Step {
 public:
  Step(const Context& ctx, std::string name);
  ~Step();

 private:
  const Context& ctx_;
  std::string name_;
  std::chrono::steady_clock::time_point start_;
};

// A progress bar on stderr, shown only when stdout is a terminal. Without a
// known fraction it spins. Redrawn from a thread of its own until destroyed.
class Progress {
 public:
  Progress(const Context& ctx, std::string title);
  ~Progress();
  void Set(double fraction);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// Refuses an output path whose folder is missing or that names a folder, in
// words a person knows, before any work is done.
void CheckOutputPath(const std::string& path);

// A file written in full or not at all: work goes to a temporary file beside
// the target, which Commit() renames into place. Without Commit the temporary
// file is removed.
class AtomicOutput {
 public:
  explicit AtomicOutput(std::string target);
  ~AtomicOutput();
  const std::string& TempPath() const { return temp_; }
  const std::string& Target() const { return target_; }
  void Commit();

 private:
  std::string target_;
  std::string temp_;
  bool committed_ = false;
};

using VerbRun = std::function<int(const Context&)>;
// Adds the verb's options to `app` and returns what runs it once parsed.
using VerbSetup = std::function<VerbRun(CLI::App& app)>;

struct VerbRegistration {
  VerbRegistration(const char* name, const char* help, VerbSetup setup);
};

struct VerbEntry {
  std::string name;
  std::string help;
  VerbSetup setup;
};
const std::vector<VerbEntry>& Verbs();

#define ZVOL_VERB_CAT2(a, b) a##b
#define ZVOL_VERB_CAT(a, b) ZVOL_VERB_CAT2(a, b)
#define ZVOL_VERB(name, help, setup) \
  static const ::zvol::VerbRegistration ZVOL_VERB_CAT(zvolVerb_, __LINE__)(name, help, setup)

inline bool IsVectorType(zelmar::GRIDTYPE t) {
  return t == zelmar::GRIDTYPE::VEC3I || t == zelmar::GRIDTYPE::VEC3S || t == zelmar::GRIDTYPE::VEC3D;
}

// Positions and directions on the command line are in the right-handed frame
// of files; the scene mirrors the third axis.
inline zta::Vector ToScene(const zta::Vector& v) { return {v.x, v.y, -v.z}; }
inline zta::Vector ToOutside(const zta::Vector& v) { return {v.x, v.y, -v.z}; }
// A scene matrix seen from the file's frame: M * m * M with M the mirror.
zta::Matrix ToOutside(const zta::Matrix& m);

// Parses "x,y,z".
zta::Vector ParseVector(const std::string& text, const char* what);
// Adds an option that takes "x,y,z".
CLI::Option* AddVectorOption(CLI::App& app, const std::string& name, zta::Vector& target, const std::string& help);

// Where a verb's grids stand while it works: in the scene's frame, mirrored
// along the third axis on the way in and out as every reader and writer does,
// or in the file's own frame, read and written as they are.
enum class Frame { SCENE, FILE };

// The frame for a verb whose operation works voxel by voxel on the first
// grids of `paths`. The mirror commutes with such an operation when it pairs
// voxels by index (`pairsByIndex`), or when every input lies on one transform,
// so nothing is resampled: then the file's frame gives the same voxels and
// saves a mirror per grid read and written. Otherwise the inputs meet in the
// scene's frame, where the second ones are resampled with a sampler that is
// not symmetric under the mirror. Unreadable files give the scene's frame,
// and their load reports them.
Frame PointwiseFrame(const std::vector<std::string>& paths, bool pairsByIndex);

// The index of the grid that `grid` names in a .vdb file: a name, an index,
// or, empty, the first grid that can be loaded.
int64_t ChooseGrid(const std::string& path, const std::string& grid);
// Loads the grid chosen by `grid` (a name or an index; empty for the first) of a .vdb file.
zelmar::Volume LoadVolume(const std::string& path, const std::string& grid = {}, Frame frame = Frame::SCENE);
// Writes volumes to `path` atomically.
void SaveVolumes(const Context& ctx, const std::string& path, const std::vector<zelmar::Volume>& volumes,
                 Frame frame = Frame::SCENE);

// The end of a verb that makes one volume: stops when Ctrl-C came, refuses a
// result without grid ("<what> gave no grid"), writes it and says where.
void WriteResult(const Context& ctx, const std::string& path, const zelmar::Volume& result, const std::string& what,
                 Frame frame = Frame::SCENE);

// The first grids of several files, read side by side as one step.
std::vector<zelmar::Volume> LoadVolumes(const Context& ctx, const std::vector<std::string>& paths,
                                        Frame frame = Frame::SCENE);
// The two inputs of a verb that joins a pair of volumes.
std::pair<zelmar::Volume, zelmar::Volume> LoadPair(const Context& ctx, const std::string& a, const std::string& b,
                                                   Frame frame = Frame::SCENE);
// Refuses two grids of unlike value types, naming both files.
void RequireSameType(const std::string& verb, const std::string& pathA, const zelmar::Volume& a,
                     const std::string& pathB, const zelmar::Volume& b);

}  // namespace zvol
