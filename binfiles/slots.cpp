// File slots: the process-wide table of the 100 binary file numbers, and the
// life of a file behind a number: creation, opening with its checks, closing
// with its table size, CRC or signature, raw positioning and block reads.
//
// Entry k - 1 of the table stands for number k. An entry is empty (null),
// reserved (the mark, between the reservation and the filling done by a
// create or an open), or points to the file's record. The lowest empty entry
// is always taken first. The pending table position lives here too: one for
// all files of a thread.
//
// Threads. Each number has its own lock, held by every public operation on
// that number for its whole call (FileLock), so that calls on one file are
// serialised and calls on different files run side by side. Entries are
// atomic: a reservation claims the lowest empty entry with a
// compare-and-swap, without a table lock. The pending table position belongs
// to the thread that wrote the table header, whose next close writes it.
//
// The record and its two texts come from KT_Allouer but go back with the
// plain free, so their sizes stay in the allocator's running total (kept:
// the accounting of existing deployments shows it).
#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"
#include "frame/locks.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 7;  // dictionary and binary table files
}  // namespace

namespace kt::binfiles {
namespace {

// Only its address is used: it stands for the reserved mark.
FichierBinaire g_reserved_mark{};

std::array<std::atomic<FichierBinaire*>, kFileCount> g_fichiers{};  // fichiers: the slot table
frame::SlotLocks<kFileCount> g_locks;                     // entry k - 1 for number k
std::atomic<bool> g_initialise{false};                    // the table has been cleared
std::mutex g_initialise_mutex;                            // the first clearing of the table
thread_local kt::io::Offset t_position_taille_table = 0;  // lPositionTailleTable

FichierBinaire* Entry(std::uint16_t number) {
  return g_fichiers[number - 1].load(std::memory_order_acquire);
}
void SetEntry(std::uint16_t number, FichierBinaire* entry) {
  g_fichiers[number - 1].store(entry, std::memory_order_release);
}

bool IsReserved(const FichierBinaire* entry) { return entry == &g_reserved_mark; }

void FreeRecord(FichierBinaire* record) {
  if (record == nullptr) return;
  std::free(record->pcRepertoire);
  std::free(record->pcNomFichier);
  std::free(record);
}

char* CopyText(const char* text) {
  const std::size_t length = std::strlen(text);
  char* copy = static_cast<char*>(KT_Allouer(static_cast<std::uint32_t>(length + 1)));
  if (copy != nullptr) std::memcpy(copy, text, length + 1);
  return copy;
}

// A new record with copies of the directory and the name, or null when any
// of the three blocks could not be allocated.
FichierBinaire* NewRecord(const char* directory, const char* name, std::uint16_t control,
                          bool for_writing) {
  auto* record = static_cast<FichierBinaire*>(KT_Allouer(sizeof(FichierBinaire)));
  if (record == nullptr) return nullptr;
  *record = FichierBinaire{};
  record->pcRepertoire = CopyText(directory);
  record->pcNomFichier = CopyText(name);
  if (record->pcRepertoire == nullptr || record->pcNomFichier == nullptr) {
    FreeRecord(record);
    return nullptr;
  }
  record->usTypeControle = control;
  record->ulCompteurOctets = 0;
  record->bEcriture = for_writing ? 1 : 0;
  record->bLecture = for_writing ? 0 : 1;
  return record;
}

// Undoes a create or open that failed before its record was stored.
void DropReservation(std::uint16_t number, FichierBinaire* record, std::uint16_t* number_out) {
  // Number 100 stays reserved for good: the test is strict (kept). Number 0
  // means nothing was reserved, and the request then touches nothing.
  if (number < kFileCount) (void)usRenseignerFichierTableau(number, nullptr);
  // Opening the stream is the last step that can fail: none is open here.
  assert(record == nullptr || record->pfFichier == nullptr);
  FreeRecord(record);
  *number_out = 0;
}

void Reset() {
  for (std::uint16_t number = 1; number <= kFileCount; ++number) {
    std::atomic<FichierBinaire*>& slot = g_fichiers[number - 1];
    FichierBinaire* entry = slot.load(std::memory_order_relaxed);
    // Through the slot's release, so that the stream is closed by the seam.
    if (entry != nullptr && !IsReserved(entry)) (void)usLibererFichier(number);
    slot.store(nullptr, std::memory_order_relaxed);
  }
  g_initialise.store(false, std::memory_order_relaxed);
  t_position_taille_table = 0;
}

}  // namespace

kt::io::Offset PendingTablePosition() noexcept { return t_position_taille_table; }
void SetPendingTablePosition(kt::io::Offset position) noexcept {
  t_position_taille_table = position;
}

frame::SlotLock* FileLock(std::uint16_t number) noexcept {
  return number == 0 ? nullptr : g_locks.At(number - 1U);
}

}  // namespace kt::binfiles

