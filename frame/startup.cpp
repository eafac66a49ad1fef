// Start-up and shut-down of the library. The first KT_usInitLIB of the
// process reads the directories from "volen.ini", opens "tablebin.vkt" with
// its CRC check, compares its versions with the library's, loads the three
// dictionary tables, writes the component version files of the library (92)
// and of the tables file (93) and hands both version texts out; later calls
// only count. The last KT_usTermLIB releases the dictionary.
#include <cstring>
#include <initializer_list>

#include "frame/frame_internal.h"
#include "frame/locks.h"
#include "frame/support.h"
#include "kt_binfiles.h"
#include "kt_dictionary.h"
#include "traces/traces_internal.h"

namespace {

constexpr std::uint16_t kTraceSub = 5;  // configuration, start-up, memory

using namespace kt::traces;

// The library's own version, compared with the tables file's header.
constexpr char kVersionKT[] = "0100";
constexpr char kTablesFile[] = "tablebin.vkt";
constexpr std::uint16_t kControleCrc = 1;
constexpr std::int8_t kComposantKT = 92;
constexpr std::int8_t kComposantTables = 93;

// The header record's version of the file and the lowest library version
// that may read it, four digits each, terminated.
constexpr std::size_t kHeaderVersion = KT_ENTETE_VERSION;
constexpr std::size_t kHeaderRequiredVersion = KT_ENTETE_VERSION_REQUISE;
constexpr std::uint32_t kHeaderBlock = KT_TAILLE_ENTETE_FICHIER;
constexpr std::uint32_t kWorkBlock = 256;
constexpr std::uint32_t kWorkChars = kWorkBlock - 1;  // the reader terminates one past its size
constexpr std::uint32_t kTableNameBlock = 10;

std::uint16_t nbre_chargt_module = 0;  // starts not yet matched by a stop

// Blocks a start keeps for good: the directory copies and the two header
// blocks are not released after the start.
char* g_repertoire_travail = nullptr;
char* g_repertoire_tables = nullptr;
EnteteTable* g_entete_table = nullptr;
char* g_entete_fichier = nullptr;

// n = n * 10 + (c - '0') over four characters, digits not validated.
std::uint16_t VersionNumber(const char* text) {
  std::uint16_t n = 0;
  for (int i = 0; i < 4; ++i) n = static_cast<std::uint16_t>(n * 10 + (text[i] - '0'));
  return n;
}

std::uint16_t LoadTable(std::uint16_t file, const EnteteTable& header, const char* name) {
  if (std::strcmp(name, "TGROUPE") == 0) {
    return usInitTabGroupe(file, header.ulTailleDonnees, header.ulNbEnregistrements);
  }
  if (std::strcmp(name, "TCHAMP") == 0) {
    return usInitTabChamp(file, header.ulTailleDonnees, header.ulNbEnregistrements);
  }
  if (std::strcmp(name, "TVALEUR") == 0) {
    return usInitTabValeur(file, header.ulTailleDonnees, header.ulNbEnregistrements);
  }
  return KT_FAIL(KT_ERR_FIN_FICHIER);
}

// Releases a kept block and forgets it.
template <typename Block>
void Forget(Block*& block) {
  KT_Liberer(block);
  block = nullptr;
}

// The two results of a start: the main status is fatal, the secondary one
// only a warning; and the number of the tables file while it is open.
struct Start {
  std::uint16_t main = KT_OK;
  std::uint16_t secondary = KT_OK;
  std::uint16_t file = 0;
};

// Reads one directory of section "commun" through the working buffer and
// keeps a copy of it; false when it is missing or empty. A copy that cannot
// be allocated fails the start, so no start ever runs on a directory read
// by an earlier one.
bool ReadDirectory(Start& start, char* work, const char* key, const char* length_trace,
                   char*& kept) {
  work[0] = '\0';
  const std::uint32_t length = KT_ulLireChaineVolen("commun", key, work, kWorkChars);
  KT_TRACE(kTraceInfo, length_trace, length);
  if (length == 0) return false;
  kept = kt::frame::CopyText(work, length);
  if (kept == nullptr) start.main = KT_FAIL(KT_ERR_MEMOIRE);
  return true;
}

// Steps 2 to 4: the working directory, then the tables directory. The
// directories in force are those read now, even when this start fails.
void ReadDirectories(Start& start) {
  Forget(g_repertoire_travail);
  Forget(g_repertoire_tables);
  char* work = static_cast<char*>(KT_Allouer(kWorkBlock));
  if (work == nullptr) {
    KT_TRACE(kTraceError, "IAInitialisation probleme allocation memoire");
    start.main = KT_FAIL(KT_ERR_BUFFER_TRAVAIL);
    return;
  }
  if (ReadDirectory(start, work, "repertoiretravail",
                    "REPERTOIRE TRAVAIL :KT_ulLireChaineVolen:usLongueur=0x%04x",
                    g_repertoire_travail)) {
    KT_TRACE(kTraceInfo, "recuperation du repertoire de travail OK");
  } else {
    start.secondary = KT_ERR_REP_TRAVAIL;
    KT_TRACE(kTraceError, "erreur de lecture du repertoire de travail / usResultatSP = 0x%04x",
             start.secondary);
  }
  if (ReadDirectory(start, work, "repertoiretable",
                    "REPERTOIRE TABLES:KT_ulLireChaineVolen:usLongueur=0x%04x",
                    g_repertoire_tables)) {
    KT_TRACE(kTraceInfo, "recuperation du repertoire des tables externes OK");
  } else {
    start.main = KT_FAIL(KT_ERR_REP_TABLES);
    KT_TRACE(kTraceError,
             "erreur de lecture du repertoire des tables externes / usResultat=0x%04x",
             start.main);
  }
  KT_Liberer(work);
}

// Step 5: the two header blocks, then the tables file with its CRC check.
void OpenTablesFile(Start& start) {
  Forget(g_entete_table);
  Forget(g_entete_fichier);
  g_entete_table = static_cast<EnteteTable*>(KT_Allouer(sizeof(EnteteTable)));
  g_entete_fichier = static_cast<char*>(KT_Allouer(kHeaderBlock));
  if (g_entete_table == nullptr || g_entete_fichier == nullptr) {
    start.main = KT_FAIL(KT_ERR_MEMOIRE);
    return;
  }
  std::memset(g_entete_fichier, 0, kHeaderBlock);
  start.main = KT_usInitialiserFichierBinaire(g_repertoire_tables, kTablesFile, kControleCrc,
                                              &start.file, g_entete_fichier);
  KT_TRACE(kTraceInfo,
           "KT_usInitialiserFichierBinaire:initialisation des tables externes / usResultat=0x%04x",
           start.main);
}

// Step 6: the library's one version against both header fields; true when
// the tables file fits.
bool VersionsFit(Start& start) {
  const std::uint16_t a = VersionNumber(kVersionKT);
  const std::uint16_t b = VersionNumber(g_entete_fichier + kHeaderVersion);
  const std::uint16_t c = VersionNumber(kVersionKT);
  const std::uint16_t d = VersionNumber(g_entete_fichier + kHeaderRequiredVersion);
  if (a > b || c < d) start.main = KT_FAIL(KT_ERR_VERSION);
  KT_TRACE(kTraceInfo, "controle de numeros de version,usResultat= 0x%04x", start.main);
  return start.main == KT_OK;
}

// Step 7: exactly three tables, in any order.
void LoadTables(Start& start) {
  char* name = static_cast<char*>(KT_Allouer(kTableNameBlock));
  for (int table = 0; table < 3 && start.main == KT_OK; ++table) {
    start.main = KT_usLireEnteteTable(start.file, g_entete_table);
    KT_TRACE(kTraceInfo, "KT_usLireEnteteTable:usResultat= 0x%04x", start.main);
    if (start.main != KT_OK) break;
    // The name block holds 9 characters and the terminator; none of the
    // three names is longer, so a longer name is refused all the same.
    char local[kTableNameBlock];
    char* copy = name != nullptr ? name : local;
    std::strncpy(copy, g_entete_table->cNom, kTableNameBlock - 1);
    copy[kTableNameBlock - 1] = '\0';
    start.main = LoadTable(start.file, *g_entete_table, copy);
  }
  KT_Liberer(name);
}

// Step 8: the component version files. Without a working directory the start
// fails, and the dictionary stays loaded.
void WriteVersionFiles(Start& start) {
  KT_TRACE(kTraceInfo, "ecriture des fichiers .adm composants");
  if (g_repertoire_travail == nullptr || g_repertoire_travail[0] == '\0') {
    start.main = KT_FAIL(KT_ERR_REP_TRAVAIL);
    KT_TRACE(kTraceError, "ecriture des fichiers composants impossible");
    KT_TRACE(kTraceError, "erreur repertoire de travail absent / usResultat=0x%04x", start.main);
    return;
  }
  start.secondary = KT_usEcrireVersionComposant(kComposantKT, kVersionKT, sizeof kVersionKT - 1);
  KT_TRACE(kTraceInfo, "ecriture du fichier .adm, composant KT :usResultat= 0x%04x",
           start.secondary);
  if (start.secondary != KT_OK) return;
  const char* tables_version = g_entete_fichier + kHeaderVersion;
  start.secondary = KT_usEcrireVersionComposant(
      kComposantTables, tables_version, static_cast<uint32_t>(std::strlen(tables_version)));
  KT_TRACE(kTraceInfo, "ecriture du fichier .adm, composant Fichier Tables :usResultat= 0x%04x",
           start.secondary);
}

// Step 9: both version texts for the caller. A start that succeeds hands out
// both blocks, so when either cannot be allocated the start fails with
// KT_ERR_MEMOIRE, hands out nothing and gives back the dictionary and the
// tables file: the library stays stopped.
void HandOutVersions(Start& start, char** version_kt, char** version_tables) {
  char* kt_block = kt::frame::CopyText(kVersionKT, 4);
  KT_TRACE(kTraceInfo, "Sortie : numero de version KT");
  char* tables_block = kt::frame::CopyText(g_entete_fichier + kHeaderVersion, 4);
  KT_TRACE(kTraceInfo, "Sortie : numero de version du Fichier de tables");
  if (kt_block == nullptr || tables_block == nullptr) {
    KT_Liberer(kt_block);
    KT_Liberer(tables_block);
    start.main = KT_FAIL(KT_ERR_MEMOIRE);
    (void)usGTSupprTables();        // result not used here
    (void)usLibererFichier(start.file);  // result not used here
    return;
  }
  if (version_kt != nullptr) *version_kt = kt_block; else KT_Liberer(kt_block);
  if (version_tables != nullptr) *version_tables = tables_block; else KT_Liberer(tables_block);
}

}  // namespace

