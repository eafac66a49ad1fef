// Secrets do not outlive the call that used them: after sealing, opening,
// signing and key generation, the caller's contexts hold no plain text or
// digest, and the stack the library ran on holds no copy of the plain text,
// the digest or the primes. The stack is scanned only where locals live on
// it: AddressSanitizer may move them to a heap-backed fake stack.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "crypto/crypto_test_util.h"

#if defined(__SANITIZE_ADDRESS__)
#define KT_STACK_SCAN 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_STACK_SCAN 0
#endif
#endif
#ifndef KT_STACK_SCAN
#define KT_STACK_SCAN 1
#endif

namespace kt::test {
namespace {

constexpr std::size_t kScanned = 48 * 1024;  // the library's deepest calls stay well inside
constexpr std::size_t kGap = 2048;  // more than the scanner's own frame needs

// Zeroes the stack below the caller, runs `call` below a gap of two kGap,
// then reports whether any of `secrets` (each at least 8 bytes) is left in
// that region; the scan leaves out the top kGap, where its own frame lies.
// `call` must call nothing after the library, which would overwrite the
// frames to be scanned: it only stores the status.
[[gnu::noinline]] void ClearStack() {
  volatile unsigned char area[kScanned + 3 * kGap];
  for (std::size_t i = 0; i < sizeof area; ++i) area[i] = 0;
}
[[gnu::noinline]] void CallBelowGap(const std::function<void()>& call) {
  volatile unsigned char gap[2 * kGap];
  gap[0] = 0;
  call();
  gap[sizeof gap - 1] = gap[0];
}
[[gnu::noinline]] bool Found(const std::vector<ByteVector>& secrets) {
  volatile unsigned char area[kScanned + 2 * kGap];  // read, never written: what the calls left
  ByteVector copy(kScanned + kGap);
  for (std::size_t i = 0; i < copy.size(); ++i) copy[i] = area[i];
  for (const ByteVector& secret : secrets) {
    if (std::search(copy.begin(), copy.end(), secret.begin(), secret.end()) != copy.end()) {
      return true;
    }
  }
  return false;
}
bool StackKeeps(const std::vector<ByteVector>& secrets, const std::function<void()>& call) {
  ClearStack();
  CallBelowGap(call);
  return Found(secrets);
}

// A number's digits as they lie in memory, four at a time from its low end.
ByteVector DigitsInMemory(const unsigned char* bytes, uint32_t len) {
  NN_DIGIT digits[MAX_NN_DIGITS] = {};
  NN_Decode(digits, MAX_NN_DIGITS, bytes, len);
  ByteVector out(4 * sizeof(NN_DIGIT));
  std::memcpy(out.data(), digits, out.size());
  return out;
}

TEST(Wipe, SealAndOpenLeaveNoPlainTextBehind) {
  const KeyPair& key = TestKey(512);
  R_RandomContext random = SeededRandom(31);
  const ByteVector plain = Text("plain text whose tail stays: TAIL!");
  const std::size_t tail_len = plain.size() % 8;
  const ByteVector tail(plain.end() - static_cast<std::ptrdiff_t>(tail_len), plain.end());
  for (int32_t algorithm = 1; algorithm <= 4; ++algorithm) {
    SCOPED_TRACE(algorithm);
    R_EnvelopeContext seal;
    unsigned char encrypted_key[128], iv[8];
    unsigned char* keys[1] = {encrypted_key};
    uint32_t key_len = 0;
    R_RSAPublicKey pub = key.pub;
    R_RSAPublicKey* recipients[1] = {&pub};
    ASSERT_EQ(R_SealInit(&seal, keys, &key_len, iv, 1, recipients, algorithm, &random), KT_RE_OK);
    ByteVector cryptogram(plain.size() + 16);
    uint32_t len = 0, last_len = 0;
    ASSERT_EQ(R_SealUpdate(&seal, cryptogram.data(), &len, plain.data(),
                           static_cast<uint32_t>(plain.size())),
              KT_RE_OK);
    ASSERT_EQ(R_SealFinal(&seal, cryptogram.data() + len, &last_len), KT_RE_OK);
    cryptogram.resize(len + last_len);
    // The buffer held the content's tail and the padding.
    EXPECT_EQ(ByteVector(seal.buffer, seal.buffer + 8), ByteVector(8, 0));

    R_EnvelopeContext open;
    ASSERT_EQ(R_OpenInit(&open, algorithm, encrypted_key, key_len, iv, &key.priv), KT_RE_OK);
    ByteVector opened(cryptogram.size());
    ASSERT_EQ(R_OpenUpdate(&open, opened.data(), &len, cryptogram.data(),
                           static_cast<uint32_t>(cryptogram.size())),
              KT_RE_OK);
    // The last block, decrypted: the content's tail and the padding.
    ByteVector last_block = tail;
    last_block.resize(8, static_cast<unsigned char>(8 - tail_len));
    uint32_t status = 1;
    const bool kept = StackKeeps(
        {last_block}, [&] { status = R_OpenFinal(&open, opened.data() + len, &last_len); });
    EXPECT_EQ(status, KT_RE_OK);
    EXPECT_EQ(ByteVector(opened.begin(), opened.begin() + len + last_len), plain);
    if (KT_STACK_SCAN) {
      EXPECT_FALSE(kept) << "R_OpenFinal left the decrypted last block on the stack";
    }
  }
}

TEST(Wipe, SigningLeavesNoDigestBehind) {
  const KeyPair& key = TestKey(512);
  const ByteVector message = Text("message to be signed, then verified");
  unsigned char digest[16];
  uint32_t digest_len = 0;
  ASSERT_EQ(R_DigestBlock(digest, &digest_len, message.data(),
                          static_cast<uint32_t>(message.size()), KT_DA_MD5),
            KT_RE_OK);
  const std::vector<ByteVector> secrets = {ByteVector(digest, digest + 16)};

  R_DigestContext fresh{}, context{};  // Init leaves the block buffer as it finds it
  ASSERT_EQ(R_SignInit(&fresh, KT_DA_MD5), KT_RE_OK);
  ASSERT_EQ(R_SignInit(&context, KT_DA_MD5), KT_RE_OK);
  ASSERT_EQ(R_SignUpdate(&context, message.data(), static_cast<uint32_t>(message.size())),
            KT_RE_OK);
  unsigned char signature[128];
  uint32_t signature_len = 0;
  uint32_t final_status = 1, block_status = 1, verify_status = 1;
  const bool kept_by_final = StackKeeps(secrets, [&] {
    final_status = R_SignFinal(&context, signature, &signature_len, &key.priv);
  });
  // Ready for the next message: nothing of this one is left in the context.
  EXPECT_EQ(std::memcmp(&context, &fresh, sizeof context), 0);

  const bool kept_by_block = StackKeeps(secrets, [&] {
    block_status = R_SignBlock(signature, &signature_len, message.data(),
                               static_cast<uint32_t>(message.size()), KT_DA_MD5, &key.priv);
  });
  const bool kept_by_verify = StackKeeps(secrets, [&] {
    verify_status = R_VerifyBlockSignature(message.data(), static_cast<uint32_t>(message.size()),
                                           signature, signature_len, KT_DA_MD5, &key.pub);
  });
  EXPECT_EQ(final_status, KT_RE_OK);
  EXPECT_EQ(block_status, KT_RE_OK);
  EXPECT_EQ(verify_status, KT_RE_OK);
  if (KT_STACK_SCAN) {
    EXPECT_FALSE(kept_by_final);
    EXPECT_FALSE(kept_by_block);
    EXPECT_FALSE(kept_by_verify);
  }
}

TEST(Wipe, KeyGenerationLeavesNoPrimeBehind) {
  R_RandomContext random = SeededRandom(37);
  R_ProtoKey proto = {512, 1};
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
  uint32_t status = 1;
  (void)StackKeeps({}, [&] { status = R_GeneratePEMKeys(&pub, &priv, &proto, &random); });
  ASSERT_EQ(status, KT_RE_OK);
  // Known only now: scan what the call left, before anything else runs there.
  // (StackKeeps above cleared the region first, so only the call wrote it.)
  std::vector<ByteVector> secrets;
  for (const unsigned char* number : {priv.prime[0], priv.prime[1], priv.primeExponent[0],
                                      priv.primeExponent[1], priv.coefficient}) {
    secrets.push_back(DigitsInMemory(number, 64));
    secrets.emplace_back(number + 48, number + 64);
  }
  secrets.push_back(DigitsInMemory(priv.exponent, 128));
  if (KT_STACK_SCAN) {
    EXPECT_FALSE(Found(secrets)) << "a prime or private exponent is left on the stack";
  }
}

}  // namespace
}  // namespace kt::test
