/*
 * kt_traces.h - the trace file of the KT common module.
 *
 * The host opens one trace file and activates (module, sub-module) pairs with
 * a level: 1 traces down to a nesting depth of 8, 2 traces at every depth and
 * includes binary dumps. Every function of the library then reports its
 * entry, results, errors and exit through KT_TraceEcrire; only activated
 * pairs produce output. Nesting is shown by two blanks per depth step and by
 * curly braces. Every line is flushed as soon as it is complete.
 *
 * The library traces under module 1 with these sub-modules:
 *   1 syntax control of memory zones      5 configuration, start-up, memory
 *   2 format control of memory zones      6 date and string checks
 *   3 memory zones and length coding      7 dictionary and binary table files
 *   4 working directory, version files    8 accepted, unused by the library
 *
 * Trace kinds (the third argument of KT_TraceEcrire):
 *   0 time-stamped banner (needs no activation)    3 function exit
 *   1 one-line block                               4 intermediate result
 *   2 function entry                               5 error (at any depth)
 * Kinds 6 and above write nothing.
 */
#ifndef KT_TRACES_H
#define KT_TRACES_H

#include "kt_frame.h"

KT_BEGIN_DECLS

/*
 * KT_usActiverTrace - activates the pair (usModule, usSousModule) with
 * ucNiveau (above 2 is taken as 2). The first activation with a non-zero
 * level opens pcChemin with pcMode ("w", "wb": truncate; "a", "ab": append);
 * while the file is open, a different path is ignored. Level 0 closes the
 * file and forgets every pair.
 * Returns KT_ERR_ARGUMENT (bad path or mode), KT_ERR_TRACE_OUVERTURE,
 * KT_ERR_TRACE_PLEINE, KT_ERR_TRACE_SOUS_MODULE (module 1 with a sub-module
 * outside 1..8), or the close result for level 0.
 */
KT_API uint16_t KT_usActiverTrace(const char* pcChemin, const char* pcMode, uint16_t usModule,
                                  uint16_t usSousModule, uint8_t ucNiveau);

/*
 * KT_usOuvrirTrace - opens the trace file into *ppfFichier (text mode) and
 * writes the "### DEBUT TRACE ###" line. Does nothing and returns 0 when
 * *ppfFichier is already open. Returns KT_ERR_ARGUMENT for a null or empty
 * path, a null mode or a mode other than "w", "wb", "a", "ab", and
 * KT_ERR_TRACE_OUVERTURE when the open fails.
 */
KT_API uint16_t KT_usOuvrirTrace(const char* pcChemin, const char* pcMode, FILE** ppfFichier);

/*
 * KT_usFermerTrace - writes "### FIN TRACE ###" and a blank line, closes the
 * trace file and forgets every pair and the depth. Returns the low 16 bits of
 * the close result. REQUIRES: the trace file is open.
 */
KT_API uint16_t KT_usFermerTrace(void);

/* KT_InitialiserTraces - forgets every activated pair. */
KT_API void KT_InitialiserTraces(void);

/*
 * KT_usAjouterTrace - activates a pair, or changes the level of a pair that
 * is already active (even when the table is full). Returns
 * KT_ERR_TRACE_SOUS_MODULE for module 1 with a sub-module outside 1..8 (the
 * pair is not kept) and KT_ERR_TRACE_PLEINE when 100 pairs are active.
 */
KT_API uint16_t KT_usAjouterTrace(uint16_t usModule, uint16_t usSousModule, uint8_t ucNiveau);

/*
 * KT_bRechercherTrace - finds an active pair; on success stores its index in
 * *pusIndice and returns 1.
 */
KT_API uint8_t KT_bRechercherTrace(uint16_t usModule, uint16_t usSousModule, uint16_t* pusIndice);

/* KT_bTraceActive - 1 exactly when the trace file is open. */
KT_API uint8_t KT_bTraceActive(void);

/*
 * KT_TraceEcrire - writes one trace event of kind usType for the pair, with a
 * printf-style message. Returns at once when the trace file is closed.
 */
KT_API void KT_TraceEcrire(uint16_t usModule, uint16_t usSousModule, uint16_t usType,
                           const char* pcFormat, ...) KT_PRINTF(4, 5);

/* KT_TraceEcrire2 - KT_TraceEcrire with a va_list. */
KT_API void KT_TraceEcrire2(uint16_t usModule, uint16_t usSousModule, uint16_t usType,
                            const char* pcFormat, va_list arguments) KT_PRINTF(4, 0);

/*
 * KT_TraceEcrireBinaire - dumps usNombre bytes, one line "label[i] = 0xhh"
 * each, when the pair is active at level 2 (whatever the depth).
 */
KT_API void KT_TraceEcrireBinaire(uint16_t usModule, uint16_t usSousModule, const char* pcLibelle,
                                  const uint8_t* pucOctets, uint16_t usNombre);

/* Line primitives, exported for callers that build their own trace lines. */

/* KT_TraceDebutLigne - writes two blanks per depth step. */
KT_API void KT_TraceDebutLigne(void);
/* KT_TraceFinLigne - ends the line and flushes the trace file. */
KT_API void KT_TraceFinLigne(void);
/* KT_TraceDebutFonction - indents, writes "{ " and goes one level deeper. */
KT_API void KT_TraceDebutFonction(void);
/* KT_TraceFinFonction - ends the line, goes one level up, writes "}" alone. */
KT_API void KT_TraceFinFonction(void);

KT_END_DECLS

#endif /* KT_TRACES_H */
