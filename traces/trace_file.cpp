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
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "frame/frame_internal.h"
#include "traces/trace_table.h"

namespace kt::traces {

std::FILE* g_fichier = nullptr;  // fichier: the open trace stream

namespace {

std::uint8_t g_indentation = 0;  // nesting depth shared by all pairs (wraps as 8 bits)

// Level 1 pairs are traced while the depth is at most this.
constexpr std::uint8_t kMaxLevelOneDepth = 7;

void Put(const char* text) { std::fputs(text, g_fichier); }

void DepthUp() { ++g_indentation; }
void DepthDown() {
  if (g_indentation > 0) --g_indentation;
}

void Reset() {
  if (g_fichier != nullptr) std::fclose(g_fichier);
  g_fichier = nullptr;
  g_indentation = 0;
  KT_InitialiserTraces();
}

}  // namespace

std::uint8_t Depth() noexcept { return g_indentation; }

}  // namespace kt::traces

void kt::testing::ResetTraces() noexcept { kt::traces::Reset(); }

using kt::traces::g_fichier;
using kt::traces::g_indentation;

uint16_t KT_usActiverTrace(const char* pcChemin, const char* pcMode, uint16_t usModule,
                           uint16_t usSousModule, uint8_t ucNiveau) {
  if (ucNiveau > 2) ucNiveau = 2;
  if (g_fichier == nullptr && ucNiveau != 0) {
    const uint16_t us = KT_usOuvrirTrace(pcChemin, pcMode, &g_fichier);
    if (us != KT_OK) return us;
    KT_InitialiserTraces();
  }
  if (ucNiveau != 0) return KT_usAjouterTrace(usModule, usSousModule, ucNiveau);
  // Level 0 stops the whole trace, not the one pair.
  if (g_fichier != nullptr) return KT_usFermerTrace();
  return KT_OK;
}

uint16_t KT_usOuvrirTrace(const char* pcChemin, const char* pcMode, FILE** ppfFichier) {
  if (ppfFichier == nullptr) return KT_ERR_ARGUMENT;
  if (*ppfFichier != nullptr) return KT_OK;
  if (pcChemin == nullptr || pcChemin[0] == '\0' || pcMode == nullptr) return KT_ERR_ARGUMENT;
  const char* mode = nullptr;
  if (std::strcmp(pcMode, "w") == 0 || std::strcmp(pcMode, "wb") == 0) {
    mode = "w";
  } else if (std::strcmp(pcMode, "a") == 0 || std::strcmp(pcMode, "ab") == 0) {
    mode = "a";
  } else {
    return KT_ERR_ARGUMENT;
  }
  std::FILE* stream = std::fopen(pcChemin, mode);
  if (stream == nullptr) return KT_ERR_TRACE_OUVERTURE;
  std::fputs("### DEBUT TRACE ###\n", stream);
  std::fflush(stream);
  *ppfFichier = stream;
  return KT_OK;
}

uint16_t KT_usFermerTrace(void) {
  int result = 0;
  // Callers close only an open file; without one there is nothing to write.
  if (g_fichier != nullptr) {
    std::fputs("### FIN TRACE ###\n\n", g_fichier);
    result = std::fclose(g_fichier);
  }
  g_fichier = nullptr;
  KT_InitialiserTraces();
  g_indentation = 0;
  return static_cast<uint16_t>(result);
}

uint8_t KT_bTraceActive(void) { return g_fichier != nullptr ? 1 : 0; }

void KT_TraceDebutLigne(void) {
  if (g_fichier == nullptr) return;
  for (unsigned i = 0; i < g_indentation; ++i) kt::traces::Put("  ");
}

void KT_TraceFinLigne(void) {
  if (g_fichier == nullptr) return;
  kt::traces::Put("\n");
  std::fflush(g_fichier);
}

void KT_TraceDebutFonction(void) {
  if (g_fichier == nullptr) return;
  KT_TraceDebutLigne();
  kt::traces::Put("{ ");
  kt::traces::DepthUp();
}

void KT_TraceFinFonction(void) {
  if (g_fichier == nullptr) return;
  KT_TraceFinLigne();
  kt::traces::DepthDown();
  KT_TraceDebutLigne();
  kt::traces::Put("}");
  KT_TraceFinLigne();
}

void KT_TraceEcrire(uint16_t usModule, uint16_t usSousModule, uint16_t usType,
                    const char* pcFormat, ...) {
  if (g_fichier == nullptr) return;
  va_list arguments;
  va_start(arguments, pcFormat);
  KT_TraceEcrire2(usModule, usSousModule, usType, pcFormat, arguments);
  va_end(arguments);
}

void KT_TraceEcrire2(uint16_t usModule, uint16_t usSousModule, uint16_t usType,
                     const char* pcFormat, va_list arguments) {
  using namespace kt::traces;
  if (g_fichier == nullptr || usType > kTraceError || pcFormat == nullptr) return;

  if (usType == kTraceBanner) {
    const std::time_t now = std::time(nullptr);
    const char* stamp = std::ctime(&now);  // ends with its own newline
    Put("\n");
    if (stamp != nullptr) Put(stamp);
    std::vfprintf(g_fichier, pcFormat, arguments);
    KT_TraceFinLigne();
    return;
  }

  const TracePair* pair = FindPair(usModule, usSousModule);
  if (pair == nullptr) return;
  const bool allowed = pair->level == 2 || (pair->level == 1 && g_indentation <= kMaxLevelOneDepth);
  // A level-1 pair below the depth limit still moves the depth, so that the
  // depth stays right when its calls come back up.
  const bool too_deep = !allowed && pair->level == 1;

  switch (usType) {
    case kTraceBlock:
      if (!allowed) return;
      KT_TraceDebutFonction();
      std::vfprintf(g_fichier, pcFormat, arguments);
      KT_TraceFinFonction();
      return;
    case kTraceEnter:
      if (allowed) {
        KT_TraceDebutFonction();
        std::vfprintf(g_fichier, pcFormat, arguments);
        KT_TraceFinLigne();
      } else if (too_deep) {
        DepthUp();
      }
      return;
    case kTraceExit:
      if (allowed) {
        KT_TraceDebutLigne();
        std::vfprintf(g_fichier, pcFormat, arguments);
        KT_TraceFinFonction();
      } else if (too_deep) {
        DepthDown();
      }
      return;
    case kTraceInfo:
      if (!allowed) return;
      KT_TraceDebutLigne();
      std::vfprintf(g_fichier, pcFormat, arguments);
      KT_TraceFinLigne();
      return;
    default:  // kTraceError: shown at any level and any depth
      KT_TraceDebutLigne();
      Put("ERREUR : ");
      std::vfprintf(g_fichier, pcFormat, arguments);
      KT_TraceFinLigne();
      return;
  }
}

void KT_TraceEcrireBinaire(uint16_t usModule, uint16_t usSousModule, const char* pcLibelle,
                           const uint8_t* pucOctets, uint16_t usNombre) {
  if (g_fichier == nullptr || pucOctets == nullptr) return;
  const kt::traces::TracePair* pair = kt::traces::FindPair(usModule, usSousModule);
  if (pair == nullptr || pair->level != 2) return;
  for (int i = 0; i < usNombre; ++i) {
    KT_TraceDebutLigne();
    std::fprintf(g_fichier, "%s[%d] = 0x%02x", pcLibelle != nullptr ? pcLibelle : "", i,
                 static_cast<unsigned>(pucOctets[i]));
    KT_TraceFinLigne();
  }
}
