/*
 * kt_binfiles.h - binary table files of the KT common module.
 *
 * A binary table file is a readable header line followed by named tables of
 * typed big-endian records, checked when it is opened by a CRC-16 kept in the
 * header line (control type 1) or by a 128-byte RSA signature appended to the
 * file (control type 2). The dictionary file "tablebin.vkt" is one.
 *
 * Callers never hold a stream: they hold a binary file number from 1 to 100,
 * handed out when a file is created or opened and taken back when it is
 * closed. The 100 slots behind the numbers belong to the process; the lowest
 * free number is always handed out first.
 *
 * Layout of a file, byte by byte:
 *
 *   offset  length  content
 *   0       4       CRC field: "0000" (CRC16_FICTIF), or for control type 1
 *                   the file's CRC-16 as four upper-case hexadecimal digits
 *   4       1       space
 *   5       12      file name, space-padded on the right
 *   17      1       space, then the version (4), space, field 3 (5), space,
 *                   field 4 (8), space, required version (4), space,
 *                   field 6 (5), space, field 7 (10), space
 *   60      n       comment, no terminator
 *   60+n    3       0x0D 0x0A 0x1A
 *   63+n    ...     tables: a 25-byte table header, (A + B) x 5 bytes of
 *                   extension entries, then the table's records
 *   end-128 128     signature, control type 2 only
 *
 * Every integer in the body is big-endian, whatever the host.
 */
#ifndef KT_BINFILES_H
#define KT_BINFILES_H

#include "kt_frame.h"
#include "kt_crypto.h"

KT_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Header record.
 *
 * The caller's view of a file's header line: consecutive NUL-terminated text
 * fields of fixed capacity in one byte block, at the offsets below. The
 * writer takes fields 2 to 7 at exactly their written width (capacity - 1),
 * so the caller fills them completely. The reader fills a block of
 * KT_TAILLE_ENTETE_FICHIER bytes and keeps at most KT_TAILLE_COMMENTAIRE
 * characters of the comment. EnteteFichier is the same layout as a record.
 */
#define KT_ENTETE_NOM              0   /* file name, 12 characters + NUL */
#define KT_ENTETE_VERSION          13  /* version of the file, 4 digits + NUL */
#define KT_ENTETE_CHAMP3           18  /* free text, 5 characters + NUL */
#define KT_ENTETE_CHAMP4           24  /* free text, 8 characters + NUL */
#define KT_ENTETE_VERSION_REQUISE  33  /* lowest version that may read it, 4 digits + NUL */
#define KT_ENTETE_CHAMP6           38  /* free text, 5 characters + NUL */
#define KT_ENTETE_CHAMP7           44  /* free text, 10 characters + NUL */
#define KT_ENTETE_COMMENTAIRE      55  /* comment, NUL-terminated, no carriage return */
#define KT_TAILLE_ENTETE_FICHIER   256 /* size of the block the reader fills */
#define KT_TAILLE_COMMENTAIRE      200 /* comment characters the reader keeps */

typedef struct EnteteFichier {
  char cNom[13];
  char cVersion[5];
  char cChamp3[6];
  char cChamp4[9];
  char cVersionRequise[5];
  char cChamp6[6];
  char cChamp7[11];
  char cCommentaire[KT_TAILLE_COMMENTAIRE + 1];
} EnteteFichier;

/* Control types of a file (usTypeControle). Any other value behaves as 0. */
#define KT_CONTROLE_AUCUN      0 /* nothing checked; the last 128 bytes are still not data */
#define KT_CONTROLE_CRC        1 /* CRC-16 written at close, checked at open */
#define KT_CONTROLE_SIGNATURE  2 /* RSA signature appended at close, verified at open */

/* The CRC field of a file that carries no CRC (yet): "0000". */
extern KT_API const char CRC16_FICTIF[5];

