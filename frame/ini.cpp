// The traced entry points to configuration files: reading a text or a
// number and writing a text, in a named ini file or in the suite's shared
// "volen.ini". The readers leave their defaults when anything is missing.
#include "frame/frame_internal.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 5;  // configuration, start-up, memory
constexpr const char* kVolen = "volen.ini";
}  // namespace

using namespace kt::traces;

uint32_t KT_ulLireChaineIni(const char* pcSection, const char* pcCle, char* pcBuffer,
                            uint32_t ulTaille, const char* pcFichier) {
  KT_TRACE(kTraceEnter, "KT_ulLireChaineIni");
  uint32_t length = 0;
  if (pcSection != nullptr && pcCle != nullptr && ulTaille != 0) {
    length = GetIniString(pcSection, pcCle, "", pcBuffer, ulTaille, pcFichier);
  }
  KT_TRACE(kTraceInfo, "KT_ulLireChaineIni / Longueur =0x%04x", static_cast<unsigned>(length));
  KT_TRACE(kTraceExit, "KT_ulLireChaineIni");
  return length;
}

int32_t KT_lLireLongIni(const char* pcSection, const char* pcCle, const char* pcFichier) {
  KT_TRACE(kTraceEnter, "KT_lLireLongIni");
  int32_t value = -1;
  if (pcSection != nullptr) value = GetIniInt(pcSection, pcCle, -1, pcFichier);
  KT_TRACE(kTraceInfo, "KT_lLireLongIni / lRetour =0x%04x", static_cast<unsigned>(value));
  KT_TRACE(kTraceExit, "KT_lLireLongIni");
  return value;
}

uint8_t KT_bEcrireChaineIni(const char* pcSection, const char* pcCle, const char* pcValeur,
                            const char* pcFichier) {
  KT_TRACE(kTraceEnter, "KT_bEcrireChaineIni");
  const uint8_t written = WriteIniString(pcSection, pcCle, pcValeur, pcFichier) != 0 ? 1 : 0;
  KT_TRACE(kTraceInfo, "KT_bEcrireChaineIni / bRetour =0x%04x", static_cast<unsigned>(written));
  KT_TRACE(kTraceExit, "KT_bEcrireChaineIni");
  return written;
}

uint32_t KT_ulLireChaineVolen(const char* pcSection, const char* pcCle, char* pcBuffer,
                              uint32_t ulTaille) {
  KT_TRACE(kTraceEnter, "KT_ulLireChaineVolen");
  uint32_t length = 0;
  if (pcSection != nullptr && pcCle != nullptr && ulTaille != 0) {
    length = KT_ulLireChaineIni(pcSection, pcCle, pcBuffer, ulTaille, kVolen);
  }
  KT_TRACE(kTraceInfo, "KT_ulLireChaineVolen / Longueur =0x%04x", static_cast<unsigned>(length));
  KT_TRACE(kTraceExit, "KT_ulLireChaineVolen");
  return length;
}

int32_t KT_lLireLongVolen(const char* pcSection, const char* pcCle) {
  KT_TRACE(kTraceEnter, "KT_lLireLongVolen");
  int32_t value = -1;
  if (pcSection != nullptr) value = KT_lLireLongIni(pcSection, pcCle, kVolen);
  KT_TRACE(kTraceInfo, "KT_lLireLongVolen / lRetour =0x%04x", static_cast<unsigned>(value));
  KT_TRACE(kTraceExit, "KT_lLireLongVolen");
  return value;
}

uint8_t KT_bEcrireChaineVolen(const char* pcSection, const char* pcCle, const char* pcValeur) {
  KT_TRACE(kTraceEnter, "KT_bEcrireChaineVolen");
  const uint8_t written = KT_bEcrireChaineIni(pcSection, pcCle, pcValeur, kVolen);
  KT_TRACE(kTraceInfo, "KT_bEcrireChaineVolen / bRetour =0x%04x", static_cast<unsigned>(written));
  KT_TRACE(kTraceExit, "KT_bEcrireChaineVolen");
  return written;
}
