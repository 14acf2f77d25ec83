// Reads traces, a line at a time or whole.
#pragma once

#include "Moxel Daemon/Motion/Trace.h"
#include "Moxel Daemon/Motion/TraceLine.h"
#include "Platform/Result.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::daemon {

/// Errors begin with "line N: ". Nothing more can be parsed after one. One thread.
class TraceParser {
  public:
    /// Steps that open repeats may hold together.
    static constexpr size_t stepLimit = 1'000'000;
    static constexpr size_t depthLimit = 8;

    TraceParser();

    /// The step of the outermost block that the line completes, if it does.
    [[nodiscard]] Result<std::optional<TraceStep>> parse(std::string_view text);
    /// The length of the outermost block; an error when a repeat has no end.
    [[nodiscard]] Result<std::chrono::nanoseconds> finish() const;

  private:
    struct OpenBlock {
        TraceBlock block;
        std::chrono::nanoseconds now{0};      ///< Time of the last line.
        std::chrono::nanoseconds startsAt{0}; ///< In the block around it.
        uint32_t count = 1;
        bool isEndless = false; ///< Nothing may follow.
        size_t line = 0;        ///< Where the block was opened.
    };

    [[nodiscard]] Error atLine(const std::string &what) const;
    [[nodiscard]] Result<void> advance(const TraceTime &time);
    [[nodiscard]] Result<std::optional<TraceStep>> add(TraceStep step);
    [[nodiscard]] Result<void> openRepeat(const TraceLine &line);
    [[nodiscard]] Result<std::optional<TraceStep>> closeRepeat(const TraceLine &line);

    std::vector<OpenBlock> open_; ///< The outermost one first; that one keeps no steps.
    size_t heldSteps_ = 0;
    size_t line_ = 0;
};

/// Parses a whole trace.
[[nodiscard]] Result<TraceBlock> parseTrace(std::string_view text);
/// The text of a trace, from a descriptor to its end; more than 16 MiB are an error.
[[nodiscard]] Result<std::string> readTraceText(int descriptor);
/// Both, from a file; errors name it.
[[nodiscard]] Result<TraceBlock> loadTrace(const std::string &path);

} // namespace moxel::daemon
