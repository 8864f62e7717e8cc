// Anonymous and file-backed mappings.
#include "platform/MappedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace {
constexpr std::size_t kHugePageSize = std::size_t(2) << 20;

// An unlinked file in directory, sized to size bytes; -1 on failure.
int MakeTemporaryFile(std::size_t size, const char* directory) {
  std::string pattern = std::string(directory && *directory ? directory : "/tmp") + "/qrnimg-store-XXXXXX";
  const int fd = mkstemp(pattern.data());
  if (fd < 0) return -1;
  unlink(pattern.c_str());
  if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}
}  // namespace

CMappedMemory::~CMappedMemory() { Release(); }

CMappedMemory::CMappedMemory(CMappedMemory&& other) noexcept { *this = std::move(other); }

CMappedMemory& CMappedMemory::operator=(CMappedMemory&& other) noexcept {
  if (this != &other) {
    Release();
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_fileBacked, other.m_fileBacked);
  }
  return *this;
}

bool CMappedMemory::Allocate(std::size_t size, bool fileBacked, const char* directory) {
  Release();
  if (size == 0) return false;
  void* p = MAP_FAILED;
  if (fileBacked) {
    const int fd = MakeTemporaryFile(size, directory);
    if (fd < 0) return false;
    p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);  // the mapping keeps the file alive
  } else {
    p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  }
  if (p == MAP_FAILED) return false;
  // Large regions ask for huge pages: a fresh image or bitmap then takes a few hundred page
  // faults instead of hundreds of thousands. The system may refuse; nothing depends on it.
  if (size >= kHugePageSize) madvise(p, size, MADV_HUGEPAGE);
  m_data = p;
  m_size = size;
  m_fileBacked = fileBacked;
  return true;
}

void CMappedMemory::Release() {
  if (m_data) munmap(m_data, m_size);
  m_data = nullptr;
  m_size = 0;
  m_fileBacked = false;
}
