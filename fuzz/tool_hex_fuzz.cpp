// The kt tool's hexadecimal zone text (`kt zone check --hex`): any text is
// taken or refused, and the bytes of a text taken come back the same from
// their own hexadecimal rendering, spaced or packed.
//
// The replays link the library's objects only, so the parser's source is
// compiled into this target.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/kt/output.cpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<std::uint8_t> bytes;
  if (!kt::tool::ParseHex(text, &bytes)) return 0;
  if (bytes.size() > size / 2) std::abort();
  for (const bool packed : {false, true}) {
    std::vector<std::uint8_t> again;
    if (!kt::tool::ParseHex(kt::tool::HexBytes(bytes.data(), bytes.size(), packed), &again) ||
        again != bytes) {
      std::abort();
    }
  }
  return 0;
}
