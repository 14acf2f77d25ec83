// "moxelctl record": writes the events of a session to a trace.
#include "Commands.h"
#include "Complaint.h"
#include "EventLoop.h"
#include "EventMask.h"
#include "ExitCode.h"
#include "Recorder.h"
#include "Values/Format.h"

#include <cerrno>
#include <cstdio>

namespace moxel::tool {

namespace {

using End = EventLoop::End;

class RecordCommand final : public Command {
  public:
    RecordCommand() : Command("record", "Write the events of a session to a trace") {}

    int run() override {
        Result<TraceFile> file = TraceFile::create(path_, overwrites_);
        if (!file.ok()) {
            complain(file.error().message, file.error().code == EEXIST ? "--force writes over it." : "");
            return failure;
        }
        file->add({}, "# Recorded by moxelctl; \"moxelctl replay\" and \"moxeld --trace\" play it.");
        EventLoop loop;
        Recorder recorder(*file);
        ClientSession session;
        if (const int code = session.begin(recorder.handlers(), "moxelctl", events_); code != success)
            return code;
        SetMoxelClientButtonMask(session.clientID(), everything);
        Result<void> written;
        const End end = loop.run({.seconds = seconds_, .endsWithOutput = path_ == "-", .isDone = [&] {
                                      written = file->flush();
                                      return !written.ok() || (count_ && recorder.count() >= *count_);
                                  }});
        recorder.finish();
        if (written.ok())
            written = file->flush();
        std::fprintf(stderr, "%s\n", recorder.summary().c_str());
        return exitCode(end, written);
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("FILE", path_, "Trace to write; - is standard output")->required()->type_name("");
        command.add_option("--seconds", seconds_, "End after so many seconds")
            ->check(CLI::Range(0.0, 1e6))
            ->type_name("N");
        command.add_option("--count", count_, "End after so many events")->type_name("N");
        addEventMask(command, "--events", events_, "Events to ask for (default: all)");
        command.add_flag("--force", overwrites_, "Write over a file that is there");
        command.footer(
            R"(
Events are written as they come; Ctrl-C ends the trace. What a trace has no event for
becomes a comment in it.

Examples:
  moxelctl record session.trace
  moxelctl record session.trace --seconds 10 --force
  moxelctl record - | grep buttons)");
    }

    [[nodiscard]] static int exitCode(End end, const Result<void> &written) {
        if (!written.ok() && written.error().code != EPIPE) {
            complain(written.error().message);
            return failure;
        }
        if (end != End::driverLeft)
            return success;
        complain("the driver went away; the trace holds what came before");
        return noDriver;
    }

    std::string path_;
    std::optional<double> seconds_;
    std::optional<uint64_t> count_;
    uint32_t events_ = everything;
    bool overwrites_ = false;
};

} // namespace

std::unique_ptr<Command> makeRecordCommand() { return std::make_unique<RecordCommand>(); }

} // namespace moxel::tool