/* ------------------------------------------------------------------------
 * Slots.
 *
 * FichierBinaire is the record behind a file number. The library owns it;
 * usRechercherFichier hands out a pointer to it that stays valid until the
 * file is closed.
 */
typedef struct FichierBinaire {
  char* pcRepertoire;         /* copy of the directory given by the caller */
  char* pcNomFichier;         /* copy of the file name given by the caller */
  uint16_t usTypeControle;    /* control type, KT_CONTROLE_... */
  FILE* pfFichier;            /* the open stream */
  uint32_t ulCompteurOctets;  /* writing: bytes written since the last reset;
                                 reading: the file's length, set at open */
  uint16_t bLecture;          /* 1 for a file opened for reading */
  uint16_t bEcriture;         /* 1 for a file created for writing */
} FichierBinaire;

/*
 * KT_usCreerFichierBinaire - creates (or truncates) pcRepertoire/pcNomFichier
 * for writing, takes the lowest free file number and writes the header line
 * from the header record pcEntete (see above; the comment is taken whole).
 *
 * *pusNumFichier receives the number, or 0 when the file could not be
 * created. Statuses: KT_ERR_ARGUMENT (null directory, name or header record),
 * KT_ERR_POINTEUR_NUL (null pusNumFichier), KT_ERR_PLUS_DE_FICHIER (all 100
 * numbers in use), KT_ERR_MEMOIRE, KT_ERR_FICHIER (the file cannot be opened).
 * A failed header write returns KT_ERR_FICHIER but keeps the number: the
 * caller must still close the file. A failure while holding number 100
 * before the header is written leaves that number reserved for good.
 */
KT_API uint16_t KT_usCreerFichierBinaire(const char* pcRepertoire, const char* pcNomFichier,
                                         uint16_t usTypeControle, const char* pcEntete,
                                         uint16_t* pusNumFichier);

/*
 * KT_usInitialiserFichierBinaire - opens an existing file for reading, takes
 * the lowest free number, reads its header line into pcEntete
 * (KT_TAILLE_ENTETE_FICHIER bytes) and checks it:
 * - the header's name field must equal pcNomFichier: else KT_ERR_NOM_FICHIER;
 * - control type 1: the stored CRC must equal the file's CRC-16, and
 *   control type 2: the signature must verify with the built-in public key;
 *   else KT_ERR_CONTROLE.
 * On success the file stands at the first byte of its first table.
 *
 * Statuses before a number is held: KT_ERR_ARGUMENT (null directory or name),
 * KT_ERR_POINTEUR_NUL (null number or header pointer), KT_ERR_PLUS_DE_FICHIER,
 * KT_ERR_MEMOIRE, KT_ERR_FICHIER (cannot open); *pusNumFichier is then 0.
 * After the file is open, a failure of the length query (KT_ERR_FICHIER), of
 * the header read (KT_ERR_FIN_FICHIER) or of a check leaves the file open
 * under its number: the caller must close it.
 */
KT_API uint16_t KT_usInitialiserFichierBinaire(const char* pcRepertoire, const char* pcNomFichier,
                                               uint16_t usTypeControle, uint16_t* pusNumFichier,
                                               char* pcEntete);

/*
 * KT_usLibererFichierBinaire - finishes and closes a file and frees its
 * number. For a file created for writing, in this order and stopping at the
 * first failure: writes the size of a table still open (the pending table
 * is process-wide: it is written into this file even if another file opened
 * it), then for control type 1 writes the CRC-16, for control type 2 appends
 * the signature made with the private-key file pcClePrivee (used only then).
 * The stream is closed and the number freed whatever happened before.
 * Returns the first failure, or KT_ERR_FICHIER when the close fails;
 * KT_ERR_NUMERO_INCONNU (nothing done) for a number not in use.
 */
KT_API uint16_t KT_usLibererFichierBinaire(uint16_t usNumFichier, const char* pcClePrivee);

/*
 * KT_usLongueurFichierBinaire - the length of the file's stream in
 * *pulLongueur. KT_ERR_FICHIER for any failure, an unknown number included.
 */
