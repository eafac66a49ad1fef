// R_OpenInit, R_OpenUpdate and R_OpenFinal on arbitrary inputs with a fixed
// key. Mode bit 0: the encrypted key comes from the input (64 bytes), or is
// a valid one sealed at start-up, so that the content path is reached. The
// cryptogram is fed in pieces whose sizes come from the input too.
#include <cstdint>
#include <cstdlib>

#include "fuzz/fuzz_keys.h"

namespace {

struct Prepared {
  unsigned char encrypted_key[4][128];
  std::uint32_t encrypted_key_len[4];
};

const Prepared& Sealed() {
  static const Prepared prepared = [] {
    kt::fuzz::FixedKeys& keys = kt::fuzz::Keys();
    Prepared p;
    for (int a = 0; a < 4; ++a) {
      R_EnvelopeContext context;
      unsigned char iv[8];
      unsigned char* out[1] = {p.encrypted_key[a]};
      R_RSAPublicKey* recipients[1] = {&keys.pub};
      if (R_SealInit(&context, out, &p.encrypted_key_len[a], iv, 1, recipients, a + 1,
                     &keys.random) != KT_RE_OK) {
        std::abort();
      }
    }
    return p;
  }();
  return prepared;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kt::fuzz::FixedKeys& keys = kt::fuzz::Keys();
  kt::fuzz::Reader in(data, size);
  const std::uint8_t mode = in.Byte();
  const std::int32_t algorithm = static_cast<std::int32_t>(in.Byte() % 6);  // 0 and 5 unknown
  unsigned char iv[8];
  for (unsigned char& b : iv) b = in.Byte();

  const unsigned char* key;
  std::uint32_t key_len;
  if ((mode & 1) != 0 && algorithm >= 1 && algorithm <= 4) {
    key = Sealed().encrypted_key[algorithm - 1];
    key_len = Sealed().encrypted_key_len[algorithm - 1];
  } else {
    std::size_t taken;
    key = in.Take(64 + (mode >> 7), &taken);  // 65 bytes: too long for the key
    key_len = static_cast<std::uint32_t>(taken);
  }
  R_EnvelopeContext context;
  if (R_OpenInit(&context, algorithm, key, key_len, iv, &keys.priv) != KT_RE_OK) return 0;

  unsigned char out[64 + 7];
  std::uint32_t out_len = 0, total = 0;
  while (in.left() != 0) {
    std::size_t piece;
    const std::uint8_t* p = in.Take(in.Byte() % 64, &piece);
    if (R_OpenUpdate(&context, out, &out_len, p, static_cast<std::uint32_t>(piece)) != KT_RE_OK ||
        out_len > piece + 7) {
      std::abort();
    }
    total += out_len;
  }
  const std::uint32_t status = R_OpenFinal(&context, out, &out_len);
  if (status == KT_RE_OK && out_len > 7) std::abort();
  if (status != KT_RE_OK && status != KT_RE_CONTENT) std::abort();
  (void)total;
  return 0;
}
