#pragma once
// Reading a whole .vdb stream the way OpenVDB's io::Stream reads it, with what
// each part states checked against what is left before OpenVDB allocates it.
#include <openvdb/openvdb.h>

#include <istream>

namespace zelmar {

struct VdbStreamContents {
  openvdb::MetaMap::Ptr metadata;
  openvdb::GridPtrVecPtr grids;
};

// The file metadata and every grid of `in`, read one after another from its
// start, whatever grid offsets its header states. Throws openvdb::IoError for
// a stated size larger than what is left and where the stream ends inside what
// it must hold, and what OpenVDB throws for the rest.
VdbStreamContents ReadVdbStream(std::istream& in);

}  // namespace zelmar