KT_API uint16_t KT_usLongueurFichierBinaire(uint16_t usNumFichier, uint32_t* pulLongueur);

/*
 * KT_usPositionnerOffset - moves the file's stream as the standard seek does
 * (iOrigine SEEK_SET, SEEK_CUR or SEEK_END). KT_ERR_FICHIER for any failure,
 * an unknown number included.
 */
KT_API uint16_t KT_usPositionnerOffset(uint16_t usNumFichier, int32_t lOffset, int iOrigine);

/*
 * KT_usLirePositionFichier - the current position of the file's stream in
 * *plPosition. KT_ERR_FICHIER for any failure, an unknown number included.
 */
KT_API uint16_t KT_usLirePositionFichier(uint16_t usNumFichier, int32_t* plPosition);

/*
 * KT_usLireFichierBinaire - reads ulTaille bytes from offset ulOffset of the
 * file into a new block handed out in *ppucBuffer (from KT_Allouer; the
 * caller frees it with KT_Liberer) and restores the stream's position.
 * *ppucBuffer is null when the block could not be allocated or the offset
 * not reached. The result is that of the final seek back whenever the old
 * position was known: a failed allocation or a short read followed by a good
 * seek back returns 0, so callers check the buffer (kept as it is).
 * KT_ERR_FICHIER when the position cannot be read or restored.
 */
KT_API uint16_t KT_usLireFichierBinaire(uint16_t usNumFichier, uint32_t ulOffset,
                                        uint32_t ulTaille, uint8_t** ppucBuffer);

/* Internal steps of the slot table, exported for callers that use them. */

/* usInitialiserTableauFichiers - clears the slot table on its first call only; 0. */
KT_API uint16_t usInitialiserTableauFichiers(void);

/*
 * usRechercherNumeroFichier - reserves the first empty slot and stores its
 * number in *pusNumFichier. KT_ERR_PLUS_DE_FICHIER when all 100 are taken.
 */
KT_API uint16_t usRechercherNumeroFichier(uint16_t* pusNumFichier);

/*
 * usRenseignerFichierTableau - stores psFichier in the slot of usNumFichier,
 * or empties it when psFichier is null. KT_ERR_NUMERO_INCONNU, and nothing
 * touched, for number 0 or above 100.
 */
KT_API uint16_t usRenseignerFichierTableau(uint16_t usNumFichier, FichierBinaire* psFichier);

/*
 * usRechercherFichier - the record of a number in use, in *ppsFichier.
 * KT_ERR_NUMERO_INCONNU for 0, above 100, or a slot not filled (empty, or
 * reserved by a create or open that did not finish).
 */
KT_API uint16_t usRechercherFichier(uint16_t usNumFichier, FichierBinaire** ppsFichier);

/*
 * usLibererFichier - frees the slot's record and empties it. A stream still
 * open in it is closed first. KT_ERR_NUMERO_INCONNU for a number not in use.
 */
KT_API uint16_t usLibererFichier(uint16_t usNumFichier);

/*
 * usTailleDonnneeFichierBinaire - the bytes that tables may occupy: the
 * file's length for control type 1, the length less 128 for every other
 * type (type 0 included), as an unsigned 32-bit value (a short file wraps).
 */
KT_API uint16_t usTailleDonnneeFichierBinaire(uint16_t usNumFichier, uint32_t* pulTaille);

/* ------------------------------------------------------------------------
 * Header line (the file must be open; see the layout above).
 */

/*
 * usEcrireEnteteFichierBinaire - writes the header line at the start of a
 * file created for writing. KT_ERR_FICHIER when positioning or writing
 * fails (the partial header stays).
 */
KT_API uint16_t usEcrireEnteteFichierBinaire(uint16_t usNumFichier, const char* pcEntete);

