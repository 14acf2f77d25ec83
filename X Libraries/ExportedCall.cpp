#include "ExportedCall.h"

namespace moxel {

void logEscapedException(const char *function) noexcept {
    try {
        std::string text = std::string("Error: ") + function + " failed: ";
        try {
            throw;
        } catch (const std::exception &exception) {
            text += exception.what();
        } catch (...) {
            text += "unknown exception";
        }
        logLine(LogLevel::error, text);
    } catch (...) {
        logLine(LogLevel::error, "Error: out of memory");
    }
}

} // namespace moxel