void kt::testing::ResetFileSlots() noexcept { kt::binfiles::Reset(); }

using kt::binfiles::g_fichiers;
using kt::binfiles::Text;
using namespace kt::traces;

uint16_t usInitialiserTableauFichiers(void) {
  using kt::binfiles::g_initialise;
  if (g_initialise.load(std::memory_order_acquire)) return KT_OK;
  // Two first calls at once must not clear a number the other just took.
  const std::lock_guard lock{kt::binfiles::g_initialise_mutex};
  if (!g_initialise.load(std::memory_order_relaxed)) {
    for (auto& slot : g_fichiers) slot.store(nullptr, std::memory_order_relaxed);
    g_initialise.store(true, std::memory_order_release);
  }
  return KT_OK;
}

uint16_t usRechercherNumeroFichier(uint16_t* pusNumFichier) {
  if (pusNumFichier == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  for (std::size_t i = 0; i < g_fichiers.size(); ++i) {
    FichierBinaire* empty = nullptr;
    if (g_fichiers[i].compare_exchange_strong(empty, &kt::binfiles::g_reserved_mark,
                                              std::memory_order_acq_rel)) {
      *pusNumFichier = static_cast<uint16_t>(i + 1);
      KT_TRACE(kTraceInfo, "numero de fichier =%hu\n", *pusNumFichier);
      return KT_OK;
    }
  }
  KT_TRACE(kTraceError, "plus de fichier disponible.");
  return KT_FAIL(KT_ERR_PLUS_DE_FICHIER);
}

uint16_t usRenseignerFichierTableau(uint16_t usNumFichier, FichierBinaire* psFichier) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  if (usNumFichier == 0 || usNumFichier > kt::binfiles::kFileCount) {
    return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  }
  kt::binfiles::SetEntry(usNumFichier, psFichier);
  return KT_OK;
}

uint16_t usRechercherFichier(uint16_t usNumFichier, FichierBinaire** ppsFichier) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  if (usNumFichier == 0 || usNumFichier > kt::binfiles::kFileCount) {
    KT_TRACE(kTraceError, "usRechercherFichier : numero de fichier invalide");
    return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  }
  FichierBinaire* entry = kt::binfiles::Entry(usNumFichier);
  // A slot reserved by a create or open that did not finish has no record.
  if (entry == nullptr || kt::binfiles::IsReserved(entry)) {
    KT_TRACE(kTraceError, "usRechercherFichier : fichier non reserve");
    return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  }
  if (ppsFichier != nullptr) *ppsFichier = entry;
  return KT_OK;
}

uint16_t usLibererFichier(uint16_t usNumFichier) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  FichierBinaire* file = nullptr;
  const uint16_t us = usRechercherFichier(usNumFichier, &file);
  if (us != KT_OK) return us;
  // A caller that releases the slot without closing the file (start-up does)
  // would otherwise lose the stream with its descriptor.
  if (file->pfFichier != nullptr) (void)kt::io::Close(file->pfFichier);
  kt::binfiles::FreeRecord(file);
  kt::binfiles::SetEntry(usNumFichier, nullptr);
  return KT_OK;
}

