/// @file
/// StringUtils, static byte-string helpers.
#ifndef ZOR_STRINGUTILS_H_
#define ZOR_STRINGUTILS_H_

#include <list>
#include <set>
#include <string>
#include <vector>

#include "BaseTypes.h"

namespace zor {

/// Static byte-string helpers used by the path code and open to any caller: splitting without empty
/// pieces, in-place character replacement, cutting at the last occurrence of a character, and prefix,
/// suffix and membership tests.
///
/// Every operation works on bytes (char), compares byte for byte and is case-sensitive. There is no
/// state, so every operation may be called from any thread; the caller owns the strings and containers
/// passed in. Nothing throws except std::bad_alloc.
///
/// @code
///   std::vector<std::string> parts;
///   zor::StringUtils::Split("a,b,,c,", ',', parts);       // parts: "a", "b", "c"
///   zor::StringUtils::Split("d", ',', parts);             // appended: "a", "b", "c", "d"
///   std::string ext;
///   zor::StringUtils::TruncSuffix("file.tar.gz", ext, '.');   // ext == ".gz"
/// @endcode
class StringUtils {
public:
    StringUtils() = delete;  ///< Not instantiable: every operation is static.

    /// 1 when prefix is no longer than str and equals its first bytes; an empty prefix always matches.
    static ZR_BOOL IsBeginStr(const std::string& str, const std::string& prefix);
    /// 1 when suffix is no longer than str and equals its last bytes; an empty suffix always matches.
    static ZR_BOOL IsEndStr(const std::string& str, const std::string& suffix);

    /// Splits str at every byte equal to sep and appends the non-empty pieces to out, after whatever it
    /// already holds.
    ///
    /// Leading, trailing and repeated separators produce no piece, so a string of separators only (or an
    /// empty one) adds nothing.
    static void Split(const std::string& str, ZR_CHAR sep, std::list<std::string>& out);
    /// @overload
    /// The same, appending to a vector.
    static void Split(const std::string& str, ZR_CHAR sep, std::vector<std::string>& out);
    /// @overload
    /// The same, splitting at every byte that is a member of seps.
    static void Split(const std::string& str, std::set<char> seps, std::list<std::string>& out);
    /// @overload
    /// The same, splitting at every member of seps and appending to a vector.
    static void Split(const std::string& str, std::set<char> seps, std::vector<std::string>& out);

    /// Replaces, in place, every byte equal to from by to.
    static void Replace(std::string& str, ZR_CHAR from, ZR_CHAR to);

    /// out = the tail of str from the last ch on, ch included, read as NUL-terminated text (a NUL byte
    /// after that position ends the copy). out is cleared when ch does not occur. out may be str itself.
    static void TruncSuffix(const std::string& str, std::string& out, ZR_CHAR ch);
    /// out = the bytes of str before the last ch, ch excluded; cleared when ch does not occur. out may be
    /// str itself.
    static void TruncPrefix(const std::string& str, std::string& out, ZR_CHAR ch);

    /// 1 when some byte of str equals ch.
    static ZR_BOOL IsContain(const std::string& str, ZR_CHAR ch);
    /// 1 when some byte of str is a member of chars (an empty set never matches).
    static ZR_BOOL IsContain(const std::string& str, std::set<char> chars);
};

}  // namespace zor

#endif  // ZOR_STRINGUTILS_H_
