// A session bus of a test's own, and a program of the session that hears what is posted there.
#pragma once

#include "Support/ChildProcess.h"

#include <nlohmann/json.hpp>

#include <string>

namespace moxel::test {

/// A message bus that listens on an address until the object ends.
class SessionBusDaemon {
  public:
    explicit SessionBusDaemon(const std::string &address)
        : process_({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address,
                    "--print-address"}),
          address_(process_.readLine()) {}
    /// The address with the bus's own identifier.
    [[nodiscard]] const std::string &address() const { return address_; }

  private:
    ChildProcess process_;
    std::string address_;
};

struct PostedNotification {
    std::string name;
    std::string object;
};

/// busctl, which shows every distributed notification that any process posts.
class SessionBusMonitor {
  public:
    /// Returns when the monitor listens.
    explicit SessionBusMonitor(const std::string &address)
        : process_({"sh", "-c",
                    "exec busctl --json=short --address=\"$0\" "
                    "--match=type=signal,interface=com.moxel.DistributedNotificationCenter monitor 2>&1",
                    address}) {
        while (process_.readLine() != "Monitoring bus message stream." && !::testing::Test::HasFailure())
            continue;
    }

    /// The next notification; waits for it.
    PostedNotification next() {
        const std::string line = process_.readLine();
        const nlohmann::json message = nlohmann::json::parse(line, nullptr, false);
        if (message.is_discarded() || message["payload"]["type"] != "ss") {
            ADD_FAILURE() << "no notification: " << line.substr(0, 1000);
            return {};
        }
        return {message["payload"]["data"][0], message["payload"]["data"][1]};
    }

  private:
    ChildProcess process_;
};

} // namespace moxel::test
