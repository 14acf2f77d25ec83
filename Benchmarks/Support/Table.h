// Prints what was measured as rows of a Markdown table; Benchmarks/run writes its head.
#pragma once

#include <cstdio>
#include <string>

namespace moxel::benchmarks {

/// How a figure is held to its limit.
struct Goal {
    enum class Kind { atMost, atLeast, below } kind;
    double limit;

    [[nodiscard]] bool isMetBy(double figure) const {
        switch (kind) {
        case Kind::atMost:
            return figure <= limit;
        case Kind::atLeast:
            return figure >= limit;
        case Kind::below:
            return figure < limit;
        }
        return false;
    }
    [[nodiscard]] const char *sign() const {
        return kind == Kind::atMost ? "≤" : kind == Kind::atLeast ? "≥" : "<";
    }
};

inline constexpr Goal atMost(double limit) { return {Goal::Kind::atMost, limit}; }
inline constexpr Goal atLeast(double limit) { return {Goal::Kind::atLeast, limit}; }
inline constexpr Goal below(double limit) { return {Goal::Kind::below, limit}; }

/// Growth with this power of the size still counts as linear: larger sizes miss the caches more often.
inline constexpr Goal linear = atMost(1.15);

/// A number with three digits that count.
inline std::string digits(double number) {
    char text[32];
    const double size = number < 0 ? -number : number;
    const int places = size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 || size == 0 ? 2 : 3;
    std::snprintf(text, sizeof text, "%.*f", places, number);
    return text;
}

/// A time with its unit.
inline std::string duration(double seconds) {
    const double size = seconds < 0 ? -seconds : seconds;
    return size < 1e-6   ? digits(seconds * 1e9) + " ns"
           : size < 1e-3 ? digits(seconds * 1e6) + " µs"
           : size < 1    ? digits(seconds * 1e3) + " ms"
                         : digits(seconds) + " s";
}

/// `figure` is what the goal speaks of: a ratio in most rows.
inline void printRow(const std::string &what, const std::string &beside, const std::string &itsFigure,
                     const std::string &ours, double figure, Goal goal) {
    std::printf("| %s | %s | %s | %s | %s | %s %s | %s |\n", what.c_str(), beside.c_str(), itsFigure.c_str(),
                ours.c_str(), digits(figure).c_str(), goal.sign(), digits(goal.limit).c_str(),
                goal.isMetBy(figure) ? "yes" : "**no**");
    std::fflush(stdout);
}

/// A row of two times whose ratio has a goal.
inline void printTimes(const std::string &what, const std::string &beside, double itsTime, double ourTime,
                       Goal goal) {
    printRow(what, beside, duration(itsTime), duration(ourTime), ourTime / itsTime, goal);
}

/// For a row that cannot be measured.
inline void printMissing(const std::string &what, const std::string &peer,
                         const std::string &reason = "was not found when this was built") {
    std::fprintf(stderr, "%s: left out, because %s %s\n", what.c_str(), peer.c_str(), reason.c_str());
}

} // namespace moxel::benchmarks
