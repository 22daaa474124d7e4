#include "host/scene/sceneio.h"

#include <fstream>
#include <new>

#include "host/scene/plugins.h"

namespace zta {

namespace {

class SceneFilterNode : public BaseList2D {
 public:
  static std::unique_ptr<SceneFilterNode> Alloc(Int32 id) {
    const PluginInfo* info = FindPlugin(id);
    if (!info || (info->type != PLUGINTYPE::SCENELOADER && info->type != PLUGINTYPE::SCENESAVER) || !info->alloc)
      return nullptr;
    std::unique_ptr<SceneFilterNode> node(new (std::nothrow) SceneFilterNode(id));
    if (!node) return nullptr;
    std::unique_ptr<NodeData> data = info->alloc();
    if (!data || !node->AttachNodeData(std::move(data))) return nullptr;
    node->SetName(info->name);
    return node;
  }

 protected:
  explicit SceneFilterNode(Int32 id) : BaseList2D(id) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(GetType()); }
};

}  // namespace

std::unique_ptr<BaseList2D> AllocSceneFilter(Int32 id) { return SceneFilterNode::Alloc(id); }

bool ReadSceneFilterProbe(const String& path, std::vector<unsigned char>* probe) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  probe->assign(size_t(kSceneFilterProbeSize), 0);
  in.read(reinterpret_cast<char*>(probe->data()), kSceneFilterProbeSize);
  probe->resize(size_t(in.gcount()));
  return !in.bad();
}

}  // namespace zta
