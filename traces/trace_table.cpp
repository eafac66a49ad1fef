// The table of activated (module, sub-module) pairs: at most 100 entries,
// kept in order of activation, searched linearly on every trace call.
#include <array>

#include "frame/support.h"
#include "traces/trace_table.h"

namespace kt::traces {

std::mutex g_trace_mutex;

namespace {

std::array<TracePair, kMaxTracePairs> g_traces_actives{};  // TracesActives
std::uint32_t g_nb_traces_actives = 0;                     // NbTracesActives

}  // namespace

TracePair* FindPair(std::uint16_t module, std::uint16_t sub_module) noexcept {
  for (std::uint32_t i = 0; i < g_nb_traces_actives; ++i) {
    TracePair& pair = g_traces_actives[i];
    if (pair.module == module && pair.sub_module == sub_module) return &pair;
  }
  return nullptr;
}

std::uint32_t PairCount() noexcept { return g_nb_traces_actives; }

void ClearPairs() noexcept {
  g_traces_actives.fill(TracePair{});
  g_nb_traces_actives = 0;
}

std::uint16_t AddPair(std::uint16_t module, std::uint16_t sub_module, std::uint8_t level) noexcept {
  if (TracePair* pair = FindPair(module, sub_module)) {
    // An active pair only changes level, even when the table is full.
    pair->level = level;
    return KT_OK;
  }
  if (g_nb_traces_actives >= kMaxTracePairs) return KT_FAIL(KT_ERR_TRACE_PLEINE);
  g_traces_actives[g_nb_traces_actives] = {module, sub_module, level};
  // The entry is written before the check; when refused it stays beyond the
  // count and the next addition overwrites it.
  if (module == kModuleKt && (sub_module < 1 || sub_module > 8)) {
    return KT_FAIL(KT_ERR_TRACE_SOUS_MODULE);
  }
  ++g_nb_traces_actives;
  return KT_OK;
}

}  // namespace kt::traces

using kt::traces::g_trace_mutex;

void KT_InitialiserTraces(void) {
  const std::lock_guard lock{g_trace_mutex};
  kt::traces::ClearPairs();
}

uint16_t KT_usAjouterTrace(uint16_t usModule, uint16_t usSousModule, uint8_t ucNiveau) {
  const std::lock_guard lock{g_trace_mutex};
  return kt::traces::AddPair(usModule, usSousModule, ucNiveau);
}

uint8_t KT_bRechercherTrace(uint16_t usModule, uint16_t usSousModule, uint16_t* pusIndice) {
  const std::lock_guard lock{g_trace_mutex};
  const kt::traces::TracePair* pair = kt::traces::FindPair(usModule, usSousModule);
  if (pair == nullptr) return 0;
  if (pusIndice != nullptr) {
    *pusIndice = static_cast<uint16_t>(pair - kt::traces::g_traces_actives.data());
  }
  return 1;
}
