/*
 * kt_zones.h - memory zones of the KT common module: the coded form of
 * groups and fields, the zone table, the cursor, editing and syntax control.
 *
 * Wire format (every multi-byte value big-endian, whatever the host):
 *
 *   coded length L    0..127               one byte, L
 *                     128..254             0x81, L (1 byte)
 *                     255..65 534          0x82, L (2 bytes)
 *                     65 535..16 777 214   0x83, L (3 bytes)
 *                     16 777 215 and up    0x84, L (4 bytes)
 *   group             identifier (2 bytes), coded length of the contents,
 *                     then the contents: its fields one after the other
 *   field             coded length of the value, then the value bytes
 *   zone              groups one after the other, nothing else
 *
 * Each long form stops one below the largest value its bytes could carry
 * (255 already takes three bytes): these boundaries are fixed, and differ
 * from those of binary files. The decoder accepts any form, a single 0x80
 * byte as 128 and non-minimal long forms included.
 *
 * A zone is a byte buffer that the library manages under a zone number, 0
 * to 99, in one process-wide table. A structured zone holds groups and
 * fields and is walked and edited through its cursor; a raw zone is read and
 * written at byte positions. The kind is fixed when the zone is made.
 * Releasing a zone never frees its buffer: a caller that wants the buffer
 * takes it with KT_pucLireBuffer first and frees it with KT_Liberer.
 *
 * Values handed out by the cursor are pointers into the zone's buffer, valid
 * until the zone next changes or is resized. Output pointers of the cursor
 * and editing functions may be null when the caller does not want that
 * value.
 *
 * Statuses common to every function taking a zone number:
 *   KT_ERR_NUMERO_INCONNU  number above 99 or free slot
 *   KT_ERR_MODE            structured operation on a raw zone or the reverse
 *   KT_ERR_CODAGE_ZONE     a header or length that does not decode, a group
 *                          or field longer than its container
 * Every function traces under module 1, sub-module 3, except syntax control
 * (sub-module 1).
 */
#ifndef KT_ZONES_H
#define KT_ZONES_H

#include "kt_frame.h"

KT_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Coded lengths and group headers.
 */

/* KT_stCalculerTailleLongueur - bytes of the coded form of ulLongueur, 1 to 5. */
KT_API uint32_t KT_stCalculerTailleLongueur(uint32_t ulLongueur);

/* KT_stCalculerTailleEnteteGroupe - bytes of a group header for contents of
 * ulLongueur bytes: 2 + the coded length's size (3 to 7). */
KT_API uint32_t KT_stCalculerTailleEnteteGroupe(uint32_t ulLongueur);

/* KT_stCalculerTailleChamp - bytes of a field whose value has ulLongueur
 * bytes (coded length included), modulo 2^32. */
KT_API uint32_t KT_stCalculerTailleChamp(uint32_t ulLongueur);

/* KT_stCalculerTailleGroupe2 - bytes of a whole group whose contents have
 * ulLongueur bytes (header included), modulo 2^32. */
KT_API uint32_t KT_stCalculerTailleGroupe2(uint32_t ulLongueur);

/*
 * KT_stCalculerTailleGroupe1 - bytes of a whole group holding usNombre
 * fields, whose value lengths follow as usNombre uint32_t arguments:
 * KT_stCalculerTailleGroupe1(2, 3, 200) is 210.
 */
KT_API uint32_t KT_stCalculerTailleGroupe1(uint16_t usNombre, ...);

/*
 * KT_stCoderLongueur - writes the coded form of ulLongueur at
 * *ppucBuffer + ulOffset and returns its size (1 to 5).
 * REQUIRES: the buffer has room for KT_stCalculerTailleLongueur(ulLongueur)
 * bytes at that offset; nothing is checked.
 */
KT_API uint32_t KT_stCoderLongueur(uint32_t ulLongueur, uint32_t ulOffset, uint8_t** ppucBuffer);

/*
 * KT_stCoderEnteteGroupe - writes the header of group usIdentifiant with
 * contents of ulLongueur bytes at *ppucBuffer + ulOffset and returns its
 * size (3 to 7). REQUIRES: room for that many bytes; nothing is checked.
 */
