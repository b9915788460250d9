/// @file
/// MD5, the MD5 message digest.
#ifndef ZOR_MD5_H_
#define ZOR_MD5_H_

#include <string>

#include "BaseTypes.h"

namespace zor {

/// The MD5 message digest of RFC 1321 over data given in one or more pieces.
///
/// Append() absorbs bytes (a std::string contributes all of its bytes, embedded NULs included); Digest()
/// finishes and returns the 16 raw bytes; ToString() renders them as 32 lowercase hexadecimal characters.
///
/// @code
///   zor::MD5 md5;
///   md5.Append(header);
///   md5.Append(body.data(), body.size());
///   std::string hex = md5.ToString();          // "d41d8cd98f00b204e9800998ecf8427e" for no input
/// @endcode
///
/// A digest is computed once. After Digest() or ToString(), further Append() calls still feed the
/// internal state, but Digest() keeps returning the digest already computed until Reset() starts a new
/// message; callers that digest a stream piece by piece therefore call Reset() between messages.
///
/// Nothing here fails or throws. An instance is a plain value (copying copies the whole state, including
/// a half-absorbed message); use one from one thread at a time.
class MD5 {
public:
    /// An empty message.
    MD5();
    /// A message that starts with the bytes of s.
    explicit MD5(const std::string& s);
    /// A message that starts with the `length` bytes at `data`.
    MD5(const void* data, ZR_Uint32 length);
    ~MD5();  ///< Releases nothing: the state is held by value.

    /// Starts a new, empty message and forgets any finished digest.
    void Reset();
    /// Absorbs all s.length() bytes of s.
    void Append(const std::string& s);
    /// Absorbs `length` bytes at `data` (data may be null when length is 0).
    void Append(const void* data, ZR_Uint32 length);

    /// Finishes the message on the first call after a Reset() and returns the 16 digest bytes. The pointer
    /// stays owned by this object and valid until it is destroyed; Reset() zeroes what it points to.
    const ZR_BYTE* Digest();
    /// The digest as 32 lowercase hexadecimal characters, high nibble first.
    std::string ToString();

private:
    void append(const ZR_BYTE* data, ZR_Uint32 length);
    /// Pads the message, adds the bit count and writes the state words to m_digest.
    void final();
    /// Runs the compression function over one 64-byte block.
    void md5Transform(const ZR_BYTE* block);
    /// Hex text of `length` bytes at `data`.
    static std::string bytes2HexString(const ZR_BYTE* data, ZR_Uint32 length);

    ZR_Uint32 m_buf[4];    ///< chaining state A, B, C, D
    ZR_Uint32 m_bytes[2];  ///< bytes absorbed: low word, then high word
    ZR_Uint32 m_in[16];    ///< the block being filled
    ZR_BYTE m_digest[16];  ///< the finished digest
    ZR_BOOL m_finished;    ///< non-zero once m_digest holds the result

    static const ZR_CHAR HEX[16];
};

}  // namespace zor

#endif  // ZOR_MD5_H_
