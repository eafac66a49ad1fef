// Bounded access to the dictionary tables. Some searches compare entries past
// the end of a table by design; those entries read as zeroed records, so the
// searches keep their results without reading outside the arrays.
#ifndef KT_DICTIONARY_DICTIONARY_INTERNAL_H_
#define KT_DICTIONARY_DICTIONARY_INTERNAL_H_

#include <cstdint>

#include "kt_dictionary.h"

namespace kt::dictionary {

inline constexpr stGroupe kNoGroup{};
inline constexpr stChamp kNoField{};

// Group record i, or a zeroed record past the end of the table.
inline const stGroupe& GroupAt(std::uint32_t i) noexcept {
  return g_stTabGrp != nullptr && i < g_ulNbTabGrp ? g_stTabGrp[i] : kNoGroup;
}

// Field record i, or a zeroed record past the end of the table.
inline const stChamp& FieldAt(std::uint32_t i) noexcept {
  return g_stTabChp != nullptr && i < g_ulNbTabChp ? g_stTabChp[i] : kNoField;
}

// Value text i, or the empty text past the end of the table or for an entry
// that a failed load left empty.
inline const char* ValueAt(std::uint32_t i) noexcept {
  if (g_cTabVal == nullptr || i >= g_ulNbTabVal || g_cTabVal[i] == nullptr) return "";
  return g_cTabVal[i];
}

}  // namespace kt::dictionary

#endif  // KT_DICTIONARY_DICTIONARY_INTERNAL_H_
