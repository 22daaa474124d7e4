#pragma once
// The frame every volume command shares: its settings table with defaults,
// the reading of settings, the volumes of input objects, and how results go
// back into the data. Each command is a class of its own in this folder.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/scene/baseobject.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

namespace zta {
class FieldList;
class SplineData;
}  // namespace zta

namespace zelmar {

// The settings of one run: the value under a key of the data, or the
// command's default where the key is not set.
class CommandSettings {
 public:
  CommandSettings(const zta::BaseContainer& bc, const VolumeCommandInfo& info) : bc_(bc), info_(info) {}

  bool GetBool(Int32 key) const;
  Int32 GetInt32(Int32 key) const;
  double GetFloat(Int32 key) const;
  Vector GetVector(Int32 key) const;
  // The matrix under `key`, or its default; nothing for "none".
  std::optional<Matrix> GetMatrix(Int32 key) const;
  // The object a link under `key` names, while it lives; null without one.
  const zta::BaseObject* GetObject(Int32 key) const;
  std::shared_ptr<const zta::FieldList> GetFieldList(Int32 key) const;
  std::shared_ptr<const zta::SplineData> GetSplineData(Int32 key) const;

 private:
  const zta::GeData* Find(Int32 key) const;
  const zta::BaseContainer& bc_;
  const VolumeCommandInfo& info_;
};

class VolumeCommand : public zta::CommandClassInterface {
 public:
  explicit VolumeCommand(VolumeCommandInfo info) : info_(std::move(info)) {}
  const VolumeCommandInfo& GetInfo() const { return info_; }

  // Checks the data's class, holds the thread for the run and reads the settings.
  Result<zta::COMMANDRESULT> Execute(zta::LegacyCommandDataInterface& data, const ThreadRef& thread) const final;

 protected:
  virtual Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                         const ThreadRef& thread) const = 0;

 private:
  VolumeCommandInfo info_;
};

// Commands that call their operator once for each input object, in order. A
// stop request between inputs ends the run, BREAK, with the results so far.
class PerInputCommand : public VolumeCommand {
 public:
  using VolumeCommand::VolumeCommand;

 protected:
  Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                 const ThreadRef& thread) const override;
  // Converts the input at `index` (null when the data holds none there) and
  // writes its result into `data`. What an input lacks is for the operator to
  // report: its words pass on as they stand.
  virtual Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                              const zta::BaseObject* input, Int32 index) const = 0;
};

// Per-input commands whose operator makes one volume of each input volume;
// the result goes into the data with its input's index. An input that is no
// volume object gives the operator an uninitialised Volume.
class VolumeToVolumeCommand : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  virtual Result<Volume> Apply(const Volume& volume, const CommandSettings& settings,
                               const ThreadRef& thread) const = 0;

 private:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject* input, Int32 index) const final;
};

// Folds the inputs into one volume, left to right from the base input, with
// `combine(accumulated, next)`: the commands of BoolVolumes and MixVolumes.
// The base must be a volume object with a grid ("base grid has no grid
// attached"); the others go to `combine` as they are. A stop request between inputs ends the run,
// BREAK, with what stands.
Result<zta::COMMANDRESULT> FoldInputs(VolumeCommandData& data, Int32 base, const ThreadRef& thread,
                                      const std::function<Result<Volume>(const Volume&, const Volume&)>& combine);

// The mask of a filter command: a volume object under `volumeKey`, fields
// under `fieldsKey` sampled from the grid's world through the matrix under
// `spaceKey`.
struct CommandMask {
  Volume volume;
  FieldSampleData field;
  const FieldSampleData* Fields() const { return field.fields ? &field : nullptr; }
};
CommandMask ReadMask(const CommandSettings& settings, Int32 volumeKey, Int32 fieldsKey, Int32 spaceKey);

// A result volume as a new volume object among the outputs, and its record.
// A result without grid fails with "result has no grid attached".
Result<void> AddVolumeResult(VolumeCommandData& data, const Volume& result, std::vector<Int32> inputs);

// The end of a command without inputs: its one result goes into `data`. A
// stop request turns a failed or empty result into BREAK.
Result<zta::COMMANDRESULT> FinishWithoutInputs(VolumeCommandData& data, Result<Volume> result,
                                               const ThreadRef& thread);

bool IsStopped(const ThreadRef& thread);

// The registration of one command: its table and its class.
struct VolumeCommandEntry {
  const VolumeCommandInfo* info;
  zta::CommandClassRef command;
};

// One per command file, collected by volumecommands_impl.
VolumeCommandEntry BooleCommandEntry();
VolumeCommandEntry CreatePlatonicVolumeCommandEntry();
VolumeCommandEntry CreateSphereVolumeCommandEntry();
VolumeCommandEntry FieldToVolumeCommandEntry();
VolumeCommandEntry FilterCommandEntry();
VolumeCommandEntry FogToSdfCommandEntry();
VolumeCommandEntry MeshToVolumeCommandEntry();
VolumeCommandEntry MixCommandEntry();
VolumeCommandEntry ParticlesToVolumeCommandEntry();
VolumeCommandEntry ResampleCommandEntry();
VolumeCommandEntry SdfFilterCommandEntry();
VolumeCommandEntry SdfToFogCommandEntry();
VolumeCommandEntry SplineToVolumeCommandEntry();
VolumeCommandEntry VolumeToMeshCommandEntry();

// Makes the entry of a command class C constructed from its table.
template <typename C>
VolumeCommandEntry MakeCommandEntry(VolumeCommandInfo info) {
  auto command = std::make_shared<const C>(std::move(info));
  return {&command->GetInfo(), command};
}

}  // namespace zelmar
