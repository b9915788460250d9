// A program outside the zor tree that uses the library the way a service would, through either include
// style, and checks that the headers, the library it runs against and the package it was found through
// agree on the version.
#include <zor/Locks.h>
#include <zor/ZorVersion.h>

#include <cstdio>
#include <cstring>

#include "ErrorCode.h"
#include "OSTime.h"
#include "Semaphore.h"

// The C++20 builds check that zor's build settings leave the consumer's language standard alone.
#ifdef ZOR_CONSUMER_CXX20
static_assert(__cplusplus >= 202002L, "the consumer was downgraded from C++20");
#endif

int main() {
    zor::Mutex mutex(0);
    {
        zor::ScopedLock outer(mutex);
        zor::ScopedLock inner(mutex);  // recursive
    }
    zor::Semaphore sem(4);
    sem.Signal();
    if (sem.Wait(100) != 1) return 1;
    const zor::OSTime time("2024-02-29 23:59:59.000001");
    if (time.ToString(1) != "2024-02-29 23:59:59.000001") return 2;
    if (zor::ErrorStringEN(zor::E_FAILED) != "unknown error") return 3;
    if (std::strcmp(zor::Version(), ZOR_VERSION_STRING) != 0) return 4;
#ifdef ZOR_PACKAGE_VERSION
    if (std::strcmp(zor::Version(), ZOR_PACKAGE_VERSION) != 0) return 5;
#endif
    std::printf("consumer runs against zor %s\n", zor::Version());
    return 0;
}
