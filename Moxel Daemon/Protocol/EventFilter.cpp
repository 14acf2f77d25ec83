#include "Moxel Daemon/Protocol/EventFilter.h"

#include <utility>

namespace moxel::daemon {

namespace {

uint32_t wantedBit(uint16_t command) {
    switch (command) {
    case buttonsChanged:
        return buttonEvents;
    case capMoved:
        return motionEvents;
    case applicationEvent:
    case deviceAction:
        return applicationEvents;
    default:
        return 0;
    }
}

} // namespace

std::optional<MoxelStateRecord> EventFilter::apply(MoxelStateRecord record) {
    const bool carriesButtons = record.command == buttonsChanged || record.command == capMoved;
    uint32_t changed = 0;
    if (record.command == buttonsChanged)
        changed = record.buttons ^ std::exchange(lastButtons_, record.buttons);
    const uint32_t wanted = wantedBit(record.command);
    if (wanted != 0 && (eventMask & wanted) == 0)
        return std::nullopt;
    if (!carriesButtons)
        return record;
    if (changed != 0 && (changed & buttonMask) == 0)
        return std::nullopt;
    record.buttons &= buttonMask;
    record.buttons8 = static_cast<uint16_t>(record.buttons8 & buttonMask);
    return record;
}

} // namespace moxel::daemon
