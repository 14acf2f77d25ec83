// Times two things by turns, so that what else the machine does hits both, and takes medians.
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <functional>
#include <utility>
#include <vector>

namespace moxel::benchmarks {

using Clock = std::chrono::steady_clock;

/// Seconds on a clock that never runs backwards.
inline double now() { return std::chrono::duration<double>(Clock::now().time_since_epoch()).count(); }

/// Seconds that the calling thread has had a processor; what else the machine does is not in them.
inline double processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The value below which that share of the values lies.
inline double quantile(std::vector<double> values, double share) {
    const auto last = static_cast<double>(values.size() - 1);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(std::lround(last * share));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

inline double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }

/// What several subjects measured in the rounds, by subject.
using RoundsOfSubjects = std::vector<std::vector<double>>;

/// Runs every subject once a round, each round beginning with another one.
inline RoundsOfSubjects inRounds(size_t rounds, const std::vector<std::function<double()>> &subjects) {
    RoundsOfSubjects measured(subjects.size());
    for (size_t round = 0; round < rounds; ++round)
        for (size_t i = 0; i < subjects.size(); ++i) {
            const size_t turn = (round + i) % subjects.size();
            measured[turn].push_back(subjects[turn]());
        }
    return measured;
}

/// Processor time of one call, which does its work on the calling thread: measured over calls that take 10 ms
/// together. What the call returns is freed outside the measured time.
template <class Call>
double secondsPerCall(Call &call) {
    constexpr double enough = 10e-3;
    double sum = 0;
    size_t calls = 0;
    do {
        const double begin = processorTime();
        [[maybe_unused]] const auto result = call();
        sum += processorTime() - begin;
        ++calls;
    } while (sum < enough);
    return sum / static_cast<double>(calls);
}

/// Medians of the processor time that one call of each takes.
template <class... Calls>
std::vector<double> mediansPerCall(size_t rounds, Calls &&...calls) {
    std::vector<double> medians;
    for (std::vector<double> &values :
         inRounds(rounds, {std::function<double()>([&calls] { return secondsPerCall(calls); })...}))
        medians.push_back(median(std::move(values)));
    return medians;
}

/// The power of the size with which the time grows: 1 is linear.
inline double growth(double smallSize, double smallTime, double largeSize, double largeTime) {
    return std::log(largeTime / smallTime) / std::log(largeSize / smallSize);
}

} // namespace moxel::benchmarks
