// The boundary between the library's exported functions and the application.
#pragma once

#include "Platform/Log.h"

#include <exception>
#include <string>
#include <type_traits>
#include <utility>

namespace moxel {

/// Logs the exception that is being handled; inside a catch clause only.
void logEscapedException(const char *function) noexcept;

/// Runs the body of an exported function; an exception becomes an error line and `failure`.
template <class Result, class Body>
Result exportedCall(const char *function, Result failure, Body &&body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        logEscapedException(function);
        return failure;
    }
}

/// The same for functions without a result.
template <class Body>
void exportedCall(const char *function, Body &&body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
        logEscapedException(function);
    }
}

} // namespace moxel
