// zvol mix: voxel arithmetic on two fog volumes; the second is resampled into
// the first one's frame.
#include <map>

#include "zelmar/volumetools.h"
#include "pairverb.h"

namespace {

using zelmar::GRIDCLASS;
using zelmar::GRIDTYPE;
using zelmar::MIXTYPE;

const std::map<std::string, MIXTYPE> kOperations = {
    {"max", MIXTYPE::MAXIMUM},       {"min", MIXTYPE::MINIMUM},   {"add", MIXTYPE::ADD},
    {"subtract", MIXTYPE::SUBTRACT}, {"multiply", MIXTYPE::MULTIPLY}, {"divide", MIXTYPE::DIVIDE},
    {"replace", MIXTYPE::NORMAL},
};

bool Scalar(GRIDTYPE t) {
  return t == GRIDTYPE::FLOAT || t == GRIDTYPE::DOUBLE || t == GRIDTYPE::INT32 || t == GRIDTYPE::INT64;
}

void CheckInput(const std::string& path, const zelmar::Volume& v) {
  const GRIDCLASS c = v.GetGridClass();
  if (c != GRIDCLASS::FOG && c != GRIDCLASS::UNKNOWN)
    throw zvol::Failure(path + " holds a " + zelmar::GridClassName(c) +
                        " grid; mix takes fog volumes and grids of unknown class" +
                        (c == GRIDCLASS::SDF ? " (bool combines level sets)" : ""));
  if (!Scalar(v.GetGridType()))
    throw zvol::Failure(path + " holds a grid of " + zelmar::GridTypeName(v.GetGridType()) +
                        "; mix takes float, double, int32 and int64 grids" +
                        (zvol::IsVectorType(v.GetGridType()) ? " (vmix mixes vectors)" : ""));
}

zvol::VerbRun Setup(CLI::App& app) {
  return zvol::SetupPairVerb<MIXTYPE>(
      app, {"mix", kOperations, "max, min, add, subtract, multiply, divide or replace",
            "the first fog .vdb file; the result takes its frame", "the second fog .vdb file", CheckInput,
            [](const zelmar::Volume& a, const zelmar::Volume& b, MIXTYPE type, const zta::ThreadRef& thread) {
              return zelmar::VolumeToolsInterface::MixVolumes(a, b, type, thread);
            }});
}

}  // namespace

ZVOL_VERB("mix", "voxel arithmetic on two fog volumes", Setup);
