// Reading .vdb files and streams into volumes.
#include <openvdb/io/File.h>

#include <cerrno>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <sstream>

#include "host/core/format.h"
#include "modules/volumes/source/helper/filereadbuffer.h"
#include "modules/volumes/source/helper/gridconversion.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/vdbmetadata.h"
#include "modules/volumes/source/helper/vdbstream.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/fileframe.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr const char* kPointDataValueType = "ptdataidx32";

bool IsPointDataGrid(const openvdb::GridBase& grid) { return grid.valueType() == kPointDataValueType; }

// The names of a file's grids as OpenVDB's readers accept them, a repeated name
// with its index ("name[1]"), in the order the file reader lists them: by name,
// as vdb_print and pyopenvdb show them too.
std::vector<std::string> ReadableNames(const openvdb::GridPtrVec& grids) {
  std::vector<std::string> names;
  for (const auto& g : grids) {
    const std::string name = g ? g->getName() : std::string();
    const auto repeats = std::count_if(grids.begin(), grids.begin() + names.size(),
                                       [&](const auto& o) { return o && o->getName() == name; });
    names.push_back(repeats ? name + "[" + std::to_string(repeats) + "]" : name);
  }
  return names;
}

// Files are opened without OpenVDB's delayed loading. That path skips over
// leaf values by the sizes a "file_delayed_load" metadata of the file states,
// and Debian's OpenVDB 10 indexes it by leaf without a check: a file whose
// metadata lists fewer leaves than its tree holds stops the process on an
// assertion (reads out of bounds without assertions). Reading every value at
// once costs a file-frame load its lazy leaves, not correctness.
constexpr bool kDelayLoad = false;

void CheckStatedSizes(std::istream& in, bool* hasGridOffsets) {
  if (const std::string why = StatedSizeBeyondEnd(in, VdbReading::kAsFile, hasGridOffsets); !why.empty())
    OPENVDB_THROW(openvdb::IoError, why);
}

// One open .vdb file and the names of its grids, read once, after what its
// header and metadata state has been checked against its size. A file without
// grid offsets (one written as a stream) has no grid that can be reached on its
// own: OpenVDB's file reader reads it whole on opening, through a stream that
// reads on past its end. Such a file is read whole through ours instead.
class OpenVdbFile {
 public:
  explicit OpenVdbFile(const Url& url) : path_(url.GetSystemPath()), file_(path_) {
    FileReadBuffer buffer(path_, size_t(64) << 10);
    bool hasGridOffsets = true;
    if (buffer.IsOpen()) {
      std::istream in(&buffer);
      CheckStatedSizes(in, &hasGridOffsets);
      if (!hasGridOffsets) streamed_ = ReadVdbStream(in);
    }
    if (streamed_) {
      descriptors_ = streamed_->grids;
    } else {
      file_.open(kDelayLoad);
      descriptors_ = file_.readAllGridMetadata();
    }
    names_ = ReadableNames(*descriptors_);
  }
  ~OpenVdbFile() {
    try {
      if (file_.isOpen()) file_.close();
    } catch (...) {
    }
  }

  size_t GetCount() const { return names_.size(); }
  // The names as GetGridNamesFromFile lists them: point data grids marked.
  std::vector<std::string> ListedNames() const {
    std::vector<std::string> names = names_;
    for (size_t i = 0; i < names.size(); ++i)
      if ((*descriptors_)[i] && IsPointDataGrid(*(*descriptors_)[i])) names[i] += "~NotSupported";
    return names;
  }
  // Every grid's metadata and transform, without its tree.
  const openvdb::GridPtrVec& Descriptors() const { return *descriptors_; }
  MetaDataArray Metadata() {
    openvdb::MetaMap::Ptr meta = streamed_ ? streamed_->metadata : file_.getMetadata();
    return meta ? MetaMapToArray(*meta) : MetaDataArray();
  }
  // The grid at `index`; null past the end and for a point data grid.
  openvdb::GridBase::Ptr Read(Int index) {
    if (index < 0 || size_t(index) >= names_.size()) return nullptr;
    openvdb::GridBase::Ptr grid = streamed_            ? (*streamed_->grids)[size_t(index)]
                                  : names_.size() == 1 ? ReadOnlyGrid()
                                                       : file_.readGrid(names_[size_t(index)]);
    return grid && IsPointDataGrid(*grid) ? nullptr : grid;
  }

 private:
  // The one grid of a file read as a stream from start to end, which reads
  // the same grid as the file reader without a system call for each leaf.
  openvdb::GridBase::Ptr ReadOnlyGrid() {
    FileReadBuffer buffer(path_);
    if (!buffer.IsOpen()) return nullptr;
    std::istream in(&buffer);
    const VdbStreamContents read = ReadVdbStream(in);
    return read.grids->size() == 1 ? read.grids->front() : nullptr;
  }

  std::string path_;
  openvdb::io::File file_;
  std::optional<VdbStreamContents> streamed_;
  openvdb::GridPtrVecPtr descriptors_;
  std::vector<std::string> names_;
};

