// What the file-based fuzz targets share: a scratch directory for the run,
// a scratch file rewritten for each input, the file name a binary file's
// header carries, and the cutting of an input into texts.
#ifndef KT_FUZZ_FUZZ_FILES_H_
#define KT_FUZZ_FUZZ_FILES_H_

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

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

// A directory made once per run under ScratchBase(), removed at exit with
// the files left in it (the ini writers' lock file, for one). The name is
// never destroyed, so that exit handlers registered after it can use it.
inline const std::string& ScratchDirectory(const char* prefix) {
  static const std::string* const directory = [prefix] {
    auto* made = new std::string(ScratchBase() + "/" + prefix + ".XXXXXX");
    if (mkdtemp(made->data()) == nullptr) std::abort();
    std::atexit([] {
      if (DIR* listing = opendir(directory->c_str())) {
        while (const dirent* entry = readdir(listing)) {
          (void)unlink((*directory + "/" + entry->d_name).c_str());  // fails on . and ..
        }
        (void)closedir(listing);
      }
      (void)rmdir(directory->c_str());
    });
    return made;
  }();
  return *directory;
}

// One file in a directory, given each input's name and bytes in turn. It is
// renamed and rewritten in place, its descriptor kept open, rather than
// created and removed for every input: on a memory file system the creation,
// the first write and the removal cost more than opening and reading a small
// file three times over.
class ScratchFile {
 public:
  explicit ScratchFile(std::string directory) : directory_(std::move(directory)) {}
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // The file is then called `name` and holds the `size` bytes; false when
  // that could not be done.
  bool Put(const std::string& name, const std::uint8_t* data, std::size_t size) {
    if (descriptor_ >= 0 && name != name_ &&
        std::rename(Path(name_).c_str(), Path(name).c_str()) != 0) {
      (void)close(descriptor_);
      (void)unlink(Path(name_).c_str());
      descriptor_ = -1;
    }
    if (descriptor_ < 0) {
      descriptor_ = open(Path(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      if (descriptor_ < 0) return false;
    }
    name_ = name;
    return pwrite(descriptor_, data, size, 0) == static_cast<ssize_t>(size) &&
           ftruncate(descriptor_, static_cast<off_t>(size)) == 0;
  }

  std::string Path(const std::string& name) const { return directory_ + "/" + name; }

 private:
  std::string directory_;
  std::string name_;
  int descriptor_ = -1;
};

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

// Consecutive pieces of an input, from offset `at` on; a piece is cut short
// where the input ends.
class Pieces {
 public:
  Pieces(const std::uint8_t* data, std::size_t size, std::size_t at)
      : data_(data), size_(size), at_(std::min(at, size)) {}
  std::string Take(std::size_t wanted) {
    const std::size_t n = std::min(wanted, size_ - at_);
    std::string part(reinterpret_cast<const char*>(data_ + at_), n);
    at_ += n;
    return part;
  }
  std::string Rest() { return Take(size_ - at_); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_;
};

}  // namespace kt::fuzz

#endif  // KT_FUZZ_FUZZ_FILES_H_
