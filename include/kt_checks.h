/*
 * kt_checks.h - checks and conversions of dates and strings of the KT common
 * module.
 *
 * Dates travel as digit strings told apart by their length alone: 6
 * characters YYMMDD, 8 characters YYYYMMDD, 12 characters YYYYMMDDHHMM.
 * A date is valid when the year is at most 9999 (year 0 included), the month
 * is 1 to 12 and the day fits the month; February has 29 days in a leap
 * year: divisible by 400, or by 4 and not by 100 (so 0 and 2000 are leap
 * years, 1900 is not). A time is valid with hour 0 to 23 and minute 0 to 59.
 *
 * Field values of memory zones are texts of a kind named by a type code:
 * 'N' numeric, 'A' alphanumeric, 'L' alphabetic, 'D' date. Digits are '0'
 * to '9' only; letters come from the current character classification (in
 * the "C" locale exactly 'A' to 'Z' and 'a' to 'z'). Texts are expected in
 * capitals: lower-case letters fail the alphanumeric and alphabetic checks.
 *
 * Every function returns a Boolean (1 true or success, 0 false or failure)
 * and traces under module 1, sub-module 6.
 */
#ifndef KT_CHECKS_H
#define KT_CHECKS_H

#include "kt_frame.h"

KT_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Dates.
 */

/*
 * KT_bEstDateChaineValide - checks pcDate by its length: 6, 8 or 12
 * characters must all be digits and form a valid date (and time). A text of
 * any other length counts as valid here (the converter refuses it). 0 for
 * null.
 */
KT_API uint8_t KT_bEstDateChaineValide(const char* pcDate);

/*
 * KT_bEstDateNumeriqueValide - whether year usAnnee, month ucMois and day
 * ucJour form a valid date.
 */
KT_API uint8_t KT_bEstDateNumeriqueValide(uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour);

/*
 * KT_bDateChaineANumerique - converts a valid date text.
 * *pusAnnee is first set to 0; then, when KT_bEstDateChaineValide accepts
 * pcDate:
 * - 6 characters: *pusAnnee receives the two year digits as they stand (no
 *   century is added), *pucMois and *pucJour the month and the day; 1.
 * - 8 or 12 characters: the four year digits are accumulated into FOUR
 *   consecutive 16-bit units starting at pusAnnee, unit k becoming its old
 *   value times 10 plus digit k (modulo 65536). *pusAnnee thus receives only
 *   the first digit, and month and day are not stored. This is intended:
 *   callers that need the full year from these forms read the text.
 *   REQUIRES: pusAnnee points into an array of at least four uint16_t.
 *   Returns 1.
 * - any other length: 0.
 * Returns 0 when pcDate is not valid or an argument is null.
 */
KT_API uint8_t KT_bDateChaineANumerique(const char* pcDate, uint16_t* pusAnnee, uint8_t* pucMois,
                                        uint8_t* pucJour);

/*
 * KT_bDateNumeriqueAChaine - writes the date as ucLongueur digits into
 * pcDate, whether the date is valid or not:
 * - 6: "%02i" of the year, then the month over characters 2-3 and the day
 *   over 4-5. The year is not reduced modulo 100: 2004 gives "20" then the
 *   month, so callers pass a two-digit year.
 * - 8: "%04i" year, "%02i" month, "%02i" day.
 * - 12: as 8 followed by "0000" (the time is always 0000).
 * Fields wider than their place (a day of 100 or more) push the text past
 * ucLongueur characters; the text is cut to ucLongueur characters.
 * REQUIRES: pcDate holds ucLongueur + 1 characters.
 * Returns 1 for lengths 6, 8 and 12; 0 for any other length (nothing
 * written) or a null pcDate.
 */
KT_API uint8_t KT_bDateNumeriqueAChaine(uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour,
                                        uint8_t ucLongueur, char* pcDate);

/* ------------------------------------------------------------------------
 * Strings.
 */

/* KT_bEstNumerique - all characters are digits (the empty text passes; 0 for null). */
KT_API uint8_t KT_bEstNumerique(const char* pcChaine);

/* KT_bEstAlphaNumerique - all characters are digits, upper-case letters or blanks. */
KT_API uint8_t KT_bEstAlphaNumerique(const char* pcChaine);

/* KT_bEstAlphabetique - all characters are upper-case letters or blanks. */
KT_API uint8_t KT_bEstAlphabetique(const char* pcChaine);

/*
 * KT_bLongAChaine - writes lValeur in decimal into pcChaine when lValeur is
 * below 10 to the power ulNbChiffres, and returns 1; else writes nothing and
 * returns 0. The power is taken in 32 bits and wraps above 9 digits (kept);
 * negative values always pass. REQUIRES: pcChaine holds 12 characters.
 */