uint16_t usTailleDonnneeFichierBinaire(uint16_t usNumFichier, uint32_t* pulTaille) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  if (usNumFichier == 0 || usNumFichier > kt::binfiles::kFileCount) {
    KT_TRACE(kTraceError, "usTailleDonnneeFichierBinaire : numero de fichier invalide");
    return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  }
  const FichierBinaire* file = kt::binfiles::Entry(usNumFichier);
  if (file == nullptr || kt::binfiles::IsReserved(file)) {
    KT_TRACE(kTraceError, "usTailleDonnneeFichierBinaire : fichier non reserve");
    return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  }
  if (pulTaille == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  uint32_t length = 0;
  if (KT_usLongueurFichier(file->pfFichier, &length) != KT_OK) return KT_FAIL(KT_ERR_FICHIER);
  // Every type but 1 keeps the last 128 bytes out of the data, type 0
  // included (intended); a shorter file wraps round as an unsigned value.
  *pulTaille =
      file->usTypeControle == KT_CONTROLE_CRC ? length : length - kt::binfiles::kSignatureBytes;
  return KT_OK;
}

uint16_t KT_usCreerFichierBinaire(const char* pcRepertoire, const char* pcNomFichier,
                                  uint16_t usTypeControle, const char* pcEntete,
                                  uint16_t* pusNumFichier) {
  KT_TRACE(kTraceEnter,
           "KT_usCreerFichierBinaire : pcRepertoire = %s, pcNomFichier = %s, usTypeControle = %d",
           Text(pcRepertoire), Text(pcNomFichier), usTypeControle);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usCreerFichierBinaire : Code retour = 0x%04x", &us};
  if (pusNumFichier != nullptr) *pusNumFichier = 0;
  if (pcRepertoire == nullptr || pcNomFichier == nullptr || pcEntete == nullptr) {
    KT_TRACE(kTraceError,
             "KT_usCreerFichierBinaire : Nom de repertoire ou nom de fichier nul ou pointeur sur "
             "l'entete du fichier nul.");
    return us = KT_FAIL(KT_ERR_ARGUMENT);
  }
  if (pusNumFichier == nullptr) {
    KT_TRACE(kTraceError, "KT_usCreerFichierBinaire : pointeur numero de fichier binaire nul.");
    return us = KT_FAIL(KT_ERR_POINTEUR_NUL);
  }

  uint16_t number = 0;
  FichierBinaire* record = nullptr;
  char* path = nullptr;
  kt::frame::SlotGuard guard;  // the new number's, from its reservation on
  (void)usInitialiserTableauFichiers();
  us = usRechercherNumeroFichier(&number);
  if (us == KT_OK) {
    guard.Acquire(kt::binfiles::FileLock(number));
    record = kt::binfiles::NewRecord(pcRepertoire, pcNomFichier, usTypeControle, true);
    if (record == nullptr) {
      KT_TRACE(kTraceError,
               "KT_usCreerFichierBinaire : ERREUR : probleme d'allocation memoire : "
               "psFichier->pcRepertoire ou psFichier->pcNomFichier");
      us = KT_FAIL(KT_ERR_MEMOIRE);
    }
  }
  if (us == KT_OK) us = KT_usCreerNomCompletFichier(pcRepertoire, pcNomFichier, &path);
  if (us == KT_OK) {
    KT_TRACE(kTraceInfo, "Ouverture du fichier %s\n", path);
    record->pfFichier = kt::io::Open(path, "wb+");
    if (record->pfFichier == nullptr) {
      KT_TRACE(kTraceError,
               "KT_usCreerFichierBinaire : ERREUR : Probleme d'ouverture du fichier %s, %s", path,
               std::strerror(errno));
      us = KT_FAIL(KT_ERR_FICHIER);
    }
  }
  if (us != KT_OK) {
    kt::binfiles::DropReservation(number, record, pusNumFichier);
  } else {
    (void)usRenseignerFichierTableau(number, record);
    *pusNumFichier = number;
    // A failed header write keeps the slot: the caller still closes the file.
    us = usEcrireEnteteFichierBinaire(number, pcEntete);
  }
  KT_Liberer(path);
  return us;
}

