// zvol filter sdf|fog: level set filters and value filters of a .vdb grid.
#include <map>

#include "host/core/format.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

using zelmar::FILTERACCURACY;
using zelmar::FILTERTYPE;
using zelmar::GRIDCLASS;
using zelmar::GRIDTYPE;
using zelmar::SDFFILTERTYPE;
using zelmar::Volume;
using zelmar::VolumeToolsInterface;

const std::map<std::string, SDFFILTERTYPE> kSdfFilters = {
    {"gaussian", SDFFILTERTYPE::GAUSSIAN},       {"dilate", SDFFILTERTYPE::DILATE},
    {"erode", SDFFILTERTYPE::ERODE},             {"mean", SDFFILTERTYPE::MEANVALUE},
    {"median", SDFFILTERTYPE::MEDIANVALUE},      {"curvature", SDFFILTERTYPE::MEANCURVATURE},
    {"laplacian", SDFFILTERTYPE::LAPLACIANFLOW}, {"renormalize", SDFFILTERTYPE::RENORMALIZE},
    {"open", SDFFILTERTYPE::OPEN},               {"close", SDFFILTERTYPE::CLOSE},
    {"track", SDFFILTERTYPE::TRACK},             {"resize", SDFFILTERTYPE::RESIZE},
};

const std::map<std::string, FILTERTYPE> kFogFilters = {
    {"gaussian", FILTERTYPE::GAUSSIAN}, {"mean", FILTERTYPE::MEANVALUE},     {"median", FILTERTYPE::MEDIANVALUE},
    {"add", FILTERTYPE::ADD},           {"remap", FILTERTYPE::REMAP},        {"multiply", FILTERTYPE::MULTIPLY},
    {"abs", FILTERTYPE::ABS},           {"invert", FILTERTYPE::INVERT},
};

const std::map<std::string, FILTERACCURACY> kAccuracies = {
    {"first", FILTERACCURACY::FIRST}, {"second", FILTERACCURACY::SECOND},   {"third", FILTERACCURACY::THIRD},
    {"weno5", FILTERACCURACY::WENO5}, {"hjweno5", FILTERACCURACY::HJWENO5},
};

template <typename T>
std::vector<std::string> Names(const std::map<std::string, T>& m) {
  std::vector<std::string> names;
  for (const auto& [name, value] : m) names.push_back(name);
  return names;
}

struct Options {
  std::string type;
  std::string input;
  std::string output;
  std::string mask;
  int64_t iterations = 1;
  int width = 1;
  double offset = 0.0;  // 0: one voxel
  int halfWidth = 3;
  std::string accuracy = "first";
  double strength = 1.0;
  double factor = 1.0;
  double oldMin = 0.0, oldMax = 1.0, newMin = 0.0, newMax = 1.0;
  double center = 0.5;
};

void AddCommon(CLI::App& app, Options& o, const std::vector<std::string>& types) {
  app.add_option("type", o.type, "the filter")->required()->check(CLI::IsMember(types));
  app.add_option("input", o.input, "the .vdb file")->required();
  app.add_option("-o,--output", o.output, "the .vdb file to write")->required();
  app.add_option("--iterations", o.iterations, "how many times the filter runs")
      ->capture_default_str()
      ->check(CLI::Range(int64_t(0), int64_t(100000)));
  app.add_option("--strength", o.strength, "0 leaves the input, 1 filters fully; values between fade the filter")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  app.add_option("--mask", o.mask, "a .vdb file whose float grid limits the filter to where it is above 0");
}

// The first float grid of the mask file; other value types cannot mask.
Volume LoadMask(const std::string& path) {
  if (path.empty()) return Volume();
  Volume mask = zvol::LoadVolume(path);
  if (mask.GetGridType() != GRIDTYPE::FLOAT)
    throw zvol::Failure(path + " holds a " + zelmar::GridTypeName(mask.GetGridType()) +
                        " grid; a mask must be a float grid");
  return mask;
}

int RunSdf(const zvol::Context& ctx, const Options& o) {
  Volume input, mask;
  {
    zvol::Step step(ctx, "read");
    input = zvol::LoadVolume(o.input);
    mask = LoadMask(o.mask);
  }
  if (input.GetGridClass() != GRIDCLASS::SDF || input.GetGridType() != GRIDTYPE::FLOAT)
    throw zvol::Failure(zta::FormatString("@ holds a @ grid of class @; filter sdf needs a float level set", o.input,
                                          zelmar::GridTypeName(input.GetGridType()),
                                          zelmar::GridClassName(input.GetGridClass())));
  zelmar::SDFFilterSettings s;
  s.filterType = kSdfFilters.at(o.type);
  s.iterations = o.iterations;
  s.stencilWidth = o.width;
  // Offsets default to one voxel of the input.
  s.offset = float(o.offset > 0.0 ? o.offset : input.GetGridTransform().GetScale().x);
  s.halfWidth = o.halfWidth;
  s.accuracy = kAccuracies.at(o.accuracy);
  s.strength = o.strength;
  Volume result;
  {
    zvol::Progress progress(ctx, "filter " + o.type);
    zvol::Step step(ctx, "filter sdf " + o.type);
    result = zvol::Take(VolumeToolsInterface::ApplySDFFilterToVolume(input, s, ctx.thread, mask, nullptr));
  }
  zvol::WriteResult(ctx, o.output, result, "the filter");
  return 0;
}

