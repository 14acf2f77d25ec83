// Property lists as python3's plistlib understands them.
#pragma once

#include "Support/PropertyLists.h"
#include "Support/Python.h"

#include <string>
#include <string_view>

namespace moxel::test {

/// Reads the bytes of a property list and gives its contents as JSON: keys sorted, characters beyond ASCII
/// escaped, data as the text "data:" and its hexadecimal digits.
inline std::string jsonFromPlistlib(std::string_view bytes) {
    const SubprocessResult result = runPython(R"(
import json, plistlib, sys
root = plistlib.loads(sys.stdin.buffer.read())
sys.stdout.write(json.dumps(root, sort_keys=True, default=lambda data: 'data:' + data.hex()))
)",
                                              bytes);
    EXPECT_EQ(result.exitCode, 0);
    return result.output;
}

/// A value written as a binary property list and read by plistlib.
inline std::string jsonViaBinary(const Value &root) { return jsonFromPlistlib(asText(binaryOf(root))); }

/// A value written as an XML property list and read by plistlib.
inline std::string jsonViaXML(const Value &root) { return jsonFromPlistlib(xmlOf(root)); }

} // namespace moxel::test
