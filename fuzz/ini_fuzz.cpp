// Feeds arbitrary file contents and queries to the ini reader, then lets the
// writer copy the same file. Input layout: byte 0 the section length (mod
// 32), byte 1 the key length (mod 32), byte 2 the buffer size (mod 64), then
// the section, the key and the file's bytes.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame/frame_internal.h"
#include "fuzz/fuzz_files.h"
#include "kt_frame.h"

namespace {

// A private preferences directory for the whole run, set once.
const std::string& PreferencesDirectory() {
  static const std::string& directory = []() -> const std::string& {
    const std::string& made = kt::fuzz::ScratchDirectory("kt_ini_fuzz");
    setenv("KT_PREFERENCES_DIR", made.c_str(), 1);
    return made;
  }();
  return directory;
}

void Check(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const std::string file = PreferencesDirectory() + "/fuzz.ini";
  kt::fuzz::Pieces pieces(data, size, 3);
  const std::string section = pieces.Take(data[0] % 32);
  const std::string key = pieces.Take(data[1] % 32);
  const std::uint32_t buffer_size = data[2] % 64;
  const std::string content = pieces.Rest();

  std::FILE* out = std::fopen(file.c_str(), "wb");
  if (out == nullptr) return 0;
  std::fwrite(content.data(), 1, content.size(), out);
  std::fclose(out);

  const std::uint32_t memory = kt::frame::AllocatedTotal();
  // Exactly size + 1 characters, so that the sanitizer sees any overrun.
  std::vector<char> buffer(buffer_size + 1, '#');
  const std::uint32_t length =
      GetIniString(section.c_str(), key.c_str(), "a default text", buffer.data(), buffer_size,
                   "fuzz.ini");
  Check(length == std::strlen(buffer.data()) && length <= buffer_size);
  (void)GetIniInt(section.c_str(), key.c_str(), -1, "fuzz.ini");
  Check(kt::frame::AllocatedTotal() == memory);

  // The writer always manages an existing readable file, and never loses it.
  Check(WriteIniString(section.c_str(), key.c_str(), "value", "fuzz.ini") == 1);
  Check(access(file.c_str(), F_OK) == 0);
  Check(kt::frame::AllocatedTotal() == memory);
  return 0;
}
