// Paths, whole files, scratch directories and a started library, as the
// commands of `kt` need them.
#ifndef KT_TOOLS_KT_WORKSPACE_H_
#define KT_TOOLS_KT_WORKSPACE_H_

#include <cstdint>
#include <optional>
#include <string>

namespace kt::tool {

// The library takes a directory and a file name apart: "a/b.vkt" is
// {"a", "b.vkt"}, "b.vkt" is {".", "b.vkt"}.
struct PathParts {
  std::string directory;
  std::string name;
};
PathParts SplitPath(const std::string& path);

// "-" names standard input wherever a command reads a file.
inline bool IsStandardInput(const std::string& path) { return path == "-"; }
// The path as messages show it: "standard input" for "-".
std::string ShownPath(const std::string& path);

// The whole content of a regular file, or of standard input for "-". On
// failure *error names the path and the reason ("cannot read x: Is a
// directory"), also when the file changed while it was read.
std::optional<std::string> ReadInput(const std::string& path, std::string* error);

// Whether `path` opens for reading as a regular file, as the library will
// open it by name; else *error names the path and the reason.
bool CheckReadable(const std::string& path, std::string* error);

// The file an output path really names: through symbolic links, their last
// target, so that writing it leaves the links as links.
std::string OutputTarget(const std::string& path);

// Gives `fresh` the permission bits of `existing` when that exists, before a
// rename puts `fresh` in its place; false with *error set when it cannot.
bool KeepMode(const std::string& existing, const std::string& fresh, std::string* error);

// Where the library takes an ini file name without '/': in the preferences
// directory ($KT_PREFERENCES_DIR when set and not empty, else the build's).
std::string PreferencesPath(const std::string& name);

// The absolute path of the running program ("kt" when it cannot be found).
std::string RunningProgram();

// "PATH: REASON" from errno.
std::string SystemError(const std::string& what, int error_number);

// A new directory "<parent>/<prefix>XXXXXX" ($TMPDIR or /tmp when parent is
// empty), removed with its content when the object goes unless kept.
class ScratchDirectory {
 public:
  ScratchDirectory(const std::string& parent, const std::string& prefix);
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  void Keep() { keep_ = true; }

 private:
  std::string path_;
  bool keep_ = false;
};

// Sets an environment variable for the life of the object, then puts the
// previous value back.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const std::string& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  const char* name_;
  std::optional<std::string> previous_;
};

// The library started on a configuration of our own: "volen.ini" in a
// preferences directory (written with the library's ini writer) names the
// working and tables directories, and KT_PREFERENCES_DIR points there while
// the session lasts. The library is stopped when the session goes.
class LibrarySession {
 public:
  explicit LibrarySession(const std::string& preferences);
  ~LibrarySession();
  LibrarySession(const LibrarySession&) = delete;
  LibrarySession& operator=(const LibrarySession&) = delete;

  // Writes "repertoiretravail" and "repertoiretable" of section "commun";
  // false when the writer fails.
  bool Configure(const std::string& work, const std::string& tables);
  // KT_usInitLIB; keeps the two version texts it hands out.
  std::uint16_t Start();
  void Stop();
  const std::string& library_version() const { return library_version_; }
  const std::string& tables_version() const { return tables_version_; }

 private:
  ScopedEnvironment environment_;
  bool started_ = false;
  std::string library_version_;
  std::string tables_version_;
};

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_WORKSPACE_H_
