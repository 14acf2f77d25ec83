#include "ExportedApplication.h"

#include "Complaint.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <algorithm>
#include <cctype>

namespace moxel::tool {

namespace {

std::string lowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char character) {
        return static_cast<char>(character < 0x80 ? std::tolower(character) : character);
    });
    return text;
}

bool fits(const ExportedApplication &application, const ApplicationFilter &filter) {
    return lowerCase(application.bundleID).find(lowerCase(filter.bundleID)) != std::string::npos &&
           (filter.name.empty() || lowerCase(application.name) == lowerCase(filter.name));
}

} // namespace

Dictionary ExportedApplication::preferences() const {
    return {{kMxKeyBundleID, bundleID}, {kMxKeyApplication, name}, {kMxKeyClientName, clientName}};
}

std::vector<ExportedApplication> exportedApplications(const ApplicationFilter &filter) {
    const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
    const Dictionary index =
        mxMutableDictWithContentsOfFile(store->getSyncedApplicationsFilePath(false)).asDictionary();
    std::vector<ExportedApplication> applications;
    for (const Dictionary::Entry &bundle : index.entries()) {
        for (const Dictionary::Entry &entry : bundle.value.asDictionary().entries()) {
            const Dictionary client = entry.value.asDictionary();
            ExportedApplication application{bundle.key.string(), client[kMxKeyName].asString().string(),
                                            client[kMxKeyClientName].asString().string()};
            if (fits(application, filter))
                applications.push_back(std::move(application));
        }
    }
    return applications;
}

bool hasStore() {
    if (MxlPlistDictionaries::sharedDefaultDictionaries())
        return true;
    complain("the driver's default commands cannot be read",
             "Install the driver, or name the folder that holds Moxel/MxlWare/MxlCommands.plist in "
             "XDG_DATA_DIRS.");
    return false;
}

} // namespace moxel::tool
