#include "tools/kt/workspace.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "kt_frame.h"

namespace kt::tool {

PathParts SplitPath(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

std::string ShownPath(const std::string& path) {
  return IsStandardInput(path) ? "standard input" : path;
}

std::string OutputTarget(const std::string& path) {
  std::filesystem::path at = path;
  std::error_code error;
  // A bound like the kernel's: a loop of links stays unresolved.
  for (int links = 0; links < 40 && std::filesystem::is_symlink(at, error); ++links) {
    const std::filesystem::path target = std::filesystem::read_symlink(at, error);
    if (error) break;
    at = target.is_absolute() ? target : at.parent_path() / target;
  }
  return at.string();
}

bool KeepMode(const std::string& existing, const std::string& fresh, std::string* error) {
  struct stat info;
  if (stat(existing.c_str(), &info) != 0) return true;  // a new file: the default mode
  if (chmod(fresh.c_str(), info.st_mode & 07777) != 0) {
    *error = SystemError("cannot give " + existing + "'s mode to its new content", errno);
    return false;
  }
  return true;
}

std::string PreferencesPath(const std::string& name) {
  const char* from_environment = std::getenv("KT_PREFERENCES_DIR");
  std::string directory = from_environment != nullptr && from_environment[0] != '\0'
                              ? from_environment
                              : KT_TOOL_PREFERENCES_DIR;
  while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
  return directory + "/" + name;
}

std::string RunningProgram() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "kt" : self.string();
}

std::string SystemError(const std::string& what, int error_number) {
  return what + ": " + std::strerror(error_number);
}

namespace {

// Opens a regular file for reading; -1 with *error set otherwise.
int OpenRegular(const std::string& path, struct stat* info, std::string* error) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *error = SystemError("cannot read " + path, errno);
    return -1;
  }
  if (fstat(fd, info) != 0) {
    *error = SystemError("cannot read " + path, errno);
    close(fd);
    return -1;
  }
  if (!S_ISREG(info->st_mode)) {
    *error = SystemError("cannot read " + path, S_ISDIR(info->st_mode) ? EISDIR : EINVAL);
    if (!S_ISDIR(info->st_mode)) *error = "cannot read " + path + ": not a regular file";
    close(fd);
    return -1;
  }
  return fd;
}

// Reads to the end; false with errno set on a read error.
bool ReadAll(int fd, std::string* bytes) {
  char block[65536];
  for (;;) {
    const ssize_t n = read(fd, block, sizeof block);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes->append(block, static_cast<std::size_t>(n));
  }
}

}  // namespace

bool CheckReadable(const std::string& path, std::string* error) {
  struct stat info;
  const int fd = OpenRegular(path, &info, error);
  if (fd < 0) return false;
  close(fd);
  return true;
}

std::optional<std::string> ReadInput(const std::string& path, std::string* error) {
  std::string bytes;
  if (IsStandardInput(path)) {
    if (!ReadAll(STDIN_FILENO, &bytes)) {
      *error = SystemError("cannot read standard input", errno);
      return std::nullopt;
    }
    return bytes;
  }
  struct stat before;
  const int fd = OpenRegular(path, &before, error);
  if (fd < 0) return std::nullopt;
  const bool read_ok = ReadAll(fd, &bytes);
  const int read_errno = errno;
  struct stat after;
  const bool stat_ok = fstat(fd, &after) == 0;
  close(fd);
  if (!read_ok) {
    *error = SystemError("cannot read " + path, read_errno);
    return std::nullopt;
  }
  // A writer at work: what was read may be half old, half new.
  if (!stat_ok || after.st_size != before.st_size ||
      static_cast<std::uintmax_t>(bytes.size()) != static_cast<std::uintmax_t>(after.st_size) ||
      after.st_mtim.tv_sec != before.st_mtim.tv_sec ||
      after.st_mtim.tv_nsec != before.st_mtim.tv_nsec) {
    *error = "cannot read " + path + ": it changed while it was read";
    return std::nullopt;
  }
  return bytes;
}

ScratchDirectory::ScratchDirectory(const std::string& parent, const std::string& prefix) {
  std::string base = parent;
  if (base.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    base = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
  }
  std::string pattern = base + "/" + prefix + "XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) != nullptr) path_ = buffer.data();
}

ScratchDirectory::~ScratchDirectory() {
  if (path_.empty() || keep_) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedEnvironment::ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
  if (const char* previous = std::getenv(name)) previous_ = previous;
  setenv(name, value.c_str(), 1);
}

ScopedEnvironment::~ScopedEnvironment() {
  if (previous_) {
    setenv(name_, previous_->c_str(), 1);
  } else {
    unsetenv(name_);
  }
}

LibrarySession::LibrarySession(const std::string& preferences)
    : environment_("KT_PREFERENCES_DIR", preferences) {}

LibrarySession::~LibrarySession() { Stop(); }

bool LibrarySession::Configure(const std::string& work, const std::string& tables) {
  return KT_bEcrireChaineVolen("commun", "repertoiretravail", work.c_str()) == 1 &&
         KT_bEcrireChaineVolen("commun", "repertoiretable", tables.c_str()) == 1;
}

std::uint16_t LibrarySession::Start() {
  char* library_version = nullptr;
  char* tables_version = nullptr;
  const std::uint16_t us = KT_usInitLIB(&library_version, &tables_version);
  // A failed version file still leaves the library started (and counted).
  started_ = us == KT_OK || library_version != nullptr;
  if (library_version != nullptr) library_version_ = library_version;
  if (tables_version != nullptr) tables_version_ = tables_version;
  KT_Liberer(library_version);
  KT_Liberer(tables_version);
  return us;
}

void LibrarySession::Stop() {
  if (started_) (void)KT_usTermLIB();  // always 0
  started_ = false;
}

}  // namespace kt::tool
