// What the files of the binary table files share: the process-wide pending
// table position (owned by slots.cpp with the slot table), the CRC register,
// the packed-decimal codec, and small helpers for modes, texts and traces.
// Never included from include/.
#ifndef KT_BINFILES_BINFILES_INTERNAL_H_
#define KT_BINFILES_BINFILES_INTERNAL_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/locks.h"
#include "frame/support.h"
#include "kt_binfiles.h"
#include "traces/traces_internal.h"

namespace kt::binfiles {

inline constexpr std::uint16_t kFileCount = 100;       // numbers 1 to 100
inline constexpr std::uint32_t kSignatureBytes = 128;  // trailing signature of control type 2
inline constexpr long kCrcFieldBytes = 4;    // the CRC field, not covered by CRC or signature
inline constexpr long kNameFieldOffset = 5;  // the file name field of the header line
inline constexpr std::uint32_t kNameFieldWidth = 12;
inline constexpr std::uint32_t kTableNameWidth = 10;
inline constexpr std::uint32_t kExtensionEntryBytes = 5;
inline constexpr std::uint16_t kTraceSubBinFiles = 7;  // dictionary and binary table files

// The position of the size field of the table being written, 0 when none.
// One for all files of a thread (kept: callers finish one table before
// starting another anywhere); each thread has its own.
std::int64_t PendingTablePosition() noexcept;
void SetPendingTablePosition(std::int64_t position) noexcept;

// The lock of a file number, null for a number outside 1 to 100. Every
// public operation on a number holds it for its whole call.
frame::SlotLock* FileLock(std::uint16_t number) noexcept;

// The record of a number in use, provided the caller's other arguments were
// all given: else the lookup's code, or KT_ERR_ARGUMENT.
inline std::uint16_t FindFile(std::uint16_t number, FichierBinaire** file,
                              bool arguments_given) noexcept {
  const std::uint16_t us = usRechercherFichier(number, file);
  if (us != KT_OK) return us;
  return arguments_given ? KT_OK : KT_FAIL(KT_ERR_ARGUMENT);
}

// A file created for writing and not opened for reading.
inline bool InWriteMode(const FichierBinaire& file) noexcept {
  return file.bEcriture != 0 && file.bLecture != 1;
}

// Texts handed to a "%s" of a trace: null shows as "(null)".
inline const char* Text(const char* text) noexcept { return text != nullptr ? text : "(null)"; }

// Clears the trailing spaces of a text of `length` characters, stopping at
// its start (a field of spaces only becomes empty).
inline void StripTrailingSpaces(char* text, std::size_t length) noexcept {
  while (length > 0 && text[length - 1] == ' ') text[--length] = '\0';
}

// The register of the file CRC: a reflected CRC with polynomial 0x1021
// (0x8408 reflected), each byte shifted in at the top of the register, and
// no closing zero bytes. That register equals the standard table-driven
// (CRC-16/KERMIT) register over the data delayed by two bytes, XORed with the
// two bytes still in flight, which is how Update computes it (crc16.cpp).
class Crc16 {
 public:
  void Update(const std::uint8_t* bytes, std::size_t count) noexcept;
  // The low 16 bits of the register with their two bytes swapped.
  std::uint16_t Value() const noexcept {
    const std::uint32_t r = kermit_ ^ in_flight_;
    return static_cast<std::uint16_t>(((r >> 8) & 0xFFU) | ((r & 0xFFU) << 8));
  }

 private:
  std::uint16_t kermit_ = 0;     // over all bytes but the last two
  std::uint16_t in_flight_ = 0;  // the last two bytes, the latest on top
};

// The 8-byte packed-decimal form of a double. False (nothing written) for
// more than 14 integer digits, an infinity or a NaN.
using PackedDecimal = std::array<std::uint8_t, 8>;
bool PackDecimal(double value, PackedDecimal& packed) noexcept;
double UnpackDecimal(const PackedDecimal& packed) noexcept;

// Entry and exit traces of an operation on a file number: "<name> :
// usNumFichier = %u" on entry and "<name> : Code retour = 0x%04x" with the
// final status on exit.
class CallTrace {
 public:
  CallTrace(const char* name, std::uint16_t number, const std::uint16_t* status) noexcept
      : name_(name), status_(status) {
    if (traces::On()) {
      KT_TraceEcrire(traces::kModuleKt, kTraceSubBinFiles, traces::kTraceEnter,
                     "%s : usNumFichier = %u", name, number);
    }
  }
  ~CallTrace() {
    if (traces::On()) {
      KT_TraceEcrire(traces::kModuleKt, kTraceSubBinFiles, traces::kTraceExit,
                     "%s : Code retour = 0x%04x", name_, *status_);
    }
  }
  CallTrace(const CallTrace&) = delete;
  CallTrace& operator=(const CallTrace&) = delete;

 private:
  const char* name_;
  const std::uint16_t* status_;
};

}  // namespace kt::binfiles

#endif  // KT_BINFILES_BINFILES_INTERNAL_H_
