// Pixel-store settings.
#include "container/VmManager.h"

#include <atomic>
#include <mutex>

namespace {
constexpr std::size_t kDefaultBlockSize = std::size_t(1) << 20;
constexpr std::size_t kDefaultMemoryLimit = std::size_t(4) << 30;

std::atomic<std::size_t> g_blockSize{kDefaultBlockSize};
std::atomic<std::size_t> g_memoryLimit{kDefaultMemoryLimit};
std::mutex g_dirLock;
std::string g_tempDirectory = "/tmp";
}  // namespace

std::size_t CVmManager::GetBlockSize() { return g_blockSize.load(); }

void CVmManager::SetBlockSize(std::size_t bytes) { g_blockSize.store(bytes ? bytes : kDefaultBlockSize); }

std::size_t CVmManager::GetMemoryLimit() { return g_memoryLimit.load(); }

void CVmManager::SetMemoryLimit(std::size_t bytes) { g_memoryLimit.store(bytes); }

std::string CVmManager::GetTempDirectory() {
  std::lock_guard guard(g_dirLock);
  return g_tempDirectory;
}

void CVmManager::SetTempDirectory(const std::string& directory) {
  std::lock_guard guard(g_dirLock);
  g_tempDirectory = directory.empty() ? "/tmp" : directory;
}

void CVmManager::Reset() {
  SetBlockSize(kDefaultBlockSize);
  SetMemoryLimit(kDefaultMemoryLimit);
  SetTempDirectory("/tmp");
}
