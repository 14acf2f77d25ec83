#include "EventMask.h"

#include "Number.h"
#include <Moxel/MoxelClient.h>

#include <functional>
#include <optional>
#include <sstream>

namespace moxel::tool {

namespace {

std::optional<uint32_t> namedMask(const std::string &text) {
    if (text == "all")
        return everything;
    if (text == "none")
        return 0U;
    return std::nullopt;
}

std::optional<uint32_t> bitOfEvent(const std::string &name) {
    if (name == "motion")
        return kMoxelWantsMotion;
    if (name == "buttons")
        return kMoxelWantsButtons;
    if (name == "application")
        return kMoxelWantsApplication;
    return std::nullopt;
}

std::optional<uint32_t> bitOfButton(const std::string &text) {
    const std::optional<int64_t> button = numberFromText(text, 1, 32);
    return button ? std::optional(uint32_t{1} << (*button - 1)) : std::nullopt;
}

using BitOf = std::optional<uint32_t> (*)(const std::string &name);

std::optional<uint32_t> maskOfList(const std::string &list, BitOf bitOf) {
    uint32_t mask = 0;
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        const std::optional<uint32_t> bit = bitOf(name);
        if (!bit)
            return std::nullopt;
        mask |= *bit;
    }
    return list.empty() || list.ends_with(',') ? std::nullopt : std::optional(mask);
}

std::optional<uint32_t> maskNumber(const std::string &text) {
    const std::optional<int64_t> number = numberFromText(text, 0, everything);
    return number ? std::optional(static_cast<uint32_t>(*number)) : std::nullopt;
}

std::optional<uint32_t> eventMask(const std::string &text) {
    if (const std::optional<uint32_t> mask = namedMask(text))
        return mask;
    if (const std::optional<uint32_t> mask = maskNumber(text))
        return mask;
    return maskOfList(text, bitOfEvent);
}

std::optional<uint32_t> buttonMask(const std::string &text) {
    if (const std::optional<uint32_t> mask = namedMask(text))
        return mask;
    return text.starts_with("0x") ? maskNumber(text) : maskOfList(text, bitOfButton);
}

CLI::Option *addMask(CLI::App &command, const std::string &names, uint32_t &mask,
                     const std::string &description, BitOf parse, const char *forms) {
    const auto take = [&mask, parse, forms, names](const std::string &text) {
        const std::optional<uint32_t> parsed = parse(text);
        if (!parsed)
            throw CLI::ValidationError(names, "\"" + text + "\" is none of: " + forms);
        mask = *parsed;
    };
    return command.add_option_function<std::string>(names, take, description)->type_name(forms);
}

} // namespace

CLI::Option *addEventMask(CLI::App &command, const std::string &names, uint32_t &mask,
                          const std::string &description) {
    return addMask(command, names, mask, description, eventMask,
                   "all|none|motion,buttons,application|NUMBER");
}

CLI::Option *addButtonMask(CLI::App &command, const std::string &names, uint32_t &mask,
                           const std::string &description) {
    return addMask(command, names, mask, description, buttonMask, "all|none|1,2,...|0xMASK");
}

} // namespace moxel::tool
