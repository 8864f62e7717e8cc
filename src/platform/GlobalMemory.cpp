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
}  // namespace

HGLOBAL GlobalAlloc(UINT flags, std::size_t size) {
  if (size == 0 || size > (std::size_t(1) << 46)) return nullptr;
  auto block = std::unique_ptr<HGLOBAL__>(new (std::nothrow) HGLOBAL__);
  if (!block) return nullptr;
  if (size >= kMappedFrom) {
    if (!block->mapping.Allocate(size, false, nullptr)) return nullptr;
    block->bytes = static_cast<unsigned char*>(block->mapping.Data());
  } else {
    block->heap.reset(new (std::nothrow) unsigned char[size]);
    if (!block->heap) return nullptr;
    block->bytes = block->heap.get();
    if (flags & GMEM_ZEROINIT) std::memset(block->bytes, 0, size);
  }
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
  delete mem;
  return nullptr;
}

std::size_t GlobalSize(HGLOBAL mem) { return mem ? mem->size : 0; }
