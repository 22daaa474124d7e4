#pragma once
// Copies the tags of one object to another, as generators do for the
// objects they make: a mesher gives its polygons the materials of the
// generator, but not data tags that belong to other points.
#include <vector>

#include "host/scene/baseobject.h"

namespace zta {

// Which tags a choice takes: those with the property, those without, or both.
enum : Int32 { COPYTAGS_WITHOUT = 0, COPYTAGS_WITH = 1, COPYTAGS_ANY = -1 };

// Appends copies of the tags of `source` to `dest`, choosing by `visible`
// (TAG_VISIBLE) and `variable` (a tag of records per point or polygon), and
// skipping the types in `skipTypes`. A tag type that may not be there twice
// (no TAG_MULTIPLE) replaces the destination's own. Nothing changes when a
// copy fails; false then.
bool CopyTagsTo(const BaseObject* source, BaseObject* dest, Int32 visible, Int32 variable,
                const std::vector<Int32>& skipTypes = {}, AliasTrans* trans = nullptr);

}  // namespace zta
