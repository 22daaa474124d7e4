#include "modules/volumes/source/volumecommands/volumecommand.h"

#include "host/core/format.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "modules/volumes/source/objects/volumeobject.h"

namespace zelmar {

const zta::GeData* CommandSettings::Find(Int32 key) const {
  if (const zta::GeData* set = bc_.GetDataPointer(key)) return set;
  const VolumeCommandSetting* s = info_.FindSetting(key);
  return s ? &s->defaultValue : nullptr;
}

bool CommandSettings::GetBool(Int32 key) const {
  const zta::GeData* d = Find(key);
  return d && d->GetBool(false);
}

Int32 CommandSettings::GetInt32(Int32 key) const {
  const zta::GeData* d = Find(key);
  return d ? d->GetInt32(0) : 0;
}

double CommandSettings::GetFloat(Int32 key) const {
  const zta::GeData* d = Find(key);
  return d ? d->GetFloat(0.0) : 0.0;
}

Vector CommandSettings::GetVector(Int32 key) const {
  const zta::GeData* d = Find(key);
  return d ? d->GetVector() : Vector();
}

std::optional<Matrix> CommandSettings::GetMatrix(Int32 key) const {
  const zta::GeData* d = Find(key);
  if (!d || d->GetType() != zta::DATATYPE::MATRIX) return std::nullopt;
  return d->GetMatrix();
}

const zta::BaseObject* CommandSettings::GetObject(Int32 key) const {
  const zta::GeData* d = Find(key);
  if (!d || d->GetType() != zta::DATATYPE::LINK) return nullptr;
  zta::BaseList2D* node = d->GetBaseLink().ForceGetLink();
  return node && node->IsInstanceOf(zta::HOST_TYPE_OBJECT) ? static_cast<const zta::BaseObject*>(node) : nullptr;
}

std::shared_ptr<const zta::FieldList> CommandSettings::GetFieldList(Int32 key) const {
  const zta::GeData* d = Find(key);
  if (!d) return nullptr;
  return std::static_pointer_cast<const zta::FieldList>(d->GetCustomDataShared(zta::FieldList::kCustomTypeId));
}

std::shared_ptr<const zta::SplineData> CommandSettings::GetSplineData(Int32 key) const {
  const zta::GeData* d = Find(key);
  if (!d) return nullptr;
  return std::static_pointer_cast<const zta::SplineData>(d->GetCustomDataShared(zta::SplineData::kCustomTypeId));
}

Result<zta::COMMANDRESULT> VolumeCommand::Execute(zta::LegacyCommandDataInterface& data,
                                                  const ThreadRef& thread) const {
  auto* volumeData = dynamic_cast<VolumeCommandData*>(&data);
  if (!volumeData)
    return zta::IllegalArgumentError(zta::FormatString("@ needs command data of the class @", info_.id,
                                                       kVolumeCommandDataClass));
  // Held for the whole run, whatever the caller does with its reference.
  const ThreadRef held = thread;
  const CommandSettings settings(data.GetSettings(), info_);
  return Run(*volumeData, settings, held);
}

Result<zta::COMMANDRESULT> PerInputCommand::Run(VolumeCommandData& data, const CommandSettings& settings,
                                                const ThreadRef& thread) const {
  const auto& inputs = data.GetInputs();
  if (inputs.empty()) return zta::COMMANDRESULT::SKIP;
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (IsStopped(thread)) return zta::COMMANDRESULT::BREAK;
    auto one = RunOne(data, settings, thread, inputs[i], Int32(i));
    // A tool that was stopped may answer with an empty volume: that is a
    // break, not a failure.
    if (!one) return IsStopped(thread) ? Result<zta::COMMANDRESULT>(zta::COMMANDRESULT::BREAK) : one.GetError();
  }
  return zta::COMMANDRESULT::OK;
}

Result<zta::COMMANDRESULT> FoldInputs(VolumeCommandData& data, Int32 base, const ThreadRef& thread,
                                      const std::function<Result<Volume>(const Volume&, const Volume&)>& combine) {
  const auto& inputs = data.GetInputs();
  const Int32 count = Int32(inputs.size());
  if (count == 0) return zta::COMMANDRESULT::SKIP;
  // A base that is no input, or no volume object, has no grid either.
  Volume accumulated = base >= 0 && base < count ? VolumeObjectData::GetVolume(inputs[size_t(base)]) : Volume();
  if (!accumulated.HasGrid()) return zta::IllegalStateError("base grid has no grid attached");

  std::vector<Int32> used{base};
  zta::COMMANDRESULT state = zta::COMMANDRESULT::OK;
  for (Int32 i = 0; i < count; ++i) {
    if (i == base) continue;
    if (IsStopped(thread)) {
      state = zta::COMMANDRESULT::BREAK;
      break;
    }
    // Whatever the input holds goes to the operator, whose words stand.
    auto combined = combine(accumulated, VolumeObjectData::GetVolume(inputs[size_t(i)]));
    if (!combined) {
      if (!IsStopped(thread)) return combined.GetError();
      state = zta::COMMANDRESULT::BREAK;
      break;
    }
    if (!combined->HasGrid() && IsStopped(thread)) {
      // A tool stopped half way answers with nothing: keep what stood before.
      state = zta::COMMANDRESULT::BREAK;
      break;
    }
    accumulated = *combined;
    used.push_back(i);
  }
  if (state == zta::COMMANDRESULT::BREAK && !accumulated.HasGrid()) return state;
  if (auto added = AddVolumeResult(data, accumulated, std::move(used)); !added) return added.GetError();
  return state;
}

Result<void> VolumeToVolumeCommand::RunOne(VolumeCommandData& data, const CommandSettings& settings,
                                           const ThreadRef& thread, const zta::BaseObject* input, Int32 index) const {
  auto result = Apply(VolumeObjectData::GetVolume(input), settings, thread);
  if (!result) return result.GetError();
  return AddVolumeResult(data, *result, {index});
}

CommandMask ReadMask(const CommandSettings& settings, Int32 volumeKey, Int32 fieldsKey, Int32 spaceKey) {
  CommandMask mask;
  mask.volume = VolumeObjectData::GetVolume(settings.GetObject(volumeKey));
  mask.field.fields = settings.GetFieldList(fieldsKey);
  mask.field.targetRelativeSpace = settings.GetMatrix(spaceKey).value_or(Matrix());
  return mask;
}

Result<void> AddVolumeResult(VolumeCommandData& data, const Volume& result, std::vector<Int32> inputs) {
  if (!result.HasGrid()) return zta::IllegalStateError("result has no grid attached");
  auto op = CreateVolumeObject(result);
  if (!op) return op.GetError();
  data.AddOutput(std::move(*op));
  VolumeCommandRecord record{result, data.GetOutputCount() - 1, std::move(inputs)};
  auto appended = data.AppendLegacyData(record);
  if (!appended) return appended.GetError();
  return zta::OK();
}

Result<zta::COMMANDRESULT> FinishWithoutInputs(VolumeCommandData& data, Result<Volume> result,
                                               const ThreadRef& thread) {
  const bool stopped = IsStopped(thread);
  if (!result) return stopped ? Result<zta::COMMANDRESULT>(zta::COMMANDRESULT::BREAK) : result.GetError();
  if (stopped && !result->HasGrid()) return zta::COMMANDRESULT::BREAK;
  if (auto added = AddVolumeResult(data, *result, {}); !added) return added.GetError();
  return stopped ? zta::COMMANDRESULT::BREAK : zta::COMMANDRESULT::OK;
}

bool IsStopped(const ThreadRef& thread) { return thread && thread->TestBreak(); }

}  // namespace zelmar
