// StringUtils.cpp
#include "StringUtils.h"

#include <algorithm>
#include <bitset>
#include <cstring>

namespace zor {

namespace {

// Membership of a byte in a separator set, looked up in constant time inside the split loops.
class ByteSet {
public:
    explicit ByteSet(const std::set<char>& chars) {
        for (const char c : chars) m_bits.set(static_cast<unsigned char>(c));
    }
    bool operator()(char c) const { return m_bits.test(static_cast<unsigned char>(c)); }

private:
    std::bitset<256> m_bits;
};

// Appends each maximal run of non-separator bytes; pieces are cut from the source in one copy each.
template <typename IsSep, typename Container>
void splitInto(const std::string& str, IsSep isSep, Container& out) {
    const char* const end = str.data() + str.size();
    const char* cursor = str.data();
    while (cursor != end) {
        if (isSep(*cursor)) {
            ++cursor;
            continue;
        }
        const char* const pieceEnd = std::find_if(cursor, end, isSep);
        out.emplace_back(cursor, pieceEnd);
        cursor = pieceEnd;
    }
}

}  // namespace

ZR_BOOL StringUtils::IsBeginStr(const std::string& str, const std::string& prefix) {
    return prefix.size() <= str.size() && str.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
}

ZR_BOOL StringUtils::IsEndStr(const std::string& str, const std::string& suffix) {
    return suffix.size() <= str.size() && str.compare(str.size() - suffix.size(), suffix.size(), suffix) == 0
               ? 1
               : 0;
}

void StringUtils::Split(const std::string& str, ZR_CHAR sep, std::list<std::string>& out) {
    splitInto(
        str, [sep](char c) { return c == sep; }, out);
}

void StringUtils::Split(const std::string& str, ZR_CHAR sep, std::vector<std::string>& out) {
    splitInto(
        str, [sep](char c) { return c == sep; }, out);
}

void StringUtils::Split(const std::string& str, std::set<char> seps, std::list<std::string>& out) {
    splitInto(str, ByteSet(seps), out);
}

void StringUtils::Split(const std::string& str, std::set<char> seps, std::vector<std::string>& out) {
    splitInto(str, ByteSet(seps), out);
}

void StringUtils::Replace(std::string& str, ZR_CHAR from, ZR_CHAR to) {
    std::replace(str.begin(), str.end(), from, to);
}

void StringUtils::TruncSuffix(const std::string& str, std::string& out, ZR_CHAR ch) {
    const std::string::size_type pos = str.rfind(ch);
    if (pos == std::string::npos) {
        out.clear();
        return;
    }
    const char* const tail = str.data() + pos;
    const size_t length = strnlen(tail, str.size() - pos);
    // Erase-then-keep keeps the call correct when out and str are the same object.
    if (&out == &str) {
        out.erase(pos + length);
        out.erase(0, pos);
    } else {
        out.assign(tail, length);
    }
}

void StringUtils::TruncPrefix(const std::string& str, std::string& out, ZR_CHAR ch) {
    const std::string::size_type pos = str.rfind(ch);
    if (pos == std::string::npos) {
        out.clear();
    } else if (&out == &str) {
        out.resize(pos);
    } else {
        out.assign(str, 0, pos);
    }
}

ZR_BOOL StringUtils::IsContain(const std::string& str, ZR_CHAR ch) {
    return str.find(ch) != std::string::npos ? 1 : 0;
}

ZR_BOOL StringUtils::IsContain(const std::string& str, std::set<char> chars) {
    if (chars.empty()) return 0;
    return std::any_of(str.begin(), str.end(), ByteSet(chars)) ? 1 : 0;
}

}  // namespace zor
