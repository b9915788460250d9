// BaseTypes.h
//
// The fixed-width aliases used in every signature of the library. They live in the global namespace so
// that headers and callers can spell them without qualification. Widths and signedness are exact on
// x86-64 Linux: ZR_LONG/ZR_ULONG are the platform's long types, ZR_SOCKLEN is socklen_t.
#ifndef ZOR_BASETYPES_H_
#define ZOR_BASETYPES_H_

#include <sys/socket.h>

#include <cstdint>

typedef int32_t ZR_BOOL;  // 1 true, 0 false
typedef int32_t ZR_INT;
typedef int32_t ZR_Int32;
typedef int64_t ZR_Int64;
typedef long ZR_LONG;
typedef uint32_t ZR_UINT;
typedef uint32_t ZR_Uint32;
typedef uint64_t ZR_Uint64;
typedef unsigned long ZR_ULONG;
typedef uint16_t ZR_Uint16;
typedef uint16_t ZR_USHORT;
typedef uint8_t ZR_Uint8;
typedef uint8_t ZR_BYTE;
typedef uint8_t ZR_UCHAR;
typedef char ZR_CHAR;
typedef double ZR_DOUBLE;
typedef void* ZR_PVOID;
typedef void* ZR_DLLHD;  // handle of a loaded shared library
typedef int32_t ZR_SOCKET;
typedef socklen_t ZR_SOCKLEN;

static_assert(sizeof(ZR_LONG) == 8 && sizeof(ZR_ULONG) == 8, "zor targets LP64 platforms");

#endif  // ZOR_BASETYPES_H_
