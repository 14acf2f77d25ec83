// Watches the folder of the user-space bus and reports the sockets in it.
#pragma once

#include "Platform/Linux/AncestorWatches.h"
#include "Platform/Linux/BusSocket.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/Inotify.h"
#include "Platform/RunLoop.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <sys/stat.h>

namespace moxel {

/// The folder may be missing, come, go, come again, and change hands; it is used only while it belongs to
/// root or to this user and nobody else may write to it. Lives on its run loop's thread.
class BusFolder {
  public:
    /// Receives every socket that is or may be new; one may be reported several times.
    using Found = std::function<void(BusSocket socket)>;
    /// Asks for a call of rescan() in a while.
    using RescanLater = std::function<void()>;

    /// Where this process finds its bus.
    [[nodiscard]] static std::string standardPath();
    /// Why a folder is not to be used as a bus; empty when it is to be trusted.
    [[nodiscard]] static std::string reasonNotToTrust(const struct stat &status);

    /// `path` is absolute.
    BusFolder(std::string path, RunLoop &runLoop, Found found, RescanLater rescanLater);
    ~BusFolder() = default;
    BusFolder(const BusFolder &) = delete;
    BusFolder &operator=(const BusFolder &) = delete;

    /// Watches and lists the folder, or what there is of the path to it, anew.
    void rescan();
    /// Logs once that descriptors or the like are used up, and has the folder listed again in a while.
    void shortageOccurred(const Error &error);

    [[nodiscard]] const std::string &path() const noexcept { return path_; }

  private:
    struct News {
        bool ofFolder = false; ///< Of the folder itself or of the path that leads to it.
        std::set<std::string> names;
    };

    void startWatching();
    [[nodiscard]] bool findFolder();
    void useFolder(Descriptor folder);
    void watchFolder(int folder);
    [[nodiscard]] std::string reasonNotToUse(int folder, FileIdentity &identity) const;
    void complain(const std::string &reason);
    void list(Descriptor folder);
    void lookAt(const std::set<std::string> &names);
    void consider(int folder, const std::string &name);
    void eventsAreReady();
    void collect(const InotifyEvent &event, News &news) const;

    const std::string path_;
    RunLoop &runLoop_;
    const Found found_;
    const RescanLater rescanLater_;

    std::optional<Inotify> inotify_;
    std::optional<AncestorWatches> ancestors_; ///< With inotify_.
    RunLoopSource events_;
    int folderWatch_ = -1;
    FileIdentity folderIdentity_; ///< Of the folder in use; zero while there is none.
    std::string complaint_;       ///< The reason that was logged last; empty while there is none.
    bool shortage_ = false;       ///< Met one since the last look began.
    bool shortageLogged_ = false;
};

} // namespace moxel