int RunFog(const zvol::Context& ctx, const Options& o) {
  Volume input, mask;
  {
    zvol::Step step(ctx, "read");
    input = zvol::LoadVolume(o.input);
    mask = LoadMask(o.mask);
  }
  // The operator hands other types back unfiltered; a person is told instead.
  if (input.GetGridType() != GRIDTYPE::FLOAT && input.GetGridType() != GRIDTYPE::VEC3S)
    throw zvol::Failure(o.input + " holds a " + zelmar::GridTypeName(input.GetGridType()) +
                        " grid; filter fog takes float and vec3s grids");
  zelmar::FilterSettings s;
  s.filterType = kFogFilters.at(o.type);
  s.iterations = o.iterations;
  s.radius = o.width;
  s.offset = float(o.offset);
  // MULTIPLY reads its factor from the strength.
  s.strength = s.filterType == FILTERTYPE::MULTIPLY ? o.factor : o.strength;
  s.remap_oldMin = o.oldMin;
  s.remap_oldMax = o.oldMax;
  s.remap_newMin = o.newMin;
  s.remap_newMax = o.newMax;
  s.invertCenter = o.center;
  Volume result;
  {
    zvol::Progress progress(ctx, "filter " + o.type);
    zvol::Step step(ctx, "filter fog " + o.type);
    result = zvol::Take(VolumeToolsInterface::ApplyFilterToVolume(input, s, ctx.thread, mask, nullptr));
  }
  zvol::WriteResult(ctx, o.output, result, "the filter");
  return 0;
}

zvol::VerbRun Setup(CLI::App& app) {
  auto sdfOptions = std::make_shared<Options>();
  auto fogOptions = std::make_shared<Options>();
  app.require_subcommand(1);

  CLI::App* sdf = app.add_subcommand("sdf", "filter a level set: " + CLI::detail::join(Names(kSdfFilters), ", "));
  AddCommon(*sdf, *sdfOptions, Names(kSdfFilters));
  sdf->add_option("--width", sdfOptions->width, "stencil width in voxels (gaussian, mean, median)")
      ->capture_default_str()
      ->check(CLI::Range(1, 100));
  sdf->add_option("--offset", sdfOptions->offset, "distance in world units (dilate, erode, open, close); default one voxel")
      ->check(CLI::PositiveNumber);
  sdf->add_option("--half-width", sdfOptions->halfWidth, "new half width of the band in voxels (resize)")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  sdf->add_option("--accuracy", sdfOptions->accuracy, "spatial scheme: " + CLI::detail::join(Names(kAccuracies), ", "))
      ->capture_default_str()
      ->check(CLI::IsMember(Names(kAccuracies)));

  CLI::App* fog = app.add_subcommand("fog", "filter a float or vector grid: " + CLI::detail::join(Names(kFogFilters), ", "));
  AddCommon(*fog, *fogOptions, Names(kFogFilters));
  fog->add_option("--radius", fogOptions->width, "neighbourhood radius in voxels (gaussian, mean, median)")
      ->capture_default_str()
      ->check(CLI::Range(1, 100));
  fog->add_option("--offset", fogOptions->offset, "value added per iteration (add)")->capture_default_str();
  fog->add_option("--factor", fogOptions->factor, "factor (multiply)")->capture_default_str();
  fog->add_option("--old-min", fogOptions->oldMin, "remap: start of the input range")->capture_default_str();
  fog->add_option("--old-max", fogOptions->oldMax, "remap: end of the input range")->capture_default_str();
  fog->add_option("--new-min", fogOptions->newMin, "remap: what the start maps to")->capture_default_str();
  fog->add_option("--new-max", fogOptions->newMax, "remap: what the end maps to")->capture_default_str();
  fog->add_option("--center", fogOptions->center, "invert: values mirror about this one")->capture_default_str();

  return [sdf, sdfOptions, fogOptions](const zvol::Context& ctx) {
    return sdf->parsed() ? RunSdf(ctx, *sdfOptions) : RunFog(ctx, *fogOptions);
  };
}

}  // namespace

ZVOL_VERB("filter", "filter a level set (sdf) or a float or vector grid (fog)", Setup);
