// Parses arbitrary bytes as OSTime text. Accepted text must hold a valid time whose text forms parse back
// to the same fields and whose packed form unpacks to them (for years the packing holds); refused text
// must fail with one of the constructor's two messages and nothing else.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "OSTime.h"

namespace {

void check(bool condition) {
    if (!condition) abort();
}

bool sameFields(const zor::OSTime& a, const zor::OSTime& b, bool withUseconds) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second && (!withUseconds || a.usecond == b.usecond);
}

void checkAccepted(const zor::OSTime& t) {
    check(t.month >= 1 && t.month <= 12 && t.day >= 1 && t.day <= 31 && t.hour <= 23 && t.minute <= 59 &&
          t.second <= 60 && t.usecond <= 999999);
    check(sameFields(zor::OSTime(t.ToString(1)), t, true));
    check(sameFields(zor::OSTime(t.ToStringISO()), t, false));
    if (t.year < 4096) check(sameFields(zor::OSTime(t.ToUint64()), t, true));
    check(!t.ToString(2).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    bool accepted = false;
    zor::OSTime parsed;
    try {
        parsed = zor::OSTime(text);
        accepted = true;
    } catch (const std::runtime_error& e) {
        const std::string message = e.what();
        check(message == "wrong format of OSTime string" || message == "invalid time of OSTime string");
    }
    if (accepted) checkAccepted(parsed);
    return 0;
}