/*
 * usLireEnteteFichierBinaire - reads the header line into pcEntete
 * (KT_TAILLE_ENTETE_FICHIER bytes) and leaves the file at the start of the
 * body. The name loses its trailing spaces; separators are not checked.
 * With an empty comment the file is left one byte further, past the first
 * body byte (kept: writers always give a comment). KT_ERR_FICHIER when the
 * start cannot be reached, KT_ERR_FIN_FICHIER on end of file or read error.
 */
KT_API uint16_t usLireEnteteFichierBinaire(uint16_t usNumFichier, char* pcEntete);

/*
 * usLireCommentaire - reads the characters up to the next carriage return
 * into pcCommentaire (at most KT_TAILLE_COMMENTAIRE of them are kept, then
 * a NUL; the buffer must hold KT_TAILLE_COMMENTAIRE + 1 bytes) and leaves the
 * file after the carriage return. With no character before it, the byte
 * after it is consumed as well. KT_ERR_FIN_FICHIER when end of file comes
 * first or on a read error.
 */
KT_API uint16_t usLireCommentaire(uint16_t usNumFichier, char* pcCommentaire);

/*
 * usConvertirHexa - the value of one hexadecimal digit, either case; 0xFFFF
 * (KT_ERR_RETOUR_POSITION) for any other character.
 */
KT_API uint16_t usConvertirHexa(char cCaractere);

/* ------------------------------------------------------------------------
 * Coded lengths (the prefix of a variable string).
 *
 *   length L                   bytes
 *   0 .. 127                   L
 *   128 .. 255                 0x81 L
 *   256 .. 65 535              0x82 L (2 bytes, big-endian)
 *   65 536 .. 16 777 215       0x83 L (3 bytes)
 *   16 777 216 and above       0x84 L (4 bytes)
 *
 * The memory zones' coder uses the same prefixes with other boundaries; the
 * two are separate.
 */

/*
 * stCoderLongueur - writes the coded form of ulLongueur at
 * pucBuffer[ulIndex] and returns its byte count (1 to 5). No bounds check:
 * REQUIRES 5 bytes of room at the index.
 */
KT_API uint32_t stCoderLongueur(uint32_t ulLongueur, uint8_t* pucBuffer, uint32_t ulIndex);

/*
 * usDecoderLongueur - decodes the coded length at pucBuffer[ulIndex] of a
 * buffer of ulTailleBuffer bytes. A first byte up to 0x80 is the length
 * itself (0x80 gives 128) with *pulNbOctets = 1. Otherwise its low 7 bits n
 * count the length bytes that follow: *pulNbOctets = n (not n + 1), and
 * each following byte is accumulated as a signed 8-bit value (a byte of 0x80
 * or more subtracts). Both quirks are part of this routine's contract; the
 * library's own string reader does not use it. KT_ERR_ARGUMENT for n above 4,
 * length bytes running past the buffer, an index outside it or null pointers.
 */
KT_API uint16_t usDecoderLongueur(const uint8_t* pucBuffer, uint32_t ulTailleBuffer,
                                  uint32_t ulIndex, uint32_t* pulLongueur,
                                  uint32_t* pulNbOctets);

/* ------------------------------------------------------------------------
 * CRC-16.
 *
 * The check value of control type 1: a reflected CRC with polynomial 0x1021
 * (0x8408 reflected), register 0, the data shifted in at the top of the
 * register without the two closing zero bytes, then byte-swapped. It covers
 * the file from offset 4 to the end. "123456789" gives 0x7F50.
 */

/*
 * usCalculerCRC16 - computes the value over the stream from offset 4 into
 * *pusCRC and restores the stream's position. KT_ECHEC (1) when offset 4
 * cannot be reached, KT_ERR_FICHIER when the position cannot be read or
 * restored.
 */
KT_API uint16_t usCalculerCRC16(FILE* pfFichier, uint16_t* pusCRC);

/*
 * usEcrireCRC - writes the value as four upper-case hexadecimal digits at
 * offset 0 of the stream. KT_ERR_FICHIER when the seek or the write fails.
 */
