/// @file
/// MulticastSocket, an IPv4 datagram socket with the multicast options.
#ifndef ZOR_MULTICASTSOCKET_H_
#define ZOR_MULTICASTSOCKET_H_

#include <string>

#include "UDPSocket.h"

namespace zor {

/// An IPv4 datagram socket (UDPSocket of type 0) with the IPv4 multicast options: joining and leaving
/// groups, loopback of one's own datagrams, time-to-live and the outgoing interface.
///
/// Texts are dotted IPv4 addresses; Join2MCGroup()/LeaveFromMCGroup() do not validate them (an
/// unparsable text becomes 255.255.255.255 and the kernel decides), while SetMulticastIF() refuses one
/// with -1. Setters return 0 or -1 with errno; text getters return "" on failure.
///
/// GetMulticastAddr() reads the group through the leave-group option, which Linux does not answer, so on
/// Linux it returns "".
///
/// @code
///   zor::MulticastSocket mc;
///   mc.SetReuseAddress(1);
///   mc.Bind(zor::SockAddress(5400));
///   mc.Join2MCGroup("239.1.1.1", "");              // any interface
///   mc.SendBytes(data, size, zor::SockAddress("239.1.1.1", 5400));
/// @endcode
class MulticastSocket : public UDPSocket {
public:
    /// An IPv4 datagram socket; throws "create socket failed!".
    MulticastSocket();
    /// As UDPSocket(const Socket&).
    MulticastSocket(const Socket& other);
    ~MulticastSocket() override;  ///< Drops this holder; the last holder closes the descriptor.

    /// Joins sGroup (IP_ADD_MEMBERSHIP) on the interface with address sInterface, or on any interface
    /// when it is empty. 0 or -1.
    ZR_INT Join2MCGroup(const std::string& sGroup, const std::string& sInterface);
    /// Leaves sGroup (IP_DROP_MEMBERSHIP) on any interface. 0 or -1.
    ZR_INT LeaveFromMCGroup(const std::string& sGroup);
    /// The group read through the leave-group option; "" on failure, hence always "" on Linux.
    std::string GetMulticastAddr() const;

    ZR_INT SetMulticastLoop(ZR_BOOL bOn);   ///< Sets IP_MULTICAST_LOOP on or off. 0 or -1.
    ZR_BOOL GetMulticastLoop() const;       ///< 1 when IP_MULTICAST_LOOP is on.
    ZR_INT SetMulticastTTL(ZR_Uint8 uTtl);  ///< Sets IP_MULTICAST_TTL. 0 or -1.
    ZR_Uint8 GetMulticastTTL() const;       ///< IP_MULTICAST_TTL; 0 when the query fails.
    /// Sets the outgoing interface (IP_MULTICAST_IF) by its dotted address; -1 for unparsable text.
    ZR_INT SetMulticastIF(const std::string& sAddr);
    /// The outgoing interface's dotted address; "" on failure.
    std::string GetMulticastIF() const;
};

}  // namespace zor

#endif  // ZOR_MULTICASTSOCKET_H_
