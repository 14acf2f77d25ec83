#include "Endurance/FaultPlan.h"

#include "Endurance/Random.h"

#include <array>
#include <cstddef>

namespace moxel::endurance {

namespace {

using Fault = FaultPlan::Fault;

struct Likelihood {
    Fault fault;
    uint64_t percent;
};

// Those that make calls wait for seconds are drawn less often than others.
constexpr std::array likelihoods{
    Likelihood{Fault::none, 5},          Likelihood{Fault::daemonSwitch, 20},
    Likelihood{Fault::daemonKilled, 15}, Likelihood{Fault::daemonStopped, 4},
    Likelihood{Fault::fullDisk, 12},     Likelihood{Fault::readOnlyFolder, 9},
    Likelihood{Fault::allocation, 25},   Likelihood{Fault::descriptors, 10},
};

std::string hexadecimal(uint64_t number) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text = "0x";
    text += digits[number >> 4 & 15];
    text += digits[number & 15];
    return text;
}

std::string drawSwitch(Random &random) {
    // Short delays mostly; some are longer than any call waits.
    const std::string delay = std::to_string(random.oneIn(10) ? 2600 : random.below(200));
    constexpr uint8_t written[] = {0x44, 0x46, 0x53, 0x63, 0x73};
    switch (random.below(19)) {
    case 0:
        return "no-base-channel";
    case 1:
        return "refuse-base-open";
    case 2:
        return "no-dedicated-channel";
    case 3:
        return "refuse-dedicated-open";
    case 4:
        return "late-dedicated-channel=" + delay;
    case 5:
        return "drop-channel-after-registration";
    case 6:
        return "unresponsive";
    case 7:
        return "refuse-set-report=" + hexadecimal(random.pick(written));
    case 8:
        return "refuse-get-report=0x54";
    case 9:
        return "no-registration-answer";
    case 10:
        return "late-registration-answer=" + delay;
    case 11:
        return "no-acknowledgement";
    case 12:
        return "late-acknowledgement=" + delay;
    case 13:
        return "duplicate-acknowledgement";
    case 14:
        return "announced-size=" + std::to_string(random.below(4096));
    case 15:
        return "payload-length=" + std::to_string(random.below(65536));
    case 16:
        return "data-id=" + std::to_string(random.below(65536));
    case 17:
        return "no-last-packet";
    default:
        return "malformed-archive";
    }
}

} // namespace

const char *faultName(Fault fault) {
    switch (fault) {
    case Fault::none:
        return "no fault";
    case Fault::daemonSwitch:
        return "faulty daemon";
    case Fault::daemonKilled:
        return "daemon killed";
    case Fault::daemonStopped:
        return "daemon stopped";
    case Fault::fullDisk:
        return "full disk";
    case Fault::readOnlyFolder:
        return "read-only folder";
    case Fault::allocation:
        return "failing allocation";
    case Fault::descriptors:
        return "no descriptors";
    }
    return "";
}

FaultPlan FaultPlan::draw(uint64_t seed, uint64_t number) {
    Random random(seed, number);
    FaultPlan plan;
    uint64_t share = random.below(100);
    for (const Likelihood &likelihood : likelihoods) {
        plan.fault = likelihood.fault;
        if (share < likelihood.percent)
            break;
        share -= likelihood.percent;
    }
    if (plan.fault == Fault::daemonSwitch)
        for (uint64_t count = 1 + random.below(2); count > 0; --count)
            plan.switches.push_back(drawSwitch(random));
    plan.delayMicroseconds = random.spread(4) * 10;
    plan.firstAllocation = random.spread(4);
    plan.failedAllocations = random.oneIn(4) ? 1 + random.below(50) : 1;
    plan.room = plan.fault == Fault::fullDisk ? random.spread(4) : random.below(24);
    plan.isThreaded = random.oneIn(2);
    plan.logs = random.oneIn(3);
    for (uint64_t count = random.below(7); count > 0; --count)
        plan.steps.push_back(static_cast<Step>(random.below(static_cast<uint64_t>(Step::dispatch) + 1)));
    return plan;
}

std::string FaultPlan::description() const {
    std::string text = faultName(fault);
    for (const std::string &each : switches)
        text += " " + each;
    switch (fault) {
    case Fault::daemonKilled:
    case Fault::daemonStopped:
        text += " after " + std::to_string(delayMicroseconds) + " us";
        break;
    case Fault::allocation:
        text +=
            " " + std::to_string(firstAllocation) + " and " + std::to_string(failedAllocations - 1) + " more";
        break;
    case Fault::fullDisk:
    case Fault::descriptors:
        text += " but for " + std::to_string(room);
        break;
    default:
        break;
    }
    return text + (isThreaded ? ", threaded" : ", forwarded") + (logs ? ", with log, " : ", ") +
           std::to_string(steps.size()) + " calls";
}

} // namespace moxel::endurance
