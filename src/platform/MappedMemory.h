// Page-aligned sample memory, in RAM or in an unlinked temporary file.
#pragma once
#include <cstddef>

/// @brief One zero-filled, page-aligned region. A file-backed region lives in an unlinked
/// temporary file mapped into memory, so the system pages it instead of holding it in RAM.
class CMappedMemory {
 public:
  CMappedMemory() = default;
  ~CMappedMemory();
  CMappedMemory(const CMappedMemory&) = delete;
  CMappedMemory& operator=(const CMappedMemory&) = delete;
  CMappedMemory(CMappedMemory&& other) noexcept;
  CMappedMemory& operator=(CMappedMemory&& other) noexcept;

  /// Maps size bytes; returns false (and holds nothing) when the system refuses.
  bool Allocate(std::size_t size, bool fileBacked, const char* directory);
  void Release();
  void* Data() const { return m_data; }
  std::size_t Size() const { return m_size; }
  bool IsFileBacked() const { return m_fileBacked; }

 private:
  void* m_data = nullptr;
  std::size_t m_size = 0;
  bool m_fileBacked = false;
};
