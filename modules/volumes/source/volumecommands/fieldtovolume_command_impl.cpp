// net.zelmar.command.volumes.fieldtovolume: fields sampled over a box, by
// ConvertFieldsToVolume or ConvertFieldsToVectorVolume.
#include "host/fields/fieldlist.h"
#include "host/objects/fieldobjects.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class FieldToVolumeCommand final : public VolumeCommand {
 public:
  using VolumeCommand::VolumeCommand;

 protected:
  // One volume for each field-carrying input; without inputs, one for the
  // list under FIELDTOVOLUME_FIELDS.
  Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                 const ThreadRef& thread) const override {
    const auto& inputs = data.GetInputs();
    if (inputs.empty()) {
      std::shared_ptr<const zta::FieldList> fields = settings.GetFieldList(FIELDTOVOLUME_FIELDS);
      if (!fields) return zta::COMMANDRESULT::SKIP;
      return FinishWithoutInputs(data, Convert(settings, *fields, nullptr, thread), thread);
    }
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (IsStopped(thread)) return zta::COMMANDRESULT::BREAK;
      // An input that carries no field list samples as an empty list does.
      std::shared_ptr<const zta::FieldList> fields = zta::GetObjectFieldList(inputs[i]);
      if (!fields) fields = std::make_shared<const zta::FieldList>();
      auto volume = Convert(settings, *fields, inputs[i] ? inputs[i]->GetDocument() : nullptr, thread);
      auto added = volume ? AddVolumeResult(data, *volume, {Int32(i)}) : Result<void>(volume.GetError());
      if (!added) return IsStopped(thread) ? Result<zta::COMMANDRESULT>(zta::COMMANDRESULT::BREAK) : added.GetError();
    }
    return zta::COMMANDRESULT::OK;
  }

 private:
  // Layers linked to objects stand where their objects stand now.
  static Result<Volume> Convert(const CommandSettings& settings, const zta::FieldList& fields,
                                const zta::BaseDocument* doc, const ThreadRef& thread) {
    FieldSampleData fieldData;
    try {
      fieldData.fields = std::make_shared<const zta::FieldList>(fields.Resolve(doc));
    } catch (const std::bad_alloc&) {
      return zta::OutOfMemoryError();
    }
    fieldData.targetRelativeSpace = settings.GetMatrix(FIELDTOVOLUME_SPACE).value_or(Matrix());
    const BoundingBox box{settings.GetVector(FIELDTOVOLUME_BOXMIN), settings.GetVector(FIELDTOVOLUME_BOXMAX)};
    const Volume reference = VolumeObjectData::GetVolume(settings.GetObject(FIELDTOVOLUME_REFERENCE));
    const std::optional<Matrix> transform = settings.GetMatrix(FIELDTOVOLUME_TRANSFORM);
    const double gridSize = settings.GetFloat(FIELDTOVOLUME_GRIDSIZE);
    if (settings.GetBool(FIELDTOVOLUME_VECTOR))
      return VolumeToolsInterface::ConvertFieldsToVectorVolume(fieldData, gridSize, box, thread, reference,
                                                               transform ? &*transform : nullptr);
    return VolumeToolsInterface::ConvertFieldsToVolume(fieldData, gridSize, box, thread, reference,
                                                       transform ? &*transform : nullptr);
  }
};

}  // namespace

VolumeCommandEntry FieldToVolumeCommandEntry() {
  return MakeCommandEntry<FieldToVolumeCommand>(
      {kFieldToVolumeCommand,
       "fieldtovolume",
       "field-carrying objects; without any, the field list of the setting fields",
       {
           {FIELDTOVOLUME_VECTOR, "vector", COMMANDVALUETYPE::BOOL, false,
            "a vector volume of the fields' directions instead of a float volume of their values"},
           {FIELDTOVOLUME_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.1, "voxel size"},
           {FIELDTOVOLUME_BOXMIN, "boxmin", COMMANDVALUETYPE::VECTOR, zta::Vector(-1.0),
            "lower corner of the sampled box, world units"},
           {FIELDTOVOLUME_BOXMAX, "boxmax", COMMANDVALUETYPE::VECTOR, zta::Vector(1.0), "upper corner"},
           {FIELDTOVOLUME_FIELDS, "fields", COMMANDVALUETYPE::FIELDLIST, zta::GeData(),
            "the fields, when no input object carries them"},
           {FIELDTOVOLUME_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "creation transform, whose scale decides the voxel size"},
           {FIELDTOVOLUME_REFERENCE, "reference", COMMANDVALUETYPE::LINK, zta::GeData(),
            "a volume object whose grid's frame the result takes"},
           {FIELDTOVOLUME_SPACE, "space", COMMANDVALUETYPE::MATRIX, zta::Matrix(),
            "from the grid's world into the fields' space"},
       }});
}

}  // namespace zelmar
