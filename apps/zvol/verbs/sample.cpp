// zvol sample: values of a .vdb grid at world positions, through a grid
// accessor and OpenVDB's nearest, linear or quadratic sampler.
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

#include "valuetext.h"
#include "zelmar/volumeaccessors.h"
#include "zvol.h"

namespace {

using zelmar::GRIDTYPE;
using zelmar::VOLUMESAMPLER;

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
      volume = zvol::LoadVolume(o->file, o->grid, zvol::Frame::FILE);
    }
    zvol::Step step(ctx, "sample");
    zvol::WithValueType(volume.GetGridType(), "sampled", [&]<typename T>(T) {
      auto accessor = zvol::Take(zelmar::GridAccessorCreationImpl::Create<T>());
      zvol::Check(accessor->Init(volume, o->sampler));
      std::string out;
      for (size_t i = 0; i < points.size(); ++i) {
        if ((i & 0xfff) == 0) ctx.CheckInterrupted();
        zvol::PutValue(out, accessor->GetValueVector(points[i]));
        out += '\n';
      }
      std::fputs(out.c_str(), stdout);
    });
    return 0;
  };
}

}  // namespace

ZVOL_VERB("sample", "values of a .vdb grid at world positions, interpolated", Setup);
