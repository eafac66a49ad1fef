// The table of activated (module, sub-module) pairs: at most 100 entries,
// kept in order of activation, searched linearly on every trace call.
#include <array>

#include "traces/trace_table.h"

namespace kt::traces {
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

}  // namespace kt::traces

using kt::traces::g_nb_traces_actives;
using kt::traces::g_traces_actives;

void KT_InitialiserTraces(void) {
  g_traces_actives.fill(kt::traces::TracePair{});
  g_nb_traces_actives = 0;
}

uint16_t KT_usAjouterTrace(uint16_t usModule, uint16_t usSousModule, uint8_t ucNiveau) {
  if (kt::traces::TracePair* pair = kt::traces::FindPair(usModule, usSousModule)) {
    // An active pair only changes level, even when the table is full.
    pair->level = ucNiveau;
    return KT_OK;
  }
  if (g_nb_traces_actives >= kt::traces::kMaxTracePairs) return KT_ERR_TRACE_PLEINE;
  g_traces_actives[g_nb_traces_actives] = {usModule, usSousModule, ucNiveau};
  // The entry is written before the check; when refused it stays beyond the
  // count and the next addition overwrites it.
  if (usModule == kt::traces::kModuleKt && (usSousModule < 1 || usSousModule > 8)) {
    return KT_ERR_TRACE_SOUS_MODULE;
  }
  ++g_nb_traces_actives;
  return KT_OK;
}

uint8_t KT_bRechercherTrace(uint16_t usModule, uint16_t usSousModule, uint16_t* pusIndice) {
  const kt::traces::TracePair* pair = kt::traces::FindPair(usModule, usSousModule);
  if (pair == nullptr) return 0;
  if (pusIndice != nullptr) *pusIndice = static_cast<uint16_t>(pair - g_traces_actives.data());
  return 1;
}
