// net.zelmar.command.volumes.meshtovolume: MeshToVolume of each polygon input.
#include <cmath>

#include "host/objects/polygonobject.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class MeshToVolumeCommand final : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject* input, Int32 index) const override {
    // An input that is no polygon object has no polygons: MeshToVolume makes
    // its empty level set of it.
    std::vector<Vector> vertices;
    std::vector<VolumeConversionPolygon> polygons;
    if (input && input->GetType() == zta::HOST_TYPE_POLYGON) {
      const auto& mesh = static_cast<const zta::PolygonObject&>(*input);
      if (auto converted = VolumeToolsInterface::GetConversionMesh(mesh, vertices, polygons); !converted)
        return converted.GetError();
    }

    const double gridSize = settings.GetFloat(MESHTOVOLUME_GRIDSIZE);
    int32_t interior = settings.GetInt32(MESHTOVOLUME_INTERIORBAND);
    if (settings.GetBool(MESHTOVOLUME_USEINTERIORDISTANCE) && gridSize > 0.0) {
      // Enough voxels to reach the distance inward, and one more.
      const double band = std::trunc(settings.GetFloat(MESHTOVOLUME_INTERIORDISTANCE) / gridSize + 1.0);
      interior = band >= double(VolumeToolsInterface::kFillInteriorBand) ? VolumeToolsInterface::kFillInteriorBand
                                                                          : int32_t(std::max(band, 1.0));
    }
    const std::optional<Matrix> transform = settings.GetMatrix(MESHTOVOLUME_TRANSFORM);
    auto volume = VolumeToolsInterface::MeshToVolume(
        vertices, polygons, input ? input->GetMg() : Matrix(), gridSize, interior, settings.GetInt32(MESHTOVOLUME_EXTERIORBAND), thread,
        POLYGONCONVERSIONFLAGS(settings.GetInt32(MESHTOVOLUME_FLAGS)), transform ? &*transform : nullptr);
    if (!volume) return volume.GetError();
    return AddVolumeResult(data, *volume, {index});
  }
};

}  // namespace

VolumeCommandEntry MeshToVolumeCommandEntry() {
  return MakeCommandEntry<MeshToVolumeCommand>(
      {kMeshToVolumeCommand,
       "meshtovolume",
       "polygon objects, each where its global matrix puts it",
       {
           {MESHTOVOLUME_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.1, "voxel size"},
           {MESHTOVOLUME_INTERIORBAND, "interiorband", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "half width inside, in voxels; 2147483647 fills the inside"},
           {MESHTOVOLUME_EXTERIORBAND, "exteriorband", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "half width outside, in voxels"},
           {MESHTOVOLUME_FLAGS, "flags", COMMANDVALUETYPE::INT32, zta::Int32(0),
            "1 unsigned distance, 2 keep intersecting voxels, 4 no renormalization, 8 no band trimming"},
           {MESHTOVOLUME_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "creation transform, whose scale decides the voxel size"},
           {MESHTOVOLUME_USEINTERIORDISTANCE, "useinteriordistance", COMMANDVALUETYPE::BOOL, false,
            "take the interior band from interiordistance"},
           {MESHTOVOLUME_INTERIORDISTANCE, "interiordistance", COMMANDVALUETYPE::FLOAT, 0.0,
            "how far inward the band reaches, in world units"},
       }});
}

}  // namespace zelmar
