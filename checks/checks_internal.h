// What the date and string checks share: the digit class, which never
// depends on the locale; and the format check the zones' format control uses.
#ifndef KT_CHECKS_CHECKS_INTERNAL_H_
#define KT_CHECKS_CHECKS_INTERNAL_H_

#include <cstdint>

namespace kt::checks {

// '0' to '9' only: bytes 0x80 to 0xFF are never digits, whatever the
// current character classification says.
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// bChaineCtrlFormat with the case it folds into 0 told apart: the format
// control must not call a value bad because memory ran out.
enum class FormatCheck { kValid, kInvalid, kNoMemory };
FormatCheck CheckFormat(const char* text, std::uint32_t length, char type,
                        std::uint32_t* significant);

}  // namespace kt::checks

#endif  // KT_CHECKS_CHECKS_INTERNAL_H_