KT_API uint16_t usEcrireCRC(FILE* pfFichier, uint16_t usCRC);

/*
 * usLireCRC - reads the four characters at offset 0 of the file as a
 * hexadecimal value (either case) into *pusCRC and restores the position. A
 * character that is not a digit counts as 0xFFFF and spoils the sum without
 * an error. KT_ERR_FICHIER on any positioning or read failure.
 */
KT_API uint16_t usLireCRC(uint16_t usNumFichier, uint16_t* pusCRC);

/* ------------------------------------------------------------------------
 * Typed fields.
 *
 * Every operation takes the file number first and returns a status:
 * KT_ERR_NUMERO_INCONNU for a number not in use. Writers refuse a file
 * opened for reading with KT_ERR_MODE (all but KT_usEcrireDouble), give
 * KT_ERR_FICHIER when a write fails, and count the bytes they write in the
 * slot's ulCompteurOctets (table sizes are made from it). Readers do not
 * look at the mode and give KT_ERR_FIN_FICHIER on end of file, a read error
 * or an unknown stream position, leaving the destination untouched for the
 * integers. Nothing is undone after a partial write.
 *
 *   field                     on file                                width
 *   UnsignedChar, SignedChar  the byte (two's complement)            1
 *   UnsignedShort, SignedShort high byte first                       2
 *   UnsignedLong, SignedLong  most significant byte first            4
 *   Double                    packed decimal, below                  8
 *   Date                      16-bit part, then two bytes            4
 *   ChampFixe                 the bytes as they are                  count
 *   ChaineVariable            coded length, then the characters      1..5 + length
 *   ChampUnicodeFixe          each 16-bit unit high byte first       2 x count
 *
 * Packed decimal: 16 four-bit nibbles. Nibble 0 is the sign (0 positive,
 * 1 negative). Nibbles 1 to 15 are the 15 characters of the number's
 * fixed-point text with 14 digits and one point (15 stands for the point):
 * 14 significant digits from 1 up, 13 decimals below 1. 3.5 is
 * 03 F5 00 00 00 00 00 00 and -1234.5 is 11 23 4F 50 00 00 00 00. The text
 * always uses "." whatever the process's locale.
 */

/*
 * KT_usEcrireUnsignedChar - writes one byte. The counter moves by 1 even
 * when the write fails.
 */
KT_API uint16_t KT_usEcrireUnsignedChar(uint16_t usNumFichier, uint8_t ucValeur);
/* KT_usEcrireSignedChar - the byte's two's complement, through the unsigned writer. */
KT_API uint16_t KT_usEcrireSignedChar(uint16_t usNumFichier, int8_t cValeur);
/* KT_usEcrireUnsignedShort - 2 bytes; the counter moves by 2 even on failure. */
KT_API uint16_t KT_usEcrireUnsignedShort(uint16_t usNumFichier, uint16_t usValeur);
/* KT_usEcrireSignedShort - two's complement, through the unsigned writer. */
KT_API uint16_t KT_usEcrireSignedShort(uint16_t usNumFichier, int16_t sValeur);
/* KT_usEcrireUnsignedLong - 4 bytes; the counter moves by 4 even on failure. */
KT_API uint16_t KT_usEcrireUnsignedLong(uint16_t usNumFichier, uint32_t ulValeur);
/* KT_usEcrireSignedLong - two's complement, through the unsigned writer. */
KT_API uint16_t KT_usEcrireSignedLong(uint16_t usNumFichier, int32_t lValeur);

/*
 * KT_usEcrireDouble - writes dValeur as packed decimal. KT_ERR_FICHIER, and
 * nothing written, for more than 14 integer digits (1e14 and above in
 * magnitude), an infinity or a NaN. Does not check the mode: on a file
 * opened for reading the write itself fails (KT_ERR_FICHIER). The counter
 * moves by 8 before the write.
 */
