// TextFormat.h (internal, never installed)
//
// The two formatting steps that the logger and the change journal share: a printf expansion into a fixed
// buffer that keeps what fits, and the second pass in which "%%" becomes "%" and every other sequence is
// written as it stands. Both work in the caller's buffer and allocate nothing.
#ifndef ZOR_TEXTFORMAT_H_
#define ZOR_TEXTFORMAT_H_

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace zor {
namespace detail {

// Expands fmt with args into buffer (size bytes, at least 1), cut to size - 1 characters. Returns the
// length of the text, which ends at the first NUL the expansion produced, where every reader of the
// buffer as a string stops. A failed expansion leaves an empty text.
inline size_t formatInto(char* buffer, size_t size, const char* fmt, va_list args) {
    const int written = std::vsnprintf(buffer, size, fmt, args);
    if (written < 0) {
        buffer[0] = '\0';
        return 0;
    }
    const size_t kept = static_cast<size_t>(written) < size ? static_cast<size_t>(written) : size - 1;
    return strnlen(buffer, kept);
}

// Rewrites text (length bytes) in place the way printf prints a format that has no arguments: "%%"
// becomes "%". Any other conversion would read an argument that does not exist, so it stays as it
// stands. Returns the new length; the text is not terminated.
inline size_t collapsePercents(char* text, size_t length) {
    const char* const end = text + length;
    const char* in = text;
    char* out = text;
    while (const void* found = std::memchr(in, '%', static_cast<size_t>(end - in))) {
        const char* percent = static_cast<const char*>(found);
        const size_t kept = static_cast<size_t>(percent - in) + 1;  // the text up to and with the '%'
        std::memmove(out, in, kept);
        out += kept;
        in = percent + 1;
        if (in < end && *in == '%') ++in;
    }
    std::memmove(out, in, static_cast<size_t>(end - in));
    return static_cast<size_t>(out - text) + static_cast<size_t>(end - in);
}

}  // namespace detail
}  // namespace zor

#endif  // ZOR_TEXTFORMAT_H_
