#include "Socket.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace zor {

namespace {

constexpr ZR_Uint32 WAIT_FOREVER = 0xFFFFFFFFu;
constexpr ZR_Uint32 SIZE_QUERY_FAILED = 0xFFFFFFFFu;

typedef int (*NameQuery)(int, sockaddr*, socklen_t*);

// The address getsockname()/getpeername() report, or 0.0.0.0:0 when there is none to report.
SockAddress queryName(ZR_SOCKET iSock, NameQuery query) {
    if (iSock == -1) return SockAddress();
    sockaddr_storage record{};  // 128 bytes: room for a full record of any family
    socklen_t uLen = sizeof(record);
    if (query(iSock, reinterpret_cast<sockaddr*>(&record), &uLen) != 0) return SockAddress();
    return SockAddress(reinterpret_cast<const sockaddr*>(&record), uLen);
}

// poll() takes milliseconds; microseconds below one millisecond round down to a bare check.
int pollMilliseconds(ZR_Uint32 uMicroseconds) { return static_cast<int>(uMicroseconds / 1000); }

}  // namespace

// ---- RefCounter ----

RefCounter::RefCounter() : m_mutex(0), m_count(0), m_bClosed(false) {}

void RefCounter::Duplicate() {
    ScopedLock hold(m_mutex);
    ++m_count;
}

bool RefCounter::ReleaseAndTest() {
    ScopedLock hold(m_mutex);
    if (m_count > 0) --m_count;
    return m_count == 0;
}

void RefCounter::Release() {
    ScopedLock hold(m_mutex);
    if (m_count > 0) --m_count;
}

ZR_Uint32 RefCounter::Current() const {
    ScopedLock hold(m_mutex);
    return m_count;
}

bool RefCounter::MarkClosed() {
    ScopedLock hold(m_mutex);
    const bool bFirst = !m_bClosed;
    m_bClosed = true;
    return bFirst;
}

// ---- Socket: lifecycle ----

Socket::Socket(ZR_Uint32 uType)
    : m_sock(-1),
      m_type(uType),
      m_blocking(1),
      m_connected(0),
      m_pfd{-1, 0, 0},
      m_refcnt(new RefCounter()),
      m_state(0) {
    m_refcnt->Duplicate();
    InitOSNetwork();
}

Socket::Socket(const Socket& other)
    : m_sock(other.m_sock),
      m_type(other.m_type),
      m_blocking(other.m_blocking),
      m_connected(other.m_connected),
      m_pfd(other.m_pfd),
      m_refcnt(other.m_refcnt),
      m_state(other.m_state) {
    m_refcnt->Duplicate();
    InitOSNetwork();
}

Socket& Socket::operator=(const Socket& other) {  // NOLINT(bugprone-unhandled-self-assignment): see below
    // Join the new counter before leaving the old one: when both are the same counter (self-assignment
    // or a copy of the same socket) its count never touches zero, so it is neither closed nor freed.
    RefCounter* pShared = other.m_refcnt;
    pShared->Duplicate();
    releaseShare();
    m_sock = other.m_sock;
    m_type = other.m_type;
    m_blocking = other.m_blocking;
    m_connected = other.m_connected;
    m_pfd = other.m_pfd;
    m_refcnt = pShared;
    m_state = other.m_state;
    return *this;
}

Socket::~Socket() {
    releaseShare();
    UninitOSNetwork();
}

void Socket::releaseShare() {
    if (m_refcnt->ReleaseAndTest()) {
        Close();
        delete m_refcnt;
    }
    m_refcnt = nullptr;
}

void Socket::ownNewCounter() {
    RefCounter* pFresh = new RefCounter();
    pFresh->Duplicate();
    releaseShare();
    m_refcnt = pFresh;
}

void Socket::openDescriptor(int iDomain, int iKind) {
    if (iDomain != -1) m_sock = ::socket(iDomain, iKind, 0);
    initfd();
    if (m_sock == -1) throw std::runtime_error("create socket failed!");
}

void Socket::ensureDescriptor(int iKind) {
    if (IsValid()) return;
    ownNewCounter();
    openDescriptor(AF_INET, iKind);
}

void Socket::Close() {
    if (!IsValid()) return;
    if (m_refcnt->MarkClosed()) ::close(m_sock);
    m_sock = -1;
    m_connected = 0;
}

