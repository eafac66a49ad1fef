// The dictionary's reader-writer lock, with a per-thread depth so that the
// public queries may call one another (format control calls them all) and a
// start may run queries of its own.
#include <shared_mutex>

#include "frame/locks.h"

namespace kt::frame {
namespace {

std::shared_mutex g_dictionary;
thread_local int t_depth = 0;  // guards of this thread now open

}  // namespace

DictionaryReadGuard::DictionaryReadGuard() noexcept {
  if (t_depth++ == 0) g_dictionary.lock_shared();
}

DictionaryReadGuard::~DictionaryReadGuard() {
  if (--t_depth == 0) g_dictionary.unlock_shared();
}

// Only the outermost guard locks: nothing inside a query starts or stops the
// library, so a shared hold never needs to become exclusive.
StartupGuard::StartupGuard() noexcept {
  if (t_depth++ == 0) g_dictionary.lock();
}

StartupGuard::~StartupGuard() {
  if (--t_depth == 0) g_dictionary.unlock();
}

}  // namespace kt::frame
