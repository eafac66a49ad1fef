// Memory zones: building a zone of groups and fields by appending, walking
// it with the cursor, and syntax control over it, in bytes of zone per
// second. The append case runs at several sizes: its rate must stay flat
// (appending is linear). The peer is a plain copy of the same bytes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "kt_zones.h"

namespace {

constexpr int kFieldsPerGroup = 10;
constexpr std::uint32_t kFieldBytes = 16;

// The coded size of a zone of `groups` groups of kFieldsPerGroup fields.
std::uint32_t ZoneBytes(int groups) {
  return static_cast<std::uint32_t>(groups) *
         KT_stCalculerTailleGroupe2(kFieldsPerGroup * KT_stCalculerTailleChamp(kFieldBytes));
}

// Builds the zone by appending; returns its number.
std::uint16_t Build(int groups, const std::uint8_t* value) {
  std::uint16_t zone = 0;
  if (KT_usCreerZoneMemoire(ZoneBytes(groups), 1, &zone) != KT_OK) return 0xFFFF;
  for (int g = 0; g < groups; ++g) {
    KT_usAjouterGroupe(zone, static_cast<std::uint16_t>(1 + g % 50));
    for (int f = 0; f < kFieldsPerGroup; ++f) KT_usAjouterChamp(zone, value, kFieldBytes);
  }
  return zone;
}

void Free(std::uint16_t zone) {
  std::uint8_t* buffer = nullptr;
  KT_pucLireBuffer(zone, nullptr, &buffer);
  KT_usLibererZoneMemoire(zone);
  KT_Liberer(buffer);
}

const std::uint8_t kValue[kFieldBytes] = {'0', '1', '2', '3', '4', '5', '6', '7',
                                          '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};

void BM_Zone_AppendGroups(benchmark::State& state) {
  const int groups = static_cast<int>(state.range(0));
  for (auto _ : state) {
    const std::uint16_t zone = Build(groups, kValue);
    state.PauseTiming();
    Free(zone);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * ZoneBytes(groups));
}
BENCHMARK(BM_Zone_AppendGroups)->Arg(100)->Arg(1000)->Arg(10000);

void BM_Zone_Walk(benchmark::State& state) {
  const std::uint16_t zone = Build(1000, kValue);
  for (auto _ : state) {
    KT_usPositionnerDebut(zone);
    std::uint16_t id = 0;
    while (KT_usAvancerGroupeSuivant(zone, 1, 0, &id) == KT_OK) {
      std::uint8_t* value = nullptr;
      std::uint32_t length = 0;
      while (KT_usAvancerChampSuivant(zone, 1, nullptr, &value, &length) == KT_OK) {
        benchmark::DoNotOptimize(value);
      }
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * ZoneBytes(1000));
  Free(zone);
}
BENCHMARK(BM_Zone_Walk);

void BM_Zone_SyntaxControl(benchmark::State& state) {
  const std::uint16_t zone = Build(1000, kValue);
  for (auto _ : state) {
    if (KT_usControlerSyntaxeZoneMemoire(zone) != KT_OK)
      state.SkipWithError("syntax control failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * ZoneBytes(1000));
  Free(zone);
}
BENCHMARK(BM_Zone_SyntaxControl);

void BM_Zone_PeerCopy(benchmark::State& state) {
  const std::vector<std::uint8_t> source(ZoneBytes(1000), 0x5A);
  std::vector<std::uint8_t> target(source.size());
  for (auto _ : state) {
    std::memcpy(target.data(), source.data(), source.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(source.size()));
}
BENCHMARK(BM_Zone_PeerCopy);

}  // namespace
