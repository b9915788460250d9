/// @file
/// The general result codes of configuration files, sockets and the epoll reactor.
///
/// Codes are signed integers: 0 for success, -1 for a general failure (also "not found"), a block from
/// -4097 for argument and type faults and a block from -8193 for operations that failed.
///
/// @code
///   if (cfg.GetValue("port", text) == zor::E_FAILED) { /* key absent: keep the default */ }
/// @endcode
#ifndef ZOR_ERRORCODE_H_
#define ZOR_ERRORCODE_H_

#include <string>

#include "BaseTypes.h"

/// Everything the zor library declares, apart from the ZR_* type aliases and the ZOR_LOG_* macros.
namespace zor {

/// General result codes, returned as signed integers.
enum __ErrorCode : ZR_Int32 {
    E_OK = 0,       ///< Success.
    E_FAILED = -1,  ///< General failure; also "not found".

    E_INVTYPE = -4097,    ///< Wrong type (0xFFFFEFFF); reserved, no operation returns it.
    E_INVPARAM = -4098,   ///< Invalid parameter (empty key or value, missing object).
    E_INVVALUE = -4099,   ///< Invalid value; reserved, no operation returns it.
    E_UNSUPPORT = -4100,  ///< The operation is not supported by this object.

    E_CREATEFAIL = -8193,       ///< Creation failed (0xFFFFDFFF): an epoll set, a temporary file.
    E_ADDFAIL = -8194,          ///< Adding a registration failed.
    E_MODIFYFAIL = -8195,       ///< Modifying a registration failed.
    E_DELETEFAIL = -8196,       ///< Deleting a registration failed.
    E_WAITFAIL = -8197,         ///< A wait failed; reserved, no operation returns it.
    E_IOEVENTEXIST = -8198,     ///< The descriptor already has a handler.
    E_IOEVENTNOTFOUND = -8199,  ///< The descriptor has no handler.
};

/// Returns the Chinese message for a code: always the UTF-8 text "未知错误" (12 bytes).
///
/// This and ErrorStringEN() are the hook where per-code messages would go; today they carry one fixed
/// text each, whatever the code.
std::string ErrorStringCN(ZR_INT iCode);

/// Returns the English message for a code: always "unknown error".
std::string ErrorStringEN(ZR_INT iCode);

}  // namespace zor

#endif  // ZOR_ERRORCODE_H_
