// A store of property lists of a test's own.
#pragma once

#include "Support/ExportFolders.h"
#include "Values/PropertyList.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <string_view>

namespace moxel {

struct MxlPlistDictionariesTestAccess {
    /// Makes the process forget its store.
    static void forgetStore() {
        auto &shared = MxlPlistDictionaries::singleton();
        const std::lock_guard lock(shared.mutex);
        shared.store.reset();
        kExportedCommandsBaseDirPath = nullptr;
    }
};

namespace test {

/// The process's store reads and writes below a temporary folder meanwhile.
class PlistStore : public ExportFolders {
  public:
    PlistStore() {
        MxlPlistDictionariesTestAccess::forgetStore();
        writeDefaultCommands();
    }
    ~PlistStore() { MxlPlistDictionariesTestAccess::forgetStore(); }
    PlistStore(const PlistStore &) = delete;
    PlistStore &operator=(const PlistStore &) = delete;

    [[nodiscard]] std::string defaultCommandsPath() const {
        return applicationSupport() + "/Moxel/MxlWare/MxlCommands.plist";
    }
    void writeDefaultCommands() const { (void)writeList(defaultCommandsPath(), Dictionary{{"a", "b"}}); }
    [[nodiscard]] std::string indexPath() const { return base("SyncApplications.plist"); }

    /// The store; never null.
    MxlPlistDictionaries *operator->() {
        if (!store_)
            store_ = MxlPlistDictionaries::sharedDefaultDictionaries();
        EXPECT_TRUE(store_);
        return store_.get();
    }

    /// Writes a property list below the temporary folder; its path.
    std::string writeList(std::string_view path, const Value &root,
                          PropertyListFormat format = PropertyListFormat::xml) const {
        if (format == PropertyListFormat::binary) {
            const auto bytes = writeBinaryPropertyList(root);
            EXPECT_TRUE(bytes) << bytes.error().message;
            return write(path, {reinterpret_cast<const char *>(bytes->bytes().data()), bytes->size()});
        }
        const auto text = writeXMLPropertyList(root);
        EXPECT_TRUE(text) << text.error().message;
        return write(path, *text);
    }

  private:
    MxlPlistDictionaries::Shared store_;
};

} // namespace test
} // namespace moxel
