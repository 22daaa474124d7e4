#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/fields/splinedata.h"
#include "host/scene/basecontainer.h"
#include "host/scene/basedocument.h"

using namespace zta;

TEST(BaseContainer, DefaultsAndTypes) {
  BaseContainer bc;
  // Absent ids give the caller's default.
  EXPECT_EQ(bc.GetInt32(1, 7), 7);
  EXPECT_EQ(bc.GetFloat(1, 2.5), 2.5);
  EXPECT_EQ(bc.GetString(1, "x"), "x");
  EXPECT_TRUE(bc.GetBool(1, true));
  EXPECT_EQ(bc.GetVector(1, Vector(1, 2, 3)), Vector(1, 2, 3));
  EXPECT_EQ(bc.GetData(1).GetType(), DATATYPE::NONE);
  EXPECT_EQ(bc.GetContainerInstance(1), nullptr);

  bc.SetInt32(1, 42);
  bc.SetInt64(2, Int64(1) << 40);
  bc.SetBool(3, true);
  bc.SetFloat(4, 0.75);
  bc.SetVector(5, Vector(1, 2, 3));
  bc.SetMatrix(6, MatrixMove(Vector(4, 5, 6)));
  bc.SetString(7, "hello");
  bc.SetTime(8, BaseTime(3, 30));
  EXPECT_EQ(bc.GetInt32(1), 42);
  EXPECT_EQ(bc.GetInt64(2), Int64(1) << 40);
  EXPECT_TRUE(bc.GetBool(3));
  EXPECT_EQ(bc.GetFloat(4), 0.75);
  EXPECT_EQ(bc.GetVector(5), Vector(1, 2, 3));
  EXPECT_EQ(bc.GetMatrix(6).off, Vector(4, 5, 6));
  EXPECT_EQ(bc.GetString(7), "hello");
  EXPECT_EQ(bc.GetTime(8), BaseTime(1, 10));
  EXPECT_EQ(bc.GetData(7).GetType(), DATATYPE::STRING);

  // Numbers convert among themselves; other mismatches give the default.
  EXPECT_EQ(bc.GetFloat(1), 42.0);
  EXPECT_EQ(bc.GetInt32(3), 1);
  EXPECT_EQ(bc.GetInt32(4, -1), 0);
  EXPECT_TRUE(bc.GetBool(1));
  EXPECT_EQ(bc.GetInt32(7, -1), -1);
  EXPECT_EQ(bc.GetString(1, "none"), "none");
  EXPECT_EQ(bc.GetVector(4, Vector(9)), Vector(9));

  // A number read as a whole number is truncated and held to the type's range; NaN reads as 0.
  BaseContainer wide;
  wide.SetFloat(1, -1.79e308);
  wide.SetFloat(2, 3e9);
  wide.SetFloat(3, std::nan(""));
  wide.SetFloat(4, -2.75);
  wide.SetInt64(5, Int64(1) << 40);
  EXPECT_EQ(wide.GetInt32(1), std::numeric_limits<Int32>::min());
  EXPECT_EQ(wide.GetInt64(1), std::numeric_limits<Int64>::min());
  EXPECT_EQ(wide.GetInt32(2), std::numeric_limits<Int32>::max());
  EXPECT_EQ(wide.GetInt64(2), Int64(3000000000));
  EXPECT_EQ(wide.GetInt32(3, 7), 0);
  EXPECT_EQ(wide.GetInt32(4), -2);
  EXPECT_EQ(wide.GetInt32(5), std::numeric_limits<Int32>::max());

  // Replacing keeps the position; ids stay in insertion order.
  bc.SetString(1, "now a string");
  EXPECT_EQ(bc.GetIndexId(0), 1);
  EXPECT_EQ(bc.GetString(1), "now a string");
  EXPECT_EQ(bc.GetCount(), 8);
  EXPECT_TRUE(bc.RemoveData(4));
  EXPECT_FALSE(bc.RemoveData(4));
  EXPECT_EQ(bc.GetFloat(4, -2.0), -2.0);
  EXPECT_EQ(bc.GetIndexId(3), 5);
  EXPECT_EQ(bc.GetIndexId(99), -1);
}

