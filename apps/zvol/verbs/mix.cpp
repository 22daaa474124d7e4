// zvol mix: voxel arithmetic on two fog volumes; the second is resampled into
// the first one's frame.
#include <map>

#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::GRIDCLASS;
using zelmar::GRIDTYPE;
using zelmar::MIXTYPE;

const std::map<std::string, MIXTYPE> kOperations = {
    {"max", MIXTYPE::MAXIMUM},       {"min", MIXTYPE::MINIMUM},   {"add", MIXTYPE::ADD},
    {"subtract", MIXTYPE::SUBTRACT}, {"multiply", MIXTYPE::MULTIPLY}, {"divide", MIXTYPE::DIVIDE},
    {"replace", MIXTYPE::NORMAL},
};

struct Options {
  std::string operation;
  std::string a, b;
  std::string output;
};

bool Scalar(GRIDTYPE t) {
  return t == GRIDTYPE::FLOAT || t == GRIDTYPE::DOUBLE || t == GRIDTYPE::INT32 || t == GRIDTYPE::INT64;
}

void CheckInput(const std::string& path, const zelmar::Volume& v) {
  const GRIDCLASS c = v.GetGridClass();
  if (c != GRIDCLASS::FOG && c != GRIDCLASS::UNKNOWN)
    throw zvol::Failure(path + " holds a " + zelmar::GridClassName(c) +
                        " grid; mix takes fog volumes and grids of unknown class" +
                        (c == GRIDCLASS::SDF ? " (bool combines level sets)" : ""));
  if (!Scalar(v.GetGridType()))
    throw zvol::Failure(path + " holds a grid of " + zelmar::GridTypeName(v.GetGridType()) +
                        "; mix takes float, double, int32 and int64 grids" +
                        (v.GetGridType() == GRIDTYPE::VEC3S || v.GetGridType() == GRIDTYPE::VEC3D ||
                                 v.GetGridType() == GRIDTYPE::VEC3I
                             ? " (vmix mixes vectors)"
                             : ""));
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("operation", o->operation, "max, min, add, subtract, multiply, divide or replace")
      ->required()
      ->check(CLI::IsMember({"max", "min", "add", "subtract", "multiply", "divide", "replace"}));
  app.add_option("a", o->a, "the first fog .vdb file; the result takes its frame")->required();
  app.add_option("b", o->b, "the second fog .vdb file")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  return [o](const zvol::Context& ctx) {
    const auto [a, b] = zvol::LoadPair(ctx, o->a, o->b);
    CheckInput(o->a, a);
    CheckInput(o->b, b);
    zvol::RequireSameType("mix", o->a, a, o->b, b);
    zelmar::Volume result;
    {
      zvol::Step step(ctx, o->operation);
      zvol::Progress progress(ctx, o->operation);
      result = zvol::Take(zelmar::VolumeToolsInterface::MixVolumes(a, b, kOperations.at(o->operation), ctx.thread));
    }
    zvol::WriteResult(ctx, o->output, result, "mix");
    return 0;
  };
}

}  // namespace

ZVOL_VERB("mix", "voxel arithmetic on two fog volumes", Setup);
