// ColumbusParserFuzz.cpp
//
// Arbitrary buffers (lengths past the 512-byte limit included) and arbitrary read sequences. Each read
// is checked against a plain one-bit-at-a-time reader, so the windowed fast paths must give identical
// results everywhere, past the end of the buffer and across a wrapping position too; AddressSanitizer
// watches that no read leaves the parser's own copy.
//
// Input layout: two bytes of buffer length (taken mod 520), the buffer, then one byte per read:
// the low two bits choose the reader, the other six the width of a fixed field.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "ColumbusParser.h"

namespace {

struct BitByBitReader {
    const std::vector<ZR_BYTE>& data;
    ZR_Uint32 pos;
    ZR_ULONG bit(ZR_Uint32 p) const { return p < data.size() * 8 ? (data[p / 8] >> (7 - p % 8)) & 1 : 0; }
    ZR_ULONG fixed(ZR_Uint32 n) {
        if (n > 64) {  // the earlier bits are shifted out of a 64-bit value anyway
            pos += n - 64;
            n = 64;
        }
        ZR_ULONG v = 0;
        while (n-- > 0) v = v * 2 + bit(pos++);
        return v;
    }
    ZR_Uint32 ue() {
        ZR_Uint32 zeros = 0;
        for (; pos < data.size() * 8 && bit(pos) == 0; ++pos) ++zeros;
        ++pos;
        return static_cast<ZR_Uint32>(fixed(zeros)) + (1u << (zeros % 32)) - 1;
    }
    ZR_INT se() {
        const ZR_INT k = static_cast<ZR_INT>(ue());
        const ZR_Int64 half = k >= 0 ? (ZR_Int64{k} + 1) / 2 : k / 2;
        return static_cast<ZR_INT>(k % 2 != 0 ? half : -half);
    }
};

ZR_Uint32 fieldWidth(uint8_t op) {
    const ZR_Uint32 w = op >> 2;
    if (w == 63) return 0xFFFFFFFFu - (op & 1);  // wraps the position around 2^32
    return w < 40 ? w : (w - 40) * 29;           // up to 64 bits, or long skips past the end
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    if (size < 2) return 0;
    const size_t wanted = ((input[0] << 8) | input[1]) % 520;
    const size_t length = wanted < size - 2 ? wanted : size - 2;
    const std::vector<ZR_BYTE> buffer(input + 2, input + 2 + length);
    if (length > zor::ColumbusParser::MAX_LENGTH) {
        try {
            zor::ColumbusParser rejected(buffer.data(), static_cast<ZR_Uint32>(length));
        } catch (const std::runtime_error&) {
            return 0;
        }
        std::abort();  // an over-long buffer must be refused
    }
    zor::ColumbusParser parser(buffer.empty() ? nullptr : buffer.data(), static_cast<ZR_Uint32>(length));
    BitByBitReader reference{buffer, 0};
    for (size_t i = 2 + length; i < size; ++i) {
        const uint8_t op = input[i];
        bool same = true;
        switch (op & 3) {
            case 0:
            case 3: {
                const ZR_Uint32 n = fieldWidth(op);
                same = parser.GetNextFixedBitValue(n) == reference.fixed(n);
                break;
            }
            case 1:
                same = parser.GetNextColumbusUeValue() == reference.ue();
                break;
            case 2:
                same = parser.GetNextColumbusSeValue() == reference.se();
                break;
        }
        if (!same) std::abort();
    }
    return 0;
}
