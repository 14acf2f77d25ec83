// The folder that is the bus: made, checked, and the sockets in it put up and taken away.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <memory>
#include <string>
#include <sys/types.h>

namespace moxel::daemon {

class BusFolder;

/// A listening socket under its name in the folder; destroying it removes the name. Lives on one thread.
class PublishedSocket {
  public:
    PublishedSocket(PublishedSocket &&other) noexcept = default;
    PublishedSocket &operator=(PublishedSocket &&other) = delete;
    ~PublishedSocket();

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }

  private:
    friend class BusFolder;
    PublishedSocket(std::shared_ptr<const BusFolder> folder, std::string fileName, Descriptor socket);

    /// False once the name stands for a socket of somebody else.
    [[nodiscard]] bool nameIsOurs() const;

    std::shared_ptr<const BusFolder> folder_;
    std::string fileName_;
    Descriptor socket_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

/// Any thread.
class BusFolder : public std::enable_shared_from_this<BusFolder> {
  public:
    /// The errors of publish() carry this code when a running publisher holds the name.
    static constexpr int alreadyPublished = EADDRINUSE;

    /// Where the bus is when nobody says otherwise.
    static std::string defaultPath();

    /// Makes the folder when it is not there, for its owner alone. Refuses one that belongs to neither root
    /// nor the user, or that others may write.
    static Result<std::shared_ptr<const BusFolder>> open(const std::string &path);

    /// Puts a listening socket up under `name`. One that an ended process left there is replaced.
    [[nodiscard]] Result<PublishedSocket> publish(const std::string &name) const;

    [[nodiscard]] const std::string &path() const noexcept { return path_; }

    BusFolder(std::string path, Descriptor descriptor);

  private:
    friend class PublishedSocket;

    [[nodiscard]] Result<void> bindAs(int socket, const std::string &fileName) const;
    [[nodiscard]] Result<void> checkVacant(const std::string &fileName) const;

    std::string path_;
    Descriptor descriptor_;
};

} // namespace moxel::daemon