void Socket::initfd() {
    m_pfd.fd = m_sock;
    m_pfd.events = POLLIN;
    m_pfd.revents = 0;
}

// ---- Socket: queries ----

ZR_BOOL Socket::IsValid() const { return m_sock != -1; }
ZR_SOCKET Socket::Descriptor() const { return m_sock; }
ZR_Uint32 Socket::Type() const { return m_type; }
ZR_BOOL Socket::GetBlocking() const { return m_blocking; }
pollfd& Socket::Pollfd() { return m_pfd; }
const pollfd& Socket::Pollfd() const { return m_pfd; }
ZR_INT Socket::LastError() const { return errno; }
ZR_Uint32 Socket::State() const { return m_state; }
void Socket::setState(ZR_Uint32 uState) { m_state = uState; }

SockAddress Socket::LocalAddress() const { return queryName(m_sock, ::getsockname); }
SockAddress Socket::PeerAddress() const { return queryName(m_sock, ::getpeername); }

// ---- Socket: options ----

ZR_INT Socket::SetBlocking(ZR_BOOL bBlocking) {
    const int iFlags = fcntl(m_sock, F_GETFL);
    if (iFlags == -1) return -1;
    const int iWanted = bBlocking != 0 ? (iFlags & ~O_NONBLOCK) : (iFlags | O_NONBLOCK);
    if (fcntl(m_sock, F_SETFL, iWanted) == -1) return -1;
    m_blocking = bBlocking;
    return 0;
}

ZR_INT Socket::setRawOption(int iLevel, int iName, const void* pValue, ZR_SOCKLEN uLen) {
    if (!IsValid()) return -1;
    return setsockopt(m_sock, iLevel, iName, pValue, uLen);
}

ZR_INT Socket::getRawOption(int iLevel, int iName, void* pValue, ZR_SOCKLEN& uLen) const {
    if (!IsValid()) return -1;
    return getsockopt(m_sock, iLevel, iName, pValue, &uLen);
}

ZR_INT Socket::setOption(int iLevel, int iName, int iValue) {
    return setRawOption(iLevel, iName, &iValue, sizeof(iValue));
}
ZR_INT Socket::setOption(int iLevel, int iName, unsigned int uValue) {
    return setRawOption(iLevel, iName, &uValue, sizeof(uValue));
}
ZR_INT Socket::setOption(int iLevel, int iName, unsigned char ucValue) {
    return setRawOption(iLevel, iName, &ucValue, sizeof(ucValue));
}
ZR_INT Socket::setOption(int iLevel, int iName, const ip_mreq& value) {
    return setRawOption(iLevel, iName, &value, sizeof(value));
}
ZR_INT Socket::setOption(int iLevel, int iName, const in_addr& value) {
    return setRawOption(iLevel, iName, &value, sizeof(value));
}

ZR_INT Socket::getOption(int iLevel, int iName, int& iValue) const {
    ZR_SOCKLEN uLen = sizeof(iValue);
    return getRawOption(iLevel, iName, &iValue, uLen);
}
ZR_INT Socket::getOption(int iLevel, int iName, unsigned int& uValue) const {
    ZR_SOCKLEN uLen = sizeof(uValue);
    return getRawOption(iLevel, iName, &uValue, uLen);
}
ZR_INT Socket::getOption(int iLevel, int iName, unsigned char& ucValue) const {
    ZR_SOCKLEN uLen = sizeof(ucValue);
    return getRawOption(iLevel, iName, &ucValue, uLen);
}
ZR_INT Socket::getOption(int iLevel, int iName, ip_mreq& value) const {
    ZR_SOCKLEN uLen = sizeof(value);
    return getRawOption(iLevel, iName, &value, uLen);
}
ZR_INT Socket::getOption(int iLevel, int iName, in_addr& value) const {
    ZR_SOCKLEN uLen = sizeof(value);
    return getRawOption(iLevel, iName, &value, uLen);
}

ZR_INT Socket::setFlag(int iLevel, int iName, ZR_BOOL bOn) {
    return setOption(iLevel, iName, bOn != 0 ? 1 : 0);
}

ZR_BOOL Socket::getFlag(int iLevel, int iName) const {
    int iValue = 0;
    return getOption(iLevel, iName, iValue) == 0 && iValue != 0;
}

ZR_Uint32 Socket::getSize(int iName) const {
    unsigned int uValue = 0;
    return getOption(SOL_SOCKET, iName, uValue) == 0 ? uValue : SIZE_QUERY_FAILED;
}

