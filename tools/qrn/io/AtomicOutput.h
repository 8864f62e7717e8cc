// Output files that appear complete or not at all.
#pragma once
#include <string>
#include <vector>

/// @brief Reserves a temporary file beside the target; Commit() renames it over the target.
/// A COutputFile destroyed without Commit() removes the temporary, so a failed or cancelled
/// run leaves nothing behind. The target folder must exist and be writable.
class COutputFile {
 public:
  explicit COutputFile(const std::string& target);
  COutputFile(const COutputFile&) = delete;
  COutputFile& operator=(const COutputFile&) = delete;
  ~COutputFile();

  /// Path the writer fills (an empty file already exists there).
  const std::string& TempPath() const { return m_temp; }
  const std::string& Target() const { return m_target; }
  /// Flushes the temporary to disk and renames it to the target.
  void Commit();

 private:
  std::string m_target;
  std::string m_temp;
  bool m_committed = false;
};

/// Throws when target names the same file as one of inputs (outputs never replace inputs).
void CheckNotAnInput(const std::string& target, const std::vector<std::string>& inputs);
/// Makes dir (one level) when missing; throws when it cannot be made or written.
void EnsureWritableFolder(const std::string& dir);
