/// @file
/// ColumbusParser, a bit reader for the Exp-Golomb fields of codec headers.
#ifndef ZOR_COLUMBUSPARSER_H_
#define ZOR_COLUMBUSPARSER_H_

#include "BaseTypes.h"

namespace zor {

/// Reads a short byte buffer as a stream of bits, most significant bit of each byte first, and decodes
/// the fields of codec bitstream headers: fixed-width unsigned fields, and the Exp-Golomb codes ue(v) and
/// se(v) of H.264 syntax elements.
///
/// Typical use is the RBSP of a sequence parameter set:
/// @code
///   zor::ColumbusParser bits(rbsp, rbspLength);       // throws above 512 bytes
///   ZR_ULONG profile = bits.GetNextFixedBitValue(8);
///   bits.GetNextFixedBitValue(16);                     // constraint flags, level
///   ZR_Uint32 spsId = bits.GetNextColumbusUeValue();
/// @endcode
///
/// The parser keeps its own copy of at most 512 bytes (the class is meant for headers, not payloads);
/// the constructor is the only operation that fails, with std::runtime_error("wrong ColumbusParser
/// buffer length"). The readers report nothing: a field that runs past the end of the buffer reads the
/// missing bits as 0 (memory outside the copy is never touched), and ue(v) stops counting leading zeros
/// at the end of the buffer. Such results say nothing about the data; callers ask only for fields the
/// buffer holds. The position only moves forward and may pass the end.
///
/// An instance owns a raw buffer and is neither copied nor moved. Use one from one thread at a time:
/// every reader advances the position.
class ColumbusParser {
public:
    /// The largest buffer a parser accepts, in bytes.
    static constexpr ZR_Uint32 MAX_LENGTH = 512;

    /// Copies `length` bytes from `data` (which may be null when length is 0) and starts at bit 0.
    /// Throws std::runtime_error("wrong ColumbusParser buffer length") when length exceeds MAX_LENGTH.
    ColumbusParser(const ZR_BYTE* data, ZR_Uint32 length);
    ~ColumbusParser();                                          ///< Frees the copy of the buffer.
    ColumbusParser(const ColumbusParser&) = delete;             ///< Not copyable.
    ColumbusParser& operator=(const ColumbusParser&) = delete;  ///< Not copyable.

    /// The next n bits as an unsigned number, first bit most significant. n = 0 reads nothing and gives 0;
    /// for n above 64 the position moves n bits and the result holds the last 64 of them.
    ZR_ULONG GetNextFixedBitValue(ZR_Uint32 n);
    /// The next unsigned Exp-Golomb code ue(v): leading zeros, a 1, then as many value bits. Codes longer
    /// than 32 bits wrap modulo 2^32 (2 to the power of the zero count is taken with the count mod 32).
    ZR_Uint32 GetNextColumbusUeValue();
    /// The next signed Exp-Golomb code se(v): ue codes 0, 1, 2, 3, 4 map to 0, 1, -1, 2, -2. A ue value
    /// of 2^31 or more is first taken as a negative 32-bit number, then mapped the same way.
    ZR_INT GetNextColumbusSeValue();

private:
    ZR_BYTE* m_data;      ///< owned copy, followed by zeroed padding so whole words can be loaded
    ZR_Uint32 m_length;   ///< bytes of input in m_data
    ZR_Uint32 m_currPos;  ///< the next bit to read, counted from the first bit of m_data
};

}  // namespace zor

#endif  // ZOR_COLUMBUSPARSER_H_
