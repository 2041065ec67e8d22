// The QZError a piece of test code raises, for assertions on its module, code and message.
#pragma once

#include <optional>
#include <utility>

#include "std/error.h"

namespace QZTEST {

// Runs fn and returns the QZError it raised; nullopt when it raised none.
template <class Fn>
std::optional<QZSTD::QZError> ErrorOf(Fn&& fn)
{
    try {
        std::forward<Fn>(fn)();
    } catch (const QZSTD::QZError& e) {
        return e;
    }
    return std::nullopt;
}

// The code of the QZError fn raises, negated when it comes from another module than szModule (so that a
// code of the wrong module never passes for the expected one); 0 when it raises none.
template <class Fn>
int ErrorCodeOf(Fn&& fn, const char* szModule = QZSTD::Err::MODULE)
{
    const std::optional<QZSTD::QZError> error = ErrorOf(std::forward<Fn>(fn));
    if (!error)
        return 0;
    return error->GetModule() == szModule ? error->GetCode() : -error->GetCode();
}

}  // namespace QZTEST
