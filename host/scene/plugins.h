#pragma once
// The plug-in registry that a module's registration table fills: node classes
// by type id, with their info bits, description resource and disk level.
#include <functional>
#include <memory>
#include <vector>

#include "host/core/types.h"
#include "host/scene/nodedata.h"

namespace zta {

enum class PLUGINTYPE : Int32 { OBJECT = 1, TAG = 2, SCENEHOOK = 3, SCENELOADER = 4, SCENESAVER = 5, COMMAND = 6 };

using NodeDataAllocator = std::function<std::unique_ptr<NodeData>()>;

// A menu command.
class CommandData {
 public:
  virtual ~CommandData() = default;
  virtual bool Execute(BaseDocument* doc) = 0;
  virtual Int32 GetState(BaseDocument* doc) { return 1; }
};

struct PluginInfo {
  Int32 id = 0;
  PLUGINTYPE type = PLUGINTYPE::OBJECT;
  String name;
  Int32 info = 0;
  String description;
  Int32 diskLevel = 0;
  NodeDataAllocator alloc;
  // Scene hooks: the order among hooks. Savers: the file suffix.
  Int32 priority = 0;
  String suffix;
  std::shared_ptr<CommandData> command;
};

// Each refuses (false) an id already taken, an empty allocator or name.
bool RegisterObjectPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc,
                          const String& description, Int32 diskLevel);
bool RegisterTagPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc, const String& description,
                       Int32 diskLevel);
bool RegisterSceneHookPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc, Int32 priority,
                             Int32 diskLevel);
bool RegisterSceneLoaderPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc,
                               const String& description);
bool RegisterSceneSaverPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc,
                              const String& description, const String& suffix);
bool RegisterCommandPlugin(Int32 id, const String& name, Int32 info, std::shared_ptr<CommandData> command);

// The registration of `id`, or null. A copy would let a caller outlive an
// unregistration; the pointer stays valid until then.
const PluginInfo* FindPlugin(Int32 id);
std::vector<PluginInfo> GetPlugins(PLUGINTYPE type);
// Module end and tests: removes a registration.
bool UnregisterPlugin(Int32 id);

}  // namespace zta
