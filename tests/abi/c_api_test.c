/*
 * A C99 caller of the library: includes the umbrella header, checks the
 * record sizes the C way and calls one function of each public header.
 * Argument: a scratch directory.
 */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "kt.h"

static int failures = 0;

#define CHECK(condition)                                             \
  do {                                                               \
    if (!(condition)) {                                              \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                    \
    }                                                                \
  } while (0)

static void check_frame(void) {
  void* block = KT_Allouer(10);
  CHECK(block != NULL);
  KT_Liberer(block);
  CHECK(KT_OK == 0 && KT_ERR_NUMERO_INCONNU == 0xF807);
}

static void check_traces(const char* directory) {
  char path[1024];
  FILE* stream;
  char line[64];
  snprintf(path, sizeof path, "%s/c_api_trace.txt", directory);
  CHECK(KT_usActiverTrace(path, "w", 1, 5, 2) == KT_OK);
  CHECK(KT_bTraceActive() == 1);
  KT_TraceEcrire(1, 5, 4, "from C %d", 42);
  CHECK(KT_usActiverTrace(path, "w", 1, 5, 0) == KT_OK);
  stream = fopen(path, "r");
  CHECK(stream != NULL);
  if (stream != NULL) {
    CHECK(fgets(line, sizeof line, stream) != NULL && strcmp(line, "### DEBUT TRACE ###\n") == 0);
    CHECK(fgets(line, sizeof line, stream) != NULL && strcmp(line, "from C 42\n") == 0);
    fclose(stream);
  }
}

static void check_zones(void) {
  uint16_t zone = 0;
  uint16_t identifier = 0;
  uint16_t number = 0;
  uint8_t* value = NULL;
  uint8_t* buffer = NULL;
  uint32_t length = 0;
  uint32_t end = 0;
  static const uint8_t expected[] = {0x01, 0x02, 0x03, 0x02, 0x41, 0x42};
  CHECK(KT_stCalculerTailleGroupe1(2, (uint32_t)3, (uint32_t)200) == 210);
  CHECK(KT_usCreerZoneMemoire(16, 1, &zone) == KT_OK);
  CHECK(KT_usAjouterGroupe(zone, 0x0102) == KT_OK);
  CHECK(KT_usAjouterChamp(zone, (const uint8_t*)"AB", 2) == KT_OK);
  CHECK(KT_usControlerSyntaxeZoneMemoire(zone) == KT_OK);
  CHECK(KT_usPositionnerDebut(zone) == KT_OK);
  CHECK(KT_usAvancerGroupeSuivant(zone, 1, 0, &identifier) == KT_OK && identifier == 0x0102);
  CHECK(KT_usAvancerChampSuivant(zone, 1, &number, &value, &length) == KT_OK);
  CHECK(number == 1 && length == 2 && value != NULL && memcmp(value, "AB", 2) == 0);
  CHECK(KT_usFinZone(zone, &end) == KT_OK && end == 1);
  CHECK(KT_pucLireBuffer(zone, &length, &buffer) == KT_OK);
  CHECK(length == sizeof expected && memcmp(buffer, expected, sizeof expected) == 0);
  CHECK(KT_usLibererZoneMemoire(zone) == KT_OK);
  CHECK(KT_usLibererZoneMemoire(zone) == KT_ERR_NUMERO_INCONNU);
  KT_Liberer(buffer); /* the buffer outlives its zone */
}

static void check_checks(void) {
  uint16_t year[4] = {0, 0, 0, 0};
  uint8_t month = 0;
  uint8_t day = 0;
  char text[13];
  CHECK(KT_bEstDateChaineValide("20000229") == 1);
  CHECK(KT_bDateChaineANumerique("040517", year, &month, &day) == 1);
  CHECK(year[0] == 4 && month == 5 && day == 17);
  CHECK(KT_bDateNumeriqueAChaine(2004, 5, 17, 12, text) == 1 && strcmp(text, "200405170000") == 0);
  CHECK(KT_bCompareChaine("abc", "ABC") == 1);
}

typedef char crypto_digit_ok[sizeof(NN_DIGIT) == 4 && MAX_NN_DIGITS == 33 ? 1 : -1];
typedef char rsa_public_ok[sizeof(R_RSAPublicKey) == 260 ? 1 : -1];
typedef char rsa_private_ok[sizeof(R_RSAPrivateKey) == 708 ? 1 : -1];
typedef char digest_ok[sizeof(R_DigestContext) == 92 ? 1 : -1];
typedef char md2_ok[sizeof(MD2Context) == 52 ? 1 : -1];
typedef char md5_ok[sizeof(MD5Context) == 88 ? 1 : -1];
typedef char random_ok[sizeof(R_RandomContext) == 40 ? 1 : -1];
typedef char des_ok[sizeof(DESContext) == 148 ? 1 : -1];
typedef char desx_ok[sizeof(DESXContext) == 164 ? 1 : -1];
typedef char des3_ok[sizeof(DES3Context) == 404 ? 1 : -1];
typedef char envelope_ok[sizeof(R_EnvelopeContext) == 420 ? 1 : -1];

