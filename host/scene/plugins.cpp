#include "host/scene/plugins.h"

#include <map>
#include <mutex>

namespace zta {

namespace {
struct Plugins {
  std::mutex mutex;
  std::map<Int32, std::unique_ptr<PluginInfo>> byId;
};

Plugins& GetRegistry() {
  static Plugins p;
  return p;
}

bool Register(PluginInfo info) {
  if (info.id <= 0 || info.name.empty()) return false;
  if (info.type == PLUGINTYPE::COMMAND ? !info.command : !info.alloc) return false;
  Plugins& p = GetRegistry();
  std::lock_guard<std::mutex> lock(p.mutex);
  if (p.byId.count(info.id)) return false;
  const Int32 id = info.id;
  p.byId.emplace(id, std::make_unique<PluginInfo>(std::move(info)));
  return true;
}
}  // namespace

bool RegisterObjectPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc,
                          const String& description, Int32 diskLevel) {
  return Register({id, PLUGINTYPE::OBJECT, name, info, description, diskLevel, std::move(alloc), 0, {}, nullptr});
}

bool RegisterTagPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc, const String& description,
                       Int32 diskLevel) {
  return Register({id, PLUGINTYPE::TAG, name, info, description, diskLevel, std::move(alloc), 0, {}, nullptr});
}

bool RegisterSceneHookPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc, Int32 priority,
                             Int32 diskLevel) {
  return Register({id, PLUGINTYPE::SCENEHOOK, name, info, {}, diskLevel, std::move(alloc), priority, {}, nullptr});
}

bool RegisterSceneLoaderPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc,
                               const String& description) {
  return Register({id, PLUGINTYPE::SCENELOADER, name, info, description, 0, std::move(alloc), 0, {}, nullptr});
}

bool RegisterSceneSaverPlugin(Int32 id, const String& name, Int32 info, NodeDataAllocator alloc,
                              const String& description, const String& suffix) {
  return Register({id, PLUGINTYPE::SCENESAVER, name, info, description, 0, std::move(alloc), 0, suffix, nullptr});
}

bool RegisterCommandPlugin(Int32 id, const String& name, Int32 info, std::shared_ptr<CommandData> command) {
  return Register({id, PLUGINTYPE::COMMAND, name, info, {}, 0, nullptr, 0, {}, std::move(command)});
}

const PluginInfo* FindPlugin(Int32 id) {
  Plugins& p = GetRegistry();
  std::lock_guard<std::mutex> lock(p.mutex);
  auto it = p.byId.find(id);
  return it == p.byId.end() ? nullptr : it->second.get();
}

std::vector<PluginInfo> GetPlugins(PLUGINTYPE type) {
  Plugins& p = GetRegistry();
  std::lock_guard<std::mutex> lock(p.mutex);
  std::vector<PluginInfo> out;
  for (const auto& [id, info] : p.byId)
    if (info->type == type) out.push_back(*info);
  return out;
}

bool UnregisterPlugin(Int32 id) {
  Plugins& p = GetRegistry();
  std::lock_guard<std::mutex> lock(p.mutex);
  return p.byId.erase(id) > 0;
}

}  // namespace zta
