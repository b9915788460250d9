// MD5.cpp
//
// RFC 1321 MD5. The block function is fully unrolled with the message words loaded straight from the
// caller's bytes, and whole blocks of a long Append() are compressed without being copied into m_in.
#include "MD5.h"

#include <cstddef>
#include <cstring>

namespace zor {

const ZR_CHAR MD5::HEX[16] = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

namespace {

constexpr ZR_Uint32 BLOCK = 64;
constexpr ZR_Uint32 LENGTH_OFFSET = 56;  // where the 64-bit bit count starts in the last block

inline ZR_Uint32 loadLittle32(const ZR_BYTE* p) {
    ZR_Uint32 v;
    std::memcpy(&v, p, sizeof v);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    return v;
}

inline void storeLittle32(ZR_BYTE* p, ZR_Uint32 v) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    std::memcpy(p, &v, sizeof v);
}

inline ZR_Uint32 rotl(ZR_Uint32 v, int s) { return (v << s) | (v >> (32 - s)); }

// The four round steps. Each is written so that the term depending on b, the word computed by the step
// before, comes last: the rest overlaps with that step, which keeps the dependency chain short.
inline void stepF(ZR_Uint32& a, ZR_Uint32 b, ZR_Uint32 c, ZR_Uint32 d, ZR_Uint32 x, int s, ZR_Uint32 t) {
    a = rotl(a + x + t + (d ^ (b & (c ^ d))), s) + b;
}
inline void stepG(ZR_Uint32& a, ZR_Uint32 b, ZR_Uint32 c, ZR_Uint32 d, ZR_Uint32 x, int s, ZR_Uint32 t) {
    // (b & d) | (c & ~d) with disjoint bits, so the or is an add and c & ~d joins the early terms.
    a = rotl(a + x + t + (c & ~d) + (b & d), s) + b;
}
inline void stepH(ZR_Uint32& a, ZR_Uint32 b, ZR_Uint32 c, ZR_Uint32 d, ZR_Uint32 x, int s, ZR_Uint32 t) {
    a = rotl(a + x + t + (b ^ c ^ d), s) + b;
}
inline void stepI(ZR_Uint32& a, ZR_Uint32 b, ZR_Uint32 c, ZR_Uint32 d, ZR_Uint32 x, int s, ZR_Uint32 t) {
    a = rotl(a + x + t + (c ^ (b | ~d)), s) + b;
}

// The additive constants below are the integer parts of 2^32 * |sin(i)| for i = 1 to 64, and the
// rotation amounts repeat per round in groups of four.
// Compresses `blocks` consecutive 64-byte blocks into state. The state stays in registers from one
// block to the next, which matters for long inputs.
void compressBlocks(ZR_Uint32 state[4], const ZR_BYTE* data, size_t blocks) {
    ZR_Uint32 a = state[0], b = state[1], c = state[2], d = state[3];
    for (; blocks > 0; --blocks, data += BLOCK) {
        ZR_Uint32 x[16];
        for (size_t i = 0; i < 16; ++i) x[i] = loadLittle32(data + 4 * i);
        const ZR_Uint32 a0 = a, b0 = b, c0 = c, d0 = d;

        stepF(a, b, c, d, x[0], 7, 0xd76aa478);
        stepF(d, a, b, c, x[1], 12, 0xe8c7b756);
        stepF(c, d, a, b, x[2], 17, 0x242070db);
        stepF(b, c, d, a, x[3], 22, 0xc1bdceee);
        stepF(a, b, c, d, x[4], 7, 0xf57c0faf);
        stepF(d, a, b, c, x[5], 12, 0x4787c62a);
        stepF(c, d, a, b, x[6], 17, 0xa8304613);
        stepF(b, c, d, a, x[7], 22, 0xfd469501);
        stepF(a, b, c, d, x[8], 7, 0x698098d8);
        stepF(d, a, b, c, x[9], 12, 0x8b44f7af);
        stepF(c, d, a, b, x[10], 17, 0xffff5bb1);
        stepF(b, c, d, a, x[11], 22, 0x895cd7be);
        stepF(a, b, c, d, x[12], 7, 0x6b901122);
        stepF(d, a, b, c, x[13], 12, 0xfd987193);
        stepF(c, d, a, b, x[14], 17, 0xa679438e);
        stepF(b, c, d, a, x[15], 22, 0x49b40821);

        stepG(a, b, c, d, x[1], 5, 0xf61e2562);
        stepG(d, a, b, c, x[6], 9, 0xc040b340);
        stepG(c, d, a, b, x[11], 14, 0x265e5a51);
        stepG(b, c, d, a, x[0], 20, 0xe9b6c7aa);
        stepG(a, b, c, d, x[5], 5, 0xd62f105d);
        stepG(d, a, b, c, x[10], 9, 0x02441453);
        stepG(c, d, a, b, x[15], 14, 0xd8a1e681);
        stepG(b, c, d, a, x[4], 20, 0xe7d3fbc8);
        stepG(a, b, c, d, x[9], 5, 0x21e1cde6);
        stepG(d, a, b, c, x[14], 9, 0xc33707d6);
        stepG(c, d, a, b, x[3], 14, 0xf4d50d87);
        stepG(b, c, d, a, x[8], 20, 0x455a14ed);
        stepG(a, b, c, d, x[13], 5, 0xa9e3e905);
        stepG(d, a, b, c, x[2], 9, 0xfcefa3f8);
        stepG(c, d, a, b, x[7], 14, 0x676f02d9);
        stepG(b, c, d, a, x[12], 20, 0x8d2a4c8a);

        stepH(a, b, c, d, x[5], 4, 0xfffa3942);
        stepH(d, a, b, c, x[8], 11, 0x8771f681);
        stepH(c, d, a, b, x[11], 16, 0x6d9d6122);
        stepH(b, c, d, a, x[14], 23, 0xfde5380c);
        stepH(a, b, c, d, x[1], 4, 0xa4beea44);
        stepH(d, a, b, c, x[4], 11, 0x4bdecfa9);
        stepH(c, d, a, b, x[7], 16, 0xf6bb4b60);
        stepH(b, c, d, a, x[10], 23, 0xbebfbc70);
        stepH(a, b, c, d, x[13], 4, 0x289b7ec6);
        stepH(d, a, b, c, x[0], 11, 0xeaa127fa);
        stepH(c, d, a, b, x[3], 16, 0xd4ef3085);
        stepH(b, c, d, a, x[6], 23, 0x04881d05);
        stepH(a, b, c, d, x[9], 4, 0xd9d4d039);
        stepH(d, a, b, c, x[12], 11, 0xe6db99e5);
        stepH(c, d, a, b, x[15], 16, 0x1fa27cf8);
        stepH(b, c, d, a, x[2], 23, 0xc4ac5665);

        stepI(a, b, c, d, x[0], 6, 0xf4292244);
        stepI(d, a, b, c, x[7], 10, 0x432aff97);
        stepI(c, d, a, b, x[14], 15, 0xab9423a7);
        stepI(b, c, d, a, x[5], 21, 0xfc93a039);
        stepI(a, b, c, d, x[12], 6, 0x655b59c3);
        stepI(d, a, b, c, x[3], 10, 0x8f0ccc92);
        stepI(c, d, a, b, x[10], 15, 0xffeff47d);
        stepI(b, c, d, a, x[1], 21, 0x85845dd1);
        stepI(a, b, c, d, x[8], 6, 0x6fa87e4f);
        stepI(d, a, b, c, x[15], 10, 0xfe2ce6e0);
        stepI(c, d, a, b, x[6], 15, 0xa3014314);
        stepI(b, c, d, a, x[13], 21, 0x4e0811a1);
        stepI(a, b, c, d, x[4], 6, 0xf7537e82);
        stepI(d, a, b, c, x[11], 10, 0xbd3af235);
        stepI(c, d, a, b, x[2], 15, 0x2ad7d2bb);
        stepI(b, c, d, a, x[9], 21, 0xeb86d391);

        a += a0;
        b += b0;
        c += c0;
        d += d0;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

}  // namespace

MD5::MD5() { Reset(); }

MD5::MD5(const std::string& s) {
    Reset();
    Append(s);
}

MD5::MD5(const void* data, ZR_Uint32 length) {
    Reset();
    Append(data, length);
}

MD5::~MD5() {}

void MD5::Reset() {
    m_finished = 0;
    m_buf[0] = 0x67452301;
    m_buf[1] = 0xefcdab89;
    m_buf[2] = 0x98badcfe;
    m_buf[3] = 0x10325476;
    m_bytes[0] = 0;
    m_bytes[1] = 0;
    std::memset(m_digest, 0, sizeof m_digest);
}

void MD5::Append(const std::string& s) {
    // A string may outgrow the 32-bit length of the byte interface; feed it in pieces.
    const ZR_BYTE* p = reinterpret_cast<const ZR_BYTE*>(s.data());
    std::string::size_type left = s.size();
    constexpr ZR_Uint32 PIECE = 1u << 30;
    while (left > PIECE) {
        append(p, PIECE);
        p += PIECE;
        left -= PIECE;
    }
    append(p, static_cast<ZR_Uint32>(left));
}

void MD5::Append(const void* data, ZR_Uint32 length) { append(static_cast<const ZR_BYTE*>(data), length); }

const ZR_BYTE* MD5::Digest() {
    if (!m_finished) {
        m_finished = 1;
        final();
    }
    return m_digest;
}

std::string MD5::ToString() { return bytes2HexString(Digest(), sizeof m_digest); }

void MD5::append(const ZR_BYTE* data, ZR_Uint32 length) {
    if (length == 0) return;  // also keeps a null `data` away from memcpy
    const ZR_Uint32 used = m_bytes[0] % BLOCK;
    m_bytes[0] += length;
    if (m_bytes[0] < length) ++m_bytes[1];

    ZR_BYTE* block = reinterpret_cast<ZR_BYTE*>(m_in);
    const ZR_Uint32 room = BLOCK - used;
    if (length < room) {
        std::memcpy(block + used, data, length);
        return;
    }
    if (used != 0) {
        std::memcpy(block + used, data, room);
        md5Transform(block);
        data += room;
        length -= room;
    }
    const size_t whole = length / BLOCK;
    compressBlocks(m_buf, data, whole);
    std::memcpy(block, data + whole * BLOCK, length % BLOCK);
}

void MD5::final() {
    ZR_BYTE* block = reinterpret_cast<ZR_BYTE*>(m_in);
    ZR_Uint32 used = m_bytes[0] % BLOCK;
    block[used++] = 0x80;
    if (used > LENGTH_OFFSET) {  // no room left for the count: it goes into one more block
        std::memset(block + used, 0, BLOCK - used);
        md5Transform(block);
        used = 0;
    }
    std::memset(block + used, 0, LENGTH_OFFSET - used);
    storeLittle32(block + LENGTH_OFFSET, m_bytes[0] << 3);
    storeLittle32(block + LENGTH_OFFSET + 4, (m_bytes[1] << 3) | (m_bytes[0] >> 29));
    md5Transform(block);
    for (size_t i = 0; i < 4; ++i) storeLittle32(m_digest + 4 * i, m_buf[i]);
}

void MD5::md5Transform(const ZR_BYTE* block) { compressBlocks(m_buf, block, 1); }

std::string MD5::bytes2HexString(const ZR_BYTE* data, ZR_Uint32 length) {
    std::string text(2 * static_cast<std::string::size_type>(length), '0');
    for (size_t i = 0; i < length; ++i) {
        text[2 * i] = HEX[data[i] >> 4];
        text[2 * i + 1] = HEX[data[i] & 0x0f];
    }
    return text;
}

}  // namespace zor
