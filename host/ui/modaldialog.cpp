#include "host/ui/modaldialog.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include "host/ui/dialogs.h"

namespace zta {

namespace {
std::mutex g_mutex;
std::function<bool(GeModalDialog&)> g_callback;
}  // namespace

void SetModalDialogCallback(std::function<bool(GeModalDialog&)> answer) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_callback = std::move(answer);
}

bool GeModalDialog::Open() {
  if (!CreateLayout() || !InitValues()) return false;
  bool ok = false;
  switch (GetDialogPolicy()) {
    case DIALOGPOLICY::ALWAYS_NO: ok = false; break;
    case DIALOGPOLICY::ALWAYS_YES: ok = true; break;
    case DIALOGPOLICY::CALLBACK: {
      std::function<bool(GeModalDialog&)> callback;
      {
        std::lock_guard<std::mutex> lock(g_mutex);
        callback = g_callback;
      }
      ok = callback && callback(*this);
      break;
    }
  }
  return ok && !AskClose();
}

void GeModalDialog::SetFloat(Int32 id, Float value, Float min, Float max) {
  mins_.SetFloat(id, min);
  maxs_.SetFloat(id, max);
  values_.SetFloat(id, std::clamp(value, min, max));
}

void GeModalDialog::SetInt32(Int32 id, Int32 value, Int32 min, Int32 max) {
  mins_.SetInt32(id, min);
  maxs_.SetInt32(id, max);
  values_.SetInt32(id, std::clamp(value, min, max));
}

void GeModalDialog::SetBool(Int32 id, bool value) { values_.SetBool(id, value); }
void GeModalDialog::SetString(Int32 id, const String& value) { values_.SetString(id, value); }

namespace {
template <typename T>
bool Read(const BaseContainer& bc, Int32 id, DATATYPE type, T& out, T (GeData::*get)(T) const) {
  const GeData* d = bc.GetDataPointer(id);
  if (!d || d->GetType() != type) return false;
  out = (d->*get)(T());
  return true;
}
}  // namespace

bool GeModalDialog::GetFloat(Int32 id, Float& value) const { return Read(values_, id, DATATYPE::FLOAT, value, &GeData::GetFloat); }
bool GeModalDialog::GetInt32(Int32 id, Int32& value) const { return Read(values_, id, DATATYPE::INT32, value, &GeData::GetInt32); }
bool GeModalDialog::GetBool(Int32 id, bool& value) const { return Read(values_, id, DATATYPE::BOOL, value, &GeData::GetBool); }

bool GeModalDialog::GetString(Int32 id, String& value) const {
  const GeData* d = values_.GetDataPointer(id);
  if (!d || d->GetType() != DATATYPE::STRING) return false;
  value = d->GetString();
  return true;
}

bool GeModalDialog::Enter(Int32 id, const GeData& value) {
  const GeData* d = values_.GetDataPointer(id);
  if (!d) return false;
  const bool number = value.GetType() == DATATYPE::FLOAT || value.GetType() == DATATYPE::INT32;
  switch (d->GetType()) {
    case DATATYPE::FLOAT:
      if (!number) return false;
      values_.SetFloat(id, std::clamp(value.GetFloat(), mins_.GetFloat(id), maxs_.GetFloat(id)));
      return true;
    case DATATYPE::INT32:
      if (!number) return false;
      values_.SetInt32(id, Int32(std::clamp<Float>(std::round(value.GetFloat()), mins_.GetInt32(id), maxs_.GetInt32(id))));
      return true;
    case DATATYPE::BOOL:
      if (value.GetType() != DATATYPE::BOOL) return false;
      values_.SetBool(id, value.GetBool());
      return true;
    case DATATYPE::STRING:
      if (value.GetType() != DATATYPE::STRING) return false;
      values_.SetString(id, value.GetString());
      return true;
    default:
      return false;
  }
}

}  // namespace zta