ZR_INT Socket::SetSendBuffSize(ZR_Uint32 uSize) { return setOption(SOL_SOCKET, SO_SNDBUF, uSize); }
ZR_Uint32 Socket::GetSendBuffSize() const { return getSize(SO_SNDBUF); }
ZR_INT Socket::SetRecvBuffSize(ZR_Uint32 uSize) { return setOption(SOL_SOCKET, SO_RCVBUF, uSize); }
ZR_Uint32 Socket::GetRecvBuffSize() const { return getSize(SO_RCVBUF); }
ZR_INT Socket::SetReuseAddress(ZR_BOOL bReuse) { return setFlag(SOL_SOCKET, SO_REUSEADDR, bReuse); }
ZR_BOOL Socket::GetReuseAddress() const { return getFlag(SOL_SOCKET, SO_REUSEADDR); }
ZR_INT Socket::SetReusePort(ZR_BOOL bReuse) { return setFlag(SOL_SOCKET, SO_REUSEPORT, bReuse); }
ZR_BOOL Socket::GetReusePort() const { return getFlag(SOL_SOCKET, SO_REUSEPORT); }

ZR_INT Socket::Available() const {
    int iWaiting = 0;
    if (ioctl(m_sock, FIONREAD, &iWaiting) == -1) return -1;
    return iWaiting;
}

// ---- Socket: waits ----

ZR_INT Socket::SelectForRead(ZR_Uint32 uMicroseconds) {
    pollfd probe = m_pfd;
    const int iResult = poll(&probe, 1, pollMilliseconds(uMicroseconds));
    m_pfd.revents = probe.revents;
    return iResult;
}

ZR_INT Socket::Select(ZR_Uint32 uMicroseconds, ZR_BOOL&, ZR_BOOL&, ZR_BOOL&) {
    return SelectForRead(uMicroseconds);
}

ZR_INT Socket::selectOne(ZR_Uint32 uMicroseconds, bool bForWrite) const {
    if (m_sock < 0 || m_sock >= FD_SETSIZE) {  // FD_SET would write outside the set
        errno = EBADF;
        return -1;
    }
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(m_sock, &watched);
    timeval limit{static_cast<time_t>(uMicroseconds / 1000000),
                  static_cast<suseconds_t>(uMicroseconds % 1000000)};
    timeval* pLimit = uMicroseconds == WAIT_FOREVER ? nullptr : &limit;
    return select(m_sock + 1, nullptr, bForWrite ? &watched : nullptr, bForWrite ? nullptr : &watched,
                  pLimit);
}

ZR_INT Socket::SelectForWrite(ZR_Uint32 uMicroseconds) const { return selectOne(uMicroseconds, true); }
ZR_INT Socket::SelectForError(ZR_Uint32 uMicroseconds) const { return selectOne(uMicroseconds, false); }

ZR_INT Socket::SelectList(SockList& readList, SockList& writeList, SockList& exceptList,
                          ZR_Uint32 uMicroseconds) {
    std::vector<pollfd> probes;
    probes.reserve(readList.size());
    for (const Socket* pSock : readList) probes.push_back(pollfd{pSock->m_pfd.fd, pSock->m_pfd.events, 0});
    const int iResult = poll(probes.data(), probes.size(), pollMilliseconds(uMicroseconds));
    if (iResult <= 0) return iResult;
    SockList readable;
    for (size_t i = 0; i < probes.size(); ++i) {
        if (probes[i].revents & POLLIN) readable.push_back(readList[i]);
        if (probes[i].revents & POLLOUT) writeList.push_back(readList[i]);
        if (probes[i].revents & POLLERR) exceptList.push_back(readList[i]);
    }
    readList.swap(readable);
    return iResult;
}

// ---- Socket: comparisons ----

bool Socket::operator==(const Socket& other) const { return m_sock == other.m_sock; }
bool Socket::operator!=(const Socket& other) const { return m_sock != other.m_sock; }
bool Socket::operator<(const Socket& other) const { return m_sock < other.m_sock; }
bool Socket::operator<=(const Socket& other) const { return m_sock <= other.m_sock; }
bool Socket::operator>(const Socket& other) const { return m_sock > other.m_sock; }
bool Socket::operator>=(const Socket& other) const { return m_sock >= other.m_sock; }

}  // namespace zor
