#pragma once
// VolumeFilter (1039862): one filter operation for one volume type. As a row
// of a Volume Builder it changes the volumes below it, called by the builder;
// under a volume object it works as a modifier on that object's grid.
#include <memory>
#include <vector>

#include "host/core/result.h"
#include "host/scene/nodedata.h"
#include "host/scene/plugins.h"

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMEFILTER = 1039862,

  VOLUMEFILTER_STRENGTH = 1000,
  VOLUMEFILTER_VOLUMETYPE = 1001,
  VOLUMEFILTER_RADIUS = 1002,
  VOLUMEFILTER_SDFTYPE = 1003,
  VOLUMEFILTER_ITERATIONS_FOG = 1004,
  VOLUMEFILTER_FOGTYPE = 1005,
  VOLUMEFILTER_ITERATIONS = 1006,
  VOLUMEFILTER_ACCURACY = 1007,
  VOLUMEFILTER_OFFSET = 1009,
  VOLUMEFILTER_REMAP_OLDMIN = 1010,
  VOLUMEFILTER_REMAP_OLDMAX = 1011,
  VOLUMEFILTER_REMAP_NEWMIN = 1012,
  VOLUMEFILTER_REMAP_NEWMAX = 1013,
  VOLUMEFILTER_USE_FIELDS = 1015,
  VOLUMEFILTER_FIELD_MODE = 1016,
  VOLUMEFILTER_FIELD_SOURCE = 1017,
  VOLUMEFILTER_FIELDS = 1020,
  VOLUMEFILTER_CURVE = 1024,
  VOLUMEFILTER_VECTORTYPE = 1026,
  VOLUMEFILTER_VECTOR_SCALE = 1028,
  VOLUMEFILTER_AXIS = 1029,
  VOLUMEFILTER_ANGLE = 1030,
  VOLUMEFILTER_ROTATE_SPACE = 1031,
  VOLUMEFILTER_FOG_ADD = 1032,
  VOLUMEFILTER_FOG_MULTIPLY = 1033,
  VOLUMEFILTER_RESHAPE_AMOUNT = 1034,
  VOLUMEFILTER_RESHAPE_NORMALIZE = 1035,
};

// The values of VOLUMEFILTER_VOLUMETYPE.
enum : zta::Int32 { VOLUMEFILTER_TYPE_SDF = 0, VOLUMEFILTER_TYPE_FOG = 1, VOLUMEFILTER_TYPE_VECTOR = 2 };

class VolumeFilter : public zta::ObjectData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "Filter-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  void GetObjectBounds(zta::BaseObject* op, zta::Vector* mp, zta::Vector* rad) override;
  bool ModifyObject(zta::BaseObject* mod, zta::BaseDocument* doc, zta::BaseObject* op, const zta::Matrix& op_mg,
                    const zta::Matrix& mod_mg, zta::Float lod, zta::Int32 flags, zta::ZTAThread* thread) override;
  void CheckDirtyState(zta::BaseObject* op, zta::BaseDocument* doc) override;

  // Runs `modifier`'s operation on the volume object `object`, whose grid is
  // replaced by the result. `matrix` takes the grid's world into the space of
  // the filter's fields. Nothing happens for a disabled filter, an object
  // that is no volume object, or a grid of another type than the filter's.
  static zta::Result<void> Filter(zta::BaseObject* modifier, zta::BaseObject* object, zta::BaseDocument* doc,
                                  zta::ZTAThread* thread, const zta::Matrix& matrix);

 private:
  zta::UInt32 fieldDirty_ = 0;
};

// The menu commands that add a filter of one kind to the selected Volume
// Builder, one registration each (RegisterFilterCommands).
class CreateVolumeFilterCommand final : public zta::CommandData {
 public:
  CreateVolumeFilterCommand(zta::Int32 volumeType, zta::Int32 operation) : volumeType_(volumeType), operation_(operation) {}
  bool Execute(zta::BaseDocument* doc) override;
  zta::Int32 GetState(zta::BaseDocument* doc) override;
  // Adds the filter to `builder`; gives the filter object, or null.
  zta::BaseObject* AddTo(zta::BaseObject* builder) const;

  // The fifteen kinds, with their command ids.
  struct Kind {
    zta::Int32 id, volumeType, operation, nameResource;
  };
  static const std::vector<Kind>& Kinds();

 private:
  zta::Int32 volumeType_, operation_;
};

}  // namespace zelmar
