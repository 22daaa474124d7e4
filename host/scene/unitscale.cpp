#include "host/scene/unitscale.h"

#include <cmath>

#include "host/core/format.h"
#include "host/scene/basedocument.h"

namespace zta {

namespace {
Float MetersOf(DOCUMENTUNIT unit) {
  switch (unit) {
    case DOCUMENTUNIT::KM: return 1000.0;
    case DOCUMENTUNIT::M: return 1.0;
    case DOCUMENTUNIT::CM: return 0.01;
    case DOCUMENTUNIT::MM: return 0.001;
    case DOCUMENTUNIT::UM: return 1e-6;
    case DOCUMENTUNIT::NM: return 1e-9;
    case DOCUMENTUNIT::MILE: return 1609.344;
    case DOCUMENTUNIT::YARD: return 0.9144;
    case DOCUMENTUNIT::FOOT: return 0.3048;
    case DOCUMENTUNIT::INCH: return 0.0254;
  }
  return 0.0;
}
}  // namespace

bool UnitScaleData::IsValid() const { return MetersOf(unit_) > 0.0 && scale_ > 0.0 && std::isfinite(scale_); }

Float UnitScaleData::GetMeters() const { return scale_ * MetersOf(unit_); }

bool UnitScaleData::IsEqual(const CustomDataType& other) const {
  const auto* o = dynamic_cast<const UnitScaleData*>(&other);
  return o && o->scale_ == scale_ && o->unit_ == unit_;
}

Result<Float> CalculateTranslationScale(const UnitScaleData& from, const UnitScaleData& to) {
  for (const UnitScaleData* u : {&from, &to})
    if (!u->IsValid())
      return IllegalArgumentError(FormatString("unit scale @ of unit @ is not a length", u->GetScale(), Int32(u->GetUnit())));
  return from.GetMeters() / to.GetMeters();
}

UnitScaleData GetDocumentUnit(const BaseDocument* doc) {
  auto unit = doc ? doc->GetDataInstance()->GetCustomDataTyped<UnitScaleData>(DOCUMENT_DOCUNIT) : nullptr;
  return unit ? *unit : UnitScaleData();
}

void SetDocumentUnit(BaseDocument* doc, const UnitScaleData& unit) {
  if (doc) doc->GetDataInstance()->SetCustomData(DOCUMENT_DOCUNIT, std::make_shared<UnitScaleData>(unit));
}

}  // namespace zta
