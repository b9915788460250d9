// PosixUtil.h (internal, never installed)
//
// Small helpers shared by the library's sources: the thrower that turns a pthread error number into
// the library's runtime error, and a descriptor guard.
#ifndef ZOR_POSIXUTIL_H_
#define ZOR_POSIXUTIL_H_

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

namespace zor {
namespace detail {

// Throws std::runtime_error(prefix + error number) when iError is not 0 (pthread calls return the number).
inline void throwOnError(int iError, const char* pszPrefix) {
    if (iError != 0) throw std::runtime_error(pszPrefix + std::to_string(iError));
}

// Owns a descriptor for one scope. Closing preserves errno so the caller still sees why a call failed.
class FdGuard {
public:
    explicit FdGuard(int iFd) : m_iFd(iFd) {}
    ~FdGuard() {
        if (m_iFd >= 0) {
            const int iSaved = errno;
            ::close(m_iFd);
            errno = iSaved;
        }
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    int Get() const { return m_iFd; }
    int Release() {
        const int iFd = m_iFd;
        m_iFd = -1;
        return iFd;
    }

private:
    int m_iFd;
};

}  // namespace detail
}  // namespace zor

#endif  // ZOR_POSIXUTIL_H_
