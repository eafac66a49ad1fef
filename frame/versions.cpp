// Component version files: each component of the suite leaves its version,
// as the bare text, in "<number>.adm" in the working directory named by
// "repertoiretravail" of section "commun" of "volen.ini".
#include <cstring>

#include "frame/frame_internal.h"
#include "frame/support.h"
#include "traces/traces_internal.h"

namespace {

constexpr std::uint16_t kTraceSub = 4;         // working directory, version files
constexpr std::uint16_t kTraceSubStartup = 5;  // the allocation message is start-up's

using namespace kt::traces;

constexpr std::uint32_t kDirectoryBlock = 256;
// Appended to a version file's name for the temporary that replaces it.
constexpr char kTemporarySuffix = '~';
// The reader writes its terminator one past the size it is given, so the
// 256-byte block is offered as 255 characters.
constexpr std::uint32_t kDirectoryChars = kDirectoryBlock - 1;

// The working directory as a new text, or null with the status of the
// directory query (traced by the caller).
std::uint16_t WorkingDirectoryCopy(char** copy) {
  char* directory = nullptr;
  std::uint16_t us = KT_usDonnerRepertoireTravail(&directory);
  *copy = nullptr;
  if (us == KT_OK) {
    *copy = kt::frame::CopyText(directory, std::strlen(directory));
    if (*copy == nullptr) us = KT_FAIL(KT_ERR_MEMOIRE);
  }
  KT_Liberer(directory);
  return us;
}

// The trace texts that tell the writer's steps from the reader's.
struct VersionFileTexts {
  const char* name;   // after usConstruireNomComplet
  const char* join;   // after KT_usCreerNomCompletFichier
  const char* error;  // when joining or opening fails
};

// Names the version file of `component` in `directory` and opens it with
// `mode`; the status is that of the first failing step. With `path`, the
// stream is a temporary file beside it ("<name>~"): the version file's full
// name is handed out in *path and the temporary's in *temporary.
std::uint16_t OpenVersionFile(std::int8_t component, const char* directory, const char* mode,
                              const VersionFileTexts& texts, FILE** stream,
                              char** path = nullptr, char** temporary = nullptr) {
  char* name = nullptr;
  char* full_name = nullptr;
  char* opened = nullptr;
  std::uint16_t us = usConstruireNomComplet(component, &name);
  KT_TRACE(kTraceInfo, texts.name, us);
  us = KT_usCreerNomCompletFichier(directory, name != nullptr ? name : "", &full_name);
  KT_TRACE(kTraceInfo, texts.join, us);
  if (us == KT_OK && path != nullptr) {
    const std::size_t length = std::strlen(full_name);
    opened = kt::frame::CopyText(full_name, length + 1);
    if (opened == nullptr) {
      us = KT_FAIL(KT_ERR_MEMOIRE);
    } else {
      opened[length] = kTemporarySuffix;
    }
  }
  if (us == KT_OK) us = usOuvrirFichier(opened != nullptr ? opened : full_name, mode, stream);
  if (us != KT_OK) KT_TRACE(kTraceError, texts.error, us);
  if (path != nullptr && us == KT_OK) {
    *path = full_name;
    *temporary = opened;
    full_name = opened = nullptr;
  }
  KT_Liberer(opened);
  KT_Liberer(full_name);
  KT_Liberer(name);
  return us;
}

// Writes the text into the open temporary and renames it over the version
// file `path`; on any failure the temporary goes and the version file stays
// as it was.
std::uint16_t PublishVersion(FILE* stream, const char* text, const char* temporary,
                             const char* path) {
  const bool written = kt::io::Printf(stream, "%s", text) >= 0;
  const bool closed = usFermerFichier(stream) == KT_OK;
  if (written && closed && kt::io::Rename(temporary, path) == 0) return KT_OK;
  (void)kt::io::Unlink(temporary);
  return KT_FAIL(KT_ERR_FICHIER);
}

}  // namespace

uint16_t KT_usDonnerRepertoireTravail(char** ppcRepertoire) {
  KT_TRACE(kTraceEnter, "KT_usDonnerRepertoireTravail");
  uint16_t us = KT_OK;
  char* directory = static_cast<char*>(KT_Allouer(kDirectoryBlock));
  if (ppcRepertoire != nullptr) *ppcRepertoire = directory;
  if (directory == nullptr) {
    // The start-up's text, kept as is.
    KT_TRACE_AT(kTraceSubStartup, kTraceError, "IAInitialisation probleme allocation memoire");
    us = KT_FAIL(KT_ERR_BUFFER_TRAVAIL);
  } else {
    directory[0] = '\0';
    if (KT_ulLireChaineIni("commun", "repertoiretravail", directory, kDirectoryChars,
                           "volen.ini") == 0) {
      KT_TRACE(kTraceError, "ERREUR du repertoire de travail  (%u)",
               static_cast<unsigned>(KT_ERR_REP_TRAVAIL));
      us = KT_FAIL(KT_ERR_REP_TRAVAIL);
    }
    // Handed out even when the key is missing: the caller frees it.
    if (ppcRepertoire == nullptr) KT_Liberer(directory);
  }
  KT_TRACE(kTraceExit, "KT_usDonnerRepertoireTravail");
  return us;
}

