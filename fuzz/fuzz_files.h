// What the file-based fuzz targets share: a scratch directory for the run and
// the file name a binary file's header carries.
#ifndef KT_FUZZ_FUZZ_FILES_H_
#define KT_FUZZ_FUZZ_FILES_H_

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kt::fuzz {

// Where scratch directories go: $KT_FUZZ_TMPDIR when set (the scripts point
// it at a directory they remove afterwards), else /dev/shm when it is there,
// else $TMPDIR or /tmp. Memory-backed files keep each input's open, write,
// sync and rename cheap; on disk they dominated the run.
inline std::string ScratchBase() {
  for (const char* variable : {"KT_FUZZ_TMPDIR", "", "TMPDIR"}) {
    const char* base = variable[0] == '\0' ? "/dev/shm" : std::getenv(variable);
    if (base != nullptr && base[0] != '\0' && access(base, W_OK | X_OK) == 0) return base;
  }
  return "/tmp";
}

// A directory made once per run under ScratchBase(), removed at exit; each
// input removes its own files. The name is never destroyed, so that exit
// handlers registered after it can still use it.
inline const std::string& ScratchDirectory(const char* prefix) {
  static const std::string* const directory = [prefix] {
    auto* made = new std::string(ScratchBase() + "/" + prefix + ".XXXXXX");
    if (mkdtemp(made->data()) == nullptr) std::abort();
    std::atexit([] { (void)rmdir(directory->c_str()); });
    return made;
  }();
  return *directory;
}

// The name in the header's name field (offset 5, 12 characters, trailing
// blanks dropped), so that the opener's name check passes; `fallback` when it
// cannot be a file name.
inline std::string HeaderName(const std::uint8_t* data, std::size_t size, const char* fallback) {
  char field[13] = {};
  if (size > 5) std::memcpy(field, data + 5, std::min<std::size_t>(size - 5, 12));
  for (int i = 12; i > 0 && field[i - 1] == ' '; --i) field[i - 1] = '\0';
  const std::string name(field);
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    return fallback;
  }
  return name;
}

}  // namespace kt::fuzz

#endif  // KT_FUZZ_FUZZ_FILES_H_
