// Parses arbitrary bytes as path text and checks what every parsed path must satisfy: "/" and "." only
// in the first place, ".." only at the front, no empty component, no separator inside a component, a
// text form that parses back to the same list, and appending text equal to parsing the joined text.
// The parent, leaf and pop operations must not fail on anything parsing produced.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "FileSystem.h"

namespace {

void check(bool condition) {
    if (!condition) abort();
}

void checkInvariants(const zor::Path& path) {
    check(!path.IsEmpty());
    size_t index = 0;
    bool namesStarted = false;
    for (const std::string& c : path) {
        check(!c.empty());
        check(c == "/" || c.find_first_of("/\\") == std::string::npos);
        check((c != "/" && c != ".") || index == 0);
        check(c != ".." || !namesStarted);
        namesStarted = namesStarted || (c != "/" && c != "." && c != "..");
        ++index;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const zor::Path path(text);
    checkInvariants(path);
    const std::string form = path.ToString();
    check(zor::Path(form) == path);
    check(zor::Path(form).ToString() == form);

    // Split the input in two at its first byte's choice and compare += with parsing the whole text.
    if (size > 1) {
        const size_t cut = 1 + data[0] % (size - 1);
        const std::string head = text.substr(1, cut - 1);
        const std::string tail = text.substr(cut);
        if (!head.empty()) {
            zor::Path joined(head);
            joined += tail;
            checkInvariants(joined);
            check(joined == zor::Path(head + "/" + tail));
        }
    }

    zor::Path parent(path.GetBasePath());
    checkInvariants(parent);
    check(!path.GetLeafName().empty());
    zor::Path popped(path);
    check(popped.PopDir(3) == 1);
    return 0;
}
