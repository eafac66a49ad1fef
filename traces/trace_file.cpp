// The trace file: activation, opening and closing, and the writing of trace
// events with their indentation and braces.
//
// Layout of a trace at level 2 (two blanks per depth step):
//
//     ### DEBUT TRACE ###
//     { KT_usInitLIB
//       { IAInitialisation
//         intermediate line
//         ERREUR : text
//         exit line
//       }
//       exit line
//     }
//
// The trace stream deliberately bypasses the kt::io seam: tests that force
// stream failures must not see them consumed by trace lines.
//
// Threads. Every event is written whole under g_trace_mutex, so lines of
// different threads never run together. The depth belongs to each thread:
// its lines are indented by its own nesting, as a lone caller's always were.
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "frame/frame_internal.h"
#include "frame/support.h"
#include "traces/trace_table.h"

namespace kt::traces {

std::atomic<std::FILE*> g_fichier{nullptr};  // fichier: the open trace stream

namespace {

thread_local std::uint8_t t_indentation = 0;  // this thread's nesting depth (wraps as 8 bits)

// Level 1 pairs are traced while the depth is at most this.
constexpr std::uint8_t kMaxLevelOneDepth = 7;

// The helpers below run under g_trace_mutex with the stream open.
std::FILE* Stream() { return g_fichier.load(std::memory_order_relaxed); }
void Put(const char* text) { std::fputs(text, Stream()); }

void DepthUp() { ++t_indentation; }
void DepthDown() {
  if (t_indentation > 0) --t_indentation;
}

void LineStart() {
  for (unsigned i = 0; i < t_indentation; ++i) Put("  ");
}
void LineEnd() {
  Put("\n");
  std::fflush(Stream());
}
void FunctionStart() {
  LineStart();
  Put("{ ");
  DepthUp();
}
void FunctionEnd() {
  LineEnd();
  DepthDown();
  LineStart();
  Put("}");
  LineEnd();
}

// KT_usFermerTrace.
std::uint16_t Close() {
  int result = 0;
  // Callers close only an open file; without one there is nothing to write.
  if (std::FILE* stream = Stream(); stream != nullptr) {
    std::fputs("### FIN TRACE ###\n\n", stream);
    result = std::fclose(stream);
  }
  g_fichier.store(nullptr, std::memory_order_relaxed);
  ClearPairs();
  t_indentation = 0;
  return result == 0 ? KT_OK : KT_FAIL(static_cast<std::uint16_t>(result));
}

void Reset() {
  const std::lock_guard lock{g_trace_mutex};
  if (std::FILE* stream = Stream(); stream != nullptr) std::fclose(stream);
  g_fichier.store(nullptr, std::memory_order_relaxed);
  t_indentation = 0;
  ClearPairs();
}

// One event of KT_TraceEcrire2, under the mutex with the stream open.
void WriteEvent(std::uint16_t module, std::uint16_t sub_module, std::uint16_t type,
                const char* format, va_list arguments) {
  std::FILE* const stream = Stream();
  if (type == kTraceBanner) {
    const std::time_t now = std::time(nullptr);
    char stamp[64];  // ends with its own newline
    Put("\n");
    if (ctime_r(&now, stamp) != nullptr) Put(stamp);
    std::vfprintf(stream, format, arguments);
    LineEnd();
    return;
  }

  const TracePair* pair = FindPair(module, sub_module);
  if (pair == nullptr) return;
  const bool allowed = pair->level == 2 || (pair->level == 1 && t_indentation <= kMaxLevelOneDepth);
  // A level-1 pair below the depth limit still moves the depth, so that the
  // depth stays right when its calls come back up.
  const bool too_deep = !allowed && pair->level == 1;

  switch (type) {
    case kTraceBlock:
      if (!allowed) return;
      FunctionStart();
      std::vfprintf(stream, format, arguments);
      FunctionEnd();
      return;
    case kTraceEnter:
      if (allowed) {
        FunctionStart();
        std::vfprintf(stream, format, arguments);
        LineEnd();
      } else if (too_deep) {
        DepthUp();
      }
      return;
    case kTraceExit:
      if (allowed) {
        LineStart();
        std::vfprintf(stream, format, arguments);
        FunctionEnd();
      } else if (too_deep) {
        DepthDown();
      }
      return;
    case kTraceInfo:
      if (!allowed) return;
      LineStart();
      std::vfprintf(stream, format, arguments);
      LineEnd();
      return;
    default:  // kTraceError: shown at any level and any depth
      LineStart();
      Put("ERREUR : ");
      std::vfprintf(stream, format, arguments);
      LineEnd();
      return;
  }
}

// Runs one of the piecewise line helpers for a public caller.
template <void (*Step)()>
void Locked() {
  if (!On()) return;
  const std::lock_guard lock{g_trace_mutex};
  if (On()) Step();
}

}  // namespace

std::uint8_t Depth() noexcept { return t_indentation; }

}  // namespace kt::traces

