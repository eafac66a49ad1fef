// RSAPublicDecrypt and RSAPrivateDecrypt on arbitrary blocks with a fixed
// 512-bit key. The first byte picks the mode: arbitrary cryptograms, or a
// chosen plaintext block sent through the opposite raw operation first, so
// that the block checks see every shape of type-1 and type-2 block.
#include <cstdint>
#include <cstdlib>

#include "fuzz/fuzz_keys.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kt::fuzz::FixedKeys& keys = kt::fuzz::Keys();
  kt::fuzz::Reader in(data, size);
  const std::uint8_t mode = in.Byte();
  std::size_t len;
  const std::uint8_t* input = in.Take(160, &len);
  const auto input_len = static_cast<std::uint32_t>(len);
  unsigned char block[128], out[128];
  std::uint32_t block_len = 0, out_len = 0, status;

  switch (mode % 3) {
    case 0:
      status = RSAPublicDecrypt(out, &out_len, input, input_len, &keys.pub);
      if (status == KT_RE_OK && out_len > 64 - 11) std::abort();
      status = RSAPrivateDecrypt(out, &out_len, input, input_len, &keys.priv);
      if (status == KT_RE_OK && out_len > 64 - 11) std::abort();
      break;
    case 1:  // chosen type-1 block
      if (RSAPrivateBlock(block, &block_len, input, input_len, &keys.priv) == KT_RE_OK) {
        status = RSAPublicDecrypt(out, &out_len, block, block_len, &keys.pub);
        if (status == KT_RE_OK && out_len > 64 - 11) std::abort();
      }
      break;
    default:  // chosen type-2 block
      if (RSAPublicBlock(block, &block_len, input, input_len, &keys.pub) == KT_RE_OK) {
        status = RSAPrivateDecrypt(out, &out_len, block, block_len, &keys.priv);
        if (status == KT_RE_OK && out_len > 64 - 11) std::abort();
      }
      break;
  }
  return 0;
}
