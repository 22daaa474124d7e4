// zvol sample: values of a .vdb grid at world positions, through a grid
// accessor and OpenVDB's nearest, linear or quadratic sampler.
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

#include "fileframe.h"
#include "zelmar/volumeaccessors.h"
#include "zvol.h"

namespace {

using zelmar::GRIDTYPE;
using zelmar::VOLUMESAMPLER;

std::string Format(bool v) { return v ? "1" : "0"; }
std::string Format(float v) {
  char b[32];
  std::snprintf(b, sizeof b, "%.9g", double(v));
  return b;
}
std::string Format(double v) {
  char b[40];
  std::snprintf(b, sizeof b, "%.17g", v);
  return b;
}
std::string Format(int32_t v) { return std::to_string(v); }
std::string Format(int64_t v) { return std::to_string(v); }
template <typename T>
std::string Format(const zta::Vec3<T>& v) {
  return Format(v.x) + "," + Format(v.y) + "," + Format(v.z);
}

// Calls f(T{}) with the interface's value type of `type`.
template <typename F>
void WithValueType(GRIDTYPE type, F&& f) {
  switch (type) {
    case GRIDTYPE::BOOL: f(bool{}); return;
    case GRIDTYPE::FLOAT: f(float{}); return;
    case GRIDTYPE::DOUBLE: f(double{}); return;
    case GRIDTYPE::INT32: f(int32_t{}); return;
    case GRIDTYPE::INT64: f(int64_t{}); return;
    case GRIDTYPE::VEC3I: f(zta::IntVector32{}); return;
    case GRIDTYPE::VEC3S: f(zta::Vector32{}); return;
    case GRIDTYPE::VEC3D: f(zta::Vector64{}); return;
    case GRIDTYPE::STRING:
    case GRIDTYPE::NONE: break;
  }
  throw zvol::Failure(std::string("grids of type ") + zelmar::GridTypeName(type) + " cannot be sampled");
}

// Positions from a file, or stdin for "-": one "x,y,z" (or "x y z") a line.
void ReadPositions(const std::string& path, std::vector<zta::Vector>& out) {
  std::ifstream file;
  if (path != "-") {
    file.open(path);
    if (!file) throw zvol::Failure("could not open " + path);
  }
  std::istream& in = path == "-" ? std::cin : file;
  std::string line;
  for (int n = 1; std::getline(in, line); ++n) {
    for (char& c : line)
      if (c == ' ' || c == '\t') c = ',';
    while (!line.empty() && line.back() == ',') line.pop_back();
    const size_t start = line.find_first_not_of(',');
    if (start == std::string::npos) continue;
    try {
      out.push_back(zvol::ParseVector(line.substr(start), "--positions"));
    } catch (const CLI::ValidationError&) {
      throw CLI::ValidationError("--positions", path + " line " + std::to_string(n) + ": expected X,Y,Z");
    }
  }
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string file;
    std::vector<std::string> at;
    std::string positions;
    VOLUMESAMPLER sampler = VOLUMESAMPLER::LINEAR;
    std::string grid;
  };
  auto o = std::make_shared<Options>();
  app.add_option("file", o->file, "the .vdb file")->required();
  app.add_option("--at", o->at, "a world position X,Y,Z in the file's frame; repeat for more")
      ->type_name("X,Y,Z")
      ->allow_extra_args(false);
  app.add_option("--positions", o->positions, "a file of positions, one X,Y,Z a line; - reads stdin");
  const std::map<std::string, VOLUMESAMPLER> samplers = {
      {"nearest", VOLUMESAMPLER::NEAREST}, {"linear", VOLUMESAMPLER::LINEAR}, {"quadratic", VOLUMESAMPLER::QUADRATIC}};
  app.add_option("--sampler", o->sampler, "interpolation: nearest, linear (default) or quadratic")
      ->transform(CLI::CheckedTransformer(samplers, CLI::ignore_case).description(""))
      ->type_name("NAME");
  app.add_option("--grid", o->grid, "the grid, by name or index (default: the first)");
  return [o](const zvol::Context& ctx) {
    std::vector<zta::Vector> points;
    for (const auto& a : o->at) points.push_back(zvol::ParseVector(a, "--at"));
    if (!o->positions.empty()) ReadPositions(o->positions, points);
    if (points.empty()) throw CLI::ValidationError("--at", "give at least one position with --at or --positions");

    zelmar::Volume volume;
    {
      zvol::Step step(ctx, "read");
      volume = zvol::LoadInFileFrame(o->file, o->grid);
    }
    zvol::Step step(ctx, "sample");
    WithValueType(volume.GetGridType(), [&]<typename T>(T) {
      auto accessor = zvol::Take(zelmar::GridAccessorCreationImpl::Create<T>());
      zvol::Check(accessor->Init(volume, o->sampler));
      std::string out;
      for (size_t i = 0; i < points.size(); ++i) {
        if ((i & 0xfff) == 0) ctx.CheckInterrupted();
        out += Format(accessor->GetValueVector(points[i]));
        out += '\n';
      }
      std::fputs(out.c_str(), stdout);
    });
    return 0;
  };
}

}  // namespace

ZVOL_VERB("sample", "values of a .vdb grid at world positions, interpolated", Setup);