KT_API uint32_t KT_stCoderEnteteGroupe(uint16_t usIdentifiant, uint32_t ulLongueur,
                                       uint32_t ulOffset, uint8_t** ppucBuffer);

/*
 * KT_stDecoderLongueur - reads the coded length at pucBuffer + ulOffset, in a
 * buffer of ulTailleBuffer bytes, into *pulLongueur, and its size in bytes
 * into *pulNbOctets. Returns 0, or KT_ERR_CODAGE_ZONE when the first byte
 * announces more than 4 length bytes, or the coded length does not lie
 * wholly inside the buffer (an offset at or past its end included). On
 * failure the outputs may be partly written.
 */
KT_API uint16_t KT_stDecoderLongueur(const uint8_t* pucBuffer, uint32_t ulTailleBuffer,
                                     uint32_t ulOffset, uint32_t* pulLongueur,
                                     uint32_t* pulNbOctets);

/*
 * KT_usDecoderEnteteGroupe - reads the group header at pucBuffer + ulOffset:
 * identifier into *pusIdentifiant, contents length into *pulLongueur and
 * the whole header's size into *pulNbOctets. Returns 0 or
 * KT_ERR_CODAGE_ZONE (fewer than 3 bytes left, or a bad coded length); on
 * failure the outputs may be partly written.
 */
KT_API uint16_t KT_usDecoderEnteteGroupe(const uint8_t* pucBuffer, uint32_t ulTailleBuffer,
                                         uint32_t ulOffset, uint16_t* pusIdentifiant,
                                         uint32_t* pulLongueur, uint32_t* pulNbOctets);

/* ------------------------------------------------------------------------
 * The zone table and the life of a zone.
 */

/*
 * KT_usCreerZoneMemoire - makes a zone in the lowest free slot with a new
 * zero-filled buffer of ulTaille bytes (1 when 0 is asked), no data, and
 * stores its number in *pusZone. bStructuree: non-zero for a structured
 * zone (cursor at the start). The buffer comes from KT_Allouer and is NOT
 * freed by KT_usLibererZoneMemoire.
 * Returns KT_ERR_ARGUMENT for a null pusZone, KT_ERR_MEMOIRE when no slot is
 * free or memory runs out. When only the buffer could not be allocated, the
 * zone stays in its slot with no buffer and a capacity of 0 (every change
 * then fails for lack of room); *pusZone names it.
 */
KT_API uint16_t KT_usCreerZoneMemoire(uint32_t ulTaille, uint8_t bStructuree, uint16_t* pusZone);

/*
 * KT_usInitialiserZoneMemoire - makes a zone over the caller's buffer of
 * ulTaille bytes, all of them data (a zone received to be read). The buffer
 * is not copied and stays the caller's. Returns KT_ERR_ARGUMENT for a null
 * buffer, a size of 0 or a null pusZone, KT_ERR_MEMOIRE when no slot is
 * free or memory runs out.
 */
KT_API uint16_t KT_usInitialiserZoneMemoire(uint8_t* pucBuffer, uint32_t ulTaille,
                                            uint16_t* pusZone, uint8_t bStructuree);

/*
 * KT_usInitialiserZoneMemoireNonPlein - as KT_usInitialiserZoneMemoire for a
 * buffer of capacity ulTaille whose first ulTailleDonnees bytes are data,
 * with room left to add to. The data length is not checked against the
 * capacity; reads of the structure never go past the capacity, and a zone
 * claiming more data than it holds fails syntax control.
 */
KT_API uint16_t KT_usInitialiserZoneMemoireNonPlein(uint8_t* pucBuffer, uint32_t ulTaille,
                                                    uint32_t ulTailleDonnees, uint16_t* pusZone,
                                                    uint8_t bStructuree);

/*
 * KT_usLibererZoneMemoire - frees the zone's slot. The buffer is left alone,
 * also when the library allocated it.
 */
KT_API uint16_t KT_usLibererZoneMemoire(uint16_t usZone);

