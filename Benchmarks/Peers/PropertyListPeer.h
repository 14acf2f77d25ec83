// A property list in the hands of libplist.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#if MOXEL_WITH_LIBPLIST
#include <plist/plist.h>
#endif

namespace moxel::benchmarks {

#if MOXEL_WITH_LIBPLIST

struct FreePropertyList {
    void operator()(void *list) const { plist_free(list); }
};
using PeerPropertyList = std::unique_ptr<void, FreePropertyList>;

struct FreePropertyListText {
    void operator()(char *text) const {
        plist_to_xml_free(text);
    } // Of binary lists too: both are malloc()'s.
};
using PeerText = std::unique_ptr<char, FreePropertyListText>;

inline PeerPropertyList readBinaryWithPeer(std::span<const uint8_t> bytes) {
    plist_t list = nullptr;
    plist_from_bin(reinterpret_cast<const char *>(bytes.data()), static_cast<uint32_t>(bytes.size()), &list);
    return PeerPropertyList(list);
}
inline PeerPropertyList readXMLWithPeer(std::span<const uint8_t> bytes) {
    plist_t list = nullptr;
    plist_from_xml(reinterpret_cast<const char *>(bytes.data()), static_cast<uint32_t>(bytes.size()), &list);
    return PeerPropertyList(list);
}
inline PeerText writeBinaryWithPeer(const PeerPropertyList &list) {
    char *text = nullptr;
    uint32_t size = 0;
    plist_to_bin(list.get(), &text, &size);
    return PeerText(text);
}
inline PeerText writeXMLWithPeer(const PeerPropertyList &list) {
    char *text = nullptr;
    uint32_t size = 0;
    plist_to_xml(list.get(), &text, &size);
    return PeerText(text);
}

#endif

} // namespace moxel::benchmarks
