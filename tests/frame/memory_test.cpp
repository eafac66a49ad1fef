#include <malloc.h>

#include <cstdio>
#include <string>

#include "frame/frame_internal.h"
#include "support/kt_test.h"

namespace {

using kt::frame::AllocatedPeak;
using kt::frame::AllocatedTotal;
using kt::test::CaptureTrace;
using kt::testing::ArmFault;
using kt::testing::Fault;

class Memory : public kt::test::KtTest {};

std::string Pointer(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
}

TEST_F(Memory, TotalCountsUsableSizeAndReturnsExactlyOnRelease) {
  const std::uint32_t before = AllocatedTotal();
  void* block = KT_Allouer(10);
  ASSERT_NE(block, nullptr);
  const std::uint32_t usable = static_cast<std::uint32_t>(malloc_usable_size(block));
  EXPECT_GE(usable, 10u);
  EXPECT_EQ(AllocatedTotal(), before + usable);
  KT_Liberer(block);
  EXPECT_EQ(AllocatedTotal(), before);
  // The exported pair is a declaration only: it never moves.
  EXPECT_EQ(ulMemAllouee, 0u);
  EXPECT_EQ(ulMaxAlloue, 0u);
}

TEST_F(Memory, PeakIsExactlyTheHighestTotal) {
  // The peak is never reset, so the first block lifts the total past any
  // peak of earlier tests: from then on the peak is known exactly.
  const std::uint32_t above = AllocatedPeak() - AllocatedTotal() + 1000;
  void* a = KT_Allouer(above);
  EXPECT_EQ(AllocatedPeak(), AllocatedTotal());
  void* b = KT_Allouer(2000);
  const std::uint32_t high = AllocatedTotal();
  EXPECT_EQ(AllocatedPeak(), high);
  KT_Liberer(b);
  EXPECT_EQ(AllocatedPeak(), high);
  void* c = KT_Allouer(16);
  EXPECT_EQ(AllocatedPeak(), high);
  EXPECT_LT(AllocatedTotal(), high);
  KT_Liberer(a);
  KT_Liberer(c);
  EXPECT_EQ(AllocatedPeak(), high);
}

TEST_F(Memory, ZeroBytesCountsWhatTheAllocatorGives) {
  const std::uint32_t before = AllocatedTotal();
  void* block = KT_Allouer(0);
  const std::uint32_t usable =
      block == nullptr ? 0 : static_cast<std::uint32_t>(malloc_usable_size(block));
  EXPECT_EQ(AllocatedTotal(), before + usable);
  KT_Liberer(block);
  EXPECT_EQ(AllocatedTotal(), before);
}

TEST_F(Memory, TracesAllocationAndReleaseWithTheirOwnTexts) {
  void* block = nullptr;
  std::uint32_t usable = 0;
  const std::string allocation = CaptureTrace({5}, 2, [&] {
    block = KT_Allouer(10);
    usable = static_cast<std::uint32_t>(malloc_usable_size(block));
  });
  const std::string total = std::to_string(AllocatedTotal());
  EXPECT_EQ(allocation, "{ Allocation de 10 (" + std::to_string(usable) + ") a l'adresse " +
                            Pointer(block) + "\n  Taille Memoire cumulee = " + total + "\n}\n");
  const std::string after = std::to_string(AllocatedTotal() - usable);
  const std::string release = CaptureTrace({5}, 2, [&] { KT_Liberer(block); });
  EXPECT_EQ(release, "{ Liberation de " + std::to_string(usable) + " octets a l'adresse " +
                         Pointer(block) + "\n  Taille Memoire cumulee = \t" + after + "\n}\n");
  EXPECT_EQ(CaptureTrace({5}, 2, [] { KT_Liberer(nullptr); }), "");
}

TEST_F(Memory, ExhaustionGivesNullAndLeavesTotalsUnchanged) {
  const std::uint32_t total = AllocatedTotal();
  const std::uint32_t peak = AllocatedPeak();
  void* block = reinterpret_cast<void*>(1);
  const std::string trace = CaptureTrace({5}, 2, [&] {
    ArmFault(Fault::kAlloc, 0);
    block = KT_Allouer(64);
  });
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(AllocatedTotal(), total);
  EXPECT_EQ(AllocatedPeak(), peak);
  EXPECT_EQ(trace, "{ Allocation de 64 (0) a l'adresse " + Pointer(nullptr) +
                       "\n  ERREUR : KT_Allouer memoire insuffisante\n  Taille Memoire cumulee = " +
                       std::to_string(total) + "\n}\n");
  // The armed failure was used up: the next allocation succeeds.
  void* next = KT_Allouer(64);
  EXPECT_NE(next, nullptr);
  KT_Liberer(next);
}

TEST_F(Memory, DelayedFaultHitsTheNthAllocation) {
  ArmFault(Fault::kAlloc, 2);
  void* a = KT_Allouer(8);
  void* b = KT_Allouer(8);
  void* c = KT_Allouer(8);
  void* d = KT_Allouer(8);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(b, nullptr);
  EXPECT_EQ(c, nullptr);
  EXPECT_NE(d, nullptr);
  KT_Liberer(a);
  KT_Liberer(b);
  KT_Liberer(d);
}

}  // namespace
