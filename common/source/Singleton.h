// Singleton.h (internal, never installed)
//
// How the library's process-wide objects (the logger, the action manager, the thread pool, the change
// journal) come and go: made on first use under their static mutex, with a test without the lock and
// again under it; destroyed only when the host asks. The class passes in how to make and delete itself,
// since its constructor and destructor are its own.
#ifndef ZOR_SINGLETON_H_
#define ZOR_SINGLETON_H_

#include <atomic>

#include "Locks.h"

namespace zor {
namespace detail {

template <typename T, typename Make>
T* instanceOf(std::atomic<T*>& instance, Mutex& mutex, Make make) {
    T* object = instance.load(std::memory_order_acquire);
    if (object != nullptr) return object;
    ScopedLock hold(mutex);
    object = instance.load(std::memory_order_relaxed);
    if (object == nullptr) {
        object = make();
        instance.store(object, std::memory_order_release);
    }
    return object;
}

// The pointer is cleared only once the object is gone: code that still runs while it is destroyed (a
// job finishing in the pool, say) reaches the object being destroyed instead of making a new one.
template <typename T, typename Destroy>
void destroyInstance(std::atomic<T*>& instance, Mutex& mutex, Destroy destroy) {
    ScopedLock hold(mutex);
    destroy(instance.load(std::memory_order_acquire));
    instance.store(nullptr, std::memory_order_release);
}

}  // namespace detail
}  // namespace zor

#endif  // ZOR_SINGLETON_H_
