// zvol vmix: add, subtract, cross or replace two vector volumes; the second is
// resampled into the first one's frame.
#include <map>

#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::GRIDCLASS;
using zelmar::GRIDTYPE;
using zelmar::MIXVECTORTYPE;

const std::map<std::string, MIXVECTORTYPE> kOperations = {
    {"add", MIXVECTORTYPE::ADD},
    {"subtract", MIXVECTORTYPE::SUBTRACT},
    {"cross", MIXVECTORTYPE::CROSS},
    {"replace", MIXVECTORTYPE::NORMAL},
};

struct Options {
  std::string operation;
  std::string a, b;
  std::string output;
};

void CheckInput(const std::string& path, const zelmar::Volume& v) {
  const GRIDCLASS c = v.GetGridClass();
  if (c != GRIDCLASS::FOG && c != GRIDCLASS::UNKNOWN)
    throw zvol::Failure(path + " holds a " + zelmar::GridClassName(c) +
                        " grid; vmix takes vector grids of fog or unknown class");
  const GRIDTYPE t = v.GetGridType();
  if (t != GRIDTYPE::VEC3I && t != GRIDTYPE::VEC3S && t != GRIDTYPE::VEC3D)
    throw zvol::Failure(path + " holds a grid of " + zelmar::GridTypeName(t) +
                        "; vmix takes vec3i, vec3s and vec3d grids");
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("operation", o->operation,
                 "add, subtract, cross (a zero vector on one side lets the other through) or replace")
      ->required()
      ->check(CLI::IsMember({"add", "subtract", "cross", "replace"}));
  app.add_option("a", o->a, "the first vector .vdb file; the result takes its frame")->required();
  app.add_option("b", o->b, "the second vector .vdb file")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  return [o](const zvol::Context& ctx) {
    const auto [a, b] = zvol::LoadPair(ctx, o->a, o->b);
    CheckInput(o->a, a);
    CheckInput(o->b, b);
    zvol::RequireSameType("vmix", o->a, a, o->b, b);
    zelmar::Volume result;
    {
      zvol::Step step(ctx, o->operation);
      zvol::Progress progress(ctx, o->operation);
      result = zvol::Take(zelmar::VolumeToolsInterface::MixVectorVolumes(a, b, kOperations.at(o->operation), ctx.thread));
    }
    zvol::WriteResult(ctx, o->output, result, "vmix");
    return 0;
  };
}

}  // namespace

ZVOL_VERB("vmix", "add, subtract, cross or replace two vector volumes", Setup);