/*
 * KT_usRedimensionner - moves the zone into a new buffer of ulTaille bytes,
 * copying the data, and frees the old buffer with KT_Liberer, whatever its
 * origin (an adopted buffer must then come from KT_Allouer). The cursor is
 * kept; bytes past the data are not cleared. Returns KT_ERR_MEMOIRE when
 * ulTaille is below the current capacity (a zone never shrinks) or memory
 * runs out; the zone is then unchanged.
 */
KT_API uint16_t KT_usRedimensionner(uint16_t usZone, uint32_t ulTaille);

/* KT_bRechercherZoneLibre - 1 and the lowest free zone number in *pusZone,
 * or 0 when all 100 are in use. */
KT_API uint8_t KT_bRechercherZoneLibre(uint16_t* pusZone);

/*
 * KT_pucLireBuffer - the zone's data length in *pulTaille and its buffer in
 * *ppucBuffer (the caller's to free after releasing a created zone). Either
 * kind of zone. Returns 0 or KT_ERR_NUMERO_INCONNU.
 */
KT_API uint16_t KT_pucLireBuffer(uint16_t usZone, uint32_t* pulTaille, uint8_t** ppucBuffer);

/*
 * KT_usLireZoneMemoire - raw zones: copies ulLongueur bytes from position
 * ulPosition into the buffer *ppucDestination. The bound is the capacity,
 * not the data length. Returns KT_ERR_PLACE_ZONE when position + length
 * passes the capacity, KT_ERR_ARGUMENT for a null destination with a
 * length above 0.
 */
KT_API uint16_t KT_usLireZoneMemoire(uint16_t usZone, uint32_t ulPosition,
                                     uint8_t** ppucDestination, uint32_t ulLongueur);

/*
 * KT_usEcrireZoneMemoire - raw zones: copies ulLongueur bytes of pucSource
 * to position ulPosition and raises the data length to position + length
 * when that is larger (it never shrinks). Returns KT_ERR_PLACE_ZONE when
 * position + length passes the capacity, KT_ERR_ARGUMENT for a null source
 * with a length above 0.
 */
KT_API uint16_t KT_usEcrireZoneMemoire(uint16_t usZone, uint32_t ulPosition,
                                       const uint8_t* pucSource, uint32_t ulLongueur);

/*
 * End tests of structured zones; each writes a 32-bit Boolean (1 or 0):
 * KT_usFinDonnees  the current field ends at or after the data end;
 * KT_usFinZone     the current group ends at or after the data end;
 * KT_usFinGroupe   the current field ends at or after the current group's end.
 */
KT_API uint16_t KT_usFinDonnees(uint16_t usZone, uint32_t* pbFin);
KT_API uint16_t KT_usFinZone(uint16_t usZone, uint32_t* pbFin);
KT_API uint16_t KT_usFinGroupe(uint16_t usZone, uint32_t* pbFin);

/* ------------------------------------------------------------------------
 * The cursor. Group occurrences and field numbers count from 1. With
 * bCompterChamps set, leaving a group steps over its remaining fields one by
 * one so that the field counter counts them; clear, the cursor jumps to the
 * next group.
 */

/* KT_usPositionnerDebut - puts the cursor at the start, before the first
 * group, and clears both counters. */
KT_API uint16_t KT_usPositionnerDebut(uint16_t usZone);

/*
 * KT_usPositionnerFin - walks from the cursor to the last group and its last
 * field. Faults met on the way stop the walk and are not reported: the
 * result is 0 for any structured zone.
 */
KT_API uint16_t KT_usPositionnerFin(uint16_t usZone, uint8_t bCompterChamps);

/*
 * KT_usAvancerGroupeSuivant - steps usNombre groups forward (0 acts as 1)
 * and stores the identifier of the group reached. Returns KT_ERR_FIN at the
 * end of the zone (cursor unchanged), KT_ERR_CODAGE_ZONE for a header that
 * does not decode (cursor unchanged) or a group longer than the data (the
 * cursor then stands on that group and the identifier is not written).
 */
KT_API uint16_t KT_usAvancerGroupeSuivant(uint16_t usZone, uint16_t usNombre,
                                          uint8_t bCompterChamps, uint16_t* pusIdentifiant);

