// Ini files: the reader that scans a whole file held in memory, the writer
// that copies a file line by line through a temporary file, and their small
// text helpers.
//
// The reader's scan rules are deliberate and other components depend on
// them: names compare ignoring case, nothing is trimmed, a section or key of
// a single character is never found, and after a key that does not match the
// scan resumes inside its value. Historically the wanted names, the joined
// path and the writer's line lived in 256-character buffers without bounds
// checks; here names are compared where they stand, paths are checked
// against a larger bound and lines grow as needed, so every file that fitted
// those buffers gives the same result and longer ones stay memory-safe.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

#include "frame/frame_internal.h"
#include "frame/support.h"

namespace kt::frame {
namespace {

// Paths that do not fit are treated as files that cannot be opened.
constexpr std::size_t kPathCapacity = 4096;
using PathBuffer = char[kPathCapacity];

// The historical line buffer of read_line.
constexpr std::size_t kLineCapacity = 256;

constexpr const char* kTemporaryName = "WriteIniTmp.txt";
// Lock file of the writers, beside the temporary file; as long a name, so
// that it fits wherever the temporary does.
constexpr const char* kLockName = "WriteIniTmp.lck";
// Suffix of the copy made beside the target when the temporary file lies on
// another file system.
constexpr const char* kSiblingSuffix = "~WriteIniTmp";

// A name with no '/' lies in the preferences directory; false when the
// joined path would not fit.
bool BuildIniPath(const char* name, PathBuffer& path) {
  int length;
  if (std::strchr(name, '/') != nullptr) {
    length = std::snprintf(path, kPathCapacity, "%s", name);
  } else {
    length = std::snprintf(path, kPathCapacity, "%s%c%s", PreferencesDirectory(), '/', name);
  }
  return length >= 0 && static_cast<std::size_t>(length) < kPathCapacity;
}

int Upper(char c) { return std::toupper(static_cast<unsigned char>(c)); }

// Equality after upper-casing both sides, character by character: the same
// as comparing upper-cased copies, without the copies.
bool SameIgnoringCase(const char* a, const char* b) {
  for (; *a != '\0' && *b != '\0'; ++a, ++b) {
    if (Upper(*a) != Upper(*b)) return false;
  }
  return *a == *b;
}

// Finds the value of `key` in section `section` of the file text (size
// bytes, terminated at text[size]). Section names and keys met on the way
// are terminated and upper-cased in the text, as the scan has always done.
// Returns the value, terminated at its line end, or null.
char* FindValue(char* text, std::uint32_t size, const char* section, const char* key) {
  bool in_section = false;
  std::uint32_t p = 0;
  while (p < size) {
    char* at = text + p;
    const char c = *at;
    if (c == ';' || c == '#') {
      p += vln_GetLine(at);  // to the line end, which the next step passes
    } else if (c == '[') {
      in_section = false;
      const std::uint32_t n = vln_GetToken(at + 1, ']');
      // n > 1 on purpose: a one-character section name never matches.
      if (n > 1) {
        at[1 + n] = '\0';
        in_section = SameIgnoringCase(vln_uprstr(at + 1), section);
      }
      // Intended: an unterminated "[" line advances by 2 only.
      p += n + 2;
    } else if (static_cast<signed char>(c) > ' ') {
      // Signed on purpose: bytes 0x80 to 0xFF are passed over like blanks.
      if (!in_section) {
        p += vln_GetLine(at);
        continue;
      }
      const std::uint32_t n = vln_GetToken(at, '=');
      if (n < 2) {
        // No "=", or a one-character key: never found (intended).
        p += n + 2;
        continue;
      }
      at[n] = '\0';
      char* value = at + n + 1;
      if (SameIgnoringCase(vln_uprstr(at), key)) {
        value[vln_GetLine(value)] = '\0';
        return value;
      }
      // Intended: the scan goes on inside the value, where a "[", ";", "#"
      // or a further key=value counts as if it began a line.
      p += n + 1;
    } else {
      ++p;  // line ends, blanks, control characters
    }
  }
  return nullptr;
}

// atoi as the 32-bit original had it: strtol saturates at the limits of a
// 32-bit long there, so values beyond them saturate here too.
std::int32_t DecimalValue(const char* text) {
  const long long value = std::strtoll(text, nullptr, 10);
  if (value > std::numeric_limits<std::int32_t>::max()) {
    return std::numeric_limits<std::int32_t>::max();
  }
  if (value < std::numeric_limits<std::int32_t>::min()) {
    return std::numeric_limits<std::int32_t>::min();
  }
  return static_cast<std::int32_t>(value);
}

void StoreValue(const char* value, void* destination, char type, std::uint32_t size) {
  if (type == 'i' || type == 'I') {
    const std::int32_t number = DecimalValue(value);
    std::memcpy(destination, &number, sizeof number);
    return;
  }
  char* text = static_cast<char*>(destination);
  const std::size_t length = std::strlen(value);
  if (size <= length) {
    // The terminator lands at text[size]: callers provide size + 1.
    std::memcpy(text, value, size);
    text[size] = '\0';
  } else {
    std::memcpy(text, value, length + 1);
  }
}

// Reads the whole descriptor into a new block of size + 1 bytes, terminated.
// Returns null on an allocation or read failure; *size becomes what was read.
char* ReadWhole(int descriptor, std::uint32_t* size) {
  char* text = static_cast<char*>(KT_Allouer(*size + 1));
  if (text == nullptr) return nullptr;
  std::uint32_t got = 0;
  while (got < *size) {
    const long n = kt::io::ReadDescriptor(descriptor, text + got, *size - got);
    if (n < 0) {
      KT_Liberer(text);
      return nullptr;
    }
    if (n == 0) break;  // the file shrank meanwhile: take what is there
    got += static_cast<std::uint32_t>(n);
  }
  text[got] = '\0';
  *size = got;
  return text;
}

// One line read the historical way: characters up to a line feed (not
// stored) go to `put`. Returns false when the end of the file, a read error
// or a byte 0xFF comes first.
template <class Put>
bool ReadLineInto(std::FILE* stream, Put&& put) {
  for (;;) {
    const int c = kt::io::GetChar(stream);
    if (c == '\n') return true;
    // Intended: 0xFF read into a signed char equals EOF and ends the copy.
    if (c == EOF || c == 0xFF) return false;
    if (!put(static_cast<char>(c))) return false;
  }
}

// The writer's line: 256 characters in place, grown through KT_Allouer for
// longer lines so that nothing is cut.
class LineBuffer {
 public:
  LineBuffer() = default;
  ~LineBuffer() {
    if (data_ != inline_) KT_Liberer(data_);
  }
  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;

