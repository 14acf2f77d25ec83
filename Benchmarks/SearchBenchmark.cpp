// The search in 100,000 actions with the log off, beside one pass that makes their labels lower case.
#include "Platform/UnicodeCase.h"
#include "Support/ActionTree.h"
#include "Support/Measurement.h"
#include "Support/PrivateFolders.h"
#include "Support/Table.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <cstdlib>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 21;

void run() {
    const PrivateFolders folders;
    const MutableDictionary exported = ActionTree(100'000).dictionary();
    const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
    if (!store)
        std::abort();
    const Array categories = [&] {
        std::vector<Value> all;
        for (const auto &[key, set] : exported["Commands"].asDictionary())
            for (const auto &[identifier, category] : set.asDictionary())
                all.push_back(category);
        return Array(std::move(all));
    }();
    const auto lowerCasePass = [&] {
        size_t letters = 0;
        for (const Value &category : categories)
            for (const auto &[identifier, action] : category.asDictionary())
                letters += lowercase(action.asDictionary()["label"].asString().view()).size();
        return letters;
    };
    const auto search = [&](const char *text) {
        return [&, text] {
            uint16_t finds = 0;
            return store->dictionaryForSearchStringFromDict(text, exported, false, false, &finds);
        };
    };
    const std::vector<double> times =
        mediansPerCall(rounds, lowerCasePass, search("no such label"), search("action 4242"));
    printTimes("search in 100,000 actions that finds nothing", "one pass of lower-casing", times[0], times[1],
               atMost(2));
    printTimes("search in 100,000 actions that finds eleven", "one pass of lower-casing", times[0], times[2],
               atMost(2));
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
