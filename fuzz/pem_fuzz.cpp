// Printable decoding of arbitrary text: it either fails with the encoding
// status or decodes to bytes that encode back to an equivalent text (which
// decodes to the same bytes); encoding arbitrary bytes always round-trips.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_keys.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::uint32_t len = static_cast<std::uint32_t>(size);
  std::vector<unsigned char> decoded(3 * (size / 4) + 1);
  std::uint32_t decoded_len = 0;
  const std::uint32_t status = R_DecodePEMBlock(decoded.data(), &decoded_len, data, len);
  if (status != KT_RE_OK && status != KT_RE_ENCODING) std::abort();
  if (status == KT_RE_OK) {
    if (decoded_len > 3 * (size / 4)) std::abort();
    std::vector<unsigned char> text(4 * (decoded_len / 3 + 1));
    std::uint32_t text_len = 0;
    R_EncodePEMBlock(text.data(), &text_len, decoded.data(), decoded_len);
    if (text_len != len) std::abort();
    std::vector<unsigned char> again(decoded_len + 3);
    std::uint32_t again_len = 0;
    if (R_DecodePEMBlock(again.data(), &again_len, text.data(), text_len) != KT_RE_OK ||
        again_len != decoded_len || std::memcmp(again.data(), decoded.data(), decoded_len) != 0) {
      std::abort();
    }
  }
  std::vector<unsigned char> text(4 * (size / 3 + 1));
  std::uint32_t text_len = 0;
  R_EncodePEMBlock(text.data(), &text_len, data, len);
  std::vector<unsigned char> back(size + 3);
  std::uint32_t back_len = 0;
  if (R_DecodePEMBlock(back.data(), &back_len, text.data(), text_len) != KT_RE_OK ||
      back_len != len || (size != 0 && std::memcmp(back.data(), data, size) != 0)) {
    std::abort();
  }
  return 0;
}