  void Clear() { length_ = 0; }
  bool Append(char c) {
    if (length_ + 1 >= capacity_ && !Grow()) return false;
    data_[length_++] = c;
    return true;
  }
  const char* Terminate() {
    data_[length_] = '\0';
    return data_;
  }

 private:
  bool Grow() {
    if (capacity_ > std::numeric_limits<std::uint32_t>::max() / 2) return false;
    const std::size_t capacity = capacity_ * 2;
    char* data = static_cast<char*>(KT_Allouer(static_cast<std::uint32_t>(capacity)));
    if (data == nullptr) return false;
    std::memcpy(data, data_, length_);
    if (data_ != inline_) KT_Liberer(data_);
    data_ = data;
    capacity_ = capacity;
    return true;
  }

  char inline_[kLineCapacity] = {};
  char* data_ = inline_;
  std::size_t capacity_ = kLineCapacity;
  std::size_t length_ = 0;
};

// Copies the target into the temporary file line by line, remembering any
// write, read or memory failure: then the temporary is not used.
class IniCopy {
 public:
  IniCopy(std::FILE* in, std::FILE* out) : in_(in), out_(out) {}

  // The next line, or null at the end (the historical read_line rules).
  const char* Next() {
    line_.Clear();
    bool memory_ok = true;
    const bool more = ReadLineInto(in_, [&](char c) { return memory_ok = line_.Append(c); });
    if (!memory_ok) failed_ = true;
    return more ? line_.Terminate() : nullptr;
  }

