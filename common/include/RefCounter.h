/// @file
/// RefCounter, the use count shared by copies of one socket.
#ifndef ZOR_REFCOUNTER_H_
#define ZOR_REFCOUNTER_H_

#include "BaseTypes.h"
#include "Locks.h"

namespace zor {

/// The use count that copies of one socket share, so that the last copy to go closes the descriptor.
///
/// Every operation runs under the counter's own recursive mutex, so copies of a socket may be made and
/// destroyed in different threads. The counter starts at 0; whoever creates it calls Duplicate() for
/// itself. Not copyable: holders share one counter through a pointer.
///
/// @code
///   RefCounter* shared = new RefCounter(); shared->Duplicate();  // first holder
///   shared->Duplicate();                                         // a copy joins
///   if (shared->ReleaseAndTest()) { closeDescriptor(); delete shared; }
/// @endcode
///
/// Mutex failures propagate as the std::runtime_error of Locks.h.
class RefCounter {
public:
    /// A counter at 0, with no holder yet.
    RefCounter();

    /// Adds one holder.
    void Duplicate();
    /// Removes one holder (a count already at 0 stays 0) and returns true when no holder is left, so a
    /// counter at 0 also answers true.
    bool ReleaseAndTest();
    /// Removes one holder without reporting; a count at 0 stays 0.
    void Release();
    /// The number of holders at the moment of the call.
    ZR_Uint32 Current() const;
    /// Records that the shared descriptor is closed; true only for the first call, whose caller is the one
    /// to close it. A descriptor number is closed once, never again after the process may have reused it.
    bool MarkClosed();

private:
    RefCounter(const RefCounter&) = delete;
    RefCounter& operator=(const RefCounter&) = delete;

    mutable Mutex m_mutex;  ///< recursive
    ZR_Uint32 m_count;
    bool m_bClosed;
};

}  // namespace zor

#endif  // ZOR_REFCOUNTER_H_
