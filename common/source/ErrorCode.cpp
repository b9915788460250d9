#include "ErrorCode.h"

namespace zor {

// No code has a message of its own yet; both functions deliberately ignore the code.
std::string ErrorStringCN(ZR_INT /*iCode*/) { return "\xE6\x9C\xAA\xE7\x9F\xA5\xE9\x94\x99\xE8\xAF\xAF"; }

std::string ErrorStringEN(ZR_INT /*iCode*/) { return "unknown error"; }

}  // namespace zor
