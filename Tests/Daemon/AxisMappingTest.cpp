// Axis events become axis values: ranges, dead zone, scale, and relative axes that fall silent.
#include "Moxel Daemon/Devices/AxisMapping.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

constexpr AxisSettings plain{.deadZone = 0, .scale = 1};

InputCapabilities absoluteAxes() {
    InputCapabilities capabilities;
    for (size_t code = ABS_X; code <= ABS_RZ; ++code)
        capabilities.absolute[code] = true;
    return capabilities;
}

InputCapabilities relativeAxes() {
    InputCapabilities capabilities;
    for (size_t code = REL_X; code <= REL_RZ; ++code)
        capabilities.relative[code] = true;
    return capabilities;
}

AxisRanges ranges(int32_t minimum, int32_t maximum, int32_t flat = 0) {
    AxisRanges all{};
    for (input_absinfo &range : all) {
        range.minimum = minimum;
        range.maximum = maximum;
        range.flat = flat;
    }
    return all;
}

/// A mapping with a clock that stands still until it is set.
class Mapped {
  public:
    using Time = AxisMapping::Time;

    explicit Mapped(const InputCapabilities &capabilities, const AxisRanges &all = {},
                    AxisSettings settings = plain)
        : mapping(capabilities, all, settings) {}

    Mapped &take(uint16_t type, uint16_t code, int32_t value) {
        input_event event{};
        event.type = type;
        event.code = code;
        event.value = value;
        mapping.take(event);
        return *this;
    }
    Mapped &absolute(uint16_t code, int32_t value) { return take(EV_ABS, code, value); }
    Mapped &relative(uint16_t code, int32_t value) { return take(EV_REL, code, value); }
    bool endReport() { return mapping.endReport(now); }
    /// The value of the x axis after a report of that value.
    int x(uint16_t type, int32_t value) {
        take(type, ABS_X, value);
        (void)endReport();
        return mapping.axes()[0];
    }
    [[nodiscard]] AxisMapping::Axes axes() const { return mapping.axes(); }

    AxisMapping mapping;
    Time now = Time(1h);
};

int absoluteX(int32_t minimum, int32_t maximum, int32_t value, int32_t flat = 0,
              AxisSettings settings = plain) {
    return Mapped(absoluteAxes(), ranges(minimum, maximum, flat), settings).x(EV_ABS, value);
}

int relativeX(int32_t value, AxisSettings settings = plain) {
    return Mapped(relativeAxes(), {}, settings).x(EV_REL, value);
}

TEST(DaemonAxisMapping, AbsoluteAxesAreNormalisedFromTheirRange) {
    EXPECT_EQ(absoluteX(-350, 350, 100), 100);
    EXPECT_EQ(absoluteX(-350, 350, -350), -350);
    EXPECT_EQ(absoluteX(-32768, 32767, 32767), 350);
    EXPECT_EQ(absoluteX(-32768, 32767, -32768), -350);
    EXPECT_EQ(absoluteX(-32768, 32767, 16384), 175);
    EXPECT_EQ(absoluteX(-32768, 32767, 0), 0);
    EXPECT_EQ(absoluteX(1000, 2000, 1750), 175);
}

TEST(DaemonAxisMapping, CentreOfARangeIsRest) {
    EXPECT_EQ(absoluteX(0, 255, 255), 350);
    EXPECT_EQ(absoluteX(0, 255, 0), -350);
    EXPECT_EQ(absoluteX(0, 255, 128), 1) << "127.5 is the centre";
    EXPECT_EQ(absoluteX(0, 255, 127), -1);
    EXPECT_EQ(absoluteX(0, 255, 127, 0, AxisSettings{}), 0) << "the dead zone takes that away";
}

TEST(DaemonAxisMapping, FlatOfARangeIsRest) {
    EXPECT_EQ(absoluteX(-100, 100, 20, 20), 0);
    EXPECT_EQ(absoluteX(-100, 100, -20, 20), 0);
    EXPECT_EQ(absoluteX(-100, 100, 60, 20), 175) << "beyond it values begin at 0";
    EXPECT_EQ(absoluteX(-100, 100, -100, 20), -350);
    EXPECT_EQ(absoluteX(-100, 100, 50, -20), 175) << "a negative flat is none";
    EXPECT_EQ(absoluteX(-100, 100, 50, 100), 175) << "nor is one that covers the range";
    EXPECT_EQ(absoluteX(-100, 100, 50, INT_MAX), 175);
}

