// Shared matchers for the value-tree tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "std/error.h"

namespace QZPAR::Testing {

// Runs f and returns the QZError it raised; fails the test when it raised none.
template <class F>
QZSTD::QZError CatchError(F f)
{
    try {
        f();
    } catch (const QZSTD::QZError& e) {
        return e;
    }
    ADD_FAILURE() << "no QZError was raised";
    return QZSTD::QZError("", 0, "", 0, {});
}

// The error's module, code and (when given) first argument.
MATCHER_P3(IsQZError, strModule, nCode, wstrArg, "")
{
    const std::wstring wstrExpected(wstrArg);
    *result_listener << "got " << arg.what();
    if (arg.GetModule() != strModule || arg.GetCode() != nCode)
        return false;
    return wstrExpected.empty() || (!arg.GetArgs().empty() && arg.GetArgs()[0] == wstrExpected);
}

#define EXPECT_QZ_ERROR(stmt, module, code, arg) \
    EXPECT_THAT(::QZPAR::Testing::CatchError([&] { stmt; }), ::QZPAR::Testing::IsQZError(module, code, arg))

}  // namespace QZPAR::Testing

namespace QZPAR::Testing {

// Heap allocations made by the calling thread so far (operator new is replaced in this executable).
size_t AllocationCount();

}  // namespace QZPAR::Testing
