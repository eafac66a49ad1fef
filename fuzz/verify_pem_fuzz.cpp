// R_VerifyPEMSignature and R_OpenPEMBlock on arbitrary printable texts with a
// fixed key. The input is cut into content, key and signature texts at
// positions it gives itself; lengths beyond the limits must be refused
// before any decoding, and nothing may be written outside the buffers.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "fuzz/fuzz_keys.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kt::fuzz::FixedKeys& keys = kt::fuzz::Keys();
  kt::fuzz::Reader in(data, size);
  const std::uint8_t mode = in.Byte();
  const std::size_t signature_chars = in.Byte();
  const std::size_t key_chars = in.Byte();
  unsigned char iv[8];
  for (unsigned char& b : iv) b = in.Byte();
  std::size_t signature_len, key_len;
  const std::uint8_t* signature = in.Take(signature_chars, &signature_len);
  const std::uint8_t* key = in.Take(key_chars, &key_len);
  const std::size_t content_len = in.left();
  const std::uint8_t* content = in.rest();

  std::vector<unsigned char> out(3 * content_len / 4 + 8);
  std::uint32_t out_len = 0;
  const std::int32_t digest = (mode & 2) ? KT_DA_MD2 : KT_DA_MD5;
  if ((mode & 1) == 0) {
    R_VerifyPEMSignature(out.data(), &out_len, content, static_cast<std::uint32_t>(content_len),
                         signature, static_cast<std::uint32_t>(signature_len), (mode >> 2) & 1,
                         digest, &keys.pub);
    if (out_len > (((mode >> 2) & 1) ? 3 * content_len / 4 : content_len)) std::abort();
  } else {
    const std::uint32_t status = R_OpenPEMBlock(
        out.data(), &out_len, content, static_cast<std::uint32_t>(content_len), key,
        static_cast<std::uint32_t>(key_len), signature, static_cast<std::uint32_t>(signature_len),
        iv, digest, &keys.priv, &keys.pub);
    if (status == KT_RE_OK && out_len > 3 * content_len / 4) std::abort();
  }
  return 0;
}