uint16_t KT_usInitialiserFichierBinaire(const char* pcRepertoire, const char* pcNomFichier,
                                        uint16_t usTypeControle, uint16_t* pusNumFichier,
                                        char* pcEntete) {
  KT_TRACE(kTraceEnter,
           "KT_usInitialiserFichierBinaire : pcRepertoire = %s, pcNomFichier =%s, "
           "usTypeControle = %d\n",
           Text(pcRepertoire), Text(pcNomFichier), usTypeControle);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usInitialiserFichierBinaire : Code retour = 0x%04x", &us};
  // The two argument messages carry the create operation's name (kept).
  if (pcRepertoire == nullptr || pcNomFichier == nullptr) {
    KT_TRACE(kTraceError, "KT_usCreerFichierBinaire : Nom de repertoire ou nom de fichier nul.");
    return us = KT_FAIL(KT_ERR_ARGUMENT);
  }
  if (pusNumFichier == nullptr || pcEntete == nullptr) {
    KT_TRACE(kTraceError,
             "KT_usCreerFichierBinaire : pointeur numero de fichier binaire ou pointeur entete du "
             "fichier nul.");
    return us = KT_FAIL(KT_ERR_POINTEUR_NUL);
  }

  uint16_t number = 0;
  FichierBinaire* record = nullptr;
  char* path = nullptr;
  kt::frame::SlotGuard guard;  // the new number's, from its reservation on
  us = KT_usCreerNomCompletFichier(pcRepertoire, pcNomFichier, &path);
  if (us == KT_OK) {
    (void)usInitialiserTableauFichiers();
    us = usRechercherNumeroFichier(&number);
    if (us == KT_OK) guard.Acquire(kt::binfiles::FileLock(number));
  }
  if (us == KT_OK) {
    record = kt::binfiles::NewRecord(pcRepertoire, pcNomFichier, usTypeControle, false);
    if (record == nullptr) {
      KT_TRACE(kTraceError,
               "KT_usCreerFichierBinaire : Probleme d'allocation memoire : psFichier->pcRepertoire "
               "ou psFichier->pcNomFichier");
      us = KT_FAIL(KT_ERR_MEMOIRE);
    }
  }
  if (us == KT_OK) {
    record->pfFichier = kt::io::Open(path, "rb");
    KT_TRACE(kTraceInfo, "Ouverture du fichier %s", path);
    if (record->pfFichier == nullptr) {
      KT_TRACE(kTraceError, "KT_usCreerFichierBinaire : Probleme d'ouverture du fichier %s, %s",
               path, std::strerror(errno));
      us = KT_FAIL(KT_ERR_FICHIER);
    }
  }
  if (us != KT_OK) {
    kt::binfiles::DropReservation(number, record, pusNumFichier);
    KT_Liberer(path);
    return us;
  }

  // From here on the file keeps its number whatever happens: the caller
  // closes it.
  (void)usRenseignerFichierTableau(number, record);
  *pusNumFichier = number;
  us = KT_usLongueurFichierBinaire(number, &record->ulCompteurOctets);
  if (us == KT_OK) us = usLireEnteteFichierBinaire(number, pcEntete);
  if (us == KT_OK && std::strcmp(pcEntete + KT_ENTETE_NOM, pcNomFichier) != 0) {
    us = KT_FAIL(KT_ERR_NOM_FICHIER);
  }
  if (us == KT_OK && usTypeControle == KT_CONTROLE_CRC) {
    uint16_t stored = 0;
    uint16_t computed = 0;
    us = usLireCRC(number, &stored);
    if (us == KT_OK) us = usCalculerCRC16(record->pfFichier, &computed);
    if (us == KT_OK && stored != computed) us = KT_FAIL(KT_ERR_CONTROLE);
  }
  if (us == KT_OK && usTypeControle == KT_CONTROLE_SIGNATURE &&
      KT_usVerifierSignatureFichier(number) != KT_OK) {
    us = KT_FAIL(KT_ERR_CONTROLE);
  }
  KT_Liberer(path);
  return us;
}

