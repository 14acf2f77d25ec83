#include "DaemonProcess.h"

#include "Platform/Bundle.h"

#include <string_view>
#include <unistd.h>
#include <utility>

namespace moxel::tool {

namespace {

constexpr const char *daemonName = "moxeld";
constexpr size_t textLimit = 4096;

} // namespace

std::string findDaemon(const std::string &given) {
    if (!given.empty())
        return given;
    const std::string own = mainBundle().executablePath.value_or("");
    const std::string folder = own.substr(0, own.rfind('/') + 1);
    for (const char *place : {"", "../sbin/", "../libexec/", "../libexec/moxel/", "../Daemon/"}) {
        std::string path = folder + place + daemonName;
        if (!folder.empty() && ::access(path.c_str(), X_OK) == 0)
            return path;
    }
    return daemonName;
}

Result<DaemonProcess> DaemonProcess::start(const std::string &program,
                                           const std::vector<std::string> &arguments) {
    std::vector<std::string> commandLine{program};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    Result<ChildProcess> process = ChildProcess::start(std::move(commandLine), ChildProcess::Piped::output);
    if (!process.ok())
        return process.error();
    return DaemonProcess(*std::move(process));
}

bool DaemonProcess::readOutput() {
    return process_.read(
        [this](std::string_view read) { text_ += read.substr(0, textLimit - text_.size()); });
}

std::string DaemonProcess::readyLine() const {
    const size_t end = text_.find('\n');
    return end == std::string::npos ? "" : text_.substr(0, end);
}

} // namespace moxel::tool