uint16_t KT_usEcrireVersionComposant(int8_t cComposant, const char* pcVersion,
                                     uint32_t ulLongueur) {
  (void)ulLongueur;  // the text is written up to its terminator
  KT_TRACE(kTraceEnter, "KT_usEcrireVersionComposant");
  char* directory = nullptr;
  uint16_t us = KT_usDonnerRepertoireTravail(&directory);
  KT_TRACE(kTraceInfo, "KT_usDonnerRepertoireTravail /  usRetour =0x%04x", us);
  char* directory_copy = nullptr;
  if (us == KT_ERR_REP_TRAVAIL) {
    KT_TRACE(kTraceInfo, "Retour de recherche du repertoire de travail =(%u)", us);
  } else if (us == KT_OK) {
    directory_copy = kt::frame::CopyText(directory, std::strlen(directory));
    if (directory_copy == nullptr) us = KT_FAIL(KT_ERR_MEMOIRE);
    KT_TRACE(kTraceInfo, "Repertoire Travail OK");
  }
  KT_TRACE(kTraceInfo, "ECRITURE DES COMPOSANTS Retour de recherche du repertoire de travail =(%u)",
           us);
  KT_Liberer(directory);

  FILE* stream = nullptr;
  char* path = nullptr;
  char* temporary = nullptr;
  if (us == KT_OK) {
    constexpr VersionFileTexts kTexts = {
        "ECRITURE DES COMPOSANTS: usConstruireNomComplet =0x%04x",
        " ECRITURE DES COMPOSANTS KT_usCreerNomCompletFichier =0x%04x",
        "ECRITURE DES COMPOSANTS Retour ERREUR =(%u)"};
    if (OpenVersionFile(cComposant, directory_copy, "wb", kTexts, &stream, &path, &temporary) !=
        KT_OK) {
      us = KT_FAIL(KT_ERR_FICHIER_VERSION);
    }
  }
  if (stream != nullptr) {
    // A failed write counts as a failed close: the file would be incomplete.
    us = PublishVersion(stream, pcVersion != nullptr ? pcVersion : "", temporary, path);
    if (us != KT_OK) KT_TRACE(kTraceError, "Retour ERREUR =(%u)", us);
  }
  KT_Liberer(temporary);
  KT_Liberer(path);
  KT_Liberer(directory_copy);
  KT_TRACE(kTraceInfo, "Resultat fin fonction =(%u)", us);
  KT_TRACE(kTraceExit, "KT_usEcrireVersionComposant");
  return us;
}

uint16_t KT_usLireVersionComposant(int8_t cComposant, char** ppcContenu, uint32_t* pulLongueur) {
  KT_TRACE(kTraceEnter, "KT_usLireVersionComposant");
  char* directory = nullptr;
  uint16_t us = WorkingDirectoryCopy(&directory);
  if (us == KT_ERR_REP_TRAVAIL) {
    KT_TRACE(kTraceError, "LECTURE DES COMPOSANTS Erreur sur le repertoire de travail =(%u)", us);
  }

  FILE* stream = nullptr;
  if (us == KT_OK) {
    constexpr VersionFileTexts kTexts = {
        "LECTURE DES COMPOSANTS: usConstruireNomComplet =0x%04x",
        "LECTURE DES COMPOSANTS KT_usCreerNomCompletFichier =0x%04x",
        "LECTURE DES COMPOSANTS Retour ERREUR =(%u)"};
    // Unlike the writer, the failure is returned as it came.
    us = OpenVersionFile(cComposant, directory, "r", kTexts, &stream);
    KT_TRACE(kTraceInfo, "Retour =(%u)", us);
  }

  if (stream != nullptr) {
    std::uint32_t length = 0;
    (void)KT_usLongueurFichier(stream, &length);  // result not used here
    // The block reader counts in 16 bits: version files are a few bytes.
    auto count = static_cast<std::uint16_t>(length);
    char* block = static_cast<char*>(KT_Allouer(count));
    if (block == nullptr) {
      us = KT_FAIL(KT_ERR_MEMOIRE);
    } else {
      us = usLireBufferFichier(stream, block, &count);
    }
    if (us == KT_OK) {
      char* content = static_cast<char*>(KT_Allouer(count));
      if (content == nullptr) {
        us = KT_FAIL(KT_ERR_MEMOIRE);
      } else {
        if (count != 0) std::memcpy(content, block, count);
        if (ppcContenu != nullptr) *ppcContenu = content; else KT_Liberer(content);
        if (pulLongueur != nullptr) *pulLongueur = count;
      }
    }
    KT_Liberer(block);
    KT_TRACE(kTraceInfo, "Retour =(%u)", us);
  }

  KT_Liberer(directory);
  if (stream != nullptr) {
    // The close result becomes the result when all went well; after a failed
    // read the stream is closed all the same, keeping the read's status.
    const std::uint16_t closed = usFermerFichier(stream);
    if (us == KT_OK) us = closed;
  }
  KT_TRACE(kTraceInfo, "KT_usLireVersionComposant =(%u)", us);
  KT_TRACE(kTraceExit, "KT_usLireVersionComposant");
  return us;
}
