// What the frame's files share with the rest of the library: the stream seam
// through which every stdio call of the library goes, the fault injection
// that tests arm through it, the memory totals and the preferences directory.
// Never included from include/.
#ifndef KT_FRAME_FRAME_INTERNAL_H_
#define KT_FRAME_FRAME_INTERNAL_H_

#include <cstdint>
#include <cstdio>

#include "kt_frame.h"

namespace kt::testing {

// Operations whose failure tests can force. kTell counts as a seek, and so
// does the size query of a descriptor; an injected kRename fails with EXDEV,
// as a rename across file systems does.
enum class Fault : int { kAlloc, kOpen, kRead, kWrite, kSeek, kClose, kRename, kCount };

// Makes the call of kind `fault` that comes after `delay` successful ones
// fail; with `persistent`, every call from then on fails until Disarm.
void ArmFault(Fault fault, int delay, bool persistent = false);
void DisarmFault(Fault fault);
void DisarmAllFaults();
// Number of calls of that kind since the last arming (for fault loops).
int FaultCallsSeen(Fault fault);

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

// True when the next call of this kind is to fail. One load and one test
// when nothing is armed.
bool ShouldFail(testing::Fault fault) noexcept;

// The running total of usable sizes of live KT_Allouer blocks, and its peak.
std::uint32_t AllocatedTotal() noexcept;
std::uint32_t AllocatedPeak() noexcept;

// Directory in which relative configuration file names are taken:
// $KT_PREFERENCES_DIR when set and not empty, else the built-in default.
const char* PreferencesDirectory() noexcept;

// A new block from KT_Allouer holding the first `length` characters of
// `text` and a terminator, or null.
char* CopyText(const char* text, std::size_t length) noexcept;

// Starts of the library not yet matched by a stop.
std::uint16_t LoadCount() noexcept;

}  // namespace kt::frame

// Every stream call of the library goes through here, so that tests can make
// any open, read, write, seek or close fail.
namespace kt::io {

std::FILE* Open(const char* path, const char* mode) noexcept;
// Closes the stream in every case; returns EOF when a failure is injected.
int Close(std::FILE* stream) noexcept;
std::size_t Read(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) noexcept;
std::size_t Write(const void* buffer, std::size_t size, std::size_t count,
                  std::FILE* stream) noexcept;
int Seek(std::FILE* stream, long offset, int origin) noexcept;
long Tell(std::FILE* stream) noexcept;
int GetChar(std::FILE* stream) noexcept;
int PutChar(int c, std::FILE* stream) noexcept;
int Printf(std::FILE* stream, const char* format, ...) noexcept KT_PRINTF(2, 3);
// The stream's error indicator, or an injected read or write failure on it.
bool Error(std::FILE* stream) noexcept;
bool EndOfFile(std::FILE* stream) noexcept;
// Pushes the stream's buffer to the file and the file to the disk, so that a
// rename that follows never publishes a half-written file.
int Sync(std::FILE* stream) noexcept;

// Descriptor input of the configuration reader, and the renames of its
// writer. They fail as the system calls do: -1 with errno set.
int OpenForReading(const char* path) noexcept;                   // Fault::kOpen
int DescriptorSize(int descriptor, std::uint64_t* size) noexcept;  // Fault::kSeek
long ReadDescriptor(int descriptor, void* buffer, std::size_t count) noexcept;  // Fault::kRead
int CloseDescriptor(int descriptor) noexcept;                    // Fault::kClose
int Rename(const char* from, const char* to) noexcept;           // Fault::kRename
int Unlink(const char* path) noexcept;

}  // namespace kt::io

#endif  // KT_FRAME_FRAME_INTERNAL_H_