KT_API uint16_t KT_usEcrireDouble(uint16_t usNumFichier, double dValeur);

/*
 * KT_usEcrireDate - the 16-bit part (usAnnee) with the short writer, then
 * the two bytes with the char writer, stopping at the first failure.
 */
KT_API uint16_t KT_usEcrireDate(uint16_t usNumFichier, uint16_t usAnnee, uint8_t ucMois,
                                uint8_t ucJour);

/*
 * KT_usEcrireChampFixe - writes ulNombre bytes in one block. A short write
 * gives KT_ERR_FICHIER and leaves the counter unchanged. KT_ERR_ARGUMENT for
 * a null pucOctets with a non-zero count.
 */
KT_API uint16_t KT_usEcrireChampFixe(uint16_t usNumFichier, const uint8_t* pucOctets,
                                     uint32_t ulNombre);

/*
 * KT_usEcrireChaineVariable - writes the coded length of strlen(pcTexte) and
 * the characters, without terminator. A null text writes the single byte 0
 * (it reads back as the empty text).
 */
KT_API uint16_t KT_usEcrireChaineVariable(uint16_t usNumFichier, const char* pcTexte);

/*
 * KT_usEcrireChampUnicodeFixe - writes ulNombre 16-bit units, each high byte
 * first. A short write gives KT_ERR_FICHIER, counter unchanged. KT_ERR_ARGUMENT
 * for a null pusUnites with a non-zero count.
 */
KT_API uint16_t KT_usEcrireChampUnicodeFixe(uint16_t usNumFichier, const uint16_t* pusUnites,
                                            uint32_t ulNombre);

/* Integer readers: KT_ERR_ARGUMENT for a null destination. */
KT_API uint16_t KT_usLireUnsignedChar(uint16_t usNumFichier, uint8_t* pucValeur);
KT_API uint16_t KT_usLireSignedChar(uint16_t usNumFichier, int8_t* pcValeur);
KT_API uint16_t KT_usLireUnsignedShort(uint16_t usNumFichier, uint16_t* pusValeur);
KT_API uint16_t KT_usLireSignedShort(uint16_t usNumFichier, int16_t* psValeur);
KT_API uint16_t KT_usLireUnsignedLong(uint16_t usNumFichier, uint32_t* pulValeur);
KT_API uint16_t KT_usLireSignedLong(uint16_t usNumFichier, int32_t* plValeur);

/*
 * KT_usLireDouble - reads 8 bytes of packed decimal into *pdValeur. A value
 * written by KT_usEcrireDouble reads back rounded to 14 significant digits
 * (13 decimals below 1). Nibble values 10 to 14, which the writer never
 * produces, end the number where they stand.
 */
KT_API uint16_t KT_usLireDouble(uint16_t usNumFichier, double* pdValeur);

/* KT_usLireDate - the 16-bit part, then the two bytes, stopping at the first failure. */
KT_API uint16_t KT_usLireDate(uint16_t usNumFichier, uint16_t* pusAnnee, uint8_t* pucMois,
                              uint8_t* pucJour);

/*
 * KT_usLireChampFixe - reads ulNombre bytes in one block into pucBuffer.
 * Fewer bytes give KT_ERR_FIN_FICHIER (and an error trace).
 */
KT_API uint16_t KT_usLireChampFixe(uint16_t usNumFichier, uint8_t* pucBuffer, uint32_t ulNombre);

/*
 * KT_usLireChampUnicodeFixe - reads ulNombre 16-bit units, high byte first,
 * into pusUnites. Fewer give KT_ERR_FIN_FICHIER (and an error trace).
 */
KT_API uint16_t KT_usLireChampUnicodeFixe(uint16_t usNumFichier, uint16_t* pusUnites,
                                          uint32_t ulNombre);

