// The byte buffer through which every message payload is written and read.
// Little-endian, no alignment, no tags; a string is a DWORD length and its bytes.
#pragma once

#include <cstddef>
#include <string>

#include "frame/Types.h"

class CTTBuffer {
 public:
  explicit CTTBuffer(DWORD size);
  CTTBuffer(const CTTBuffer& other);
  CTTBuffer& operator=(const CTTBuffer& other);
  virtual ~CTTBuffer();

  BYTE* GetData();
  const BYTE* GetData() const { return Data; }
  void Reset();
  // Moves the cursor; returns the old offset. Reads beyond the written bytes throw later.
  DWORD SetPosition(DWORD offset);
  DWORD GetPosition() const { return static_cast<DWORD>(Position - Data); }
  // Makes room for n more bytes at the cursor, growing as the growth rule says.
  void SetNewSize(DWORD n);

  // Replaces the contents with a copy of received bytes and rewinds the cursor.
  void Assign(const void* bytes, std::size_t count);
  // Appends raw bytes at the cursor.
  void WriteBytes(const void* bytes, std::size_t count);
  // Reads raw bytes at the cursor, bounds-checked.
  void ReadBytes(void* target, std::size_t count);

  DWORD GetCapacity() const { return Capacity; }
  DWORD GetGrowBy() const { return GrowBy; }
  // Bytes written as counted by the growth rule (not always the high-water mark).
  DWORD GetSize() const { return Size; }
  // The true high-water mark of written bytes: what readers may read.
  DWORD GetFilled() const { return Filled; }
  // Bytes left between the cursor and the high-water mark.
  DWORD GetRemaining() const;
  int GetAutoGrow() const { return AutoGrow; }
  void SetAutoGrow(int autoGrow) { AutoGrow = autoGrow; }

  CTTBuffer& operator<<(BYTE value);
  CTTBuffer& operator<<(WORD value);
  CTTBuffer& operator<<(DWORD value);
  CTTBuffer& operator<<(KVTTIME value);
  CTTBuffer& operator<<(int value);
  CTTBuffer& operator<<(double value);
  CTTBuffer& operator<<(const std::string& value);
  CTTBuffer& operator<<(const char* value) { return *this << std::string(value); }

  CTTBuffer& operator>>(BYTE& value);
  CTTBuffer& operator>>(WORD& value);
  CTTBuffer& operator>>(DWORD& value);
  CTTBuffer& operator>>(KVTTIME& value);
  CTTBuffer& operator>>(int& value);
  CTTBuffer& operator>>(double& value);
  CTTBuffer& operator>>(std::string& value);

 private:
  template <class T>
  CTTBuffer& WriteScalar(const char* name, T value);
  template <class T>
  CTTBuffer& ReadScalar(const char* name, T& value);
  void Put(const void* bytes, std::size_t count);
  void Take(void* target, std::size_t count);

  BYTE* Data = nullptr;
  BYTE* Position = nullptr;
  DWORD Capacity = 0;
  DWORD GrowBy = 0;
  DWORD Size = 0;
  int AutoGrow = 1;
  DWORD Filled = 0;
};