TEST(DaemonAxisMapping, ValuesOutsideTheirRangeAreFullDeflection) {
    EXPECT_EQ(absoluteX(-100, 100, 101), 350);
    EXPECT_EQ(absoluteX(-100, 100, INT_MAX), 350);
    EXPECT_EQ(absoluteX(-100, 100, INT_MIN), -350);
}

TEST(DaemonAxisMapping, WidestRangeDoesNotOverflow) {
    EXPECT_EQ(absoluteX(INT_MIN, INT_MAX, INT_MAX), 350);
    EXPECT_EQ(absoluteX(INT_MIN, INT_MAX, INT_MIN), -350);
    EXPECT_EQ(absoluteX(INT_MIN, INT_MAX, 0), 0);
    EXPECT_EQ(absoluteX(INT_MIN, INT_MAX, INT_MAX / 2), 175);
    EXPECT_EQ(absoluteX(INT_MIN, INT_MAX, INT_MAX, INT_MAX), 350);
    EXPECT_EQ(absoluteX(INT_MAX - 1, INT_MAX, INT_MAX), 350);
}

TEST(DaemonAxisMapping, AxesWithoutARangeDoNotMove) {
    for (const auto &[minimum, maximum] :
         {std::pair(0, 0), std::pair(5, 5), std::pair(100, -100), std::pair(INT_MAX, INT_MIN)}) {
        Mapped mapped(absoluteAxes(), ranges(minimum, maximum));
        EXPECT_EQ(mapped.mapping.axisCount(), 0U);
        EXPECT_FALSE(mapped.absolute(ABS_X, 5).absolute(ABS_RZ, INT_MIN).endReport());
        EXPECT_EQ(mapped.axes(), AxisMapping::Axes{});
    }
}

TEST(DaemonAxisMapping, RelativeAxesAreTakenAsTheyCome) {
    EXPECT_EQ(relativeX(100), 100);
    EXPECT_EQ(relativeX(-500), -500);
    EXPECT_EQ(relativeX(INT_MAX), 32767);
    EXPECT_EQ(relativeX(INT_MIN), -32768);
}

TEST(DaemonAxisMapping, DeadZoneIsRestAndFullDeflectionStays) {
    const AxisSettings settings{.deadZone = 50, .scale = 1};
    EXPECT_EQ(relativeX(50, settings), 0);
    EXPECT_EQ(relativeX(-50, settings), 0);
    EXPECT_EQ(relativeX(200, settings), 175);
    EXPECT_EQ(relativeX(-200, settings), -175);
    EXPECT_EQ(relativeX(350, settings), 350);
    EXPECT_EQ(absoluteX(-1000, 1000, 1000, 0, settings), 350);
    EXPECT_EQ(relativeX(4, AxisSettings{}), 0);
    EXPECT_EQ(relativeX(100, AxisSettings{}), 97);
}

TEST(DaemonAxisMapping, DeadZoneThatMakesNoSenseIsBounded) {
    EXPECT_EQ(relativeX(100, {.deadZone = -5, .scale = 1}), 100);
    EXPECT_EQ(relativeX(100, {.deadZone = std::nan(""), .scale = 1}), 100);
    EXPECT_EQ(relativeX(350, {.deadZone = INFINITY, .scale = 1}), 350);
    EXPECT_EQ(relativeX(349, {.deadZone = INFINITY, .scale = 1}), 0);
}

TEST(DaemonAxisMapping, ScaleMultipliesAndSaturates) {
    EXPECT_EQ(relativeX(300, {.deadZone = 0, .scale = 0.5}), 150);
    EXPECT_EQ(absoluteX(-10, 10, 10, 0, {.deadZone = 0, .scale = 2}), 700);
    EXPECT_EQ(relativeX(350, {.deadZone = 0, .scale = 100}), 32767);
    EXPECT_EQ(relativeX(-350, {.deadZone = 0, .scale = 100}), -32768);
    EXPECT_EQ(relativeX(350, {.deadZone = 0, .scale = std::nan("")}), 350);
}

TEST(DaemonAxisMapping, EveryAxisHasItsPlace) {
    Mapped relative(relativeAxes());
    Mapped absolute(absoluteAxes(), ranges(-350, 350));
    EXPECT_EQ(relative.mapping.axisCount(), 6U);
    EXPECT_EQ(absolute.mapping.axisCount(), 6U);
    for (uint16_t code = 0; code < 6; ++code) {
        relative.relative(code, 10 * (code + 1));
        absolute.absolute(code, -10 * (code + 1));
    }
    EXPECT_TRUE(relative.endReport());
    EXPECT_TRUE(absolute.endReport());
    EXPECT_THAT(relative.axes(), ElementsAre(10, 20, 30, 40, 50, 60));
    EXPECT_THAT(absolute.axes(), ElementsAre(-10, -20, -30, -40, -50, -60));
}

