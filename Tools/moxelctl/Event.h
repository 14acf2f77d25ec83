// One event as a handler got it, and its forms for people and for programs.
#pragma once

#include "Values/Value.h"
#include <Moxel/MoxelClient.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace moxel::tool {

struct Event {
    enum class Kind {
        motion,
        buttons,
        application,
        state,
        added,
        removed,
        preferences,
        sync,
        pairing,
        settings,
        other
    };

    Kind kind;
    std::chrono::duration<double> time{}; ///< Since the session began.
    uint32_t productID = 0;
    uint32_t message = 0;
    MoxelStateRecord record{}; ///< Of motion, buttons, application and state.
    uint32_t number = 0;       ///< Of preferences, from a threaded handler: the driver's number.
    Value content; ///< Of pairing: the driver's dictionary. Of sync: the block. Of settings: the reason.
};

/// Where a handler was called decides the form of some arguments.
enum class HandlerThread { caller, library };

/// From the arguments of a message handler. Any thread.
[[nodiscard]] Event messageEvent(uint32_t productID, uint32_t message, const void *argument,
                                 HandlerThread thread = HandlerThread::caller);
[[nodiscard]] Event deviceEvent(Event::Kind kind, uint32_t deviceID);

/// "motion", "buttons" and so on.
[[nodiscard]] const char *kindName(Event::Kind kind);

/// One line, without its end. Text from devices is made fit for a terminal.
[[nodiscard]] std::string toText(const Event &event);
[[nodiscard]] std::string toJson(const Event &event);

} // namespace moxel::tool
