// What the frame's files share with the rest of the library: the stream seam
// through which every stdio call of the library but the trace file's goes,
// the fault injection that tests arm through it, the memory totals and the
// preferences directory.
// Never included from include/.
#ifndef KT_FRAME_FRAME_INTERNAL_H_
#define KT_FRAME_FRAME_INTERNAL_H_

#include <cstdint>
#include <cstdio>
#include <version>
#if defined(__cpp_lib_source_location)
#include <source_location>
#endif

#include "kt_frame.h"

namespace kt {

#if defined(__cpp_lib_source_location)
using SourceSite = std::source_location;
#else
// Where the standard library has no std::source_location (libstdc++ 12 under
// Clang 14, the fuzzing build), the same fields come from the builtins it
// is made of; as default arguments they name the caller's line.
class SourceSite {
 public:
  static constexpr SourceSite current(const char* file = __builtin_FILE(),
                                      unsigned line = __builtin_LINE(),
                                      unsigned column = __builtin_COLUMN()) noexcept {
    SourceSite site;
    site.file_ = file;
    site.line_ = line;
    site.column_ = column;
    return site;
  }
  constexpr const char* file_name() const noexcept { return file_; }
  constexpr unsigned line() const noexcept { return line_; }
  constexpr unsigned column() const noexcept { return column_; }

 private:
  const char* file_ = "";
  unsigned line_ = 0;
  unsigned column_ = 0;
};
#endif

}  // namespace kt

namespace kt::testing {

// Operations whose failure tests can force. kTell counts as a seek, and so
// does the size query of a descriptor; an injected kRename fails with EXDEV,
// as a rename across file systems does. kAnyIo stands for every kind but
// kAlloc: arming it fails the n-th stream, descriptor or file-system call,
// whatever its kind.
enum class Fault : int { kAlloc, kOpen, kRead, kWrite, kSeek, kClose, kRename, kUnlink, kAnyIo, kCount };

// Makes the call of kind `fault` that comes after `delay` successful ones
// fail; with `persistent`, every call from then on fails until Disarm.
void ArmFault(Fault fault, int delay, bool persistent = false);
void DisarmFault(Fault fault);
void DisarmAllFaults();
// Number of calls of that kind since the last arming (for fault loops).
int FaultCallsSeen(Fault fault);

// The distinct call sites at which the seam has injected a failure since the
// last ForgetFailedSites: the source location of the library's call to the
// allocator or to a kt::io function. Coverage tests compare them with the
// sites found in the sources.
struct FailedSite {
  const char* file;  // as the compiler named the source file
  int line;
  int column;
  Fault fault;  // the kind of the call that failed
};
int FailedSiteCount();
FailedSite FailedSiteAt(int index);
// The site of the latest injected failure (file null before any).
FailedSite LastFailedSite();
void ForgetFailedSites();

// Streams and descriptors opened through the seam and not yet closed.
int OpenHandles();

// Clears every process-wide table of the library between tests: disarms the
// faults, then resets each subsystem below, in this order.
void ResetAll();
void ResetTraces() noexcept;     // traces/trace_file.cpp
void ResetStartup() noexcept;    // frame/startup.cpp
void ResetFileSlots() noexcept;  // binfiles/slots.cpp
void ResetDictionary() noexcept; // dictionary/tables.cpp
void ResetZones() noexcept;      // zones/zone_table.cpp

}  // namespace kt::testing

namespace kt::frame {

// True when the next call of this kind, made at `site`, is to fail. One load
// and one test when nothing is armed.
bool ShouldFail(testing::Fault fault, const kt::SourceSite& site) noexcept;

// KT_Allouer, with the caller's location for fault injection.
void* Allocate(std::uint32_t size,
               kt::SourceSite site = kt::SourceSite::current()) noexcept;

// The running total of usable sizes of live KT_Allouer blocks, and its peak.
std::uint32_t AllocatedTotal() noexcept;
std::uint32_t AllocatedPeak() noexcept;

// Directory in which relative configuration file names are taken:
// $KT_PREFERENCES_DIR when set and not empty, else the built-in default.
const char* PreferencesDirectory() noexcept;

// A new block from KT_Allouer holding the first `length` characters of
// `text` and a terminator, or null.
char* CopyText(const char* text, std::size_t length,
               kt::SourceSite site = kt::SourceSite::current()) noexcept;

// Starts of the library not yet matched by a stop.
std::uint16_t LoadCount() noexcept;

}  // namespace kt::frame

