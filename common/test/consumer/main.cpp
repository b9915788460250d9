// Links against an installed libzor and checks that the headers and the library agree.
#include <cstdio>
#include <cstring>

#include "ErrorCode.h"
#include "Locks.h"
#include "OSTime.h"
#include "Semaphore.h"
#include "ZorVersion.h"

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
    std::printf("consumer linked against zor %s\n", ZOR_VERSION_STRING);
    return 0;
}
