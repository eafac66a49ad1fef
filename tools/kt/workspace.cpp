#include "tools/kt/workspace.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "kt_frame.h"

namespace kt::tool {

PathParts SplitPath(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
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
