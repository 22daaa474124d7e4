// zvol vmix: add, subtract, cross or replace two vector volumes; the second is
// resampled into the first one's frame.
#include <map>

#include "zelmar/volumetools.h"
#include "pairverb.h"

namespace {

using zelmar::GRIDCLASS;
using zelmar::GRIDTYPE;
using zelmar::MIXVECTORTYPE;

const std::map<std::string, MIXVECTORTYPE> kOperations = {
    {"add", MIXVECTORTYPE::ADD},
    {"subtract", MIXVECTORTYPE::SUBTRACT},
    {"cross", MIXVECTORTYPE::CROSS},
    {"replace", MIXVECTORTYPE::NORMAL},
};

void CheckInput(const std::string& path, const zelmar::Volume& v) {
  const GRIDCLASS c = v.GetGridClass();
  if (c != GRIDCLASS::FOG && c != GRIDCLASS::UNKNOWN)
    throw zvol::Failure(path + " holds a " + zelmar::GridClassName(c) +
                        " grid; vmix takes vector grids of fog or unknown class");
  const GRIDTYPE t = v.GetGridType();
  if (!zvol::IsVectorType(t))
    throw zvol::Failure(path + " holds a grid of " + zelmar::GridTypeName(t) +
                        "; vmix takes vec3i, vec3s and vec3d grids");
}

zvol::VerbRun Setup(CLI::App& app) {
  return zvol::SetupPairVerb<MIXVECTORTYPE>(
      app, {"vmix", kOperations, "add, subtract, cross (a zero vector on one side lets the other through) or replace",
            "the first vector .vdb file; the result takes its frame", "the second vector .vdb file", CheckInput,
            [](const zelmar::Volume& a, const zelmar::Volume& b, MIXVECTORTYPE type, const zta::ThreadRef& thread) {
              return zelmar::VolumeToolsInterface::MixVectorVolumes(a, b, type, thread);
            }});
}

}  // namespace

ZVOL_VERB("vmix", "add, subtract, cross or replace two vector volumes", Setup);
