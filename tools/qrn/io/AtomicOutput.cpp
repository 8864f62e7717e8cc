// Temporary-then-rename output files.
#include "io/AtomicOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "Error.h"

namespace fs = std::filesystem;

COutputFile::COutputFile(const std::string& target) : m_target(target) {
  const fs::path path(target);
  const fs::path dir = path.has_parent_path() ? path.parent_path() : fs::path(".");
  // A hidden name in the same folder, so the final rename never crosses file systems.
  std::string pattern = (dir / ("." + path.filename().string() + ".qrn-XXXXXX")).string();
  const int fd = mkstemp(pattern.data());
  if (fd < 0) {
    const int err = errno;
    if (err == ENOENT) throw CQrnError(dir.string(), "output folder does not exist");
    throw CQrnError(target, std::string("cannot write: ") + std::strerror(err));
  }
  ::close(fd);
  m_temp = pattern;
}

COutputFile::~COutputFile() {
  if (!m_committed) ::unlink(m_temp.c_str());
}

void COutputFile::Commit() {
  const int fd = ::open(m_temp.c_str(), O_RDONLY);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
  // mkstemp made the file private; give it the permissions a new file normally gets.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::chmod(m_temp.c_str(), 0666 & ~mask);
  if (std::rename(m_temp.c_str(), m_target.c_str()) != 0)
    throw CQrnError(m_target, std::string("cannot write: ") + std::strerror(errno));
  m_committed = true;
}

void CheckNotAnInput(const std::string& target, const std::vector<std::string>& inputs) {
  std::error_code ec;
  for (const auto& in : inputs) {
    if (fs::exists(target, ec) && fs::equivalent(target, in, ec))
      throw CQrnError(target, "output would overwrite the input " + in, true);
  }
}

void EnsureWritableFolder(const std::string& dir) {
  std::error_code ec;
  if (!fs::exists(dir, ec)) {
    if (!fs::create_directory(dir, ec)) throw CQrnError(dir, "cannot create folder: " + ec.message());
  } else if (!fs::is_directory(dir, ec)) {
    throw CQrnError(dir, "not a folder");
  }
  if (::access(dir.c_str(), W_OK) != 0) throw CQrnError(dir, std::string("folder not writable: ") + std::strerror(errno));
}