uint16_t KT_usLibererFichierBinaire(uint16_t usNumFichier, const char* pcClePrivee) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  KT_TRACE(kTraceEnter, "KT_usLibererFichierBinaire : usNumFichier = %u", usNumFichier);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usLibererFichierBinaire : Code retour = 0x%04x", &us};
  FichierBinaire* file = nullptr;
  us = usRechercherFichier(usNumFichier, &file);
  if (us != KT_OK) return us;

  if (file->bEcriture == 1 && file->bLecture == 0) {
    // The pending table may have been opened on another file: its size is
    // written into this one all the same (kept: the position is global).
    if (kt::binfiles::PendingTablePosition() != 0) us = KT_usEcrireTaille(usNumFichier);
    if (us == KT_OK && file->usTypeControle == KT_CONTROLE_CRC) {
      uint16_t crc = 0;
      us = usCalculerCRC16(file->pfFichier, &crc);
      if (us == KT_OK) us = usEcrireCRC(file->pfFichier, crc);
    }
    if (us == KT_OK && file->usTypeControle == KT_CONTROLE_SIGNATURE) {
      us = KT_usEcrireSignatureFichier(usNumFichier, pcClePrivee);
    }
  }
  if (file->pfFichier != nullptr) {
    KT_TRACE(kTraceInfo, "Fermeture du fichier");
    const int closed = kt::io::Close(file->pfFichier);
    file->pfFichier = nullptr;
    if (closed != 0) {
      KT_TRACE(kTraceError, "Probleme lors de la fermeture du fichier: %s", std::strerror(errno));
      if (us == KT_OK) us = KT_FAIL(KT_ERR_FICHIER);
    }
  }
  (void)usLibererFichier(usNumFichier);
  return us;
}

uint16_t KT_usLongueurFichierBinaire(uint16_t usNumFichier, uint32_t* pulLongueur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  kt::binfiles::CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  // Every failure, an unknown number included, is a file failure here.
  if (pulLongueur == nullptr || usRechercherFichier(usNumFichier, &file) != KT_OK ||
      KT_usLongueurFichier(file->pfFichier, pulLongueur) != KT_OK) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  return us;
}

uint16_t KT_usPositionnerOffset(uint16_t usNumFichier, int32_t lOffset, int iOrigine) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  kt::binfiles::CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  if (usRechercherFichier(usNumFichier, &file) != KT_OK ||
      kt::io::Seek(file->pfFichier, lOffset, iOrigine) != 0) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  return us;
}

uint16_t KT_usLirePositionFichier(uint16_t usNumFichier, int32_t* plPosition) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  kt::binfiles::CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  if (plPosition == nullptr || usRechercherFichier(usNumFichier, &file) != KT_OK) {
    return us = KT_FAIL(KT_ERR_FICHIER);
  }
  const kt::io::Offset position = kt::io::Tell(file->pfFichier);
  if (position < 0) return us = KT_FAIL(KT_ERR_FICHIER);
  *plPosition = static_cast<int32_t>(position);
  return us;
}

uint16_t KT_usLireFichierBinaire(uint16_t usNumFichier, uint32_t ulOffset, uint32_t ulTaille,
                                 uint8_t** ppucBuffer) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  kt::binfiles::CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  if (ppucBuffer == nullptr || usRechercherFichier(usNumFichier, &file) != KT_OK) {
    return us = KT_FAIL(KT_ERR_FICHIER);
  }
  *ppucBuffer = nullptr;
  const kt::io::Offset saved = kt::io::Tell(file->pfFichier);
  if (saved < 0) return us = KT_FAIL(KT_ERR_FICHIER);

  if (kt::io::Seek(file->pfFichier, static_cast<kt::io::Offset>(ulOffset), SEEK_SET) != 0) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  if (us == KT_OK) {
    auto* block = static_cast<uint8_t*>(KT_Allouer(ulTaille));
    if (block == nullptr) {
      us = KT_FAIL(KT_ERR_FICHIER);
    } else {
      // A short read leaves known bytes, not whatever the allocator held.
      std::memset(block, 0, ulTaille);
      *ppucBuffer = block;
      if (KT_usLireChampFixe(usNumFichier, block, ulTaille) != KT_OK) us = KT_FAIL(KT_ERR_FICHIER);
    }
  }
  // The seek back decides the result, also after a failed allocation or
  // read (kept: callers check the buffer).
  us = kt::io::Seek(file->pfFichier, saved, SEEK_SET) == 0 ? KT_OK : KT_FAIL(KT_ERR_FICHIER);
  return us;
}
