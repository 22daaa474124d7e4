// The check list and unit scale custom data.
#include <gtest/gtest.h>

#include "host/scene/basedocument.h"
#include "host/scene/checklist.h"
#include "host/scene/unitscale.h"

using namespace zta;

TEST(CheckList, EntriesKeepTheirChecksByName) {
  CheckListData list;
  list.SetEntries({"density", "temperature", "velocity"});
  EXPECT_EQ(list.GetCount(), 3);
  EXPECT_TRUE(list.IsChecked(1));  // new entries come checked
  EXPECT_TRUE(list.SetChecked(1, false));
  EXPECT_FALSE(list.SetChecked(3, true));
  EXPECT_FALSE(list.IsChecked(-1));
  EXPECT_EQ(list.GetName(3), "");
  // Refilled from another file: names that stay keep their checks.
  list.SetEntries({"temperature", "flames"});
  EXPECT_EQ(list.GetName(0), "temperature");
  EXPECT_FALSE(list.IsChecked(0));
  EXPECT_TRUE(list.IsChecked(1));

  // Stored in a container it is shared; a writer stores an edited clone.
  BaseContainer bc;
  bc.SetCustomData(6008, std::make_shared<CheckListData>(list));
  auto stored = bc.GetCustomDataTyped<CheckListData>(6008);
  ASSERT_TRUE(stored);
  BaseContainer copy = bc;
  EXPECT_EQ(copy.GetCustomDataTyped<CheckListData>(6008).get(), stored.get());
  auto edited = std::static_pointer_cast<CheckListData>(std::shared_ptr<CustomDataType>(stored->Clone()));
  edited->SetChecked(0, true);
  const UInt32 dirty = bc.GetDirty();
  bc.SetCustomData(6008, edited);
  EXPECT_GT(bc.GetDirty(), dirty);
  EXPECT_FALSE(stored->IsChecked(0));
  EXPECT_TRUE(bc.GetCustomDataTyped<CheckListData>(6008)->IsChecked(0));
  bc.SetCustomData(6008, std::make_shared<CheckListData>(*edited));  // equal: no change
  EXPECT_EQ(bc.GetDirty(), dirty + 1);
  EXPECT_EQ(bc.GetCustomData(6008, CUSTOMDATATYPE_UNITSCALE), nullptr);
}

TEST(UnitScale, ConversionBetweenUnitsAndTheDocumentsUnit) {
  const UnitScaleData cm;  // the default: 1 cm
  const UnitScaleData m(1.0, DOCUMENTUNIT::M), tenMm(10.0, DOCUMENTUNIT::MM), inch(1.0, DOCUMENTUNIT::INCH);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(m, cm), 100.0);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(cm, m), 0.01);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(tenMm, cm), 1.0);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(inch, cm), 2.54);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(UnitScaleData(1.0, DOCUMENTUNIT::MILE), UnitScaleData(1.0, DOCUMENTUNIT::YARD)), 1760.0);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(UnitScaleData(1.0, DOCUMENTUNIT::FOOT), inch), 12.0);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(UnitScaleData(3.0, DOCUMENTUNIT::KM), UnitScaleData(1.0, DOCUMENTUNIT::UM)), 3e9);
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(UnitScaleData(1.0, DOCUMENTUNIT::NM), UnitScaleData(1.0, DOCUMENTUNIT::UM)), 0.001);
  // Not a length: a clear error.
  auto bad = CalculateTranslationScale(UnitScaleData(0.0, DOCUMENTUNIT::M), cm);
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.GetError().GetMessage(), "unit scale 0 of unit 2 is not a length");
  EXPECT_FALSE(CalculateTranslationScale(cm, UnitScaleData(1.0, DOCUMENTUNIT(42))));
  EXPECT_TRUE(UnitScaleData(2.0, DOCUMENTUNIT::M).IsEqual(UnitScaleData(2.0, DOCUMENTUNIT::M)));
  EXPECT_FALSE(UnitScaleData(2.0, DOCUMENTUNIT::M).IsEqual(cm));

  // The document keeps its unit as a parameter; a copy of it keeps it too.
  auto doc = BaseDocument::Alloc();
  EXPECT_TRUE(GetDocumentUnit(doc.get()).IsEqual(cm));
  SetDocumentUnit(doc.get(), m);
  EXPECT_EQ(GetDocumentUnit(doc.get()).GetUnit(), DOCUMENTUNIT::M);
  auto copy = doc->GetClone();
  EXPECT_TRUE(GetDocumentUnit(static_cast<BaseDocument*>(copy.get())).IsEqual(m));
  EXPECT_DOUBLE_EQ(*CalculateTranslationScale(UnitScaleData(1.0, DOCUMENTUNIT::CM), GetDocumentUnit(doc.get())), 0.01);
  EXPECT_TRUE(GetDocumentUnit(nullptr).IsEqual(cm));
}
