// zvol blend: a * weight + b * (1 - weight), voxel by voxel in index space.
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::GRIDTYPE;

struct Options {
  std::string a, b;
  double weight = 0.5;
  std::string output;
};

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("a", o->a, "the first .vdb file; the result takes its frame")->required();
  app.add_option("b", o->b, "the second .vdb file, of the same value type")->required();
  app.add_option("--weight", o->weight, "weight of A: 1 gives A, 0 gives B; not clamped")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  return [o](const zvol::Context& ctx) {
    // Voxels meet by index, whatever the transforms: the mirror commutes.
    const zvol::Frame frame = zvol::PointwiseFrame({o->a, o->b}, /*pairsByIndex=*/true);
    const auto [a, b] = zvol::LoadPair(ctx, o->a, o->b, frame);
    const GRIDTYPE type = a.GetGridType();
    // The operator hands these back unblended; a person is told instead.
    if (type == GRIDTYPE::BOOL || type == GRIDTYPE::STRING || type == GRIDTYPE::NONE)
      throw zvol::Failure(o->a + " holds a grid of " + zelmar::GridTypeName(type) +
                          "; blend takes float, double, integer and vector grids");
    if (!(a.GetGridTransform() == b.GetGridTransform()))
      ctx.Say("note: " + o->b + " lies on another transform; it is blended index by index in " + o->a + "'s frame");
    zelmar::Volume result;
    {
      zvol::Step step(ctx, "blend");
      result = zvol::Take(zelmar::VolumeToolsInterface::BlendVolumes(a, b, o->weight, ctx.thread));
    }
    zvol::WriteResult(ctx, o->output, result, "blend", frame);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("blend", "blend two volumes of one type with a weight on the first", Setup);
