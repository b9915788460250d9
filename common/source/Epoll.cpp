#include "Epoll.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <set>

#include "PosixUtil.h"

namespace zor {

namespace {

// The kernel hands the descriptor back in the event's data; the rest of the union is zeroed so that no
// uninitialised bytes reach the kernel.
EpollEvent_S makeEvent(ZR_Int32 fd, ZR_Int32 events) {
    EpollEvent_S event{};
    event.events = static_cast<uint32_t>(events);
    event.data.u64 = 0;
    event.data.fd = fd;
    return event;
}

}  // namespace

Epoll::Epoll(ZR_Int32 timeout, ZR_Int32 maxConn)
    : m_iMaxConn(maxConn),
      m_iEpollFd(-1),
      m_iTimeout(timeout),
      m_pEvents(nullptr),
      m_mtxEvent(0),
      m_iWakeFd(-1) {}

Epoll::~Epoll() {
    {
        ScopedLock hold(m_mtxEvent);
        // A handler serving several descriptors must still be deleted only once.
        std::set<IOEventHandler*> deleted;
        for (auto& entry : m_mapEventHandler) {
            if (entry.second != nullptr && deleted.insert(entry.second).second) delete entry.second;
            entry.second = nullptr;
        }
        m_mapEventHandler.clear();
    }
    delete[] m_pEvents;
    if (m_iEpollFd >= 0) ::close(m_iEpollFd);
    if (m_iWakeFd >= 0) ::close(m_iWakeFd);
}

ZR_INT Epoll::EpollInitialize() {
    detail::FdGuard fd(::epoll_create(m_iMaxConn));
    if (fd.Get() < 0) return E_CREATEFAIL;
    EpollEvent_S* pEvents = new EpollEvent_S[m_iMaxConn];  // a throw here closes the new descriptor
    delete[] m_pEvents;
    m_pEvents = pEvents;
    if (m_iEpollFd >= 0) ::close(m_iEpollFd);
    m_iEpollFd = fd.Release();
    watchWakeup();
    return E_OK;
}

ZR_INT Epoll::EpollAdd(ZR_Int32 fd, ZR_Int32 events, IOEventHandler* h) {
    EpollEvent_S event = makeEvent(fd, events);
    if (::epoll_ctl(m_iEpollFd, EPOLL_CTL_ADD, fd, &event) == -1) return E_ADDFAIL;
    // Unlocked on purpose: adding belongs to the dispatching thread, which is also the map's only reader.
    return m_mapEventHandler.emplace(fd, h).second ? E_OK : E_IOEVENTEXIST;
}

ZR_INT Epoll::EpollModify(ZR_Int32 fd, ZR_Int32 events, IOEventHandler* h) {
    EpollEvent_S event = makeEvent(fd, events);
    if (::epoll_ctl(m_iEpollFd, EPOLL_CTL_MOD, fd, &event) == -1) return E_MODIFYFAIL;
    ScopedLock hold(m_mtxEvent);
    const auto found = m_mapEventHandler.find(fd);
    if (found == m_mapEventHandler.end()) return E_IOEVENTNOTFOUND;
    found->second = h;
    return E_OK;
}

ZR_INT Epoll::EpollDelete(ZR_Int32 fd, ZR_Int32 /*events*/, IOEventHandler* /*h*/) {
    if (::epoll_ctl(m_iEpollFd, EPOLL_CTL_DEL, fd, nullptr) == -1) return E_DELETEFAIL;
    ScopedLock hold(m_mtxEvent);
    return m_mapEventHandler.erase(fd) == 1 ? E_OK : E_IOEVENTNOTFOUND;
}

void Epoll::EpollWait() { EpollWait(m_iTimeout); }

void Epoll::EpollWait(ZR_Int32 timeout) {
    if (m_pEvents == nullptr) return;  // not initialised: nothing to wait on
    const int iCount = ::epoll_wait(m_iEpollFd, m_pEvents, m_iMaxConn, timeout);
    if (iCount > 0) dispatch(iCount);
}

ZR_INT Epoll::Wakeup() {
    if (m_iWakeFd < 0) return E_FAILED;
    const int iSaved = errno;  // a signal handler must leave errno as it found it
    const uint64_t one = 1;
    // EAGAIN means the counter is full: a wake is pending already.
    const bool bPending = ::write(m_iWakeFd, &one, sizeof one) == sizeof one || errno == EAGAIN;
    errno = iSaved;
    return bPending ? E_OK : E_FAILED;
}

void Epoll::dispatch(int iCount) {
    for (int i = 0; i < iCount; ++i) {
        const EpollEvent_S& event = m_pEvents[i];
        if (event.data.fd == m_iWakeFd) {
            drainWakeup();
            continue;
        }
        // Looked up afresh for each event: an earlier handler of this batch may have removed this one.
        const auto found = m_mapEventHandler.find(event.data.fd);
        if (found == m_mapEventHandler.end() || found->second == nullptr) continue;
        IOEventHandler* const handler = found->second;
        if (event.events & EPOLLIN) {
            handler->Recvice();
        } else if (event.events & EPOLLOUT) {
            handler->Send();
        } else {
            handler->Exception(static_cast<ZR_Int32>(event.events));
        }
    }
}

// The eventfd is made once and kept when the reactor is initialised again, so a pending wake carries over
// to the new epoll descriptor. Without it the reactor still works: waking is an extra, and Wakeup() says
// when it cannot.
void Epoll::watchWakeup() {
    if (m_iWakeFd < 0) m_iWakeFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_iWakeFd < 0) return;
    EpollEvent_S event = makeEvent(m_iWakeFd, EPOLLIN);
    if (::epoll_ctl(m_iEpollFd, EPOLL_CTL_ADD, m_iWakeFd, &event) == 0) return;
    ::close(m_iWakeFd);  // unwatched, it would swallow wakes: better to report that waking is impossible
    m_iWakeFd = -1;
}

// Reading resets the counter, so the wake is not seen again; a wake that arrives after this read makes the
// next wait return, which is what its sender needs. There is nothing to do if the read finds it empty.
void Epoll::drainWakeup() {
    uint64_t count = 0;
    (void)!::read(m_iWakeFd, &count, sizeof count);
}

}  // namespace zor
