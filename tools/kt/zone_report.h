// Memory zones seen from outside: a walk of the coded bytes into groups and
// fields that names the first fault of form, the library's syntax and format
// controls run on adopted bytes, and what a position-carrying format code
// points at. Shared by `kt zone` and `kt demo`.
#ifndef KT_TOOLS_KT_ZONE_REPORT_H_
#define KT_TOOLS_KT_ZONE_REPORT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/kt/status_text.h"

namespace kt::tool {

struct ZoneField {
  std::uint32_t offset = 0;  // of its coded length
  std::uint32_t header = 0;  // bytes of the coded length
  std::uint32_t length = 0;  // bytes of the value, which follows
};

struct ZoneGroup {
  std::uint32_t offset = 0;  // of its header
  std::uint16_t id = 0;
  std::uint32_t header = 0;  // bytes of the header (identifier and coded length)
  std::uint32_t length = 0;  // bytes of its fields
  std::vector<ZoneField> fields;
};

// The first fault of form, by the rules of syntax control.
struct SyntaxFault {
  bool found = false;
  std::uint32_t offset = 0;
  std::uint16_t group = 0;  // rank from 1
  std::uint16_t id = 0;     // when the header decoded
  std::uint16_t field = 0;  // rank within the group from 1; 0: the group itself
  std::string rule;
  std::string Describe() const;
};

// Walks the bytes with the library's decoders; the groups and fields read
// before the first fault are returned.
std::vector<ZoneGroup> WalkZone(const std::vector<std::uint8_t>& bytes, SyntaxFault* fault);

// What a format code points at, and the rule that fails there.
struct FormatFinding {
  FormatCode code;
  std::uint16_t group = 0;  // rank of the group in the zone, from 1
  std::uint16_t id = 0;
  std::uint16_t field = 0;  // number of the field in its group, from 1 (field codes)
  std::string rule;
  std::string Describe() const;
};

struct ZoneCheck {
  std::uint16_t syntax = 0;             // status of syntax control
  std::optional<std::uint16_t> format;  // status of format control, when run
  SyntaxFault fault;                    // when syntax control failed
  FormatFinding finding;                // when format control failed
};

// Adopts the bytes as a structured zone and runs syntax control, then format
// control against the loaded dictionary when `with_format` (and the syntax
// is good); failures are explained.
ZoneCheck CheckZone(const std::vector<std::uint8_t>& bytes, bool with_format);

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_ZONE_REPORT_H_
