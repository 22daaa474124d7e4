#pragma once
// The parameter path: how every front end reads and writes a node's
// parameters, so that a node's side effects (a file parameter loading its
// file, a value it limits, a question it asks) happen whoever writes.
//
// SetParameter(node, id, value, flags):
//   1. TranslateParameter may hand the parameter to another node (repeatedly).
//   2. The value is checked against the description (CoerceParameterValue).
//      A button is pressed instead (PressButton). A link that a person sets is
//      first offered with MSG_DESCRIPTION_CHECKDRAGANDDROP; a refusal ends here.
//   3. MSG_DESCRIPTION_CHECKUPDATE with the id and the value.
//   4. SetParameterValue; unless it sets DESCFLAGS_SET_PARAM_SET the host
//      stores the value: the base parameters in the node, others in its
//      container (an equal value changes nothing).
//   5. MSG_DESCRIPTION_CUSTOMDATA_CHANGED for custom data,
//      MSG_DESCRIPTION_POSTSETPARAMETER, and with DESCFLAGS_SET_USERINTERACTION
//      MSG_DESCRIPTION_USERINTERACTION_END; MSG_NAMEORPATH_CHANGED after a rename.
// GetParameter: translation, GetParameterValue, then the base parameters, the
// container, and last the description's default.
#include "host/scene/description.h"
#include "host/scene/messages.h"

namespace zta {

// The parameters every node has; the object's ones live in the object (its
// matrix, its modes), not in its container, except the display colour.
enum : Int32 {
  ID_BASELIST_NAME = 900,                 // string
  ID_BASEOBJECT_VISIBILITY_EDITOR = 901,  // int32: MODE_ON, MODE_OFF, MODE_UNDEF
  ID_BASEOBJECT_VISIBILITY_RENDER = 902,  // int32
  ID_BASEOBJECT_REL_POSITION = 903,       // vector: below the frozen matrix
  ID_BASEOBJECT_REL_ROTATION = 904,       // vector: heading, pitch, bank in radians
  ID_BASEOBJECT_REL_SCALE = 905,          // vector
  ID_BASEOBJECT_GENERATOR_FLAG = 906,     // bool: a generator or modifier is on
  ID_BASEOBJECT_USECOLOR = 907,           // int32: display colour off, automatic, on, layer
  ID_BASEOBJECT_COLOR = 908,              // vector: display colour
  ID_BASEOBJECT_ABS_POSITION = 925,       // vector: the local matrix, frozen part included
  ID_BASEOBJECT_ABS_ROTATION = 926,
  ID_BASEOBJECT_ABS_SCALE = 927,
};

// The second level of a DescID into a vector parameter.
enum : Int32 { VECTOR_X = 1000, VECTOR_Y = 1001, VECTOR_Z = 1002 };

// Whether the node keeps this parameter itself rather than in its container.
bool IsBuiltinParameter(const BaseList2D* node, Int32 id);

// False for a null node or a parameter the node neither has nor describes.
bool GetParameter(BaseList2D* node, const DescID& id, GeData& value, Int32 flags = DESCFLAGS_NONE);
// False when nothing was set: a null node, a value the parameter does not
// take, or a refusal.
bool SetParameter(BaseList2D* node, const DescID& id, const GeData& value, Int32 flags = DESCFLAGS_NONE);
// Sends MSG_DESCRIPTION_COMMAND for the button `id` (after translation).
bool PressButton(BaseList2D* node, const DescID& id, const BaseContainer* values = nullptr);

// The value as the node's parameter takes it: numbers converted to its kind,
// clamped to its range and checked against its values when a person entered
// it. An error says why a value does not fit. Parameters the node does not
// describe take any value.
Result<GeData> CoerceParameterValue(BaseList2D* node, const DescID& id, const GeData& value,
                                    Int32 flags = DESCFLAGS_NONE);

}  // namespace zta
