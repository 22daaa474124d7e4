#include "modules/volumes/source/helper/vdbstream.h"

#include <openvdb/io/Archive.h>
#include <openvdb/io/GridDescriptor.h>
#include <openvdb/io/io.h>

#include <memory>
#include <string>
#include <vector>

#include "modules/volumes/source/helper/vdbmetadata.h"

namespace zelmar {

namespace {

void Refuse(const std::string& why) {
  if (!why.empty()) OPENVDB_THROW(openvdb::IoError, why);
}

// io::Stream reads all grids in its constructor, so a stated size can only be
// checked for the first of them. This reads as it does, a grid at a time, and
// checks each grid where the reading reaches it.
class CheckedStreamArchive : public openvdb::io::Archive {
 public:
  VdbStreamContents Read(std::istream& in) {
    uint32_t version = 0;
    Refuse(StatedSizeBeyondEnd(in, VdbReading::kAsStream, nullptr, &version));
    // OpenVDB reads a tree without looking at the stream's state: a root that
    // states four billion tiles would go on reading nothing for as long after
    // the end of a cut stream. Ours stops the read at its end instead.
    in.exceptions(std::ios::failbit | std::ios::badbit);
    readHeader(in);
    // OpenVDB keeps a pointer to the pointer: it must outlive the reading.
    auto format = std::make_shared<openvdb::io::StreamMetadata>();
    openvdb::io::setStreamMetadataPtr(in, format, /*transfer=*/false);
    struct Detach {
      std::istream& in;
      ~Detach() { openvdb::io::clearStreamMetadataPtr(in); }
    } detach{in};
    openvdb::io::setVersion(in, libraryVersion(), fileVersion());
    openvdb::io::setDataCompression(in, compression());

    VdbStreamContents out;
    out.metadata = std::make_shared<openvdb::MetaMap>();
    out.metadata->readMeta(in);
    const int32_t count = readGridCount(in);
    out.grids = std::make_shared<openvdb::GridPtrVec>();
    std::vector<openvdb::io::GridDescriptor> descriptors;
    NamedGridMap named;
    for (int32_t i = 0; i < count; ++i) {
      if (i > 0) Refuse(NextGridStatedSizeBeyondEnd(in, fileVersion()));
      openvdb::io::GridDescriptor descriptor;
      openvdb::GridBase::Ptr grid = descriptor.read(in);
      readGrid(grid, descriptor, in);
      out.grids->push_back(grid);
      named[descriptor.uniqueName()] = grid;
      descriptors.push_back(descriptor);
    }
    // Grids that share a tree with another are read without one.
    for (const auto& descriptor : descriptors) connectInstance(descriptor, named);
    return out;
  }
};

}  // namespace

VdbStreamContents ReadVdbStream(std::istream& in) {
  try {
    return CheckedStreamArchive().Read(in);
  } catch (const std::ios_base::failure&) {
    OPENVDB_THROW(openvdb::IoError, "the file ends inside a grid, or cannot be read there");
  }
}

}  // namespace zelmar
