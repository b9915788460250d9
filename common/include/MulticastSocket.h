// MulticastSocket.h
//
// An IPv4 datagram socket (UDPSocket of type 0) with the IPv4 multicast options: joining and leaving
// groups, loopback of one's own datagrams, time-to-live and the outgoing interface. Texts are dotted
// IPv4 addresses; Join2MCGroup()/LeaveFromMCGroup() do not validate them (an unparsable text becomes
// 255.255.255.255 and the kernel decides), while SetMulticastIF() refuses one with -1. Setters return 0
// or -1 with errno; text getters return "" on failure.
//
// GetMulticastAddr() reads the group through the leave-group option, which Linux does not answer, so on
// Linux it returns "".
//
//   zor::MulticastSocket mc;
//   mc.SetReuseAddress(1);
//   mc.Bind(zor::SockAddress(5400));
//   mc.Join2MCGroup("239.1.1.1", "");              // any interface
//   mc.SendBytes(data, size, zor::SockAddress("239.1.1.1", 5400));
#ifndef ZOR_MULTICASTSOCKET_H_
#define ZOR_MULTICASTSOCKET_H_

#include <string>

#include "UDPSocket.h"

namespace zor {

class MulticastSocket : public UDPSocket {
public:
    // An IPv4 datagram socket; throws "create socket failed!".
    MulticastSocket();
    // As UDPSocket(const Socket&).
    MulticastSocket(const Socket& other);
    ~MulticastSocket() override;

    // Joins sGroup on the interface with address sInterface, or on any interface when it is empty.
    ZR_INT Join2MCGroup(const std::string& sGroup, const std::string& sInterface);
    ZR_INT LeaveFromMCGroup(const std::string& sGroup);
    std::string GetMulticastAddr() const;

    ZR_INT SetMulticastLoop(ZR_BOOL bOn);
    ZR_BOOL GetMulticastLoop() const;
    ZR_INT SetMulticastTTL(ZR_Uint8 uTtl);
    ZR_Uint8 GetMulticastTTL() const;  // 0 when the query fails
    ZR_INT SetMulticastIF(const std::string& sAddr);
    std::string GetMulticastIF() const;
};

}  // namespace zor

#endif  // ZOR_MULTICASTSOCKET_H_
