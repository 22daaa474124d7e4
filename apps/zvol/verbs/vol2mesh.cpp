// zvol vol2mesh: the surface of a grid of a .vdb file as a mesh file.
#include <filesystem>

#include "host/core/format.h"
#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "meshio.h"
#include "zelmar/releasing.h"
#include "zvol.h"

namespace {

struct Options {
  std::string input;
  std::string output;
  double iso = 0.0;
  double adaptivity = 0.0;
  std::string grid;
};

// The work under the progress bar; gives the line that reports it.
std::string Vol2Mesh(const Options& o, const zvol::Context& ctx) {
  zvol::Progress progress(ctx, "vol2mesh");
  zelmar::Volume volume;
  {
    zvol::Step step(ctx, "read " + std::filesystem::path(o.input).filename().string());
    volume = zvol::LoadVolume(o.input, o.grid);
  }
  ctx.CheckInterrupted();
  progress.Set(0.3);
  const std::string name = volume.GetGridName();
  const zelmar::GRIDTYPE type = volume.GetGridType();
  std::unique_ptr<zta::PolygonObject> mesh;
  {
    zvol::Step step(ctx, "volume to mesh");
    // The grid goes as soon as it is meshed, before the mesh is built.
    // An STL file keeps no UVs: none are made for it.
    mesh = zvol::Take(zelmar::VolumeToMeshReleasing(std::move(volume), o.iso, o.adaptivity,
                                                     zta::MeshFileKeepsUVs(o.output)));
  }
  ctx.CheckInterrupted();
  if (!mesh)
    throw zvol::Failure(zta::FormatString("grid '@' holds @ values; only float grids can be meshed", name,
                                          zelmar::GridTypeName(type)));
  if (mesh->GetPolygonCount() == 0)
    throw zvol::Failure(zta::FormatString("grid '@' has no surface at iso value @", name, o.iso));
  progress.Set(0.8);
  {
    zvol::Step step(ctx, "write " + std::filesystem::path(o.output).filename().string());
    zvol::WriteMesh(*mesh, o.output);
  }
  return zta::FormatString("wrote @ (@ points, @ polygons)", o.output, mesh->GetPointCount(), mesh->GetPolygonCount());
}

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "the .vdb file")->required();
  app.add_option("-o,--output", o->output, "the mesh file to write: .obj, .ply, .stl or .glb")
      ->required()
      ->check(zvol::MeshOutputValidator());
  app.add_option("--iso", o->iso, "the value whose surface is meshed")->capture_default_str();
  app.add_option("--adaptivity", o->adaptivity, "0 keeps every polygon, towards 1 flat parts get fewer")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  app.add_option("--grid", o->grid, "name or index of the grid (default: the first)");
  return [o](const zvol::Context& ctx) {
    ctx.Say(Vol2Mesh(*o, ctx));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("vol2mesh", "mesh the surface of a grid of a .vdb file", Setup);
