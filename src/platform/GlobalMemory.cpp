// Movable memory blocks: small ones on the heap, large ones mapped.
#include "platform/GlobalMemory.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <new>

#include "platform/MappedMemory.h"

struct HGLOBAL__ {
  std::size_t size = 0;
  std::atomic<int> locks{0};
  unsigned char* bytes = nullptr;
  std::unique_ptr<unsigned char[]> heap;  // small blocks
  CMappedMemory mapping;                  // large blocks: page-aligned, zeroed by the system
};

namespace {
// Blocks from this size on are mapped directly, so that a bitmap of a large image costs no
// copy of zeros and its pages can be huge pages.
constexpr std::size_t kMappedFrom = std::size_t(1) << 20;

// The most recently freed mapped block, kept for the next allocation of about its size. A
// host that redraws an image frees one bitmap and asks for the next of the same size; reusing
// the mapping saves unmapping it and having the system zero every page of the new one.
class SpareBlock {
 public:
  ~SpareBlock() { delete m_block.exchange(nullptr); }

  // Keeps `block`, freeing the one kept before.
  void Keep(HGLOBAL block) { delete m_block.exchange(block); }

  // The kept block when its mapping holds `size` bytes and is at most twice that; else null.
  HGLOBAL Take(std::size_t size) {
    HGLOBAL block = m_block.exchange(nullptr);
    if (!block) return nullptr;
    const std::size_t capacity = block->mapping.Size();
    if (capacity >= size && capacity / 2 <= size) return block;
    HGLOBAL expected = nullptr;
    if (!m_block.compare_exchange_strong(expected, block)) delete block;
    return nullptr;
  }

 private:
  std::atomic<HGLOBAL> m_block{nullptr};
};

SpareBlock g_spare;

HGLOBAL AllocateMapped(UINT flags, std::size_t size) {
  if (HGLOBAL block = g_spare.Take(size)) {
    if (flags & GMEM_ZEROINIT) std::memset(block->bytes, 0, size);
    block->size = size;
    return block;
  }
  auto block = std::unique_ptr<HGLOBAL__>(new (std::nothrow) HGLOBAL__);
  if (!block || !block->mapping.Allocate(size, false, nullptr)) return nullptr;
  block->bytes = static_cast<unsigned char*>(block->mapping.Data());
  block->size = size;
  return block.release();
}
}  // namespace

HGLOBAL GlobalAlloc(UINT flags, std::size_t size) {
  if (size == 0 || size > (std::size_t(1) << 46)) return nullptr;
  if (size >= kMappedFrom) return AllocateMapped(flags, size);
  auto block = std::unique_ptr<HGLOBAL__>(new (std::nothrow) HGLOBAL__);
  if (!block) return nullptr;
  block->heap.reset(new (std::nothrow) unsigned char[size]);
  if (!block->heap) return nullptr;
  block->bytes = block->heap.get();
  if (flags & GMEM_ZEROINIT) std::memset(block->bytes, 0, size);
  block->size = size;
  return block.release();
}

void* GlobalLock(HGLOBAL mem) {
  if (!mem) return nullptr;
  mem->locks.fetch_add(1);
  return mem->bytes;
}

BOOL GlobalUnlock(HGLOBAL mem) {
  if (!mem) return FALSE;
  int locks = mem->locks.load();
  while (locks > 0 && !mem->locks.compare_exchange_weak(locks, locks - 1)) {
  }
  return locks > 1 ? TRUE : FALSE;
}

HGLOBAL GlobalFree(HGLOBAL mem) {
  if (mem && mem->mapping.Data()) {
    mem->locks.store(0);
    g_spare.Keep(mem);
    return nullptr;
  }
  delete mem;
  return nullptr;
}

std::size_t GlobalSize(HGLOBAL mem) { return mem ? mem->size : 0; }
