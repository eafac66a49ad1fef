// kt key generate and kt file sign | verify, end to end.
#include <sys/stat.h>

#include <string>

#include "kt_binfiles.h"
#include "tools/run_kt.h"

namespace kt::test {
namespace {

using testing::HasSubstr;

const std::string kDevelopmentKey = SourcePath("keys/development.key");

class ToolFile : public KtTool {};

TEST_F(ToolFile, KeyGenerateWritesBothFilesInTheLibraryFormats) {
  const KtRun run = Run({"key", "generate", "--bits", "512", "--out", "k"});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string key = ReadFile(File("k.key"));
  const std::string pub = ReadFile(File("k.pub"));
  ASSERT_EQ(key.size(), 3u + 704u);
  ASSERT_EQ(pub.size(), 3u + 256u);
  EXPECT_EQ(key.substr(0, 3), "512");
  EXPECT_EQ(pub.substr(0, 3 + 256), key.substr(0, 3 + 256));  // modulus, public exponent
  EXPECT_EQ(pub.substr(3, 64), std::string(64, '\0'));        // 512 bits in a 128-byte field
  struct stat info;
  ASSERT_EQ(stat(File("k.key").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  // The library reads the private key back whole.
  R_RSAPrivateKey read;
  ASSERT_EQ(KT_usLireClePrivee(File("k.key").c_str(), &read), KT_OK);
  EXPECT_EQ(read.bits, 512u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(read.coefficient), 64), key.substr(3 + 640));

  const KtRun again = Run({"key", "generate", "--bits", "512", "--out", "k"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("k.key exists (--force replaces it)"));
  EXPECT_EQ(Run({"key", "generate", "--bits", "512", "--out", "k", "--force"}).status, 0);
  EXPECT_NE(ReadFile(File("k.key")), key);
  EXPECT_EQ(Run({"key", "generate", "--bits", "2048", "--out", "big"}).status, 2);
}

TEST_F(ToolFile, SignVerifyCorruptVerifyFails) {
  CompileSample("s.vkt");  // CRC-checked
  EXPECT_EQ(Run({"file", "verify", "s.vkt", "--control", "crc"}).status, 0);
  const KtRun sign = Run({"file", "sign", "s.vkt", "--key", kDevelopmentKey});
  ASSERT_EQ(sign.status, 0) << sign.err;
  EXPECT_THAT(sign.out, HasSubstr("signature good"));
  const KtRun verify = Run({"file", "verify", "s.vkt"});
  EXPECT_EQ(verify.status, 0);
  EXPECT_EQ(verify.out, "s.vkt: signature check: signature good (built-in public key)\n");
  const std::string good = ReadFile(File("s.vkt"));
  EXPECT_EQ(good.substr(0, 4), "0000");

  // Signing again replaces the signature and changes nothing else.
  ASSERT_EQ(Run({"file", "sign", "s.vkt", "--key", kDevelopmentKey}).status, 0);
  EXPECT_EQ(ReadFile(File("s.vkt")), good);  // PKCS #1 v1.5 signatures are deterministic

  std::string bad = good;
  bad[100] ^= 0x20;
  WriteFile(File("s.vkt"), bad);
  const KtRun refused = Run({"file", "verify", "s.vkt"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out,
            "s.vkt: signature check: signature bad: 0x040B (signature does not match)\n");
  const KtRun json = Run({"file", "verify", "--json", "s.vkt"});
  EXPECT_EQ(json.status, 1);
  EXPECT_THAT(json.out, HasSubstr("\"good\":false,\"status\":\"0xF630\""));
  const KtRun dump = Run({"tables", "dump", "s.vkt"});
  EXPECT_EQ(dump.status, 1);
  EXPECT_THAT(dump.out, HasSubstr("control     signature bad"));
}

TEST_F(ToolFile, SigningWithAnotherKeyLeavesTheFileAsItWas) {
  CompileSample("s.vkt", {"--control", "signature", "--key", kDevelopmentKey});
  ASSERT_EQ(Run({"file", "verify", "s.vkt"}).status, 0);
  const std::string before = ReadFile(File("s.vkt"));
  // A 512-bit key makes 64-byte signatures, which signed files cannot hold.
  ASSERT_EQ(Run({"key", "generate", "--bits", "512", "--out", "small"}).status, 0);
  const KtRun run = Run({"file", "sign", "s.vkt", "--key", "small.key"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("key problem: small.key holds a 512-bit key; signed files need "
                                 "1024 bits; s.vkt left as it was"));
  EXPECT_EQ(ReadFile(File("s.vkt")), before);
  EXPECT_EQ(Run({"file", "sign", "s.vkt", "--key", "missing.key"}).status, 1);
  EXPECT_EQ(ReadFile(File("s.vkt")), before);
}

TEST_F(ToolFile, UncheckedFilesAreSignedAndBrokenOnesRefused) {
  CompileSample("n.vkt", {"--control", "none"});
  ASSERT_EQ(Run({"file", "sign", "n.vkt", "--key", kDevelopmentKey}).status, 0);
  EXPECT_EQ(Run({"file", "verify", "n.vkt"}).status, 0);
  EXPECT_EQ(Run({"tables", "dump", "n.vkt"}).status, 0);

  CompileSample("c.vkt");
  std::string bytes = ReadFile(File("c.vkt"));
  bytes.back() ^= 1;
  WriteFile(File("c.vkt"), bytes);
  const KtRun run = Run({"file", "sign", "c.vkt", "--key", kDevelopmentKey});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("CRC bad"));
}

}  // namespace
}  // namespace kt::test
