// Log lines in the system's printf-like formats.
#pragma once

#include "Platform/Log.h"
#include "Values/Format.h"

namespace moxel {

/// One informational line; the format is checked against the arguments when it is compiled.
template <class... Arguments>
void logInfo(FormatString<std::type_identity_t<Arguments>...> text, const Arguments &...arguments) {
    if (logEnabled())
        logLine(LogLevel::info, format(text, arguments...));
}

/// One error line.
template <class... Arguments>
void logError(FormatString<std::type_identity_t<Arguments>...> text, const Arguments &...arguments) {
    if (logEnabled())
        logLine(LogLevel::error, format(text, arguments...));
}

/// The word for an outcome in log lines.
inline const char *successOrFailure(bool success) { return success ? "Success!" : "Failure!"; }

/// A function's address for "%p".
template <class Result, class... Arguments>
const void *address(Result (*function)(Arguments...)) {
    return reinterpret_cast<const void *>(function);
}

} // namespace moxel
