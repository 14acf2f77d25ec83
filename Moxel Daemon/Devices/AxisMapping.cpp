#include "Moxel Daemon/Devices/AxisMapping.h"

#include "Moxel Daemon/Motion/Trace.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace moxel::daemon {

namespace {

bool isEmpty(const input_absinfo &range) { return range.minimum >= range.maximum; }

/// On pads with two sticks, ABS_Z and ABS_RZ are triggers. Drivers that know no better give all axes of a pad
/// a flat, and may have the second stick there.
bool isTrigger(const InputCapabilities &capabilities, const input_absinfo &range, size_t code) {
    return isGamepad(capabilities) && capabilities.absolute[ABS_RX] && capabilities.absolute[ABS_RY] &&
           (code == ABS_Z || code == ABS_RZ) && range.minimum == 0 && range.flat == 0;
}

/// In axis units. Ranges may be as wide as the numbers are, so everything is computed in floating point.
double normalised(const input_absinfo &range, int32_t value, bool restsAtMinimum) {
    const double low = range.minimum;
    const double high = range.maximum;
    const double rest = restsAtMinimum ? low : (low + high) / 2;
    const double reach = high - rest;
    const double flat = range.flat > 0 && range.flat < reach ? range.flat : 0;
    const double distance = std::clamp<double>(value, low, high) - rest;
    const double beyondFlat = std::max(std::abs(distance) - flat, 0.0);
    return std::copysign(fullDeflection * beyondFlat / (reach - flat), distance);
}

/// Deflections beyond the dead zone begin at 0, and full deflection stays what it is.
double withDeadZone(double deflection, double deadZone) {
    const double beyond = std::max(std::abs(deflection) - deadZone, 0.0);
    return std::copysign(beyond * fullDeflection / (fullDeflection - deadZone), deflection);
}

int16_t rounded(double value) {
    using Limits = std::numeric_limits<int16_t>;
    return static_cast<int16_t>(std::lround(std::clamp<double>(value, Limits::min(), Limits::max())));
}

} // namespace

AxisMapping::AxisMapping(const InputCapabilities &capabilities, const AxisRanges &ranges,
                         AxisSettings settings)
    : deadZone_(settings.deadZone > 0 ? std::min(settings.deadZone, fullDeflection - 1) : 0),
      scale_(std::isfinite(settings.scale) ? settings.scale : 1) {
    for (size_t code = 0; code < count; ++code) {
        Axis &axis = inputs_[code];
        if (capabilities.absolute[code] && !isEmpty(ranges[code])) {
            axis.source = Source::absolute;
            axis.range = ranges[code];
            axis.restsAtMinimum = isTrigger(capabilities, axis.range, code);
        } else if (capabilities.relative[code]) {
            axis.source = Source::relative;
        }
    }
}

size_t AxisMapping::axisCount() const noexcept {
    return static_cast<size_t>(std::count_if(inputs_.begin(), inputs_.end(),
                                             [](const Axis &axis) { return axis.source != Source::none; }));
}

void AxisMapping::take(const input_event &event) {
    if (event.code >= count)
        return;
    Axis &axis = inputs_[event.code];
    if (event.type == EV_ABS && axis.source == Source::absolute)
        axis.reported = normalised(axis.range, event.value, axis.restsAtMinimum);
    else if (event.type == EV_REL && axis.source == Source::relative)
        axis.reported = event.value;
    else
        return;
    axis.isReported = true;
}

bool AxisMapping::endReport(Time now) {
    std::array<bool, groupCount> isReported{};
    for (size_t group = 0; group < groupCount; ++group)
        isReported[group] = isRelativeReported(group);
    const bool any = isReported[0] || isReported[1];
    reportsTogether_ = reportsTogether_ || (isReported[0] && isReported[1]);
    bool isDeflected = false;
    for (size_t group = 0; group < groupCount; ++group) {
        if (!isReported[group] && !(any && reportsTogether_))
            continue;
        takeGroup(group, now);
        isDeflected = isDeflected || groups_[group].isDeflected;
    }
    for (Axis &axis : inputs_)
        if (std::exchange(axis.isReported, false))
            axis.deflection = axis.reported;
    return update() || (isDeflected && axes_ != Axes{});
}

bool AxisMapping::isRelativeReported(size_t group) const {
    const auto *first = inputs_.data() + group * groupSize;
    return std::any_of(first, first + groupSize,
                       [](const Axis &axis) { return axis.isReported && axis.source == Source::relative; });
}

void AxisMapping::takeGroup(size_t group, Time now) {
    groups_[group] = {now, false};
    for (size_t code = group * groupSize; code < (group + 1) * groupSize; ++code) {
        Axis &axis = inputs_[code];
        if (axis.source != Source::relative)
            continue;
        axis.deflection = std::exchange(axis.isReported, false) ? axis.reported : 0;
        groups_[group].isDeflected = groups_[group].isDeflected || axis.deflection != 0;
    }
}

void AxisMapping::eventsWereLost() {
    for (Axis &axis : inputs_)
        axis.isReported = axis.isReported && axis.source == Source::absolute;
}

std::optional<AxisMapping::Time> AxisMapping::restDue() const {
    std::optional<Time> due;
    for (const Group &group : groups_)
        if (group.isDeflected && (!due || group.lastReport + restAfter < *due))
            due = group.lastReport + restAfter;
    return due;
}

bool AxisMapping::restSilentAxes(Time now) {
    for (size_t group = 0; group < groupCount; ++group) {
        if (!groups_[group].isDeflected || now < groups_[group].lastReport + restAfter)
            continue;
        groups_[group].isDeflected = false;
        for (size_t code = group * groupSize; code < (group + 1) * groupSize; ++code)
            if (inputs_[code].source == Source::relative)
                inputs_[code].deflection = 0;
    }
    return update();
}

bool AxisMapping::update() {
    Axes axes{};
    for (size_t code = 0; code < count; ++code)
        axes[code] = rounded(withDeadZone(inputs_[code].deflection, deadZone_) * scale_);
    return std::exchange(axes_, axes) != axes;
}

} // namespace moxel::daemon
