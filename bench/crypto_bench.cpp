// The toolkit against OpenSSL's libcrypto in the same run: MD5 and the DES
// family on 8 KiB blocks (bytes per second), modular exponentiation, key
// generation, RSA-1024 private and public operations, and envelopes over a
// 64 KiB message. Each KT case has an OpenSSL twin named ..._OpenSsl; at the
// end of the run a table gives each ratio ours/OpenSSL (throughput, so higher
// is better) from the mean CPU time of the repetitions. By default every case
// runs three times, the repetitions of all cases interleaved in random order,
// so that load from other users of the machine falls on both sides alike.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kt_crypto.h"

#ifdef KT_HAVE_OPENSSL
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <openssl/bn.h>
#include <openssl/des.h>
#include <openssl/md5.h>
#include <openssl/rsa.h>
#endif

namespace {

constexpr std::size_t kBlock = 8192;

R_RandomContext SeededRandom() {
  R_RandomContext context;
  R_RandomInit(&context);
  unsigned char seed[256];
  for (unsigned i = 0; i < sizeof seed; ++i) seed[i] = static_cast<unsigned char>(i * 7);
  R_RandomUpdate(&context, seed, sizeof seed);
  return context;
}

std::vector<unsigned char> Data(std::size_t n) {
  std::vector<unsigned char> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 131 + 7);
  return v;
}

