// ErrorCode.h
//
// The general result codes returned as signed integers by configuration files, sockets and the epoll
// reactor: 0 for success, -1 for a general failure (also "not found"), a block from -4097 for argument
// and type faults and a block from -8193 for operations that failed.
//
// ErrorStringCN()/ErrorStringEN() are the hook where per-code messages would go; today they carry one
// fixed text each, whatever the code.
//
//   if (cfg.GetValue("port", text) == zor::E_FAILED) { /* key absent: keep the default */ }
#ifndef ZOR_ERRORCODE_H_
#define ZOR_ERRORCODE_H_

#include <string>

#include "BaseTypes.h"

namespace zor {

enum __ErrorCode : ZR_Int32 {
    E_OK = 0,
    E_FAILED = -1,

    E_INVTYPE = -4097,  // 0xFFFFEFFF
    E_INVPARAM = -4098,
    E_INVVALUE = -4099,
    E_UNSUPPORT = -4100,

    E_CREATEFAIL = -8193,  // 0xFFFFDFFF
    E_ADDFAIL = -8194,
    E_MODIFYFAIL = -8195,
    E_DELETEFAIL = -8196,
    E_WAITFAIL = -8197,
    E_IOEVENTEXIST = -8198,
    E_IOEVENTNOTFOUND = -8199,
};

// Returns the Chinese message for a code: always the UTF-8 text "未知错误" (12 bytes).
std::string ErrorStringCN(ZR_INT iCode);

// Returns the English message for a code: always "unknown error".
std::string ErrorStringEN(ZR_INT iCode);

}  // namespace zor

#endif  // ZOR_ERRORCODE_H_
