// One thing that the doctor has looked at.
#pragma once

#include "ExitCode.h"

#include <string>
#include <utility>

namespace moxel::tool {

struct Check {
    enum class State { ok, wrong, skipped };

    std::string name; ///< One word.
    State state = State::skipped;
    std::string finding; ///< What is so, or what is wrong, in words.
    std::string remedy;  ///< What to do about it, in lines; empty unless something is wrong.
    int exitCode = success;

    static Check ok(std::string name, std::string finding) {
        return {std::move(name), State::ok, std::move(finding), "", success};
    }
    static Check wrong(std::string name, std::string finding, std::string remedy, int exitCode) {
        return {std::move(name), State::wrong, std::move(finding), std::move(remedy), exitCode};
    }
    static Check skipped(std::string name, std::string reason) {
        return {std::move(name), State::skipped, std::move(reason), "", success};
    }
};

} // namespace moxel::tool
