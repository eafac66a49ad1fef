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

// A directory made once per run under $TMPDIR (or /tmp), removed at exit;
// each input removes its own files.
inline const std::string& ScratchDirectory(const char* prefix) {
  static const std::string directory = [prefix] {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") + "/" +
                          prefix + ".XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    std::atexit([] { (void)rmdir(directory.c_str()); });
    return pattern;
  }();
  return directory;
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
