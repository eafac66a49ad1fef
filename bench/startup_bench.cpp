// Start-up with a dictionary of 200 groups (1 000 fields), and format control
// of a zone of 1 000 fields against it. Peers in the same run: opening the
// tables file with its CRC check alone (what start-up adds is the loading and
// the version files), and syntax control of the same zone (what format control
// adds is the dictionary work).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "kt.h"

namespace {

constexpr std::uint16_t kGroups = 200;
constexpr std::uint16_t kFieldsPerGroup = 5;
constexpr std::uint16_t kValuesPerField = 4;

const char* const kValues[kValuesPerField] = {"ALPHA", "BRAVO", "CHARLIE", "DELTA"};

struct Setup {
  std::filesystem::path root;
  std::string tables;
};

void WriteTable(std::uint16_t file, const char* name, std::uint32_t records) {
  EnteteTable table;
  std::memset(&table, 0, sizeof table);
  std::memset(table.cNom, ' ', 10);
  std::memcpy(table.cNom, name, std::strlen(name));
  table.ulNbEnregistrements = records;
  KT_usEcrireEnteteTable(file, &table);
}

// Groups 1..200, each of five fields: a numeric one, an alphanumeric one,
// one with four allowed values, a date and a free text.
void WriteDictionary(const std::string& directory) {
  EnteteFichier header;
  std::memset(&header, 0, sizeof header);
  std::strcpy(header.cNom, "tablebin.vkt");
  std::memcpy(header.cVersion, "0100", 4);
  std::memcpy(header.cChamp3, "BENCH", 5);
  std::memcpy(header.cChamp4, "20261121", 8);
  std::memcpy(header.cVersionRequise, "0100", 4);
  std::memcpy(header.cChamp6, "BENCH", 5);
  std::memcpy(header.cChamp7, "0123456789", 10);
  std::strcpy(header.cCommentaire, "benchmark dictionary");
  std::uint16_t file = 0;
  KT_usCreerFichierBinaire(directory.c_str(), "tablebin.vkt", KT_CONTROLE_CRC,
                           reinterpret_cast<const char*>(&header), &file);
  WriteTable(file, "TGROUPE", kGroups);
  for (std::uint16_t g = 0; g < kGroups; ++g) {
    KT_usEcrireUnsignedShort(file, static_cast<std::uint16_t>(g + 1));
    KT_usEcrireUnsignedShort(file, static_cast<std::uint16_t>(g * kFieldsPerGroup));
    KT_usEcrireUnsignedShort(file, kFieldsPerGroup);
  }
  KT_usEcrireTaille(file);
  WriteTable(file, "TCHAMP", kGroups * kFieldsPerGroup);
  const char types[kFieldsPerGroup] = {'N', 'A', 'L', 'D', 'A'};
  for (std::uint16_t g = 0; g < kGroups; ++g) {
    for (std::uint16_t f = 0; f < kFieldsPerGroup; ++f) {
      KT_usEcrireSignedLong(file, 1);
      KT_usEcrireUnsignedShort(file, f == 3 ? 8 : 1);
      KT_usEcrireUnsignedShort(file, 20);
      KT_usEcrireSignedChar(file, static_cast<std::int8_t>(types[f]));
      KT_usEcrireSignedLong(file, 0);
      KT_usEcrireUnsignedShort(file, static_cast<std::uint16_t>(f == 2 ? g * kValuesPerField : 0));
      KT_usEcrireUnsignedShort(file, f == 2 ? kValuesPerField : 0);
    }
  }
  KT_usEcrireTaille(file);
  WriteTable(file, "TVALEUR", kGroups * kValuesPerField);
  for (std::uint16_t g = 0; g < kGroups; ++g) {
    for (const char* value : kValues) KT_usEcrireChaineVariable(file, value);
  }
  KT_usEcrireTaille(file);
  KT_usLibererFichierBinaire(file, nullptr);
}

const Setup& Prepare() {
  static const Setup setup = [] {
    Setup s;
    s.root = std::filesystem::temp_directory_path() /
             ("kt_startup_bench." + std::to_string(getpid()));
    std::filesystem::create_directories(s.root / "work");
    std::filesystem::create_directories(s.root / "tables");
    s.tables = (s.root / "tables").string();
    std::ofstream(s.root / "volen.ini") << "[commun]\nrepertoiretravail=" << (s.root / "work").string()
                                        << "\nrepertoiretable=" << s.tables << "\n";
    ::setenv("KT_PREFERENCES_DIR", s.root.c_str(), 1);
    WriteDictionary(s.tables);
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(Prepare().root, ignored);
    });
    return s;
  }();
  return setup;
}

