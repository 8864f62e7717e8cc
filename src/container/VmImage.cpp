// Pixel store allocation and lock bookkeeping.
#include "container/VmImage.h"

#include <cstdint>
#include <limits>
#include <utility>

#include "container/VmManager.h"

namespace {
// a * b, or 0 when the product does not fit.
std::size_t CheckedMul(std::size_t a, std::size_t b) {
  if (a == 0 || b == 0) return 0;
  if (a > std::numeric_limits<std::size_t>::max() / b) return 0;
  return a * b;
}
}  // namespace

bool CVmImage::Allocate(int width, int height, int planes, int bytesPerPixel) {
  Release();
  if (width <= 0 || height <= 0 || planes <= 0 || bytesPerPixel <= 0) return false;
  const std::size_t lineBytes = CheckedMul(static_cast<std::size_t>(width), static_cast<std::size_t>(bytesPerPixel));
  if (lineBytes == 0 || lineBytes > std::numeric_limits<std::size_t>::max() - kLineAlignment) return false;
  const std::size_t stride = (lineBytes + kLineAlignment - 1) / kLineAlignment * kLineAlignment;
  const std::size_t lines = CheckedMul(static_cast<std::size_t>(height), static_cast<std::size_t>(planes));
  const std::size_t total = CheckedMul(stride, lines);
  if (total == 0 || lines > static_cast<std::size_t>(std::numeric_limits<int>::max())) return false;

  const bool fileBacked = total > CVmManager::GetMemoryLimit();
  if (!m_memory.Allocate(total, fileBacked, CVmManager::GetTempDirectory().c_str())) return false;

  m_base = static_cast<unsigned char*>(m_memory.Data());
  m_width = width;
  m_height = height;
  m_planes = planes;
  m_bytesPerPixel = bytesPerPixel;
  m_stride = stride;
  const std::size_t blockLines = CVmManager::GetBlockSize() / stride;
  m_linesPerBlock = static_cast<int>(blockLines < 1 ? 1 : (blockLines > lines ? lines : blockLines));
  const int blocks = static_cast<int>((lines + m_linesPerBlock - 1) / m_linesPerBlock);
  m_table.Resize(blocks);
  for (int i = 0; i < blocks; ++i) m_table.Set(i, fileBacked ? CVmHandle::kFile : CVmHandle::kMemory, i);
  m_blockLocks = std::make_unique<std::atomic<int>[]>(blocks);
  m_totalLocks.store(0);
  return true;
}

void CVmImage::Release() {
  m_memory.Release();
  m_base = nullptr;
  m_width = m_height = m_planes = m_bytesPerPixel = 0;
  m_stride = 0;
  m_linesPerBlock = 1;
  m_table.Resize(0);
  m_blockLocks.reset();
  m_totalLocks.store(0);
}

void CVmImage::Swap(CVmImage& other) noexcept {
  std::swap(m_memory, other.m_memory);
  std::swap(m_base, other.m_base);
  std::swap(m_width, other.m_width);
  std::swap(m_height, other.m_height);
  std::swap(m_planes, other.m_planes);
  std::swap(m_bytesPerPixel, other.m_bytesPerPixel);
  std::swap(m_stride, other.m_stride);
  std::swap(m_linesPerBlock, other.m_linesPerBlock);
  std::swap(m_table, other.m_table);
  std::swap(m_blockLocks, other.m_blockLocks);
  const int locks = m_totalLocks.load();
  m_totalLocks.store(other.m_totalLocks.load());
  other.m_totalLocks.store(locks);
  std::swap(m_parallel, other.m_parallel);
}

LOCKHANDLE CVmImage::Lock(int y, int plane) {
  if (!m_base) return nullptr;
  const int block = BlockOf(y, plane);
  m_blockLocks[block].fetch_add(1, std::memory_order_relaxed);
  m_totalLocks.fetch_add(1, std::memory_order_relaxed);
  return reinterpret_cast<LOCKHANDLE>(static_cast<std::intptr_t>(block) + 1);
}

int CVmImage::Unlock(LOCKHANDLE handle) {
  const auto block = reinterpret_cast<std::intptr_t>(handle) - 1;
  if (!m_base || block < 0 || block >= m_table.GetBlockCount()) return 0;
  int held = m_blockLocks[block].load(std::memory_order_relaxed);
  do {
    if (held <= 0) return 0;
  } while (!m_blockLocks[block].compare_exchange_weak(held, held - 1, std::memory_order_relaxed));
  m_totalLocks.fetch_sub(1, std::memory_order_relaxed);
  return 1;
}

void CVmImage::UnlockAll() {
  if (!m_base) return;
  for (int i = 0; i < m_table.GetBlockCount(); ++i) {
    const int held = m_blockLocks[i].exchange(0, std::memory_order_relaxed);
    m_totalLocks.fetch_sub(held, std::memory_order_relaxed);
  }
}
