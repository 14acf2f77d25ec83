#include "Complaint.h"

#include "Platform/LogText.h"

#include <cstdio>

namespace moxel::tool {

void complain(const std::string &problem, const std::string &remedy) {
    std::string text = "moxelctl: " + printableText(problem) + "\n";
    for (size_t from = 0; from < remedy.size();) {
        const size_t end = std::min(remedy.find('\n', from), remedy.size());
        text += "  " + printableText(remedy.substr(from, end - from)) + "\n";
        from = end + 1;
    }
    std::fputs(text.c_str(), stderr);
}

} // namespace moxel::tool
