// The kt tool's judgement of ini writes (`kt ini set`): its prediction of
// the library's writer must be the writer's real result on any file, and a
// write it lets through must change nothing but the one entry, and read
// back through the library's reader. Input layout: byte 0 the section
// length (mod 16), byte 1 the key length (mod 16), byte 2 the value length
// (mod 16), then the section, the key, the value and the file's bytes.
//
// The replays link the library's objects only, so the tool's sources are
// compiled into this target.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/fuzz_files.h"
#include "kt_frame.h"
#include "tools/kt/ini_check.cpp"
#include "tools/kt/output.cpp"

namespace {

const std::string& Directory() {
  static const std::string directory = [] {
    const std::string made = kt::fuzz::ScratchDirectory("tool_ini_check_fuzz");
    setenv("KT_PREFERENCES_DIR", made.c_str(), 1);
    return made;
  }();
  return directory;
}

std::string ReadAll(const std::string& path) {
  std::string bytes;
  if (std::FILE* in = std::fopen(path.c_str(), "rb")) {
    char block[4096];
    std::size_t n;
    while ((n = std::fread(block, 1, sizeof block, in)) != 0) bytes.append(block, n);
    std::fclose(in);
  }
  return bytes;
}

bool WriteAll(const std::string& path, const std::string& bytes) {
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
  return std::fclose(out) == 0 && ok;
}

std::optional<std::string> Read(const std::string& content, const std::string& section,
                                const std::string& key) {
  const std::string path = Directory() + "/read.ini";
  if (!WriteAll(path, content)) std::abort();
  std::vector<char> value(content.size() + 3, '\0');
  value[0] = '\x01';
  vln_GetIniInfo(section.c_str(), key.c_str(), value.data(), 's',
                 static_cast<std::uint32_t>(content.size() + 1), path.c_str());
  (void)unlink(path.c_str());
  if (value[0] == '\x01' && value[1] == '\0') return std::nullopt;
  return std::string(value.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  kt::fuzz::Pieces pieces(data, size, 3);
  const std::string section = pieces.Take(data[0] % 16);
  const std::string key = pieces.Take(data[1] % 16);
  const std::string value = pieces.Take(data[2] % 16);
  const std::string content = pieces.Rest();
  // The writer takes C texts: a NUL would end them before the tool sees it.
  for (const std::string* text : {&section, &key, &value}) {
    if (text->find('\0') != std::string::npos) return 0;
  }
  const std::string path = Directory() + "/target.ini";
  if (!WriteAll(path, content)) std::abort();
  const std::optional<std::string> problem =
      kt::tool::CheckIniWrite(content, section, key, value, Read);
  const kt::tool::IniPrediction prediction =
      kt::tool::PredictIniWrite(content, section, key, value);
  if (KT_bEcrireChaineIni(section.c_str(), key.c_str(), value.c_str(), path.c_str()) == 1) {
    const std::string written = ReadAll(path);
    if (written != prediction.output) std::abort();
    if (!problem) {
      // Let through: the old text, with the one entry replaced, inserted, or
      // appended in a new section.
      const std::string entry = key + "=" + value + "\n";
      const bool appended = written == content + "\n[" + section + "]\n" + entry;
      bool one_entry = appended;
      if (!one_entry && prediction.replaced) {
        std::size_t start = 0;
        for (std::size_t line = 1; line < *prediction.replaced; ++line) {
          start = content.find('\n', start) + 1;
        }
        const std::size_t end = content.find('\n', start) + 1;
        one_entry = written == content.substr(0, start) + entry + content.substr(end);
      }
      if (!one_entry && written.size() == content.size() + entry.size()) {
        for (std::size_t i = 0; i <= content.size() && !one_entry; ++i) {
          one_entry = content.compare(0, i, written, 0, i) == 0 &&
                      written.compare(i, entry.size(), entry) == 0 &&
                      content.compare(i, std::string::npos, written, i + entry.size()) == 0;
        }
      }
      if (!one_entry) std::abort();
      if (Read(written, section, key) != value) std::abort();
    }
  }
  (void)unlink(path.c_str());
  return 0;
}
