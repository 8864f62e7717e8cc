// Block-stored pixel memory of one image.
#pragma once
#include <atomic>
#include <cassert>
#include <cstddef>
#include <memory>
#include <mutex>

#include "container/VmHandle.h"
#include "platform/MappedMemory.h"

/// @brief The samples of an image: planes of lines, each line contiguous and starting on
/// a 64-byte boundary. Lines are grouped into blocks for lock bookkeeping; a store above
/// CVmManager's memory limit lives in a mapped temporary file. Locks are counted so callers
/// can prove that every lock was released.
class CVmImage {
 public:
  static constexpr std::size_t kLineAlignment = 64;

  CVmImage() = default;
  CVmImage(const CVmImage&) = delete;
  CVmImage& operator=(const CVmImage&) = delete;

  /// Allocates a zeroed store; false (holding nothing) when a size is not positive, the byte
  /// count overflows, or the system has no memory.
  bool Allocate(int width, int height, int planes, int bytesPerPixel);
  void Release();
  void Swap(CVmImage& other) noexcept;

  bool IsAllocated() const { return m_base != nullptr; }
  bool IsFileBacked() const { return m_memory.IsFileBacked(); }
  std::size_t GetLineStride() const { return m_stride; }
  std::size_t GetStoreSize() const { return m_memory.Size(); }

  unsigned char* Address(int x, int y, int plane) const {
    assert(m_base && x >= 0 && x < m_width && y >= 0 && y < m_height && plane >= 0 && plane < m_planes);
    return m_base + (static_cast<std::size_t>(plane) * m_height + y) * m_stride +
           static_cast<std::size_t>(x) * m_bytesPerPixel;
  }

  /// Locks the block holding line y of plane; returns the handle for Unlock.
  LOCKHANDLE Lock(int y, int plane);
  int Unlock(LOCKHANDLE handle);
  void UnlockAll();
  /// Locks currently held over all blocks.
  int GetLockCount() const { return m_totalLocks.load(); }

  const CVmHandle& GetHandle() const { return m_table; }
  void SetParallel(int flag) { m_parallel = flag; }
  int IsParallel() const { return m_parallel; }
  std::mutex& VmImageLock() { return m_lock; }

 private:
  int BlockOf(int y, int plane) const { return static_cast<int>((static_cast<long long>(plane) * m_height + y) / m_linesPerBlock); }

  CMappedMemory m_memory;
  unsigned char* m_base = nullptr;
  int m_width = 0, m_height = 0, m_planes = 0, m_bytesPerPixel = 0;
  std::size_t m_stride = 0;
  int m_linesPerBlock = 1;
  CVmHandle m_table;
  std::unique_ptr<std::atomic<int>[]> m_blockLocks;
  std::atomic<int> m_totalLocks{0};
  int m_parallel = 0;
  std::mutex m_lock;
};
