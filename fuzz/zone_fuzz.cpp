// Adopts fuzzer bytes as a memory zone and drives every zone operation over
// it: decoding at every offset, syntax control, full cursor walks with and
// without field counting, KT_usLireGroupeSuivant to the end, searches, and
// a script of edits read from the end of the input. Any read or write
// outside the buffer, any walk that does not end and any leak is a finding.
//
// Input: byte 0 chooses the adoption (bits 0-1: 0 full, 1 non-full with
// room, 2 non-full claiming more data than the buffer holds, 3 raw zone),
// tracing (bit 2) and the spare room (bits 3-7, in steps of 16 bytes);
// byte 1 is the length of the edit script at the end of the input; the
// bytes between are the zone.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kt_traces.h"
#include "kt_zones.h"

namespace {

// Reads the edit script; past its end every read gives 0.
class Script {
 public:
  Script(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool Done() const { return pos_ >= size_; }
  std::uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  std::uint16_t Word() { return static_cast<std::uint16_t>((Byte() << 8) | Byte()); }
  // Mostly small values, sometimes boundaries and huge ones.
  std::uint32_t Length() {
    const std::uint8_t b = Byte();
    switch (b >> 5) {
      case 6:
        return 120 + (b & 0x1F) * 5;  // around 127 and 254
      case 7:
        return 0xFFFFFFFF - (b & 0x1F);
      default:
        return b & 0x3F;
    }
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

volatile std::uint8_t g_sink;

// Reads every byte handed out, so that the sanitizer sees a bad pointer.
void Touch(const std::uint8_t* value, std::uint32_t length) {
  std::uint8_t x = 0;
  for (std::uint32_t i = 0; i < length; ++i) x ^= value[i];
  g_sink = x;
}

[[noreturn]] void Finding(const char* what) {
  std::fprintf(stderr, "zone_fuzz: %s\n", what);
  std::abort();
}

void DecodeEverywhere(const std::uint8_t* bytes, std::uint32_t size) {
  for (std::uint32_t offset = 0; offset <= size; ++offset) {
    std::uint32_t length = 0;
    std::uint32_t count = 0;
    std::uint16_t id = 0;
    if (KT_stDecoderLongueur(bytes, size, offset, &length, &count) == KT_OK) {
      if (count == 0 || count > 5 || offset + count > size) Finding("length read past the buffer");
    }
    if (KT_usDecoderEnteteGroupe(bytes, size, offset, &id, &length, &count) == KT_OK) {
      if (count < 3 || count > 7 || offset + count > size) Finding("header read past the buffer");
    }
  }
}

// Every group and every field; each successful step consumes at least one
// byte, so more steps than bytes means a walk that does not end.
void Walk(std::uint16_t zone, std::uint8_t count_fields, std::uint32_t bytes) {
  (void)KT_usPositionnerDebut(zone);
  std::uint32_t steps = 0;
  for (;;) {
    std::uint16_t id = 0;
    const std::uint16_t group = KT_usAvancerGroupeSuivant(zone, 1, count_fields, &id);
    if (group != KT_OK && group != KT_ERR_CODAGE_ZONE) break;
    for (;;) {
      std::uint16_t number = 0;
      std::uint8_t* value = nullptr;
      std::uint32_t length = 0;
      if (KT_usAvancerChampSuivant(zone, 1, &number, &value, &length) != KT_OK) break;
      Touch(value, length);
      if (++steps > bytes + 2) Finding("field walk does not end");
    }
    if (group != KT_OK) break;
    if (++steps > bytes + 2) Finding("group walk does not end");
  }
  std::uint32_t end = 0;
  (void)KT_usFinDonnees(zone, &end);
  (void)KT_usFinZone(zone, &end);
  (void)KT_usFinGroupe(zone, &end);
}

// A zone that passes syntax control is groups end to end: walking the
// headers alone must cover the data exactly.
void CheckWellFormedCover(std::uint16_t zone) {
  if (KT_usControlerSyntaxeZoneMemoire(zone) != KT_OK) return;
  std::uint8_t* buffer = nullptr;
  std::uint32_t data_length = 0;
  (void)KT_pucLireBuffer(zone, &data_length, &buffer);
  std::uint32_t offset = 0;
  while (offset < data_length) {
    std::uint16_t id = 0;
    std::uint32_t length = 0;
    std::uint32_t header = 0;
    if (KT_usDecoderEnteteGroupe(buffer, data_length, offset, &id, &length, &header) != KT_OK ||
        length == 0 || std::uint64_t{offset} + header + length > data_length) {
      Finding("syntax control accepted a zone that is not groups end to end");
    }
    offset += header + length;
  }
}

// KT_usLireGroupeSuivant re-searches every occurrence from the start: its
// walk is cubic, so it runs on small zones only.
void ReadNextToTheEnd(std::uint16_t zone, std::uint8_t count_fields, std::uint32_t bytes) {
  if (bytes > 1024) return;
  (void)KT_usPositionnerDebut(zone);
  (void)KT_usAvancerGroupeSuivant(zone, 1, count_fields, nullptr);
  // A group of identifier 0 sends the cursor back to the start; the bound
  // keeps such a walk finite.
  for (std::uint32_t i = 0; i < bytes / 3 + 2; ++i) {
    std::uint16_t id = 0;
    std::uint16_t occurrence = 0;
    if (KT_usLireGroupeSuivant(zone, count_fields, &id, &occurrence) != KT_OK) break;
  }
}

void RunScript(std::uint16_t zone, Script& script) {
  static std::uint8_t source[512];
  for (std::size_t i = 0; i < sizeof source; ++i) source[i] = static_cast<std::uint8_t>(i * 7);
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  for (int op = 0; op < 64 && !script.Done(); ++op) {
    switch (script.Byte() % 13) {
      case 0:
        (void)KT_usAjouterGroupe(zone, script.Word());
        break;
      case 1: {
        const std::uint32_t n = script.Length();
        // Lengths stay below the source's size, or are too large for any zone.
        (void)KT_usAjouterChamp(zone, source, n);
        break;
      }
      case 2: {
        const std::uint32_t position = script.Length();
        const std::uint32_t n = script.Length();
        (void)KT_usModifierChamp(zone, source, position, n, script.Byte() & 1);
        break;
      }
      case 3: {
        const std::uint32_t position = script.Length();
        const std::uint32_t n = script.Length();
        if (KT_usExtraireChamp(zone, &value, position, n) == KT_OK) Touch(value, n);
        break;
      }
      case 4:
        (void)KT_usAvancerGroupeSuivant(zone, script.Byte() % 4, script.Byte() & 1, nullptr);
        break;
      case 5:
        if (KT_usAvancerChampSuivant(zone, script.Byte() % 4, nullptr, &value, &length) == KT_OK) {
          Touch(value, length);
        }
        break;
      case 6:
        (void)KT_usPositionnerDebut(zone);
        break;
      case 7:
        (void)KT_usPositionnerFin(zone, script.Byte() & 1);
        break;
      case 8: {
        std::uint8_t* buffer = nullptr;
        (void)KT_pucLireBuffer(zone, &length, &buffer);
        (void)KT_usRedimensionner(zone, length + script.Byte());
        break;
      }
      case 9:
        (void)KT_usRechercherGroupeSuivant(zone, script.Word(), script.Byte() % 4,
                                           script.Byte() & 1);
        break;
      case 10:
        (void)KT_usControlerSyntaxeZoneMemoire(zone);
        break;
      case 11: {
        std::uint32_t data_length = 0;
        (void)KT_pucLireBuffer(zone, &data_length, nullptr);
        const std::uint8_t count_fields = script.Byte() & 1;
        if (data_length <= 1024) (void)KT_usLireGroupeSuivant(zone, count_fields, nullptr, nullptr);
        break;
      }
      default:
        if (KT_usRechercherChamp(zone, script.Word(), script.Byte() % 3, script.Byte() % 4,
                                 script.Byte() & 1, &value, &length) == KT_OK) {
          Touch(value, length);
        }
        break;
    }
  }
}

void RunRaw(std::uint16_t zone, Script& script) {
  std::uint8_t bytes[300] = {};
  std::uint8_t* destination = bytes;
  while (!script.Done()) {
    const std::uint32_t position = script.Length();
    const std::uint32_t n = script.Length() % sizeof bytes;
    if (script.Byte() & 1) {
      (void)KT_usLireZoneMemoire(zone, position, &destination, n);
    } else {
      (void)KT_usEcrireZoneMemoire(zone, position, bytes, n);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > (1u << 20)) return 0;
  const std::uint8_t flags = data[0];
  const std::size_t script_length = std::min<std::size_t>(data[1], size - 2);
  const auto zone_length = static_cast<std::uint32_t>(size - 2 - script_length);
  const std::uint8_t* zone_bytes = data + 2;
  Script script(data + size - script_length, script_length);
  const unsigned mode = flags & 3;
  const std::uint32_t spare = (flags >> 3) * 16u;

  std::uint16_t zone = 0;
  if (KT_bRechercherZoneLibre(&zone) == 0 || zone != 0) Finding("a zone outlived its input");
  if (flags & 4) {
    (void)KT_usActiverTrace("/dev/null", "w", 1, 1, 2);
    (void)KT_usActiverTrace("/dev/null", "w", 1, 3, 2);
  }
  DecodeEverywhere(zone_bytes, zone_length);

  const std::uint32_t capacity = zone_length + (mode == 1 ? spare : 0);
  std::uint16_t us = KT_OK;
  if (capacity == 0) {
    us = KT_usCreerZoneMemoire(spare, mode == 3 ? 0 : 1, &zone);
  } else {
    auto* buffer = static_cast<std::uint8_t*>(KT_Allouer(capacity));
    if (buffer == nullptr) return 0;
    std::memset(buffer, 0xA5, capacity);
    std::memcpy(buffer, zone_bytes, zone_length);
    if (mode == 0) {
      us = KT_usInitialiserZoneMemoire(buffer, capacity, &zone, 1);
    } else if (mode == 3) {
      us = KT_usInitialiserZoneMemoire(buffer, capacity, &zone, 0);
    } else {
      const std::uint32_t claimed = mode == 2 ? zone_length + spare + 1 : zone_length;
      us = KT_usInitialiserZoneMemoireNonPlein(buffer, capacity, claimed, &zone, 1);
    }
    if (us != KT_OK) KT_Liberer(buffer);
  }
  if (us != KT_OK) Finding("adoption failed");

  if (mode == 3) {
    RunRaw(zone, script);
  } else {
    CheckWellFormedCover(zone);
    Walk(zone, 0, zone_length);
    Walk(zone, 1, zone_length);
    (void)KT_usPositionnerDebut(zone);
    (void)KT_usPositionnerFin(zone, 1);
    ReadNextToTheEnd(zone, 0, zone_length);
    ReadNextToTheEnd(zone, 1, zone_length);
    RunScript(zone, script);
    std::uint32_t data_length = 0;
    (void)KT_pucLireBuffer(zone, &data_length, nullptr);
    CheckWellFormedCover(zone);
    Walk(zone, 1, data_length);
  }

  std::uint8_t* buffer = nullptr;
  std::uint32_t ignored = 0;
  (void)KT_pucLireBuffer(zone, &ignored, &buffer);
  (void)KT_usLibererZoneMemoire(zone);
  KT_Liberer(buffer);
  if (flags & 4) (void)KT_usActiverTrace("/dev/null", "w", 1, 1, 0);
  return 0;
}
