// zvol resample: a volume on a new voxel size, or on the transform of another file.
#include <filesystem>
#include <map>

#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::GRIDTYPE;
using zelmar::RESAMPLEINTERPOLATIONTYPE;

const std::map<std::string, RESAMPLEINTERPOLATIONTYPE> kInterpolations = {
    {"nearest", RESAMPLEINTERPOLATIONTYPE::NEAREST},
    {"linear", RESAMPLEINTERPOLATIONTYPE::LINEAR},
    {"quadratic", RESAMPLEINTERPOLATIONTYPE::QUADRATIC},
};

struct Options {
  std::string input;
  std::string output;
  double voxelSize = 0.0;
  std::string match;
  std::string interpolation = "linear";
};

// The input's own orientation and origin, with every axis `voxelSize` long.
zta::Matrix WithVoxelSize(const zta::Matrix& m, double voxelSize) {
  zta::Matrix r = m;
  r.v1 = m.v1.GetNormalized() * voxelSize;
  r.v2 = m.v2.GetNormalized() * voxelSize;
  r.v3 = m.v3.GetNormalized() * voxelSize;
  return r;
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "the .vdb file to resample (its first grid)")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  auto* size = app.add_option("--voxel-size", o->voxelSize, "new edge length of a voxel, in world units")
                   ->check(CLI::PositiveNumber);
  auto* match = app.add_option("--match", o->match, "take the transform of the first grid of this .vdb file");
  size->excludes(match);
  app.add_option("--interp", o->interpolation,
                 "nearest, linear or quadratic (level sets are rebuilt on the new voxels instead)")
      ->capture_default_str()
      ->check(CLI::IsMember({"nearest", "linear", "quadratic"}));
  return [o, size, match](const zvol::Context& ctx) {
    if (size->count() + match->count() != 1)
      throw CLI::ValidationError("resample", "give one of --voxel-size and --match");
    zelmar::Volume in;
    zta::Matrix target;
    {
      zvol::Step step(ctx, "read");
      in = zvol::LoadVolume(o->input);
      target = match->count() ? zvol::LoadVolume(o->match).GetGridTransform()
                              : WithVoxelSize(in.GetGridTransform(), o->voxelSize);
    }
    const GRIDTYPE type = in.GetGridType();
    if (type != GRIDTYPE::FLOAT && type != GRIDTYPE::DOUBLE && type != GRIDTYPE::VEC3I && type != GRIDTYPE::VEC3S &&
        type != GRIDTYPE::VEC3D)
      throw zvol::Failure(o->input + " holds a grid of " + zelmar::GridTypeName(type) +
                          "; resample takes float, double and vector grids");
    zelmar::Volume out;
    {
      zvol::Step step(ctx, "resample");
      zvol::Progress progress(ctx, "resample");
      out = zvol::Take(zelmar::VolumeToolsInterface::ResampleVolume(in, target, kInterpolations.at(o->interpolation),
                                                                    ctx.thread));
    }
    zvol::WriteResult(ctx, o->output, out, "resampling");
    return 0;
  };
}

}  // namespace

ZVOL_VERB("resample", "resample a volume onto a new voxel size or another file's transform", Setup);
