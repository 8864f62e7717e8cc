// Movable memory blocks: a header followed by the bytes, so a handle is one allocation.
#include "platform/GlobalMemory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

struct HGLOBAL__ {
  std::size_t size;
  std::atomic<int> locks;
  alignas(std::max_align_t) unsigned char bytes[1];
};

HGLOBAL GlobalAlloc(UINT flags, std::size_t size) {
  if (size == 0 || size > (std::size_t(1) << 46)) return nullptr;
  void* raw = std::malloc(offsetof(HGLOBAL__, bytes) + size);
  if (!raw) return nullptr;
  auto* block = new (raw) HGLOBAL__;
  block->size = size;
  block->locks.store(0);
  if (flags & GMEM_ZEROINIT) std::memset(block->bytes, 0, size);
  return block;
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
  if (mem) {
    mem->~HGLOBAL__();
    std::free(mem);
  }
  return nullptr;
}

std::size_t GlobalSize(HGLOBAL mem) { return mem ? mem->size : 0; }
