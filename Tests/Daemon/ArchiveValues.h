// Values that the archive tests share.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

namespace moxel::daemon {

/// One of everything.
inline Value sampleValue() {
    return Dictionary{
        {"req", "regclient"},
        {"type", true},
        {"no", false},
        {"numbers", Array{0, 255, 256, 65535, 65536, INT64_MAX, -1, INT64_MIN, UINT64_MAX}},
        {"real", 2.5},
        {"text", "Grüße, 世界 🎛"},
        {"long", std::string(300, 'x')},
        {"data", Data{0x00, 0xFF, 0x80}},
        {"empty", Array{Array{}, Dictionary{}, "", Data{}}},
        {"app", Record{"MxlApplication", {{"appname", "Demo"}, {"mask", 0x3F}, {"clientname", "Demo"}}}},
        {"apps", Array{Record{"MxlApplication", {{"appname", Value()}}}, Value()}},
    };
}

} // namespace moxel::daemon
