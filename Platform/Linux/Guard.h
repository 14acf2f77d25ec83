// Keeps exceptions from crossing into C code and across threads.
#pragma once

#include "Platform/Log.h"

#include <exception>
#include <string>

namespace moxel {

/// Calls `function`; an exception becomes one error line that names `what` was running.
template <class Function>
void guarded(const char *what, Function &&function) noexcept {
    try {
        function();
    } catch (const std::exception &exception) {
        try {
            logLine(LogLevel::error, std::string("Error: exception in ") + what + ": " + exception.what());
        } catch (...) {
            logLine(LogLevel::error, "Error: exception while out of memory");
        }
    } catch (...) {
        logLine(LogLevel::error, "Error: unknown exception in a callback");
    }
}

} // namespace moxel
