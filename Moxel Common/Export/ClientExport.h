// What the export functions share: where a client's files lie, how they are read, and what the daemon is told
// of them.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

// All on the thread of the exported call, under the class-wide lock.

enum class ExportFile { commands, images, settings };

/// The path of a client's file of that kind. Makes the client's export folder and notes it in the client.
/// Null, with an error line, when the client cannot have such a folder or file.
[[nodiscard]] String prepareExport(MoxelClientAPI &client, ExportFile file, const char *function);

/// What the file holds; an empty dictionary when there is no file, or when it holds no dictionary. An error
/// when the system cannot read it now, so that what it holds is not replaced.
[[nodiscard]] Result<MutableDictionary> readOrBeginExport(const String &path);

/// The archived request of three texts; null when it cannot be archived.
[[nodiscard]] Data exportRequest(const char *request, const char *command, const String &parameter);

/// "Error: FUNCTION: MESSAGE"
void logExportError(const char *function, const Error &error);

} // namespace moxel
