// zvol points2vol: particles from point files (the host's reader: PLY, or
// rows of CSV, XYZ, TXT, PTS) to a level set of spheres, or of trails along
// their velocities.
#include <filesystem>

#include "host/core/format.h"
#include "host/modeling/pointsio.h"
#include "zelmar/pointstovolume.h"
#include "zvol.h"

namespace {

struct Options {
  std::string input;
  std::string output;
  double voxelSize = 0.0;
  double radius = 0.0;
  double velocityScale = 0.0;
  int halfWidth = 3;
};

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "points: .ply (vertex x, y, z, radius, vx, vy, vz), or rows of .csv, .xyz, "
                                    ".txt or .pts: x y z [radius] [vx vy vz], or columns named by a first line")
      ->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  app.add_option("--voxel-size", o->voxelSize, "edge length of a voxel in world units")
      ->required()
      ->check(CLI::PositiveNumber);
  app.add_option("--radius", o->radius, "radius of every particle; default the file's radius attribute")
      ->check(CLI::PositiveNumber);
  app.add_option("--velocity-scale", o->velocityScale,
                 "trails along velocity times this, behind each particle; 0 draws spheres only")
      ->capture_default_str();
  app.add_option("--half-width", o->halfWidth, "half width of the narrow band in voxels")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  return [o](const zvol::Context& ctx) {
    zta::PointTable points;
    {
      zvol::Step step(ctx, "read " + std::filesystem::path(o->input).filename().string());
      points = zvol::Take(zta::ReadPointFile(o->input));
    }
    if (points.radii.empty() && o->radius <= 0.0)
      throw zvol::Failure(o->input + " has no radius attribute; give --radius");
    if (o->velocityScale != 0.0 && points.velocities.empty())
      ctx.Say("note: " + o->input + " has no velocities; the particles stay spheres");

    auto list = zvol::Take(zelmar::PointsToVolumeListInterface::Create(nullptr, 1.0, o->velocityScale));
    {
      zvol::Step step(ctx, "gather");
      for (size_t i = 0; i < points.positions.size(); ++i) {
        const double r = o->radius > 0.0 ? o->radius : points.radii[i];
        const zta::Vector v = points.velocities.empty() ? zta::Vector() : points.velocities[i] * o->velocityScale;
        // The reader has mirrored positions and velocities into the scene's frame.
        zvol::Check(list.AppendPoint(points.positions[i], r, v));
      }
    }
    zelmar::Volume volume;
    {
      zvol::Progress progress(ctx, "points to volume");
      zvol::Step step(ctx, "points to volume");
      volume = zvol::Take(zelmar::VolumeToolsInterface::PointsToVolume({list}, o->voxelSize, o->halfWidth,
                                                                      ctx.thread, nullptr, o->velocityScale));
    }
    ctx.CheckInterrupted();
    volume.SetGridName("points");
    zvol::SaveVolumes(ctx, o->output, {volume});
    ctx.Say(zta::FormatString("wrote @ (@ particles, @ active voxels)", o->output, points.positions.size(),
                              volume.GetActiveVoxelCount()));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("points2vol", "turn particles into a level set of spheres or trails", Setup);
