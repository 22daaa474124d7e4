// zvol voxels: the values of a .vdb grid, one line each, by a grid iterator
// walk over its active values, its inactive ones, or all.
#include <cstdio>

#include "valuetext.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumeiterators.h"
#include "zvol.h"

namespace {

using zelmar::GRIDITERATORTYPE;
using zelmar::GRIDTYPE;

// Edge length in voxels of a value at `depth`: a voxel, or a tile of the
// first internal level, the second, the root.
int TileSize(int32_t depth) {
  switch (depth) {
    case 2: return 8;
    case 1: return 128;
    case 0: return 4096;
    default: return 1;
  }
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string file;
    std::string grid;
    bool active = false, inactive = false, all = false, csv = false;
  };
  auto o = std::make_shared<Options>();
  app.add_option("file", o->file, "the .vdb file")->required();
  auto* a = app.add_flag("--active", o->active, "active voxels and tiles (the default)");
  auto* i = app.add_flag("--inactive", o->inactive, "inactive voxels and tiles");
  auto* l = app.add_flag("--all", o->all, "every stored value");
  a->excludes(i)->excludes(l);
  i->excludes(l);
  app.add_flag("--csv", o->csv, "comma separated, with a header line");
  app.add_option("--grid", o->grid, "the grid, by name or index (default: the first)");
  return [o](const zvol::Context& ctx) {
    const GRIDITERATORTYPE walk =
        o->inactive ? GRIDITERATORTYPE::INACTIVE : (o->all ? GRIDITERATORTYPE::ALL : GRIDITERATORTYPE::ACTIVE);
    zelmar::Volume volume;
    {
      zvol::Step step(ctx, "read");
      volume = zvol::LoadVolume(o->file, o->grid, zvol::Frame::FILE);
    }
    zvol::Step step(ctx, "walk");
    zvol::WithValueType(volume.GetGridType(), "walked", [&]<typename T>(T) {
      auto it = zvol::Take(zelmar::GridIteratorCreationImpl::Create<T>(walk));
      zvol::Check(it->Init(volume));
      constexpr bool kVector = requires(T v) { v.z; };
      std::string out;
      if (o->csv) out = kVector ? "i,j,k,size,active,x,y,z\n" : "i,j,k,size,active,value\n";
      // A walk over active or inactive values tells the state; over all of
      // them an accessor does.
      zelmar::GridAccessorRef<T> states;
      if (walk == GRIDITERATORTYPE::ALL) {
        states = zvol::Take(zelmar::GridAccessorCreationImpl::Create<T>());
        zvol::Check(states->Init(volume, zelmar::VOLUMESAMPLER::NEAREST));
      }
      for (size_t n = 0; it->IsValid(); it->MoveNext(), ++n) {
        if ((n & 0xffff) == 0) {
          ctx.CheckInterrupted();
          std::fputs(out.c_str(), stdout);
          out.clear();
        }
        const zta::IntVector32 c = it->GetCoords();
        const int size = TileSize(it->GetDepth());
        const char sep = o->csv ? ',' : ' ';
        out += std::to_string(c.x) + sep + std::to_string(c.y) + sep + std::to_string(c.z) + sep +
               std::to_string(size) + sep;
        const bool on = states ? states->GetActiveState(c) : walk == GRIDITERATORTYPE::ACTIVE;
        out += on ? '1' : '0';
        out += sep;
        zvol::PutValue(out, it->GetValue());
        out += '\n';
      }
      std::fputs(out.c_str(), stdout);
    });
    return 0;
  };
}

}  // namespace

ZVOL_VERB("voxels", "list the values of a .vdb grid: its active voxels and tiles, or others", Setup);
