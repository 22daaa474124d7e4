#pragma once
// Tools for a caller that is done with its volumes, as a front end working
// file to file is. A volume handed over that nothing else shares is used up
// in place instead of copied; one that is shared is only read, as the plain
// tool would. Either way the caller's volumes are empty afterwards.
#include <memory>

#include "zelmar/volumetools.h"

namespace zelmar {

// VolumeToolsInterface::VolumeToMesh; the grid is let go as soon as the
// mesher has read it, so that a large grid and the polygon object made from it
// are never held at once. Without `withUVs` the object gets no UVW tag, for a
// mesh file that cannot keep UVs: a quarter of the work and half the memory.
ZELMAR_API Result<std::unique_ptr<zta::PolygonObject>> VolumeToMeshReleasing(Volume&& volume, double iso,
                                                                            double adaptiveValue,
                                                                            bool withUVs = true);

// VolumeToolsInterface::BoolVolumes with the same result and errors; the
// first grid becomes the result instead of being copied, and the nodes of the
// second move into it.
ZELMAR_API Result<Volume> BoolVolumesReleasing(Volume&& volumeOne, Volume&& volumeTwo, BOOLTYPE type,
                                               const ThreadRef& thread);

}  // namespace zelmar
