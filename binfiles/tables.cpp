// Tables inside binary files: writing a table header and back-patching its
// data size, reading table headers in order and searching one by name.
//
// Table header on file, then (A + B) x 5 bytes of extension entries:
//
//   0   name, 10 bytes as given       18  reserved, 4 bytes, 0
//   10  data size, 4 bytes            22  A, 1 byte, 0
//   14  record count, 4 bytes         23  B, 1 byte, 0
//                                     24  reserved, 1 byte, 0
//
// The data size counts the table's record bytes. It is written as 0 when the
// table is opened and patched when it is closed, at the one pending
// position that all files share.
#include <array>
#include <cstddef>
#include <cstring>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 7;  // dictionary and binary table files
}  // namespace

using namespace kt::traces;

// Callers in C share this record: DO NOT CHANGE its size.
static_assert(sizeof(EnteteTable) == 28, "EnteteTable is 28 bytes");

uint16_t KT_usEcrireEnteteTable(uint16_t usNumFichier, const EnteteTable* psEntete) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  KT_TRACE(kTraceEnter, "KT_usEcrireEnteteTable : usNumFichierBinaire = %d", usNumFichier);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usEcrireEnteteTable : Code retour = 0x%04x", &us};
  FichierBinaire* file = nullptr;
  us = usRechercherFichier(usNumFichier, &file);
  if (us != KT_OK) return us;
  if (!kt::binfiles::InWriteMode(*file)) {
    KT_TRACE(kTraceError, "Le fichier n'est pas en ecriture");
    return us = KT_FAIL(KT_ERR_MODE);
  }
  if (psEntete == nullptr) return us = KT_FAIL(KT_ERR_ARGUMENT);

  us = KT_usEcrireChampFixe(usNumFichier, reinterpret_cast<const uint8_t*>(psEntete->cNom),
                            kt::binfiles::kTableNameWidth);
  if (us == KT_OK) {
    // A table still open is not closed: its size stays 0 on file (kept).
    const kt::io::Offset position = kt::io::Tell(file->pfFichier);
    if (position < 0) {
      us = KT_FAIL(KT_ERR_FICHIER);
    } else {
      kt::binfiles::SetPendingTablePosition(position);
    }
  }
  if (us == KT_OK) us = KT_usEcrireUnsignedLong(usNumFichier, 0);  // size, patched at close
  if (us == KT_OK) us = KT_usEcrireUnsignedLong(usNumFichier, psEntete->ulNbEnregistrements);
  if (us == KT_OK) us = KT_usEcrireUnsignedLong(usNumFichier, 0);
  for (int i = 0; i < 3 && us == KT_OK; ++i) us = KT_usEcrireUnsignedChar(usNumFichier, 0);
  // From here the counter counts the table's records, whatever happened.
  file->ulCompteurOctets = 0;
  return us;
}

uint16_t KT_usEcrireTaille(uint16_t usNumFichier) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  // The entry trace names the header writer (kept as it is).
  KT_TRACE(kTraceEnter, "KT_usEcrireEnteteTable : usNumFichierBinaire = %d", usNumFichier);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usEcrireTaille : Code retour = 0x%04x", &us};
  FichierBinaire* file = nullptr;
  us = usRechercherFichier(usNumFichier, &file);
  if (us != KT_OK) return us;

  const kt::io::Offset pending = kt::binfiles::PendingTablePosition();
  if (!kt::binfiles::InWriteMode(*file)) {
    KT_TRACE(kTraceError, "Le fichier n'est pas en ecriture");
    us = KT_FAIL(KT_ERR_MODE);
  } else if (pending == 0) {
    KT_TRACE(kTraceError, "Pas d'entete de table de cree");
    us = KT_FAIL(KT_ERR_MODE);
  } else if (kt::io::Seek(file->pfFichier, pending, SEEK_SET) != 0) {
    KT_TRACE(kTraceError, "Probleme de positionnement dans le fichier");
    us = KT_FAIL(KT_ERR_FICHIER);
  } else {
    us = KT_usEcrireUnsignedLong(usNumFichier, file->ulCompteurOctets);
    if (us == KT_OK) {
      file->ulCompteurOctets = 0;
      kt::binfiles::SetPendingTablePosition(0);
    }
  }
  // Back to the end whenever the file was found, even after a failure.
  if (kt::io::Seek(file->pfFichier, 0L, SEEK_END) != 0) {
    KT_TRACE(kTraceError, "Probleme de positionnement dans le fichier");
    if (us == KT_OK) us = KT_FAIL(KT_ERR_FICHIER);
  }
  return us;
}

