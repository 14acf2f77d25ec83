// Names of files.
#include "Platform/ConfinedFiles.h"

namespace moxel {

bool isFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

} // namespace moxel
