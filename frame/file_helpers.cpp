// Small file helpers used by start-up and the version files: stream length,
// path joining, open, close, block read, version file names, time stamps.
#include <cstring>
#include <ctime>

#include "frame/frame_internal.h"
#include "frame/support.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 4;  // working directory, version files, file helpers
}  // namespace

using namespace kt::traces;

uint16_t KT_usLongueurFichier(FILE* pfFichier, uint32_t* pulLongueur) {
  if (pfFichier == nullptr || pulLongueur == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  const kt::io::Offset position = kt::io::Tell(pfFichier);
  if (position == -1L) return KT_FAIL(KT_ERR_FICHIER);
  // A seek where the stream stands leaves it as the seek to the end and back
  // did: its output written, its end-of-file mark and pushed-back characters
  // gone. The end of a regular file is then its size, which costs neither
  // the two seeks nor the reads that refill the buffer after each.
  if (kt::io::Seek(pfFichier, 0L, SEEK_CUR) != 0) return KT_FAIL(KT_ERR_FICHIER);
  std::uint64_t size = 0;
  const int sized = kt::io::StreamFileSize(pfFichier, &size);
  if (sized == 0) {
    *pulLongueur = static_cast<uint32_t>(size);
    return KT_OK;
  }
  if (sized < 0) {
    *pulLongueur = 0xFFFFFFFFU;  // what a failed position query at the end stores
    return KT_FAIL(KT_ERR_FICHIER);
  }
  // Devices and other files whose size says nothing of their end.
  if (kt::io::Seek(pfFichier, 0L, SEEK_END) != 0) return KT_FAIL(KT_ERR_FICHIER);
  const kt::io::Offset end = kt::io::Tell(pfFichier);
  *pulLongueur = static_cast<uint32_t>(end);  // stored before the check, as callers expect
  if (end == -1L) return KT_FAIL(KT_ERR_FICHIER);
  // 0 on success; a failed seek back gives 0xFFFF, which callers treat as an error.
  return static_cast<uint16_t>(kt::io::Seek(pfFichier, position, SEEK_SET));
}

uint16_t KT_usCreerNomCompletFichier(const char* pcRepertoire, const char* pcNom,
                                     char** ppcNomComplet) {
  if (pcRepertoire == nullptr || pcNom == nullptr || ppcNomComplet == nullptr) {
    return KT_FAIL(KT_ERR_ARGUMENT);
  }
  // Sized from the texts rather than a fixed 258-character buffer: the same
  // result for every path that fitted there, and no overflow beyond.
  const std::size_t length = std::strlen(pcRepertoire) + 1 + std::strlen(pcNom);
  char* full = static_cast<char*>(KT_Allouer(static_cast<uint32_t>(length + 1)));
  *ppcNomComplet = full;
  if (full == nullptr) return KT_FAIL(KT_ERR_MEMOIRE);
  std::snprintf(full, length + 1, "%s%c%s", pcRepertoire, '/', pcNom);
  return KT_OK;
}

uint16_t usOuvrirFichier(const char* pcChemin, const char* pcMode, FILE** ppfFichier) {
  KT_TRACE(kTraceEnter, "usOuvrirFichier");
  uint16_t us = KT_OK;
  KT_TRACE(kTraceInfo, "Fichier : %s mode ouverture %s", pcChemin != nullptr ? pcChemin : "",
           pcMode != nullptr ? pcMode : "");
  if (ppfFichier == nullptr || pcChemin == nullptr || pcMode == nullptr) {
    us = KT_FAIL(KT_ERR_ARGUMENT);
  } else {
    *ppfFichier = kt::io::Open(pcChemin, pcMode);
    if (*ppfFichier == nullptr) {
      KT_TRACE(kTraceError, " Probleme ouverture fichier");
      us = KT_FAIL(KT_ERR_FICHIER);
    }
  }
  KT_TRACE(kTraceExit, "usOuvrirFichier");
  return us;
}

uint16_t usFermerFichier(FILE* pfFichier) {
  KT_TRACE(kTraceEnter, "usFermerFichier");
  uint16_t us = KT_OK;
  if (pfFichier == nullptr || kt::io::Close(pfFichier) != 0) us = KT_FAIL(KT_ERR_FICHIER);
  KT_TRACE(kTraceExit, "usFermerFichier");
  return us;
}

uint16_t usLireBufferFichier(FILE* pfFichier, void* pBuffer, uint16_t* pusNombre) {
  KT_TRACE(kTraceEnter, "usLireBufferFichier");
  uint16_t us = KT_OK;
  if (pfFichier == nullptr || pBuffer == nullptr || pusNombre == nullptr) {
    us = KT_FAIL(KT_ERR_ARGUMENT);
  } else {
    const std::size_t read = kt::io::Read(pBuffer, 1, *pusNombre, pfFichier);
    *pusNombre = static_cast<uint16_t>(read);
    // A short read at end of file is no error; only the error indicator is.
    if (kt::io::Error(pfFichier)) us = KT_FAIL(KT_ERR_FICHIER);
  }
  KT_TRACE(kTraceExit, "usLireBufferFichier");
  return us;
}

uint16_t usConstruireNomComplet(int8_t cComposant, char** ppcNom) {
  // Both traces carry the block reader's name: traces of the two look alike.
  KT_TRACE(kTraceEnter, "usLireBufferFichier");
  constexpr std::size_t kNameBlock = 8;
  char* name = static_cast<char*>(KT_Allouer(kNameBlock));
  if (name != nullptr) {
    // The historical format "%00i.adm" has a zero flag without width, which
    // changes nothing. The block holds "-99.adm" at most; the names of
    // components -100 to -128 are cut to 7 characters rather than overflow.
    char text[16] = {};
    std::snprintf(text, sizeof text, "%i.adm", static_cast<int>(cComposant));
    std::memcpy(name, text, kNameBlock - 1);
    name[kNameBlock - 1] = '\0';
  }
  if (ppcNom != nullptr) {
    *ppcNom = name;
  } else {
    KT_Liberer(name);
  }
  KT_TRACE(kTraceExit, "usLireBufferFichier");
  return KT_OK;
}

uint32_t donneDateHeure(char* pcBuffer, uint32_t* pulTaille, const char* pcFormat) {
  if (pcBuffer == nullptr || pulTaille == nullptr || pcFormat == nullptr) return 0;
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::size_t written = 0;
  if (localtime_r(&now, &local) != nullptr && *pulTaille != 0) {
    written = std::strftime(pcBuffer, *pulTaille, pcFormat, &local);
  }
  *pulTaille = static_cast<uint32_t>(written);
  return *pulTaille;
}

namespace kt::frame {

char* CopyText(const char* text, std::size_t length, kt::SourceSite site) noexcept {
  char* copy = static_cast<char*>(Allocate(static_cast<std::uint32_t>(length + 1), site));
  if (copy != nullptr) {
    std::memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

}  // namespace kt::frame
