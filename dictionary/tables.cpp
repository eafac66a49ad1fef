// The three dictionary tables: their process-wide arrays, the loaders that
// read them from the open tables file, and their release.
#include <cstring>

#include "dictionary/dictionary_internal.h"
#include "frame/frame_internal.h"
#include "frame/locks.h"
#include "frame/support.h"
#include "kt_binfiles.h"
#include "traces/traces_internal.h"

stGroupe* g_stTabGrp = nullptr;
uint32_t g_ulNbTabGrp = 0;
stChamp* g_stTabChp = nullptr;
uint32_t g_ulNbTabChp = 0;
char** g_cTabVal = nullptr;
uint32_t g_ulNbTabVal = 0;
uint32_t g_ulIndTabGrp = 0;
uint32_t g_ulIndTabChp = 0;
uint32_t g_ulIndTabVal = 0;

namespace {

constexpr std::uint16_t kTraceSub = 7;         // dictionary and binary files
constexpr std::uint16_t kTraceSubStartup = 5;  // the release of all tables reports with start-up

using namespace kt::traces;

static_assert(sizeof(stGroupe) == 6, "group records are three 16-bit units");
static_assert(sizeof(stChamp) == 20, "field records keep their 20-byte layout");

// A table of `count` records of T, zeroed so that records a failed load did
// not reach read as empty. Null when the size does not fit 32 bits or memory
// is exhausted.
template <class T>
T* AllocateTable(std::uint32_t count) {
  const std::uint64_t bytes = std::uint64_t{count} * sizeof(T);
  if (bytes > UINT32_MAX) return nullptr;
  void* block = KT_Allouer(static_cast<std::uint32_t>(bytes));
  if (block != nullptr && bytes != 0) std::memset(block, 0, static_cast<std::size_t>(bytes));
  return static_cast<T*>(block);
}

// The shape shared by the three loaders: allocate, trace, then read records
// with a 16-bit index while the status stays 0. The members of one record
// are all read and their statuses ORed.
template <class T, class ReadRecord>
std::uint16_t LoadTable(const char* trace_name, const char* table_trace, T*& table,
                        std::uint32_t& table_count, std::uint32_t count,
                        ReadRecord read_record) {
  KT_TRACE(kTraceEnter, "%s", trace_name);
  std::uint16_t us = KT_OK;
  table = AllocateTable<T>(count);
  if (table == nullptr) {
    us = KT_FAIL(KT_ERR_MEMOIRE);  // the count stays as it was
  } else {
    table_count = count;
  }
  KT_TRACE(kTraceInfo, table_trace, static_cast<void*>(table),
           static_cast<unsigned short>(table_count));
  // The index is 16 bits wide: a count above 65535 wraps it, and the loop then
  // ends only with the first failed read (the array is large enough).
  for (std::uint16_t i = 0; i < count && us == KT_OK; ++i) us = read_record(table[i]);
  KT_TRACE(kTraceInfo, "usResultat = 0x%04x", us);
  KT_TRACE(kTraceExit, "%s", trace_name);
  return us;
}

template <class T>
std::uint16_t ReleaseTable(const char* entry_name, const char* exit_name, T*& table,
                           std::uint32_t& count) {
  KT_TRACE(kTraceEnter, "%s", entry_name);
  std::uint16_t us = KT_OK;
  if (table == nullptr) {
    us = KT_ECHEC;
  } else {
    KT_Liberer(table);
  }
  table = nullptr;
  count = 0;
  KT_TRACE(kTraceInfo, "usResultat = 0x%04x", us);
  KT_TRACE(kTraceExit, "%s", exit_name);
  return us;
}

// Between tests the value texts are freed too, which the library itself never
// does, so that leak checkers see only real leaks.
void Reset() {
  for (std::uint32_t i = 0; g_cTabVal != nullptr && i < g_ulNbTabVal; ++i) {
    KT_Liberer(g_cTabVal[i]);
  }
  KT_Liberer(g_cTabVal);
  KT_Liberer(g_stTabChp);
  KT_Liberer(g_stTabGrp);
  g_cTabVal = nullptr;
  g_stTabChp = nullptr;
  g_stTabGrp = nullptr;
  g_ulNbTabVal = g_ulNbTabChp = g_ulNbTabGrp = 0;
}
}  // namespace

void kt::testing::ResetDictionary() noexcept { Reset(); }

