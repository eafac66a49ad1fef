/*
 * kt_dictionary.h - the dictionary of groups, fields and allowed values.
 *
 * The dictionary says which fields each group of a memory zone holds, their
 * lengths and type, and the values a field may take. It is loaded at
 * start-up (KT_usInitLIB) from the tables "TGROUPE", "TCHAMP" and "TVALEUR"
 * of the tables file "tablebin.vkt" and kept until the last KT_usTermLIB.
 *
 * A group's fields are consecutive records of the field table, from
 * usIndPremierChamp on; a field's allowed values are consecutive texts of the
 * value table, from usIndPremiereValeur on. Indexes count from 0.
 *
 * The queries hand out new blocks from KT_Allouer, which the caller frees
 * with KT_Liberer.
 */
#ifndef KT_DICTIONARY_H
#define KT_DICTIONARY_H

#include "kt_frame.h"

KT_BEGIN_DECLS

/* A group of the dictionary (6 bytes). */
typedef struct stGroupe {
  uint16_t usIdGroupe;        /* identifier carried in zone group headers */
  uint16_t usIndPremierChamp; /* index of the group's first field record */
  uint16_t usNbChamps;        /* number of field records of the group */
} stGroupe;

/* A field of the dictionary (20 bytes). */
typedef struct stChamp {
  int32_t lCodeChamp;           /* 1: an empty field fails when usLongueurMin is not 0 */
  uint16_t usLongueurMin;       /* minimum length of the value */
  uint16_t usLongueurMax;       /* maximum length; 0 for none */
  int8_t cType;                 /* 'N' numeric, 'A' alphanumeric, 'L' letters, 'D' date */
  int32_t lAttribut;            /* carried to callers unchanged */
  uint16_t usIndPremiereValeur; /* index of the first allowed value */
  uint16_t usNbValeurs;         /* number of allowed values; 0: not checked */
} stChamp;

/* The loaded tables and their record counts. */
extern KT_API stGroupe* g_stTabGrp;
extern KT_API uint32_t g_ulNbTabGrp;
extern KT_API stChamp* g_stTabChp;
extern KT_API uint32_t g_ulNbTabChp;
extern KT_API char** g_cTabVal;
extern KT_API uint32_t g_ulNbTabVal;
/* Companion indexes, exported for components that use them (always 0). */
extern KT_API uint32_t g_ulIndTabGrp;
extern KT_API uint32_t g_ulIndTabChp;
extern KT_API uint32_t g_ulIndTabVal;

/*
 * KT_usDonnerListeGroupes - hands out in *ppusListe a new array of the
 * identifiers of all groups, in table order, and their number in *pusNombre
 * (an empty dictionary gives a zero-size block and 0). Returns KT_ERR_MEMOIRE
 * when ppusListe is null.
 */
KT_API uint16_t KT_usDonnerListeGroupes(uint16_t** ppusListe, uint16_t* pusNombre);

/*
 * KT_usDonnerInformationChamp - hands out in *ppstChamps a new array holding
 * copies of the field records of group usIdGroupe, and their number in
 * *pusNombre. REQUIRES: usIdGroupe is one of the dictionary's groups (as
 * KT_usDonnerListeGroupes lists them). Returns KT_ERR_FIN when the group is
 * found at index 0 of a search that ran off the table (see the source), and
 * KT_ERR_MEMOIRE when ppstChamps is null.
 */
KT_API uint16_t KT_usDonnerInformationChamp(uint16_t usIdGroupe, stChamp** ppstChamps,
                                            uint16_t* pusNombre);

/*
 * KT_usDonnerChampValeur - hands out in *ppcValeur a new copy of allowed
 * value usNumeroValeur (from 1) of field usNumeroChamp (from 1) of group
 * usIdGroupe. The two numbers are not checked against the group's field
 * count or the field's value count. Returns KT_ERR_FIN when the group is not
 * in the dictionary.
 */
KT_API uint16_t KT_usDonnerChampValeur(uint16_t usIdGroupe, uint16_t usNumeroChamp,
                                       uint16_t usNumeroValeur, char** ppcValeur);

/* Internal steps, exported for callers that use them. */

/*
 * usInitTabGroupe, usInitTabChamp, usInitTabValeur - load one table of
 * ulNbEnregistrements records from the open tables file usNumFichier, whose
 * position is at the table's first record. ulTailleDonnees is not used.
 * Return KT_ERR_MEMOIRE when the array cannot be allocated, or the read
 * statuses of the first record that failed (its members' statuses ORed).
 */
KT_API uint16_t usInitTabGroupe(uint16_t usNumFichier, uint32_t ulTailleDonnees,
                                uint32_t ulNbEnregistrements);
KT_API uint16_t usInitTabChamp(uint16_t usNumFichier, uint32_t ulTailleDonnees,
                               uint32_t ulNbEnregistrements);
KT_API uint16_t usInitTabValeur(uint16_t usNumFichier, uint32_t ulTailleDonnees,
                                uint32_t ulNbEnregistrements);

/*
 * usSupprTabGroupe, usSupprTabChamp, usSupprTabValeur - release one table
 * (the value texts themselves are not released). Return 0, or KT_ECHEC when
 * the table was not loaded.
 */
KT_API uint16_t usSupprTabGroupe(void);
KT_API uint16_t usSupprTabChamp(void);
KT_API uint16_t usSupprTabValeur(void);

/* usGTSupprTables - releases the three tables; their results ORed. */
KT_API uint16_t usGTSupprTables(void);

KT_END_DECLS

#endif /* KT_DICTIONARY_H */
