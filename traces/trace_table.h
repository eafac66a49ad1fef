// The pair table shared by the trace files.
#ifndef KT_TRACES_TRACE_TABLE_H_
#define KT_TRACES_TRACE_TABLE_H_

#include <cstdint>

#include "traces/traces_internal.h"

namespace kt::traces {

inline constexpr std::uint32_t kMaxTracePairs = 100;

struct TracePair {
  std::uint16_t module;      // module number
  std::uint16_t sub_module;  // sub-module number
  std::uint8_t level;        // 1: down to depth 8; 2: every depth and binary dumps
};

// The active entry for the pair, or null.
TracePair* FindPair(std::uint16_t module, std::uint16_t sub_module) noexcept;
std::uint32_t PairCount() noexcept;

}  // namespace kt::traces

#endif  // KT_TRACES_TRACE_TABLE_H_
