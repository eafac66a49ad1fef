// Stateless helpers shared by every folder: wiping of secrets that the
// optimiser cannot drop, and big-endian packing. Header-only and
// free of library state, so the crypto toolkit may include it too.
#ifndef KT_FRAME_SUPPORT_H_
#define KT_FRAME_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <tuple>

namespace kt {

// Clears n bytes through a volatile pointer: a memset before a return is a
// dead store that the compiler may remove, this loop is not.
inline void SecureWipe(void* p, std::size_t n) noexcept {
  for (auto* b = static_cast<volatile unsigned char*>(p); n != 0; --n) *b++ = 0;
}

// Clears every named object, whole, on every return path.
template <class... T>
class WipeOnExit {
 public:
  explicit WipeOnExit(T&... objects) noexcept : objects_(objects...) {}
  ~WipeOnExit() {
    std::apply([](auto&... o) { (SecureWipe(&o, sizeof o), ...); }, objects_);
  }
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;

 private:
  std::tuple<T&...> objects_;
};

// Big-endian packing, byte by byte: the formats never depend on the host.
inline std::uint32_t LoadBigEndian32(const unsigned char* p) noexcept {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) |
         (std::uint32_t{p[2]} << 8) | std::uint32_t{p[3]};
}
inline std::uint16_t LoadBigEndian16(const unsigned char* p) noexcept {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline void StoreBigEndian32(unsigned char* p, std::uint32_t v) noexcept {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}
inline void StoreBigEndian16(unsigned char* p, std::uint16_t v) noexcept {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

}  // namespace kt

namespace kt {

// A breakpoint target for failure paths (our SQLITE_CORRUPT_BKPT): in debug
// builds every KT_FAIL passes through here; it writes nothing.
[[gnu::noinline]] inline void FailureBreakpoint(const char* file, int line) noexcept {
  (void)file;
  (void)line;
  asm volatile("");
}

}  // namespace kt

#ifdef NDEBUG
#define KT_FAIL(code) (code)
#else
#define KT_FAIL(code) (::kt::FailureBreakpoint(__FILE__, __LINE__), (code))
#endif

#endif  // KT_FRAME_SUPPORT_H_