/*
 * KT_usLireChaineVariable - reads a coded length and that many characters
 * into a new NUL-terminated block handed out in *ppcTexte (from KT_Allouer;
 * the caller frees it with KT_Liberer, also after a failure: a short read
 * hands out the block unterminated, end of file on the first byte an empty
 * block). A length prefix of more than 4 bytes gives KT_ERR_ARGUMENT and no
 * block. A length running past the end of the file gives KT_ERR_FIN_FICHIER,
 * with a block no larger than what the file still holds.
 */
KT_API uint16_t KT_usLireChaineVariable(uint16_t usNumFichier, char** ppcTexte);

/* ------------------------------------------------------------------------
 * Tables.
 *
 * Table header on file (25 bytes, then (A + B) x 5 bytes of extension
 * entries, which are skipped on reading and never written):
 *
 *   offset  length  content
 *   0       10      name, as given (pad shorter names with spaces or NULs)
 *   10      4       data size: bytes of records after the extension entries
 *   14      4       record count
 *   18      4       reserved, 0
 *   22      1       extension count A, 0
 *   23      1       extension count B, 0
 *   24      1       reserved, 0
 *
 * A writer calls KT_usEcrireEnteteTable, writes the records, then
 * KT_usEcrireTaille, which writes the data size back into the header.
 * Only one table can be open for writing at a time across all files.
 */
typedef struct EnteteTable {
  char cNom[11];                /* name, 10 characters + NUL */
  uint32_t ulTailleDonnees;     /* bytes of the table's records */
  uint32_t ulNbEnregistrements; /* number of records */
  uint32_t ulReserve;           /* reserved */
  uint8_t ucNbExtensionsA;      /* extension entries, first kind */
  uint8_t ucNbExtensionsB;      /* extension entries, second kind */
  uint8_t ucReserve;            /* reserved */
} EnteteTable;

/*
 * KT_usEcrireEnteteTable - writes a table header with the first 10 bytes of
 * psEntete->cNom and its ulNbEnregistrements, opens the table (its size
 * field becomes the pending position) and resets the byte counter. A table
 * already open is not closed: its size stays 0 on file. KT_ERR_MODE for a
 * file not opened for writing; KT_ERR_ARGUMENT for a null record.
 */
KT_API uint16_t KT_usEcrireEnteteTable(uint16_t usNumFichier, const EnteteTable* psEntete);

/*
 * KT_usEcrireTaille - writes the bytes counted since the table was opened
 * into its size field, closes the table and goes back to the end of the
 * file (also after a failure, whenever the number is known). KT_ERR_MODE for
 * a file not opened for writing or no table open; KT_ERR_FICHIER when
 * positioning fails.
 */
KT_API uint16_t KT_usEcrireTaille(uint16_t usNumFichier);

/*
 * KT_usLireEnteteTable - reads the table header at the current position into
 * *psEntete (name without trailing spaces) and leaves the file at the table's
 * first record. KT_ERR_FIN_FICHIER when the header cannot be read or the
 * extension entries skipped.
 */
KT_API uint16_t KT_usLireEnteteTable(uint16_t usNumFichier, EnteteTable* psEntete);

/*
 * KT_usRechercherTable - searches from the current position for the table
 * named pcNomTable (exact, case-sensitive, the file's name without trailing
 * spaces), wrapping once to the first table, and leaves the file at its
 * first record with its header in *psEntete. KT_ERR_FIN when no table has
 * that name; KT_ERR_FIN_FICHIER when a table cannot be skipped.
 */
KT_API uint16_t KT_usRechercherTable(uint16_t usNumFichier, const char* pcNomTable,
                                     EnteteTable* psEntete);

