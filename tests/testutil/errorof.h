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

}  // namespace QZTEST
