// Property lists of many actions, written and read in both forms, beside libplist.
#include "Peers/PropertyListPeer.h"
#include "Support/ActionTree.h"
#include "Support/Measurement.h"
#include "Support/Table.h"
#include "Values/PropertyList.h"

#include <cstdlib>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 9;

/// A list of so many actions in all forms.
struct Lists {
    explicit Lists(size_t actions) : root(ActionTree(actions).dictionary()) {
        Result<Data> asBinary = writeBinaryPropertyList(root);
        Result<std::string> asXML = writeXMLPropertyList(root);
        if (!asBinary.ok() || !asXML.ok())
            std::abort();
        binary = *std::move(asBinary);
        xml.assign(asXML->begin(), asXML->end());
    }

    Value root;
    Data binary;
    std::vector<uint8_t> xml;
};

/// In the order of the rows.
std::vector<double> measureLibrary(const Lists &lists) {
    return mediansPerCall(
        rounds, [&] { return writeBinaryPropertyList(lists.root); },
        [&] { return readBinaryPropertyList(lists.binary.bytes(), Mutability::immutable); },
        [&] { return writeXMLPropertyList(lists.root); },
        [&] { return readXMLPropertyList(lists.xml, Mutability::immutable); });
}

/// The library's four, then libplist's; only the library's without libplist.
std::vector<double> measureBoth(const Lists &lists) {
#if MOXEL_WITH_LIBPLIST
    const PeerPropertyList peer = readBinaryWithPeer(lists.binary.bytes());
    return mediansPerCall(
        rounds, [&] { return writeBinaryPropertyList(lists.root); },
        [&] { return readBinaryPropertyList(lists.binary.bytes(), Mutability::immutable); },
        [&] { return writeXMLPropertyList(lists.root); },
        [&] { return readXMLPropertyList(lists.xml, Mutability::immutable); },
        [&] { return writeBinaryWithPeer(peer); }, [&] { return readBinaryWithPeer(lists.binary.bytes()); },
        [&] { return writeXMLWithPeer(peer); }, [&] { return readXMLWithPeer(lists.xml); });
#else
    return measureLibrary(lists);
#endif
}

void run() {
    constexpr size_t few = 1'000;
    constexpr size_t many = 100'000;
    const std::vector<std::string> names{"binary, written", "binary, read", "XML, written", "XML, read"};
    const std::vector<double> small = measureLibrary(Lists(few));
    const std::vector<double> large = measureBoth(Lists(many));
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string name = "property list of 100,000 actions, " + names[i];
        if (large.size() > names.size())
            printTimes(name, "libplist", large[names.size() + i], large[i], atMost(0.7));
        else
            printMissing(name, "libplist");
    }
    for (size_t i = 0; i < names.size(); ++i)
        printRow("property list, " + names[i] + ": power of its size", "1,000 actions, per action",
                 duration(small[i] / few), duration(large[i] / many), growth(few, small[i], many, large[i]),
                 linear);
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
