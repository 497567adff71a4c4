/*
 * The standard smart-key C interface (GM/T 0016): types, structures, result codes and the
 * functions of it that the host calls and a driver exports. The host and the software key
 * device both build against this one header; nothing in it belongs to either alone.
 *
 * Usable from C (C11) and C++. Every structure is byte-packed exactly as the standard lays it
 * out; the sizes that callers depend on are pinned below.
 */
#ifndef ZT_SKF_H
#define ZT_SKF_H

#ifdef __cplusplus
#  define SKF_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#  define SKF_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* Calling convention slot of the interface; empty on this platform. */
#ifndef DEVAPI
#  define DEVAPI
#endif

/* A driver built with hidden visibility still exports the SKF_* functions. */
#if defined(__GNUC__) || defined(__clang__)
#  define SKF_EXPORT __attribute__((visibility("default")))
#else
#  define SKF_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Base types ------------------------------------------------------------------------ */

typedef signed char INT8;
typedef signed short INT16;
typedef signed int INT32;
typedef unsigned char UINT8;
typedef unsigned short UINT16;
typedef unsigned int UINT32;
#ifdef SKF_WIDE_TYPES
/*
 * Test builds only: BOOL and ULONG as `long` and `unsigned long`, 8 bytes on 64-bit Linux, the
 * way some vendors' headers declare them. The software device is built a second time this way
 * (ztsoftskf_wide) so the host's driver adapter is tested against a driver of that shape.
 * Nothing installed is ever built with it.
 */
typedef long BOOL;
#else
typedef INT32 BOOL;
#endif
typedef UINT8 BYTE;
typedef char CHAR;
typedef INT16 SHORT;
typedef UINT16 USHORT;
typedef INT32 LONG;
/*
 * ULONG is 32 bits on every platform, 64-bit Linux included. Some vendors' headers declare it
 * `unsigned long`, which is 64 bits on LP64 systems: that changes every structure and every
 * `ULONG *` out-parameter, so a driver and a caller built from the two headers do not agree.
 */
#ifdef SKF_WIDE_TYPES
typedef unsigned long ULONG;
#else
typedef UINT32 ULONG;
#endif
typedef UINT32 UINT;
typedef UINT16 WORD;
typedef UINT32 DWORD;
typedef UINT32 FLAGS;
typedef CHAR *LPSTR;
typedef void *HANDLE;
typedef HANDLE DEVHANDLE;
typedef HANDLE HAPPLICATION;
typedef HANDLE HCONTAINER;

SKF_STATIC_ASSERT(sizeof(INT8) == 1, "INT8 is 8 bits");
SKF_STATIC_ASSERT(sizeof(INT16) == 2, "INT16 is 16 bits");
SKF_STATIC_ASSERT(sizeof(INT32) == 4, "INT32 is 32 bits");
SKF_STATIC_ASSERT(sizeof(UINT8) == 1, "UINT8 is 8 bits");
SKF_STATIC_ASSERT(sizeof(UINT16) == 2, "UINT16 is 16 bits");
SKF_STATIC_ASSERT(sizeof(UINT32) == 4, "UINT32 is 32 bits");
#ifdef SKF_WIDE_TYPES
SKF_STATIC_ASSERT(sizeof(BOOL) == 8, "wide BOOL is 64 bits: only for 64-bit test builds");
#else
SKF_STATIC_ASSERT(sizeof(BOOL) == 4, "BOOL is 32 bits");
#endif
SKF_STATIC_ASSERT(sizeof(BYTE) == 1, "BYTE is 8 bits");
SKF_STATIC_ASSERT(sizeof(CHAR) == 1, "CHAR is 8 bits");
SKF_STATIC_ASSERT(sizeof(SHORT) == 2, "SHORT is 16 bits");
SKF_STATIC_ASSERT(sizeof(USHORT) == 2, "USHORT is 16 bits");
SKF_STATIC_ASSERT(sizeof(LONG) == 4, "LONG is 32 bits");
#ifdef SKF_WIDE_TYPES
SKF_STATIC_ASSERT(sizeof(ULONG) == 8, "wide ULONG is 64 bits: only for 64-bit test builds");
#else
SKF_STATIC_ASSERT(sizeof(ULONG) == 4, "ULONG is 32 bits, also on 64-bit systems");
#endif
SKF_STATIC_ASSERT(sizeof(UINT) == 4, "UINT is 32 bits");
SKF_STATIC_ASSERT(sizeof(WORD) == 2, "WORD is 16 bits");
SKF_STATIC_ASSERT(sizeof(DWORD) == 4, "DWORD is 32 bits");
SKF_STATIC_ASSERT(sizeof(FLAGS) == 4, "FLAGS is 32 bits");