// OpenVDB's message about a damaged file may quote what it read there: a
// name whose length came from garbage can run to gigabytes of blanks. The
// message keeps one blank per run and its first few hundred characters.
std::string Brief(const char* what) {
  constexpr size_t kMost = 300;
  std::string out;
  for (const char* c = what; *c && out.size() < kMost; ++c) {
    const bool blank = *c == ' ' || *c == '\t' || *c == '\n' || *c == '\r';
    if (blank && !out.empty() && out.back() == ' ') continue;
    out += blank ? ' ' : *c;
  }
  if (out.size() >= kMost) out += "...";
  return out;
}

std::string LoadFailure(const Url& url, const std::string& why) {
  return zta::FormatString("File @ could not be loaded and an error occured: @", url.ToString(), why);
}

// OpenVDB reads a bool grid's background and tiles as raw bytes into `bool`,
// so a damaged file can leave one that is neither false nor true, and every
// later read of it is undefined. Such a byte is taken as true, as C takes any
// byte but 0; leaf values are bits and always sound.
void SettleBoolBytes(openvdb::GridBase& grid) {
  auto* bools = dynamic_cast<openvdb::BoolGrid*>(&grid);
  if (!bools) return;
  auto sound = [](const bool& value) {
    unsigned char byte = 0;
    std::memcpy(&byte, &value, 1);
    return byte <= 1;
  };
  auto& tree = bools->tree();
  if (!sound(tree.root().background())) tree.root().setBackground(true, /*updateChildNodes=*/false);
  auto tile = tree.beginValueAll();
  tile.setMaxDepth(openvdb::BoolTree::ValueAllIter::LEAF_DEPTH - 1);
  for (; tile; ++tile)
    if (!sound(tile.getValue())) tile.setValue(true);
}

// Brings a grid read from `url` into the scene's frame and units; a file read
// in its own frame is taken as a stream is.
Result<openvdb::GridBase::Ptr> ConvertIn(const openvdb::GridBase::Ptr& grid, const Url& url, double scale,
                                         bool fileFrame) {
  SettleBoolBytes(*grid);
  const bool fromStream = !url.IsFile() || fileFrame;
  if (fromStream && scale == 1.0) return grid;
  try {
    if (const std::string why = ConvertGridFrameTooLarge(grid, fromStream); !why.empty())
      return zta::IoError(LoadFailure(url, why));
    openvdb::GridBase::Ptr converted = ConvertGridFrame(grid, scale, fromStream);
    if (!converted) return zta::UnexpectedError("grid could not pe transformed");
    return converted;
  } catch (...) {
    return zta::UnexpectedError(zta::FormatString("error while transforming input grid, tried to scale @", scale));
  }
}

// All grids of a stream URL.
Result<openvdb::GridPtrVecPtr> ReadStreamGrids(const Url& url) {
  auto in = url.OpenInputStream();
  if (!in) return in.GetError();
  return ReadVdbStream(**in).grids;
}

// A grid read from `url` into `volume`, brought into the scene's frame.
Result<void> SetLoadedGrid(const Url& url, double scale, const openvdb::GridBase::Ptr& grid, Volume& volume,
                           bool fileFrame = false) {
  // The system's own word for the last failure, whatever it was.
  if (!grid) return zta::IoError(LoadFailure(url, std::strerror(errno)));
  auto converted = ConvertIn(grid, url, scale, fileFrame);
  if (!converted) return converted.GetError();
  return VolumeImpl::SetGrid(volume, *converted);
}

template <typename Body>
Result<void> GuardedLoad(const Url& url, Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return zta::IoError(LoadFailure(url, std::strerror(errno)));
  } catch (const openvdb::Exception& e) {
    return zta::IoError(LoadFailure(url, Brief(e.what())));
  } catch (const std::ios_base::failure&) {
    return zta::IoError(LoadFailure(url, "the file ends inside a grid, or cannot be read there"));
  } catch (...) {
    return zta::IoError(zta::FormatString("File @ could not be loaded and an error occured", url.ToString()));
  }
}

}  // namespace

Result<std::vector<std::string>> VolumeToolsInterface::GetGridNamesFromFile(const Url& filename) {
  try {
    return OpenVdbFile(filename).ListedNames();
  } catch (const openvdb::Exception& e) {
    return zta::IoError(zta::FormatString("Grids names could not be loaded: @", Brief(e.what())));
  } catch (...) {
    return zta::IoError("Grids names could not be loaded");
  }
}

Result<MetaDataArray> VolumeToolsInterface::GetMetaDataFromFile(const Url& filename) {
  try {
    return OpenVdbFile(filename).Metadata();
  } catch (const std::bad_alloc&) {
    return zta::IoError(zta::FormatString("Grids metadata could not be loaded: @", std::strerror(ENOMEM)));
  } catch (const openvdb::Exception& e) {
    return zta::IoError(zta::FormatString("Grids metadata could not be loaded: @", Brief(e.what())));
  } catch (...) {
    return zta::IoError("Grids metadata could not be loaded");
  }
}

