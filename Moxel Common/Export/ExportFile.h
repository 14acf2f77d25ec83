// Files and folders in the export base folder, where applications leave what they export.
#pragma once

#include "Platform/ConfinedFiles.h"
#include "Platform/Result.h"
#include "Values/Value.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace moxel {

// All may be called from any thread. Paths are absolute and lie in the export base folder; what does not lie
// there is an error, as is a path with ".." in it or one that goes through a symbolic link below the base
// folder. What identifiers and names of applications become part of is to be checked with isFileName() first.

/// USER LIBRARY/Preferences/Moxel/Applications; absent when the user has no library folder.
[[nodiscard]] std::optional<std::string> exportBaseFolder();

/// Whether the path is that of the base folder or of something in it.
[[nodiscard]] bool liesInExportFolder(const std::string &path);

/// Makes a folder, the base folder itself or one in it, and those that lead to it, each with mode 0700.
[[nodiscard]] Result<void> makeExportFolder(const std::string &path);

/// Puts a new file of mode 0600 in the place of what stands at the path, a symbolic link too. A crash at any
/// moment leaves the old file or the new one whole. The folder must exist.
[[nodiscard]] Result<void> writeExportFile(const std::string &path, std::span<const uint8_t> bytes);

/// Makes an empty file unless something stands there already, which stays as it is. The folder must exist.
[[nodiscard]] Result<void> createEmptyExportFile(const std::string &path);

/// The error's code is ENOENT when there is no such file.
[[nodiscard]] Result<std::vector<uint8_t>> readExportFile(const std::string &path);

/// Writes a property list: an XML one or, so that nothing is lost, a binary one when it holds dates with
/// fractions of a second or text with characters that XML does not know.
[[nodiscard]] Result<void> writeExportDictionary(const std::string &path, const Dictionary &dictionary);

/// Reads a property list of any form. Every container in it is mutable and stands in one place only. The
/// error's code is ENOENT when there is no such file, 0 when it holds no dictionary.
[[nodiscard]] Result<MutableDictionary> readExportDictionary(const std::string &path);

} // namespace moxel
