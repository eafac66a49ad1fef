// What the date and string checks share: the digit class, which never
// depends on the locale.
#ifndef KT_CHECKS_CHECKS_INTERNAL_H_
#define KT_CHECKS_CHECKS_INTERNAL_H_

namespace kt::checks {

// '0' to '9' only: bytes 0x80 to 0xFF are never digits, whatever the
// current character classification says.
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace kt::checks

#endif  // KT_CHECKS_CHECKS_INTERNAL_H_
