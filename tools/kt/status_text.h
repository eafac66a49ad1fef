// Meanings of the library's statuses, for messages: every code of the frame
// (16-bit), the toolkit's 32-bit codes, and the position-carrying codes of
// format control.
#ifndef KT_TOOLS_KT_STATUS_TEXT_H_
#define KT_TOOLS_KT_STATUS_TEXT_H_

#include <cstdint>
#include <string>

namespace kt::tool {

// "0xF610 (a file operation failed)": the code in hexadecimal and in words.
std::string StatusText(std::uint16_t status);

// The same, where the caller knows what 0x0001 (KT_ECHEC, which the library
// gives for several unrelated failures) means at its call:
// StatusText(us, "the file could not be signed") gives
// "0x0001 (the file could not be signed)".
std::string StatusText(std::uint16_t status, const char* failure_meaning);

// "0x040B (signature does not match)" for the toolkit's codes.
std::string ToolkitStatusText(std::uint32_t status);

// The position a format control code carries.
struct FormatCode {
  enum class Kind {
    kNone,        // not a position-carrying code
    kField,       // 0x9000 + k: the field of rank k over the whole zone fails
    kGroup,       // 0xA000 + n: group n is unknown (or a value of it unreadable)
    kFieldCount,  // 0xA800 + n: group n holds more or fewer fields than listed
  };
  Kind kind = Kind::kNone;
  std::uint16_t position = 0;  // k or n, from 1
};

FormatCode DecodeFormatCode(std::uint16_t status);

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_STATUS_TEXT_H_
