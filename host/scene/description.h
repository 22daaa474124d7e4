#pragma once
// DescID names one parameter as a path of ids, the first naming the
// parameter. Description is the parameter list of a node type: name, id,
// kind, default, range and enumeration of each parameter, read from the
// type's resource file ("<resource name>.res" in a description folder of the
// host or of the module that registered the type). The file format is in
// docs/host.md.
#include <initializer_list>
#include <memory>
#include <vector>

#include "host/core/result.h"
#include "host/scene/basecontainer.h"

namespace zta {

class BaseList2D;

class DescID {
 public:
  DescID() = default;
  DescID(Int32 id) : ids_{id} {}
  DescID(std::initializer_list<Int32> ids) : ids_(ids) {}
  Int32 GetDepth() const { return Int32(ids_.size()); }
  // The id at `level`, 0 past the end.
  Int32 operator[](Int32 level) const { return level >= 0 && level < GetDepth() ? ids_[size_t(level)] : 0; }
  // The parameter's own id, the first of the path.
  Int32 GetId() const { return (*this)[0]; }
  void PushId(Int32 id) { ids_.push_back(id); }
  bool operator==(const DescID&) const = default;

 private:
  std::vector<Int32> ids_;
};

// Flags of the parameter operations. A SetParameterValue that stored the
// value itself sets SET_PARAM_SET; a GetParameterValue that gave it, GET_PARAM_GET.
// USERINTERACTION marks a value a person entered: it is clamped to the
// parameter's range and the node may ask questions about it.
enum : Int32 {
  DESCFLAGS_NONE = 0,
  DESCFLAGS_DESC_LOADED = 1,
  DESCFLAGS_GET_PARAM_GET = 2,
  DESCFLAGS_SET_PARAM_SET = 2,
  DESCFLAGS_SET_USERINTERACTION = 4,
};

// What a parameter is.
enum class DESCKIND : Int32 {
  GROUP = 1,
  SEPARATOR = 2,
  BOOL = 3,
  LONG = 4,  // int32; with values listed, a cycle
  REAL = 5,
  VECTOR = 6,
  STRING = 7,
  STATICTEXT = 8,  // a string the node writes and people only read
  FILENAME = 9,
  BUTTON = 10,
  LINK = 11,
  TIME = 12,
  CUSTOM = 13,  // custom data of DESC_CUSTOMTYPE
};

// How a value is shown; values are stored in scene units and radians.
enum class DESCUNIT : Int32 { REAL = 0, METER = 1, PERCENT = 2, DEGREE = 3 };

// Keys of a parameter's settings container.
enum : Int32 {
  DESC_NAME = 1,        // string: the label
  DESC_IDENT = 2,       // string: the symbol, as files and scripts name it
  DESC_KIND = 3,        // int32: DESCKIND
  DESC_DEFAULT = 4,     // the default value
  DESC_MIN = 5,         // float
  DESC_MAX = 6,         // float
  DESC_STEP = 7,        // float
  DESC_UNIT = 8,        // int32: DESCUNIT
  DESC_CYCLE = 9,       // container: value -> label
  DESC_CYCLEIDENT = 10, // container: value -> symbol
  DESC_CYCLEICONS = 11, // container: value -> icon id
  DESC_ACCEPT = 12,     // container: type ids a link takes (any when absent)
  DESC_CUSTOMTYPE = 13, // int32: custom data type id
  DESC_PARENTGROUP = 14,// int32: the group the parameter stands in
  DESC_HIDE = 15,       // bool
};

class Description {
 public:
  // Adds the parameters of `type`'s resource (a registered plug-in's, or a
  // host type's), after those already listed. False when the type is unknown
  // or its resource cannot be read.
  bool LoadDescription(Int32 type);
  // The same by resource name.
  bool LoadDescription(const String& resourceName);

  // The one parameter that the caller asks for, or null when it wants all.
  const DescID* GetSingleDescID() const { return single_ ? &singleId_ : nullptr; }
  void SetSingleDescID(const DescID& id) { singleId_ = id; single_ = true; }
  // Whether a parameter with `id` is wanted by the caller.
  bool CheckId(const DescID& id) const { return !single_ || singleId_.GetId() == id.GetId(); }

  // Adds a parameter, or replaces the settings of one already listed.
  void SetParameter(const DescID& id, const BaseContainer& settings);
  const BaseContainer* GetParameter(const DescID& id) const;
  // Hides (or shows) a parameter; false when it is not in the list.
  bool Hide(const DescID& id, bool hide = true);
  bool IsHidden(const DescID& id) const;

  // The parameters in order.
  Int32 GetCount() const { return Int32(params_.size()); }
  const DescID& GetId(Int32 index) const { return params_[size_t(index)].id; }
  const BaseContainer& GetSettings(Int32 index) const { return params_[size_t(index)].settings; }
  // The parameter whose symbol is `ident`, or null.
  const DescID* FindIdent(const String& ident) const;
  // Adds the parameters of `other` (replacing those listed under the same id).
  void Append(const Description& other);

 private:
  struct Entry {
    DescID id;
    BaseContainer settings;
  };
  Entry* Find(const DescID& id);
  const Entry* Find(const DescID& id) const;

  bool single_ = false;
  DescID singleId_;
  std::vector<Entry> params_;
};

// A resource file's parameters, parsed; errors name the file and line.
Result<Description> ParseDescription(const String& path);

// The resource description of `type`, read once and kept; null when the type
// has none.
const Description* GetTypeDescription(Int32 type);
// The description of a node as a panel, a scene file or a script sees it:
// its class's DescribeParameters, or the type's resource when the class
// leaves it to the host. False when there is none.
bool GetNodeDescription(BaseList2D* node, Description& description);
// Writes the defaults of the type's own parameters into the node's
// container; the host does this before InitNode.
void ApplyDescriptionDefaults(BaseList2D* node);

// Where the host's own resources are (descriptions in its "description"
// folder): set by front ends; else $ZTA_HOST_RESOURCES, else "res/host" beside
// the program, else the source tree the host was built from.
void SetHostResourceFolder(const String& folder);
String GetHostDescriptionFolder();
// The running module's resource folder: its descriptions are in its
// "description" folder, its labels in its string table. Setting it (also to
// the same folder, as a resource reload does) forgets what was read.
void SetModuleResourceFolder(const String& folder);

}  // namespace zta