TEST(BaseContainer, NestedContainersCopyAndCustomData) {
  BaseContainer inner(5);
  inner.SetInt32(1, 10);
  BaseContainer bc;
  bc.SetContainer(100, inner);
  inner.SetInt32(1, 11);  // the stored copy is independent
  ASSERT_NE(bc.GetContainerInstance(100), nullptr);
  EXPECT_EQ(bc.GetContainerInstance(100)->GetInt32(1), 10);
  EXPECT_EQ(bc.GetContainerInstance(100)->GetId(), 5);

  // Edits in place reach the stored container.
  bc.GetContainerInstance(100)->SetInt32(2, 20);
  EXPECT_EQ(bc.GetContainer(100).GetInt32(2), 20);

  // Copies are deep.
  BaseContainer copy;
  bc.CopyTo(&copy);
  EXPECT_EQ(copy, bc);
  copy.GetContainerInstance(100)->SetInt32(2, 21);
  EXPECT_EQ(bc.GetContainer(100).GetInt32(2), 20);
  EXPECT_NE(copy, bc);

  // Custom data demands its type id.
  auto curve = SplineData::MakeLinear();
  bc.SetCustomData(200, curve);
  EXPECT_EQ(bc.GetData(200).GetCustomTypeId(), CUSTOMDATATYPE_SPLINE);
  EXPECT_NE(bc.GetCustomData(200, CUSTOMDATATYPE_SPLINE), nullptr);
  EXPECT_EQ(bc.GetCustomData(200, CUSTOMDATATYPE_FIELDLIST), nullptr);
  EXPECT_EQ(bc.GetCustomDataTyped<SplineData>(200)->GetKnotCount(), 2);
  // Custom values compare by content.
  BaseContainer other;
  other.SetCustomData(200, SplineData::MakeLinear());
  EXPECT_EQ(other.GetData(200), bc.GetData(200));
  auto changed = std::make_shared<SplineData>(*curve);
  changed->InsertKnot(0.5, 0.1);
  other.SetCustomData(200, changed);
  EXPECT_NE(other.GetData(200), bc.GetData(200));

  // Merge adds and replaces, the change counter moves with every edit.
  const UInt32 before = bc.GetDirty();
  BaseContainer extra;
  extra.SetInt32(1, 1);
  bc.MergeContainer(extra);
  EXPECT_EQ(bc.GetInt32(1), 1);
  EXPECT_GT(bc.GetDirty(), before);
  bc.FlushAll();
  EXPECT_EQ(bc.GetCount(), 0);
}

TEST(BaseContainer, LinksResolveInTheirDocument) {
  auto doc = BaseDocument::Alloc();
  auto other = BaseDocument::Alloc();
  BaseObject* a = BaseObject::Alloc(HOST_TYPE_NULL).release();
  doc->InsertObject(a);
  BaseContainer bc;
  bc.SetLink(1, a);
  bc.SetLink(2, nullptr);
  EXPECT_EQ(bc.GetLink(1, doc.get()), a);
  EXPECT_EQ(bc.GetLink(1, nullptr), a);
  EXPECT_EQ(bc.GetLink(1, other.get()), nullptr);
  EXPECT_EQ(bc.GetLink(1, doc.get(), HOST_TYPE_OBJECT), a);
  EXPECT_EQ(bc.GetLink(1, doc.get(), HOST_TYPE_POLYGON), nullptr);
  EXPECT_EQ(bc.GetLink(2, doc.get()), nullptr);
  EXPECT_TRUE(bc.GetData(2).GetBaseLink().IsEmpty());

  // A copied container links the same node; once the node is freed both give null.
  BaseContainer copy = bc;
  EXPECT_EQ(copy.GetLink(1, doc.get()), a);
  GeListNode::Free(a);
  EXPECT_EQ(bc.GetLink(1, doc.get()), nullptr);
  EXPECT_EQ(copy.GetLink(1, nullptr), nullptr);
}