#ifndef TRUE
#  define TRUE 1
#endif
#ifndef FALSE
#  define FALSE 0
#endif

/* ---- PIN types and access rights ------------------------------------------------------- */

#define ADMIN_TYPE 0
#define USER_TYPE 1

#define SECURE_NEVER_ACCOUNT 0x00000000
#define SECURE_ADM_ACCOUNT 0x00000001
#define SECURE_USER_ACCOUNT 0x00000010
#define SECURE_ANYONE_ACCOUNT 0x000000FF

/* ---- Device states --------------------------------------------------------------------- */

#define DEV_ABSENT_STATE 0x00000000
#define DEV_PRESENT_STATE 0x00000001
#define DEV_UNKNOW_STATE 0x00000002

/* ---- Container types ------------------------------------------------------------------- */

#define CONTAINER_TYPE_EMPTY 0
#define CONTAINER_TYPE_RSA 1
#define CONTAINER_TYPE_SM2 2

/* ---- Algorithm identifiers (GM/T 0006) ------------------------------------------------- */

#define SGD_SM1_ECB 0x00000101
#define SGD_SM1_CBC 0x00000102
#define SGD_SM1_CFB 0x00000104
#define SGD_SM1_OFB 0x00000108
#define SGD_SM1_MAC 0x00000110
#define SGD_SSF33_ECB 0x00000201
#define SGD_SSF33_CBC 0x00000202
#define SGD_SSF33_CFB 0x00000204
#define SGD_SSF33_OFB 0x00000208
#define SGD_SSF33_MAC 0x00000210
#define SGD_SM4_ECB 0x00000401
#define SGD_SM4_CBC 0x00000402
#define SGD_SM4_CFB 0x00000404
#define SGD_SM4_OFB 0x00000408
#define SGD_SM4_MAC 0x00000410

#define SGD_RSA 0x00010000
#define SGD_SM2_1 0x00020100 /* SM2 signature */
#define SGD_SM2_2 0x00020200 /* SM2 key exchange */
#define SGD_SM2_3 0x00020400 /* SM2 encryption */

#define SGD_SM3 0x00000001
#define SGD_SHA1 0x00000002
#define SGD_SHA256 0x00000004

/* ---- Sizes ----------------------------------------------------------------------------- */

#define MAX_RSA_MODULUS_LEN 256
#define MAX_RSA_EXPONENT_LEN 4
#define ECC_MAX_XCOORDINATE_BITS_LEN 512
#define ECC_MAX_YCOORDINATE_BITS_LEN 512
#define ECC_MAX_MODULUS_BITS_LEN 512
#define MAX_IV_LEN 32

/* Padding types of BLOCKCIPHERPARAM.PaddingType. */
#define SKF_NO_PADDING 0
#define SKF_PKCS7_PADDING 1

/* ---- Structures ------------------------------------------------------------------------ */

#pragma pack(push, 1)

typedef struct Struct_Version {
    BYTE major;
    BYTE minor;
} VERSION;

typedef struct Struct_DEVINFO {
    VERSION Version;
    CHAR Manufacturer[64];
    CHAR Issuer[64];
    CHAR Label[32];
    CHAR SerialNumber[32];
    VERSION HWVersion;
    VERSION FirmwareVersion;
    ULONG AlgSymCap;
    ULONG AlgAsymCap;
    ULONG AlgHashCap;
    ULONG DevAuthAlgId;
    ULONG TotalSpace;
    ULONG FreeSpace;
    ULONG MaxECCBufferSize;
    ULONG MaxBufferSize;
    BYTE Reserved[64];
} DEVINFO, *PDEVINFO;

