/*
 * kt_frame.h - status codes, counted memory, small file helpers and
 * configuration files of the KT common module.
 *
 * Every other public header includes this one first: it defines the export
 * macro, the C linkage guards and the status codes shared by the whole
 * library.
 *
 * Conventions of the interface:
 * - functions named with "us" return an unsigned 16-bit status, 0 on success
 *   and otherwise one of the KT_ERR_ codes below;
 * - functions named with "b" return a Boolean as uint8_t, 1 for true or
 *   success and 0 for false or failure, never a status code;
 * - blocks that the library hands to a caller come from KT_Allouer and are
 *   released by the caller with KT_Liberer;
 * - texts are NUL-terminated ISO 8859-1 byte strings.
 * The library has no threads and no locks: callers use it from one thread at
 * a time.
 */
#ifndef KT_FRAME_H
#define KT_FRAME_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(KT_BUILDING_LIBRARY) && defined(__GNUC__)
#define KT_API __attribute__((visibility("default")))
#else
#define KT_API
#endif

#if defined(__GNUC__)
#define KT_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define KT_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
#define KT_BEGIN_DECLS extern "C" {
#define KT_END_DECLS }
#else
#define KT_BEGIN_DECLS
#define KT_END_DECLS
#endif

KT_BEGIN_DECLS

/*
 * Status codes of the library (unsigned 16-bit). The values are part of the
 * interface shared with the suite's components: DO NOT CHANGE THEM.
 */
#define KT_OK                     ((uint16_t)0x0000) /* success */
#define KT_ECHEC                  ((uint16_t)0x0001) /* bare failure: CRC seek, message signing, nothing to release */
#define KT_ERR_TRACE_SOUS_MODULE  ((uint16_t)0xD000) /* trace activation, module 1 with a sub-module outside 1..8 */
#define KT_ERR_TRACE_OUVERTURE    ((uint16_t)0xD201) /* the trace file cannot be opened */
#define KT_ERR_TRACE_PLEINE       ((uint16_t)0xD202) /* trace table full (100 active pairs) */
#define KT_ERR_FICHIER            ((uint16_t)0xF610) /* a file operation failed */
#define KT_ERR_VERSION            ((uint16_t)0xF620) /* tables file version does not fit "0100" */
#define KT_ERR_CONTROLE           ((uint16_t)0xF630) /* CRC mismatch or signature not valid at open */
#define KT_ERR_FIN_FICHIER        ((uint16_t)0xF640) /* end of file or read error in a binary file; foreign table */
#define KT_ERR_NOM_FICHIER        ((uint16_t)0xF660) /* header name differs from the file's name */
#define KT_ERR_REP_TABLES         ((uint16_t)0xF680) /* "repertoiretable" missing from the configuration */
#define KT_ERR_REP_TRAVAIL        ((uint16_t)0xF6F1) /* "repertoiretravail" missing from the configuration */
#define KT_ERR_FICHIER_VERSION    ((uint16_t)0xF6F2) /* a component version file cannot be named or created */
#define KT_ERR_POINTEUR_NUL       ((uint16_t)0xF800) /* null file number or header pointer (binary files) */
#define KT_ERR_MEMOIRE            ((uint16_t)0xF801) /* no memory, no free zone slot, resize below capacity */
#define KT_ERR_ARGUMENT           ((uint16_t)0xF802) /* bad argument (null, empty, zero, bad mode, bad coded length) */
#define KT_ERR_PLACE_ZONE         ((uint16_t)0xF804) /* not enough room in a memory zone */
#define KT_ERR_FIN                ((uint16_t)0xF805) /* end reached or not found */
#define KT_ERR_OCCURRENCE         ((uint16_t)0xF806) /* group present fewer times than the occurrence asked */
#define KT_ERR_NUMERO_INCONNU     ((uint16_t)0xF807) /* unknown zone or binary file number */
#define KT_ERR_PLUS_DE_FICHIER    ((uint16_t)0xF80A) /* no free binary file number */
#define KT_ERR_CODAGE_ZONE        ((uint16_t)0xF810) /* badly coded zone */
#define KT_ERR_MODE               ((uint16_t)0xF811) /* wrong mode or wrong kind of zone */
#define KT_ERR_BUFFER_TRAVAIL     ((uint16_t)0xFFFB) /* 256-byte working buffer not allocated */
#define KT_ERR_POSITION           ((uint16_t)0xFFFE) /* position outside the current field, growth refused */
#define KT_ERR_RETOUR_POSITION    ((uint16_t)0xFFFF) /* final seek back failed; also a non-hexadecimal digit */

