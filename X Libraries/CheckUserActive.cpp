#include "CheckUserActive.h"

#include "ExportedCall.h"
#include "Platform/Session.h"
#include "Values/String.h"

#include <cstdlib>
#include <cstring>

using namespace moxel;

bool MoxelCheckUserActive(void) {
    // Unknown counts as active: input is never blocked because the session service could not answer.
    return exportedCall("MoxelCheckUserActive", true,
                        [] { return currentSessionOnConsole().value_or(true); });
}

uint32_t MoxelGetSessionUserID(void) {
    // Unknown counts as off the console here.
    return exportedCall("MoxelGetSessionUserID", uint32_t{0}, [] {
        const std::optional<SessionDescription> session = currentSession();
        if (!session || !session->onConsole.value_or(false) || !session->userName)
            return uint32_t{0};
        return userIdentifierForName(*session->userName).value_or(0);
    });
}

char *CFStringCopyUTF8String(MoxelStringRef string) {
    if (!string || !*string || !string->isWellFormed())
        return nullptr;
    const std::string_view text = string->view();
    auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy) {
        std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}
