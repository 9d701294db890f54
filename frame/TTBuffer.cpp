#include "frame/TTBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/KVTException.h"

namespace {

BYTE* Allocate(DWORD size) {
  // malloc(0) may return null; keep a real block so that Data is never empty.
  auto* block = static_cast<BYTE*>(std::malloc(size == 0 ? 1 : size));
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

CTTBuffer::CTTBuffer(DWORD size) : Data(Allocate(size)), Capacity(size), GrowBy(size) {
  std::memset(Data, 0, size);
  Reset();
}

CTTBuffer::CTTBuffer(const CTTBuffer& other)
    : Data(Allocate(other.Capacity)),
      Capacity(other.Capacity),
      GrowBy(other.GrowBy),
      Size(other.Size),
      AutoGrow(other.AutoGrow),
      Filled(other.Filled) {
  std::memcpy(Data, other.Data, Capacity);
  Position = Data + (other.Position - other.Data);
}

CTTBuffer& CTTBuffer::operator=(const CTTBuffer& other) {
  if (this == &other) return *this;
  BYTE* block = Allocate(other.Capacity);
  std::memcpy(block, other.Data, other.Capacity);
  std::free(Data);
  Data = block;
  Position = Data + (other.Position - other.Data);
  Capacity = other.Capacity;
  GrowBy = other.GrowBy;
  Size = other.Size;
  AutoGrow = other.AutoGrow;
  Filled = other.Filled;
  return *this;
}

CTTBuffer::~CTTBuffer() { std::free(Data); }

BYTE* CTTBuffer::GetData() {
  return Guarded("CTTBuffer::GetData()", [&] { return Data; });
}

void CTTBuffer::Reset() {
  Guarded("CTTBuffer::Reset()", [&] { SetPosition(0); });
}

DWORD CTTBuffer::SetPosition(DWORD offset) {
  return Guarded("CTTBuffer::SetPosition()", [&] {
    const DWORD old = GetPosition();
    if (offset > Capacity) ThrowKVT("CTTBuffer: position beyond the block");
    Position = Data + offset;
    return old;
  });
}

DWORD CTTBuffer::GetRemaining() const {
  const DWORD at = GetPosition();
  return at < Filled ? Filled - at : 0;
}

void CTTBuffer::SetNewSize(DWORD n) {
  Guarded("CTTBuffer::SetNewSize()", [&] {
    const std::size_t used = static_cast<std::size_t>(Position - Data);
    const std::size_t need = used + n;
    if (Capacity < need) {
      // Doubling stops short of the DWORD range, where the step would wrap to 0.
      GrowBy = GrowBy < 32768 ? 32768 : (GrowBy <= 0x7FFFFFFFu ? GrowBy * 2 : GrowBy);
      const std::size_t grown = (need / GrowBy + 1) * static_cast<std::size_t>(GrowBy);
      if (grown > 0xFFFFFFFFu) throw std::bad_alloc();
      BYTE* block = Allocate(static_cast<DWORD>(grown));
      std::memcpy(block, Data, Capacity);
      std::memset(block + Capacity, 0, grown - Capacity);
      std::free(Data);
      Data = block;
      Position = Data + used;
      Capacity = static_cast<DWORD>(grown);
    }
    // The rule adds n, not the new high-water mark: Size is this count and nothing more.
    if (Size < need) Size += n;
  });
}

void CTTBuffer::Put(const void* bytes, std::size_t count) {
  // Without AutoGrow the caller promised room; a block overrun is refused all the same.
  if (static_cast<std::size_t>(Position - Data) + count > Capacity) {
    ThrowKVT("CTTBuffer: write beyond the block");
  }
  std::memcpy(Position, bytes, count);
  Position += count;
  Filled = std::max<DWORD>(Filled, GetPosition());
}

void CTTBuffer::Take(void* target, std::size_t count) {
  if (static_cast<std::size_t>(GetPosition()) + count > Filled) {
    ThrowKVT("CTTBuffer: read past the end of the message");
  }
  std::memcpy(target, Position, count);
  Position += count;
}

void CTTBuffer::Assign(const void* bytes, std::size_t count) {
  Reset();
  Filled = 0;
  if (count > Capacity) SetNewSize(static_cast<DWORD>(count));
  if (count > 0) Put(bytes, count);
  Size = std::max<DWORD>(Size, static_cast<DWORD>(count));
  Reset();
}

void CTTBuffer::WriteBytes(const void* bytes, std::size_t count) {
  if (AutoGrow != 0) SetNewSize(static_cast<DWORD>(count));
  if (count > 0) Put(bytes, count);
}

void CTTBuffer::ReadBytes(void* target, std::size_t count) {
  if (count > 0) Take(target, count);
}

template <class T>
CTTBuffer& CTTBuffer::WriteScalar(const char* name, T value) {
  return Guarded(name, [&]() -> CTTBuffer& {
    if (AutoGrow != 0) SetNewSize(sizeof(T));
    Put(&value, sizeof(T));
    return *this;
  });
}

template <class T>
CTTBuffer& CTTBuffer::ReadScalar(const char* name, T& value) {
  return Guarded(name, [&]() -> CTTBuffer& {
    Take(&value, sizeof(T));
    return *this;
  });
}

CTTBuffer& CTTBuffer::operator<<(BYTE value) { return WriteScalar("CTTBuffer::operator<<(BYTE)", value); }
CTTBuffer& CTTBuffer::operator<<(WORD value) { return WriteScalar("CTTBuffer::operator<<(WORD)", value); }
CTTBuffer& CTTBuffer::operator<<(DWORD value) { return WriteScalar("CTTBuffer::operator<<(DWORD)", value); }
CTTBuffer& CTTBuffer::operator<<(KVTTIME value) { return WriteScalar("CTTBuffer::operator<<(KVTTIME)", value); }
CTTBuffer& CTTBuffer::operator<<(int value) { return WriteScalar("CTTBuffer::operator<<(int)", value); }
CTTBuffer& CTTBuffer::operator<<(double value) { return WriteScalar("CTTBuffer::operator<<(double)", value); }

CTTBuffer& CTTBuffer::operator<<(const std::string& value) {
  return Guarded("CTTBuffer::operator<<(string)", [&]() -> CTTBuffer& {
    const auto length = static_cast<DWORD>(value.size());
    if (AutoGrow != 0) SetNewSize(length + 4);
    Put(&length, sizeof length);
    if (length > 0) Put(value.data(), length);
    return *this;
  });
}

CTTBuffer& CTTBuffer::operator>>(BYTE& value) { return ReadScalar("CTTBuffer::operator>>(BYTE)", value); }
CTTBuffer& CTTBuffer::operator>>(WORD& value) { return ReadScalar("CTTBuffer::operator>>(WORD)", value); }
CTTBuffer& CTTBuffer::operator>>(DWORD& value) { return ReadScalar("CTTBuffer::operator>>(DWORD)", value); }
CTTBuffer& CTTBuffer::operator>>(KVTTIME& value) { return ReadScalar("CTTBuffer::operator>>(KVTTIME)", value); }
CTTBuffer& CTTBuffer::operator>>(int& value) { return ReadScalar("CTTBuffer::operator>>(int)", value); }
CTTBuffer& CTTBuffer::operator>>(double& value) { return ReadScalar("CTTBuffer::operator>>(double)", value); }

CTTBuffer& CTTBuffer::operator>>(std::string& value) {
  return Guarded("CTTBuffer::operator>>(string)", [&]() -> CTTBuffer& {
    DWORD length = 0;
    Take(&length, sizeof length);
    value.clear();
    if (length > GetRemaining()) ThrowKVT("CTTBuffer: string longer than the message");
    value.assign(reinterpret_cast<const char*>(Position), length);
    Position += length;
    return *this;
  });
}
