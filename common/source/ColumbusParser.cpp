// ColumbusParser.cpp
//
// Bits are taken a 64-bit window at a time instead of one by one. The copy of the input is followed by
// PADDING zero bytes, so a window that starts inside the input can always be loaded whole and its bits
// past the input come out as 0 without a bounds test per bit; a window that starts past the input is 0
// without touching memory. Results are those of reading the bits one at a time.
//
// The helpers are file-local rather than members so that the compiler may inline them: calls between
// exported functions of a shared library go through the PLT.
#include "ColumbusParser.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace zor {

namespace {

// A window starting in the last input byte loads that byte and the 7 after it, plus one more byte when
// it starts mid-byte: the highest index read is length - 1 + 8.
constexpr ZR_Uint32 PADDING = 8;

inline ZR_Uint64 loadBig64(const ZR_BYTE* p) {
    ZR_Uint64 v;
    std::memcpy(&v, p, sizeof v);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    return v;
}

// The padded copy seen as `bits` readable bits.
struct BitSpan {
    const ZR_BYTE* data;
    ZR_Uint32 bits;

    // The 64 bits starting at `pos`, the first in the top bit; bits past the input are 0.
    ZR_Uint64 window(ZR_Uint32 pos) const {
        if (pos >= bits) return 0;
        const ZR_Uint32 byte = pos / 8;
        const ZR_Uint32 shift = pos % 8;
        // The next byte supplies the low `shift` bits; with shift 0 its term is 0, so no branch is needed.
        return (loadBig64(data + byte) << shift) | ((ZR_Uint32{data[byte + 8]} << shift) >> 8);
    }

    // Reads n bits (1 to 64) at pos and moves pos past them.
    ZR_Uint64 read(ZR_Uint32& pos, ZR_Uint32 n) const {
        const ZR_Uint32 start = pos;
        pos = start + n;
        if (static_cast<ZR_Uint64>(start) + n <= (ZR_Uint64{1} << 32)) return window(start) >> (64 - n);
        // The position wraps around mid-field and goes on at bit 0. No reader that stays inside its
        // buffer gets here, but the result is still the bit-by-bit one.
        ZR_Uint64 value = 0;
        for (ZR_Uint32 p = start; p != pos; ++p) value = (value << 1) | (window(p) >> 63);
        return value;
    }

    // Counts the zero bits from pos up to the first 1 bit or the end of the input, moving pos past them.
    ZR_Uint32 skipZeros(ZR_Uint32& pos) const {
        ZR_Uint32 zeros = 0;
        while (pos < bits) {
            const ZR_Uint64 w = window(pos);
            // Bits past the end are 0 in the window, so a 1 found here is always inside the input.
            const ZR_Uint32 step = w != 0 ? __builtin_clzll(w) : std::min<ZR_Uint32>(64, bits - pos);
            zeros += step;
            pos += step;
            if (w != 0) break;
        }
        return zeros;
    }
};

// The fixed-field rule: n = 0 reads nothing; above 64 bits only the last 64 survive the doubling.
inline ZR_Uint64 readField(const BitSpan& span, ZR_Uint32& pos, ZR_Uint32 n) {
    if (n == 0) return 0;
    if (n > 64) {
        pos += n - 64;
        n = 64;
    }
    return span.read(pos, n);
}

}  // namespace

ColumbusParser::ColumbusParser(const ZR_BYTE* data, ZR_Uint32 length)
    : m_data(nullptr), m_length(length), m_currPos(0) {
    if (length > MAX_LENGTH) throw std::runtime_error("wrong ColumbusParser buffer length");
    m_data = new ZR_BYTE[length + PADDING]();
    if (length != 0) std::memcpy(m_data, data, length);
}

ColumbusParser::~ColumbusParser() { delete[] m_data; }

ZR_ULONG ColumbusParser::GetNextFixedBitValue(ZR_Uint32 n) {
    return readField(BitSpan{m_data, m_length * 8}, m_currPos, n);
}

ZR_Uint32 ColumbusParser::GetNextColumbusUeValue() {
    const BitSpan span{m_data, m_length * 8};
    const ZR_Uint64 w = span.window(m_currPos);
    if ((w >> 32) != 0) {  // at most 31 leading zeros: the whole code lies in this window
        const int codeBits = 2 * __builtin_clzll(w) + 1;
        m_currPos += codeBits;
        return static_cast<ZR_Uint32>((w >> (64 - codeBits)) - 1);
    }
    const ZR_Uint32 zeros = span.skipZeros(m_currPos);
    ++m_currPos;  // past the 1 bit, or past the end of the buffer
    const ZR_Uint32 value = static_cast<ZR_Uint32>(readField(span, m_currPos, zeros));
    return value + (1u << (zeros % 32)) - 1;
}

ZR_INT ColumbusParser::GetNextColumbusSeValue() {
    const ZR_INT k = static_cast<ZR_INT>(GetNextColumbusUeValue());
    // k / 2 rounded up; integer division truncates towards zero, which rounds negative halves up.
    const ZR_Int64 half = k >= 0 ? (static_cast<ZR_Int64>(k) + 1) / 2 : k / 2;
    return static_cast<ZR_INT>((k & 1) != 0 ? half : -half);
}

}  // namespace zor
