// The seven cells that hold one plain value: a DWORD, an int, a double, a race time, a
// gap, a date and a date-time. They differ only in the value's type, the size of their
// text buffer, when and how the text is made and which conversions give the value, so
// the pattern is one template and each class is a rule struct plus a thin named class.
#pragma once

#include <string>

#include "frame/Types.h"
#include "views/RMCell.h"

// The defaults of a rule: text made at every message, conversions that give 0.
struct CellRuleDefaults {
  static constexpr bool kTextOnlyOnChange = false;
};

template <class Derived, class Rule>
class TRMValueCell : public CRMCell {
 public:
  using Value = typename Rule::Value;

  TRMValueCell() : CRMCell(Rule::kTextSize) {
    if constexpr (Rule::kTextOnlyOnChange) SetText(Rule::Text(ValueField));
  }

  explicit operator DWORD() const override { return Rule::ToDword(ValueField); }
  explicit operator KVTTIME() const override { return Rule::ToTime(ValueField); }
  explicit operator int() const override { return Rule::ToInt(ValueField); }
  explicit operator double() const override { return Rule::ToDouble(ValueField); }

  CRMCell* Clone() const override { return new Derived; }

  void MessageToCell(CTTBuffer& message) override {
    Value value{};
    message >> value >> Option;
    const bool changed = !(value == ValueField);
    ValueField = value;
    if (!Rule::kTextOnlyOnChange || changed) SetText(Rule::Text(ValueField));
  }

  Value GetValue() const { return ValueField; }

 private:
  Value ValueField = Rule::kStart;
};

struct DWordCellRule : CellRuleDefaults {
  using Value = DWORD;
  static constexpr std::size_t kTextSize = 12;
  static constexpr DWORD kStart = 0;
  static std::string Text(DWORD value);
  static DWORD ToDword(DWORD value) { return value; }
  static int ToInt(DWORD value) { return static_cast<int>(value); }
  static KVTTIME ToTime(DWORD) { return 0; }
  static double ToDouble(DWORD) { return 0.0; }
};

struct IntegerCellRule : CellRuleDefaults {
  using Value = int;
  static constexpr std::size_t kTextSize = 12;
  static constexpr int kStart = 0;
  static std::string Text(int value);
  static DWORD ToDword(int value) { return static_cast<DWORD>(value); }
  static int ToInt(int value) { return value; }
  static KVTTIME ToTime(int) { return 0; }
  static double ToDouble(int) { return 0.0; }
};

struct DoubleCellRule : CellRuleDefaults {
  using Value = double;
  static constexpr std::size_t kTextSize = 32;
  static constexpr double kStart = 0.0;
  static std::string Text(double value);
  static DWORD ToDword(double) { return 0; }
  static int ToInt(double) { return 0; }
  static KVTTIME ToTime(double) { return 0; }
  static double ToDouble(double value) { return value; }
};

// A race time: the text is remade only when the value changes.
struct KVTTimeCellRule : CellRuleDefaults {
  using Value = KVTTIME;
  static constexpr bool kTextOnlyOnChange = true;
  static constexpr std::size_t kTextSize = 25;
  static constexpr KVTTIME kStart = KVTTIME_NULL;
  static std::string Text(KVTTIME value);
  static DWORD ToDword(KVTTIME) { return 0; }
  static int ToInt(KVTTIME) { return 0; }
  static KVTTIME ToTime(KVTTIME value) { return value; }
  static double ToDouble(KVTTIME) { return 0.0; }
};

struct KVTDiffCellRule : KVTTimeCellRule {
  static constexpr std::size_t kTextSize = 20;
  static std::string Text(KVTTIME value);
};

// Seconds since 1970, shown in the system's locale.
struct DateCellRule : CellRuleDefaults {
  using Value = DWORD;
  static constexpr std::size_t kTextSize = 128;
  static constexpr DWORD kStart = 0;
  static std::string Text(DWORD value);
  static DWORD ToDword(DWORD value) { return value; }
  static int ToInt(DWORD) { return 0; }
  static KVTTIME ToTime(DWORD) { return 0; }
  static double ToDouble(DWORD) { return 0.0; }
};

struct DateTimeCellRule : DateCellRule {
  static std::string Text(DWORD value);
};

class CRMDWordCell : public TRMValueCell<CRMDWordCell, DWordCellRule> {};
class CRMIntegerCell : public TRMValueCell<CRMIntegerCell, IntegerCellRule> {};
class CRMDoubleCell : public TRMValueCell<CRMDoubleCell, DoubleCellRule> {};
class CRMKVTTimeCell : public TRMValueCell<CRMKVTTimeCell, KVTTimeCellRule> {};
class CRMKVTDiffCell : public TRMValueCell<CRMKVTDiffCell, KVTDiffCellRule> {};
class CRMDateCell : public TRMValueCell<CRMDateCell, DateCellRule> {};
class CRMDateTimeCell : public TRMValueCell<CRMDateTimeCell, DateTimeCellRule> {};