/*
 * Format control carries a position in the low bits of three code families:
 * KT_FORMAT_CHAMP + k (field of rank k over the whole zone), KT_FORMAT_GROUPE
 * + n (n-th group unknown) and KT_FORMAT_NB_CHAMPS + n (n-th group with a wrong
 * field count). The sums are taken modulo 65536.
 */
#define KT_FORMAT_CHAMP           ((uint16_t)0x9000)
#define KT_FORMAT_GROUPE          ((uint16_t)0xA000)
#define KT_FORMAT_NB_CHAMPS       ((uint16_t)0xA800)

/* ------------------------------------------------------------------------
 * Start-up and shut-down.
 *
 * Each component of the suite calls KT_usInitLIB once when it starts and
 * KT_usTermLIB when it stops. The first start of the process reads
 * "repertoiretravail" and "repertoiretable" of section "commun" of
 * "volen.ini", opens "tablebin.vkt" in the tables directory with its CRC
 * check, compares its versions with the library's "0100", loads the
 * dictionary and writes the version files 92.adm (the library) and 93.adm
 * (the tables file) in the working directory. Later starts only count; the
 * last stop releases the dictionary.
 */

/*
 * KT_usInitLIB - starts the library. On the first successful start,
 * *ppcVersionKT and *ppcVersionTables receive new 5-byte blocks ("0100" and
 * the tables file's version; free them with KT_Liberer); on later starts they
 * are left untouched and the result is 0.
 * Returns KT_ERR_BUFFER_TRAVAIL, KT_ERR_REP_TABLES, KT_ERR_REP_TRAVAIL,
 * KT_ERR_VERSION (the tables file stays open), KT_ERR_FIN_FICHIER (a table
 * other than TGROUPE, TCHAMP, TVALEUR), the codes of opening and reading the
 * tables file, or the code of a version file that could not be written (the
 * library is then started all the same). A failed start leaves the library
 * stopped, to be started again from the beginning.
 */
KT_API uint16_t KT_usInitLIB(char** ppcVersionKT, char** ppcVersionTables);

/* KT_usTermLIB - counts one stop; the last one releases the dictionary. Always 0. */
KT_API uint16_t KT_usTermLIB(void);

/*
 * KT_usDonnerRepertoireTravail - hands out in *ppcRepertoire a new 256-byte
 * block holding the working directory (the empty text when it is not
 * configured; the caller frees the block in every case). Returns
 * KT_ERR_REP_TRAVAIL when it is not configured, KT_ERR_BUFFER_TRAVAIL when
 * the block cannot be allocated.
 */
KT_API uint16_t KT_usDonnerRepertoireTravail(char** ppcRepertoire);

/*
 * KT_usEcrireVersionComposant - writes pcVersion (up to its terminator;
 * ulLongueur is not used) as the whole content of "<cComposant>.adm" in the
 * working directory. Returns KT_ERR_REP_TRAVAIL, KT_ERR_FICHIER_VERSION when
 * the file cannot be named or created, KT_ERR_FICHIER when it cannot be
 * closed.
 */
KT_API uint16_t KT_usEcrireVersionComposant(int8_t cComposant, const char* pcVersion,
                                            uint32_t ulLongueur);

/*
 * KT_usLireVersionComposant - hands out in *ppcContenu a new block holding
 * the bytes of "<cComposant>.adm" (no terminator added) and their number in
 * *pulLongueur; an empty file gives a zero-size block. Returns
 * KT_ERR_REP_TRAVAIL, or KT_ERR_FICHIER when the file cannot be opened, read
 * or closed.
 */
