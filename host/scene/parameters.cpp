#include "host/scene/parameters.h"

#include <algorithm>
#include <cmath>

#include "host/core/format.h"
#include "host/core/rotation.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"

namespace zta {

namespace {

// Translation may hand a parameter on, and on again; a loop ends here.
constexpr int kMaxTranslations = 8;

BaseList2D* Translate(BaseList2D* node, DescID& id) {
  for (int i = 0; i < kMaxTranslations && node && node->GetNodeData(); ++i) {
    DescID to;
    BaseList2D* at = nullptr;
    if (!node->GetNodeData()->TranslateParameter(node, id, to, at) || !at) break;
    node = at;
    if (to.GetDepth() > 0) id = to;
  }
  return node;
}

bool IsComponent(const DescID& id) { return id.GetDepth() >= 2 && id[1] >= VECTOR_X && id[1] <= VECTOR_Z; }

const BaseContainer* Settings(const BaseList2D* node, Int32 id) {
  const Description* d = GetTypeDescription(node->GetType());
  return d ? d->GetParameter(id) : nullptr;
}

const char* TypeName(DATATYPE t) {
  switch (t) {
    case DATATYPE::NONE: return "nothing";
    case DATATYPE::INT32: case DATATYPE::INT64: return "a whole number";
    case DATATYPE::BOOL: return "a bool";
    case DATATYPE::FLOAT: return "a number";
    case DATATYPE::VECTOR: return "a vector";
    case DATATYPE::MATRIX: return "a matrix";
    case DATATYPE::STRING: return "a text";
    case DATATYPE::TIME: return "a time";
    case DATATYPE::LINK: return "a link";
    case DATATYPE::CONTAINER: return "a container";
    case DATATYPE::CUSTOM: return "custom data";
  }
  return "a value";
}

bool IsNumber(const GeData& v) {
  const DATATYPE t = v.GetType();
  return t == DATATYPE::INT32 || t == DATATYPE::INT64 || t == DATATYPE::BOOL || t == DATATYPE::FLOAT;
}

// The kind of a base parameter, for nodes whose description does not list it.
DESCKIND BuiltinKind(Int32 id) {
  switch (id) {
    case ID_BASELIST_NAME: return DESCKIND::STRING;
    case ID_BASEOBJECT_VISIBILITY_EDITOR:
    case ID_BASEOBJECT_VISIBILITY_RENDER: return DESCKIND::LONG;
    case ID_BASEOBJECT_GENERATOR_FLAG: return DESCKIND::BOOL;
    default: return DESCKIND::VECTOR;
  }
}

Vector Clamp(const Vector& v, const BaseContainer& s) {
  Vector out = v;
  for (int i = 0; i < 3; ++i) {
    if (s.GetDataPointer(DESC_MIN)) out[i] = std::max(out[i], s.GetFloat(DESC_MIN));
    if (s.GetDataPointer(DESC_MAX)) out[i] = std::min(out[i], s.GetFloat(DESC_MAX));
  }
  return out;
}

bool GetBuiltin(BaseList2D* node, Int32 id, GeData& out) {
  if (id == ID_BASELIST_NAME) {
    out = GeData(node->GetName());
    return true;
  }
  auto* op = dynamic_cast<BaseObject*>(node);
  if (!op) return false;
  switch (id) {
    case ID_BASEOBJECT_VISIBILITY_EDITOR: out = GeData(op->GetEditorMode()); return true;
    case ID_BASEOBJECT_VISIBILITY_RENDER: out = GeData(op->GetRenderMode()); return true;
    case ID_BASEOBJECT_GENERATOR_FLAG: out = GeData(op->GetDeformMode()); return true;
    default: break;
  }
  const bool rel = id >= ID_BASEOBJECT_REL_POSITION && id <= ID_BASEOBJECT_REL_SCALE;
  const bool abs = id >= ID_BASEOBJECT_ABS_POSITION && id <= ID_BASEOBJECT_ABS_SCALE;
  if (!rel && !abs) return false;
  const Matrix m = rel ? op->GetFrozenMatrix().GetInverse() * op->GetMl() : op->GetMl();
  const PSR psr = SplitMatrix(m);
  const Int32 which = rel ? id - ID_BASEOBJECT_REL_POSITION : id - ID_BASEOBJECT_ABS_POSITION;
  out = GeData(which == 0 ? psr.position : which == 1 ? psr.rotation : psr.scale);
  return true;
}

// Stores a base parameter; only a real change moves a counter.
void SetBuiltin(BaseList2D* node, Int32 id, const GeData& v) {
  if (id == ID_BASELIST_NAME) {
    node->SetName(v.GetString());
    return;
  }
  auto* op = static_cast<BaseObject*>(node);
  switch (id) {
    case ID_BASEOBJECT_VISIBILITY_EDITOR:
      if (op->GetEditorMode() != v.GetInt32()) op->SetEditorMode(v.GetInt32());
      return;
    case ID_BASEOBJECT_VISIBILITY_RENDER:
      if (op->GetRenderMode() != v.GetInt32()) op->SetRenderMode(v.GetInt32());
      return;
    case ID_BASEOBJECT_GENERATOR_FLAG:
      if (op->GetDeformMode() != v.GetBool()) op->SetDeformMode(v.GetBool());
      return;
    default: break;
  }
  const bool rel = id <= ID_BASEOBJECT_REL_SCALE;
  const Matrix frozen = op->GetFrozenMatrix();
  Matrix m = rel ? frozen.GetInverse() * op->GetMl() : op->GetMl();
  const Int32 which = rel ? id - ID_BASEOBJECT_REL_POSITION : id - ID_BASEOBJECT_ABS_POSITION;
  const Vector value = v.GetVector();
  Matrix next = m;
  if (which == 0) {
    next.off = value;
  } else if (which == 2) {
    // The axes keep their directions and take the new lengths.
    next.v1 = m.v1.GetNormalized() * value.x;
    next.v2 = m.v2.GetNormalized() * value.y;
    next.v3 = m.v3.GetNormalized() * value.z;
  } else {
    PSR psr = SplitMatrix(m);
    psr.rotation = value;
    next = JoinMatrix(psr);
  }
  if (next == m) return;
  op->SetMl(rel ? frozen * next : next);
}

bool Get(BaseList2D* node, const DescID& id, GeData& value) {
  GeData whole;
  if (IsBuiltinParameter(node, id.GetId())) {
    GetBuiltin(node, id.GetId(), whole);
  } else if (const GeData* stored = node->GetDataInstance()->GetDataPointer(id.GetId())) {
    whole = *stored;
  } else if (const BaseContainer* s = Settings(node, id.GetId()); s && s->GetDataPointer(DESC_DEFAULT)) {
    whole = s->GetData(DESC_DEFAULT);
  } else {
    return false;
  }
  value = IsComponent(id) && whole.GetType() == DATATYPE::VECTOR ? GeData(whole.GetVector()[id[1] - VECTOR_X]) : whole;
  return true;
}

}  // namespace

bool IsBuiltinParameter(const BaseList2D* node, Int32 id) {
  if (id == ID_BASELIST_NAME) return true;
  if (!dynamic_cast<const BaseObject*>(node)) return false;
  return (id >= ID_BASEOBJECT_VISIBILITY_EDITOR && id <= ID_BASEOBJECT_GENERATOR_FLAG) ||
         (id >= ID_BASEOBJECT_ABS_POSITION && id <= ID_BASEOBJECT_ABS_SCALE);
}

Result<GeData> CoerceParameterValue(BaseList2D* node, const DescID& id, const GeData& value, Int32 flags) {
  if (!node) return NullptrError("no node to set a parameter of");
  const BaseContainer* s = Settings(node, id.GetId());
  const bool builtin = IsBuiltinParameter(node, id.GetId());
  if (!s && !builtin) return value;
  DESCKIND kind = s ? DESCKIND(s->GetInt32(DESC_KIND)) : BuiltinKind(id.GetId());
  const String ident = s ? s->GetString(DESC_IDENT) : String();
  const String name = ident.empty() ? FormatString("@", id.GetId()) : FormatString("@ (@)", ident, id.GetId());
  auto refuse = [&](const char* wants) {
    return IllegalArgumentError(FormatString("parameter @ takes @, not @", name, wants, TypeName(value.GetType())));
  };
  const bool person = flags & DESCFLAGS_SET_USERINTERACTION;
  if (kind == DESCKIND::VECTOR && IsComponent(id)) kind = DESCKIND::REAL;
  switch (kind) {
    case DESCKIND::BOOL:
      if (!IsNumber(value)) return refuse("a bool");
      return GeData(value.GetBool());
    case DESCKIND::LONG: {
      if (!IsNumber(value)) return refuse("a whole number");
      const Float f = value.GetFloat();
      if (f != std::trunc(f)) return IllegalArgumentError(FormatString("parameter @ takes a whole number, not @", name, f));
      Int32 v = value.GetInt32();
      if (builtin && (v < MODE_ON || v > MODE_UNDEF) && kind == DESCKIND::LONG && id.GetId() != ID_BASEOBJECT_GENERATOR_FLAG)
        return IllegalArgumentError(FormatString("parameter @ takes 0, 1 or 2, not @", name, v));
      if (s && s->GetDataPointer(DESC_CYCLE) && !s->GetContainerInstance(DESC_CYCLE)->GetDataPointer(v))
        return IllegalArgumentError(FormatString("parameter @ has no value @", name, v));
      if (person && s) v = Int32(Clamp(Vector(Float(v)), *s).x);
      return GeData(v);
    }
    case DESCKIND::REAL: {
      if (!IsNumber(value)) return refuse("a number");
      Float f = value.GetFloat();
      if (person && s) f = Clamp(Vector(f), *s).x;
      return GeData(f);
    }
    case DESCKIND::VECTOR:
      if (value.GetType() != DATATYPE::VECTOR) return refuse("a vector");
      return person && s ? GeData(Clamp(value.GetVector(), *s)) : value;
    case DESCKIND::STRING:
    case DESCKIND::STATICTEXT:
    case DESCKIND::FILENAME:
      if (value.GetType() != DATATYPE::STRING) return refuse("a text");
      return value;
    case DESCKIND::TIME:
      if (value.GetType() == DATATYPE::TIME) return value;
      if (IsNumber(value)) return GeData(BaseTime(value.GetFloat()));
      return refuse("a time");
    case DESCKIND::LINK: {
      if (value.IsEmpty()) return GeData(BaseLink());
      if (value.GetType() != DATATYPE::LINK) return refuse("a link");
      const BaseContainer* accept = s->GetContainerInstance(DESC_ACCEPT);
      BaseList2D* target = value.GetBaseLink().ForceGetLink();
      if (accept && target) {
        bool ok = false;
        for (const auto& [type, on] : *accept) ok = ok || target->IsInstanceOf(type);
        if (!ok) return IllegalArgumentError(FormatString("parameter @ does not take \"@\"", name, target->GetName()));
      }
      return value;
    }
    case DESCKIND::CUSTOM:
      if (value.GetCustomTypeId() != s->GetInt32(DESC_CUSTOMTYPE))
        return IllegalArgumentError(FormatString("parameter @ takes custom data @", name, s->GetInt32(DESC_CUSTOMTYPE)));
      return value;
    case DESCKIND::BUTTON:
    case DESCKIND::GROUP:
    case DESCKIND::SEPARATOR:
      return IllegalArgumentError(FormatString("parameter @ holds no value", name));
  }
  return value;
}

bool GetParameter(BaseList2D* node, const DescID& id, GeData& value, Int32 flags) {
  if (!node) return false;
  DescID pid = id;
  node = Translate(node, pid);
  if (NodeData* data = node->GetNodeData()) {
    Int32 f = flags;
    if (!data->GetParameterValue(node, pid, value, f)) return false;
    if (f & DESCFLAGS_GET_PARAM_GET) return true;
  }
  return Get(node, pid, value);
}

bool PressButton(BaseList2D* node, const DescID& id, const BaseContainer* values) {
  if (!node) return false;
  DescID pid = id;
  node = Translate(node, pid);
  DescriptionCommand command{pid, values};
  return node->Message(MSG_DESCRIPTION_COMMAND, &command);
}

bool SetParameter(BaseList2D* node, const DescID& id, const GeData& value, Int32 flags) {
  if (!node) return false;
  DescID pid = id;
  node = Translate(node, pid);
  const BaseContainer* s = Settings(node, pid.GetId());
  const DESCKIND kind = s ? DESCKIND(s->GetInt32(DESC_KIND)) : DESCKIND::GROUP;
  if (s && kind == DESCKIND::BUTTON) {
    DescriptionCommand command{pid, nullptr};
    return node->Message(MSG_DESCRIPTION_COMMAND, &command);
  }
  Result<GeData> coerced = CoerceParameterValue(node, pid, value, flags);
  if (!coerced) return false;
  if (s && kind == DESCKIND::LINK && (flags & DESCFLAGS_SET_USERINTERACTION)) {
    DescriptionCheckDragAndDrop drop{pid, coerced->GetBaseLink().ForceGetLink(), true};
    node->Message(MSG_DESCRIPTION_CHECKDRAGANDDROP, &drop);
    if (!drop.accept) return false;
  }
  DescriptionCheckUpdate update{pid, &coerced.GetValue(), flags};
  node->Message(MSG_DESCRIPTION_CHECKUPDATE, &update);

  const String oldName = node->GetName();
  Int32 f = flags;
  if (NodeData* data = node->GetNodeData())
    if (!data->SetParameterValue(node, pid, *coerced, f)) return false;
  if (!(f & DESCFLAGS_SET_PARAM_SET)) {
    GeData whole = *coerced;
    if (IsComponent(pid)) {
      GeData current;
      if (!Get(node, DescID(pid.GetId()), current) || current.GetType() != DATATYPE::VECTOR) return false;
      Vector v = current.GetVector();
      v[pid[1] - VECTOR_X] = coerced->GetFloat();
      whole = GeData(v);
    }
    if (IsBuiltinParameter(node, pid.GetId())) SetBuiltin(node, pid.GetId(), whole);
    else node->GetDataInstance()->SetData(pid.GetId(), whole);
  }

  DescriptionPostSetValue post{pid, flags};
  if (coerced->GetType() == DATATYPE::CUSTOM) node->Message(MSG_DESCRIPTION_CUSTOMDATA_CHANGED, &post);
  node->Message(MSG_DESCRIPTION_POSTSETPARAMETER, &post);
  if (flags & DESCFLAGS_SET_USERINTERACTION) node->Message(MSG_DESCRIPTION_USERINTERACTION_END, &post);
  if (node->GetName() != oldName) node->Message(MSG_NAMEORPATH_CHANGED);
  return true;
}

}  // namespace zta
