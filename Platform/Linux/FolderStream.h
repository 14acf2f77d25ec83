// An open folder whose entries are read.
#pragma once

#include "Platform/Linux/Descriptor.h"

#include <dirent.h>
#include <memory>
#include <utility>

namespace moxel {

struct FolderStreamCloser {
    void operator()(DIR *stream) const noexcept { ::closedir(stream); }
};
/// Reads with readdir(). On one thread.
using FolderStream = std::unique_ptr<DIR, FolderStreamCloser>;

/// Takes the folder over. Null, with errno set, when there is none or it cannot be read.
[[nodiscard]] inline FolderStream readEntriesOf(Descriptor folder) {
    FolderStream stream(folder ? ::fdopendir(folder.get()) : nullptr);
    if (stream)
        (void)folder.release(); // The stream closes it.
    return stream;
}

} // namespace moxel
