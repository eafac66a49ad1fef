#include "tools/kt/zone_report.h"

#include <algorithm>

#include "kt_checks.h"
#include "kt_dictionary.h"
#include "kt_zones.h"
#include "tools/kt/output.h"

namespace kt::tool {
namespace {

const char* TypeWords(char type) {
  switch (type) {
    case 'N':
      return "digits";
    case 'A':
      return "upper-case letters, digits and blanks";
    case 'L':
      return "upper-case letters and blanks";
    case 'D':
      return "a date YYMMDD, YYYYMMDD or YYYYMMDDHHMM";
    default:
      return "anything";
  }
}

// Frees a block of the library when it goes.
struct Block {
  void* pointer = nullptr;
  ~Block() { KT_Liberer(pointer); }
};

// The dictionary's field records of a group, copied.
std::vector<stChamp> DictionaryFields(std::uint16_t id) {
  stChamp* fields = nullptr;
  std::uint16_t count = 0;
  if (KT_usDonnerInformationChamp(id, &fields, &count) != KT_OK) return {};
  Block block{fields};
  return std::vector<stChamp>(fields, fields + count);
}

bool InDictionary(std::uint16_t id) {
  std::uint16_t* list = nullptr;
  std::uint16_t count = 0;
  if (KT_usDonnerListeGroupes(&list, &count) != KT_OK) return false;
  Block block{list};
  return std::find(list, list + count, id) != list + count;
}

// Which rule the value breaks, in the order format control applies them.
std::string FailingRule(std::uint16_t id, std::uint16_t number, const stChamp& record,
                        const std::uint8_t* value, std::uint32_t length) {
  const char* text = reinterpret_cast<const char*>(value);
  const char type = static_cast<char>(record.cType);
  std::uint32_t significant = 0;
  if (bChaineCtrlFormat(text, length, type, &significant) != 1) {
    return "value " + Quote(value, length) + " is not of type " + std::string(1, type) + " (" +
           TypeWords(type) + ")";
  }
  if (significant == 0) {
    if (record.usLongueurMin != 0 && record.lCodeChamp == 1) {
      return "the field is empty, but its code is 1 and its minimum length " +
             std::to_string(record.usLongueurMin);
    }
    return "no rule fails on this empty field now";
  }
  if (significant < record.usLongueurMin) {
    return "value " + Quote(value, length) + " has " + std::to_string(significant) +
           " significant characters, below the minimum " + std::to_string(record.usLongueurMin);
  }
  if (record.usLongueurMax != 0 && significant > record.usLongueurMax) {
    return "value " + Quote(value, length) + " has " + std::to_string(significant) +
           " significant characters, above the maximum " + std::to_string(record.usLongueurMax);
  }
  if (record.usNbValeurs == 0) return "no rule fails on this field now";
  char* reduced = nullptr;
  (void)KT_bReduireChaineCtrl(text, &reduced, length, type, nullptr);
  Block reduced_block{reduced};
  std::string allowed;
  for (std::uint16_t v = 1; v <= record.usNbValeurs; ++v) {
    char* candidate = nullptr;
    if (KT_usDonnerChampValeur(id, number, v, &candidate) != KT_OK) continue;
    Block candidate_block{candidate};
    if (KT_bCompareChaine(reduced, candidate) == 1) return "no rule fails on this field now";
    allowed += (allowed.empty() ? "" : ", ") + std::string(candidate);
  }
  return "value " + Quote(value, length) + " is none of the allowed values " + allowed;
}

FormatFinding Explain(const std::vector<std::uint8_t>& bytes, std::uint16_t status) {
  FormatFinding finding;
  finding.code = DecodeFormatCode(status);
  if (finding.code.kind == FormatCode::Kind::kNone) return finding;
  SyntaxFault fault;
  const std::vector<ZoneGroup> groups = WalkZone(bytes, &fault);
  std::uint32_t before = 0;  // dictionary fields of the groups before
  for (std::size_t n = 0; n < groups.size(); ++n) {
    const ZoneGroup& group = groups[n];
    finding.group = static_cast<std::uint16_t>(n + 1);
    finding.id = group.id;
    if (finding.code.kind != FormatCode::Kind::kField) {
      if (finding.group != finding.code.position) continue;
      if (finding.code.kind == FormatCode::Kind::kGroup) {
        finding.rule = InDictionary(group.id) ? "an allowed value of the group cannot be read"
                                              : "the group is not in the dictionary";
      } else {
        finding.rule = "the group holds " + Plural(group.fields.size(), "field") +
                       "; the dictionary lists " +
                       std::to_string(DictionaryFields(group.id).size());
      }
      return finding;
    }
    const std::vector<stChamp> records = DictionaryFields(group.id);
    if (finding.code.position > before + records.size()) {
      before += static_cast<std::uint32_t>(records.size());
      continue;
    }
    finding.field = static_cast<std::uint16_t>(finding.code.position - before);
    if (finding.field == 0 || finding.field > group.fields.size()) break;
    const ZoneField& field = group.fields[finding.field - 1];
    finding.rule = FailingRule(group.id, finding.field, records[finding.field - 1],
                               bytes.data() + field.offset + field.header, field.length);
    return finding;
  }
  finding.group = 0;
  finding.id = 0;
  finding.field = 0;
  finding.rule = "the position does not fall in this zone";
  return finding;
}

}  // namespace

std::string SyntaxFault::Describe() const {
  std::string where = "group " + std::to_string(group);
  if (id != 0) where += " (id " + std::to_string(id) + ")";
  if (field != 0) where += ", field " + std::to_string(field);
  return where + ", at offset " + std::to_string(offset) + ": " + rule;
}

std::string FormatFinding::Describe() const {
  if (group == 0) return rule;
  std::string where = "group " + std::to_string(group) + " (id " + std::to_string(id) + ")";
  if (field != 0) {
    where += ", field " + std::to_string(field) + " (rank " + std::to_string(code.position) +
             " in the zone)";
  }
  return where + ": " + rule;
}

std::vector<ZoneGroup> WalkZone(const std::vector<std::uint8_t>& bytes, SyntaxFault* fault) {
  std::vector<ZoneGroup> groups;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  *fault = SyntaxFault{};
  ZoneGroup group;
  const auto fail = [&](std::uint32_t at, std::uint16_t field, std::string rule) {
    *fault = SyntaxFault{true,     at,    static_cast<std::uint16_t>(groups.size() + 1),
                         group.id, field, std::move(rule)};
  };
  std::uint32_t offset = 0;
  do {
    group = ZoneGroup{};
    group.offset = offset;
    if (KT_usDecoderEnteteGroupe(bytes.data(), size, offset, &group.id, &group.length,
                                 &group.header) != KT_OK) {
      group.id = 0;  // the decoder may have written part of it
      fail(offset, 0,
           size == 0
               ? "the zone is empty: a zone holds at least one group"
               : "the group header does not decode (" + Plural(size - offset, "byte") + " left)");
      return groups;
    }
    if (group.length == 0) {
      fail(offset, 0, "a group of length 0");
      return groups;
    }
    const std::uint32_t left = size - offset - std::min(group.header, size - offset);
    if (group.length > left) {
      fail(offset, 0,
           "the group claims " + Plural(group.length, "byte") + "; " + std::to_string(left) +
               " follow its header");
      return groups;
    }
    const std::uint32_t end = offset + group.header + group.length;
    std::uint32_t at = offset + group.header;
    while (at < end) {
      ZoneField field;
      field.offset = at;
      const auto number = static_cast<std::uint16_t>(group.fields.size() + 1);
      if (KT_stDecoderLongueur(bytes.data(), end, at, &field.length, &field.header) != KT_OK) {
        fail(at, number, "the field's length does not decode within its group");
        return groups;
      }
      if (field.length > end - at - field.header) {
        fail(at, number,
             "the field claims " + Plural(field.length, "byte") + "; " +
                 std::to_string(end - at - field.header) + " left in its group");
        return groups;
      }
      at += field.header + field.length;
      group.fields.push_back(field);
    }
    groups.push_back(std::move(group));
    offset = end;
  } while (offset < size);
  return groups;
}

ZoneCheck CheckZone(const std::vector<std::uint8_t>& bytes, bool with_format) {
  ZoneCheck check;
  // The library reads the zone in place; it never writes into an adopted one
  // during the controls, but takes a non-const buffer. An empty zone is
  // adopted as a one-byte buffer holding no data.
  std::vector<std::uint8_t> buffer = bytes;
  buffer.resize(std::max<std::size_t>(buffer.size(), 1));
  std::uint16_t zone = 0;
  check.syntax =
      KT_usInitialiserZoneMemoireNonPlein(buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                                          static_cast<std::uint32_t>(bytes.size()), &zone, 1);
  if (check.syntax != KT_OK) return check;
  check.syntax = KT_usControlerSyntaxeZoneMemoire(zone);
  if (check.syntax != KT_OK) {
    (void)WalkZone(bytes, &check.fault);
  } else if (with_format) {
    check.format = KT_usControlerFormatZoneMemoire(zone);
    if (*check.format != KT_OK) check.finding = Explain(bytes, *check.format);
  }
  (void)KT_usLibererZoneMemoire(zone);
  return check;
}

}  // namespace kt::tool
