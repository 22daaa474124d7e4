#pragma once
// GeModalDialog: a dialog that holds its caller until it closes. It has
// gadgets (numbers, switches, texts, each with an id) that InitValues fills
// and the caller reads after OK. No person is asked: the dialog policy
// answers, ALWAYS_YES with OK on the values as set, ALWAYS_NO with Cancel,
// CALLBACK through a function that plays the person.
#include <functional>
#include <limits>

#include "host/scene/basecontainer.h"

namespace zta {

class GeModalDialog {
 public:
  virtual ~GeModalDialog() = default;
  // True when closed with OK; false on Cancel or when the layout or the
  // values could not be made.
  bool Open();

  void SetFloat(Int32 id, Float value, Float min = -std::numeric_limits<Float>::max(),
                Float max = std::numeric_limits<Float>::max());
  void SetInt32(Int32 id, Int32 value, Int32 min = std::numeric_limits<Int32>::min(),
                Int32 max = std::numeric_limits<Int32>::max());
  void SetBool(Int32 id, bool value);
  void SetString(Int32 id, const String& value);
  // False for a gadget never set or of another kind.
  bool GetFloat(Int32 id, Float& value) const;
  bool GetInt32(Int32 id, Int32& value) const;
  bool GetBool(Int32 id, bool& value) const;
  bool GetString(Int32 id, String& value) const;
  // What a person types into a gadget: numbers are kept within its limits.
  // False for an unknown gadget or a value of another kind.
  bool Enter(Int32 id, const GeData& value);

 protected:
  virtual bool CreateLayout() { return true; }
  virtual bool InitValues() { return true; }
  // OK was pressed: true keeps the dialog open, as for values it refuses.
  // With no person to correct them, that ends as Cancel.
  virtual bool AskClose() { return false; }

 private:
  BaseContainer values_;
  BaseContainer mins_;
  BaseContainer maxs_;
};

// With DIALOGPOLICY::CALLBACK: the function may Enter values and answers OK
// (true) or Cancel. Without one, Cancel.
void SetModalDialogCallback(std::function<bool(GeModalDialog& dialog)> answer);

}  // namespace zta
