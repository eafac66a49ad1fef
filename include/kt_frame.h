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
 * library is then started all the same). KT_ERR_MEMOIRE when a block of the
 * start other than the working buffer cannot be allocated: a directory copy,
 * a header block or either version block; nothing is then handed out, and
 * after a version block the dictionary and the tables file are given back.
 * A start that succeeds always hands out both blocks. A failed start leaves
 * the library stopped, to be started again from the beginning; each start
 * uses only the directories it read itself.
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

/* ------------------------------------------------------------------------
 * Configuration files.
 *
 * Settings live in "ini" text files: lines ended by a line feed, sections
 * opened by a line "[name]", entries "key=value". Nothing is trimmed: a blank
 * around the key or the "=" belongs to the key or the value. A file name
 * without '/' is taken in the preferences directory ("/Library/Preferences",
 * or $KT_PREFERENCES_DIR when set and not empty); a name with '/' is used as
 * it stands. Every call opens the file again; nothing is cached.
 *
 * The reader reads the whole file, matches section and key names ignoring
 * case, takes comment lines (";" or "#" first) out, and never finds a
 * section or key name of a single character. After a key that does not
 * match, the scan goes on inside that key's value, so a "[", ";" or a
 * further "key=value" there counts as if it began a line.
 *
 * The writer copies the file line by line through "WriteIniTmp.txt" in the
 * preferences directory, finds the section header case-sensitively and the
 * key as a prefix of a line, then puts the new file in place of the old one
 * by a rename: the target is never missing, and if anything fails before the
 * rename it is left as it was. A last line without a line feed, and whatever
 * follows a byte 0xFF, are not copied.
 *
 * The readers report no errors: a missing file, section or key leaves the
 * default. Wrappers named KT_ trace under module 1, sub-module 5.
 */

/*
 * GetIniString - reads the text of key pcCle in section pcSection of
 * pcFichier into pcBuffer.
 * pcBuffer first receives pcDefaut (null counts as the empty text): whole
 * when it has at most ulTaille characters, else its first ulTaille - 1
 * characters. A value found replaces it, cut to ulTaille characters.
 * REQUIRES: pcBuffer holds ulTaille + 1 characters (a value cut to ulTaille
 * characters is terminated at pcBuffer[ulTaille]).
 * Returns the length of the text left in pcBuffer; 0 when pcBuffer is null.
 */
KT_API uint32_t GetIniString(const char* pcSection, const char* pcCle, const char* pcDefaut,
                             char* pcBuffer, uint32_t ulTaille, const char* pcFichier);

/*
 * GetIniInt - reads key pcCle of section pcSection of pcFichier as a decimal
 * number (leading blanks and a sign accepted, conversion stops at the first
 * non-digit, no digit gives 0; values beyond 32 bits saturate). Returns
 * lDefaut when the file, section or key is missing.
 */
KT_API int32_t GetIniInt(const char* pcSection, const char* pcCle, int32_t lDefaut,
                         const char* pcFichier);

/*
 * WriteIniString - sets key pcCle of section pcSection in pcFichier to
 * pcValeur.
 * - A missing file is created with two lines, "[section]" and "key=value".
 * - Otherwise the first line equal to "[section]" (case and blanks count)
 *   opens the section; the first line after it that begins with the
 *   characters of pcCle (a prefix: key "rep" also matches "repertoire=...")
 *   is replaced by "key=value"; failing that, "key=value" goes before the
 *   empty line that ends the section, or at the end of the file. Without
 *   the section, an empty line, "[section]" and "key=value" are appended.
 * All other lines are kept in order, comments included.
 * Returns 1 when the file was written; 0 when an argument is null, the file
 * exists but cannot be read, or the temporary or new file cannot be
 * created, written or put in place. On 0 the file is as it was.
 * Two writers at once share the one temporary file: callers do not do that.
 */
KT_API uint8_t WriteIniString(const char* pcSection, const char* pcCle, const char* pcValeur,
                              const char* pcFichier);

/*
 * vln_GetIniInfo - looks up key pcCle of section pcSection in pcFichier and
 * stores what it finds in pDestination:
 * - cType 'i' or 'I': the value as a decimal number (as GetIniInt), stored
 *   as an int32_t (ulTaille is not used);
 * - any other type: the text, cut to ulTaille characters. REQUIRES:
 *   pDestination holds ulTaille + 1 characters.
 * pDestination is left unchanged when the file cannot be opened, read or
 * held in memory, or the section or key is not found.
 * Returns pDestination; null when pDestination is null or the file's size
 * cannot be queried.
 */
KT_API void* vln_GetIniInfo(const char* pcSection, const char* pcCle, void* pDestination,
                            char cType, uint32_t ulTaille, const char* pcFichier);

/*
 * vln_GetLine - the number of characters of pcTexte before its first line
 * feed, carriage return or terminator (0 for null).
 */
KT_API uint32_t vln_GetLine(const char* pcTexte);

/*
 * vln_GetToken - the index in pcTexte of the first cDelimiteur; 0 when a
 * line feed, carriage return or the terminator comes first, and also when
 * the delimiter is the first character (0 for null).
 */
KT_API uint32_t vln_GetToken(const char* pcTexte, char cDelimiteur);

/*
 * read_line - reads one line of pfFichier into pcLigne without its line
 * feed, and terminates it. Returns 1 while lines remain; 0 when the end of
 * the file, a read error or a byte 0xFF comes before the line feed (the
 * buffer is then not terminated). Carriage returns are kept.
 * REQUIRES: pcLigne holds 256 characters; the characters of a longer line
 * past the 255th are read and dropped.
 */
KT_API uint8_t read_line(FILE* pfFichier, char* pcLigne);

/*
 * vln_uprstr - upper-cases pcTexte in place (standard toupper, character by
 * character) and returns it; null gives null.
 */
KT_API char* vln_uprstr(char* pcTexte);

/*
 * KT_ulLireChaineIni - reads a text as GetIniString with the empty text as
 * default. When pcSection or pcCle is null or ulTaille is 0, returns 0 and
 * leaves pcBuffer untouched. REQUIRES: pcBuffer holds ulTaille + 1
 * characters. Returns the length of the text in pcBuffer.
 */
KT_API uint32_t KT_ulLireChaineIni(const char* pcSection, const char* pcCle, char* pcBuffer,
                                   uint32_t ulTaille, const char* pcFichier);

/*
 * KT_lLireLongIni - reads a number as GetIniInt with -1 as default; -1 also
 * when pcSection is null.
 */
KT_API int32_t KT_lLireLongIni(const char* pcSection, const char* pcCle, const char* pcFichier);

/* KT_bEcrireChaineIni - WriteIniString; 1 when written, else 0. */
KT_API uint8_t KT_bEcrireChaineIni(const char* pcSection, const char* pcCle,
                                   const char* pcValeur, const char* pcFichier);

/* KT_ulLireChaineVolen - KT_ulLireChaineIni on "volen.ini". */
KT_API uint32_t KT_ulLireChaineVolen(const char* pcSection, const char* pcCle, char* pcBuffer,
                                     uint32_t ulTaille);

/* KT_lLireLongVolen - KT_lLireLongIni on "volen.ini"; -1 when pcSection is null. */
KT_API int32_t KT_lLireLongVolen(const char* pcSection, const char* pcCle);

/* KT_bEcrireChaineVolen - KT_bEcrireChaineIni on "volen.ini". */
KT_API uint8_t KT_bEcrireChaineVolen(const char* pcSection, const char* pcCle,
                                     const char* pcValeur);

KT_END_DECLS

#endif /* KT_FRAME_H */