  template <class... Args>
  void Put(const char* format, Args... args) {
    if (kt::io::Printf(out_, format, args...) < 0) failed_ = true;
  }
  void PutLine(const char* line) { Put("%s\n", line); }

  void CopyRest() {
    while (const char* line = Next()) PutLine(line);
  }

  bool Failed() const { return failed_ || kt::io::Error(in_) || kt::io::Error(out_); }

 private:
  std::FILE* in_;
  std::FILE* out_;
  LineBuffer line_;
  bool failed_ = false;
};

// Whether the line is "[section]" exactly: case and blanks count here,
// unlike in the reader.
bool IsHeader(const char* line, const char* section) {
  const std::size_t length = std::strlen(section);
  return line[0] == '[' && std::strncmp(line + 1, section, length) == 0 &&
         line[length + 1] == ']' && line[length + 2] == '\0';
}

void CopyWithEntry(IniCopy& copy, const char* section, const char* key, const char* value) {
  const char* line;
  while ((line = copy.Next()) != nullptr) {
    copy.PutLine(line);
    if (IsHeader(line, section)) break;
  }
  if (line == nullptr) {
    copy.Put("\n[%s]\n", section);
    copy.Put("%s=%s\n", key, value);
    return;
  }
  const std::size_t key_length = std::strlen(key);
  while ((line = copy.Next()) != nullptr) {
    // Intended: a prefix test, so key "rep" also replaces "repertoire=...".
    if (std::strncmp(line, key, key_length) == 0) {
      copy.Put("%s=%s\n", key, value);
      copy.CopyRest();
      return;
    }
    if (line[0] == '\0') {  // the empty line that ends the section
      copy.Put("%s=%s\n", key, value);
      copy.PutLine("");
      copy.CopyRest();
      return;
    }
    copy.PutLine(line);
  }
  copy.Put("%s=%s\n", key, value);
}

// Flushes, syncs and closes; false when any of it failed.
bool Finish(std::FILE* out) {
  const bool synced = kt::io::Sync(out) == 0;
  return kt::io::Close(out) == 0 && synced;
}

// Copies `from` to `to` byte for byte.
bool CopyFile(const char* from, const char* to) {
  std::FILE* in = kt::io::Open(from, "rb");
  if (in == nullptr) return false;
  std::FILE* out = kt::io::Open(to, "wb");
  if (out == nullptr) {
    (void)kt::io::Close(in);
    return false;
  }
  char block[4096];
  bool ok = true;
  std::size_t n;
  while (ok && (n = kt::io::Read(block, 1, sizeof block, in)) != 0) {
    ok = kt::io::Write(block, 1, n, out) == n;
  }
  ok = ok && !kt::io::Error(in);
  (void)kt::io::Close(in);
  return Finish(out) && ok;
}

// Puts the temporary file in place of the target. The historical writer
// deleted the target and then renamed; a rename over the target replaces it
// atomically, so there is never a moment without it. Across file systems
// (EXDEV) the temporary is first copied beside the target and that copy is
// renamed over it. On failure the target is as it was and the temporary is
// removed.
bool ReplaceTarget(const char* temporary, const char* target) {
  if (kt::io::Rename(temporary, target) == 0) return true;
  bool ok = false;
  if (errno == EXDEV) {
    PathBuffer sibling;
    const int length = std::snprintf(sibling, kPathCapacity, "%s%s", target, kSiblingSuffix);
    if (length >= 0 && static_cast<std::size_t>(length) < kPathCapacity) {
      ok = CopyFile(temporary, sibling) && kt::io::Rename(sibling, target) == 0;
      if (!ok) (void)kt::io::Unlink(sibling);
    }
  }
  (void)kt::io::Unlink(temporary);
  return ok;
}

// Creates the target with its two lines through a copy beside it, renamed
// over it when complete, so that a failure never leaves a half-written
// target behind. The copy lies in the target's own directory, which must be
// writable for the creation anyway: the preferences directory need not be.
bool CreateIniFile(const char* target, const char* section, const char* key,
                   const char* value) {
  PathBuffer sibling;
  const int length = std::snprintf(sibling, kPathCapacity, "%s%s", target, kSiblingSuffix);
  if (length < 0 || static_cast<std::size_t>(length) >= kPathCapacity) return false;
  std::FILE* out = kt::io::Open(sibling, "w");
  if (out == nullptr) return false;
  bool ok = kt::io::Printf(out, "[%s]\n", section) >= 0;
  ok = ok && kt::io::Printf(out, "%s=%s\n", key, value) >= 0;
  ok = Finish(out) && ok && kt::io::Rename(sibling, target) == 0;
  if (!ok) (void)kt::io::Unlink(sibling);
  return ok;
}

// Writers take turns, since they all copy through the one temporary file: a
// mutex orders the threads of this process, and an flock on the lock file
// beside the temporary orders every process that uses the same preferences
// directory. The lock file stays: removing it would let a writer that
// opened it earlier lock a name that no longer leads to it. When it cannot
// be opened or locked (a directory without write rights, a file system
// without flock) the writer goes on under the mutex alone, as it did before
// there was a lock; without write rights the temporary cannot be made
// either, so the write fails as it always did. The lock is not a file the
// writer reads or writes, so it bypasses the stream seam.
std::mutex g_writers;

class WriterTurn {
 public:
  // errno is kept as it was: the writer reads it after its own calls.
  explicit WriterTurn(const char* lock_path) : turn_(g_writers) {
    const int saved = errno;
    descriptor_ = ::open(lock_path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor_ < 0) descriptor_ = ::open(lock_path, O_RDONLY | O_CLOEXEC);
    int locked = -1;
    while (descriptor_ >= 0 && (locked = ::flock(descriptor_, LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (locked != 0) Release();
    errno = saved;
  }
  ~WriterTurn() {
    const int saved = errno;
    Release();
    errno = saved;
  }
  WriterTurn(const WriterTurn&) = delete;
  WriterTurn& operator=(const WriterTurn&) = delete;

 private:
  void Release() {
    if (descriptor_ >= 0) (void)::close(descriptor_);  // closing unlocks
    descriptor_ = -1;
  }

  std::lock_guard<std::mutex> turn_;
  int descriptor_ = -1;
};

}  // namespace
}  // namespace kt::frame

using kt::frame::PathBuffer;

uint32_t vln_GetLine(const char* pcTexte) {
  if (pcTexte == nullptr) return 0;
  uint32_t n = 0;
  while (pcTexte[n] != '\0' && pcTexte[n] != '\n' && pcTexte[n] != '\r') ++n;
  return n;
}

uint32_t vln_GetToken(const char* pcTexte, char cDelimiteur) {
  if (pcTexte == nullptr) return 0;
  for (uint32_t i = 0; pcTexte[i] != '\0' && pcTexte[i] != '\n' && pcTexte[i] != '\r'; ++i) {
    // A delimiter in first place also gives 0: callers cannot tell it from
    // "none", and rely on that.
    if (pcTexte[i] == cDelimiteur) return i;
  }
  return 0;
}

char* vln_uprstr(char* pcTexte) {
  if (pcTexte == nullptr) return nullptr;
  for (char* c = pcTexte; *c != '\0'; ++c) *c = static_cast<char>(kt::frame::Upper(*c));
  return pcTexte;
}

void* vln_GetIniInfo(const char* pcSection, const char* pcCle, void* pDestination, char cType,
                     uint32_t ulTaille, const char* pcFichier) {
  if (pDestination == nullptr) return nullptr;
  PathBuffer path;
  if (pcSection == nullptr || pcCle == nullptr || pcFichier == nullptr ||
      !kt::frame::BuildIniPath(pcFichier, path)) {
    return pDestination;  // as a file that cannot be opened: the default stands
  }
  const int descriptor = kt::io::OpenForReading(path);
  if (descriptor < 0) return pDestination;
  std::uint64_t file_size = 0;
  const bool sized = kt::io::DescriptorSize(descriptor, &file_size) == 0;
  // The block takes size + 1 bytes in a 32-bit count, and the scan adds up
  // to 2 to positions below the size: larger files count as too big to hold.
  if (!sized || file_size > std::numeric_limits<std::uint32_t>::max() - 2) {
    (void)kt::io::CloseDescriptor(descriptor);
    return sized ? pDestination : nullptr;
  }
  auto size = static_cast<std::uint32_t>(file_size);
  char* text = kt::frame::ReadWhole(descriptor, &size);
  (void)kt::io::CloseDescriptor(descriptor);  // read only: nothing to lose
  if (text == nullptr) return pDestination;
  if (const char* value = kt::frame::FindValue(text, size, pcSection, pcCle)) {
    kt::frame::StoreValue(value, pDestination, cType, ulTaille);
  }
  KT_Liberer(text);
  return pDestination;
}

uint32_t GetIniString(const char* pcSection, const char* pcCle, const char* pcDefaut,
                      char* pcBuffer, uint32_t ulTaille, const char* pcFichier) {
  if (pcBuffer == nullptr) return 0;
  const char* fallback = pcDefaut != nullptr ? pcDefaut : "";
  const std::size_t length = std::strlen(fallback);
  if (length > ulTaille) {
    // Cut to size - 1 characters. With size 0 the historical code wrote the
    // terminator before the buffer; here the buffer becomes the empty text.
    const uint32_t kept = ulTaille == 0 ? 0 : ulTaille - 1;
    std::memcpy(pcBuffer, fallback, kept);
    pcBuffer[kept] = '\0';
  } else {
    std::memcpy(pcBuffer, fallback, length + 1);
  }
  // A null result (size query failure) leaves the default: not checked.
  (void)vln_GetIniInfo(pcSection, pcCle, pcBuffer, 's', ulTaille, pcFichier);
  return static_cast<uint32_t>(std::strlen(pcBuffer));
}

int32_t GetIniInt(const char* pcSection, const char* pcCle, int32_t lDefaut,
                  const char* pcFichier) {
  int32_t value = lDefaut;
  (void)vln_GetIniInfo(pcSection, pcCle, &value, 'i', sizeof value, pcFichier);
  return value;
}

uint8_t read_line(FILE* pfFichier, char* pcLigne) {
  if (pfFichier == nullptr || pcLigne == nullptr) return 0;
  std::size_t length = 0;
  const bool line_end = kt::frame::ReadLineInto(pfFichier, [&](char c) {
    if (length + 1 < kt::frame::kLineCapacity) pcLigne[length++] = c;  // the rest is dropped
    return true;
  });
  if (!line_end) return 0;  // intended: the buffer stays unterminated
  pcLigne[length] = '\0';
  return kt::io::EndOfFile(pfFichier) ? 0 : 1;
}

uint8_t WriteIniString(const char* pcSection, const char* pcCle, const char* pcValeur,
                       const char* pcFichier) {
  using namespace kt::frame;
  if (pcSection == nullptr || pcCle == nullptr || pcValeur == nullptr || pcFichier == nullptr) {
    return 0;
  }
  PathBuffer target;
  PathBuffer temporary;
  PathBuffer lock;
  if (!BuildIniPath(pcFichier, target) || !BuildIniPath(kTemporaryName, temporary) ||
      !BuildIniPath(kLockName, lock)) {
    return 0;
  }
  // Copying the temporary file onto itself would empty it, and a file put
  // in place of the lock file would let two writers in at once.
  if (std::strcmp(target, temporary) == 0 || std::strcmp(target, lock) == 0) return 0;
  const WriterTurn turn(lock);

  std::FILE* in = kt::io::Open(target, "r");
  if (in == nullptr) {
    // Only a file that is not there is created: one that exists but cannot
    // be read must not be emptied.
    if (errno != ENOENT) return 0;
    return CreateIniFile(target, pcSection, pcCle, pcValeur) ? 1 : 0;
  }
  std::FILE* out = kt::io::Open(temporary, "w");
  if (out == nullptr) {
    (void)kt::io::Close(in);
    return 0;
  }
  bool ok;
  {
    IniCopy copy(in, out);
    CopyWithEntry(copy, pcSection, pcCle, pcValeur);
    ok = !copy.Failed();
  }
  (void)kt::io::Close(in);  // read only: nothing to lose
  ok = Finish(out) && ok;
  if (!ok) {
    (void)kt::io::Unlink(temporary);
    return 0;
  }
  return ReplaceTarget(temporary, target) ? 1 : 0;
}
