// TextFormat.h (internal, never installed)
//
// The two formatting steps that the logger and the change journal share: a printf expansion into a fixed
// buffer that keeps what fits, and the second pass in which "%%" becomes "%" and every other sequence is
// written as it stands. Both work in the caller's buffer and allocate nothing. The expansion does the
// conversions log lines use itself, with the same result as vsnprintf, and leaves the rest to it.
#ifndef ZOR_TEXTFORMAT_H_
#define ZOR_TEXTFORMAT_H_

#include <sys/types.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zor {
namespace detail {

// Copies n bytes. A log line is assembled from many pieces of a few bytes each, and for those a call
// into the C library costs more than the copy: up to 16 bytes take at most four moves.
inline void copyBytes(char* to, const char* from, size_t n) {
    if (n > 16) {
        std::memcpy(to, from, n);
    } else if (n >= 8) {  // two 8-byte moves that overlap in the middle
        std::uint64_t head = 0, tail = 0;
        std::memcpy(&head, from, 8);
        std::memcpy(&tail, from + n - 8, 8);
        std::memcpy(to, &head, 8);
        std::memcpy(to + n - 8, &tail, 8);
    } else if (n >= 4) {
        std::uint32_t head = 0, tail = 0;
        std::memcpy(&head, from, 4);
        std::memcpy(&tail, from + n - 4, 4);
        std::memcpy(to, &head, 4);
        std::memcpy(to + n - 4, &tail, 4);
    } else if (n > 0) {
        to[0] = from[0];
        to[n / 2] = from[n / 2];
        to[n - 1] = from[n - 1];
    }
}

// The output of an expansion: keeps what fits in a buffer of `size` bytes, terminator included.
class BoundedText {
public:
    BoundedText(char* buffer, size_t size) : m_begin(buffer), m_next(buffer), m_last(buffer + size - 1) {}
    void Put(const char* text, size_t length) {
        const size_t n = length < room() ? length : room();
        copyBytes(m_next, text, n);
        m_next += n;
    }
    void Fill(char c, size_t count) {
        const size_t n = count < room() ? count : room();
        for (size_t i = 0; i < n; ++i) m_next[i] = c;  // pads are a few characters wide
        m_next += n;
    }
    // Terminates the text and returns its length.
    size_t Finish() {
        *m_next = '\0';
        return static_cast<size_t>(m_next - m_begin);
    }

private:
    size_t room() const { return static_cast<size_t>(m_last - m_next); }

    char* m_begin;
    char* m_next;
    char* m_last;
};

// One conversion of the kinds expandCommon does itself: flags '-' and '0', a decimal width, a precision
// for 's' and 'f', the length modifiers hh h l ll j z t (only l for 'f', none for 's'), and d i u x X s f.
struct Conversion {
    bool left = false;
    bool zero = false;
    size_t width = 0;
    int precision = -1;
    char length = ' ';  // ' ' none, 'H' hh, 'h', 'l', 'q' ll, 'j', 'z', 't'
    char type = '\0';
};

constexpr size_t MAX_FIELD = 4096;  // wider fields, rare in lines, are left to vsnprintf

// Reads decimal digits into value, which stops growing past MAX_FIELD. Returns the first other character.
inline const char* parseNumber(const char* p, size_t& value) {
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (value <= MAX_FIELD) value = value * 10 + static_cast<size_t>(*p - '0');
    }
    return p;
}

// Reads the conversion after a '%'. Returns the character after it, or null for a form left to vsnprintf.
inline const char* parseConversion(const char* p, Conversion& c) {
    for (;; ++p) {
        if (*p == '-') {
            c.left = true;
        } else if (*p == '0') {
            c.zero = true;
        } else {
            break;
        }
    }
    p = parseNumber(p, c.width);
    if (*p == '.') {
        size_t precision = 0;
        p = parseNumber(p + 1, precision);
        c.precision = static_cast<int>(precision);
    }
    if (c.width > MAX_FIELD || c.precision > static_cast<int>(MAX_FIELD)) return nullptr;
    if (p[0] == 'h' || p[0] == 'l') {
        c.length = p[1] == p[0] ? (p[0] == 'h' ? 'H' : 'q') : p[0];
        p += p[1] == p[0] ? 2 : 1;
    } else if (*p == 'j' || *p == 'z' || *p == 't') {
        c.length = *p++;
    }
    c.type = *p;
    const bool integer = std::strchr("diuxX", c.type) != nullptr && c.type != '\0';
    const bool known = integer || (c.type == 's' && c.length == ' ') ||
                       (c.type == 'f' && (c.length == ' ' || c.length == 'l'));
    if (!known || (integer && c.precision >= 0) || (c.type == 's' && c.zero)) return nullptr;
    return p + 1;
}

