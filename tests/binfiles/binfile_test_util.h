// Helpers shared by the binary file tests: header records, table headers,
// a sample body with every kind of field, and a fixture that builds, reads
// and probes files in a scratch directory.
#ifndef KT_TESTS_BINFILES_BINFILE_TEST_UTIL_H_
#define KT_TESTS_BINFILES_BINFILE_TEST_UTIL_H_

#include <array>
#include <cstring>
#include <functional>
#include <string>

#include "kt_binfiles.h"
#include "support/kt_test.h"

namespace kt::test {

using Header = std::array<char, KT_TAILLE_ENTETE_FICHIER>;
constexpr std::size_t kBody = 77;  // where the body starts with the default comment

// A header record with every field filled to its width.
inline Header MakeHeader(const std::string& name, const std::string& comment = "Tables de test") {
  Header header{};
  name.copy(header.data() + KT_ENTETE_NOM, 12);
  std::memcpy(header.data() + KT_ENTETE_VERSION, "0100", 4);
  std::memcpy(header.data() + KT_ENTETE_CHAMP3, "ABCDE", 5);
  std::memcpy(header.data() + KT_ENTETE_CHAMP4, "20240131", 8);
  std::memcpy(header.data() + KT_ENTETE_VERSION_REQUISE, "0100", 4);
  std::memcpy(header.data() + KT_ENTETE_CHAMP6, "XYZ12", 5);
  std::memcpy(header.data() + KT_ENTETE_CHAMP7, "0123456789", 10);
  comment.copy(header.data() + KT_ENTETE_COMMENTAIRE,
               KT_TAILLE_ENTETE_FICHIER - KT_ENTETE_COMMENTAIRE - 1);
  return header;
}

// A table header record; the name is padded with `pad` to ten characters.
inline EnteteTable MakeTable(const char* name, uint32_t records, char pad = ' ') {
  EnteteTable table{};
  std::memset(table.cNom, pad, 10);
  std::memcpy(table.cNom, name, std::min<std::size_t>(std::strlen(name), 10));
  table.ulNbEnregistrements = records;
  return table;
}

inline int32_t Position(uint16_t number) {
  int32_t position = -1;
  EXPECT_EQ(KT_usLirePositionFichier(number, &position), KT_OK);
  return position;
}

inline void Close(uint16_t number) {
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

// What a typed reader gives, checked to succeed.
template <class T>
T ReadValue(uint16_t number, uint16_t (*read)(uint16_t, T*)) {
  T value{};
  EXPECT_EQ(read(number, &value), KT_OK);
  return value;
}

// TCHAMPS: one record of every typed field (38 bytes); TABLE_VIDE: no
// records and a name of ten characters; TVALEUR: a NUL-padded name and one
// string, left open for the close to size.
inline void WriteSample(uint16_t n) {
  const uint16_t units[] = {0x1234, 0x00E9};
  const EnteteTable champs = MakeTable("TCHAMPS", 1), vide = MakeTable("TABLE_VIDE", 0),
                    valeur = MakeTable("TVALEUR", 1, '\0');
  int call = 0;  // a braced list makes its calls in order
  for (uint16_t us : {KT_usEcrireEnteteTable(n, &champs), KT_usEcrireUnsignedChar(n, 0xAB),
                      KT_usEcrireSignedChar(n, -2), KT_usEcrireUnsignedShort(n, 0x1234),
                      KT_usEcrireSignedShort(n, -2), KT_usEcrireUnsignedLong(n, 0x01020304),
                      KT_usEcrireSignedLong(n, -2), KT_usEcrireDate(n, 2024, 12, 31),
                      KT_usEcrireChampFixe(n, reinterpret_cast<const uint8_t*>("xyz"), 3),
                      KT_usEcrireChampUnicodeFixe(n, units, 2), KT_usEcrireChaineVariable(n, "abc"),
                      KT_usEcrireChaineVariable(n, nullptr), KT_usEcrireDouble(n, -1234.5),
                      KT_usEcrireTaille(n), KT_usEcrireEnteteTable(n, &vide), KT_usEcrireTaille(n),
                      KT_usEcrireEnteteTable(n, &valeur), KT_usEcrireChaineVariable(n, "valeur")}) {
    EXPECT_EQ(us, KT_OK) << call++;
  }
}
inline std::string SampleBody() {
  return std::string("TCHAMPS   \0\0\0\x26\0\0\0\x01\0\0\0\0\0\0\0", 25) +
         std::string(
             "\xAB\xFE\x12\x34\xFF\xFE\x01\x02\x03\x04\xFF\xFF\xFF\xFE\x07\xE8\x0C\x1F"
             "xyz\x12\x34\x00\xE9\x03"
             "abc\x00\x11\x23\x4F\x50\x00\x00\x00\x00",
             38) +
         std::string("TABLE_VIDE\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 25) +
         std::string("TVALEUR\0\0\0\0\0\0\x07\0\0\0\x01\0\0\0\0\0\0\0", 25) + "\x06valeur";
}

class BinFileTest : public KtTest {
 protected:
  std::string Dir() const { return dir_.path().string(); }
  std::string Path(const std::string& name) const { return dir_.File(name); }
  std::string Contents(const std::string& name) const { return ReadFile(Path(name)); }

  uint16_t Create(const std::string& name, uint16_t type, uint16_t* number, const Header& header) {
    return KT_usCreerFichierBinaire(Dir().c_str(), name.c_str(), type, header.data(), number);
  }
  uint16_t Create(const std::string& name, uint16_t type, uint16_t* number) {
    return Create(name, type, number, MakeHeader(name));
  }
  uint16_t Open(const std::string& name, uint16_t type, uint16_t* number,
                Header* header = nullptr) {
    Header scratch{};
    return KT_usInitialiserFichierBinaire(Dir().c_str(), name.c_str(), type, number,
                                          (header != nullptr ? header : &scratch)->data());
  }
  // The status of opening `name`; whatever number it got is given back.
  uint16_t Probe(const std::string& name, uint16_t type, Header* header = nullptr) {
    uint16_t number = 0;
    const uint16_t us = Open(name, type, &number, header);
    if (number != 0) Close(number);
    return us;
  }

  // Creates `name`, lets `write` fill it, closes it (with `key` for type 2)
  // and returns the file's bytes.
  std::string Build(
      const std::string& name, uint16_t type,
      const std::function<void(uint16_t)>& write = [](uint16_t) {}, const char* key = nullptr) {
    uint16_t number = 0;
    EXPECT_EQ(Create(name, type, &number), KT_OK);
    write(number);
    EXPECT_EQ(KT_usLibererFichierBinaire(number, key), KT_OK);
    return Contents(name);
  }

  // Opens `name` for reading, runs `read` on it and closes it.
  void Read(const std::string& name, uint16_t type, const std::function<void(uint16_t)>& read) {
    uint16_t number = 0;
    ASSERT_EQ(Open(name, type, &number), KT_OK);
    read(number);
    Close(number);
  }

  // Rewrites `name` with each byte in turn changed and checks the open:
  // `crc_field` for the first four bytes, else a failed check, except in
  // the name field (its check comes first) and at the comment's carriage
  // return (the comment then runs on to the next one, or to the end).
  void ExpectEveryChangeDetected(const std::string& name, uint16_t type, const std::string& bytes,
                                 uint16_t crc_field) {
    const std::size_t carriage_return = bytes.find('\r');
    for (std::size_t offset = 0; offset < bytes.size(); ++offset) {
      std::string changed = bytes;
      changed[offset] = static_cast<char>(changed[offset] ^ 0x01);
      WriteFile(Path(name), changed);
      uint16_t expected = offset < 4 ? crc_field : KT_ERR_CONTROLE;
      if (offset >= 5 && offset < 17) expected = KT_ERR_NOM_FICHIER;
      if (offset == carriage_return && bytes.find('\r', offset + 1) == std::string::npos) {
        expected = KT_ERR_FIN_FICHIER;
      }
      EXPECT_EQ(Probe(name, type), expected) << offset;
    }
  }

  ScratchDir dir_;
};

}  // namespace kt::test

#endif  // KT_TESTS_BINFILES_BINFILE_TEST_UTIL_H_
