// The classes that archives know: those of the archiver's own and those that are registered.
#pragma once

#include "KeyedArchive.h"

#include <array>
#include <optional>
#include <string_view>

namespace moxel::detail {

/// Classes whose instances are values rather than records.
enum class ValueClass : uint8_t {
    array,
    mutableArray,
    dictionary,
    mutableDictionary,
    string,
    mutableString,
    data,
    mutableData,
    date,
    null,
};
inline constexpr size_t valueClassCount = static_cast<size_t>(ValueClass::null) + 1;

[[nodiscard]] std::optional<ValueClass> valueClassNamed(std::string_view name) noexcept;

/// The name and the chain under which the archiver writes a class.
[[nodiscard]] ArchivedClass archivedClassOf(ValueClass valueClass);

/// What was registered for a class; empty when nothing was. Any thread.
[[nodiscard]] ArchiveFactory archiveFactoryNamed(const std::string &name);

namespace archiveKeys {
inline constexpr std::string_view version = "$version";
inline constexpr std::string_view archiver = "$archiver";
inline constexpr std::string_view top = "$top";
inline constexpr std::string_view objects = "$objects";
inline constexpr std::string_view nullObject = "$null";
inline constexpr std::string_view objectClass = "$class";
inline constexpr std::string_view className = "$classname";
inline constexpr std::string_view classChain = "$classes";
inline constexpr std::string_view root = "root";
inline constexpr std::string_view containerKeys = "NS.keys";
inline constexpr std::string_view containerObjects = "NS.objects";
inline constexpr std::string_view string = "NS.string";
inline constexpr std::string_view data = "NS.data";
inline constexpr std::string_view time = "NS.time";
} // namespace archiveKeys

inline constexpr int archiveVersion = 100000;
inline constexpr std::string_view archiverName = "NSKeyedArchiver";

} // namespace moxel::detail
