// zvol sphere and zvol platonic: level sets of primitive shapes.
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::VolumeToolsInterface;

struct PrimitiveOptions {
  zta::Vector center{0, 0, 0};
  double voxelSize = 0.1;
  int halfWidth = 3;
  std::string output;
};

void AddCommon(CLI::App& app, PrimitiveOptions& o) {
  zvol::AddVectorOption(app, "--center", o.center, "centre of the shape (default 0,0,0)");
  app.add_option("--voxel-size", o.voxelSize, "edge length of a voxel in world units")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--half-width", o.halfWidth, "half width of the narrow band in voxels")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("-o,--output", o.output, "the .vdb file to write")->required();
}

zvol::VerbRun SetupSphere(CLI::App& app) {
  auto o = std::make_shared<PrimitiveOptions>();
  auto radius = std::make_shared<double>(1.0);
  app.add_option("--radius", *radius, "radius in world units")->capture_default_str()->check(CLI::PositiveNumber);
  AddCommon(app, *o);
  return [o, radius](const zvol::Context& ctx) {
    zelmar::Volume sphere;
    {
      zvol::Step step(ctx, "sphere");
      sphere = zvol::Take(VolumeToolsInterface::CreateSphereVolume(*radius, zvol::ToScene(o->center), o->voxelSize,
                                                                   o->halfWidth, ctx.thread, nullptr));
    }
    sphere.SetGridName("sphere");
    zvol::WriteResult(ctx, o->output, sphere, "sphere");
    return 0;
  };
}

zvol::VerbRun SetupPlatonic(CLI::App& app) {
  auto o = std::make_shared<PrimitiveOptions>();
  auto faces = std::make_shared<int>(6);
  auto size = std::make_shared<double>(1.0);
  app.add_option("--faces", *faces, "number of faces: 4, 6, 8, 12 or 20")
      ->capture_default_str()
      ->check(CLI::IsMember({4, 6, 8, 12, 20}));
  app.add_option("--size", *size, "scale of the solid in world units")->capture_default_str()->check(CLI::PositiveNumber);
  AddCommon(app, *o);
  return [o, faces, size](const zvol::Context& ctx) {
    zelmar::Volume solid;
    {
      zvol::Step step(ctx, "platonic");
      solid = zvol::Take(VolumeToolsInterface::CreatePlatonicVolume(*faces, *size, zvol::ToScene(o->center),
                                                                    o->voxelSize, o->halfWidth, ctx.thread, nullptr));
    }
    solid.SetGridName("platonic");
    zvol::WriteResult(ctx, o->output, solid, "platonic");
    return 0;
  };
}

}  // namespace

ZVOL_VERB("sphere", "write the level set of a sphere", SetupSphere);
ZVOL_VERB("platonic", "write the level set of a platonic solid", SetupPlatonic);