inline long long signedArgument(char length, va_list& args) {
    // Each modifier reads its own type: several are the same width here, but va_arg must name the type
    // that was passed.
    // NOLINTBEGIN(bugprone-branch-clone)
    switch (length) {
        case 'H':
            return static_cast<signed char>(va_arg(args, int));
        case 'h':
            return static_cast<short>(va_arg(args, int));
        case 'l':
            return va_arg(args, long);
        case 'q':
            return va_arg(args, long long);
        case 'j':
            return va_arg(args, intmax_t);
        case 'z':
            return va_arg(args, ssize_t);
        case 't':
            return va_arg(args, ptrdiff_t);
        default:
            return va_arg(args, int);
    }
    // NOLINTEND(bugprone-branch-clone)
}

inline unsigned long long unsignedArgument(char length, va_list& args) {
    // Each modifier reads its own type: several are the same width here, but va_arg must name the type
    // that was passed.
    // NOLINTBEGIN(bugprone-branch-clone)
    switch (length) {
        case 'H':
            return static_cast<unsigned char>(va_arg(args, unsigned));
        case 'h':
            return static_cast<unsigned short>(va_arg(args, unsigned));
        case 'l':
            return va_arg(args, unsigned long);
        case 'q':
            return va_arg(args, unsigned long long);
        case 'j':
            return va_arg(args, uintmax_t);
        case 'z':
            return va_arg(args, size_t);
        case 't':
            return static_cast<unsigned long long>(va_arg(args, ptrdiff_t));
        default:
            return va_arg(args, unsigned);
    }
    // NOLINTEND(bugprone-branch-clone)
}

// Writes digits (an optional '-' first) padded to the conversion's width: zeros go after the sign.
inline void putPadded(BoundedText& out, const Conversion& c, const char* digits, size_t length) {
    const size_t pad = c.width > length ? c.width - length : 0;
    if (c.left) {
        out.Put(digits, length);
        out.Fill(' ', pad);
    } else if (c.zero) {
        const size_t sign = digits[0] == '-' ? 1 : 0;
        out.Put(digits, sign);
        out.Fill('0', pad);
        out.Put(digits + sign, length - sign);
    } else {
        out.Fill(' ', pad);
        out.Put(digits, length);
    }
}

// Writes one conversion taking its value from args. Returns false for a value left to vsnprintf.
inline bool putConversion(BoundedText& out, const Conversion& c, va_list& args) {
    char digits[64];
    std::to_chars_result done{};
    if (c.type == 's') {
        const char* text = va_arg(args, const char*);
        if (text == nullptr) return false;
        const size_t length =
            c.precision >= 0 ? strnlen(text, static_cast<size_t>(c.precision)) : std::strlen(text);
        putPadded(out, c, text, length);
        return true;
    }
    if (c.type == 'f') {
        const double value = va_arg(args, double);
        if (!std::isfinite(value)) return false;
        done = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed,
                             c.precision >= 0 ? c.precision : 6);
    } else if (c.type == 'd' || c.type == 'i') {
        done = std::to_chars(digits, digits + sizeof digits, signedArgument(c.length, args));
    } else {
        const int base = c.type == 'u' ? 10 : 16;
        done = std::to_chars(digits, digits + sizeof digits, unsignedArgument(c.length, args), base);
        if (c.type == 'X') {
            for (char* d = digits; d != done.ptr; ++d) *d = static_cast<char>(std::toupper(*d));
        }
    }
    if (done.ec != std::errc()) return false;
    putPadded(out, c, digits, static_cast<size_t>(done.ptr - digits));
    return true;
}

// Expands the conversions that log lines use (see Conversion) without going through vsnprintf, whose
// set-up costs more than such a line. Returns -1 when fmt holds anything else; args is then spent.
inline long expandCommon(char* buffer, size_t size, const char* fmt, va_list& args) {
    BoundedText out(buffer, size);
    for (const char* p = fmt;;) {
        const char* percent = std::strchr(p, '%');
        if (percent == nullptr) {
            out.Put(p, std::strlen(p));
            return static_cast<long>(out.Finish());
        }
        out.Put(p, static_cast<size_t>(percent - p));
        if (percent[1] == '%') {
            out.Put("%", 1);
            p = percent + 2;
            continue;
        }
        Conversion c;
        p = parseConversion(percent + 1, c);
        if (p == nullptr || !putConversion(out, c, args)) return -1;
    }
}

// Expands fmt with args into buffer (size bytes, at least 1), cut to size - 1 characters, exactly as
// vsnprintf does. Returns the length of the text, which ends at the first NUL the expansion produced,
// where every reader of the buffer as a string stops. A failed expansion leaves an empty text.
inline size_t formatInto(char* buffer, size_t size, const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const long common = expandCommon(buffer, size, fmt, copy);
    va_end(copy);
    if (common >= 0) return static_cast<size_t>(common);
    const int written = std::vsnprintf(buffer, size, fmt, args);
    if (written < 0) {
        buffer[0] = '\0';
        return 0;
    }
    const size_t kept = static_cast<size_t>(written) < size ? static_cast<size_t>(written) : size - 1;
    return strnlen(buffer, kept);
}

// formatInto for a caller that holds the arguments themselves rather than a va_list.
inline size_t formatText(char* buffer, size_t size, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
inline size_t formatText(char* buffer, size_t size, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const size_t length = formatInto(buffer, size, fmt, args);
    va_end(args);
    return length;
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
