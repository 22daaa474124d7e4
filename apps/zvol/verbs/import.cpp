// zvol import: the host's .vdb import from the command line. The grids of a
// file become volume objects, one Volume Set or, for one file of a numbered
// series, one Volume Sequence in a scene, which is written with its volumes
// in the folder "vol" beside it. An existing scene gets them added.
#include <filesystem>
#include <optional>
#include <sstream>

#include "host/core/format.h"
#include "host/scene/checklist.h"
#include "host/scene/documentevents.h"
#include "host/scene/parameters.h"
#include "host/scene/sceneio.h"
#include "sceneio.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace {

namespace fs = std::filesystem;
using zta::Int32;

// The import's plug-in and its settings, as the import dialog names them.
constexpr Int32 kLoader = 1039864;
enum : Int32 {
  GRIDS = 10002,
  SEQUENCE = 10003,
  FIRST = 10004,
  LAST = 10005,
  AS_SET = 10006,
  SELECT_GRIDS = 10007,
  UNIT = 10008,
};

std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> out;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');)
    if (!item.empty()) out.push_back(item);
  return out;
}

void Set(zta::BaseList2D* node, Int32 id, const zta::GeData& value) {
  if (!zta::SetParameter(node, zta::DescID(id), value)) throw zvol::Failure(zta::FormatString("setting @ was refused", id));
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string input;
    std::string output;
    std::string grids;
    bool all = false;
    bool set = false;
    bool sequence = false;
    std::optional<int> first;
    std::optional<int> last;
    std::string unit;
  };
  auto o = std::make_shared<Options>();
  app.add_option("file", o->input, "the .vdb file")->required();
  app.add_option("-o,--output", o->output, "the scene to write (.zscene or .json); an existing one gets the volumes added")
      ->required();
  auto* grids = app.add_option("--grids", o->grids, "the grids to import, by name: a,b (default: every grid that can be loaded)");
  app.add_flag("--all", o->all, "every grid that can be loaded")->excludes(grids);
  app.add_flag("--set", o->set, "one Volume Set of the file instead of objects, when two or more grids are chosen (the set holds every grid of the file)");
  auto* sequence = app.add_flag("--sequence", o->sequence, "import the numbered series the file belongs to as a Volume Sequence");
  app.add_option("--first", o->first, "first file of the series to play, counted from 0")->needs(sequence);
  app.add_option("--last", o->last, "last file of the series to play, counted from 0")->needs(sequence);
  app.add_option("--unit", o->unit, "the unit of the file's lengths (km, m, cm, mm, ..., with an optional scale: 10m; default: cm)");

  return [o](const zvol::Context& ctx) {
    zvol::RequireSceneFile(o->output, "--output");
    std::optional<zta::UnitScaleData> unit;
    if (!o->unit.empty()) unit = zvol::ParseUnit(o->unit, "--unit");
    zvol::CheckOutputPath(o->output);

    auto node = zta::AllocSceneFilter(kLoader);
    auto* loader = node ? node->GetNodeData<zta::SceneLoaderData>() : nullptr;
    if (!loader) throw zvol::Failure("the .vdb import is not registered");
    std::vector<unsigned char> probe;
    if (!fs::is_regular_file(o->input) || !zta::ReadSceneFilterProbe(o->input, &probe))
      throw zvol::Failure("cannot read " + o->input);
    if (!loader->IdentifyFile(node.get(), o->input, probe.data(), Int32(probe.size())))
      throw zvol::Failure(o->input + " is not a .vdb file");

    std::unique_ptr<zta::BaseDocument> doc =
        fs::exists(o->output) ? zvol::LoadScene(ctx, o->output) : zta::BaseDocument::Alloc();
    // The new objects' files are named among those beside the scene.
    const fs::path scene = fs::absolute(o->output);
    zta::SetDocumentLocation(doc.get(), scene.parent_path().string(), scene.filename().string());

    const zta::Url url = zta::Url::FromSystemPath(fs::absolute(o->input).string());
    zta::SceneFilterPrepare prepare{doc.get(), url};
    node->Message(zta::MSG_SCENEFILTER_PREPARE, &prepare);

    const zta::BaseContainer* bc = node->GetDataInstance();
    auto list = bc->GetCustomDataTyped<zta::CheckListData>(GRIDS);
    if (!list || list->GetCount() == 0) {
      auto names = zelmar::VolumeToolsInterface::GetGridNamesFromFile(url);
      if (!names) throw zvol::Failure(o->input + " could not be read: " + zvol::ErrorText(names.GetError()));
      throw zvol::Failure(o->input + " holds no grid");
    }
    if (o->sequence && !bc->GetBool(SEQUENCE))
      throw zvol::Failure(o->input + " is not part of a numbered series (a name such as cloud.0001.vdb)");
    Set(node.get(), SEQUENCE, zta::GeData(o->sequence));
    if (o->last) Set(node.get(), LAST, zta::GeData(Int32(*o->last)));
    if (o->first) Set(node.get(), FIRST, zta::GeData(Int32(*o->first)));
    if (!o->grids.empty()) {
      auto picked = std::static_pointer_cast<zta::CheckListData>(std::shared_ptr<zta::CustomDataType>(list->Clone()));
      const std::vector<std::string> wanted = SplitList(o->grids);
      for (Int32 i = 0; i < picked->GetCount(); ++i) picked->SetChecked(i, false);
      for (const std::string& name : wanted) {
        Int32 at = -1;
        for (Int32 i = 0; i < picked->GetCount() && at < 0; ++i)
          if (picked->GetName(i) == name) at = i;
        if (at < 0) {
          std::string known;
          for (Int32 i = 0; i < picked->GetCount(); ++i) known += (i ? ", " : "") + picked->GetName(i);
          throw zvol::Failure(o->input + " has no grid '" + name + "' that can be loaded (it has: " + known + ")");
        }
        picked->SetChecked(at, true);
      }
      Set(node.get(), GRIDS, zta::GeData(std::shared_ptr<const zta::CustomDataType>(picked)));
    }
    Set(node.get(), SELECT_GRIDS, zta::GeData(true));
    Set(node.get(), AS_SET, zta::GeData(o->set));
    if (unit) Set(node.get(), UNIT, zta::GeData(std::shared_ptr<const zta::CustomDataType>(unit->Clone())));

    Int32 before = 0;
    for (zta::BaseObject* op = doc->GetFirstObject(); op; op = op->GetNext()) ++before;
    zta::SceneFilterRun run;
    run.thread = ctx.thread;
    {
      zvol::Progress progress(ctx, "import");
      run.progress = [&progress](double f) { progress.Set(f); };
      zvol::Step step(ctx, "import " + fs::path(o->input).filename().string());
      const Int32 status = loader->LoadScene(node.get(), doc.get(), url, 0, run);
      ctx.CheckInterrupted();
      if (status != zta::FILEERROR_NONE) throw zvol::Failure(run.error.empty() ? o->input + " could not be imported" : run.error);
    }
    Int32 after = 0;
    for (zta::BaseObject* op = doc->GetFirstObject(); op; op = op->GetNext()) ++after;
    if (after == before) throw zvol::Failure(o->input + " holds no grid with data to import");
    zvol::SaveScene(ctx, doc.get(), o->output);
    ctx.Say(zta::FormatString("wrote @ (@ new object@)", o->output, after - before, after - before == 1 ? "" : "s"));
    return 0;
  };
}

}  // namespace

ZVOL_VERB("import", "import a .vdb file into a scene: volume objects, a Volume Set or a Volume Sequence", Setup);
