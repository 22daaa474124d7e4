#pragma once
// A .vdb file's own frame. The reads and writes of VolumeToolsInterface bring
// a file's grids into the scene's left-handed frame and back by mirroring the
// third axis. Work whose voxels come out the same in either frame may skip
// both mirrors and run on the grids as the file holds them: an operation that
// pairs voxels by index, or that works voxel by voxel on grids of one
// transform, since the mirror commutes with it. A grid read this way lies in
// the file's frame and must be written back the same way.
#include <vector>

#include "zelmar/volume.h"

namespace zelmar {

class ZELMAR_API FileFrameInterface {
 public:
  FileFrameInterface() = delete;

  // The index-to-world matrix of each grid as the file stores it, in the
  // order of GetGridNamesFromFile; only the grids' headers are read.
  static Result<std::vector<Matrix>> GetGridTransformsFromFile(const Url& filename);
  // LoadGridIntoVolume and SaveVDBFile at scale 1, without the mirror, with
  // the same errors.
  static Result<Volume> LoadGrid(const Url& filename, Int gridIndex);
  static Result<void> SaveVDBFile(const Url& filename, const std::vector<Volume>& volumes,
                                  const DataDictionary& metaData);
};

}  // namespace zelmar