TEST(DaemonAxisMapping, OtherEventsAreIgnored) {
    Mapped relative(relativeAxes());
    relative.relative(REL_WHEEL, 5).relative(0xFFFF, 5).absolute(ABS_X, 5).take(EV_KEY, REL_X, 5);
    EXPECT_FALSE(relative.endReport());
    Mapped absolute(absoluteAxes(), ranges(-350, 350));
    absolute.absolute(ABS_THROTTLE, 5).absolute(0xFFFF, 5).relative(REL_X, 5).take(0xFFFF, ABS_X, 5);
    EXPECT_FALSE(absolute.endReport());
    EXPECT_EQ(absolute.axes(), AxisMapping::Axes{});
    EXPECT_FALSE(Mapped(InputCapabilities{}).relative(REL_X, 5).absolute(ABS_X, 5).endReport());
}

TEST(DaemonAxisMapping, NothingMovesBeforeTheReportIsWhole) {
    Mapped mapped(relativeAxes());
    mapped.relative(REL_X, 100);
    EXPECT_EQ(mapped.axes()[0], 0);
    EXPECT_TRUE(mapped.relative(REL_X, 120).endReport());
    EXPECT_EQ(mapped.axes()[0], 120) << "the last one counts";
}

TEST(DaemonAxisMapping, AbsoluteAxesStayUntilTheyChange) {
    Mapped mapped(absoluteAxes(), ranges(-350, 350));
    EXPECT_TRUE(mapped.absolute(ABS_X, 100).endReport());
    EXPECT_FALSE(mapped.endReport());
    EXPECT_FALSE(mapped.absolute(ABS_X, 100).endReport()) << "no news";
    EXPECT_TRUE(mapped.absolute(ABS_RZ, -5).endReport());
    EXPECT_THAT(mapped.axes(), ElementsAre(100, 0, 0, 0, 0, -5));
    EXPECT_FALSE(mapped.mapping.restDue().has_value());
    mapped.now += 1h;
    EXPECT_FALSE(mapped.mapping.restSilentAxes(mapped.now));
    EXPECT_TRUE(mapped.absolute(ABS_X, 0).endReport());
    EXPECT_THAT(mapped.axes(), ElementsAre(0, 0, 0, 0, 0, -5));
}

TEST(DaemonAxisMapping, RelativeAxesThatAReportLeavesOutAreAtRest) {
    Mapped mapped(relativeAxes());
    EXPECT_TRUE(mapped.relative(REL_X, 100).relative(REL_Y, 50).endReport());
    EXPECT_TRUE(mapped.relative(REL_X, 80).endReport());
    EXPECT_THAT(mapped.axes(), ElementsAre(80, 0, 0, 0, 0, 0));
    EXPECT_TRUE(mapped.relative(REL_X, 0).endReport());
    EXPECT_EQ(mapped.axes(), AxisMapping::Axes{});
    EXPECT_FALSE(mapped.mapping.restDue().has_value());
}

TEST(DaemonAxisMapping, ReportsWithoutAxesLeaveThemAsTheyAre) {
    Mapped mapped(relativeAxes());
    EXPECT_TRUE(mapped.relative(REL_X, 100).endReport());
    EXPECT_FALSE(mapped.endReport());
    EXPECT_EQ(mapped.axes()[0], 100);
}

TEST(DaemonAxisMapping, DeflectedRelativeAxesAreToldEveryTime) {
    Mapped mapped(relativeAxes(), {}, {.deadZone = 10, .scale = 1});
    EXPECT_TRUE(mapped.relative(REL_X, 100).endReport());
    EXPECT_TRUE(mapped.relative(REL_X, 100).endReport());
    EXPECT_TRUE(mapped.relative(REL_X, 0).endReport());
    EXPECT_FALSE(mapped.relative(REL_X, 0).endReport()) << "still at rest";
    EXPECT_FALSE(mapped.relative(REL_X, 7).endReport()) << "in the dead zone";
}

TEST(DaemonAxisMapping, TranslationsAndRotationsMayComeInTurns) {
    Mapped mapped(relativeAxes());
    EXPECT_TRUE(mapped.relative(REL_X, 100).endReport());
    EXPECT_TRUE(mapped.relative(REL_RX, 30).endReport());
    EXPECT_THAT(mapped.axes(), ElementsAre(100, 0, 0, 30, 0, 0));
    EXPECT_TRUE(mapped.relative(REL_Y, 20).endReport());
    EXPECT_THAT(mapped.axes(), ElementsAre(0, 20, 0, 30, 0, 0));
}