void kt::testing::ResetTraces() noexcept { kt::traces::Reset(); }

using kt::traces::g_fichier;
using kt::traces::g_trace_mutex;

uint16_t KT_usActiverTrace(const char* pcChemin, const char* pcMode, uint16_t usModule,
                           uint16_t usSousModule, uint8_t ucNiveau) {
  if (ucNiveau > 2) ucNiveau = 2;
  const std::lock_guard lock{g_trace_mutex};
  if (!kt::traces::On() && ucNiveau != 0) {
    std::FILE* stream = nullptr;
    const uint16_t us = KT_usOuvrirTrace(pcChemin, pcMode, &stream);
    if (us != KT_OK) return us;
    g_fichier.store(stream, std::memory_order_relaxed);
    kt::traces::ClearPairs();
  }
  if (ucNiveau != 0) return kt::traces::AddPair(usModule, usSousModule, ucNiveau);
  // Level 0 stops the whole trace, not the one pair.
  if (kt::traces::On()) return kt::traces::Close();
  return KT_OK;
}

// Touches only the caller's stream pointer: no lock.
uint16_t KT_usOuvrirTrace(const char* pcChemin, const char* pcMode, FILE** ppfFichier) {
  if (ppfFichier == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  if (*ppfFichier != nullptr) return KT_OK;
  if (pcChemin == nullptr || pcChemin[0] == '\0' || pcMode == nullptr) {
    return KT_FAIL(KT_ERR_ARGUMENT);
  }
  const char* mode = nullptr;
  if (std::strcmp(pcMode, "w") == 0 || std::strcmp(pcMode, "wb") == 0) {
    mode = "w";
  } else if (std::strcmp(pcMode, "a") == 0 || std::strcmp(pcMode, "ab") == 0) {
    mode = "a";
  } else {
    return KT_FAIL(KT_ERR_ARGUMENT);
  }
  std::FILE* stream = std::fopen(pcChemin, mode);
  if (stream == nullptr) return KT_FAIL(KT_ERR_TRACE_OUVERTURE);
  std::fputs("### DEBUT TRACE ###\n", stream);
  std::fflush(stream);
  *ppfFichier = stream;
  return KT_OK;
}

uint16_t KT_usFermerTrace(void) {
  const std::lock_guard lock{g_trace_mutex};
  return kt::traces::Close();
}

uint8_t KT_bTraceActive(void) { return kt::traces::On() ? 1 : 0; }

// The four piecewise helpers each write whole under the lock; a line that a
// caller assembles from several of them may meet other threads' lines.
void KT_TraceDebutLigne(void) { kt::traces::Locked<kt::traces::LineStart>(); }
void KT_TraceFinLigne(void) { kt::traces::Locked<kt::traces::LineEnd>(); }
void KT_TraceDebutFonction(void) { kt::traces::Locked<kt::traces::FunctionStart>(); }
void KT_TraceFinFonction(void) { kt::traces::Locked<kt::traces::FunctionEnd>(); }

void KT_TraceEcrire(uint16_t usModule, uint16_t usSousModule, uint16_t usType,
                    const char* pcFormat, ...) {
  if (!kt::traces::On()) return;
  va_list arguments;
  va_start(arguments, pcFormat);
  KT_TraceEcrire2(usModule, usSousModule, usType, pcFormat, arguments);
  va_end(arguments);
}

void KT_TraceEcrire2(uint16_t usModule, uint16_t usSousModule, uint16_t usType,
                     const char* pcFormat, va_list arguments) {
  using namespace kt::traces;
  if (!On() || usType > kTraceError || pcFormat == nullptr) return;
  const std::lock_guard lock{g_trace_mutex};
  if (On()) WriteEvent(usModule, usSousModule, usType, pcFormat, arguments);
}

void KT_TraceEcrireBinaire(uint16_t usModule, uint16_t usSousModule, const char* pcLibelle,
                           const uint8_t* pucOctets, uint16_t usNombre) {
  using namespace kt::traces;
  if (!On() || pucOctets == nullptr) return;
  const std::lock_guard lock{g_trace_mutex};
  if (!On()) return;
  const TracePair* pair = FindPair(usModule, usSousModule);
  if (pair == nullptr || pair->level != 2) return;
  for (int i = 0; i < usNombre; ++i) {
    LineStart();
    std::fprintf(Stream(), "%s[%d] = 0x%02x", pcLibelle != nullptr ? pcLibelle : "", i,
                 static_cast<unsigned>(pucOctets[i]));
    LineEnd();
  }
}
