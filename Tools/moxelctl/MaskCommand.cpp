// "moxelctl mask": sets the masks of a session and shows what still comes.
#include "Commands.h"
#include "Complaint.h"
#include "DriverLog.h"
#include "EventMask.h"
#include "ExitCode.h"
#include "MonitorCommandLine.h"
#include "Values/Format.h"

#include <cstdio>

namespace moxel::tool {

namespace {

class MaskCommand final : public Command {
  public:
    MaskCommand() : Command("mask", "Set the event mask and the button mask, and show what still comes") {}

    int run() override {
        options_.prepare = [this](const ClientSession &session) { return setMasks(session.clientID()); };
        return monitor(options_);
    }

  private:
    void describe(CLI::App &command) override {
        setsEvents_ = addEventMask(command, "--events", events_, "Events that are wanted");
        setsButtons_ = addButtonMask(command, "--buttons", buttons_, "Buttons that are wanted");
        addMonitorOptions(command, options_);
        command.callback([this] {
            if (setsEvents_->empty() && setsButtons_->empty())
                throw CLI::ValidationError("mask", "give --events, --buttons or both");
        });
        command.footer(
            R"(
Masks belong to a session: they end with the command. It registers for all events, sets
the masks that are given, and goes on like "moxelctl monitor".

Exit code 5 when the driver does not acknowledge a mask.

Examples:
  moxelctl mask --events motion
  moxelctl mask --events buttons --buttons 1,2 --seconds 10
  moxelctl mask --buttons 0xFF --seconds 0
      only see whether the driver takes it)");
    }

    /// The functions do not tell whether the driver took the masks; the library's log does.
    [[nodiscard]] int setMasks(uint16_t clientID) const {
        const DriverLog log;
        if (!setsEvents_->empty())
            SetMoxelClientMask(clientID, events_);
        if (!setsButtons_->empty())
            SetMoxelClientButtonMask(clientID, buttons_);
        if (const std::string error = log.lastError(); !error.empty()) {
            complain("the driver does not acknowledge the masks: " + error,
                     "\"moxelctl list\" shows whether it answers.");
            return noAnswer;
        }
        std::string text = "masks set:";
        if (!setsEvents_->empty())
            text += format(" events 0x%08X", events_);
        if (!setsButtons_->empty())
            text += format(" buttons 0x%08X", buttons_);
        std::fprintf(stderr, "%s\n", text.c_str());
        return success;
    }

    MonitorOptions options_;
    uint32_t events_ = everything;
    uint32_t buttons_ = everything;
    const CLI::Option *setsEvents_ = nullptr;
    const CLI::Option *setsButtons_ = nullptr;
};

} // namespace

std::unique_ptr<Command> makeMaskCommand() { return std::make_unique<MaskCommand>(); }

} // namespace moxel::tool
