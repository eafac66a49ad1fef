// Cost of a trace call when tracing is off, which every operation of the
// library pays several times; the peer is a plain call to an empty function
// with the same arguments.
#include <benchmark/benchmark.h>

#include "kt_traces.h"

namespace {

[[gnu::noinline]] void EmptyCall(std::uint16_t, std::uint16_t, std::uint16_t, const char* format,
                                 unsigned value) {
  benchmark::DoNotOptimize(format);
  benchmark::DoNotOptimize(value);
}

void BM_Trace_WriteWhenOff(benchmark::State& state) {
  unsigned value = 0;
  for (auto _ : state) KT_TraceEcrire(1, 3, 4, "offset = %u", value++);
}
BENCHMARK(BM_Trace_WriteWhenOff);

void BM_Trace_PeerEmptyCall(benchmark::State& state) {
  unsigned value = 0;
  for (auto _ : state) EmptyCall(1, 3, 4, "offset = %u", value++);
}
BENCHMARK(BM_Trace_PeerEmptyCall);

}  // namespace
