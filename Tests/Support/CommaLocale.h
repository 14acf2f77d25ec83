// A locale with a decimal comma for the calling thread.
#pragma once

#include "Support/Subprocess.h"

#include <cstdlib>
#include <filesystem>
#include <locale.h>

// The C library forgets to free the list of folders that it makes of LOCPATH.
extern "C" [[gnu::used]] inline const char *__lsan_default_suppressions() { return "leak:argz_add_sep"; }

namespace moxel::test {

/// Sets the thread's locale to one that writes 1,5 and sets it back at the end of its life. Makes such a
/// locale where none is installed and the C library's tools can.
class CommaLocale {
  public:
    CommaLocale() : locale_(findLocale()) {
        if (locale_)
            previous_ = uselocale(locale_);
    }
    ~CommaLocale() {
        if (!locale_)
            return;
        uselocale(previous_);
        freelocale(locale_);
    }
    CommaLocale(const CommaLocale &) = delete;
    CommaLocale &operator=(const CommaLocale &) = delete;

    /// False when the machine has no such locale.
    [[nodiscard]] bool isSet() const { return locale_ != nullptr; }

  private:
    static locale_t open(const char *name) { return newlocale(LC_ALL_MASK, name, nullptr); }

    static locale_t findLocale() {
        for (const char *name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE.utf8", "de_DE"})
            if (const locale_t found = open(name))
                return found;
        std::string folder = std::filesystem::temp_directory_path() / "moxel-locale-XXXXXX";
        if (!mkdtemp(folder.data()))
            return nullptr;
        runSubprocess("localedef",
                      {"--no-archive", "--inputfile=de_DE", "--charmap=UTF-8", folder + "/de_DE.UTF-8"});
        setenv("LOCPATH", folder.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
        const locale_t made = open("de_DE.UTF-8");
        unsetenv("LOCPATH"); // NOLINT(concurrency-mt-unsafe)
        std::error_code error;
        std::filesystem::remove_all(folder, error);
        return made;
    }

    locale_t locale_;
    locale_t previous_ = nullptr;
};

} // namespace moxel::test
