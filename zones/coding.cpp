// Coded lengths and group headers: the byte format that components exchange.
//
//   value L                  bytes   form
//   0 .. 127                 1       L
//   128 .. 254               2       81 L
//   255 .. 65 534            3       82 L1 L0
//   65 535 .. 0xFFFFFE       4       83 L2 L1 L0
//   0xFFFFFF ..              5       84 L3 L2 L1 L0
//
//   group header: ID1 ID0, then the coded length of the contents.
//
// The zone coder widens at 255, 65 535 and 0xFFFFFF, one below what each
// long form could carry, and not at 256 like the binary-file coder; the two
// stay separate on purpose. The decoder reads any form: a lone 0x80 is 128
// and non-minimal long forms (81 05) are accepted, as zones coded elsewhere
// rely on it.
#include <cstdarg>

#include "traces/traces_internal.h"
#include "zones/zones_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 3;  // memory zones and length coding

constexpr std::uint32_t kMaxShortForm = 127;  // largest length held in its first byte
constexpr std::uint8_t kLongFormBase = 0x80;  // first byte of a long form: 0x80 + byte count
constexpr std::uint32_t kMaxLengthBytes = 4;  // most bytes a long form may announce
constexpr std::uint32_t kIdentifierBytes = 2;

// The first value that needs n + 1 bytes after the prefix, for n = 1, 2, 3.
constexpr std::uint32_t kLongFormLimits[] = {255, 65535, 0xFFFFFF};
}  // namespace

using namespace kt::traces;

uint32_t KT_stCalculerTailleLongueur(uint32_t ulLongueur) {
  if (ulLongueur <= kMaxShortForm) return 1;
  std::uint32_t bytes = 2;
  for (std::uint32_t limit : kLongFormLimits) {
    if (ulLongueur < limit) return bytes;
    ++bytes;
  }
  return bytes;
}

uint32_t KT_stCalculerTailleEnteteGroupe(uint32_t ulLongueur) {
  return KT_stCalculerTailleLongueur(ulLongueur) + kIdentifierBytes;
}

uint32_t KT_stCalculerTailleChamp(uint32_t ulLongueur) {
  return KT_stCalculerTailleLongueur(ulLongueur) + ulLongueur;
}

uint32_t KT_stCalculerTailleGroupe2(uint32_t ulLongueur) {
  return KT_stCalculerTailleEnteteGroupe(ulLongueur) + ulLongueur;
}

uint32_t KT_stCalculerTailleGroupe1(uint16_t usNombre, ...) {
  va_list lengths;
  // The count is 16-bit by the interface, so the last named parameter is a
  // promoted type; the compilers we build with locate the variadic area by
  // the count of named parameters, not by its address, so this is sound
  // for them.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wvarargs"
#endif
  va_start(lengths, usNombre);
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
  std::uint32_t contents = 0;
  // The lengths arrive promoted to unsigned int.
  for (std::uint16_t i = 0; i < usNombre; ++i) {
    contents += KT_stCalculerTailleChamp(va_arg(lengths, unsigned int));
  }
  va_end(lengths);
  return KT_stCalculerTailleGroupe2(contents);
}

uint32_t KT_stCoderLongueur(uint32_t ulLongueur, uint32_t ulOffset, uint8_t** ppucBuffer) {
  KT_TRACE(kTraceEnter, "KT_stCoderLongueur : longueur = %u, offset = %u", ulLongueur, ulOffset);
  const std::uint32_t total = KT_stCalculerTailleLongueur(ulLongueur);
  std::uint8_t* out = *ppucBuffer + ulOffset;
  if (total == 1) {
    out[0] = static_cast<std::uint8_t>(ulLongueur);
  } else {
    const std::uint32_t value_bytes = total - 1;
    out[0] = static_cast<std::uint8_t>(kLongFormBase + value_bytes);
    for (std::uint32_t i = 0; i < value_bytes; ++i) {
      out[1 + i] = static_cast<std::uint8_t>(ulLongueur >> (8 * (value_bytes - 1 - i)));
    }
  }
  KT_TRACE(kTraceExit, "nbOctets = %u", total);
  return total;
}

