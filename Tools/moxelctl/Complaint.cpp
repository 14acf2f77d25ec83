#include "Complaint.h"

#include "Platform/LogText.h"

#include <algorithm>
#include <cstdio>

namespace moxel::tool {

std::string remedyText(const std::string &remedy, size_t indentation) {
    std::string text;
    for (size_t from = 0; from < remedy.size();) {
        const size_t end = std::min(remedy.find('\n', from), remedy.size());
        text += std::string(indentation, ' ') + printableText(remedy.substr(from, end - from)) + "\n";
        from = end + 1;
    }
    return text;
}

void complain(const std::string &problem, const std::string &remedy) {
    const std::string text = "moxelctl: " + printableText(problem) + "\n" + remedyText(remedy, 2);
    std::fputs(text.c_str(), stderr);
}

} // namespace moxel::tool
