// Installs an application's handlers, which starts its session, and cleans the session up.
#include "ExportedCall.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Platform/Process.h"
#include "Platform/Thread.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

namespace {

using Client = ClientRegistry::Client;

struct Installation {
    Client client;       ///< Null when it could not be made.
    bool connected;      ///< Whether the base channel was there in time.
    bool alreadyPending; ///< The thread's last session still waits for its registration.
};

/// Makes the calling thread's session with `make`, unless one is pending.
template <class Make>
Installation installSession(const char *function, Make &&make) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    reseedRandomNumberGenerator();
    if (CurrentPendingClient()) {
        logError("Error: %s called multiple times without a following call to RegisterMoxelClient()!",
                 function);
        return {nullptr, false, true};
    }
    Client client = make();
    try {
        const bool connected = client && client->clientInit();
        return {std::move(client), connected, false};
    } catch (...) {
        letGoOf(client); // When memory ran out before it was entered.
        throw;
    }
}

/// The result of an installation, from the state of the base channel now.
int16_t installationResult(const char *function, const Client &client) {
    HIDDeviceReference base;
    bool open = false;
    if (client) {
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard lock(*condition);
        base = client->m_refHIDChannelBase();
        open = client->m_bHIDChannelBaseOpen();
    }
    logInfo("%s, EXIT client=%p, client.m_refHIDChannelBase=%@, client.hidBaseOpen=%i", function,
            static_cast<const void *>(client.get()), base ? Value(base->description()) : Value(), open);
    return base && open ? kMoxelResultOK : kMoxelResultNoChannel;
}

int16_t setHandlers(MoxelMessageHandlerProc messageHandler, MoxelAddedHandlerProc addedHandler,
                    MoxelRemovedHandlerProc removedHandler, bool threaded) {
    constexpr const char *function = "int16_t SetMoxelHandlers(MoxelMessageHandlerProc, "
                                     "MoxelAddedHandlerProc, MoxelRemovedHandlerProc, bool)";
    logInfo("%s, threaded = %d, thread = %lx, msgH, addH, remH: %p %p %p", function, threaded,
            currentThreadKey(), address(messageHandler), address(addedHandler), address(removedHandler));
    if (!messageHandler)
        return kMoxelResultNoChannel;
    const Installation installation = installSession(function, [&] {
        return MoxelClientAPI::initWithMessageHandler(messageHandler, addedHandler, removedHandler, threaded);
    });
    if (installation.alreadyPending)
        return kMoxelResultAlreadyPending;
    // Looks again: the channel may have opened after the wait for it was over.
    return installationResult(function, installation.client);
}

int16_t setHandlersWithContext(_MoxelMessageHandlerProc messageHandler, _MoxelAddedHandlerProc addedHandler,
                               _MoxelRemovedHandlerProc removedHandler, void *context, bool threaded) {
    constexpr const char *function =
        "int16_t _SetMoxelHandlers(_MoxelMessageHandlerProc, _MoxelAddedHandlerProc, "
        "_MoxelRemovedHandlerProc, void *, bool)";
    logInfo("%s, threaded = %d, thread = %lx, msgH, addH, remH: %p %p %p", function, threaded,
            currentThreadKey(), address(messageHandler), address(addedHandler), address(removedHandler));
    if (!messageHandler)
        return kMoxelResultNoChannel;
    const Installation installation = installSession(function, [&] {
        return MoxelClientAPI::_initWithMessageHandler(messageHandler, addedHandler, removedHandler, context,
                                                       threaded);
    });
    if (installation.alreadyPending)
        return kMoxelResultAlreadyPending;
    if (installation.client && !installation.connected) // Unlike above, without a second look.
        return kMoxelResultNoChannel;
    return installationResult(function, installation.client);
}

/// Returns what is left to join: null without a session, and when its thread goes on for too long.
std::shared_ptr<Thread> endPendingSession() {
    constexpr const char *function = "void CleanupMoxelHandlers(void)";
    logInfo("%s, thread = %lx", function, currentThreadKey());
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const Client client = CurrentPendingClient();
    logInfo("%s client=%p", function, static_cast<const void *>(client.get()));
    if (!client) {
        logError("%s, Error: Failed to cleanup connection! Presumably UnregisterMoxelClient() was not called "
                 "beforehand!",
                 function);
        return nullptr;
    }
    std::shared_ptr<Thread> ended = client->takeEndedClientThread();
    gPendingClients().remove(currentThreadKey());
    return ended;
}

void cleanup() {
    // Without the lock: objects that handlers have made for their thread may call back when it destroys them.
    if (const std::shared_ptr<Thread> ended = endPendingSession())
        ended->join();
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t InstallMoxelHandlers(MoxelMessageHandlerProc messageHandler, MoxelAddedHandlerProc addedHandler,
                             MoxelRemovedHandlerProc removedHandler) {
    return SetMoxelHandlers(messageHandler, addedHandler, removedHandler, false);
}

int16_t SetMoxelHandlers(MoxelMessageHandlerProc messageHandler, MoxelAddedHandlerProc addedHandler,
                         MoxelRemovedHandlerProc removedHandler, bool useSeparateThread) {
    return exportedCall("SetMoxelHandlers", static_cast<int16_t>(kMoxelResultNoChannel), [&] {
        return setHandlers(messageHandler, addedHandler, removedHandler, useSeparateThread);
    });
}

int16_t _SetMoxelHandlers(_MoxelMessageHandlerProc messageHandler, _MoxelAddedHandlerProc addedHandler,
                          _MoxelRemovedHandlerProc removedHandler, void *context, bool useSeparateThread) {
    return exportedCall("_SetMoxelHandlers", static_cast<int16_t>(kMoxelResultNoChannel), [&] {
        return setHandlersWithContext(messageHandler, addedHandler, removedHandler, context,
                                      useSeparateThread);
    });
}

void CleanupMoxelHandlers(void) {
    exportedCall("CleanupMoxelHandlers", [] { cleanup(); });
}