/*
 * KT_usAvancerChampSuivant - steps usNombre fields forward within the
 * current group (0 acts as 1); gives the field's number, a pointer to its
 * value inside the zone and the value's length. Returns KT_ERR_FIN at the
 * end of the group (cursor unchanged), or for a field that overruns its
 * group: the cursor and counters have then already moved onto it.
 * KT_ERR_CODAGE_ZONE for a length that does not decode (cursor unchanged)
 * or a field that runs past the data.
 */
KT_API uint16_t KT_usAvancerChampSuivant(uint16_t usZone, uint16_t usNombre,
                                         uint16_t* pusNumero, uint8_t** ppucDonnees,
                                         uint32_t* pulLongueur);

/*
 * KT_usRechercherGroupe - from the start, puts the cursor on occurrence
 * usOccurrence of group usIdentifiant. Returns KT_ERR_ARGUMENT for
 * occurrence 0 (before the zone is checked), KT_ERR_FIN when the group is
 * absent, KT_ERR_OCCURRENCE when it is present fewer times than asked.
 * Identifier 0 is found at once without moving.
 */
KT_API uint16_t KT_usRechercherGroupe(uint16_t usZone, uint16_t usIdentifiant,
                                      uint16_t usOccurrence, uint8_t bCompterChamps);

/* KT_usRechercherGroupeSuivant - the same search from the cursor onward. */
KT_API uint16_t KT_usRechercherGroupeSuivant(uint16_t usZone, uint16_t usIdentifiant,
                                             uint16_t usOccurrence, uint8_t bCompterChamps);

/*
 * KT_usRechercherChamp - puts the cursor on field usNumero of occurrence
 * usOccurrence of group usIdentifiant and gives its value and length.
 * Returns KT_ERR_ARGUMENT for an occurrence or field number of 0, the
 * group search's status, or KT_ERR_FIN when the group has fewer fields.
 */
KT_API uint16_t KT_usRechercherChamp(uint16_t usZone, uint16_t usIdentifiant,
                                     uint16_t usOccurrence, uint16_t usNumero,
                                     uint8_t bCompterChamps, uint8_t** ppucDonnees,
                                     uint32_t* pulLongueur);

/*
 * KT_usLireGroupeSuivant - moves onto the next group and gives its
 * identifier and how many groups of that identifier lie up to and including
 * it. It finds that count by searching each occurrence again from the start,
 * so its cost grows with the square of the zone. From the start of the zone
 * it reports the first group's identifier with occurrence 0 and does not
 * move. Returns KT_ERR_FIN at the end of the data, or the header decoder's
 * status.
 */
KT_API uint16_t KT_usLireGroupeSuivant(uint16_t usZone, uint8_t bCompterChamps,
                                       uint16_t* pusIdentifiant, uint16_t* pusOccurrence);

/* KT_usLireCompteurGroupe, KT_usLireCompteurChamp - groups and fields stepped
 * onto since the cursor was last put at the start (16 bits, wrapping). */
KT_API uint16_t KT_usLireCompteurGroupe(uint16_t usZone, uint16_t* pusCompteur);
KT_API uint16_t KT_usLireCompteurChamp(uint16_t usZone, uint16_t* pusCompteur);

/* ------------------------------------------------------------------------
 * Editing in place. Nothing here enlarges the buffer: a change that does not
 * fit fails with KT_ERR_PLACE_ZONE and leaves the bytes untouched; resize
 * with KT_usRedimensionner and try again. Appending at the end of the zone
 * moves nothing but the current group's header, so building a zone by
 * appending costs time in proportion to its size.
 */

/*
 * KT_usAjouterGroupe - inserts an empty group usIdentifiant after the
 * current group (at the front from the start of the zone); the cursor moves
 * onto it. After a group in the middle, the following groups are moved only
 * when the current group is no longer than what follows it (kept as it
 * always was). Returns KT_ERR_PLACE_ZONE when 3 more bytes do not fit,
 * KT_ERR_CODAGE_ZONE when the cursor stands on a group overrunning the data.
 */
KT_API uint16_t KT_usAjouterGroupe(uint16_t usZone, uint16_t usIdentifiant);

