// The two process-wide registries of sessions: those waiting for registration and those registered.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace moxel {

class MoxelClientAPI;

/// Sessions under a number, in the order in which they were entered, each with the thread that entered it.
/// Any thread; the registry's monitor is taken after the class-wide lock and never together with the other
/// registry's.
class ClientRegistry {
  public:
    using Client = std::shared_ptr<MoxelClientAPI>;

    /// Null when nothing stands under the key.
    [[nodiscard]] Client find(uint64_t key) const;
    /// The first session that the thread entered, or null.
    [[nodiscard]] Client findOfThread(uint64_t thread) const;
    /// Returns the session that stood under the key until now, or null.
    Client set(uint64_t key, Client client, uint64_t thread);
    /// Returns the session that stood under the key, or null.
    Client remove(uint64_t key);
    /// Removes every entry of a session.
    void removeClient(const Client &client);
    [[nodiscard]] bool holds(const Client &client) const;
    [[nodiscard]] size_t size() const;

  private:
    struct Entry {
        uint64_t key;
        Client object;
        uint64_t thread;
    };

    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

/// Keyed by thread identifier.
ClientRegistry &gPendingClients();
/// Keyed by client identifier.
ClientRegistry &gClients();

/// The session that the calling thread has installed and not yet registered, or null.
[[nodiscard]] ClientRegistry::Client CurrentPendingClient();
/// The registered session with that identifier; 0 stands for the session that the calling thread registered.
[[nodiscard]] ClientRegistry::Client CurrentClientViaClientID(uint16_t clientID);

/// The key of the calling thread.
[[nodiscard]] uint64_t currentThreadKey();

/// Ends the thread of a session that another has taken the place of, so that neither registry holds it any
/// more: nobody can clean it up. A dedicated channel that a failed registration has left open is closed with
/// it. Does nothing to a session that a registry holds, nor to one that is registered with the daemon, whose
/// events go on. Null is allowed.
void letGoOf(const ClientRegistry::Client &client);

/// Moves the calling thread's session from the pending to the registered ones, unless the identifier is
/// taken. A session whose registration failed goes the same way, under 0, so that the thread is free to
/// install handlers again.
void enterRegisteredClient(const ClientRegistry::Client &client, uint16_t clientID);

} // namespace moxel
