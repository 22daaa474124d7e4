#pragma once
// How a volume object shows in a view: signed distance grids as small lit
// quads on their surface, fog grids as points coloured by value, vector
// grids as lines coloured by direction. Buffers live on the view's device
// and the grid is read again only when something changed. The display talks
// to the host's draw port and shader builder alone.
#include <memory>
#include <vector>

#include "host/core/math.h"
#include "host/scene/nodedata.h"
#include "host/ui/basedraw.h"
#include "host/ui/shaderbuilder.h"
#include "zelmar/volume.h"

namespace zta {
class BaseDocument;
}

namespace zelmar {

// Settings of the document that decide the colour of fog and vector voxels.
enum : zta::Int32 {
  DOCUMENT_DISPLAY_COLORS = 1080,    // bool, true when missing
  DOCUMENT_DISPLAY_LINEAR = 2102,    // bool
  DOCUMENT_DISPLAY_COLORSPACE = 2101,  // int32
};

// Most points a display takes from one grid.
inline constexpr zta::Int64 kMaxDisplayPoints = 500000;

enum class VOLUMEDISPLAYMODE { NOTHING, SURFACE, FOG, VECTOR };
VOLUMEDISPLAYMODE GetDisplayMode(GRIDTYPE type, GRIDCLASS gridClass);

class VolumeObjectDisplay {
 public:
  VolumeObjectDisplay() = default;
  ~VolumeObjectDisplay() { Release(); }
  VolumeObjectDisplay(const VolumeObjectDisplay&) = delete;
  VolumeObjectDisplay& operator=(const VolumeObjectDisplay&) = delete;
  // Frees buffers and program in the view that made them, if it still exists.
  void Release();

  GRIDTYPE gridType = GRIDTYPE::NONE;
  GRIDCLASS gridClass = GRIDCLASS::NONE;
  ValueRange valueRange{0.0, 0.0};
  // The layout as the grid's kind declares it, and as it went to the builder.
  std::vector<zta::ShaderVertexInput> inputs;
  std::vector<zta::ShaderVertexInput> outputs;
  zta::Int64 pointCount = 0;
  // Every step-th voxel of those that show is in the buffer.
  zta::Int64 step = 1;
  // The most voxels a line of sight crosses, when the buffers were filled.
  double depth = 1.0;
  zta::DrawBuffer vertexBuffer;
  zta::DrawBuffer indexBuffer;
  bool needsRebuild = true;
  zta::BaseDraw* lastDraw = nullptr;
  zta::Int32 colorKey = 0;
  zta::Int32 scaleKey = 1;
  // Surface mode: position and normal of each voxel, as float64 triples.
  std::vector<double> voxelData;
  // One voxel in the grid's index space (the quads' size).
  zta::Vector voxelSize{1.0};
  // The colour fog and vector buffers were filled with.
  zta::Vector filledColor{-1.0};
  zta::DrawProgram program;
  zta::Int32 programFlags = 0;
  // How many times the buffers were filled from the grid, for those who
  // must know whether a change rebuilt them.
  zta::Int64 fillCount = 0;
};

// Draws the voxels of `volume` with the display's buffers, rebuilding them
// first when asked. An error when the device has no room or the program does
// not build: then the object shows its box alone.
Result<void> DrawVolume(VolumeObjectDisplay& display, const Volume& volume, const zta::Matrix& drawMatrix,
                        zta::BaseObject* object, zta::BaseDraw* baseDraw, zta::BaseDrawHelp* drawHelp,
                        const zta::Vector& color, bool lit);

// What a view shows of a grid, in its index space (the object's own space),
// the arrays cleared first: at most kMaxDisplayPoints voxels, every
// (count / kMaxDisplayPoints + 1)-th when there are more, those of absolute
// value at or below 1e-5 left out. The count is of the voxels that pass the
// rules below (not of all active voxels): a wide narrow band then costs no
// holes in the surface. Signed distance grids give the voxels
// within 1.02 half voxels of the surface with their gradients in `normals`;
// fog grids the value mapped by the grid's range in `colors`; vector grids
// the vector in index space in `normals` and its direction's colour.
void CollectDisplayPoints(const Volume& volume, std::vector<zta::Vector32>& points, std::vector<zta::Vector32>& colors,
                          std::vector<zta::Vector32>& normals);

// The lights of a view that has none of its own.
std::vector<zta::DrawLight> DefaultLights();
// The key of the document's colour settings.
zta::Int32 DisplayColorKey(const zta::BaseDocument* doc);

}  // namespace zelmar
