// Log lines in the system's printf-like formats.
#pragma once

#include "Platform/Log.h"
#include "Values/Format.h"

#include <new>

namespace moxel {

namespace detail {

/// A line for which there is no memory is no reason to leave what it tells of half done.
template <class... Arguments>
void logFormatted(LogLevel level, FormatString<std::type_identity_t<Arguments>...> text,
                  const Arguments &...arguments) noexcept {
    if (!logEnabled())
        return;
    try {
        logLine(level, format(text, arguments...));
    } catch (const std::bad_alloc &) {
        logLine(level, "A line is missing: out of memory");
    }
}

} // namespace detail

/// One informational line; the format is checked against the arguments when it is compiled.
template <class... Arguments>
void logInfo(FormatString<std::type_identity_t<Arguments>...> text, const Arguments &...arguments) noexcept {
    detail::logFormatted<Arguments...>(LogLevel::info, text, arguments...);
}

/// One error line.
template <class... Arguments>
void logError(FormatString<std::type_identity_t<Arguments>...> text, const Arguments &...arguments) noexcept {
    detail::logFormatted<Arguments...>(LogLevel::error, text, arguments...);
}

/// The word for an outcome in log lines.
inline const char *successOrFailure(bool success) { return success ? "Success!" : "Failure!"; }

/// A function's address for "%p".
template <class Result, class... Arguments>
const void *address(Result (*function)(Arguments...)) {
    return reinterpret_cast<const void *>(function);
}

} // namespace moxel
