/*
 * A C99 caller of the library: includes the umbrella header, checks the
 * record sizes the C way and calls one function of each public header.
 * Argument: a scratch directory.
 */
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

int main(int argc, char** argv) {
  const char* directory = argc > 1 ? argv[1] : ".";
  check_frame();
  check_traces(directory);
  check_zones();
  if (failures != 0) {
    fprintf(stderr, "%d check(s) failed\n", failures);
    return 1;
  }
  printf("C caller: all checks passed\n");
  return 0;
}
