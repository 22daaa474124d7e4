#pragma once
// The shape of `zvol mix` and `zvol vmix`: "VERB OPERATION A B -o OUT", two
// volumes of one value type joined by an operation chosen by name, the
// second resampled into the first one's frame by the operator.
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zvol.h"

namespace zvol {

template <typename Operation>
struct PairVerb {
  std::string name;                                  // "mix"
  std::map<std::string, Operation> operations;       // by the names the command line takes
  std::string operationHelp, aHelp, bHelp;
  // Refuses an input of the wrong class or type, naming its file.
  std::function<void(const std::string& path, const zelmar::Volume&)> check;
  std::function<zta::Result<zelmar::Volume>(const zelmar::Volume&, const zelmar::Volume&, Operation,
                                            const zta::ThreadRef&)>
      join;
};

template <typename Operation>
VerbRun SetupPairVerb(CLI::App& app, PairVerb<Operation> verb) {
  struct Options {
    std::string operation, a, b, output;
  };
  auto o = std::make_shared<Options>();
  auto v = std::make_shared<PairVerb<Operation>>(std::move(verb));
  std::vector<std::string> names;
  for (const auto& [name, op] : v->operations) names.push_back(name);
  app.add_option("operation", o->operation, v->operationHelp)->required()->check(CLI::IsMember(names));
  app.add_option("a", o->a, v->aHelp)->required();
  app.add_option("b", o->b, v->bHelp)->required();
  app.add_option("-o,--output", o->output, "the .vdb file to write")->required();
  return [o, v](const Context& ctx) {
    // The operations work voxel by voxel after the resampling of b.
    const Frame frame = PointwiseFrame({o->a, o->b}, /*pairsByIndex=*/false);
    const auto [a, b] = LoadPair(ctx, o->a, o->b, frame);
    v->check(o->a, a);
    v->check(o->b, b);
    RequireSameType(v->name, o->a, a, o->b, b);
    zelmar::Volume result;
    {
      Step step(ctx, o->operation);
      Progress progress(ctx, o->operation);
      result = Take(v->join(a, b, v->operations.at(o->operation), ctx.thread));
    }
    WriteResult(ctx, o->output, result, v->name, frame);
    return 0;
  };
}

}  // namespace zvol
