// kt key generate: an RSA key pair in the files the library and the build
// read, drawn with the library's own key generation.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "frame/support.h"
#include "kt_crypto.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

constexpr std::size_t kSeedBytes = 256;

const CommandSyntax kKeyGenerateSyntax = {
    "key generate",
    "--out NAME [--bits N] [--force]",
    "Draws an RSA key pair (e = 65537) seeded with 256 bytes of /dev/urandom,\n"
    "checks that it signs and verifies, and writes NAME.key, the private-key\n"
    "file that signs tables files, and NAME.pub, the public-key file that the\n"
    "build turns into the library's built-in key (KT_PUBLIC_KEY_FILE, which\n"
    "takes 1024-bit keys only; file signatures need 1024 bits too).\n"
    "  --out NAME         base name of the two files\n"
    "  --bits N           508 to 1024 (default 1024)\n"
    "  --force            replace existing files\n",
    {{"--out", true}, {"--bits", true}, {"--force", false}},
    0,
    0,
};

bool ReadSeed(unsigned char* seed) {
  std::ifstream source("/dev/urandom", std::ios::binary);
  source.read(reinterpret_cast<char*>(seed), kSeedBytes);
  return source.gcount() == static_cast<std::streamsize>(kSeedBytes);
}

struct Part {
  const unsigned char* bytes;
  std::size_t size;
};

// The bit count in decimal, then the parts with no separator. The file is
// made beside its target (through a link, the link's target) and renamed
// over it only when complete. It keeps an existing file's mode; `mode` is
// the mode of a new one, and `private_mode` takes group and other rights
// away whatever the old mode was.
bool WriteKeyFile(const std::string& path, mode_t mode, bool private_mode, unsigned bits,
                  std::initializer_list<Part> parts, std::string* error) {
  const std::string target = OutputTarget(path);
  struct stat existing;
  if (stat(target.c_str(), &existing) == 0) mode = existing.st_mode & 07777;
  if (private_mode) mode &= 0700;
  std::string temporary = target + ".kt-XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) {
    *error = SystemError("cannot write " + path, errno);
    return false;
  }
  std::string bytes = std::to_string(bits);
  for (const Part& part : parts) bytes.append(reinterpret_cast<const char*>(part.bytes), part.size);
  bool ok = fchmod(fd, mode) == 0 &&
            write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
            fsync(fd) == 0;
  kt::SecureWipe(bytes.data(), bytes.size());
  ok = close(fd) == 0 && ok;
  ok = ok && rename(temporary.c_str(), target.c_str()) == 0;
  if (!ok) {
    *error = SystemError("cannot write " + path, errno);
    unlink(temporary.c_str());
  }
  return ok;
}

bool SelfTest(const R_RSAPublicKey& public_key, const R_RSAPrivateKey& private_key) {
  static const unsigned char kMessage[] = "kt key generate self-test";
  unsigned char signature[KT_MAX_SIGNATURE_LEN];
  std::uint32_t length = 0;
  return R_SignBlock(signature, &length, kMessage, sizeof kMessage, KT_DA_MD5, &private_key) ==
             KT_RE_OK &&
         R_VerifyBlockSignature(kMessage, sizeof kMessage, signature, length, KT_DA_MD5,
                                &public_key) == KT_RE_OK;
}

int Generate(Context&, const ParsedArgs& args) {
  const std::string base = args.Get("--out");
  if (base.empty()) return UsageError(kKeyGenerateSyntax, "--out NAME is required");
  const std::string bits_text = args.Get("--bits", "1024");
  unsigned bits = 0;
  if (std::sscanf(bits_text.c_str(), "%u", &bits) != 1 || std::to_string(bits) != bits_text ||
      bits < KT_MIN_RSA_MODULUS_BITS || bits > KT_MAX_RSA_MODULUS_BITS) {
    return UsageError(kKeyGenerateSyntax, "--bits is a number from 508 to 1024");
  }
  const std::string key_path = base + ".key";
  const std::string public_path = base + ".pub";
  if (!args.Has("--force")) {
    for (const std::string& path : {key_path, public_path}) {
      if (std::filesystem::exists(path)) {
        return Failure(kKeyGenerateSyntax.name, path + " exists (--force replaces it)");
      }
    }
  }

  R_RSAPublicKey public_key;
  R_RSAPrivateKey private_key;
  unsigned char seed[kSeedBytes];
  R_RandomContext random;
  std::uint32_t status = KT_RE_OK;
  while (true) {
    if (!ReadSeed(seed)) return Failure(kKeyGenerateSyntax.name, "cannot read /dev/urandom");
    R_RandomInit(&random);
    R_RandomUpdate(&random, seed, kSeedBytes);
    kt::SecureWipe(seed, sizeof seed);
    R_ProtoKey proto;
    proto.bits = bits;
    proto.useFermat4 = 1;
    status = R_GeneratePEMKeys(&public_key, &private_key, &proto, &random);
    R_RandomFinal(&random);
    // The key reader takes the decimal bit count with "%d": a first modulus
    // byte that is a digit would be read as part of it. Only a 1022-bit
    // modulus can start so in its 128-byte field; such a draw is made again.
    if (status != KT_RE_OK || public_key.modulus[0] < '0' || public_key.modulus[0] > '9') break;
  }
  if (status != KT_RE_OK || !SelfTest(public_key, private_key)) {
    kt::SecureWipe(&private_key, sizeof private_key);
    return Failure(kKeyGenerateSyntax.name, "key generation failed: " + ToolkitStatusText(status));
  }
  std::string error;
  const bool written = WriteKeyFile(key_path, 0600, true, bits,
                                    {{private_key.modulus, KT_MAX_RSA_MODULUS_LEN},
                                     {private_key.publicExponent, KT_MAX_RSA_MODULUS_LEN},
                                     {private_key.exponent, KT_MAX_RSA_MODULUS_LEN},
                                     {private_key.prime[0], KT_MAX_RSA_PRIME_LEN},
                                     {private_key.prime[1], KT_MAX_RSA_PRIME_LEN},
                                     {private_key.primeExponent[0], KT_MAX_RSA_PRIME_LEN},
                                     {private_key.primeExponent[1], KT_MAX_RSA_PRIME_LEN},
                                     {private_key.coefficient, KT_MAX_RSA_PRIME_LEN}},
                                    &error) &&
                       WriteKeyFile(public_path, 0644, false, bits,
                                    {{public_key.modulus, KT_MAX_RSA_MODULUS_LEN},
                                     {public_key.exponent, KT_MAX_RSA_MODULUS_LEN}},
                                    &error);
  kt::SecureWipe(&private_key, sizeof private_key);
  if (!written) return Failure(kKeyGenerateSyntax.name, error);
  std::printf("wrote %s (private key) and %s (public key), %u bits\n", key_path.c_str(),
              public_path.c_str(), bits);
  return kExitOk;
}

}  // namespace

int RunKeyGenerate(Context& context, Arguments words) {
  return ParseAndRun(kKeyGenerateSyntax, Generate, context, words);
}

}  // namespace kt::tool
