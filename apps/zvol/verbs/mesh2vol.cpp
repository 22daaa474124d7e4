// zvol mesh2vol: the signed distance field of a mesh file.
#include <filesystem>

#include "host/objects/polygonobject.h"
#include "memorylimit.h"
#include "meshio.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::VolumeToolsInterface;

struct Options {
  std::string input;
  std::string output;
  double voxelSize = 0.0;
  int dim = 0;
  int exterior = 3;
  int interior = 3;
  bool fill = false;
  bool unsignedField = false;
  bool closeHoles = false;
};

// The work under the progress bar.
void Mesh2Vol(const Options& o, const zvol::Context& ctx) {
  zvol::Progress progress(ctx, "mesh2vol");
  std::unique_ptr<zta::PolygonObject> mesh;
  {
    zvol::Step step(ctx, "read " + std::filesystem::path(o.input).filename().string());
    mesh = zvol::ReadMesh(o.input, ctx.thread);
  }
  progress.Set(0.1);
  if (o.closeHoles) {
    zvol::Step step(ctx, "close holes");
    zvol::Take(zelmar::ClosePolygonObject(mesh.get(), nullptr, false));
  }
  const double voxelSize = zvol::ResolveVoxelSize(*mesh, o.input, o.voxelSize, o.dim);
  zvol::ConversionMesh cm = zvol::ToConversionMesh(*mesh);
  mesh.reset();
  zvol::CheckMeshConversion(cm, voxelSize, o.fill ? double(o.exterior) : double(o.exterior + o.interior), o.fill, o.input);
  // OpenVDB's voxeliser is not symmetric under a mirror (its band edges come out
  // a little different), so the mesh goes back to the file's frame and the grid
  // is written from there: the result is OpenVDB's own conversion of the file.
  for (zta::Vector& p : cm.points) p.z = -p.z;
  progress.Set(0.2);
  zelmar::Volume volume;
  {
    zvol::Step step(ctx, "mesh to volume");
    auto flags = zelmar::POLYGONCONVERSIONFLAGS::NONE;
    if (o.unsignedField) flags = flags | zelmar::POLYGONCONVERSIONFLAGS::UNSIGNED_DISTANCE_FIELD;
    const int32_t interior = o.fill ? VolumeToolsInterface::kFillInteriorBand : o.interior;
    volume = zvol::Take(VolumeToolsInterface::MeshToVolume(cm.points, cm.polygons, zta::Matrix(), voxelSize, interior,
                                                           o.exterior, ctx.thread, flags, nullptr));
  }
  ctx.CheckInterrupted();
  if (!volume.HasGrid()) throw zvol::Failure("could not create grid");
  progress.Set(0.8);
  volume.SetGridName(std::filesystem::path(o.input).stem().string());
  zvol::SaveVolumes(ctx, o.output, {volume}, zvol::Frame::FILE);
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "mesh file: OBJ, PLY, STL, glTF")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  zvol::AddResolutionOptions(app, o->voxelSize, o->dim);
  app.add_option("--exterior", o->exterior, "outer half width of the band in voxels")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  auto* interior = app.add_option("--interior", o->interior, "inner half width of the band in voxels")
                       ->capture_default_str()
                       ->check(CLI::PositiveNumber);
  app.add_flag("--fill", o->fill, "fill the whole inside with distances")->excludes(interior);
  app.add_flag("--unsigned", o->unsignedField, "unsigned distances (for open meshes)");
  app.add_flag("--close-holes", o->closeHoles, "close the mesh's holes before converting");
  return [o](const zvol::Context& ctx) {
    zvol::CheckResolutionOptions(o->voxelSize, o->dim);
    Mesh2Vol(*o, ctx);
    ctx.Say("wrote " + o->output);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("mesh2vol", "turn a mesh file into a signed distance field", Setup);
