// Runs the main thread's run loop for a command until something ends it.
#pragma once

#include "DriverPresence.h"
#include "StopSignal.h"

#include <chrono>
#include <functional>
#include <optional>

namespace moxel::tool {

/// Made before the session with the driver begins. On the main thread.
class EventLoop {
  public:
    enum class End {
        done,         ///< The command has what it wants.
        timeIsUp,     ///<
        stopped,      ///< The user asks for it.
        outputClosed, ///< Nobody reads standard output any more.
        driverLeft    ///<
    };

    struct Limits {
        std::optional<double> seconds;     ///< From the beginning of run().
        bool endsWithOutput = true;        ///< Ends when standard output cannot be written.
        std::function<bool()> isDone = {}; ///< Asked after every turn.
        std::function<int()> refresh = {}; ///< Called every turn; the milliseconds until it is to be called
                                           ///< again at the latest, -1 for whenever.
    };

    [[nodiscard]] End run(const Limits &limits);

  private:
    using Clock = std::chrono::steady_clock;

    void takeTurn(const Limits &limits, int milliseconds);

    const StopSignal stopSignal_;
    const DriverPresence presence_;
    bool isStopped_ = false;
    bool isOutputClosed_ = false;
};

} // namespace moxel::tool
