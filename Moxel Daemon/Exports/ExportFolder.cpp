#include "Moxel Daemon/Exports/ExportFolder.h"

#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Platform/Folders.h"
#include "Platform/LogText.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel::daemon {

namespace {

/// An application's folder, and the file in it, at least.
constexpr size_t fewestComponents = 2;

int openAt(int folder, const std::string &name, int flags, mode_t mode = 0) {
    int descriptor = -1;
    do {
        descriptor = ::openat(folder, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

/// Opens a file below a folder, component by component; an invalid descriptor and errno on failure.
Descriptor openBelow(Descriptor folder, const std::vector<std::string> &components) {
    for (size_t index = 0; index + 1 < components.size() && folder; ++index)
        folder = Descriptor(openAt(folder.get(), components[index], O_RDONLY | O_DIRECTORY));
    // Not to wait for the other end of a pipe.
    return folder ? Descriptor(openAt(folder.get(), components.back(), O_RDONLY | O_NONBLOCK)) : Descriptor();
}

Result<Data> contentOf(int file, const std::string &path) {
    struct stat status {};
    if (::fstat(file, &status) != 0)
        return systemError("cannot read " + path, errno);
    if (!S_ISREG(status.st_mode))
        return Error{path + " is no regular file", 0};
    if (status.st_size > static_cast<off_t>(propertyListSizeLimit))
        return Error{path + " is too long", 0};
    Data content(static_cast<size_t>(status.st_size));
    for (size_t done = 0; done < content.size();) {
        const ssize_t count = ::read(file, content.data() + done, content.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return systemError("cannot read " + path, count < 0 ? errno : EIO);
        done += static_cast<size_t>(count);
    }
    return content;
}

Result<void> writeAll(int file, const Data &content) {
    for (size_t done = 0; done < content.size();) {
        const ssize_t count = ::write(file, content.data() + done, content.size() - done);
        if (count < 0 && errno != EINTR)
            return systemError("cannot write", errno);
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return ::fsync(file) == 0 ? Result<void>() : systemError("cannot write", errno);
}

} // namespace

std::string ExportFolder::defaultPath() {
    const std::optional<std::string> library = userLibraryFolder();
    return library ? *library + "/Preferences/Moxel/Applications" : std::string();
}

Result<Descriptor> ExportFolder::openFolder() const {
    if (path_.empty())
        return Error{"there is no folder for exports", 0};
    Descriptor folder(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        return systemError("cannot open " + path_, errno);
    return folder;
}

Result<std::vector<std::string>> ExportFolder::componentsBelow(const std::string &path) const {
    const Error refusal{printableText(path) + " is refused: it is no file of an application in " + path_, 0};
    if (path_.empty() || !path.starts_with(path_ + '/') || path.find('\0') != std::string::npos)
        return refusal;
    std::vector<std::string> components;
    for (size_t start = path_.size() + 1; start <= path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        components.push_back(path.substr(start, end - start));
        if (components.back().empty() || components.back() == "." || components.back() == "..")
            return refusal;
        start = end + 1;
    }
    if (components.size() < fewestComponents)
        return refusal;
    return components;
}

Result<Value> ExportFolder::read(const std::string &path) const {
    const Result<std::vector<std::string>> components = componentsBelow(path);
    if (!components.ok())
        return components.error();
    Result<Descriptor> folder = openFolder();
    if (!folder.ok())
        return folder.error();
    const std::string name = printableText(path);
    const Descriptor file = openBelow(std::move(*folder), *components);
    if (!file)
        return systemError("cannot open " + name, errno);
    const Result<Data> content = contentOf(file.get(), name);
    if (!content.ok())
        return content.error();
    Result<Value> value = readPropertyList(*content);
    if (!value.ok())
        return Error{name + ": " + value.error().message, 0};
    return value;
}

Result<Data> ExportFolder::readOwn(const std::string &name) const {
    const Result<Descriptor> folder = openFolder();
    if (!folder.ok())
        return folder.error();
    const Descriptor file(openAt(folder->get(), name, O_RDONLY | O_NONBLOCK));
    if (!file && errno == ENOENT)
        return Data();
    if (!file)
        return systemError("cannot open " + path_ + '/' + name, errno);
    return contentOf(file.get(), path_ + '/' + name);
}

Result<void> ExportFolder::replaceOwn(const std::string &name, const Data &content) const {
    const Result<Descriptor> folder = openFolder();
    if (!folder.ok())
        return folder.error();
    const std::string temporary = '.' + name + '.' + std::to_string(::getpid());
    ::unlinkat(folder->get(), temporary.c_str(), 0); // Left by a process of that number that was cut off.
    const Descriptor file(openAt(folder->get(), temporary, O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (!file)
        return systemError("cannot write into " + path_, errno);
    Result<void> written = writeAll(file.get(), content);
    if (written.ok() && ::renameat(folder->get(), temporary.c_str(), folder->get(), name.c_str()) != 0)
        written = systemError("cannot replace " + path_ + '/' + name, errno);
    if (!written.ok())
        ::unlinkat(folder->get(), temporary.c_str(), 0);
    return written;
}

Result<void> ExportFolder::renameOwn(const std::string &name, const std::string &newName) const {
    const Result<Descriptor> folder = openFolder();
    if (!folder.ok())
        return folder.error();
    if (::renameat(folder->get(), name.c_str(), folder->get(), newName.c_str()) != 0)
        return systemError("cannot rename " + path_ + '/' + name, errno);
    return {};
}

} // namespace moxel::daemon