TEST(DaemonAxisMapping, TranslationsAndRotationsMayComeTogether) {
    Mapped mapped(relativeAxes());
    EXPECT_TRUE(mapped.relative(REL_X, 100).relative(REL_RX, 30).endReport());
    EXPECT_TRUE(mapped.relative(REL_X, 100).endReport());
    EXPECT_THAT(mapped.axes(), ElementsAre(100, 0, 0, 0, 0, 0)) << "such a device would have said so";
}

TEST(DaemonAxisMapping, SilentRelativeAxesComeToRest) {
    Mapped mapped(relativeAxes());
    EXPECT_FALSE(mapped.mapping.restDue().has_value());
    EXPECT_TRUE(mapped.relative(REL_X, 100).endReport());
    EXPECT_EQ(mapped.mapping.restDue(), mapped.now + 100ms);
    EXPECT_FALSE(mapped.mapping.restSilentAxes(mapped.now + 99ms));
    EXPECT_EQ(mapped.axes()[0], 100);
    EXPECT_TRUE(mapped.mapping.restSilentAxes(mapped.now + 100ms));
    EXPECT_EQ(mapped.axes(), AxisMapping::Axes{});
    EXPECT_FALSE(mapped.mapping.restDue().has_value());
}

TEST(DaemonAxisMapping, TranslationsAndRotationsFallSilentEachOnItsOwn) {
    Mapped mapped(relativeAxes());
    const Mapped::Time start = mapped.now;
    EXPECT_TRUE(mapped.relative(REL_Z, 100).endReport());
    mapped.now = start + 60ms;
    EXPECT_TRUE(mapped.relative(REL_RZ, 30).endReport());
    EXPECT_EQ(mapped.mapping.restDue(), start + 100ms);
    EXPECT_TRUE(mapped.mapping.restSilentAxes(start + 120ms));
    EXPECT_THAT(mapped.axes(), ElementsAre(0, 0, 0, 0, 0, 30));
    EXPECT_EQ(mapped.mapping.restDue(), start + 160ms);
    EXPECT_TRUE(mapped.mapping.restSilentAxes(start + 160ms));
    EXPECT_EQ(mapped.axes(), AxisMapping::Axes{});
}

TEST(DaemonAxisMapping, LostEventsTakeWhatThereIsOfRelativeAxes) {
    Mapped relative(relativeAxes());
    relative.relative(REL_X, 100);
    relative.mapping.eventsWereLost();
    EXPECT_FALSE(relative.endReport());
    Mapped absolute(absoluteAxes(), ranges(-350, 350));
    absolute.absolute(ABS_X, 100);
    absolute.mapping.eventsWereLost();
    EXPECT_TRUE(absolute.endReport()) << "the device does not tell it once more";
    EXPECT_EQ(absolute.axes()[0], 100);
}

TEST(DaemonAxisMapping, AbsoluteAxesArePreferredIfTheyHaveARange) {
    InputCapabilities both = absoluteAxes();
    both.relative = relativeAxes().relative;
    EXPECT_EQ(Mapped(both, ranges(-10, 10)).x(EV_ABS, 10), 350);
    EXPECT_EQ(Mapped(both, ranges(-10, 10)).x(EV_REL, 10), 0);
    EXPECT_EQ(Mapped(both, ranges(0, 0)).x(EV_REL, 10), 10);
}

TEST(DaemonAxisMapping, TriggersOfGamepadsRestAtTheirMinimum) {
    InputCapabilities pad = absoluteAxes();
    pad.keys[BTN_SOUTH] = true;
    const auto z = [&](const AxisRanges &all, int32_t value) {
        Mapped mapped(pad, all);
        (void)mapped.absolute(ABS_Z, value).endReport();
        return mapped.axes()[2];
    };
    EXPECT_EQ(z(ranges(0, 255), 0), 0);
    EXPECT_EQ(z(ranges(0, 255), 51), 70);
    EXPECT_EQ(z(ranges(0, 255), 255), 350);
    EXPECT_EQ(z(ranges(0, 255, 15), 0), -350) << "a second stick";
    EXPECT_EQ(z(ranges(-128, 127), -128), -350);
    pad.absolute[ABS_RX] = false;
    EXPECT_EQ(z(ranges(0, 255), 0), -350) << "the second stick has to be somewhere";
}

} // namespace
} // namespace moxel::daemon
