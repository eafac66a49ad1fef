// Binary table files: the CRC-16 over a 1 MiB file and buffer, beside
// zlib's crc32 on the same file and buffer (the peer for checksum speed),
// and opening (with its check) 1 MiB files of control types 1 and 2, in MB/s. The signed file is
// made with the development key, so the type-2 case needs a build with the
// development public key.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "binfiles/binfiles_internal.h"
#include "kt_binfiles.h"

#ifdef KT_HAVE_ZLIB
#include <zlib.h>
#endif

namespace {

constexpr std::size_t kFileBytes = 1 << 20;

const std::string& Directory() {
  static const std::string directory = [] {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/binfile_bench.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    std::atexit([] { std::filesystem::remove_all(Directory()); });
    return pattern;
  }();
  return directory;
}

std::vector<uint8_t> Filler(std::size_t size) {
  std::vector<uint8_t> bytes(size);
  uint32_t x = 12345;
  for (auto& b : bytes) {
    x = x * 1103515245U + 12345U;
    b = static_cast<uint8_t>(x >> 24);
  }
  return bytes;
}

// A file of exactly 1 MiB written through the library: the header line and
// one table whose records fill the rest.
std::string MakeFile(const char* name, uint16_t control, const char* key) {
  char header[KT_TAILLE_ENTETE_FICHIER] = {};
  std::strcpy(header + KT_ENTETE_NOM, name);
  std::memcpy(header + KT_ENTETE_VERSION, "0100ABCDE20240131", 17);
  std::memcpy(header + KT_ENTETE_VERSION_REQUISE, "0100", 4);
  std::memcpy(header + KT_ENTETE_CHAMP6, "XYZ12", 5);
  std::memcpy(header + KT_ENTETE_CHAMP7, "0123456789", 10);
  std::strcpy(header + KT_ENTETE_COMMENTAIRE, "bench");
  uint16_t number = 0;
  if (KT_usCreerFichierBinaire(Directory().c_str(), name, control, header, &number) != KT_OK) {
    std::abort();
  }
  const std::size_t trailer = control == KT_CONTROLE_SIGNATURE ? 128 : 0;
  const std::vector<uint8_t> records = Filler(kFileBytes - 68 - 25 - trailer);
  EnteteTable table{};
  std::memcpy(table.cNom, "TBENCH    ", 10);
  table.ulNbEnregistrements = 1;
  if (KT_usEcrireEnteteTable(number, &table) != KT_OK ||
      KT_usEcrireChampFixe(number, records.data(), static_cast<uint32_t>(records.size())) !=
          KT_OK ||
      KT_usLibererFichierBinaire(number, key) != KT_OK) {
    std::abort();
  }
  return Directory() + "/" + name;
}

void BM_BinFile_Crc16File(benchmark::State& state) {
  const std::string path = MakeFile("crc.bin", KT_CONTROLE_AUCUN, nullptr);
  std::FILE* stream = std::fopen(path.c_str(), "rb");
  uint16_t crc = 0;
  for (auto _ : state) {
    if (usCalculerCRC16(stream, &crc) != KT_OK) state.SkipWithError("CRC failed");
    benchmark::DoNotOptimize(crc);
  }
  std::fclose(stream);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (kFileBytes - 4));
}
BENCHMARK(BM_BinFile_Crc16File);

void BM_BinFile_Crc16Memory(benchmark::State& state) {
  const std::vector<uint8_t> bytes = Filler(kFileBytes);
  for (auto _ : state) {
    kt::binfiles::Crc16 crc;
    crc.Update(bytes.data(), bytes.size());
    benchmark::DoNotOptimize(crc.Value());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFileBytes);
}
BENCHMARK(BM_BinFile_Crc16Memory);

#ifdef KT_HAVE_ZLIB
// zlib's crc32 over the same 1 MiB file (read in 32 KiB blocks) and buffer.
void BM_BinFile_Crc16File_Zlib(benchmark::State& state) {
  const std::string path = MakeFile("crc.bin", KT_CONTROLE_AUCUN, nullptr);
  std::FILE* stream = std::fopen(path.c_str(), "rb");
  std::vector<unsigned char> block(32 * 1024);
  for (auto _ : state) {
    std::fseek(stream, 4, SEEK_SET);
    uLong crc = crc32(0L, Z_NULL, 0);
    std::size_t got = 0;
    while ((got = std::fread(block.data(), 1, block.size(), stream)) != 0) {
      crc = crc32(crc, block.data(), static_cast<uInt>(got));
    }
    benchmark::DoNotOptimize(crc);
  }
  std::fclose(stream);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (kFileBytes - 4));
}
BENCHMARK(BM_BinFile_Crc16File_Zlib);

void BM_BinFile_Crc16Memory_Zlib(benchmark::State& state) {
  const std::vector<uint8_t> bytes = Filler(kFileBytes);
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc32(0L, bytes.data(), static_cast<uInt>(bytes.size())));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFileBytes);
}
BENCHMARK(BM_BinFile_Crc16Memory_Zlib);
#endif

void OpenAndClose(benchmark::State& state, const char* name, uint16_t control) {
  char header[KT_TAILLE_ENTETE_FICHIER];
  for (auto _ : state) {
    uint16_t number = 0;
    if (KT_usInitialiserFichierBinaire(Directory().c_str(), name, control, &number, header) !=
        KT_OK) {
      state.SkipWithError("open failed");
    }
    (void)KT_usLibererFichierBinaire(number, nullptr);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFileBytes);
}

void BM_BinFile_OpenType1(benchmark::State& state) {
  MakeFile("type1.bin", KT_CONTROLE_CRC, nullptr);
  OpenAndClose(state, "type1.bin", KT_CONTROLE_CRC);
}
BENCHMARK(BM_BinFile_OpenType1);

void BM_BinFile_OpenType2(benchmark::State& state) {
  const std::string key =
      std::filesystem::path(__FILE__).parent_path().parent_path() / "keys" / "development.key";
  MakeFile("type2.bin", KT_CONTROLE_SIGNATURE, key.c_str());
  OpenAndClose(state, "type2.bin", KT_CONTROLE_SIGNATURE);
}
BENCHMARK(BM_BinFile_OpenType2);

}  // namespace
