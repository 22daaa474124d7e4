#include "host/scene/gedata.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "host/scene/basecontainer.h"
#include "host/scene/baselist2d.h"

namespace zta {

namespace detail {
ContainerBox::ContainerBox() : p_(std::make_unique<BaseContainer>()) {}
ContainerBox::ContainerBox(const BaseContainer& bc) : p_(std::make_unique<BaseContainer>(bc)) {}
ContainerBox::ContainerBox(const ContainerBox& o) : p_(std::make_unique<BaseContainer>(*o.p_)) {}
ContainerBox::ContainerBox(ContainerBox&&) noexcept = default;
ContainerBox& ContainerBox::operator=(const ContainerBox& o) {
  if (this != &o) p_ = std::make_unique<BaseContainer>(*o.p_);
  return *this;
}
ContainerBox& ContainerBox::operator=(ContainerBox&&) noexcept = default;
ContainerBox::~ContainerBox() = default;
bool ContainerBox::operator==(const ContainerBox& o) const { return *p_ == *o.p_; }
}  // namespace detail

GeData::GeData(const BaseContainer& v) : v_(detail::ContainerBox(v)) {}

GeData::GeData(const GeData& o) : v_(o.v_) { CloneEditedInPlace(); }

GeData& GeData::operator=(const GeData& o) {
  if (this != &o) {
    v_ = o.v_;
    CloneEditedInPlace();
  }
  return *this;
}

void GeData::CloneEditedInPlace() {
  auto* c = std::get_if<std::shared_ptr<const CustomDataType>>(&v_);
  if (c && *c && (*c)->IsEditedInPlace()) *c = std::shared_ptr<const CustomDataType>((*c)->Clone());
}

CustomDataType* GeData::GetCustomDataWritable(Int32 customTypeId) {
  auto* c = std::get_if<std::shared_ptr<const CustomDataType>>(&v_);
  if (!c || !*c || (*c)->GetCustomTypeId() != customTypeId || !(*c)->IsEditedInPlace()) return nullptr;
  // Never shared (see the copies above), so writing does not reach another container.
  return const_cast<CustomDataType*>(c->get());
}

Int32 GeData::GetCustomTypeId() const {
  const auto* c = std::get_if<std::shared_ptr<const CustomDataType>>(&v_);
  return c && *c ? (*c)->GetCustomTypeId() : 0;
}

namespace {
// The numeric value when the held type is a number, else nothing.
template <typename V>
bool AsNumber(const V& v, double& out) {
  if (auto p = std::get_if<Int32>(&v)) { out = *p; return true; }
  if (auto p = std::get_if<Int64>(&v)) { out = double(*p); return true; }
  if (auto p = std::get_if<bool>(&v)) { out = *p ? 1.0 : 0.0; return true; }
  if (auto p = std::get_if<Float>(&v)) { out = *p; return true; }
  return false;
}

// A number read as a whole number of type I: truncated towards zero, held to
// I's range (a float beyond it has no value in I), NaN as 0.
template <typename I, typename N>
I Whole(N n) {
  if constexpr (std::is_floating_point_v<N>) {
    if (std::isnan(n)) return 0;
    if (n <= N(std::numeric_limits<I>::min())) return std::numeric_limits<I>::min();
    if (n >= N(std::numeric_limits<I>::max())) return std::numeric_limits<I>::max();
    return I(n);
  } else {
    return I(std::clamp<N>(n, N(std::numeric_limits<I>::min()), N(std::numeric_limits<I>::max())));
  }
}
}  // namespace

Int32 GeData::GetInt32(Int32 def) const {
  if (auto p = std::get_if<Int32>(&v_)) return *p;
  if (auto p = std::get_if<Int64>(&v_)) return Whole<Int32>(*p);
  if (auto p = std::get_if<bool>(&v_)) return *p ? 1 : 0;
  if (auto p = std::get_if<Float>(&v_)) return Whole<Int32>(*p);
  return def;
}

Int64 GeData::GetInt64(Int64 def) const {
  if (auto p = std::get_if<Int64>(&v_)) return *p;
  if (auto p = std::get_if<Int32>(&v_)) return *p;
  if (auto p = std::get_if<bool>(&v_)) return *p ? 1 : 0;
  if (auto p = std::get_if<Float>(&v_)) return Whole<Int64>(*p);
  return def;
}

bool GeData::GetBool(bool def) const {
  double d;
  return AsNumber(v_, d) ? d != 0.0 : def;
}

Float GeData::GetFloat(Float def) const {
  double d;
  return AsNumber(v_, d) ? d : def;
}

Vector GeData::GetVector(const Vector& def) const {
  auto p = std::get_if<Vector>(&v_);
  return p ? *p : def;
}

Matrix GeData::GetMatrix(const Matrix& def) const {
  auto p = std::get_if<Matrix>(&v_);
  return p ? *p : def;
}

String GeData::GetString(const String& def) const {
  auto p = std::get_if<String>(&v_);
  return p ? *p : def;
}

BaseTime GeData::GetTime(const BaseTime& def) const {
  auto p = std::get_if<BaseTime>(&v_);
  return p ? *p : def;
}

BaseLink GeData::GetBaseLink() const {
  auto p = std::get_if<BaseLink>(&v_);
  return p ? *p : BaseLink();
}

BaseList2D* GeData::GetLink(const BaseDocument* doc, Int32 instanceOf) const {
  auto p = std::get_if<BaseLink>(&v_);
  return p ? p->GetLink(doc, instanceOf) : nullptr;
}

const BaseContainer* GeData::GetContainer() const {
  auto p = std::get_if<detail::ContainerBox>(&v_);
  return p ? &p->Get() : nullptr;
}

BaseContainer* GeData::GetContainerWritable() {
  auto p = std::get_if<detail::ContainerBox>(&v_);
  return p ? &p->Get() : nullptr;
}

const CustomDataType* GeData::GetCustomData(Int32 customTypeId) const {
  return GetCustomDataShared(customTypeId).get();
}

std::shared_ptr<const CustomDataType> GeData::GetCustomDataShared(Int32 customTypeId) const {
  auto p = std::get_if<std::shared_ptr<const CustomDataType>>(&v_);
  if (!p || !*p) return nullptr;
  if (customTypeId != 0 && (*p)->GetCustomTypeId() != customTypeId) return nullptr;
  return *p;
}

bool GeData::operator==(const GeData& o) const {
  if (v_.index() != o.v_.index()) return false;
  if (auto a = std::get_if<std::shared_ptr<const CustomDataType>>(&v_)) {
    const auto& b = std::get<std::shared_ptr<const CustomDataType>>(o.v_);
    if (!*a || !b) return !*a && !b;
    return (*a)->GetCustomTypeId() == b->GetCustomTypeId() && (*a)->IsEqual(*b);
  }
  return v_ == o.v_;
}

}  // namespace zta
