// zvol convert sdf2fog|fog2sdf|vec2fog: change what a grid's voxels mean.
#include <limits>

#include "host/core/format.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::GRIDCLASS;
using zelmar::GRIDTYPE;
using zelmar::Volume;
using zelmar::VolumeToolsInterface;

struct Options {
  std::string kind;
  std::string input;
  std::string output;
  double cutoff = 0.0;  // 0: the whole band
  double iso = 0.5;
};

std::string Describe(const Volume& v) {
  return zta::FormatString("a @ grid of class @", zelmar::GridTypeName(v.GetGridType()),
                           zelmar::GridClassName(v.GetGridClass()));
}


// The operators hand unfitting input back unchanged or give no grid; a person
// is told what was wrong instead.
Volume Convert(const zvol::Context& ctx, const Options& o, const Volume& input) {
  if (o.kind == "sdf2fog") {
    if (input.GetGridClass() != GRIDCLASS::SDF ||
        (input.GetGridType() != GRIDTYPE::FLOAT && input.GetGridType() != GRIDTYPE::DOUBLE))
      throw zvol::Failure(o.input + " holds " + Describe(input) + "; sdf2fog needs a level set");
    const double cutoff = o.cutoff > 0.0 ? o.cutoff : double(std::numeric_limits<float>::max());
    return zvol::Take(VolumeToolsInterface::ConvertSDFToFog(input, cutoff));
  }
  if (o.kind == "fog2sdf") {
    if (input.GetGridClass() == GRIDCLASS::SDF || input.GetGridType() != GRIDTYPE::FLOAT)
      throw zvol::Failure(o.input + " holds " + Describe(input) + "; fog2sdf needs a float grid that is not a level set");
    return zvol::Take(VolumeToolsInterface::ConvertFogToSDF(input, o.iso, ctx.thread));
  }
  if (!zvol::IsVectorType(input.GetGridType()))
    throw zvol::Failure(o.input + " holds " + Describe(input) + "; vec2fog needs a vector grid");
  return zvol::Take(VolumeToolsInterface::ConvertVectorToFog(input, ctx.thread));
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("conversion", o->kind,
                 "sdf2fog: level set to density; fog2sdf: density to level set through its iso surface; "
                 "vec2fog: vector lengths")
      ->required()
      ->check(CLI::IsMember({"sdf2fog", "fog2sdf", "vec2fog"}));
  app.add_option("input", o->input, "the .vdb file")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  app.add_option("--cutoff", o->cutoff, "sdf2fog: depth in world units at which the density reaches 1; "
                                        "default the whole inner band")
      ->check(CLI::PositiveNumber);
  app.add_option("--iso", o->iso, "fog2sdf: the density of the surface")->capture_default_str();
  return [o](const zvol::Context& ctx) {
    Volume input;
    {
      zvol::Step step(ctx, "read");
      input = zvol::LoadVolume(o->input);
    }
    Volume result;
    {
      zvol::Progress progress(ctx, o->kind);
      zvol::Step step(ctx, o->kind);
      result = Convert(ctx, *o, input);
    }
    result.SetGridName(input.GetGridName());
    zvol::WriteResult(ctx, o->output, result, o->input + ": the conversion");
    return 0;
  };
}

}  // namespace

ZVOL_VERB("convert", "turn a level set into fog and back, or vectors into their lengths", Setup);
