/// @file
/// Epoll, a small readiness dispatcher over Linux epoll, and IOEventHandler, its callbacks.
#ifndef ZOR_EPOLL_H_
#define ZOR_EPOLL_H_

#include <sys/epoll.h>

#include <map>

#include "BaseTypes.h"
#include "ErrorCode.h"
#include "Locks.h"

namespace zor {

typedef struct epoll_event EpollEvent_S;  ///< One event record of epoll_wait().

/// The callbacks of one registered descriptor. Derive from it and supply the three operations; a handler
/// is called on the dispatching thread only, so it needs no locking of its own for that.
class IOEventHandler {
public:
    ZOR_INLINE IOEventHandler() {}           ///< Nothing to set up.
    ZOR_INLINE virtual ~IOEventHandler() {}  ///< Virtual: the reactor deletes handlers through this base.

    /// The descriptor is readable (or has hung up with data still to read). The name is part of the
    /// interface as spelled.
    virtual void Recvice() = 0;
    /// The descriptor is writable and not readable.
    virtual void Send() = 0;
    /// Any other readiness (EPOLLERR, EPOLLHUP, EPOLLPRI, ...), with the whole epoll event mask.
    virtual void Exception(ZR_Int32 events) = 0;
};

/// A small readiness dispatcher over Linux epoll.
///
/// Callers register a descriptor with an event mask and an IOEventHandler; each EpollWait() waits once
/// and makes exactly one handler call per ready descriptor: IOEventHandler::Recvice() when it is readable
/// (even if it is writable or hung up as well), else IOEventHandler::Send() when it is writable, else
/// IOEventHandler::Exception() with the raw epoll mask (an error or hang-up without readable data).
/// Handlers run on the thread that calls EpollWait(), one after another, in the order the kernel
/// reported the events. A loop around EpollWait() belongs to the caller; the reactor offers one wait per
/// call.
///
/// Ownership: the reactor deletes the handlers still registered when it is destroyed (each distinct
/// handler once, even if it serves several descriptors). EpollModify() and EpollDelete() drop an
/// association without deleting the handler; that is then the caller's job. A reactor holds two
/// descriptors of its own once initialised, the epoll descriptor and the eventfd behind Wakeup(); the
/// destructor closes both, so a reactor leaks no descriptor. The registered descriptors themselves are
/// never closed by the reactor.
///
/// Threads: one dispatching thread by design. EpollAdd() and EpollWait() use the descriptor map without
/// locking, so add and wait from the same thread; EpollModify() and EpollDelete() take the reactor's
/// recursive mutex and may be called from handlers (the mutex is never held while a handler runs). Do
/// not register from another thread while a wait dispatches. Wakeup() is the one operation meant for
/// other threads (and signal handlers): it makes the dispatching thread's wait return, which is how that
/// thread is told to stop.
///
/// Errors: results are __ErrorCode values (E_OK on success). The system call is always made first, so a
/// failing map step leaves the kernel registration changed. Nothing is logged; only the allocation of the
/// event array can throw (std::bad_alloc).
///
/// @code
///   class Echo : public zor::IOEventHandler { ... };
///   zor::Epoll reactor(100, 64);                // wait 100 ms, at most 64 events per wait
///   if (reactor.EpollInitialize() != zor::E_OK) return;
///   reactor.EpollAdd(fd, EPOLLIN, new Echo(fd));  // deleted by the reactor, unless taken back first
///   while (running) reactor.EpollWait();
/// @endcode
///
/// A dispatching thread that waits without a time limit is stopped by a flag and Wakeup(); the flag is
/// set first, so the loop sees it however the wake and the wait interleave:
///
/// @code
///   std::atomic<bool> stopping{false};
///   std::thread loop([&] { while (!stopping) reactor.EpollWait(-1); });
///   ...
///   stopping = true;           // any thread, or a signal handler
///   reactor.Wakeup();
///   loop.join();               // then destroy the reactor
/// @endcode
class Epoll {
public:
    /// Note the order: the wait time in milliseconds (-1 waits without limit, 0 polls), then the most
    /// events taken from one wait (also the size hint of epoll_create). Makes no system call.
    Epoll(ZR_Int32 timeout, ZR_Int32 maxConn);
    /// Deletes every handler still registered, frees the event array and closes the epoll descriptor and
    /// the wake-up eventfd. No thread may be waiting in EpollWait() or calling Wakeup() by then.
    ~Epoll();
    Epoll(const Epoll&) = delete;             ///< Not copyable.
    Epoll& operator=(const Epoll&) = delete;  ///< Not copyable.