static void check_crypto(void) {
  static const unsigned char abc[3] = {'a', 'b', 'c'};
  static const unsigned char expected[16] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                             0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
  unsigned char digest[16];
  uint32_t digest_len = 0;
  CHECK(R_DigestBlock(digest, &digest_len, abc, 3, KT_DA_MD5) == KT_RE_OK);
  CHECK(digest_len == 16 && memcmp(digest, expected, 16) == 0);
  CHECK(R_DigestBlock(digest, &digest_len, abc, 3, 4) == KT_RE_DIGEST_ALGORITHM);
  CHECK(KT_RE_DATA == 0x401 && KT_RE_ENCRYPTION_ALGORITHM == 0x40D);
}

/* Binary table files: record layouts as C sees them. */
typedef char entete_table_size_ok[sizeof(EnteteTable) == 28 ? 1 : -1];
typedef char entete_fichier_size_ok[sizeof(EnteteFichier) == KT_TAILLE_ENTETE_FICHIER ? 1 : -1];
typedef char entete_version_ok[offsetof(EnteteFichier, cVersion) == 13 ? 1 : -1];
typedef char entete_version_requise_ok[offsetof(EnteteFichier, cVersionRequise) == 33 ? 1 : -1];
typedef char entete_commentaire_ok[offsetof(EnteteFichier, cCommentaire) == KT_ENTETE_COMMENTAIRE ? 1 : -1];

static void check_binfiles(const char* directory) {
  EnteteFichier header;
  EnteteTable table;
  uint16_t number = 0;
  uint32_t value = 0;
  memset(&header, 0, sizeof header);
  strcpy(header.cNom, "c_api.bin");
  memcpy(header.cVersion, "0100", 4);
  memcpy(header.cChamp3, "abcde", 5);
  memcpy(header.cChamp4, "20240131", 8);
  memcpy(header.cVersionRequise, "0100", 4);
  memcpy(header.cChamp6, "fghij", 5);
  memcpy(header.cChamp7, "0123456789", 10);
  strcpy(header.cCommentaire, "from C");
  memset(&table, 0, sizeof table);
  memcpy(table.cNom, "TC        ", 10);
  table.ulNbEnregistrements = 1;

  CHECK(KT_usCreerFichierBinaire(directory, "c_api.bin", KT_CONTROLE_CRC, (const char*)&header,
                                 &number) == KT_OK);
  CHECK(KT_usEcrireEnteteTable(number, &table) == KT_OK);
  CHECK(KT_usEcrireUnsignedLong(number, 0xC0FFEE) == KT_OK);
  CHECK(KT_usLibererFichierBinaire(number, NULL) == KT_OK);

  memset(&header, 0, sizeof header);
  CHECK(KT_usInitialiserFichierBinaire(directory, "c_api.bin", KT_CONTROLE_CRC, &number,
                                       (char*)&header) == KT_OK);
  CHECK(strcmp(header.cCommentaire, "from C") == 0 && strcmp(header.cVersion, "0100") == 0);
  CHECK(KT_usRechercherTable(number, "TC", &table) == KT_OK && table.ulTailleDonnees == 4);
  CHECK(KT_usLireUnsignedLong(number, &value) == KT_OK && value == 0xC0FFEE);
  CHECK(KT_usLibererFichierBinaire(number, NULL) == KT_OK);
  CHECK(strcmp(CRC16_FICTIF, "0000") == 0);
}

typedef char groupe_size_ok[sizeof(stGroupe) == 6 ? 1 : -1];
typedef char champ_size_ok[sizeof(stChamp) == 20 ? 1 : -1];

static void check_dictionary(void) {
  uint16_t* list = NULL;
  uint16_t count = 7;
  char* value = NULL;
  CHECK(KT_usDonnerListeGroupes(&list, &count) == KT_OK && count == 0);
  KT_Liberer(list);
  CHECK(KT_usDonnerChampValeur(10, 1, 1, &value) == KT_ERR_FIN);
  CHECK(usGTSupprTables() == KT_ECHEC);
}

int main(int argc, char** argv) {
  const char* directory = argc > 1 ? argv[1] : ".";
  check_frame();
  check_traces(directory);
  check_zones();
  check_checks();
  check_crypto();
  check_binfiles(directory);
  check_dictionary();
  if (failures != 0) {
    fprintf(stderr, "%d check(s) failed\n", failures);
    return 1;
  }
  printf("C caller: all checks passed\n");
  return 0;
}
