/// @file
/// The fixed-width aliases used in every signature of the library.
///
/// They live in the global namespace so that headers and callers can spell them without qualification.
/// Widths and signedness are exact on x86-64 Linux: ZR_LONG/ZR_ULONG are the platform's long types,
/// ZR_SOCKLEN is socklen_t.
#ifndef ZOR_BASETYPES_H_
#define ZOR_BASETYPES_H_

#include <sys/socket.h>

#include <cstdint>

typedef int32_t ZR_BOOL;         ///< A truth value: 1 true, 0 false.
typedef int32_t ZR_INT;          ///< A signed 32-bit integer, the usual result type.
typedef int32_t ZR_Int32;        ///< A signed 32-bit integer.
typedef int64_t ZR_Int64;        ///< A signed 64-bit integer (offsets, sizes, times).
typedef long ZR_LONG;            ///< The platform's signed long (64 bits).
typedef uint32_t ZR_UINT;        ///< An unsigned 32-bit integer.
typedef uint32_t ZR_Uint32;      ///< An unsigned 32-bit integer.
typedef uint64_t ZR_Uint64;      ///< An unsigned 64-bit integer.
typedef unsigned long ZR_ULONG;  ///< The platform's unsigned long (64 bits).
typedef uint16_t ZR_Uint16;      ///< An unsigned 16-bit integer (ports).
typedef uint16_t ZR_USHORT;      ///< An unsigned 16-bit integer.
typedef uint8_t ZR_Uint8;        ///< An unsigned 8-bit integer.
typedef uint8_t ZR_BYTE;         ///< One byte of raw data.
typedef uint8_t ZR_UCHAR;        ///< An unsigned character.
typedef char ZR_CHAR;            ///< A character of text.
typedef double ZR_DOUBLE;        ///< A double-precision floating-point number.
typedef void* ZR_PVOID;          ///< An untyped pointer.
typedef void* ZR_DLLHD;          ///< The handle of a loaded shared library.
typedef int32_t ZR_SOCKET;       ///< A socket descriptor; -1 for none.
typedef socklen_t ZR_SOCKLEN;    ///< The length of a socket address record.

/// Marks an operation that a public header defines inline. A program that includes the header gets the
/// inline copy; the library also emits and exports one, so that a program that calls the operation out of
/// line, or looks it up with dlsym, finds it in libzor.so. ZOR_BUILDING_LIBRARY is defined only while the
/// library itself is compiled, so callers' objects hold no copies they do not use.
#ifdef ZOR_BUILDING_LIBRARY
#define ZOR_INLINE [[gnu::used]]
#else
#define ZOR_INLINE
#endif

static_assert(sizeof(ZR_LONG) == 8 && sizeof(ZR_ULONG) == 8, "zor targets LP64 platforms");

#endif  // ZOR_BASETYPES_H_
