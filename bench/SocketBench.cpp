// Bulk transfer over a loopback TCP connection: TCPSocket::SendBytes/RecvBytes beside the raw
// send()/recv() calls they wrap, on identical connections in the same run. The benchmark thread sends
// fixed chunks; a reader thread drains the other end with the same kind of call.
#include <benchmark/benchmark.h>
#include <sys/socket.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "BenchUtil.h"
#include "TCPServer.h"
#include "TCPSocket.h"

namespace {

ZOR_BENCH_TARGET("tcp_bulk", 0.98, "at least 0.98x the raw send/recv throughput");

constexpr ZR_Uint32 CHUNK = 256 * 1024;
constexpr ZR_Uint32 READ_BUFFER = 64 * 1024;

struct ZorCalls {
    static ZR_INT send(zor::TCPSocket& sock, const ZR_BYTE* pBuf, ZR_Uint32 uLen) {
        return sock.SendBytes(pBuf, uLen);
    }
    static ZR_INT recv(zor::TCPSocket& sock, ZR_BYTE* pBuf, ZR_Uint32 uLen) {
        return sock.RecvBytes(pBuf, uLen);
    }
};

struct RawCalls {
    static ZR_INT send(zor::TCPSocket& sock, const ZR_BYTE* pBuf, ZR_Uint32 uLen) {
        return static_cast<ZR_INT>(::send(sock.Descriptor(), pBuf, uLen, 0));
    }
    static ZR_INT recv(zor::TCPSocket& sock, ZR_BYTE* pBuf, ZR_Uint32 uLen) {
        return static_cast<ZR_INT>(::recv(sock.Descriptor(), pBuf, uLen, 0));
    }
};

// A connected pair on 127.0.0.1: `client` sends, `accepted` receives.
struct LoopbackPair {
    zor::TCPServer server{2};
    zor::TCPSocket client{1};
    std::unique_ptr<zor::TCPSocket> accepted;

    LoopbackPair() {
        zor::SockAddress peer;
        if (server.Bind(zor::SockAddress("127.0.0.1", 0)) != 0 || server.Listen(1) != 0 ||
            client.Connect(server.LocalAddress()) != 0) {
            throw std::runtime_error("cannot set up the loopback connection");
        }
        accepted.reset(server.Accept(peer));
        if (!accepted) throw std::runtime_error("cannot accept the loopback connection");
    }
};

template <typename Calls>
void sendAll(zor::TCPSocket& sock, const ZR_BYTE* pBuf, ZR_Uint32 uLen) {
    while (uLen > 0) {
        const ZR_INT iSent = Calls::send(sock, pBuf, uLen);
        if (iSent <= 0) throw std::runtime_error("send failed");
        pBuf += iSent;
        uLen -= static_cast<ZR_Uint32>(iSent);
    }
}

template <typename Calls>
void tcpBulk(benchmark::State& state) {
    LoopbackPair pair;
    // Sender and reader on different cores: a bulk stream keeps both busy, and sharing one core would
    // halve what either could do.
    zor_bench::SavedAffinity saved;
    zor_bench::PinTo(0);
    std::thread reader([&pair] {
        zor_bench::PinTo(1);
        std::vector<ZR_BYTE> buffer(READ_BUFFER);
        while (Calls::recv(*pair.accepted, buffer.data(), READ_BUFFER) > 0) {
        }
    });
    const std::vector<ZR_BYTE> chunk(CHUNK, 0x5A);
    for (auto _ : state) sendAll<Calls>(pair.client, chunk.data(), CHUNK);
    ::shutdown(pair.client.Descriptor(), SHUT_WR);  // the reader sees the end of the stream
    reader.join();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * CHUNK);
}

// Loopback throughput swings with whatever else runs, so each side warms up and repeats.
void configure(benchmark::internal::Benchmark* bench) {
    bench->UseRealTime()->MinWarmUpTime(0.5)->MinTime(1.0)->Repetitions(7);
}
BENCHMARK_TEMPLATE(tcpBulk, ZorCalls)->Name("tcp_bulk/zor")->Apply(configure);
BENCHMARK_TEMPLATE(tcpBulk, RawCalls)->Name("tcp_bulk/raw")->Apply(configure);

}  // namespace