typedef struct Struct_RSAPUBLICKEYBLOB {
    ULONG AlgID;
    ULONG BitLen;
    BYTE Modulus[MAX_RSA_MODULUS_LEN];
    BYTE PublicExponent[MAX_RSA_EXPONENT_LEN];
} RSAPUBLICKEYBLOB, *PRSAPUBLICKEYBLOB;

/* Coordinates are big-endian and right-aligned in their 64-byte fields. */
typedef struct Struct_ECCPUBLICKEYBLOB {
    ULONG BitLen;
    BYTE XCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE YCoordinate[ECC_MAX_YCOORDINATE_BITS_LEN / 8];
} ECCPUBLICKEYBLOB, *PECCPUBLICKEYBLOB;

typedef struct Struct_ECCPRIVATEKEYBLOB {
    ULONG BitLen;
    BYTE PrivateKey[ECC_MAX_MODULUS_BITS_LEN / 8];
} ECCPRIVATEKEYBLOB, *PECCPRIVATEKEYBLOB;

/*
 * An SM2 ciphertext: C1 = (XCoordinate, YCoordinate), right-aligned in 64-byte fields,
 * C3 = HASH (SM3, 32 bytes), C2 = Cipher of CipherLen bytes. Cipher[1] stands for a
 * variable-length tail: the wrapped form on the wire is 164 + CipherLen bytes (X 0..63,
 * Y 64..127, HASH 128..159, CipherLen little-endian at 160..163, Cipher from 164), so a
 * 16-byte session key travels as 180 bytes. With SKF_WIDE_TYPES CipherLen takes 160..167 and
 * Cipher starts at 168.
 */
