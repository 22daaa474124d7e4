// zvol bool: union, difference or intersection of level sets, folded left to
// right; the result lies in the first input's frame.
#include <filesystem>
#include <map>

#include "zelmar/releasing.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::BOOLTYPE;

const std::map<std::string, BOOLTYPE> kOperations = {
    {"union", BOOLTYPE::UNION},
    {"difference", BOOLTYPE::DIFFERENCE},
    {"intersection", BOOLTYPE::INTERSECTION},
};

struct Options {
  std::string operation;
  std::vector<std::string> inputs;
  std::string output;
};

zvol::VerbRun Setup(CLI::App& app) {
  auto o = std::make_shared<Options>();
  app.add_option("operation", o->operation, "union, difference or intersection")
      ->required()
      ->check(CLI::IsMember({"union", "difference", "intersection"}));
  app.add_option("inputs", o->inputs, "two or more level set .vdb files (their first grids)")->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  return [o](const zvol::Context& ctx) {
    if (o->inputs.size() < 2) throw CLI::ValidationError("inputs", "bool needs at least two files");
    const zvol::Frame frame = zvol::PointwiseFrame(o->inputs, /*pairsByIndex=*/false);
    std::vector<zelmar::Volume> volumes = zvol::LoadVolumes(ctx, o->inputs, frame);
    for (size_t i = 0; i < volumes.size(); ++i) {
      const zelmar::Volume& v = volumes[i];
      // The operator gives nothing for these, silently; a person is told why.
      if (v.GetGridClass() != zelmar::GRIDCLASS::SDF || v.GetGridType() != zelmar::GRIDTYPE::FLOAT)
        throw zvol::Failure(o->inputs[i] + " holds a " + zelmar::GridClassName(v.GetGridClass()) + " grid of " +
                            zelmar::GridTypeName(v.GetGridType()) + "; bool takes level sets of float");
    }
    const BOOLTYPE type = kOperations.at(o->operation);
    zvol::Progress progress(ctx, o->operation);
    // Each input is read for this fold alone: the first grid becomes the result.
    zelmar::Volume result = std::move(volumes.front());
    for (size_t i = 1; i < volumes.size(); ++i) {
      zvol::Step step(ctx, o->operation + " " + std::filesystem::path(o->inputs[i]).filename().string());
      result = zvol::Take(zelmar::BoolVolumesReleasing(std::move(result), std::move(volumes[i]), type, ctx.thread));
      ctx.CheckInterrupted();
      progress.Set(double(i) / double(volumes.size() - 1));
    }
    zvol::WriteResult(ctx, o->output, result, "bool", frame);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("bool", "union, difference or intersection of level sets", Setup);
