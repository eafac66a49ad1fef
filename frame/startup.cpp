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

void Reset() {
  nbre_chargt_module = 0;
  for (char** block : {&g_repertoire_travail, &g_repertoire_tables, &g_entete_fichier}) {
    KT_Liberer(*block);
    *block = nullptr;
  }
  KT_Liberer(g_entete_table);
  g_entete_table = nullptr;
}
[[maybe_unused]] const bool g_registered = kt::testing::RegisterReset(&Reset);

}  // namespace

namespace kt::frame {
std::uint16_t LoadCount() noexcept { return nbre_chargt_module; }
}  // namespace kt::frame

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
  if (nbre_chargt_module != 0) {
    ++nbre_chargt_module;
    return KT_OK;  // only counted, and no exit trace
  }
  std::uint16_t main_status = KT_OK;       // fatal
  std::uint16_t secondary_status = KT_OK;  // warnings

  // Steps 2 to 4: the two directories.
  char* work = static_cast<char*>(KT_Allouer(kWorkBlock));
  if (work == nullptr) {
    KT_TRACE(kTraceError, "IAInitialisation probleme allocation memoire");
    main_status = KT_FAIL(KT_ERR_BUFFER_TRAVAIL);
  } else {
    work[0] = '\0';
    std::uint32_t length = KT_ulLireChaineVolen("commun", "repertoiretravail", work, kWorkChars);
    KT_TRACE(kTraceInfo, "REPERTOIRE TRAVAIL :KT_ulLireChaineVolen:usLongueur=0x%04x", length);
    if (length != 0) {
      g_repertoire_travail = kt::frame::CopyText(work, length);
      KT_TRACE(kTraceInfo, "recuperation du repertoire de travail OK");
    } else {
      secondary_status = KT_ERR_REP_TRAVAIL;
      KT_TRACE(kTraceError, "erreur de lecture du repertoire de travail / usResultatSP = 0x%04x",
               secondary_status);
    }
    work[0] = '\0';
    length = KT_ulLireChaineVolen("commun", "repertoiretable", work, kWorkChars);
    KT_TRACE(kTraceInfo, "REPERTOIRE TABLES:KT_ulLireChaineVolen:usLongueur=0x%04x", length);
    if (length != 0) {
      g_repertoire_tables = kt::frame::CopyText(work, length);
      KT_TRACE(kTraceInfo, "recuperation du repertoire des tables externes OK");
    } else {
      main_status = KT_FAIL(KT_ERR_REP_TABLES);
      KT_TRACE(kTraceError,
               "erreur de lecture du repertoire des tables externes / usResultat=0x%04x",
               main_status);
    }
    KT_Liberer(work);
  }

  // Step 5: open the tables file with its CRC check.
  std::uint16_t file = 0;
  bool tables_step = false;
  if (main_status == KT_OK) {
    tables_step = true;
    g_entete_table = static_cast<EnteteTable*>(KT_Allouer(sizeof(EnteteTable)));
    g_entete_fichier = static_cast<char*>(KT_Allouer(kHeaderBlock));
    if (g_entete_fichier != nullptr) std::memset(g_entete_fichier, 0, kHeaderBlock);
    main_status = KT_usInitialiserFichierBinaire(g_repertoire_tables, kTablesFile, kControleCrc,
                                                 &file, g_entete_fichier);
    KT_TRACE(kTraceInfo,
             "KT_usInitialiserFichierBinaire:initialisation des tables externes / usResultat=0x%04x",
             main_status);

    // Step 6: the library's one version against both header fields.
    if (main_status == KT_OK) {
      const std::uint16_t a = VersionNumber(kVersionKT);
      const std::uint16_t b = VersionNumber(g_entete_fichier + kHeaderVersion);
      const std::uint16_t c = VersionNumber(kVersionKT);
      const std::uint16_t d = VersionNumber(g_entete_fichier + kHeaderRequiredVersion);
      if (a > b || c < d) main_status = KT_FAIL(KT_ERR_VERSION);
      KT_TRACE(kTraceInfo, "controle de numeros de version,usResultat= 0x%04x", main_status);
      // The tables file stays open and its blocks allocated; no exit trace.
      if (main_status != KT_OK) return main_status;
    }

    // Step 7: exactly three tables, in any order.
    if (main_status == KT_OK) {
      char* name = static_cast<char*>(KT_Allouer(kTableNameBlock));
      for (int table = 0; table < 3 && main_status == KT_OK; ++table) {
        main_status = g_entete_table == nullptr
                          ? KT_FAIL(KT_ERR_MEMOIRE)
                          : KT_usLireEnteteTable(file, g_entete_table);
        KT_TRACE(kTraceInfo, "KT_usLireEnteteTable:usResultat= 0x%04x", main_status);
        if (main_status != KT_OK) break;
        // The name block holds 9 characters and the terminator; none of the
        // three names is longer, so a longer name is refused all the same.
        char local[kTableNameBlock];
        char* copy = name != nullptr ? name : local;
        std::strncpy(copy, g_entete_table->cNom, kTableNameBlock - 1);
        copy[kTableNameBlock - 1] = '\0';
        main_status = LoadTable(file, *g_entete_table, copy);
      }
      KT_Liberer(name);
    }
  }
  if (tables_step && main_status != KT_OK) {
    KT_TRACE(kTraceError, "erreur de chargement des tables : suppression des tables deja chargees");
    (void)usGTSupprTables();  // result not used here
  }

  // Step 8: the component version files.
  if (main_status == KT_OK) {
    KT_TRACE(kTraceInfo, "ecriture des fichiers .adm composants");
    if (g_repertoire_travail != nullptr && g_repertoire_travail[0] != '\0') {
      secondary_status =
          KT_usEcrireVersionComposant(kComposantKT, kVersionKT, sizeof kVersionKT - 1);
      KT_TRACE(kTraceInfo, "ecriture du fichier .adm, composant KT :usResultat= 0x%04x",
               secondary_status);
      if (secondary_status == KT_OK) {
        const char* tables_version = g_entete_fichier + kHeaderVersion;
        secondary_status = KT_usEcrireVersionComposant(
            kComposantTables, tables_version, static_cast<uint32_t>(std::strlen(tables_version)));
        KT_TRACE(kTraceInfo,
                 "ecriture du fichier .adm, composant Fichier Tables :usResultat= 0x%04x",
                 secondary_status);
      }
    } else {
      // The dictionary stays loaded.
      main_status = KT_FAIL(KT_ERR_REP_TRAVAIL);
      KT_TRACE(kTraceError, "ecriture des fichiers composants impossible");
      KT_TRACE(kTraceError, "erreur repertoire de travail absent / usResultat=0x%04x",
               main_status);
    }
  }

  // Step 9: both version texts for the caller.
  if (main_status == KT_OK) {
    if (ppcVersionKT != nullptr) *ppcVersionKT = kt::frame::CopyText(kVersionKT, 4);
    KT_TRACE(kTraceInfo, "Sortie : numero de version KT");
    if (ppcVersionTables != nullptr) {
      *ppcVersionTables = kt::frame::CopyText(g_entete_fichier + kHeaderVersion, 4);
    }
    KT_TRACE(kTraceInfo, "Sortie : numero de version du Fichier de tables");
  }

  // Step 10.
  KT_TRACE(kTraceExit, "IAInitialisation");
  if (main_status == KT_OK) main_status = usLibererFichier(file);
  if (main_status == KT_OK) ++nbre_chargt_module;
  // A failed version file is reported although the library is started.
  return main_status != KT_OK ? main_status : secondary_status;
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