typedef struct Struct_ECCCIPHERBLOB {
    BYTE XCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE YCoordinate[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE HASH[32];
    ULONG CipherLen;
    BYTE Cipher[1];
} ECCCIPHERBLOB, *PECCCIPHERBLOB;

typedef struct Struct_ECCSIGNATUREBLOB {
    BYTE r[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
    BYTE s[ECC_MAX_XCOORDINATE_BITS_LEN / 8];
} ECCSIGNATUREBLOB, *PECCSIGNATUREBLOB;

typedef struct Struct_BLOCKCIPHERPARAM {
    BYTE IV[MAX_IV_LEN];
    ULONG IVLen;
    ULONG PaddingType; /* 0: none, 1: PKCS#7 */
    ULONG FeedBitLen;
} BLOCKCIPHERPARAM, *PBLOCKCIPHERPARAM;

#pragma pack(pop)

#ifdef SKF_WIDE_TYPES
/* Every ULONG field is 4 bytes longer; the structures stay byte-packed. */
#  define SKF_ECCCIPHERBLOB_HEADER_LEN 168
SKF_STATIC_ASSERT(sizeof(VERSION) == 2, "VERSION is 2 bytes");
SKF_STATIC_ASSERT(sizeof(DEVINFO) == 326, "wide DEVINFO is 326 bytes");
SKF_STATIC_ASSERT(sizeof(RSAPUBLICKEYBLOB) == 276, "wide RSAPUBLICKEYBLOB is 276 bytes");
SKF_STATIC_ASSERT(sizeof(ECCPUBLICKEYBLOB) == 136, "wide ECCPUBLICKEYBLOB is 136 bytes");
SKF_STATIC_ASSERT(sizeof(ECCPRIVATEKEYBLOB) == 72, "wide ECCPRIVATEKEYBLOB is 72 bytes");
SKF_STATIC_ASSERT(sizeof(ECCCIPHERBLOB) == SKF_ECCCIPHERBLOB_HEADER_LEN + 1,
                  "wide ECCCIPHERBLOB is 168 bytes plus its one-byte cipher placeholder");
SKF_STATIC_ASSERT(sizeof(ECCSIGNATUREBLOB) == 128, "ECCSIGNATUREBLOB is 128 bytes");
SKF_STATIC_ASSERT(sizeof(BLOCKCIPHERPARAM) == 56, "wide BLOCKCIPHERPARAM is 56 bytes");
#else
/* Wrapped size of an ECCCIPHERBLOB without its cipher bytes. */
#  define SKF_ECCCIPHERBLOB_HEADER_LEN 164
SKF_STATIC_ASSERT(sizeof(VERSION) == 2, "VERSION is 2 bytes");
SKF_STATIC_ASSERT(sizeof(DEVINFO) == 294, "DEVINFO is 294 bytes");
SKF_STATIC_ASSERT(sizeof(RSAPUBLICKEYBLOB) == 268, "RSAPUBLICKEYBLOB is 268 bytes");
SKF_STATIC_ASSERT(sizeof(ECCPUBLICKEYBLOB) == 132, "ECCPUBLICKEYBLOB is 132 bytes");
SKF_STATIC_ASSERT(sizeof(ECCPRIVATEKEYBLOB) == 68, "ECCPRIVATEKEYBLOB is 68 bytes");
SKF_STATIC_ASSERT(sizeof(ECCCIPHERBLOB) == SKF_ECCCIPHERBLOB_HEADER_LEN + 1,
                  "ECCCIPHERBLOB is 164 bytes plus its one-byte cipher placeholder");
SKF_STATIC_ASSERT(sizeof(ECCSIGNATUREBLOB) == 128, "ECCSIGNATUREBLOB is 128 bytes");
SKF_STATIC_ASSERT(sizeof(BLOCKCIPHERPARAM) == 44, "BLOCKCIPHERPARAM is 44 bytes");
#endif

/* ---- Result codes ---------------------------------------------------------------------- */

#define SAR_OK 0x00000000
#define SAR_FAIL 0x0A000001
#define SAR_UNKNOWNERR 0x0A000002
#define SAR_NOTSUPPORTYETERR 0x0A000003
#define SAR_FILEERR 0x0A000004
#define SAR_INVALIDHANDLEERR 0x0A000005
#define SAR_INVALIDPARAMERR 0x0A000006
#define SAR_READFILEERR 0x0A000007
#define SAR_WRITEFILEERR 0x0A000008
#define SAR_NAMELENERR 0x0A000009
#define SAR_KEYUSAGEERR 0x0A00000A
#define SAR_MODULUSLENERR 0x0A00000B
#define SAR_NOTINITIALIZEERR 0x0A00000C
#define SAR_OBJERR 0x0A00000D
#define SAR_MEMORYERR 0x0A00000E
#define SAR_TIMEOUTERR 0x0A00000F
#define SAR_INDATALENERR 0x0A000010
#define SAR_INDATAERR 0x0A000011
#define SAR_GENRANDERR 0x0A000012
#define SAR_HASHOBJERR 0x0A000013
#define SAR_HASHERR 0x0A000014
#define SAR_GENRSAKEYERR 0x0A000015
#define SAR_RSAMODULUSLENERR 0x0A000016
#define SAR_CSPIMPRTPUBKEYERR 0x0A000017
#define SAR_RSAENCERR 0x0A000018
#define SAR_RSADECERR 0x0A000019
#define SAR_HASHNOTEQUALERR 0x0A00001A
#define SAR_KEYNOTFOUNTERR 0x0A00001B
#define SAR_CERTNOTFOUNTERR 0x0A00001C
#define SAR_NOTEXPORTERR 0x0A00001D
#define SAR_DECRYPTPADERR 0x0A00001E
#define SAR_MACLENERR 0x0A00001F
#define SAR_BUFFER_TOO_SMALL 0x0A000020
#define SAR_KEYINFOTYPEERR 0x0A000021
#define SAR_NOT_EVENTERR 0x0A000022
#define SAR_DEVICE_REMOVED 0x0A000023
#define SAR_PIN_INCORRECT 0x0A000024
#define SAR_PIN_LOCKED 0x0A000025
#define SAR_PIN_INVALID 0x0A000026
#define SAR_PIN_LEN_RANGE 0x0A000027
#define SAR_USER_ALREADY_LOGGED_IN 0x0A000028
#define SAR_USER_PIN_NOT_INITIALIZED 0x0A000029
#define SAR_USER_TYPE_INVALID 0x0A00002A
#define SAR_APPLICATION_NAME_INVALID 0x0A00002B
#define SAR_APPLICATION_EXISTS 0x0A00002C
#define SAR_USER_NOT_LOGGED_IN 0x0A00002D
#define SAR_APPLICATION_NOT_EXISTS 0x0A00002E
#define SAR_FILE_ALREADY_EXIST 0x0A00002F
#define SAR_NO_ROOM 0x0A000030
#define SAR_FILE_NOT_EXIST 0x0A000031
#define SAR_REACH_MAX_CONTAINER_COUNT 0x0A000032

/* ---- Functions -------------------------------------------------------------------------
 *
 * Name lists (devices, applications, containers) are multi-strings: each name ends with a
 * NUL and the list ends with one more NUL. With a null buffer *pulSize receives the size
 * needed; with a buffer smaller than that the call answers SAR_BUFFER_TOO_SMALL and
 * *pulSize the size needed.
 *
 * Handles are opaque. A handle that is unknown or already closed answers
 * SAR_INVALIDHANDLEERR. Containers and session keys still open when their device is
 * disconnected are released with it.
 */

SKF_EXPORT ULONG DEVAPI SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG *pulSize);
SKF_EXPORT ULONG DEVAPI SKF_ConnectDev(LPSTR szName, DEVHANDLE *phDev);
SKF_EXPORT ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev);
SKF_EXPORT ULONG DEVAPI SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO *pDevInfo);

