// The main bundle from the sandbox, the file layout, the service manager or the executable, in this order.
#include "Platform/Bundle.h"

#include "Platform/Linux/ApplicationIdentity.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>

#include <systemd/sd-login.h>

namespace moxel {

namespace {

bool exists(const std::string &path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

std::optional<std::string> readExecutablePath() {
    std::error_code error;
    std::string path = std::filesystem::read_symlink("/proc/self/exe", error).string();
    if (error || !path.starts_with('/'))
        return std::nullopt;
    // What the kernel appends when the file has been deleted or replaced since.
    constexpr std::string_view deleted = " (deleted)";
    if (path.ends_with(deleted) && !exists(path))
        path.resize(path.size() - deleted.size());
    return path;
}

std::optional<std::string> flatpakApplication() {
    std::ifstream file("/.flatpak-info", std::ios::binary);
    std::array<char, 65536> content{};
    file.read(content.data(), content.size());
    return applicationOfFlatpak({content.data(), static_cast<size_t>(file.gcount())});
}

// Programs started from inside a snap inherit its variables; only the snap's own files lie in its folder.
std::optional<std::string> snapApplication(const std::string &executablePath) {
    const char *folder = ::secure_getenv("SNAP");
    const char *name = ::secure_getenv("SNAP_INSTANCE_NAME");
    if (name == nullptr)
        name = ::secure_getenv("SNAP_NAME");
    if (folder == nullptr || name == nullptr || *folder != '/' || *name == '\0')
        return std::nullopt;
    if (!executablePath.starts_with(std::string(folder) + '/'))
        return std::nullopt;
    return name;
}

std::optional<std::string> unitApplication() {
    char *text = nullptr;
    if (sd_pid_get_user_unit(0, &text) < 0)
        return std::nullopt;
    const std::unique_ptr<char, decltype(&std::free)> unit(text, &std::free);
    return applicationOfUnit(unit.get());
}

// True when the bundle, or the application around it, has a property list that may name it.
bool hasInformation(const std::string &bundlePath) {
    const std::string information = "/Contents/Info.plist";
    constexpr std::string_view extension = ".app";
    const auto application = bundlePath.find(extension);
    return exists(bundlePath + information) ||
           (application != std::string::npos &&
            exists(bundlePath.substr(0, application + extension.size()) + information));
}

} // namespace

MainBundle mainBundle() {
    MainBundle bundle;
    bundle.executablePath = readExecutablePath();
    const std::string executable = bundle.executablePath.value_or("");
    bundle.path = bundlePathOf(executable);
    bundle.executableName = executable.empty() ? std::string(program_invocation_short_name)
                                               : executable.substr(executable.rfind('/') + 1);
    bundle.identifier = flatpakApplication();
    if (!bundle.identifier)
        bundle.identifier = snapApplication(executable);
    if (!bundle.identifier && !hasInformation(bundle.path)) {
        bundle.identifier = unitApplication();
        if (!bundle.identifier)
            bundle.identifier = bundle.executableName;
    }
    return bundle;
}

} // namespace moxel
