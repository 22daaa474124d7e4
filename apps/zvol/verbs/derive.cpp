// zvol derive gradient|curl|curvature|normalize|rotate: a new field from a grid.
#include <cmath>

#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::GRIDTYPE;
using zelmar::Volume;
using zelmar::VolumeToolsInterface;

struct Options {
  std::string kind;
  std::string input;
  std::string output;
  zta::Vector axis{0, 0, 1};
  double angle = 0.0;  // degrees
};

bool IsScalar(GRIDTYPE t) { return t == GRIDTYPE::FLOAT || t == GRIDTYPE::DOUBLE || t == GRIDTYPE::INT32; }

Volume Derive(const zvol::Context& ctx, const Options& o, const Volume& input) {
  const GRIDTYPE type = input.GetGridType();
  const std::string held = o.input + " holds a " + zelmar::GridTypeName(type) + " grid; ";
  if (o.kind == "gradient" || o.kind == "curvature") {
    if (!IsScalar(type)) throw zvol::Failure(held + o.kind + " takes float, double and int32 grids");
    return zvol::Take(o.kind == "gradient" ? VolumeToolsInterface::CreateGradientVolume(input, ctx.thread)
                                           : VolumeToolsInterface::CreateMeanCurvatureVolume(input, ctx.thread));
  }
  if (!zvol::IsVectorType(type)) throw zvol::Failure(held + o.kind + " takes vector grids");
  if (o.kind == "curl") return zvol::Take(VolumeToolsInterface::CreateCurlVolume(input, ctx.thread));
  if (o.kind == "normalize") return zvol::Take(VolumeToolsInterface::NormalizeVectorVolume(input, ctx.thread));
  // Vector values keep the file's own axes through reading and writing, so the
  // axis and the angle apply to them as given.
  return zvol::Take(
      VolumeToolsInterface::RotateVectorVolume(input, o.axis, o.angle * M_PI / 180.0, ctx.thread, nullptr));
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("field", o->kind,
                 "gradient, curvature (mean curvature) of a scalar grid; curl, normalize, rotate of a vector grid")
      ->required()
      ->check(CLI::IsMember({"gradient", "curl", "curvature", "normalize", "rotate"}));
  app.add_option("input", o->input, "the .vdb file")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  zvol::AddVectorOption(app, "--axis", o->axis, "rotate: the axis (default 0,0,1)");
  app.add_option("--angle", o->angle, "rotate: degrees, counter-clockwise looking down the axis")->capture_default_str();
  return [o](const zvol::Context& ctx) {
    Volume input;
    {
      zvol::Step step(ctx, "read");
      input = zvol::LoadVolume(o->input);
    }
    // Files keep vector values in their own axes while positions are mirrored
    // into the scene; derived on a copy that stands in the file's own world,
    // gradients and curls come out in those axes too.
    const zta::Matrix scene = input.GetGridTransform();
    Volume inFileWorld = zvol::Take(input.Clone());
    inFileWorld.SetGridTransform(zta::MatrixScale({1, 1, -1}) * scene);
    Volume result;
    {
      zvol::Progress progress(ctx, o->kind);
      zvol::Step step(ctx, o->kind);
      result = Derive(ctx, *o, inFileWorld);
    }
    result.SetGridTransform(scene);
    result.SetGridName(input.GetGridName().empty() ? o->kind : input.GetGridName() + "_" + o->kind);
    zvol::WriteResult(ctx, o->output, result, o->input + ": " + o->kind);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("derive", "gradient, curl, mean curvature, normalised or rotated vectors of a grid", Setup);
