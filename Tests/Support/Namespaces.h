// A system of one's own for a child process: namespaces in which it may mount over the machine's folders.
#pragma once

#include "Support/ChildProcess.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace moxel::test {

/// False where the system does not let the user have user and mount namespaces of his own.
inline bool canMakeNamespaces() {
    static const bool possible = [] {
        ChildProcess probe(
            {"unshare", "--map-root-user", "--mount", "--", "mount", "-t", "tmpfs", "none", "/run"});
        return probe.exitStatus() == 0;
    }();
    return possible;
}

// What follows is for processes in ChildProgram::Place::ownNamespaces.

/// Hides what the folder holds behind an empty folder.
inline void mountEmpty(const char *folder) {
    if (::mount("none", folder, "tmpfs", 0, nullptr) != 0)
        ChildProgram::skip(std::string("cannot mount over ") + folder);
}

/// Makes the process seem to run in a control group of the service manager; needs an empty /run.
inline void pretendControlGroup(const std::string &path) {
    const std::string file = "/run/control-group";
    std::ofstream(file) << "1:name=systemd:" << path << "\n0::" << path << '\n';
    const std::string place = "/proc/" + std::to_string(::getpid()) + "/cgroup";
    if (::mount(file.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) != 0)
        ChildProgram::skip("cannot mount over " + place);
}

} // namespace moxel::test