KT_API uint8_t KT_bLongAChaine(int32_t lValeur, char* pcChaine, uint32_t ulNbChiffres);

/*
 * The three reducers check the first ulLongueur characters of a text by its
 * type code and, when the check passes, reduce it:
 *   'D'  numeric                    no reduction
 *   'A'  alphanumeric               trailing blanks dropped (down to length 0)
 *   'L'  alphabetic                 trailing blanks dropped
 *   'N'  numeric                    leading '0' dropped while more than one
 *                                   character remains (KT_bReduireChaine only)
 *   any other code: no check (1), no reduction.
 * The result is the check's; the reduced length is stored in *pulNouvelleLongueur
 * only when it is 1 (and when the pointer is not null).
 */

/*
 * KT_bReduireChaine - cuts pcChaine to its first ulLongueur characters in
 * place, then checks and reduces it in place. Returns 0 (text unchanged)
 * when its working block cannot be allocated.
 */
KT_API uint8_t KT_bReduireChaine(char* pcChaine, uint32_t ulLongueur, char cType,
                                 uint32_t* pulNouvelleLongueur);

/*
 * KT_bReduireChaineCtrl - hands out in *ppcCopie a new block holding the
 * first ulLongueur characters of pcChaine, checked and reduced by the rules
 * above ('N' is checked but not reduced; 'D' only numeric). pcChaine is not
 * changed. The block is handed out whatever the result; the caller frees it
 * with KT_Liberer. Returns 0 and a null *ppcCopie when it cannot be
 * allocated.
 */
KT_API uint8_t KT_bReduireChaineCtrl(const char* pcChaine, char** ppcCopie, uint32_t ulLongueur,
                                     char cType, uint32_t* pulNouvelleLongueur);

/*
 * KT_bConvertirEtenduEnAlpha - converts pcChaine to the accepted alphabet:
 * blanks, upper-case letters and digits stay, lower-case letters become
 * upper case, and every other character (punctuation, control characters,
 * every byte 0x80 to 0xFF, accented letters included, and the terminator
 * itself) becomes a blank when bSupprimer is 0 or is left out otherwise.
 * With bSupprimer 0 the result thus ends in one more blank than the text
 * has characters. The new text is handed out in *ppcResultat (free it with
 * KT_Liberer) and its length in *pulLongueur.
 * Returns 0 with no block (*ppcResultat null) for an empty or null text or
 * when the block cannot be allocated.
 */
KT_API uint8_t KT_bConvertirEtenduEnAlpha(const char* pcChaine, char** ppcResultat,
                                          uint32_t* pulLongueur, uint8_t bSupprimer);

/*
 * KT_bCompareChaine - 1 when the two texts are equal ignoring the case of
 * the ASCII letters; 0 when they differ or either is null.
 */
KT_API uint8_t KT_bCompareChaine(const char* pcChaine1, const char* pcChaine2);

/* ------------------------------------------------------------------------
 * Internal steps, exported for callers that use them.
 */

/*
 * bOUTILSEstDate6, bOUTILSEstDate8, bOUTILSEstDate12 - check a date text of
 * that length (YYMMDD with the two digits as the year itself, YYYYMMDD,
 * YYYYMMDDHHMM): the first 6, 8 or 12 characters must be digits forming a
 * valid date (and time). A shorter text fails at its terminator.
 */
KT_API uint8_t bOUTILSEstDate6(const char* pcDate);
KT_API uint8_t bOUTILSEstDate8(const char* pcDate);
KT_API uint8_t bOUTILSEstDate12(const char* pcDate);

/*
 * bOUTILSEstDateValide - whether the date is valid and, only then, whether
 * hour ucHeure and minute ucMinute are.
 */
KT_API uint8_t bOUTILSEstDateValide(uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour,
                                    uint8_t ucHeure, uint8_t ucMinute);

/*
 * bChaineCtrlFormat - the reducers' check of the first ulLongueur characters
 * of pcChaine, used by the format control: 'D' must also be a valid date
 * text; 'N' is checked but not reduced. pcChaine is not changed; the reduced
 * length goes to *pulNouvelleLongueur when the check passes. Returns 0 when
 * its working block cannot be allocated.
 */
KT_API uint8_t bChaineCtrlFormat(const char* pcChaine, uint32_t ulLongueur, char cType,
                                 uint32_t* pulNouvelleLongueur);

KT_END_DECLS

#endif /* KT_CHECKS_H */
