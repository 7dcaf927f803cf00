#pragma once

#include "base/Result.h"

#include <gtest/gtest.h>

/// Whether `result` is an error of that kind; what it is instead if not.
template <typename T>
[[nodiscard]] testing::AssertionResult failsWith(const base::Result<T>& result,
                                                 base::ErrorKind kind) {
    if (result)
        return testing::AssertionFailure() << "it succeeds";
    if (result.error().kind != kind)
        return testing::AssertionFailure()
               << "it fails in another way: " << result.error().sentence;
    return testing::AssertionSuccess();
}

/// EXPECT_FAILS(call, NotFound): the call gives an error of that kind, not just some failure.
#define EXPECT_FAILS(call, kind) EXPECT_TRUE(failsWith((call), base::ErrorKind::kind))
