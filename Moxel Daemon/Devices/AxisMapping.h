// Turns the axis events of an input device into the six axis values.
#pragma once

#include "Moxel Daemon/Devices/InputCapabilities.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <linux/input.h>
#include <optional>

namespace moxel::daemon {

struct AxisSettings {
    double deadZone = 4; ///< Deflections up to this one count as none; in axis units.
    double scale = 1;    ///< What the values are multiplied with.
};

/// Ranges of ABS_X, ABS_Y, ABS_Z, ABS_RX, ABS_RY and ABS_RZ; those of axes that the device lacks don't
/// matter.
using AxisRanges = std::array<input_absinfo, 6>;

/// Absolute axes are normalised from their ranges to axis units, relative ones are in axis units already. An
/// axis is at rest until its first event.
///
/// The kernel drops relative events of value 0, so a controller says that it has come back to rest by not
/// reporting: an axis that is left out of a report which holds others is at 0, and so is one of which nothing
/// has come for `restAfter`. Controllers that report translations and rotations in turns are given both.
///
/// Pure: knows neither device nor clock. One thread.
class AxisMapping {
  public:
    using Time = std::chrono::steady_clock::time_point;
    using Axes = std::array<int16_t, 6>;

    static constexpr std::chrono::milliseconds restAfter{100};

    AxisMapping(const InputCapabilities &capabilities, const AxisRanges &ranges, AxisSettings settings);

    /// Axes that can move; an absolute one whose range is empty cannot.
    [[nodiscard]] size_t axisCount() const noexcept;

    /// Notes an event; one of another type or code is ignored.
    void take(const input_event &event);
    /// The report is whole. True when axes() are to be told: they have changed, or a relative axis says that
    /// it is still deflected.
    [[nodiscard]] bool endReport(Time now);
    /// Events have been lost. What is there of the report's relative axes is forgotten; absolute axes go on
    /// from where they are, because the device tells all changes of those that were missed.
    void eventsWereLost();

    /// When relative axes will have been silent for too long; absent when none is deflected.
    [[nodiscard]] std::optional<Time> restDue() const;
    /// Brings silent axes to rest; true when axes() have changed.
    [[nodiscard]] bool restSilentAxes(Time now);

    [[nodiscard]] const Axes &axes() const noexcept { return axes_; }

  private:
    static constexpr size_t count = 6;
    static constexpr size_t groupSize = 3;
    static constexpr size_t groupCount = count / groupSize; ///< Translations and rotations.

    enum class Source { none, relative, absolute };
    struct Axis {
        Source source = Source::none;
        input_absinfo range{};
        bool restsAtMinimum = false; ///< A trigger.
        double deflection = 0;       ///< In axis units.
        bool isReported = false;     ///< In the report that is being taken, with `reported`.
        double reported = 0;
    };
    struct Group {
        Time lastReport;
        bool isDeflected = false; ///< A relative axis of it is not at 0.
    };

    [[nodiscard]] bool isRelativeReported(size_t group) const;
    /// Gives the relative axes of the group what the report says of them, or rest.
    void takeGroup(size_t group, Time now);
    /// True when axes() have changed.
    bool update();

    double deadZone_;
    double scale_;
    std::array<Axis, count> inputs_{}; ///< By code; relative and absolute axes have the same.
    std::array<Group, groupCount> groups_{};
    bool reportsTogether_ = false; ///< A report held axes of both groups once.
    Axes axes_{};
};

} // namespace moxel::daemon