// The library keeps the value texts for good; give them back between runs.
void Stop() {
  for (std::uint32_t i = 0; g_cTabVal != nullptr && i < g_ulNbTabVal; ++i) {
    KT_Liberer(g_cTabVal[i]);
    g_cTabVal[i] = nullptr;
  }
  KT_usTermLIB();
}

std::uint16_t Start() {
  char* kt_version = nullptr;
  char* tables_version = nullptr;
  const std::uint16_t us = KT_usInitLIB(&kt_version, &tables_version);
  KT_Liberer(kt_version);
  KT_Liberer(tables_version);
  return us;
}

void BM_Startup_InitAndTerm(benchmark::State& state) {
  Prepare();
  for (auto _ : state) {
    if (Start() != KT_OK) state.SkipWithError("start-up failed");
    Stop();
  }
}
BENCHMARK(BM_Startup_InitAndTerm)->Unit(benchmark::kMicrosecond);

void BM_Startup_PeerOpenWithCrc(benchmark::State& state) {
  const Setup& setup = Prepare();
  char header[KT_TAILLE_ENTETE_FICHIER];
  for (auto _ : state) {
    std::uint16_t file = 0;
    if (KT_usInitialiserFichierBinaire(setup.tables.c_str(), "tablebin.vkt", KT_CONTROLE_CRC, &file,
                                       header) != KT_OK) {
      state.SkipWithError("open failed");
    }
    KT_usLibererFichierBinaire(file, nullptr);
  }
}
BENCHMARK(BM_Startup_PeerOpenWithCrc)->Unit(benchmark::kMicrosecond);

// A zone of every group once, its five fields conforming.
std::uint16_t BuildZone() {
  std::uint16_t zone = 0;
  KT_usCreerZoneMemoire(64 * 1024, 1, &zone);
  const char* fields[kFieldsPerGroup] = {"12345", "ABC 123", "CHARLIE", "20261121", "FREE TEXT"};
  for (std::uint16_t g = 0; g < kGroups; ++g) {
    KT_usAjouterGroupe(zone, static_cast<std::uint16_t>(g + 1));
    for (const char* field : fields) {
      KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(field),
                        static_cast<std::uint32_t>(std::strlen(field)));
    }
  }
  return zone;
}

template <std::uint16_t (*Check)(std::uint16_t)>
void RunCheck(benchmark::State& state) {
  Prepare();
  if (Start() != KT_OK) state.SkipWithError("start-up failed");
  const std::uint16_t zone = BuildZone();
  std::uint32_t size = 0;
  std::uint8_t* buffer = nullptr;
  KT_pucLireBuffer(zone, &size, &buffer);
  for (auto _ : state) {
    if (Check(zone) != KT_OK) state.SkipWithError("check failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * size);
  state.counters["fields"] = kGroups * kFieldsPerGroup;
  KT_usLibererZoneMemoire(zone);
  KT_Liberer(buffer);
  Stop();
}

void BM_Format_Zone1000Fields(benchmark::State& state) {
  RunCheck<KT_usControlerFormatZoneMemoire>(state);
}
BENCHMARK(BM_Format_Zone1000Fields)->Unit(benchmark::kMicrosecond);

void BM_Format_PeerSyntaxSameZone(benchmark::State& state) {
  RunCheck<KT_usControlerSyntaxeZoneMemoire>(state);
}
BENCHMARK(BM_Format_PeerSyntaxSameZone)->Unit(benchmark::kMicrosecond);

}  // namespace
