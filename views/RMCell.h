// The typed cells of a view row. Each cell keeps the value as it came from the data
// manager and, made once when its message arrives, the text to show; readers only read
// that text. The nine classes, one per column type, read their own wire form.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "frame/TTBuffer.h"
#include "frame/Types.h"

class CRMData;

// Column types as the structure block gives them; each makes one cell class.
inline constexpr BYTE kColumnDWord = 0;
inline constexpr BYTE kColumnInteger = 1;
inline constexpr BYTE kColumnDouble = 2;
inline constexpr BYTE kColumnString = 3;
inline constexpr BYTE kColumnKVTTime = 4;
inline constexpr BYTE kColumnKVTDiff = 5;
inline constexpr BYTE kColumnDate = 6;
inline constexpr BYTE kColumnDateTime = 7;
inline constexpr BYTE kColumnTransponder = 8;

class CRMCell {
 public:
  CRMCell(const CRMCell&) = delete;
  CRMCell& operator=(const CRMCell&) = delete;
  virtual ~CRMCell() = default;

  // The conversions: each class overrides those its value has; the rest give 0.
  virtual explicit operator DWORD() const { return 0; }
  virtual explicit operator KVTTIME() const { return 0; }
  virtual explicit operator int() const { return 0; }
  virtual explicit operator double() const { return 0.0; }
  // The ready-made text; never null.
  virtual explicit operator const char*() const { return Text.get(); }
  virtual const std::vector<DWORD>* GetTransponders() const { return nullptr; }

  // A new empty cell of the same class (option 0; no value copied).
  virtual CRMCell* Clone() const = 0;
  // Reads the cell's wire form, which always ends with the option byte, and makes the text.
  virtual void MessageToCell(CTTBuffer& message) = 0;

  const char* GetText() const { return Text.get(); }
  // Size of the text buffer, terminating zero included.
  std::size_t GetTextBufferSize() const { return TextSize; }

  BYTE Option = 0;

 protected:
  explicit CRMCell(std::size_t textSize);
  // Copies text into the buffer, cut to what the buffer holds.
  void SetText(const std::string& text);
  // Frees the buffer and gives the cell an empty one of `size` bytes.
  void ReplaceTextBuffer(std::size_t size);

 private:
  std::unique_ptr<char[]> Text;
  std::size_t TextSize = 0;
};

// An empty cell for a column type; null for a type above 8, which no class stands for.
// The data link is handed to transponder cells for their names.
CRMCell* NewCellOfType(BYTE columnType, CRMData* data);