    /// Creates the epoll descriptor and the event array, and watches the reactor's wake-up eventfd (made on
    /// the first call). Returns E_OK, or E_CREATEFAIL when epoll_create() fails (for example for a
    /// capacity below 1). An eventfd that cannot be made or watched does not make it fail: the reactor
    /// works without, and Wakeup() reports it. Calling it again replaces the epoll descriptor:
    /// registrations made on the old one are gone while the map keeps its handlers.
    ZR_INT EpollInitialize();

    /// Registers fd for `events` in the kernel, then maps fd to h (without locking). Returns E_ADDFAIL when
    /// the kernel refuses (errno tells why; the map is unchanged), or E_IOEVENTEXIST when the map already
    /// has fd: the kernel registration stands, the old handler stays and h is not stored.
    ZR_INT EpollAdd(ZR_Int32 fd, ZR_Int32 events, IOEventHandler* h);
    /// Changes the kernel mask of fd, then, under the mutex, puts h in place of fd's handler (the old one
    /// is not deleted). Returns E_MODIFYFAIL when the kernel refuses, or E_IOEVENTNOTFOUND when fd is not
    /// in the map (the kernel mask has been changed all the same).
    ZR_INT EpollModify(ZR_Int32 fd, ZR_Int32 events, IOEventHandler* h);
    /// Removes fd from the kernel set, then, under the mutex, from the map; `events` and `h` are not used
    /// and the handler is not deleted. Returns E_DELETEFAIL or E_IOEVENTNOTFOUND as EpollModify() does.
    ZR_INT EpollDelete(ZR_Int32 fd, ZR_Int32 events, IOEventHandler* h);

    /// One epoll_wait() of the configured time, then one handler call per event whose descriptor is still
    /// mapped. A failed or interrupted wait returns at once and silently.
    void EpollWait();
    /// As EpollWait(), waiting `timeout` milliseconds instead of the configured time.
    void EpollWait(ZR_Int32 timeout);

    /// Makes the wait under way in the dispatching thread return at once, or, when none is, the next one.
    ///
    /// Callable from any thread and from a signal handler: it only writes to an eventfd, and keeps errno.
    /// Wakes that come before the dispatching thread collects them count as one. The wake is never passed
    /// to a handler; it can take one of the wait's event slots, so that wait may dispatch one event fewer
    /// (the rest stay ready for the next wait). Returns E_OK, or E_FAILED when there is nothing to wake
    /// with: before EpollInitialize(), or when the eventfd could not be made (out of descriptors).
    ZR_INT Wakeup();

private:
    void dispatch(int iCount);
    void watchWakeup();
    void drainWakeup();

    const ZR_Int32 m_iMaxConn;
    ZR_Int32 m_iEpollFd;
    ZR_Int32 m_iTimeout;
    EpollEvent_S* m_pEvents;  ///< owned array of m_iMaxConn records
    Mutex m_mtxEvent;         ///< recursive
    std::map<int, IOEventHandler*> m_mapEventHandler;
    ZR_Int32 m_iWakeFd;  ///< eventfd watched for EPOLLIN, -1 when there is none; written by Wakeup()
};

}  // namespace zor

#endif  // ZOR_EPOLL_H_
