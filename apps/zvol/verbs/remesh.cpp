// zvol remesh: a mesh through its signed distance field and back, in one run.
#include <filesystem>

#include "host/core/format.h"
#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "memorylimit.h"
#include "meshio.h"
#include "zelmar/releasing.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::VolumeToolsInterface;

struct Options {
  std::string input;
  std::string output;
  double voxelSize = 0.0;
  int dim = 0;
  int halfWidth = 3;
  double adaptivity = 0.0;
  double smooth = 0.0;
};

// The work under the progress bar; gives the line that reports it.
std::string Remesh(const Options& o, const zvol::Context& ctx) {
  zvol::Progress progress(ctx, "remesh");
  std::unique_ptr<zta::PolygonObject> mesh;
  {
    zvol::Step step(ctx, "read " + std::filesystem::path(o.input).filename().string());
    mesh = zvol::ReadMesh(o.input, ctx.thread);
  }
  const double voxelSize = zvol::ResolveVoxelSize(*mesh, o.input, o.voxelSize, o.dim);
  zvol::ConversionMesh cm = zvol::ToConversionMesh(*mesh);
  mesh.reset();
  zvol::CheckMeshConversion(cm, voxelSize, 2.0 * o.halfWidth, false, o.input);
  progress.Set(0.1);
  zelmar::Volume volume;
  {
    zvol::Step step(ctx, "mesh to volume");
    volume = zvol::Take(VolumeToolsInterface::MeshToVolume(cm.points, cm.polygons, zta::Matrix(), voxelSize,
                                                           o.halfWidth, o.halfWidth, ctx.thread,
                                                           zelmar::POLYGONCONVERSIONFLAGS::NONE, nullptr));
  }
  ctx.CheckInterrupted();
  cm = {};
  zvol::ReleaseFreedMemory();
  if (o.smooth > 0.0) {
    zvol::Step step(ctx, "smooth");
    zelmar::SDFFilterSettings gaussian;
    gaussian.filterType = zelmar::SDFFILTERTYPE::GAUSSIAN;
    gaussian.strength = o.smooth;
    volume = zvol::Take(VolumeToolsInterface::ApplySDFFilterToVolume(volume, gaussian, ctx.thread, {}, nullptr));
    ctx.CheckInterrupted();
  }
  progress.Set(0.5);
  {
    zvol::Step step(ctx, "volume to mesh");
    // The grid goes as soon as it is meshed, before the mesh is built.
    // An STL file keeps no UVs: none are made for it.
    mesh = zvol::Take(zelmar::VolumeToMeshReleasing(std::move(volume), 0.0, o.adaptivity,
                                                     zta::MeshFileKeepsUVs(o.output)));
  }
  ctx.CheckInterrupted();
  if (!mesh || mesh->GetPolygonCount() == 0)
    throw zvol::Failure(zta::FormatString("@: the surface vanished at voxel size @", o.input, voxelSize));
  progress.Set(0.8);
  {
    zvol::Step step(ctx, "write " + std::filesystem::path(o.output).filename().string());
    zvol::WriteMesh(*mesh, o.output);
  }
  return zta::FormatString("wrote @ (@ points, @ polygons, voxel size @)", o.output, mesh->GetPointCount(),
                           mesh->GetPolygonCount(), voxelSize);
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "mesh file: OBJ, PLY, STL, glTF")->required();
  app.add_option("-o,--output", o->output, "the mesh file to write: .obj, .ply, .stl or .glb")
      ->required()
      ->check(zvol::MeshOutputValidator());
  zvol::AddResolutionOptions(app, o->voxelSize, o->dim);
  app.add_option("--half-width", o->halfWidth, "half width of the distance band in voxels")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  app.add_option("--adaptivity", o->adaptivity, "0 keeps every polygon, towards 1 flat parts get fewer")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  app.add_option("--smooth", o->smooth, "strength of a gaussian smoothing of the distance field, 0 to 1")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  return [o](const zvol::Context& ctx) {
    zvol::CheckResolutionOptions(o->voxelSize, o->dim);
    ctx.Say(Remesh(*o, ctx));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("remesh", "rebuild a mesh through its signed distance field", Setup);
