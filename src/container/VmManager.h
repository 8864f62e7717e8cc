// Process-wide settings of the block-stored pixel memory.
#pragma once
#include <cstddef>
#include <string>

/// @brief Settings shared by every pixel store: the block size used for lock bookkeeping,
/// the size above which a store is backed by a temporary file instead of RAM, and the
/// folder for those files. Change them before creating images; existing stores keep theirs.
class CVmManager {
 public:
  static std::size_t GetBlockSize();
  static void SetBlockSize(std::size_t bytes);
  /// Stores larger than this many bytes are file-backed (default 4 GiB).
  static std::size_t GetMemoryLimit();
  static void SetMemoryLimit(std::size_t bytes);
  static std::string GetTempDirectory();
  static void SetTempDirectory(const std::string& directory);
  /// Restores the defaults.
  static void Reset();
};
