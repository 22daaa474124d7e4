#pragma once
// A full text dump of a document for round-trip tests: every node in tree
// order with its class, type, id, name, bits and parameters, matrices, point,
// polygon and tag records, segments, particles, custom values and where each
// link leads. Floats are printed exactly, so two dumps are equal only when
// the documents are. Node data of plug-ins add their part through `extra`.
#include <cstdio>
#include <functional>
#include <sstream>
#include <string>

#include "host/scene/checklist.h"
#include "host/scene/itemtree.h"
#include "host/scene/unitscale.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "host/scene/basedocument.h"
#include "host/scene/customdataclass.h"
#include "host/scene/opaquenodedata.h"

namespace zvtest {

class SceneDump {
 public:
  using Extra = std::function<void(const zta::BaseList2D&, const zta::BaseDocument&, std::ostream&)>;
  explicit SceneDump(Extra extra = nullptr) : extra_(std::move(extra)) {}

  std::string operator()(const zta::BaseDocument& doc) const {
    std::ostringstream o;
    o << "document " << doc.GetMarker() << " fps " << doc.GetFps() << " time " << Time(doc.GetTime()) << " range "
      << Time(doc.GetMinTime()) << " " << Time(doc.GetMaxTime()) << " unit " << int(zta::GetDocumentUnit(&doc).GetUnit())
      << " " << F(zta::GetDocumentUnit(&doc).GetScale()) << " active " << Where(doc.GetActiveObject()) << "\n";
    Container(o, *doc.GetDataInstance(), doc, 1);
    auto& d = const_cast<zta::BaseDocument&>(doc);
    List(o, d.GetObjectListHead()->GetFirst(), doc, 0);
    for (zta::GeListNode* h = d.GetSceneHookListHead()->GetFirst(); h; h = h->GetNext())
      Node(o, *static_cast<zta::BaseList2D*>(h), doc, 0, "hook");
    return o.str();
  }

  // Where a node is: its id and the names from the top of its tree.
  static std::string Where(const zta::BaseList2D* node) {
    if (!node) return "null";
    std::string path;
    for (const zta::GeListNode* n = node; n; n = n->GetUp())
      path = static_cast<const zta::BaseList2D*>(n)->GetName() + (path.empty() ? "" : "/" + path);
    return std::to_string(node->GetMarker()) + ":" + path;
  }

 private:
  static std::string F(double v) {
    char buf[40];
    std::snprintf(buf, sizeof(buf), "%a", v);
    return buf;
  }
  static std::string V(const zta::Vector& v) { return F(v.x) + "," + F(v.y) + "," + F(v.z); }
  static std::string M(const zta::Matrix& m) { return V(m.off) + ";" + V(m.v1) + ";" + V(m.v2) + ";" + V(m.v3); }
  static std::string Time(const zta::BaseTime& t) {
    return std::to_string(t.GetNumerator()) + "/" + std::to_string(t.GetDenominator());
  }
  static std::string Link(const zta::BaseLink& l, const zta::BaseDocument& doc) {
    if (l.IsEmpty()) return "link(empty)";
    const zta::BaseList2D* n = l.GetLink(&doc);
    return n ? "link(" + Where(n) + ")" : "link(dangling " + std::to_string(l.GetMarker()) + ")";
  }
  static std::string Bytes(const void* p, size_t n) {
    return std::to_string(n) + "#" + std::to_string(std::hash<std::string>()(std::string(static_cast<const char*>(p), n)));
  }

