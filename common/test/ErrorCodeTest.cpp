#include "ErrorCode.h"

#include <gtest/gtest.h>

namespace {

TEST(ErrorStrings, AreTheSameFixedTextForEveryCode) {
    for (ZR_INT code : {static_cast<ZR_INT>(zor::E_OK), static_cast<ZR_INT>(zor::E_INVPARAM), 12345}) {
        EXPECT_EQ("unknown error", zor::ErrorStringEN(code));
        EXPECT_EQ("\xE6\x9C\xAA\xE7\x9F\xA5\xE9\x94\x99\xE8\xAF\xAF", zor::ErrorStringCN(code));
    }
}

}  // namespace
