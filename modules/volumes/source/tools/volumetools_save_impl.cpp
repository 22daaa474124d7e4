// Writing volumes to .vdb files and streams.
#include <openvdb/io/File.h>
#include <openvdb/io/Stream.h>

#include <cerrno>
#include <cstring>

#include "host/core/format.h"
#include "modules/volumes/source/helper/gridconversion.h"
#include "modules/volumes/source/helper/vdbmetadata.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/fileframe.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// A file written in its own frame takes its grids as a stream does.
Result<void> Save(const Url& filename, double scale, const std::vector<Volume>& volumes,
                  const DataDictionary& metaData, bool fileFrame) {
  const bool toStream = !filename.IsFile();
  const bool mirror = !toStream && !fileFrame;
  openvdb::GridPtrVec grids;
  // Every grid is converted before a byte is written, so a bad volume leaves no file.
  for (const Volume& volume : volumes) {
    if (!volume.IsInitialized()) return zta::IllegalArgumentError("volume was not initialized");
    openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
    if (!grid) return zta::IllegalArgumentError("volume has no grid attached");
    if (mirror || scale != 1.0) {
      try {
        if (const std::string why = ConvertGridFrameTooLarge(grid, !mirror); !why.empty())
          return zta::IoError("Grids could not be written and an error occured: " + why);
        // The conversion builds new grids and never touches the volume's own.
        grid = ConvertGridFrame(grid, scale, !mirror);
      } catch (...) {
        return zta::UnexpectedError("error while transforming output grid");
      }
      if (!grid) return zta::UnexpectedError("grid could not pe transformed");
    }
    grids.push_back(grid);
  }

  try {
    const openvdb::MetaMap::Ptr meta = DictionaryToMetaMap(metaData);
    if (toStream) {
      auto out = filename.OpenOutputStream();
      if (!out) return out.GetError();
      openvdb::io::Stream stream(**out);
      stream.write(grids, *meta);
      (*out)->flush();
      if (!**out) return zta::IoError("Grids could not be written and an error occured: stream write failed");
    } else {
      openvdb::io::File file(filename.GetSystemPath());
      file.write(grids, *meta);
      file.close();
    }
    return zta::OK();
  } catch (const std::bad_alloc&) {
    return zta::IoError(zta::FormatString("Grids could not be written and an error occured: @", std::strerror(ENOMEM)));
  } catch (const openvdb::Exception& e) {
    return zta::IoError(zta::FormatString("Grids could not be written and an error occured: @", e.what()));
  } catch (...) {
    return zta::IoError("Grids could not be written and an error occured");
  }
}

}  // namespace

Result<void> VolumeToolsInterface::SaveVDBFile(const Url& filename, double scale, const std::vector<Volume>& volumes,
                                               const DataDictionary& metaData) {
  return Save(filename, scale, volumes, metaData, /*fileFrame=*/false);
}

Result<void> FileFrameInterface::SaveVDBFile(const Url& filename, const std::vector<Volume>& volumes,
                                             const DataDictionary& metaData) {
  return Save(filename, 1.0, volumes, metaData, /*fileFrame=*/true);
}

}  // namespace zelmar
