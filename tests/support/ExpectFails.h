#pragma once

#include "base/Result.h"

#include <gtest/gtest.h>

/// Expects that the call gives an error of this base::ErrorKind, in a whole sentence.
#define EXPECT_FAILS(call, kind) EXPECT_PRED_FORMAT2(fails, call, base::ErrorKind::kind)

template <typename T>
testing::AssertionResult fails(const char* call, const char* kindName,
                               const base::Result<T>& result, base::ErrorKind kind) {
    if (result)
        return testing::AssertionFailure() << call << " succeeds";
    const base::Error& error = result.error();
    if (error.kind != kind || !error.sentence.ends_with('.'))
        return testing::AssertionFailure() << call << " says \"" << error.sentence << "\", kind "
                                           << static_cast<int>(error.kind) << ", not " << kindName;
    return testing::AssertionSuccess();
}
