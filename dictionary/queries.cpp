// Queries on the loaded dictionary. Each result is a new block from
// KT_Allouer that the caller frees with KT_Liberer. Each query reads the
// tables under the dictionary's shared lock, so a concurrent last stop
// releases them only before or after it.
#include <cstring>

#include "dictionary/dictionary_internal.h"
#include "frame/frame_internal.h"
#include "frame/locks.h"
#include "frame/support.h"
#include "traces/traces_internal.h"

namespace {

constexpr std::uint16_t kTraceSub = 7;  // dictionary and binary files

using namespace kt::traces;
using kt::dictionary::FieldAt;
using kt::dictionary::GroupAt;
using kt::dictionary::ValueAt;

// The allocation results of these queries are not reported; a null block
// simply receives nothing.
template <class T>
T* AllocateCopy(std::uint32_t count) {
  const std::uint64_t bytes = std::uint64_t{count} * sizeof(T);
  return bytes > UINT32_MAX ? nullptr
                            : static_cast<T*>(KT_Allouer(static_cast<std::uint32_t>(bytes)));
}

}  // namespace

uint16_t KT_usDonnerListeGroupes(uint16_t** ppusListe, uint16_t* pusNombre) {
  const kt::frame::DictionaryReadGuard dictionary;
  KT_TRACE(kTraceEnter, "KT_usDonnerListeGroupes ");
  uint16_t* list = AllocateCopy<uint16_t>(g_ulNbTabGrp);
  for (std::uint32_t i = 0; list != nullptr && i < g_ulNbTabGrp; ++i) {
    list[i] = GroupAt(i).usIdGroupe;
  }
  // The test is on the output argument, reported as an allocation error.
  if (ppusListe == nullptr || pusNombre == nullptr) {
    KT_TRACE(kTraceError, "KT_usDonnerListeGroupes=ERREUR ALLOCATION MEMOIRE  ");
    KT_Liberer(list);  // not handed out: released rather than lost
    KT_TRACE(kTraceExit, "KT_usDonnerListeGroupes ");
    return KT_FAIL(KT_ERR_MEMOIRE);
  }
  *pusNombre = static_cast<uint16_t>(g_ulNbTabGrp);
  *ppusListe = list;
  KT_TRACE(kTraceExit, "KT_usDonnerListeGroupes ");
  return KT_OK;
}

uint16_t KT_usDonnerInformationChamp(uint16_t usIdGroupe, stChamp** ppstChamps,
                                     uint16_t* pusNombre) {
  const kt::frame::DictionaryReadGuard dictionary;
  KT_TRACE(kTraceEnter, "KT_usDonnerInformationChamp ");
  // No end bound but the index's 16 bits: callers ask only for listed groups.
  // Entries past the table read as zeroed records, and a search that wraps
  // the index back to 0 has found nothing.
  std::uint16_t index = 0;
  do {
    if (GroupAt(index).usIdGroupe == usIdGroupe) break;
    ++index;
  } while (index != 0);
  if (index == 0 && GroupAt(0).usIdGroupe != usIdGroupe) {
    KT_TRACE(kTraceError, "KT_usDonnerInformationChamp=ERREUR GROUPE CHAMP ABSENT ");
    KT_TRACE(kTraceExit, "KT_usDonnerInformationChamp ");
    return KT_FAIL(KT_ERR_FIN);
  }
  const stGroupe& group = GroupAt(index);
  stChamp* fields = AllocateCopy<stChamp>(group.usNbChamps);
  if (ppstChamps == nullptr || pusNombre == nullptr) {
    KT_TRACE(kTraceError, "KT_usDonnerInformationChamp  =ERREUR ALLOCATION MEMOIRE");
    KT_Liberer(fields);  // not handed out: released rather than lost
    KT_TRACE(kTraceExit, "KT_usDonnerInformationChamp ");
    return KT_FAIL(KT_ERR_MEMOIRE);
  }
  for (std::uint32_t i = 0; fields != nullptr && i < group.usNbChamps; ++i) {
    const stChamp& field = FieldAt(std::uint32_t{group.usIndPremierChamp} + i);
    stChamp& copy = fields[i];
    copy.lCodeChamp = field.lCodeChamp;
    copy.usLongueurMin = field.usLongueurMin;
    copy.usLongueurMax = field.usLongueurMax;
    copy.cType = field.cType;
    copy.lAttribut = field.lAttribut;
    copy.usIndPremiereValeur = field.usIndPremiereValeur;
    copy.usNbValeurs = field.usNbValeurs;
  }
  *pusNombre = group.usNbChamps;
  *ppstChamps = fields;
  KT_TRACE(kTraceExit, "KT_usDonnerInformationChamp ");
  return KT_OK;
}

uint16_t KT_usDonnerChampValeur(uint16_t usIdGroupe, uint16_t usNumeroChamp,
                                uint16_t usNumeroValeur, char** ppcValeur) {
  const kt::frame::DictionaryReadGuard dictionary;
  KT_TRACE(kTraceEnter, "KT_usDonnerChampValeur");
  // The entry one past the last is compared too (a zeroed record here).
  std::uint32_t index = 0;
  bool found = false;
  while (!found) {
    found = GroupAt(index).usIdGroupe == usIdGroupe;
    if (!found && ++index > g_ulNbTabGrp) break;
  }
  if (!found) {
    const std::uint16_t us = KT_FAIL(KT_ERR_FIN);
    KT_TRACE(kTraceError, "usResultat = 0x%04x", us);
    KT_TRACE(kTraceExit, "KT_usDonnerChampValeur");
    return us;
  }
  if (ppcValeur == nullptr) {
    KT_TRACE(kTraceExit, "KT_usDonnerChampValeur");
    return KT_FAIL(KT_ERR_MEMOIRE);
  }
  // 16-bit arithmetic, numbers not checked against the counts (records and
  // texts past the tables read as empty).
  const auto field_index =
      static_cast<std::uint16_t>(GroupAt(index).usIndPremierChamp - 1 + usNumeroChamp);
  const auto value_index = static_cast<std::uint16_t>(
      FieldAt(field_index).usIndPremiereValeur - 1 + usNumeroValeur);
  const char* value = ValueAt(value_index);
  *ppcValeur = kt::frame::CopyText(value, std::strlen(value));
  KT_TRACE(kTraceExit, "KT_usDonnerChampValeur usResultat = 0x%04x", KT_OK);
  return KT_OK;
}
