// ZorVersion.cpp
//
// Compiled into the library, so these answer with the version that was built, whatever headers the
// caller was compiled with.
#include "ZorVersion.h"

namespace zor {

const ZR_CHAR* Version() { return ZOR_VERSION_STRING; }
ZR_INT VersionMajor() { return ZOR_VERSION_MAJOR; }
ZR_INT VersionMinor() { return ZOR_VERSION_MINOR; }
ZR_INT VersionPatch() { return ZOR_VERSION_PATCH; }

}  // namespace zor
