#pragma once
// Unit scale (custom data 200000275): a length unit such as "1 cm" or
// "10 m", and the conversion between two of them. The document's unit stands
// in its container under DOCUMENT_DOCUNIT.
#include "host/core/result.h"
#include "host/scene/customdata.h"

namespace zta {

class BaseDocument;

enum class DOCUMENTUNIT : Int32 { KM = 1, M = 2, CM = 3, MM = 4, UM = 5, NM = 6, MILE = 7, YARD = 8, FOOT = 9, INCH = 10 };

enum : Int32 {
  CUSTOMDATATYPE_UNITSCALE = 200000275,
  DOCUMENT_DOCUNIT = 2117,
};

class UnitScaleData : public CustomDataType {
 public:
  static constexpr Int32 kCustomTypeId = CUSTOMDATATYPE_UNITSCALE;
  UnitScaleData() = default;
  UnitScaleData(Float scale, DOCUMENTUNIT unit) : scale_(scale), unit_(unit) {}

  Float GetScale() const { return scale_; }
  DOCUMENTUNIT GetUnit() const { return unit_; }
  // A positive, finite scale of a known unit.
  bool IsValid() const;
  // The length of one of these units in metres.
  Float GetMeters() const;

  Int32 GetCustomTypeId() const override { return kCustomTypeId; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<UnitScaleData>(*this); }
  bool IsEqual(const CustomDataType& other) const override;

 private:
  Float scale_ = 1.0;
  DOCUMENTUNIT unit_ = DOCUMENTUNIT::CM;
};

// The factor that turns a length in `from` units into `to` units.
Result<Float> CalculateTranslationScale(const UnitScaleData& from, const UnitScaleData& to);

// The document's unit; 1 cm when it has none.
UnitScaleData GetDocumentUnit(const BaseDocument* doc);
void SetDocumentUnit(BaseDocument* doc, const UnitScaleData& unit);

}  // namespace zta
