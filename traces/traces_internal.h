// What the library's own files need from the trace facility: a cheap test
// of whether the trace file is open, the trace kinds by name, the KT_TRACE
// macro and a guard for exit traces.
#ifndef KT_TRACES_TRACES_INTERNAL_H_
#define KT_TRACES_TRACES_INTERNAL_H_

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "kt_traces.h"

namespace kt::traces {

// The open trace stream; null when tracing is off. Set and cleared under the
// trace mutex; read without it only to skip the work when tracing is off.
extern std::atomic<std::FILE*> g_fichier;

// Tracing is on exactly when the stream is open.
inline bool On() noexcept { return g_fichier.load(std::memory_order_relaxed) != nullptr; }

// The calling thread's nesting depth (for tests).
std::uint8_t Depth() noexcept;

// The six kinds of trace event.
inline constexpr std::uint16_t kTraceBanner = 0;  // time-stamped banner
inline constexpr std::uint16_t kTraceBlock = 1;   // one-line block
inline constexpr std::uint16_t kTraceEnter = 2;   // function entry
inline constexpr std::uint16_t kTraceExit = 3;    // function exit
inline constexpr std::uint16_t kTraceInfo = 4;    // intermediate result
inline constexpr std::uint16_t kTraceError = 5;   // error, shown at any depth

// The module number of every trace of this library.
inline constexpr std::uint16_t kModuleKt = 1;

// Writes the exit trace `format` with the final status when the scope ends,
// so that functions leaving the same way on every path say it once.
class ExitTrace {
 public:
  ExitTrace(std::uint16_t sub_module, const char* format, const std::uint16_t* status) noexcept
      : sub_module_(sub_module), format_(format), status_(status) {}
  ~ExitTrace() {
    if (active_ && On()) KT_TraceEcrire(kModuleKt, sub_module_, kTraceExit, format_, *status_);
  }
  // For paths on which the function leaves without its exit trace.
  void Dismiss() noexcept { active_ = false; }
  ExitTrace(const ExitTrace&) = delete;
  ExitTrace& operator=(const ExitTrace&) = delete;

 private:
  std::uint16_t sub_module_;
  const char* format_;
  const std::uint16_t* status_;
  bool active_ = true;
};

}  // namespace kt::traces

// Traces one event under module 1 and the file's kTraceSub; costs one test
// when tracing is off. Each .cpp declares `constexpr uint16_t kTraceSub` once.
#define KT_TRACE(kind, ...) KT_TRACE_AT(kTraceSub, kind, __VA_ARGS__)

// The same under another sub-module, for the few operations that report
// under an area other than their file's.
#define KT_TRACE_AT(sub_module, kind, ...)                                     \
  do {                                                                       \
    if (::kt::traces::On())                                                  \
      KT_TraceEcrire(::kt::traces::kModuleKt, (sub_module), (kind), __VA_ARGS__); \
  } while (0)

#endif  // KT_TRACES_TRACES_INTERNAL_H_
