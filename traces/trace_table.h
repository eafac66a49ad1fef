// The pair table shared by the trace files, and the mutex of the trace area.
#ifndef KT_TRACES_TRACE_TABLE_H_
#define KT_TRACES_TRACE_TABLE_H_

#include <cstdint>
#include <mutex>

#include "traces/traces_internal.h"

namespace kt::traces {

inline constexpr std::uint32_t kMaxTracePairs = 100;

struct TracePair {
  std::uint16_t module;      // module number
  std::uint16_t sub_module;  // sub-module number
  std::uint8_t level;        // 1: down to depth 8; 2: every depth and binary dumps
};

// Guards the stream, the pair table and the writing of each trace event,
// so that an event's text reaches the file whole. The innermost lock of the
// library: nothing is locked while it is held. The depth is per thread and
// needs no lock.
extern std::mutex g_trace_mutex;

// The functions below expect g_trace_mutex to be held.

// The active entry for the pair, or null.
TracePair* FindPair(std::uint16_t module, std::uint16_t sub_module) noexcept;
std::uint32_t PairCount() noexcept;
// KT_InitialiserTraces and KT_usAjouterTrace.
void ClearPairs() noexcept;
std::uint16_t AddPair(std::uint16_t module, std::uint16_t sub_module, std::uint8_t level) noexcept;

}  // namespace kt::traces

#endif  // KT_TRACES_TRACE_TABLE_H_