KT_API uint16_t KT_usLireVersionComposant(int8_t cComposant, char** ppcContenu,
                                          uint32_t* pulLongueur);

/* Internal steps, exported for callers that use them. */

/* usIAInitialisation - the work behind KT_usInitLIB. */
KT_API uint16_t usIAInitialisation(char** ppcVersionKT, char** ppcVersionTables);
/* usIADecharger - releases the dictionary. Always 0. */
KT_API uint16_t usIADecharger(void);

/* ------------------------------------------------------------------------
 * Counted memory.
 *
 * The library keeps the sum of the usable sizes of the blocks it handed out
 * through KT_Allouer, and the peak of that sum. ulMemAllouee and ulMaxAlloue
 * are exported for components that link against them; the library never
 * updates them (they stay 0).
 */
extern KT_API uint32_t ulMemAllouee;
extern KT_API uint32_t ulMaxAlloue;

/*
 * KT_Allouer - takes a block of ulTaille bytes from the C allocator and adds
 * its usable size to the running total. Returns null when memory is
 * exhausted (the totals are then unchanged). Release with KT_Liberer.
 */
KT_API void* KT_Allouer(uint32_t ulTaille);

/*
 * KT_Liberer - subtracts the block's usable size from the running total and
 * releases it. A null block is ignored (no trace).
 */
KT_API void KT_Liberer(void* pBloc);

/* ------------------------------------------------------------------------
 * Small file helpers.
 */

/*
 * KT_usLongueurFichier - stores the length of the open stream in *pulLongueur
 * and leaves the stream's position as it was. Returns KT_ERR_FICHIER when the
 * position or the end cannot be reached, KT_ERR_RETOUR_POSITION when the
 * seek back fails.
 */
KT_API uint16_t KT_usLongueurFichier(FILE* pfFichier, uint32_t* pulLongueur);

/*
 * KT_usCreerNomCompletFichier - joins pcRepertoire, '/' and pcNom into a new
 * block handed out in *ppcNomComplet (free it with KT_Liberer). A directory
 * ending in '/' gives a doubled separator. The two texts together must stay
 * below 256 characters. Returns KT_ERR_MEMOIRE (and null) when the block
 * cannot be allocated.
 */
KT_API uint16_t KT_usCreerNomCompletFichier(const char* pcRepertoire, const char* pcNom,
                                            char** ppcNomComplet);

/*
 * usOuvrirFichier - opens pcChemin with the standard mode text pcMode into
 * *ppfFichier. Returns KT_ERR_FICHIER when the open fails.
 */
KT_API uint16_t usOuvrirFichier(const char* pcChemin, const char* pcMode, FILE** ppfFichier);

/*
 * usFermerFichier - closes the stream. Returns KT_ERR_FICHIER when the close
 * reports a failure (the stream is gone in any case).
 */
KT_API uint16_t usFermerFichier(FILE* pfFichier);

/*
 * usLireBufferFichier - reads up to *pusNombre bytes into pBuffer and stores
 * the number read in *pusNombre. A short read at end of file is no error;
 * returns KT_ERR_FICHIER when the stream's error indicator is set.
 */
KT_API uint16_t usLireBufferFichier(FILE* pfFichier, void* pBuffer, uint16_t* pusNombre);

/*
 * usConstruireNomComplet - hands out in *ppcNom a new 8-byte block holding the
 * version file name of a component ("92.adm" for 92). Always returns 0; the
 * block is null if it could not be allocated.
 */
KT_API uint16_t usConstruireNomComplet(int8_t cComposant, char** ppcNom);

/*
 * donneDateHeure - formats the current local time with the strftime format
 * pcFormat into pcBuffer of *pulTaille bytes; stores and returns the number of
 * characters written (0 when the text did not fit).
 */
KT_API uint32_t donneDateHeure(char* pcBuffer, uint32_t* pulTaille, const char* pcFormat);

KT_END_DECLS

#endif /* KT_FRAME_H */