namespace {

Result<void> LoadGrid(const Url& filename, double scale, Int gridIndex, Volume& volume, MetaDataArray* metaData,
                      bool fileFrame) {
  if (filename.IsEmpty()) return zta::OK();
  return GuardedLoad(filename, [&]() -> Result<void> {
    openvdb::GridBase::Ptr grid;
    if (!filename.IsFile()) {
      auto grids = ReadStreamGrids(filename);
      if (!grids) return grids.GetError();
      if (gridIndex >= 0 && size_t(gridIndex) < (*grids)->size()) grid = (**grids)[size_t(gridIndex)];
    } else {
      OpenVdbFile file(filename);
      if (metaData) *metaData = file.Metadata();
      grid = file.Read(gridIndex);
    }
    return SetLoadedGrid(filename, scale, grid, volume, fileFrame);
  });
}

}  // namespace

Result<void> VolumeToolsInterface::LoadGridIntoVolume(const Url& filename, double scale, Int gridIndex,
                                                      Volume& volume, MetaDataArray* metaData) {
  return LoadGrid(filename, scale, gridIndex, volume, metaData, /*fileFrame=*/false);
}

Result<Volume> FileFrameInterface::LoadGrid(const Url& filename, Int gridIndex) {
  auto volume = Volume::Create();
  if (!volume) return volume.GetError();
  auto loaded = zelmar::LoadGrid(filename, 1.0, gridIndex, *volume, nullptr, /*fileFrame=*/true);
  if (!loaded) return loaded.GetError();
  return *volume;
}

Result<std::vector<Matrix>> FileFrameInterface::GetGridTransformsFromFile(const Url& filename) {
  try {
    const OpenVdbFile file(filename);
    std::vector<Matrix> transforms;
    // A frustum has no one matrix; NaN equals no other.
    const Vector nan(std::nan(""));
    for (const auto& grid : file.Descriptors()) {
      const auto map = grid ? grid->transform().baseMap() : nullptr;
      transforms.push_back(map && map->isLinear() ? FromMat4d(map->getAffineMap()->getMat4())
                                                  : Matrix{nan, nan, nan, nan});
    }
    return transforms;
  } catch (const openvdb::Exception& e) {
    return zta::IoError(zta::FormatString("Grids names could not be loaded: @", Brief(e.what())));
  } catch (...) {
    return zta::IoError("Grids names could not be loaded");
  }
}

Result<void> VolumeToolsInterface::LoadAllGridsIntoVolumes(const Url& filename, double scale,
                                                           std::vector<Volume>& volumes, MetaDataArray* metaData) {
  if (filename.IsEmpty()) return zta::OK();
  return GuardedLoad(filename, [&]() -> Result<void> {
    openvdb::GridPtrVec grids;
    if (!filename.IsFile()) {
      auto read = ReadStreamGrids(filename);
      if (!read) return read.GetError();
      grids = std::move(**read);
    } else {
      OpenVdbFile file(filename);
      if (metaData) *metaData = file.Metadata();
      for (size_t i = 0; i < file.GetCount(); ++i) grids.push_back(file.Read(Int(i)));
    }
    for (const auto& grid : grids) {
      if (!grid || IsPointDataGrid(*grid)) continue;
      auto converted = ConvertIn(grid, filename, scale, /*fileFrame=*/false);
      if (!converted) return converted.GetError();
      auto volume = MakeVolume(*converted);
      if (!volume) return volume.GetError();
      volumes.push_back(*volume);
    }
    return zta::OK();
  });
}

Result<std::vector<Volume>> VolumeToolsInterface::LoadVDBFile(const Url& filename, double scale,
                                                              std::vector<std::string>* gridNames,
                                                              const std::vector<Int>* gridIndices,
                                                              MetaDataArray* metaData) {
  std::vector<Volume> volumes;
  if (filename.IsEmpty() || zta::IoDetect(filename) != zta::IODETECT::FILE) return volumes;
  if (!gridIndices) {
    if (gridNames) {
      auto read = GetGridNamesFromFile(filename);
      if (!read) return read.GetError();
      *gridNames = std::move(*read);
    }
    auto loaded = LoadAllGridsIntoVolumes(filename, scale, volumes, metaData);
    if (!loaded) return loaded.GetError();
    return volumes;
  }
  // The names and the chosen grids come from one open file.
  std::optional<OpenVdbFile> file;
  try {
    file.emplace(filename);
  } catch (const openvdb::Exception& e) {
    return zta::IoError(zta::FormatString("Grids names could not be loaded: @", Brief(e.what())));
  } catch (...) {
    return zta::IoError("Grids names could not be loaded");
  }
  if (gridNames) *gridNames = file->ListedNames();
  for (const Int index : *gridIndices) {
    if (index < 0 || size_t(index) >= file->GetCount()) break;
    auto volume = Volume::Create();
    if (!volume) return volume.GetError();
    auto loaded = GuardedLoad(filename, [&]() -> Result<void> {
      if (metaData) *metaData = file->Metadata();
      return SetLoadedGrid(filename, scale, file->Read(index), *volume);
    });
    if (!loaded) return loaded.GetError();
    volumes.push_back(*volume);
  }
  return volumes;
}

}  // namespace zelmar