uint32_t KT_stCoderEnteteGroupe(uint16_t usIdentifiant, uint32_t ulLongueur, uint32_t ulOffset,
                                uint8_t** ppucBuffer) {
  KT_TRACE(kTraceEnter, "KT_stCoderEnteteGroupe : identifiant = %u, longueur = %u, offset = %u",
           usIdentifiant, ulLongueur, ulOffset);
  std::uint8_t* out = *ppucBuffer + ulOffset;
  out[0] = static_cast<std::uint8_t>(usIdentifiant >> 8);
  out[1] = static_cast<std::uint8_t>(usIdentifiant);
  const std::uint32_t total =
      kIdentifierBytes + KT_stCoderLongueur(ulLongueur, ulOffset + kIdentifierBytes, ppucBuffer);
  KT_TRACE(kTraceExit, "nbOctets = %u", total);
  return total;
}

uint16_t KT_stDecoderLongueur(const uint8_t* pucBuffer, uint32_t ulTailleBuffer, uint32_t ulOffset,
                              uint32_t* pulLongueur, uint32_t* pulNbOctets) {
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_stDecoderLongueur : offset = %u", ulOffset);
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  // Not a case of the format: an offset at or past the end (or no buffer at
  // all) would read outside the buffer, so it counts as a truncated length.
  if (pucBuffer == nullptr || ulOffset >= ulTailleBuffer) {
    KT_TRACE(kTraceError, " Buffer trop petit pour coder la longueur (%u) (tailleBuffer = %u).", 0u,
             ulTailleBuffer);
    return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  const std::uint8_t first = pucBuffer[ulOffset];
  std::uint32_t length = 0;
  std::uint32_t count = 1;
  // 0x80 reads as the short form of 128, although the coder never writes it.
  if (first <= kLongFormBase) {
    length = first;
  } else {
    const std::uint32_t n = first & 0x7Fu;
    if (n > kMaxLengthBytes) {
      KT_TRACE(kTraceError, " Nombre d'octets pour coder la longueur (%u) > %d.", n,
               static_cast<int>(kMaxLengthBytes));
      return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
    }
    if (std::uint64_t{ulOffset} + n >= ulTailleBuffer) {
      KT_TRACE(kTraceError, " Buffer trop petit pour coder la longueur (%u) (tailleBuffer = %u).",
               n, ulTailleBuffer);
      return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
    }
    for (std::uint32_t i = 1; i <= n; ++i) length = (length << 8) | pucBuffer[ulOffset + i];
    count = n + 1;
  }
  if (pulLongueur != nullptr) *pulLongueur = length;
  if (pulNbOctets != nullptr) *pulNbOctets = count;
  return us;
}

uint16_t KT_usDecoderEnteteGroupe(const uint8_t* pucBuffer, uint32_t ulTailleBuffer,
                                  uint32_t ulOffset, uint16_t* pusIdentifiant,
                                  uint32_t* pulLongueur, uint32_t* pulNbOctets) {
  if (pucBuffer == nullptr || std::uint64_t{ulOffset} + kIdentifierBytes >= ulTailleBuffer) {
    KT_TRACE(kTraceError, "Buffer trop petit pour coder l'identifiant (tailleBuffer = %u).",
             ulTailleBuffer);
    return KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  if (pusIdentifiant != nullptr) {
    *pusIdentifiant =
        static_cast<std::uint16_t>((pucBuffer[ulOffset] << 8) | pucBuffer[ulOffset + 1]);
  }
  std::uint32_t count = 0;
  const std::uint16_t us = KT_stDecoderLongueur(pucBuffer, ulTailleBuffer,
                                                ulOffset + kIdentifierBytes, pulLongueur, &count);
  // The count covers the identifier too, also when the length failed.
  if (pulNbOctets != nullptr) *pulNbOctets = count + kIdentifierBytes;
  return us;
}
