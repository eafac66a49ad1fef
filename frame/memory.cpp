// Counted memory: every block the library hands out or keeps comes from
// KT_Allouer, which adds the allocator's usable size of the block to a
// running total and keeps the peak of that total. Both totals are updated
// atomically, so they stay exact when threads allocate at once.
#include <malloc.h>

#include <atomic>
#include <cstdlib>

#include "frame/frame_internal.h"
#include "traces/traces_internal.h"

// Exported for components that link against them; nothing updates them. The
// live totals are the private pair below.
uint32_t ulMemAllouee = 0;
uint32_t ulMaxAlloue = 0;

namespace {
constexpr std::uint16_t kTraceSub = 5;  // configuration, start-up, memory
}  // namespace

namespace kt::frame {
namespace {

std::atomic<std::uint32_t> g_mem_allouee{0};  // sum of usable sizes of live blocks
std::atomic<std::uint32_t> g_max_alloue{0};   // highest value g_mem_allouee reached

// Adds a block to the total and returns the new total. The peak is raised to
// every total an addition produces, so it is the exact peak of the sequence
// of totals, whatever the interleaving.
std::uint32_t Add(std::uint32_t usable) noexcept {
  const std::uint32_t total = g_mem_allouee.fetch_add(usable, std::memory_order_relaxed) + usable;
  std::uint32_t peak = g_max_alloue.load(std::memory_order_relaxed);
  while (total > peak &&
         !g_max_alloue.compare_exchange_weak(peak, total, std::memory_order_relaxed)) {
  }
  return total;
}

// Accounting uses the same measure on allocation and release.
std::uint32_t UsableSize(void* block) noexcept {
  return block == nullptr ? 0 : static_cast<std::uint32_t>(malloc_usable_size(block));
}

}  // namespace

std::uint32_t AllocatedTotal() noexcept { return g_mem_allouee.load(std::memory_order_relaxed); }
std::uint32_t AllocatedPeak() noexcept { return g_max_alloue.load(std::memory_order_relaxed); }

}  // namespace kt::frame

using namespace kt::traces;

namespace kt::frame {

void* Allocate(std::uint32_t size, std::source_location site) noexcept {
  void* block = ShouldFail(testing::Fault::kAlloc, site) ? nullptr : std::malloc(size);
  const std::uint32_t usable = kt::frame::UsableSize(block);
  KT_TRACE(kTraceEnter, "Allocation de %u (%u) a l'adresse %p", size, usable, block);
  if (block == nullptr) KT_TRACE(kTraceError, "KT_Allouer memoire insuffisante");
  const std::uint32_t total = kt::frame::Add(usable);
  KT_TRACE(kTraceExit, "Taille Memoire cumulee = %lu", static_cast<unsigned long>(total));
  return block;
}

}  // namespace kt::frame

// Parenthesised: inside the library the name is the macro that passes the site.
void*(KT_Allouer)(uint32_t ulTaille) { return kt::frame::Allocate(ulTaille); }

void KT_Liberer(void* pBloc) {
  using kt::frame::g_mem_allouee;
  if (pBloc == nullptr) return;
  const std::uint32_t usable = kt::frame::UsableSize(pBloc);
  const std::uint32_t total = g_mem_allouee.fetch_sub(usable, std::memory_order_relaxed) - usable;
  KT_TRACE(kTraceEnter, "Liberation de %u octets a l'adresse %p", usable, pBloc);
  // The tab before the number differs from the allocation's text; both are kept.
  KT_TRACE(kTraceExit, "Taille Memoire cumulee = \t%lu", static_cast<unsigned long>(total));
  std::free(pBloc);
}