uint16_t KT_usLireEnteteTable(uint16_t usNumFichier, EnteteTable* psEntete) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  KT_TRACE(kTraceEnter, "KT_usLireEnteteTable : usNumFichierBinaire = %d", usNumFichier);
  uint16_t us = KT_OK;
  // The exit trace names the header writer (kept as it is).
  ExitTrace exit_trace{kTraceSub, "KT_usEcrireEnteteTable : Code retour = 0x%04x", &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, psEntete != nullptr);
  if (us != KT_OK) return us;

  us = KT_usLireChampFixe(usNumFichier, reinterpret_cast<uint8_t*>(psEntete->cNom),
                          kt::binfiles::kTableNameWidth);
  psEntete->cNom[kt::binfiles::kTableNameWidth] = '\0';
  if (us == KT_OK) kt::binfiles::StripTrailingSpaces(psEntete->cNom, kt::binfiles::kTableNameWidth);
  if (us == KT_OK) us = KT_usLireUnsignedLong(usNumFichier, &psEntete->ulTailleDonnees);
  if (us == KT_OK) us = KT_usLireUnsignedLong(usNumFichier, &psEntete->ulNbEnregistrements);
  if (us == KT_OK) us = KT_usLireUnsignedLong(usNumFichier, &psEntete->ulReserve);
  if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, &psEntete->ucNbExtensionsA);
  if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, &psEntete->ucNbExtensionsB);
  if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, &psEntete->ucReserve);
  if (us == KT_OK) {
    const kt::io::Offset extensions =
        (kt::io::Offset{psEntete->ucNbExtensionsA} + psEntete->ucNbExtensionsB) *
        kt::binfiles::kExtensionEntryBytes;
    if (kt::io::Seek(file->pfFichier, extensions, SEEK_CUR) != 0) us = KT_FAIL(KT_ERR_FIN_FICHIER);
  }
  return us;
}

uint16_t KT_usRechercherTable(uint16_t usNumFichier, const char* pcNomTable,
                              EnteteTable* psEntete) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  KT_TRACE(kTraceEnter, "KT_usRechercherTable : usNumFichierBinaire = %d, pcNomTable = %s",
           usNumFichier, kt::binfiles::Text(pcNomTable));
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usRechercherTable : Code retour = 0x%04x", &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pcNomTable != nullptr && psEntete != nullptr);
  if (us != KT_OK) return us;

  uint32_t data_size = 0;
  us = usTailleDonnneeFichierBinaire(usNumFichier, &data_size);
  if (us != KT_OK) return us;
  std::FILE* stream = file->pfFichier;
  const kt::io::Offset start = kt::io::Tell(stream);
  if (start < 0) return us = KT_FAIL(KT_ERR_FIN_FICHIER);

  // Going back to the first table means reading the file header again,
  // into a record of our own.
  std::array<char, KT_TAILLE_ENTETE_FICHIER> file_header{};
  bool wrapped = false;
  bool found = false;
  auto wrap = [&] {
    wrapped = true;
    return usLireEnteteFichierBinaire(usNumFichier, file_header.data());
  };
  while (us == KT_OK && !found) {
    const kt::io::Offset position = kt::io::Tell(stream);
    if (position < 0) {
      us = KT_FAIL(KT_ERR_FIN_FICHIER);
    } else if (wrapped && position >= start) {
      us = KT_FAIL(KT_ERR_FIN);
    } else if (position < static_cast<kt::io::Offset>(data_size)) {
      us = KT_usLireEnteteTable(usNumFichier, psEntete);
      if (us == KT_OK) {
        if (std::strcmp(psEntete->cNom, pcNomTable) == 0) {
          found = true;
        } else if (kt::io::Seek(stream, static_cast<kt::io::Offset>(psEntete->ulTailleDonnees),
                                SEEK_CUR) != 0) {
          us = KT_FAIL(KT_ERR_FIN_FICHIER);
        }
      }
      // An end of file while reading a header is absorbed by the wrap.
      if (!found && kt::io::EndOfFile(stream)) {
        if (!wrapped) {
          us = wrap();
        } else if (position > start) {
          us = KT_FAIL(KT_ERR_FIN);
        }
      }
    } else if (!wrapped) {
      us = wrap();
    } else {
      // Wrapped, yet still past the data and short of the start: nothing is
      // left to read, and the position would never move again.
      us = KT_FAIL(KT_ERR_FIN);
    }
  }
  return us;
}