/* ------------------------------------------------------------------------
 * Signatures.
 *
 * A file of control type 2 ends with a 128-byte RSA signature (PKCS #1 v1.5,
 * MD5, 1024-bit key) of everything from offset 4 (the space after the CRC
 * field, which stays "0000" and is not signed) to the byte before the
 * signature. It is made at close with a private-key file and verified at
 * open with the public key built into the library.
 *
 * Private-key file: the key size in bits as decimal text ("1024"), directly
 * followed, with no separator, by 704 raw bytes: modulus, public exponent,
 * private exponent (128 each), first prime, second prime, first prime
 * exponent, second prime exponent, coefficient (64 each), all big-endian.
 * A public-key file is the same text followed by the modulus and the public
 * exponent only; the build turns one into MODULUS and EXPONENT.
 */

/*
 * The built-in public key, one key byte in the low half of each slot, most
 * significant first: MODULUS gives the 128-byte modulus and EXPONENT the
 * 128-byte public exponent.
 */
extern KT_API const uint16_t MODULUS[128];
extern KT_API const uint16_t EXPONENT[128];

/*
 * KT_usCalculerSignatureMessage - signs ulLongueur bytes of pucDonnees with
 * the MD5 digest and sClePrivee into pucSignature (128 bytes). Returns 0, or
 * KT_ECHEC (1) for any failure, a signature of other than 128 bytes (a key
 * shorter than 1024 bits) included. The copy of the key is cleared.
 */
KT_API uint16_t KT_usCalculerSignatureMessage(const uint8_t* pucDonnees, uint32_t ulLongueur,
                                              R_RSAPrivateKey sClePrivee, uint8_t* pucSignature);

/*
 * KT_usVerifierSignatureMessage - verifies the 128-byte pucSignature of
 * ulLongueur bytes of pucDonnees with sClePublique. Returns 0 when it is
 * valid, else the toolkit's status as it is (KT_RE_PUBLIC_KEY when the
 * public-key operation fails, KT_RE_SIGNATURE when the digest differs).
 * KT_ERR_ARGUMENT for a null signature, or null data with a length.
 */
KT_API uint16_t KT_usVerifierSignatureMessage(const uint8_t* pucDonnees, uint32_t ulLongueur,
                                              R_RSAPublicKey sClePublique,
                                              const uint8_t* pucSignature);

/*
 * KT_usLireClePrivee - reads the private-key file pcFichier into
 * *psClePrivee. The size is read as "%d" does (blanks before it skipped);
 * any character after the digits is the first modulus byte, so a newline
 * there gives a wrong key. A short file is not detected: the fields it does
 * not reach keep their content. KT_ERR_FICHIER when the file cannot be opened
 * or closed; KT_ERR_ARGUMENT for a null record.
 */
KT_API uint16_t KT_usLireClePrivee(const char* pcFichier, R_RSAPrivateKey* psClePrivee);

/*
 * KT_LireClePublique - a new record (from KT_Allouer; the caller frees it
 * with KT_Liberer) holding the built-in public key with bits = 1024, or null
 * when it cannot be allocated.
 */
KT_API R_RSAPublicKey* KT_LireClePublique(void);

/*
 * KT_usEcrireSignatureFichier - signs the file from offset 4 to its end with
 * the private-key file pcClePrivee and appends the 128-byte signature
 * (counted in the slot's byte counter). Returns the key reader's status,
 * KT_ECHEC when signing fails, KT_ERR_FICHIER when the length, the read or
 * the write fails. The file is closed by KT_usLibererFichierBinaire, which
 * calls this for control type 2.
 */
KT_API uint16_t KT_usEcrireSignatureFichier(uint16_t usNumFichier, const char* pcClePrivee);

/*
 * KT_usVerifierSignatureFichier - verifies the last 128 bytes of the file as
 * the signature of bytes 4 to length - 129 with the built-in public key; the
 * file's position is unchanged. Returns 0 when valid, else the toolkit's
 * status, KT_ERR_CONTROLE for a file too short to hold a signature (below
 * 132 bytes), KT_ERR_FICHIER when the key cannot be allocated or the file
 * not read.
 */
KT_API uint16_t KT_usVerifierSignatureFichier(uint16_t usNumFichier);

KT_END_DECLS

#endif /* KT_BINFILES_H */
