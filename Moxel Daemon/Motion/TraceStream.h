// Reads a trace from a descriptor while it plays.
#pragma once

#include "Moxel Daemon/Motion/TraceParser.h"
#include "Moxel Daemon/Motion/TracePlayer.h"
#include "Platform/RunLoop.h"

#include <string>

namespace moxel::daemon {

/// Lives on the run loop's thread. Reads no further while the player has plenty to do.
class TraceStream {
  public:
    /// The descriptor stays the caller's; it may block, and is read only when it is ready.
    TraceStream(RunLoop &runLoop, int descriptor, TracePlayer &player);

    /// Begins to read. Regular files, which are always ready, are read at once.
    [[nodiscard]] Result<void> start();

  private:
    static constexpr size_t plenty = 256; ///< Steps.
    static constexpr size_t longestLine = 8192;

    void read();
    void finishReading(const std::string &problem);
    void parseLines();
    void close(const std::string &problem);
    void regulate();

    RunLoop &runLoop_;
    int descriptor_;
    TracePlayer &player_;
    TraceParser parser_;
    std::string text_; ///< Read, but not parsed.
    RunLoopSource source_;
    bool isClosed_ = false; ///< The player knows how the trace ends.
};

} // namespace moxel::daemon
