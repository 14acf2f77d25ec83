#include "Session/ClientRegistry.h"

#include "Platform/Thread.h"
#include <Moxel/MoxelClientAPI.h>

#include <algorithm>
#include <utility>

namespace moxel {

ClientRegistry::Client ClientRegistry::find(uint64_t key) const {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find(entries_, key, &Entry::key);
    return entry == entries_.end() ? nullptr : entry->object;
}

ClientRegistry::Client ClientRegistry::findOfThread(uint64_t thread) const {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find(entries_, thread, &Entry::thread);
    return entry == entries_.end() ? nullptr : entry->object;
}

ClientRegistry::Client ClientRegistry::set(uint64_t key, Client client, uint64_t thread) {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find(entries_, key, &Entry::key);
    if (entry == entries_.end()) {
        entries_.push_back({key, std::move(client), thread});
        return nullptr;
    }
    entry->thread = thread;
    return std::exchange(entry->object, std::move(client));
}

ClientRegistry::Client ClientRegistry::remove(uint64_t key) {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find(entries_, key, &Entry::key);
    if (entry == entries_.end())
        return nullptr;
    Client removed = std::move(entry->object);
    entries_.erase(entry);
    return removed;
}

void ClientRegistry::removeClient(const Client &client) {
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&client](const Entry &entry) { return entry.object == client; });
}

bool ClientRegistry::holds(const Client &client) const {
    const std::lock_guard lock(mutex_);
    return std::ranges::find(entries_, client, &Entry::object) != entries_.end();
}

size_t ClientRegistry::size() const {
    const std::lock_guard lock(mutex_);
    return entries_.size();
}

// Never destroyed: sessions may still be running when the process exits.

ClientRegistry &gPendingClients() {
    static ClientRegistry &registry = *new ClientRegistry;
    return registry;
}

ClientRegistry &gClients() {
    static ClientRegistry &registry = *new ClientRegistry;
    return registry;
}

uint64_t currentThreadKey() { return Thread::current()->identifier(); }

ClientRegistry::Client CurrentPendingClient() { return gPendingClients().find(currentThreadKey()); }

ClientRegistry::Client CurrentClientViaClientID(uint16_t clientID) {
    return clientID != 0 ? gClients().find(clientID) : gClients().findOfThread(currentThreadKey());
}

void letGoOf(const ClientRegistry::Client &client) {
    if (client && !gPendingClients().holds(client) && !gClients().holds(client) &&
        !client->m_bClientRegistered())
        client->endClientThread();
}

void enterRegisteredClient(const ClientRegistry::Client &client, uint16_t clientID) {
    if (!CurrentClientViaClientID(clientID))
        letGoOf(gClients().set(clientID, client, currentThreadKey()));
    // A session that registers once more may find another one waiting in its thread's place.
    if (const ClientRegistry::Client waiting = gPendingClients().remove(currentThreadKey());
        waiting != client)
        letGoOf(waiting);
}

} // namespace moxel
