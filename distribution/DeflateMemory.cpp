#include "distribution/DeflateMemory.h"

#include <cstddef>
#include <cstdlib>
#include <utility>
#include <vector>

namespace deflate_memory {

namespace {

// Each block carries its size in front of the part zlib sees; the header keeps the
// alignment that malloc gives.
constexpr std::size_t kHeader = alignof(std::max_align_t);
// A compressor holds five blocks; a few more cover a build that failed half-way.
constexpr std::size_t kKeptBlocks = 8;

class BlockCache {
 public:
  BlockCache() = default;
  BlockCache(const BlockCache&) = delete;
  BlockCache& operator=(const BlockCache&) = delete;
  ~BlockCache() {
    for (auto& [size, block] : Kept) std::free(block);
  }

  void* Take(std::size_t size) {
    for (auto it = Kept.begin(); it != Kept.end(); ++it) {
      if (it->first == size) {
        void* block = it->second;
        Kept.erase(it);
        return block;
      }
    }
    return std::malloc(size + kHeader);
  }

  void Give(std::size_t size, void* block) {
    if (Kept.size() < kKeptBlocks) {
      Kept.emplace_back(size, block);
    } else {
      std::free(block);
    }
  }

 private:
  std::vector<std::pair<std::size_t, void*>> Kept;
};

thread_local BlockCache t_Cache;

}  // namespace

voidpf Allocate(voidpf /*opaque*/, uInt items, uInt size) {
  const std::size_t bytes = static_cast<std::size_t>(items) * size;
  auto* block = static_cast<unsigned char*>(t_Cache.Take(bytes));
  if (block == nullptr) return Z_NULL;
  *reinterpret_cast<std::size_t*>(block) = bytes;
  return block + kHeader;
}

void Free(voidpf /*opaque*/, voidpf address) {
  if (address == Z_NULL) return;
  auto* block = static_cast<unsigned char*>(address) - kHeader;
  t_Cache.Give(*reinterpret_cast<std::size_t*>(block), block);
}

}  // namespace deflate_memory