namespace kt::frame {
std::uint16_t LoadCount() noexcept { return nbre_chargt_module; }
}  // namespace kt::frame

void kt::testing::ResetStartup() noexcept {
  nbre_chargt_module = 0;
  Forget(g_repertoire_travail);
  Forget(g_repertoire_tables);
  Forget(g_entete_fichier);
  Forget(g_entete_table);
}

uint16_t KT_usInitLIB(char** ppcVersionKT, char** ppcVersionTables) {
  const kt::frame::StartupGuard exclusive;  // one start or stop at a time
  KT_TRACE(kTraceEnter, "KT_usInitLIB");
  KT_TRACE(kTraceInfo, "Nombre de modules ayant initialis\xE9 le KT = %u", nbre_chargt_module);
  KT_TRACE(kTraceExit, "KT_usInitLIB");
  return usIAInitialisation(ppcVersionKT, ppcVersionTables);
}

uint16_t usIAInitialisation(char** ppcVersionKT, char** ppcVersionTables) {
  const kt::frame::StartupGuard exclusive;  // one start or stop at a time
  KT_TRACE(kTraceEnter, "IAInitialisation");
  // Step 1: a later start only counts, and writes no exit trace.
  if (nbre_chargt_module != 0) {
    ++nbre_chargt_module;
    return KT_OK;
  }
  Start start;
  ReadDirectories(start);  // steps 2 to 4
  if (start.main == KT_OK) {
    OpenTablesFile(start);  // step 5
    // On a version mismatch the tables file stays open and its blocks
    // allocated, and no exit trace is written.
    if (start.main == KT_OK && !VersionsFit(start)) return start.main;  // step 6
    if (start.main == KT_OK) LoadTables(start);                         // step 7
    if (start.main != KT_OK) {
      KT_TRACE(kTraceError,
               "erreur de chargement des tables : suppression des tables deja chargees");
      (void)usGTSupprTables();  // result not used here
    }
  }
  if (start.main == KT_OK) WriteVersionFiles(start);                              // step 8
  if (start.main == KT_OK) HandOutVersions(start, ppcVersionKT, ppcVersionTables);  // step 9
  // Step 10.
  KT_TRACE(kTraceExit, "IAInitialisation");
  if (start.main == KT_OK) start.main = usLibererFichier(start.file);
  if (start.main == KT_OK) ++nbre_chargt_module;
  // Step 11: a failed version file is reported although the library is started.
  return start.main != KT_OK ? start.main : start.secondary;
}

uint16_t KT_usTermLIB(void) {
  const kt::frame::StartupGuard exclusive;  // one start or stop at a time
  KT_TRACE(kTraceEnter, "KT_usTermLIB");
  // 16 bits: a stop without a start wraps the counter and releases nothing.
  --nbre_chargt_module;
  if (nbre_chargt_module != 0) return KT_OK;  // no exit trace
  KT_TRACE(kTraceInfo, " %u", nbre_chargt_module);
  const std::uint16_t us = usIADecharger();
  KT_TRACE(kTraceExit, "KT_usTermLIB");
  return us;
}

uint16_t usIADecharger(void) {
  const kt::frame::StartupGuard exclusive;  // one start or stop at a time
  KT_TRACE(kTraceEnter, "usIADecharger");
  (void)usGTSupprTables();  // result not used here
  KT_TRACE(kTraceExit, "usIADecharger");
  return KT_OK;
}
