#include "Export/CommandSearch.h"

#include "Helpers/Logging.h"
#include "Platform/UnicodeCase.h"
#include <Moxel/MoxelKeys.h>

#include <utility>

namespace moxel {

Dictionary CommandSearch::run(const Dictionary &root) {
    if (!root)
        return nullptr;
    enter(root, nullptr);
    for (;;) {
        Level &level = levels_.back();
        if (level.next == level.container.size()) {
            if (levels_.size() == 1)
                return level.finds;
            leave();
            continue;
        }
        const auto &[key, value] = level.container.entries()[level.next++];
        Dictionary member = value.asDictionary();
        if (!member)
            continue;
        if (member["type"].asString() != "action") {
            enter(member, key);
        } else if (matches(member)) {
            if (single_)
                return member;
            store(key, member);
            ++finds_;
        }
    }
}

void CommandSearch::enter(const Dictionary &container, const String &key) {
    if (entered_.insert(container.node()).second)
        levels_.push_back({container, key, 0, {}});
}

void CommandSearch::leave() {
    Level left = std::move(levels_.back());
    levels_.pop_back();
    entered_.erase(left.container.node());
    if (!left.finds)
        return;
    if (left.key == kMxKeyAppCommands) {
        store(left.key, left.finds);
        return;
    }
    for (const auto attribute : containerAttributes)
        if (const Value &value = left.container[attribute])
            left.finds.set(attribute, value);
    const String identifier = left.container["id"].asString();
    store(identifier ? identifier : left.key, left.finds);
}

void CommandSearch::store(const String &key, const Value &find) {
    auto &finds = levels_.back().finds;
    if (!finds)
        finds = MutableDictionary::withCapacity(1);
    finds.set(key, find);
}

bool CommandSearch::matches(const Dictionary &action) const {
    const String label = action["label"].asString();
    const std::string lowerCase = lowercase(label.view());
    if (logEnabled()) // Asked here, because the arguments cost more than the search.
        logInfo("Search %@ compare to %@", label ? String(lowerCase) : String(), text_);
    if (!label || !text_)
        return false;
    // Nothing contains the empty text.
    return exact_ ? lowerCase == text_.view()
                  : text_.length() > 0 && lowerCase.find(text_.view()) != std::string::npos;
}

} // namespace moxel
