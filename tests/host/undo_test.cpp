// Undo and redo put the document back exactly, compared by a dump of it.
#include <gtest/gtest.h>

#include <sstream>

#include "host/objects/polygonobject.h"
#include "host/scene/nodewalk.h"
#include "host/scene/parameters.h"

using namespace zta;

namespace {

// Every node in walk order with its place, name, marker, parameters, matrix
// and bits: what undo must restore.
String Dump(BaseDocument* doc) {
  std::ostringstream out;
  ForEachNode(doc, [&](BaseList2D* n) {
    int depth = 0;
    for (GeListNode* u = n->GetUp(); u; u = u->GetUp()) ++depth;
    out << String(size_t(depth) * 2, ' ') << n->GetType() << " " << n->GetName() << " #" << n->GetMarker();
    for (const auto& [id, v] : *n->GetDataInstance()) out << " " << id << "=" << (v.GetType() == DATATYPE::FLOAT ? std::to_string(v.GetFloat()) : v.GetString());
    if (auto* op = dynamic_cast<BaseObject*>(n)) {
      const Matrix m = op->GetMl();
      out << " at " << m.off.x << "," << m.off.y << "," << m.off.z << " x" << m.v1.x;
      if (auto* p = dynamic_cast<PolygonObject*>(op)) out << " points " << p->GetPointCount();
    }
    out << " bits " << n->GetBit(BIT_ACTIVE) << n->GetNBit(63) << "\n";
    return false;
  });
  return out.str();
}

BaseObject* Null(BaseDocument* doc, const char* name, BaseObject* parent = nullptr) {
  BaseObject* op = BaseObject::Alloc(HOST_TYPE_NULL).release();
  op->SetName(name);
  doc->InsertObject(op, parent, parent ? static_cast<BaseObject*>(parent->GetDownLast()) : nullptr);
  return op;
}

}  // namespace

TEST(Undo, EachKindUndoesAndRedoesExactly) {
  auto doc = BaseDocument::Alloc();
  BaseObject* a = Null(doc.get(), "a");
  BaseObject* b = Null(doc.get(), "b");
  Null(doc.get(), "a1", a);
  BaseObject* a2 = Null(doc.get(), "a2", a);
  a2->ChangeNBit(63, NBITCONTROL::SET);
  auto poly = PolygonObject::Alloc(3, 1);
  poly->SetName("p");
  BaseObject* p = poly.release();
  doc->InsertObject(p, b);
  p->MakeTag(HOST_TAG_PHONG);
  b->SetMl(MatrixMove(Vector(10, 0, 0)));
  BaseObject* top = Null(doc.get(), "top");

  std::vector<String> states{Dump(doc.get())};
  // 44: a new object.
  doc->StartUndo();
  BaseObject* fresh = Null(doc.get(), "fresh", a);
  doc->AddUndo(UNDOTYPE::NEWOBJ, fresh);
  doc->EndUndo();
  states.push_back(Dump(doc.get()));
  // 45: a deletion of a hierarchy.
  doc->StartUndo();
  doc->AddUndo(UNDOTYPE::DELETEOBJ, a);
  GeListNode::Free(a);
  doc->EndUndo();
  states.push_back(Dump(doc.get()));
  // 49: a move in the hierarchy that keeps the place in the world.
  doc->StartUndo();
  doc->AddUndo(UNDOTYPE::HIERARCHY_PSR, p);
  const Matrix mg = p->GetMg();
  auto taken = p->Remove();
  static_cast<BaseObject*>(taken.release())->InsertUnder(top);
  p->SetMg(mg);
  doc->EndUndo();
  EXPECT_EQ(p->GetUp(), top);
  states.push_back(Dump(doc.get()));
  // 42: a parameter change through the parameter path; 40: a change of the
  // node with its tags (here its name and matrix).
  doc->StartUndo();
  doc->AddUndo(UNDOTYPE::CHANGE_SMALL, p);
  ASSERT_TRUE(SetParameter(p, ID_BASEOBJECT_COLOR, GeData(Vector(1, 0, 0))));
  doc->AddUndo(UNDOTYPE::CHANGE, b);
  b->SetName("b2");
  b->SetMl(MatrixScale(Vector(2)));
  doc->EndUndo();
  states.push_back(Dump(doc.get()));
  EXPECT_EQ(doc->GetUndoCount(), 4);

  for (size_t i = states.size() - 1; i > 0; --i) {
    ASSERT_TRUE(doc->DoUndo());
    EXPECT_EQ(Dump(doc.get()), states[i - 1]) << "undo to state " << i - 1;
  }
  EXPECT_FALSE(doc->DoUndo());
  EXPECT_EQ(doc->GetRedoCount(), 4);
  for (size_t i = 1; i < states.size(); ++i) {
    ASSERT_TRUE(doc->DoRedo());
    EXPECT_EQ(Dump(doc.get()), states[i]) << "redo to state " << i;
  }
  EXPECT_FALSE(doc->DoRedo());

  // Undone once more, then a new change: what was undone cannot come back.
  ASSERT_TRUE(doc->DoUndo());
  doc->StartUndo();
  BaseObject* other = Null(doc.get(), "other");
  doc->AddUndo(UNDOTYPE::NEWOBJ, other);
  doc->EndUndo();
  EXPECT_EQ(doc->GetRedoCount(), 0);
  // Steps nest; outside a step nothing is recorded; an empty step is no step.
  EXPECT_FALSE(doc->AddUndo(UNDOTYPE::CHANGE, other));
  doc->StartUndo();
  doc->StartUndo();
  EXPECT_FALSE(doc->DoUndo());
  doc->EndUndo();
  doc->EndUndo();
  EXPECT_FALSE(doc->EndUndo());
  EXPECT_EQ(doc->GetUndoCount(), 4);
  doc->StartUndo();
  EXPECT_FALSE(doc->AddUndo(UNDOTYPE::CHANGE, doc.get()));
  auto loose = BaseObject::Alloc(HOST_TYPE_NULL);
  EXPECT_FALSE(doc->AddUndo(UNDOTYPE::CHANGE, loose.get()));
  // Undo put back the node's recorded copy: `p` went with the dropped redo step.
  EXPECT_FALSE(doc->AddUndo(UNDOTYPE::HIERARCHY_PSR, doc->SearchObject("p")->GetFirstTag()));
  doc->EndUndo();
}

TEST(Undo, TagsAndTheirPlaces) {
  auto doc = BaseDocument::Alloc();
  auto poly = PolygonObject::Alloc(0, 0);
  PolygonObject* p = poly.release();
  doc->InsertObject(p);
  BaseTag* phong = p->MakeTag(HOST_TAG_PHONG);
  const String before = Dump(doc.get());
  doc->StartUndo();
  doc->AddUndo(UNDOTYPE::DELETEOBJ, phong);
  GeListNode::Free(phong);
  doc->EndUndo();
  ASSERT_TRUE(doc->DoUndo());
  EXPECT_EQ(Dump(doc.get()), before);
  ASSERT_NE(p->GetTag(HOST_TAG_PHONG), nullptr);
  // The tag comes back after the same tag as before.
  EXPECT_EQ(p->GetTag(HOST_TAG_PHONG)->GetPrev()->GetType(), HOST_TAG_POLYGON);
  ASSERT_TRUE(doc->DoRedo());
  EXPECT_EQ(p->GetTag(HOST_TAG_PHONG), nullptr);
}
