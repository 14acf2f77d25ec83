// "moxelctl send": hands the driver bytes as they are.
#include "ClientSession.h"
#include "Commands.h"
#include "Complaint.h"
#include "DriverLog.h"
#include "ExitCode.h"
#include "InputFile.h"
#include "Output.h"
#include "Values/Format.h"

#include <nlohmann/json.hpp>

namespace moxel::tool {

namespace {

/// The library sends no more than this at once.
constexpr size_t sliceSize = 2042;

class SendCommand final : public Command {
  public:
    SendCommand() : Command("send", "Send the driver a file's bytes as a message") {}

    int run() override {
        const Result<std::vector<uint8_t>> content = readInput(path_);
        if (!content.ok()) {
            complain(content.error().message);
            return failure;
        }
        if (content->empty()) {
            complain(inputName(path_) + " is empty: there is nothing to send");
            return failure;
        }
        ClientSession session;
        if (const int code = session.begin(noHandlers(), "moxelctl"); code != success)
            return code;
        return send(session.clientID(), *content);
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("FILE", path_, "File to send; - is standard input")->required()->type_name("");
        command.add_flag("--json", json_, "Print one JSON object");
        command.footer(
            R"(
Up to 2,042 bytes go out at once and are not acknowledged. More are sent in slices of 2,042
bytes, and the driver acknowledges each; exit code 5 when it does not.

Examples:
  moxelctl send message.plist
  printf 'hello' | moxelctl send -)");
    }

    [[nodiscard]] int send(uint16_t clientID, const std::vector<uint8_t> &content) const {
        const DriverLog log;
        const int16_t result = MoxelClientSendMessage(clientID, 0, content.data(), content.size());
        const std::string error = log.lastError(); // Of a slice before the last one, too.
        if (result != kMoxelResultOK || !error.empty()) {
            complain("the driver did not take the message: " + (error.empty() ? "sending failed" : error),
                     "\"moxelctl list\" shows whether it answers.");
            return noAnswer;
        }
        const size_t slices = (content.size() + sliceSize - 1) / sliceSize;
        if (json_)
            return printResult(nlohmann::ordered_json{{"bytes", content.size()},
                                                      {"slices", slices},
                                                      {"acknowledged", slices > 1}}
                                   .dump() +
                               "\n");
        return printResult(
            slices == 1 ? format("%zu bytes sent\n", content.size())
                        : format("%zu bytes sent in %zu slices, all acknowledged\n", content.size(), slices));
    }

    std::string path_;
    bool json_ = false;
};

} // namespace

std::unique_ptr<Command> makeSendCommand() { return std::make_unique<SendCommand>(); }

} // namespace moxel::tool