uint16_t usInitTabGroupe(uint16_t usNumFichier, uint32_t ulTailleDonnees,
                         uint32_t ulNbEnregistrements) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  (void)ulTailleDonnees;  // the record count alone drives the load
  return LoadTable("usGTInitTabGrp", "g_stTabGrp = %p, g_ulNbTabGrp = %hu", g_stTabGrp,
                   g_ulNbTabGrp, ulNbEnregistrements, [usNumFichier](stGroupe& group) {
                     std::uint16_t us = KT_usLireUnsignedShort(usNumFichier, &group.usIdGroupe);
                     us |= KT_usLireUnsignedShort(usNumFichier, &group.usIndPremierChamp);
                     us |= KT_usLireUnsignedShort(usNumFichier, &group.usNbChamps);
                     return us;
                   });
}

uint16_t usInitTabChamp(uint16_t usNumFichier, uint32_t ulTailleDonnees,
                        uint32_t ulNbEnregistrements) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  (void)ulTailleDonnees;
  return LoadTable("usGTInitTabChp", "g_stTabChp = %p, g_ulNbTabChp = %hu", g_stTabChp,
                   g_ulNbTabChp, ulNbEnregistrements, [usNumFichier](stChamp& field) {
                     std::uint16_t us = KT_usLireSignedLong(usNumFichier, &field.lCodeChamp);
                     us |= KT_usLireUnsignedShort(usNumFichier, &field.usLongueurMin);
                     us |= KT_usLireUnsignedShort(usNumFichier, &field.usLongueurMax);
                     us |= KT_usLireSignedChar(usNumFichier, &field.cType);
                     us |= KT_usLireSignedLong(usNumFichier, &field.lAttribut);
                     us |= KT_usLireUnsignedShort(usNumFichier, &field.usIndPremiereValeur);
                     us |= KT_usLireUnsignedShort(usNumFichier, &field.usNbValeurs);
                     return us;
                   });
}

uint16_t usInitTabValeur(uint16_t usNumFichier, uint32_t ulTailleDonnees,
                         uint32_t ulNbEnregistrements) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  (void)ulTailleDonnees;
  return LoadTable("usGTInitTabValeur", "g_cTabVal = %p, g_ulNbTabVal = %hu", g_cTabVal,
                   g_ulNbTabVal, ulNbEnregistrements, [usNumFichier](char*& text) {
                     const std::uint16_t us = KT_usLireChaineVariable(usNumFichier, &text);
                     if (us != KT_OK) {
                       // A failed read hands its block out unterminated: it
                       // is not kept, so the entry reads as the empty text.
                       KT_Liberer(text);
                       text = nullptr;
                     }
                     return us;
                   });
}

uint16_t usSupprTabGroupe(void) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  return ReleaseTable("usGTSupprTabGrp", "usGTSupprTabGrp", g_stTabGrp, g_ulNbTabGrp);
}

uint16_t usSupprTabChamp(void) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  return ReleaseTable("usGTSupprTabChp", "usSupprTabChamp", g_stTabChp, g_ulNbTabChp);
}

uint16_t usSupprTabValeur(void) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  // Only the pointer array goes: the texts stay allocated and counted.
  return ReleaseTable("usGTSupprTabValeur", "usSupprTabValeur", g_cTabVal, g_ulNbTabVal);
}

uint16_t usGTSupprTables(void) {
  const kt::frame::StartupGuard exclusive;  // the tables change
  KT_TRACE_AT(kTraceSubStartup, kTraceEnter, "Suppression des tables /usGTSupprTables");
  // Combined by OR, so that nothing loaded gives 1 | 1 | 1.
  std::uint16_t us = usSupprTabGroupe();
  KT_TRACE_AT(kTraceSubStartup, kTraceInfo, "suppression de la table TGROUPE, usResultat=0x%04x",
              us);
  us |= usSupprTabChamp();
  KT_TRACE_AT(kTraceSubStartup, kTraceInfo, "suppression de la table TCHAMP, usResultat=0x%04x",
              us);
  us |= usSupprTabValeur();
  KT_TRACE_AT(kTraceSubStartup, kTraceInfo, "suppression de la table TVALEUR, usResultat=0x%04x",
              us);
  KT_TRACE_AT(kTraceSubStartup, kTraceExit,
              "Suppression des tables = usGTSupprTables / usResultat = 0x%04x", us);
  return us;
}
