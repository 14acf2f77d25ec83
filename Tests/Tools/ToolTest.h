// moxelctl as a process, with a daemon on a bus of the test's own.
#pragma once

#include "Moxel Daemon/Daemon.h"
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Support/Await.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace moxel::test {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;
using Json = nlohmann::ordered_json;

/// What a program that has ended has left.
struct Finished {
    int exitCode = -1;
    std::string output;
    std::string errors;
};

inline Finished finish(ChildProcess &process) {
    Finished finished;
    finished.output = process.readOutput();
    finished.errors = process.readErrors();
    finished.exitCode = process.exitStatus();
    return finished;
}

/// Starts without a daemon.
class ToolTest : public ::testing::Test {
  protected:
    using Arguments = std::vector<std::string>;

    [[nodiscard]] ChildProcess::Environment environment() const {
        return {{"MOXEL_HID_BUS", bus}, {"MOXEL_LOG", "off"}, {"LC_ALL", "C.UTF-8"}};
    }
    [[nodiscard]] ChildProcess start(const std::string &program, Arguments arguments) const {
        arguments.insert(arguments.begin(), program);
        return ChildProcess(arguments, environment());
    }
    [[nodiscard]] ChildProcess startTool(Arguments arguments) const {
        return start(MOXELCTL, std::move(arguments));
    }
    /// Runs moxelctl to its end; the input must fit into a pipe.
    [[nodiscard]] Finished run(Arguments arguments, std::string_view input = {}) const {
        ChildProcess tool = startTool(std::move(arguments));
        if (!input.empty())
            tool.write(input);
        tool.closeInput();
        return finish(tool);
    }

    void startDaemon(daemon::Options options = {}) {
        options.busFolder = bus;
        options.sliceTimeout = patience; // A busy machine may hold the tool up between two slices.
        Result<std::unique_ptr<daemon::Daemon>> started = daemon::Daemon::start(std::move(options));
        ASSERT_TRUE(started.ok()) << started.error().message;
        moxeld = *std::move(started);
    }
    void startDaemonWithFault(const std::string &fault) {
        daemon::Options options;
        ASSERT_TRUE(daemon::addFault(options.faults, fault).ok());
        startDaemon(std::move(options));
    }
    /// Plays a trace from the moment that a client registers.
    void play(const std::string &trace) const {
        const Result<daemon::TraceBlock> block = daemon::parseTrace(trace);
        ASSERT_TRUE(block.ok()) << block.error().message;
        ASSERT_TRUE(moxeld->playTrace(*block, {.waitForClient = true}).ok());
    }
    /// Makes one thing happen now.
    void happen(const std::string &event) const {
        const Result<daemon::TraceBlock> block = daemon::parseTrace(event);
        ASSERT_TRUE(block.ok()) << block.error().message;
        ASSERT_TRUE(moxeld->playTrace(*block).ok());
    }
    /// True when a client is there that has asked for all buttons, as most commands do first.
    [[nodiscard]] bool awaitListener() const {
        return moxeld->waitUntil(
            [](const daemon::Observation &seen) {
                return seen.clients.size() == 1 && seen.clients[0].buttonMask == 0xFFFFFFFF;
            },
            patience);
    }
    [[nodiscard]] bool awaitNoClients() const {
        return moxeld->waitUntil([](const daemon::Observation &seen) { return seen.clients.empty(); },
                                 patience);
    }

    TemporaryFolder folder;
    const std::string bus = folder.path("bus");
    std::unique_ptr<daemon::Daemon> moxeld;
};

} // namespace moxel::test
