#include "host/scene/description.h"

#include "host/scene/baseobject.h"
#include "host/scene/plugins.h"

namespace zta {

bool Description::LoadDescription(Int32 type) {
  bool known = FindPlugin(type) != nullptr;
  if (!known) known = AllocHostObject(type) != nullptr || AllocHostTag(type) != nullptr;
  if (known) loadedType_ = type;
  return known;
}

Description::Entry* Description::Find(const DescID& id) {
  for (auto& e : params_)
    if (e.id == id) return &e;
  return nullptr;
}

const Description::Entry* Description::Find(const DescID& id) const {
  for (const auto& e : params_)
    if (e.id == id) return &e;
  return nullptr;
}

void Description::SetParameter(const DescID& id, const BaseContainer& settings) {
  if (Entry* e = Find(id)) {
    e->settings = settings;
    return;
  }
  params_.push_back({id, settings, false});
}

const BaseContainer* Description::GetParameter(const DescID& id) const {
  const Entry* e = Find(id);
  return e ? &e->settings : nullptr;
}

bool Description::Hide(const DescID& id, bool hide) {
  Entry* e = Find(id);
  if (!e) return false;
  e->hidden = hide;
  return true;
}

bool Description::IsHidden(const DescID& id) const {
  const Entry* e = Find(id);
  return e && e->hidden;
}

}  // namespace zta
