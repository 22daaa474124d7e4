#pragma once
// VolumeToolsInterface::VolumeToMesh for a caller that is done with the
// volume, as a front end meshing a file is: the grid is let go as soon as the
// mesher has read it (freed, unless another volume shares it), so that a
// large grid and the polygon object made from it are never held at once.
#include <memory>

#include "zelmar/volumetools.h"

namespace zelmar {

ZELMAR_API Result<std::unique_ptr<zta::PolygonObject>> VolumeToMeshReleasing(Volume&& volume, double iso, double adaptiveValue);

}  // namespace zelmar
