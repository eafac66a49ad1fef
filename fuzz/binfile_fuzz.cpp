// Opens fuzzer-made bytes as a binary table file with each control type and
// walks every table and its records with the typed readers, searches tables
// by name and decodes coded lengths over the raw bytes. The bytes go to a
// scratch file named as the header says, so that the name check passes and
// the fuzzer reaches the CRC, the signature and the tables; a failed check
// leaves the file open, and it is walked all the same.
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/fuzz_files.h"
#include "kt_binfiles.h"

namespace {

constexpr int kMaxTables = 64;
constexpr uint32_t kMaxRecords = 32;

const std::string& Directory() { return kt::fuzz::ScratchDirectory("binfile_fuzz"); }

std::string NameOf(const std::uint8_t* data, std::size_t size) {
  return kt::fuzz::HeaderName(data, size, "fuzz.bin");
}

void ReadRecord(uint16_t n) {
  char* text = nullptr;
  (void)KT_usLireChaineVariable(n, &text);
  KT_Liberer(text);
  double d = 0;
  (void)KT_usLireDouble(n, &d);
  uint16_t year = 0;
  uint8_t month = 0, day = 0;
  (void)KT_usLireDate(n, &year, &month, &day);
  uint16_t units[3] = {};
  (void)KT_usLireChampUnicodeFixe(n, units, 3);
  int32_t sl = 0;
  int16_t ss = 0;
  int8_t sc = 0;
  (void)KT_usLireSignedLong(n, &sl);
  (void)KT_usLireSignedShort(n, &ss);
  (void)KT_usLireSignedChar(n, &sc);
  uint8_t fixed[5] = {};
  (void)KT_usLireChampFixe(n, fixed, sizeof fixed);
}

void Walk(uint16_t n) {
  EnteteTable table{};
  std::string last_name = "TGROUPE";
  for (int t = 0; t < kMaxTables; ++t) {
    if (KT_usLireEnteteTable(n, &table) != KT_OK) break;
    last_name = table.cNom;
    int32_t start = 0;
    if (KT_usLirePositionFichier(n, &start) != KT_OK) break;
    const uint32_t records = std::min(table.ulNbEnregistrements, kMaxRecords);
    // A record that moves nothing (at the end of the file) would only be
    // read the same way again by every record after it.
    for (int32_t r = 0, at = start, before = -1; r < static_cast<int32_t>(records) && at != before;
         ++r) {
      ReadRecord(n);
      before = at;
      if (KT_usLirePositionFichier(n, &at) != KT_OK) break;
    }
    const int64_t next = int64_t{start} + table.ulTailleDonnees;
    if (next > INT32_MAX) break;
    if (KT_usPositionnerOffset(n, static_cast<int32_t>(next), SEEK_SET) != KT_OK) break;
  }
  for (const std::string& name : {std::string("TGROUPE"), std::string("TVALEUR"), last_name}) {
    EnteteTable found{};
    if (KT_usRechercherTable(n, name.c_str(), &found) == KT_OK) ReadRecord(n);
  }
  uint8_t* block = nullptr;
  (void)KT_usLireFichierBinaire(n, 0, 64, &block);
  KT_Liberer(block);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static kt::fuzz::ScratchFile file(Directory());
  const std::string name = NameOf(data, size);
  if (!file.Put(name, data, size)) return 0;

  // Every check puts the position back where the header left it, so the
  // walk would be the same after each: it is done after the first only.
  for (uint16_t control = KT_CONTROLE_AUCUN; control <= KT_CONTROLE_SIGNATURE; ++control) {
    uint16_t number = 0;
    char header[KT_TAILLE_ENTETE_FICHIER];
    (void)KT_usInitialiserFichierBinaire(Directory().c_str(), name.c_str(), control, &number,
                                         header);
    if (number != 0) {
      if (control == KT_CONTROLE_AUCUN) Walk(number);
      (void)KT_usLibererFichierBinaire(number, nullptr);
    }
  }

  for (uint32_t index = 0; index < std::min<std::size_t>(size, 16); ++index) {
    uint32_t length = 0;
    uint32_t count = 0;
    (void)usDecoderLongueur(data, static_cast<uint32_t>(size), index, &length, &count);
  }
  return 0;
}