  static void Custom(std::ostream& o, const zta::CustomDataType& c, const zta::BaseDocument& doc) {
    o << "custom " << c.GetCustomTypeId();
    if (const auto* list = dynamic_cast<const zta::FieldList*>(&c)) {
      for (zta::Int32 i = 0; i < list->GetLayerCount(); ++i) {
        const zta::FieldLayer& l = *list->GetLayer(i);
        o << " [" << l.GetLayerType() << " " << l.IsEnabled() << " " << F(l.GetStrength()) << " "
          << int(l.GetBlend()) << " " << M(l.GetMatrix()) << " " << Link(l.GetLinkedObject(), doc);
        if (auto* s = dynamic_cast<const zta::SphericalFieldLayer*>(&l)) o << " " << F(s->GetRadius()) << " " << F(s->GetInner());
        if (auto* s = dynamic_cast<const zta::LinearFieldLayer*>(&l)) o << " " << F(s->GetLength());
        if (auto* s = dynamic_cast<const zta::BoxFieldLayer*>(&l)) o << " " << V(s->GetSize()) << " " << F(s->GetFalloff());
        if (auto* s = dynamic_cast<const zta::NoiseFieldLayer*>(&l)) o << " " << F(s->GetScale()) << " " << s->GetSeed();
        o << "]";
      }
    } else if (const auto* s = dynamic_cast<const zta::SplineData*>(&c)) {
      o << " " << F(s->GetXMin()) << " " << F(s->GetXMax()) << " " << F(s->GetYMin()) << " " << F(s->GetYMax());
      for (zta::Int32 i = 0; i < s->GetKnotCount(); ++i)
        o << " (" << F(s->GetKnot(i)->pos.x) << "," << F(s->GetKnot(i)->pos.y) << "," << int(s->GetKnot(i)->interpolation) << ")";
    } else if (const auto* tree = dynamic_cast<const zta::ItemTree*>(&c)) {
      for (const zta::ItemTreeItem* i = tree->GetFirst(); i; i = tree->GetNextInTree(i)) {
        int depth = 0;
        for (const zta::ItemTreeItem* u = i->GetUp(); u; u = u->GetUp()) ++depth;
        o << " [row " << depth << " " << i->GetFlags() << " " << Link(i->GetLink(), doc) << " ";
        Value(o, i->GetData(), doc, 0);
        o << "]";
      }
    } else if (const auto* list = dynamic_cast<const zta::CheckListData*>(&c)) {
      for (zta::Int32 i = 0; i < list->GetCount(); ++i) o << " [" << list->GetName(i) << " " << list->IsChecked(i) << "]";
    } else if (const auto* opaque = dynamic_cast<const zta::OpaqueCustomData*>(&c)) {
      o << " opaque " << opaque->GetLevel() << " " << Bytes(opaque->GetBytes().data(), opaque->GetBytes().size());
    }
  }

  static void Value(std::ostream& o, const zta::GeData& v, const zta::BaseDocument& doc, int indent) {
    switch (v.GetType()) {
      case zta::DATATYPE::NONE: o << "none"; break;
      case zta::DATATYPE::INT32: o << "int32 " << v.GetInt32(); break;
      case zta::DATATYPE::INT64: o << "int64 " << v.GetInt64(); break;
      case zta::DATATYPE::BOOL: o << "bool " << v.GetBool(); break;
      case zta::DATATYPE::FLOAT: o << "float " << F(v.GetFloat()); break;
      case zta::DATATYPE::VECTOR: o << "vector " << V(v.GetVector()); break;
      case zta::DATATYPE::MATRIX: o << "matrix " << M(v.GetMatrix()); break;
      case zta::DATATYPE::STRING: o << "string '" << v.GetString() << "'"; break;
      case zta::DATATYPE::TIME: o << "time " << Time(v.GetTime()); break;
      case zta::DATATYPE::LINK: o << Link(v.GetBaseLink(), doc); break;
      case zta::DATATYPE::CONTAINER:
        o << "container\n";
        Container(o, *v.GetContainer(), doc, indent + 1);
        return;
      case zta::DATATYPE::CUSTOM: Custom(o, *v.GetCustomData(), doc); break;
    }
    o << "\n";
  }

  static void Container(std::ostream& o, const zta::BaseContainer& bc, const zta::BaseDocument& doc, int indent) {
    o << std::string(size_t(indent) * 2, ' ') << "bc " << bc.GetId() << "\n";
    for (const auto& [id, v] : bc) {
      o << std::string(size_t(indent) * 2 + 2, ' ') << id << ": ";
      Value(o, v, doc, indent + 1);
    }
  }