/*
 * KT_usAjouterChamp - inserts a field holding ulLongueur bytes of pucDonnees
 * after the current field of the current group (first when there is none)
 * and rewrites the group's length; the cursor moves onto it. Returns
 * KT_ERR_FIN when there is no current group or its identifier is 0,
 * KT_ERR_ARGUMENT for null data with a length above 0, KT_ERR_PLACE_ZONE,
 * KT_ERR_CODAGE_ZONE when the cursor does not stand inside the data or the
 * group's length is not in the coder's own (shortest) form.
 */
KT_API uint16_t KT_usAjouterChamp(uint16_t usZone, const uint8_t* pucDonnees,
                                  uint32_t ulLongueur);

/*
 * KT_usModifierChamp - writes ulLongueur bytes of pucDonnees into the
 * current field's value at ulPosition. When position + length passes the
 * value's end, the field grows if bAgrandissement is set. Growth that makes
 * the field's own coded length longer, at a position above 0, leaves the
 * kept value bytes that many places earlier (kept as it always was; a
 * rewrite from position 0 is unaffected).
 * Returns KT_ERR_FIN with no current field, KT_ERR_POSITION for a position
 * past the value or growth not allowed, KT_ERR_ARGUMENT for null data with a
 * length above 0, KT_ERR_PLACE_ZONE, KT_ERR_CODAGE_ZONE when the cursor does
 * not stand inside the data or (for growth) a length to rewrite is not in
 * the coder's own form.
 */
KT_API uint16_t KT_usModifierChamp(uint16_t usZone, const uint8_t* pucDonnees,
                                   uint32_t ulPosition, uint32_t ulLongueur,
                                   uint8_t bAgrandissement);

/*
 * KT_usExtraireChamp - stores in *ppucDonnees a pointer to the current
 * field's value at ulPosition, for ulLongueur bytes; nothing is copied.
 * Returns KT_ERR_FIN with no current field, KT_ERR_POSITION when position or
 * position + length passes the value, KT_ERR_CODAGE_ZONE when the field
 * runs past the data.
 */
KT_API uint16_t KT_usExtraireChamp(uint16_t usZone, uint8_t** ppucDonnees, uint32_t ulPosition,
                                   uint32_t ulLongueur);

/* ------------------------------------------------------------------------
 * Syntax control.
 */

/*
 * KT_usControlerSyntaxeZoneMemoire - checks that the whole data of a
 * structured zone is a sequence of groups and fields in the coded form:
 * every header and length decodes, no group is empty, every group fits in
 * the data and every field in its group, and the data ends with the last
 * group. Returns 0, KT_ERR_CODAGE_ZONE for any fault of form, or the status
 * of a failed cursor operation. The bytes are never changed; the cursor
 * stays where the check stopped (on the last field when it succeeds).
 */
KT_API uint16_t KT_usControlerSyntaxeZoneMemoire(uint16_t usZone);

/* ------------------------------------------------------------------------
 * Format control.
 */

/*
 * KT_usControlerFormatZoneMemoire - checks a structured zone against the
 * dictionary loaded at start-up: every group known, exactly the fields its
 * record lists, and every value passing its type check, its length bounds
 * (on the significant length) and, where the field has a list, equal to one
 * of its allowed values (ignoring case, after reduction). Fields are matched
 * to records by position. Returns:
 *   0                          the zone conforms (cursor back at the start);
 *   a syntax or cursor status  the zone is not a well-formed structured zone;
 *   KT_FORMAT_CHAMP + k        the field of rank k over the whole zone fails
 *                              (k counts the dictionary field counts of the
 *                              groups before it, plus its number in its group);
 *   KT_FORMAT_GROUPE + n       the n-th group is unknown, or an allowed value of
 *                              it cannot be read (the cursor stays on it);
 *   KT_FORMAT_NB_CHAMPS + n    the n-th group holds more or fewer fields.
 * Sums are taken modulo 65536. An empty field (significant length 0) passes
 * unless its record has lCodeChamp 1 and a non-zero usLongueurMin.
 */
KT_API uint16_t KT_usControlerFormatZoneMemoire(uint16_t usZone);

KT_END_DECLS

#endif /* KT_ZONES_H */