// Every stream call of the library goes through here, so that tests can make
// any open, read, write, seek or close fail; all but the trace file's. The
// trace file calls stdio directly on purpose: an armed fault must hit the
// n-th call of the operation under test whether tracing is on or off, never
// a trace line, and a trace line must not report a failure the test set up
// for the traced operation. Each function takes the caller's source
// location, which names the call site that a fault hit.
namespace kt::io {

using Site = kt::SourceSite;

std::FILE* Open(const char* path, const char* mode, Site site = Site::current()) noexcept;
// Closes the stream in every case; returns EOF when a failure is injected.
int Close(std::FILE* stream, Site site = Site::current()) noexcept;
std::size_t Read(void* buffer, std::size_t size, std::size_t count, std::FILE* stream,
                 Site site = Site::current()) noexcept;
std::size_t Write(const void* buffer, std::size_t size, std::size_t count, std::FILE* stream,
                  Site site = Site::current()) noexcept;
// Positions are 64-bit on every host (fseeko and ftello over a 64-bit
// off_t): a 32-bit host seeks and tells as far as a 64-bit one.
using Offset = std::int64_t;
int Seek(std::FILE* stream, Offset offset, int origin, Site site = Site::current()) noexcept;
Offset Tell(std::FILE* stream, Site site = Site::current()) noexcept;
int GetChar(std::FILE* stream, Site site = Site::current()) noexcept;
int PutChar(int c, std::FILE* stream, Site site = Site::current()) noexcept;

// A format text with the location of the call that passes it: a variadic
// function cannot take a defaulted parameter after its arguments.
struct Format {
  Format(const char* format_text, Site format_site = Site::current()) noexcept  // NOLINT: implicit
      : text(format_text), site(format_site) {}
  const char* text;
  Site site;
};
int PrintAt(const Site& site, std::FILE* stream, const char* format, ...) noexcept KT_PRINTF(3, 4);
template <class... Args>
int Printf(std::FILE* stream, Format format, Args... args) noexcept {
  return PrintAt(format.site, stream, format.text, args...);
}

// The stream's error indicator, or an injected read or write failure on it.
bool Error(std::FILE* stream) noexcept;
bool EndOfFile(std::FILE* stream) noexcept;
// Pushes the stream's buffer to the file and the file to the disk, so that a
// rename that follows never publishes a half-written file.
int Sync(std::FILE* stream, Site site = Site::current()) noexcept;

// Descriptor input of the configuration reader, and the renames of its
// writer. They fail as the system calls do: -1 with errno set.
int OpenForReading(const char* path, Site site = Site::current()) noexcept;  // Fault::kOpen
int DescriptorSize(int descriptor, std::uint64_t* size,
                   Site site = Site::current()) noexcept;  // Fault::kSeek
// The size of the regular file under a stream, from the file system: 0 with
// the size, 1 when the stream is not on a regular file (*size untouched), -1
// on failure. Output still in the stream's buffer is not counted.
int StreamFileSize(std::FILE* stream, std::uint64_t* size,
                   Site site = Site::current()) noexcept;  // Fault::kSeek
long ReadDescriptor(int descriptor, void* buffer, std::size_t count,
                    Site site = Site::current()) noexcept;                 // Fault::kRead
int CloseDescriptor(int descriptor, Site site = Site::current()) noexcept;  // Fault::kClose
int Rename(const char* from, const char* to, Site site = Site::current()) noexcept;  // kRename
int Unlink(const char* path, Site site = Site::current()) noexcept;                  // kUnlink

// Forgets the stream on which a failure was injected (test reset).
void ResetSeam() noexcept;

}  // namespace kt::io

// Inside the library every allocation names its call site, so that fault
// loops can tell which sites they failed; callers outside get the exported
// function.
#define KT_Allouer(size) ::kt::frame::Allocate(size)

#endif  // KT_FRAME_FRAME_INTERNAL_H_
