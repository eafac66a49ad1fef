// Helpers shared by the binary file tests: a fixture with a scratch
// directory, header records, and files built through the library.
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

inline EnteteTable MakeTable(const char* name, uint32_t records) {
  EnteteTable table{};
  std::memset(table.cNom, ' ', 10);
  std::memcpy(table.cNom, name, std::min<std::size_t>(std::strlen(name), 10));
  table.ulNbEnregistrements = records;
  return table;
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

  // Creates `name`, lets `write` fill it, closes it (with `key` for type 2)
  // and returns the file's bytes.
  std::string Build(const std::string& name, uint16_t type,
                    const std::function<void(uint16_t)>& write, const char* key = nullptr) {
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
    EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  }

  // Rewrites `name` with each byte in turn changed and checks the open:
  // `crc_field` for the first four bytes, else a failed check, except in
  // the name field (its check comes first) and at the comment's carriage
  // return (the comment then runs on to the next one, or to the end).
  void ExpectEveryChangeDetected(const std::string& name, uint16_t type, const std::string& bytes,
                                 uint16_t crc_field) {
    const std::size_t carriage_return = bytes.find('\r');
    for (std::size_t offset = 0; offset < bytes.size(); ++offset) {
      SCOPED_TRACE(offset);
      std::string changed = bytes;
      changed[offset] = static_cast<char>(changed[offset] ^ 0x01);
      WriteFile(Path(name), changed);
      uint16_t expected = offset < 4 ? crc_field : KT_ERR_CONTROLE;
      if (offset >= 5 && offset < 17) expected = KT_ERR_NOM_FICHIER;
      if (offset == carriage_return && bytes.find('\r', offset + 1) == std::string::npos) {
        expected = KT_ERR_FIN_FICHIER;
      }
      uint16_t number = 0;
      EXPECT_EQ(Open(name, type, &number), expected);
      ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
    }
  }

  ScratchDir dir_;
};

}  // namespace kt::test

#endif  // KT_TESTS_BINFILES_BINFILE_TEST_UTIL_H_
