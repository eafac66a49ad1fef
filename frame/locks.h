// The locks of the process-wide tables. Each table has its own: a slot lock
// per zone and per file number, one reader-writer lock for the dictionary
// and the start-up counter, and the trace file's mutex (traces/). Order,
// outermost first: start-up/dictionary, a zone or a file slot, the trace
// file. No path holds two slot locks at once.
#ifndef KT_FRAME_LOCKS_H_
#define KT_FRAME_LOCKS_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace kt::frame {

// The calling thread's identity, as cheap as the compiler allows: the
// cursor's calls take a few nanoseconds, and every one of them asks.
inline const void* ThreadIdentity() noexcept {
#if defined(__has_builtin) && __has_builtin(__builtin_thread_pointer)
  return __builtin_thread_pointer();
#else
  thread_local const char marker = 0;
  return &marker;
#endif
}

// The lock of one slot of a table (a zone, a file number). Recursive, since
// the public operations on a slot call one another. One word holds the
// holder's identity, null when free: taking a free lock is one
// compare-and-swap, giving it back one store, and a nested take one load.
// A waiter yields: slots are held for one call at a time.
class SlotLock {
 public:
  void Lock() noexcept {
    const void* const self = ThreadIdentity();
    if (holder_.load(std::memory_order_relaxed) == self) {
      ++depth_;
      return;
    }
    for (;;) {
      const void* expected = nullptr;
      if (holder_.compare_exchange_weak(expected, self, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
        break;
      }
      while (holder_.load(std::memory_order_relaxed) != nullptr) std::this_thread::yield();
    }
    depth_ = 1;
  }
  void Unlock() noexcept {
    if (--depth_ == 0) holder_.store(nullptr, std::memory_order_release);
  }

 private:
  std::atomic<const void*> holder_{nullptr};
  std::uint32_t depth_ = 0;  // only the holder reads or writes it
};

// Holds a slot lock for a scope. A null lock (a number outside the table,
// which every operation refuses) holds nothing.
class SlotGuard {
 public:
  explicit SlotGuard(SlotLock* lock = nullptr) noexcept { Acquire(lock); }
  ~SlotGuard() {
    if (lock_ != nullptr) lock_->Unlock();
  }
  // Takes `lock` when the guard holds none yet (creation learns its slot
  // on the way).
  void Acquire(SlotLock* lock) noexcept {
    if (lock_ != nullptr || lock == nullptr) return;
    lock_ = lock;
    lock_->Lock();
  }
  // Gives the lock back before the scope ends.
  void Release() noexcept {
    if (lock_ != nullptr) lock_->Unlock();
    lock_ = nullptr;
  }
  SlotGuard(const SlotGuard&) = delete;
  SlotGuard& operator=(const SlotGuard&) = delete;

 private:
  SlotLock* lock_ = nullptr;
};

// The locks of a table of N slots, by index; null past the end.
template <std::size_t N>
class SlotLocks {
 public:
  SlotLock* At(std::size_t index) noexcept { return index < N ? &locks_[index] : nullptr; }

 private:
  std::array<SlotLock, N> locks_{};
};

// The dictionary and the start-up counter. KT_usInitLIB and KT_usTermLIB
// hold it exclusively for their whole call, so that starts and stops count
// exactly and no query reads a table that a stop is releasing; the queries
// and format control hold it shared. Both guards nest within one thread:
// an inner guard of a thread that already holds the lock takes nothing.
class DictionaryReadGuard {
 public:
  DictionaryReadGuard() noexcept;
  ~DictionaryReadGuard();
  DictionaryReadGuard(const DictionaryReadGuard&) = delete;
  DictionaryReadGuard& operator=(const DictionaryReadGuard&) = delete;
};

class StartupGuard {
 public:
  StartupGuard() noexcept;
  ~StartupGuard();
  StartupGuard(const StartupGuard&) = delete;
  StartupGuard& operator=(const StartupGuard&) = delete;
};

}  // namespace kt::frame

#endif  // KT_FRAME_LOCKS_H_
