#pragma once
// Numeric ids of the host's node types, flag words and bits. They reach scene
// files and must not change.
#include "host/core/types.h"

namespace zta {

enum : Int32 {
  HOST_TYPE_POLYGON = 5100,
  HOST_TYPE_SPLINE = 5101,
  HOST_TYPE_EMITTER = 5109,
  HOST_TYPE_LINE = 5137,
  HOST_TYPE_NULL = 5140,
  HOST_TYPE_OBJECT = 5155,
  HOST_TYPE_SPHERE = 5160,
  HOST_TYPE_CUBE = 5159,
  HOST_TYPE_POINT = 5168,
  HOST_TYPE_PARTICLE_GROUP = 1001381,
  HOST_TYPE_CLONER = 1018544,
  HOST_TYPE_SUBDIVISION = 1007455,
  HOST_TYPE_MATRIX = 1018545,
  HOST_TYPE_FIELD_CARRIER = 1019677,
  HOST_TYPE_FIELD_OBJECT = 1040449,
  HOST_TYPE_SPLINE_GENERATOR = 440000054,
  HOST_TYPE_DOCUMENT = 110059,

  HOST_TYPE_TAG = 5599,
  HOST_TAG_POINT = 5600,
  HOST_TAG_POLYGON = 5604,
  HOST_TAG_PHONG = 5612,
  HOST_TAG_UVW = 5671,
  HOST_TAG_SEGMENT = 5672,
  HOST_TAG_VERTEXMAP = 5682,
};

// Custom data type ids.
enum : Int32 {
  CUSTOMDATATYPE_SPLINE = 1009060,
  CUSTOMDATATYPE_FIELDLIST = 440000246,
};

// Dirty counters by flag word. GetDirty sums the counters of every bit set.
enum DIRTYFLAGS : UInt32 {
  DIRTYFLAGS_NONE = 0,
  DIRTYFLAGS_MATRIX = 2,
  DIRTYFLAGS_DATA = 4,
  DIRTYFLAGS_SELECT = 8,
  DIRTYFLAGS_CACHE = 16,
  DIRTYFLAGS_CHILDREN = 32,
  DIRTYFLAGS_DESCRIPTION = 64,
  DIRTYFLAGS_ALL = 0x7e,
};

// Object info bits of a plug-in registration.
enum : Int32 {
  OBJECT_MODIFIER = 1,
  OBJECT_HIERARCHYMODIFIER = 2,
  OBJECT_GENERATOR = 4,
  OBJECT_INPUT = 8,
  OBJECT_POINTOBJECT = 32,
  OBJECT_POLYGONOBJECT = 64,
  OBJECT_NO_PARTICLES = 0x200,
  OBJECT_ISSPLINE = 16,
  OBJECT_FIELDCARRIER = 0x20000,
};

// Tag info bits of a plug-in registration.
enum : Int32 {
  TAG_VISIBLE = 1,     // listed with the object's tags
  TAG_MULTIPLE = 2,    // an object may carry several
  TAG_EXPRESSION = 8,  // runs in the priority list without asking to
};

// Node bits.
enum : UInt32 {
  BIT_ACTIVE = 2,
  BIT_CONTROLOBJECT = 4,  // a generator's input, set by the evaluation pass
};

// How ChangeNBit changes a numbered node bit.
enum class NBITCONTROL : Int32 { SET = 1, CLEAR = 2, TOGGLE = 3 };

// Editor and render state of an object.
enum : Int32 { MODE_ON = 0, MODE_OFF = 1, MODE_UNDEF = 2 };

// Flags of GetClone.
enum : Int32 {
  COPYFLAGS_NONE = 0,
  COPYFLAGS_NO_HIERARCHY = 4,
  COPYFLAGS_NO_BITS = 16,
  // The clone keeps the markers of the originals, so that links inside a
  // cloned document resolve to the clones.
  COPYFLAGS_KEEP_MARKERS = 0x1000,
};

}  // namespace zta
