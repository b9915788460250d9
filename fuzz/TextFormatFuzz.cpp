// Expands one printf conversion, built from arbitrary bytes, through the shared expansion of the log and
// the journal and through vsnprintf, with an argument of the type the conversion reads, into a buffer of
// arbitrary size: text and length must be the same. Also checks the "%%" pass against a plain reading of
// its rule. Conversions the expansion does itself and those it hands to vsnprintf are both reached.
#include <sys/types.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TextFormat.h"

namespace {

void check(bool condition) {
    if (!condition) abort();
}

// Reads the fuzzer's bytes front to back; past the end every read gives 0.
class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    uint8_t Next() { return m_pos < m_size ? m_data[m_pos++] : 0; }
    uint64_t Next64() {
        uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value = value << 8 | Next();
        return value;
    }
    std::string Rest() {
        const std::string rest(reinterpret_cast<const char*>(m_data) + m_pos, m_size - m_pos);
        m_pos = m_size;
        return rest;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

// Literal text of a format: every '%' doubled, so that it holds no conversion.
std::string literal(const std::string& text) {
    std::string out;
    for (const char c : text) out += c == '%' ? std::string("%%") : std::string(1, c);
    return out;
}

// A width or precision: mostly small, sometimes past the expansion's own limit.
std::string number(Bytes& in) {
    const uint8_t pick = in.Next();
    if (pick < 128) return "";
    if (pick < 240) return std::to_string(pick % 24);
    return std::to_string(4000 + in.Next() % 200);
}

size_t viaPrintf(char* buffer, size_t size, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int written = std::vsnprintf(buffer, size, fmt, args);
    va_end(args);
    if (written < 0) {
        buffer[0] = '\0';
        return 0;
    }
    const size_t kept = static_cast<size_t>(written) < size ? static_cast<size_t>(written) : size - 1;
    return strnlen(buffer, kept);
}

template <typename T>
void compare(size_t size, const std::string& fmt, T value) {
    std::string ours(size, '\x7f'), theirs(size, '\x7f');
    const size_t ourLength = zor::detail::formatText(&ours[0], size, fmt.c_str(), value);
    const size_t theirLength = viaPrintf(&theirs[0], size, fmt.c_str(), value);
    check(ourLength == theirLength);
    check(std::memcmp(ours.data(), theirs.data(), ourLength) == 0);
}

// One conversion with an argument of the type it reads; `bits` and `text` supply the value.
void compareConversion(size_t size, const std::string& fmt, char length, char type, uint64_t bits,
                       const std::string& text) {
    const bool isLong = length == 'l', isLongLong = length == 'q';
    switch (type) {
        case 'd':
        case 'i':
        case 'c':
            if (isLongLong) return compare(size, fmt, static_cast<long long>(bits));
            if (isLong) return compare(size, fmt, static_cast<long>(bits));
            if (length == 'z') return compare(size, fmt, static_cast<ssize_t>(bits));
            return compare(size, fmt, static_cast<int>(bits));
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            if (isLongLong) return compare(size, fmt, static_cast<unsigned long long>(bits));
            if (isLong) return compare(size, fmt, static_cast<unsigned long>(bits));
            if (length == 'z') return compare(size, fmt, static_cast<size_t>(bits));
            return compare(size, fmt, static_cast<unsigned>(bits));
        case 's':
            return compare(size, fmt, (bits & 15) == 0 ? static_cast<const char*>(nullptr) : text.c_str());
        case 'p':
            return compare(size, fmt, reinterpret_cast<void*>(bits));
        default: {  // f, e, g: doubles of every kind, from the raw bits
            double value = 0;
            std::memcpy(&value, &bits, sizeof value);
            if ((bits & 7) == 0) value = static_cast<double>(static_cast<int64_t>(bits) >> 20) / 1000.0;
            return compare(size, fmt, value);
        }
    }
}

void checkCollapse(const std::string& text) {
    std::string collapsed = text;
    collapsed.resize(zor::detail::collapsePercents(&collapsed[0], collapsed.size()));
    std::string expected;
    for (size_t i = 0; i < text.size(); ++i) {
        expected += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    check(collapsed == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in(data, size);
    const size_t bufferSize = 1 + in.Next() % 64 * (in.Next() % 3 == 0 ? 80 : 1);
    std::string conversion = "%";
    for (uint8_t flags = in.Next(); flags != 0; flags >>= 3) conversion += "-0 +#"[flags % 5];
    conversion += number(in);
    if (in.Next() % 3 == 0) conversion += "." + number(in);
    static const char* const lengths[] = {"", "", "", "hh", "h", "l", "q", "z"};
    const int lengthPick = in.Next() % 8;
    static const char types[] = "diuxXsfegcop";
    const char type = types[in.Next() % (sizeof types - 1)];
    // Modifiers only where printf defines them with the argument passed below: none on c, s, p; l on the
    // floating conversions; the others on the integers.
    char length = ' ';
    if (std::strchr("diuxXo", type) != nullptr && lengthPick >= 3) {
        length = lengthPick == 6 ? 'q' : lengths[lengthPick][0];
        conversion += lengthPick == 6 ? "ll" : lengths[lengthPick];
    } else if (std::strchr("feg", type) != nullptr && lengthPick == 5) {
        conversion += "l";
    }
    conversion += type;
    const uint64_t bits = in.Next64();
    const std::string rest = in.Rest();
    const size_t half = rest.size() / 2;
    const std::string fmt = literal(rest.substr(0, half)) + conversion + literal(rest.substr(half));
    compareConversion(bufferSize, fmt, length, type, bits, rest);
    checkCollapse(rest);
    return 0;
}