void BM_Md5_Update(benchmark::State& state) {
  const auto data = Data(kBlock);
  MD5Context context;
  MD5Init(&context);
  for (auto _ : state) {
    MD5Update(&context, data.data(), kBlock);
    benchmark::DoNotOptimize(context.state[0]);
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
BENCHMARK(BM_Md5_Update);

// CBC over the buffer in place, the way round `encrypt` says (decryption
// takes its blocks in pairs, encryption one at a time).
void DesCbc(benchmark::State& state, int encrypt) {
  auto data = Data(kBlock);
  const unsigned char key[8] = {1, 35, 69, 103, 137, 171, 205, 239}, iv[8] = {};
  DESContext context;
  DES_CBCInit(&context, key, iv, encrypt);
  for (auto _ : state) {
    DES_CBCUpdate(&context, data.data(), data.data(), kBlock);
    benchmark::DoNotOptimize(data[0]);
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
void BM_Des_CbcEncrypt(benchmark::State& state) { DesCbc(state, 1); }
BENCHMARK(BM_Des_CbcEncrypt);
void BM_Des_CbcDecrypt(benchmark::State& state) { DesCbc(state, 0); }
BENCHMARK(BM_Des_CbcDecrypt);

void Des3Cbc(benchmark::State& state, int encrypt) {
  auto data = Data(kBlock);
  const auto key = Data(24);
  const unsigned char iv[8] = {};
  DES3Context context;
  DES3_CBCInit(&context, key.data(), iv, encrypt);
  for (auto _ : state) {
    DES3_CBCUpdate(&context, data.data(), data.data(), kBlock);
    benchmark::DoNotOptimize(data[0]);
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
void BM_Des3_CbcEncrypt(benchmark::State& state) { Des3Cbc(state, 1); }
BENCHMARK(BM_Des3_CbcEncrypt);
void BM_Des3_CbcDecrypt(benchmark::State& state) { Des3Cbc(state, 0); }
BENCHMARK(BM_Des3_CbcDecrypt);

// A modulus of `bits` bits (odd, top bit set) with base and exponent below it.
struct ExpOperands {
  NN_DIGIT b[MAX_NN_DIGITS] = {}, e[MAX_NN_DIGITS] = {}, d[MAX_NN_DIGITS] = {};
  unsigned digits;
  explicit ExpOperands(unsigned bits) : digits(bits / 32) {
    for (unsigned i = 0; i < digits; ++i) {
      d[i] = 0x9E3779B9u * (i + 1) ^ 0x7F4A7C15u;
      b[i] = 0x85EBCA6Bu * (i + 3);
      e[i] = 0xC2B2AE35u * (i + 5);
    }
    d[digits - 1] |= 0x80000000u;
    d[0] |= 1;
    b[digits - 1] &= 0x7FFFFFFFu;
    e[digits - 1] &= 0x7FFFFFFFu;
  }
};

void BM_Nn_ModExp(benchmark::State& state) {
  ExpOperands op(static_cast<unsigned>(state.range(0)));
  NN_DIGIT a[MAX_NN_DIGITS];
  for (auto _ : state) {
    NN_ModExp(a, op.b, op.e, op.digits, op.d, op.digits);
    benchmark::DoNotOptimize(a[0]);
  }
}
BENCHMARK(BM_Nn_ModExp)->Arg(512)->Arg(1024)->Unit(benchmark::kMicrosecond);

void BM_KeyGen_Rsa1024(benchmark::State& state) {
  R_RandomContext random = SeededRandom();
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
  R_ProtoKey proto = {1024, 1};
  for (auto _ : state) {
    if (R_GeneratePEMKeys(&pub, &priv, &proto, &random) != KT_RE_OK) state.SkipWithError("keygen");
  }
}
BENCHMARK(BM_KeyGen_Rsa1024)->Unit(benchmark::kMillisecond)->Iterations(20);

struct BenchKey {
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
};

const BenchKey& Key1024() {
  static const BenchKey key = [] {
    BenchKey k;
    R_RandomContext random = SeededRandom();
    R_ProtoKey proto = {1024, 1};
    R_GeneratePEMKeys(&k.pub, &k.priv, &proto, &random);
    return k;
  }();
  return key;
}

// The private-key operation of a signature: a type-1 block around a
// 34-byte DigestInfo.
void BM_Rsa_Sign1024(benchmark::State& state) {
  const BenchKey& key = Key1024();
  unsigned char info[34] = {0x30}, signature[128];
  uint32_t len;
  for (auto _ : state) {
    RSAPrivateEncrypt(signature, &len, info, sizeof info, &key.priv);
    benchmark::DoNotOptimize(signature[0]);
  }
}
BENCHMARK(BM_Rsa_Sign1024)->Unit(benchmark::kMicrosecond);

void BM_Rsa_Verify1024(benchmark::State& state) {
  const BenchKey& key = Key1024();
  unsigned char info[34] = {0x30}, signature[128], back[128];
  uint32_t len;
  RSAPrivateEncrypt(signature, &len, info, sizeof info, &key.priv);
  for (auto _ : state) {
    RSAPublicDecrypt(back, &len, signature, 128, &key.pub);
    benchmark::DoNotOptimize(back[0]);
  }
}
BENCHMARK(BM_Rsa_Verify1024)->Unit(benchmark::kMicrosecond);

constexpr uint32_t kMessage = 64 * 1024;

// Seals 64 KiB under DES-CBC for one 1024-bit recipient.
void BM_Envelope_Seal64K(benchmark::State& state) {
  const BenchKey& key = Key1024();
  R_RSAPublicKey pub = key.pub;
  R_RSAPublicKey* recipients[1] = {&pub};
  R_RandomContext random = SeededRandom();
  const auto message = Data(kMessage);
  std::vector<unsigned char> out(kMessage + 16);
  unsigned char encrypted_key[128], iv[8];
  unsigned char* keys[1] = {encrypted_key};
  uint32_t key_len, len, last;
  for (auto _ : state) {
    R_EnvelopeContext context;
    R_SealInit(&context, keys, &key_len, iv, 1, recipients, KT_EA_DES_CBC, &random);
    R_SealUpdate(&context, out.data(), &len, message.data(), kMessage);
    R_SealFinal(&context, out.data() + len, &last);
    benchmark::DoNotOptimize(out[0]);
  }
  state.SetBytesProcessed(state.iterations() * kMessage);
}
BENCHMARK(BM_Envelope_Seal64K)->Unit(benchmark::kMicrosecond);

void BM_Envelope_Open64K(benchmark::State& state) {
  const BenchKey& key = Key1024();
  R_RSAPublicKey pub = key.pub;
  R_RSAPublicKey* recipients[1] = {&pub};
  R_RandomContext random = SeededRandom();
  const auto message = Data(kMessage);
  std::vector<unsigned char> sealed(kMessage + 16), out(kMessage + 16);
  unsigned char encrypted_key[128], iv[8];
  unsigned char* keys[1] = {encrypted_key};
  uint32_t key_len, len, last;
  R_EnvelopeContext context;
  R_SealInit(&context, keys, &key_len, iv, 1, recipients, KT_EA_DES_CBC, &random);
  R_SealUpdate(&context, sealed.data(), &len, message.data(), kMessage);
  R_SealFinal(&context, sealed.data() + len, &last);
  const uint32_t sealed_len = len + last;
  for (auto _ : state) {
    R_OpenInit(&context, KT_EA_DES_CBC, encrypted_key, key_len, iv, &key.priv);
    R_OpenUpdate(&context, out.data(), &len, sealed.data(), sealed_len);
    R_OpenFinal(&context, out.data() + len, &last);
    benchmark::DoNotOptimize(out[0]);
  }
  state.SetBytesProcessed(state.iterations() * kMessage);
}
BENCHMARK(BM_Envelope_Open64K)->Unit(benchmark::kMicrosecond);

#ifdef KT_HAVE_OPENSSL
RSA* OpenSslKey1024() {
  static RSA* rsa = [] {
    const BenchKey& key = Key1024();
    auto bn = [](const unsigned char* p, int len) { return BN_bin2bn(p, len, nullptr); };
    RSA* r = RSA_new();
    RSA_set0_key(r, bn(key.priv.modulus, 128), bn(key.priv.publicExponent, 128),
                 bn(key.priv.exponent, 128));
    RSA_set0_factors(r, bn(key.priv.prime[0], 64), bn(key.priv.prime[1], 64));
    RSA_set0_crt_params(r, bn(key.priv.primeExponent[0], 64), bn(key.priv.primeExponent[1], 64),
                        bn(key.priv.coefficient, 64));
    return r;
  }();
  return rsa;
}

void BM_Rsa_Sign1024_OpenSsl(benchmark::State& state) {
  RSA* rsa = OpenSslKey1024();
  unsigned char info[34] = {0x30}, signature[128];
  for (auto _ : state) {
    RSA_private_encrypt(sizeof info, info, signature, rsa, RSA_PKCS1_PADDING);
    benchmark::DoNotOptimize(signature[0]);
  }
}
BENCHMARK(BM_Rsa_Sign1024_OpenSsl)->Unit(benchmark::kMicrosecond);

void BM_Rsa_Verify1024_OpenSsl(benchmark::State& state) {
  RSA* rsa = OpenSslKey1024();
  unsigned char info[34] = {0x30}, signature[128], back[128];
  RSA_private_encrypt(sizeof info, info, signature, rsa, RSA_PKCS1_PADDING);
  for (auto _ : state) {
    RSA_public_decrypt(128, signature, back, rsa, RSA_PKCS1_PADDING);
    benchmark::DoNotOptimize(back[0]);
  }
}
BENCHMARK(BM_Rsa_Verify1024_OpenSsl)->Unit(benchmark::kMicrosecond);

// The same work with OpenSSL: the key under RSA PKCS #1, the content under
// DES-CBC (low-level interface, no padding step of its own).
void BM_Envelope_Seal64K_OpenSsl(benchmark::State& state) {
  RSA* rsa = OpenSslKey1024();
  auto message = Data(kMessage);
  std::vector<unsigned char> out(kMessage);
  DES_cblock key = {1, 35, 69, 103, 137, 171, 205, 239}, iv = {};
  unsigned char encrypted_key[128];
  for (auto _ : state) {
    RSA_public_encrypt(8, key, encrypted_key, rsa, RSA_PKCS1_PADDING);
    DES_key_schedule schedule;
    DES_set_key_unchecked(&key, &schedule);
    DES_ncbc_encrypt(message.data(), out.data(), kMessage, &schedule, &iv, DES_ENCRYPT);
    benchmark::DoNotOptimize(out[0]);
  }
  state.SetBytesProcessed(state.iterations() * kMessage);
}
BENCHMARK(BM_Envelope_Seal64K_OpenSsl)->Unit(benchmark::kMicrosecond);

void BM_Envelope_Open64K_OpenSsl(benchmark::State& state) {
  RSA* rsa = OpenSslKey1024();
  auto message = Data(kMessage);
  std::vector<unsigned char> out(kMessage);
  DES_cblock key = {1, 35, 69, 103, 137, 171, 205, 239}, iv = {}, recovered;
  unsigned char encrypted_key[128];
  RSA_public_encrypt(8, key, encrypted_key, rsa, RSA_PKCS1_PADDING);
  for (auto _ : state) {
    RSA_private_decrypt(128, encrypted_key, recovered, rsa, RSA_PKCS1_PADDING);
    DES_key_schedule schedule;
    DES_set_key_unchecked(&recovered, &schedule);
    DES_ncbc_encrypt(message.data(), out.data(), kMessage, &schedule, &iv, DES_DECRYPT);
    benchmark::DoNotOptimize(out[0]);
  }
  state.SetBytesProcessed(state.iterations() * kMessage);
}
BENCHMARK(BM_Envelope_Open64K_OpenSsl)->Unit(benchmark::kMicrosecond);

void BM_Md5_Update_OpenSsl(benchmark::State& state) {
  const auto data = Data(kBlock);
  MD5_CTX context;
  MD5_Init(&context);
  for (auto _ : state) {
    MD5_Update(&context, data.data(), kBlock);
    benchmark::DoNotOptimize(context.A);
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
BENCHMARK(BM_Md5_Update_OpenSsl);

void DesCbcOpenSsl(benchmark::State& state, int enc) {
  auto data = Data(kBlock);
  DES_cblock key = {1, 35, 69, 103, 137, 171, 205, 239}, iv = {};
  DES_key_schedule schedule;
  DES_set_key_unchecked(&key, &schedule);
  for (auto _ : state) {
    DES_ncbc_encrypt(data.data(), data.data(), kBlock, &schedule, &iv, enc);
    benchmark::DoNotOptimize(data[0]);
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
void BM_Des_CbcEncrypt_OpenSsl(benchmark::State& state) { DesCbcOpenSsl(state, DES_ENCRYPT); }
BENCHMARK(BM_Des_CbcEncrypt_OpenSsl);
void BM_Des_CbcDecrypt_OpenSsl(benchmark::State& state) { DesCbcOpenSsl(state, DES_DECRYPT); }
BENCHMARK(BM_Des_CbcDecrypt_OpenSsl);

void Des3CbcOpenSsl(benchmark::State& state, int enc) {
  auto data = Data(kBlock);
  const auto key = Data(24);
  DES_cblock k1, k2, k3, iv = {};
  std::memcpy(k1, key.data(), 8);
  std::memcpy(k2, key.data() + 8, 8);
  std::memcpy(k3, key.data() + 16, 8);
  DES_key_schedule s1, s2, s3;
  DES_set_key_unchecked(&k1, &s1);
  DES_set_key_unchecked(&k2, &s2);
  DES_set_key_unchecked(&k3, &s3);
  for (auto _ : state) {
    DES_ede3_cbc_encrypt(data.data(), data.data(), kBlock, &s1, &s2, &s3, &iv, enc);
    benchmark::DoNotOptimize(data[0]);
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
void BM_Des3_CbcEncrypt_OpenSsl(benchmark::State& state) { Des3CbcOpenSsl(state, DES_ENCRYPT); }
BENCHMARK(BM_Des3_CbcEncrypt_OpenSsl);
void BM_Des3_CbcDecrypt_OpenSsl(benchmark::State& state) { Des3CbcOpenSsl(state, DES_DECRYPT); }
BENCHMARK(BM_Des3_CbcDecrypt_OpenSsl);

BIGNUM* ToBn(const NN_DIGIT* a, unsigned digits) {
  unsigned char bytes[4 * MAX_NN_DIGITS];
  NN_Encode(bytes, 4 * digits, a, digits);
  return BN_bin2bn(bytes, static_cast<int>(4 * digits), nullptr);
}

void BM_Nn_ModExp_OpenSsl(benchmark::State& state) {
  ExpOperands op(static_cast<unsigned>(state.range(0)));
  BIGNUM *b = ToBn(op.b, op.digits), *e = ToBn(op.e, op.digits), *d = ToBn(op.d, op.digits);
  BIGNUM* a = BN_new();
  BN_CTX* ctx = BN_CTX_new();
  for (auto _ : state) {
    BN_mod_exp(a, b, e, d, ctx);
    benchmark::DoNotOptimize(a);
  }
  BN_CTX_free(ctx);
  BN_free(a);
  BN_free(b);
  BN_free(e);
  BN_free(d);
}
BENCHMARK(BM_Nn_ModExp_OpenSsl)->Arg(512)->Arg(1024)->Unit(benchmark::kMicrosecond);

void BM_KeyGen_Rsa1024_OpenSsl(benchmark::State& state) {
  BIGNUM* e = BN_new();
  BN_set_word(e, 65537);
  for (auto _ : state) {
    RSA* rsa = RSA_new();
    if (RSA_generate_key_ex(rsa, 1024, e, nullptr) != 1) state.SkipWithError("keygen");
    RSA_free(rsa);
  }
  BN_free(e);
}
BENCHMARK(BM_KeyGen_Rsa1024_OpenSsl)->Unit(benchmark::kMillisecond)->Iterations(20);
#endif

}  // namespace

namespace {

// Console output as usual, plus the table of ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    // Single runs, or only their means when aggregates alone are reported.
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      std::string name = run.benchmark_name();
      if (run.run_type == Run::RT_Aggregate) {
        if (run.aggregate_name != "mean" || seen_iterations_) continue;
        const std::string suffix = "_mean";
        if (name.ends_with(suffix)) name.resize(name.size() - suffix.size());
        cpu_[name] = {run.GetAdjustedCPUTime(), 1};
      } else {
        seen_iterations_ = true;
        auto& [sum, count] = cpu_[name];
        sum += run.GetAdjustedCPUTime();
        ++count;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    // Goals of the toolkit against OpenSSL's libcrypto.
    const std::map<std::string, double> goals = {
        {"BM_Md5_Update", 0.95},      {"BM_Des_CbcEncrypt", 0.95},
        {"BM_Des3_CbcEncrypt", 0.95}, {"BM_Des_CbcDecrypt", 0.95},
        {"BM_Des3_CbcDecrypt", 0.95}, {"BM_Rsa_Sign1024", 0.67},
        {"BM_Rsa_Verify1024", 0.5},   {"BM_KeyGen_Rsa1024/iterations:20", 0.5},
        {"BM_Envelope_Open64K", 0.9},
    };
    std::printf("\n%-36s %10s %6s\n", "ours / OpenSSL (higher is better)", "ratio", "goal");
    for (const auto& [name, ours] : cpu_) {
      const std::size_t slash = name.find('/');
      std::string peer = name;
      peer.insert(slash == std::string::npos ? name.size() : slash, "_OpenSsl");
      const auto theirs = cpu_.find(peer);
      if (theirs == cpu_.end() || ours.first <= 0) continue;
      const double ratio =
          (theirs->second.first / theirs->second.second) / (ours.first / ours.second);
      const auto goal = goals.find(name);
      if (goal == goals.end()) {
        std::printf("%-36s %10.2f\n", name.c_str(), ratio);
      } else {
        std::printf("%-36s %10.2f %6.2f%s\n", name.c_str(), ratio, goal->second,
                    ratio >= goal->second ? "" : "  below goal");
      }
    }
  }

 private:
  std::map<std::string, std::pair<double, int>> cpu_;
  bool seen_iterations_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  // Defaults first, so that flags given on the command line override them.
  std::vector<char*> args = {argv[0]};
  std::string repetitions = "--benchmark_repetitions=3";
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  args.push_back(repetitions.data());
  args.push_back(interleave.data());
  for (int i = 1; i < argc; ++i) args.push_back(argv[i]);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
