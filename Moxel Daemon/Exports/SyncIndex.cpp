#include "Moxel Daemon/Exports/SyncIndex.h"

#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Platform/Log.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace moxel::daemon {

namespace {

/// The client's key in its application's dictionary: the same one in every run of the application.
std::string clientKey(const ApplicationRecord &application) {
    std::array<char, 10> signature{};
    std::snprintf(signature.data(), signature.size(), "_%08X", application.signature.value_or(0));
    return application.name.value_or("") + signature.data();
}

const Dictionary *dictionaryUnder(const Dictionary &dictionary, const std::string &key) {
    const Value *value = dictionary.find(key);
    return value ? value->as<Dictionary>() : nullptr;
}

/// The clients with that one first.
Dictionary withFirst(const Dictionary &clients, const std::string &key, Dictionary client) {
    std::vector<Entry> entries{{key, std::move(client)}};
    for (const Entry &entry : clients.entries())
        if (entry.key != key && entries.size() < SyncIndex::clientLimit)
            entries.push_back(entry);
    return Dictionary(std::move(entries));
}

Dictionary sortedByLength(const Dictionary &index) {
    std::vector<Entry> entries = index.entries();
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &one, const Entry &other) { return one.key.size() < other.key.size(); });
    return Dictionary(std::move(entries));
}

} // namespace

Result<Dictionary> SyncIndex::read() const {
    const Result<Data> content = folder_.readOwn(fileName);
    if (!content.ok())
        return content.error();
    if (content->empty())
        return Dictionary();
    Result<Value> value = readPropertyList(*content);
    if (value.ok() && value->as<Dictionary>())
        return *value->as<Dictionary>();
    logLine(LogLevel::error, std::string("Error: ") + fileName + " is put aside as " + damagedFileName +
                                 ": " + (value.ok() ? "it holds no dictionary" : value.error().message));
    if (Result<void> copied = folder_.replaceOwn(damagedFileName, *content); !copied.ok())
        return copied.error();
    return Dictionary();
}

Result<void> SyncIndex::note(const ApplicationRecord &application, const std::string &pathKey,
                             const std::string &path) const {
    if (!application.bundleID)
        return Error{"the application has no bundle identifier", 0};
    Result<Dictionary> index = read();
    if (!index.ok())
        return index.error();
    const std::string key = clientKey(application);
    const Dictionary *known = dictionaryUnder(*index, *application.bundleID);
    const Dictionary clients = known ? *known : Dictionary();
    const Dictionary *knownClient = dictionaryUnder(clients, key);
    Dictionary client = knownClient ? *knownClient : Dictionary();
    client.set("clientname", application.clientName.value_or(""));
    client.set("name", application.name.value_or(""));
    client.set("processname", application.applicationFileName.value_or(""));
    client.set(pathKey, path);
    index->set(*application.bundleID, withFirst(clients, key, std::move(client)));
    const Result<Data> content = writePropertyList(sortedByLength(*index));
    if (!content.ok())
        return content.error();
    if (content->size() > propertyListSizeLimit)
        return Error{std::string(fileName) + " is full", 0};
    return folder_.replaceOwn(fileName, *content);
}

} // namespace moxel::daemon