  void Node(std::ostream& o, const zta::BaseList2D& n, const zta::BaseDocument& doc, int depth, const char* cls) const {
    const std::string pad(size_t(depth) * 2, ' ');
    o << pad << cls << " " << n.GetType() << " " << Where(&n) << " bits " << n.GetAllBits() << "\n";
    Container(o, *n.GetDataInstance(), doc, depth + 1);
    if (const auto* op = dynamic_cast<const zta::BaseObject*>(&n)) {
      o << pad << "  rel " << M(op->GetRelMl()) << " frozen " << M(op->GetFrozenMatrix()) << " info " << op->GetInfo()
        << " modes " << op->GetEditorMode() << op->GetRenderMode() << op->GetDeformMode() << "\n";
      if (const auto* seg = dynamic_cast<const zta::SegmentedPoints*>(op))
        for (zta::Int32 i = 0; seg->HasOwnSegments() && i < seg->GetSegmentCount(); ++i)
          o << pad << "  segment " << seg->GetSegment(i).cnt << " " << seg->GetSegment(i).closed << "\n";
      if (const auto* group = dynamic_cast<const zta::ParticleGroupObject*>(op))
        for (zta::Int32 i = 0; i < group->GetParticleCount(); ++i)
          o << pad << "  particle " << V(group->GetPositions()[size_t(i)]) << " " << F(group->GetRadii()[size_t(i)])
            << " " << V(group->GetVelocities()[size_t(i)]) << "\n";
      for (zta::BaseTag* t = op->GetFirstTag(); t; t = t->GetNext()) Node(o, *t, doc, depth + 1, "tag");
    }
    if (const auto* tag = dynamic_cast<const zta::VariableTag*>(&n))
      o << pad << "  records " << tag->GetDataSize() << " x "
        << Bytes(tag->GetLowlevelDataAddressR(), size_t(tag->GetDataCount()) * size_t(tag->GetDataSize())) << "\n";
    if (const auto* opaque = dynamic_cast<const zta::OpaqueNodeData*>(n.GetNodeData()))
      o << pad << "  opaque " << opaque->GetLevel() << " " << Bytes(opaque->GetBytes().data(), opaque->GetBytes().size())
        << "\n";
    if (extra_) extra_(n, doc, o);
    if (zta::NodeData* data = n.GetNodeData()) {
      zta::BranchInfo branches[4];
      const zta::Int32 count = data->ListBranches(const_cast<zta::BaseList2D*>(&n), branches, 4, 0);
      for (zta::Int32 i = 0; i < count && i < 4; ++i) {
        o << pad << "  branch '" << branches[i].name << "' " << branches[i].id << "\n";
        List(o, branches[i].head ? branches[i].head->GetFirst() : nullptr, doc, depth + 2);
      }
    }
  }

  void List(std::ostream& o, zta::GeListNode* first, const zta::BaseDocument& doc, int depth) const {
    for (zta::GeListNode* n = first; n; n = n->GetNext()) {
      Node(o, *static_cast<zta::BaseList2D*>(n), doc, depth, "object");
      List(o, n->GetDown(), doc, depth + 1);
    }
  }

  Extra extra_;
};

// The first line where two dumps part, with its number; empty when they are equal.
inline std::string FirstDifference(const std::string& a, const std::string& b) {
  std::istringstream x(a), y(b);
  std::string la, lb;
  for (int line = 1;; ++line) {
    const bool ga = bool(std::getline(x, la)), gb = bool(std::getline(y, lb));
    if (!ga && !gb) return {};
    if (!ga || !gb || la != lb)
      return "line " + std::to_string(line) + ":\n  " + (ga ? la : "(end)") + "\n  " + (gb ? lb : "(end)");
  }
}

}  // namespace zvtest