SKF_EXPORT ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG *pulSize);
SKF_EXPORT ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName,
                                            HAPPLICATION *phApplication);
SKF_EXPORT ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication);

/* A wrong PIN answers SAR_PIN_INCORRECT with *pulRetryCount = tries left; a PIN whose tries
 * are used up answers SAR_PIN_LOCKED, even when it is the right one. */
SKF_EXPORT ULONG DEVAPI SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN,
                                      ULONG *pulRetryCount);
/* Changes the admin or user PIN after checking the old one, which counts as a try of that PIN
 * (SAR_PIN_INCORRECT with *pulRetryCount = tries left, SAR_PIN_LOCKED). */
SKF_EXPORT ULONG DEVAPI SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin,
                                      LPSTR szNewPin, ULONG *pulRetryCount);
/* Gives the user PIN a new value and full tries after checking the admin PIN, which counts as
 * a try of the admin PIN (*pulRetryCount = admin tries left). */
SKF_EXPORT ULONG DEVAPI SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN,
                                       LPSTR szNewUserPIN, ULONG *pulRetryCount);
SKF_EXPORT ULONG DEVAPI SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType,
                                       ULONG *pulMaxRetryCount, ULONG *pulRemainRetryCount,
                                       BOOL *pbDefaultPin);
/* Forgets the login of the application and the key material that came with it. */
SKF_EXPORT ULONG DEVAPI SKF_ClearSecureState(HAPPLICATION hApplication);

SKF_EXPORT ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName,
                                          ULONG *pulSize);
SKF_EXPORT ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName,
                                          HCONTAINER *phContainer);
SKF_EXPORT ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer);
/* *pulContainerType: CONTAINER_TYPE_EMPTY, CONTAINER_TYPE_RSA or CONTAINER_TYPE_SM2. */
SKF_EXPORT ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG *pulContainerType);
/* bSignFlag TRUE: the signing certificate, FALSE: the encryption certificate (DER).
 * SAR_CERTNOTFOUNTERR when the container holds none. */
SKF_EXPORT ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag,
                                              BYTE *pbCert, ULONG *pulCertLen);

/* Unwraps a session key sent as an ECCCIPHERBLOB (164 + CipherLen bytes) with the
 * container's encryption private key; needs the user PIN verified. */
SKF_EXPORT ULONG DEVAPI SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId,
                                             BYTE *pbWrapedData, ULONG ulWrapedLen,
                                             HANDLE *phKey);
SKF_EXPORT ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam);
/* With pbData null, *pulDataLen receives an upper bound of the plaintext size; with a
 * buffer, the exact plaintext length. */
SKF_EXPORT ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen,
                                    BYTE *pbData, ULONG *pulDataLen);
SKF_EXPORT ULONG DEVAPI SKF_CloseHandle(HANDLE hHandle);

#ifdef __cplusplus
}
#endif

#endif /* ZT_SKF_H */
