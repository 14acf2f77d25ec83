// Keyed archives that other programs wrote, read to what their index says. The environment variable
// MOXEL_CORPUS names the folder.
#include "Values/KeyedArchive.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>

namespace moxel {
namespace {

namespace fs = std::filesystem;

/// Prints values as the index does.
class IndexPrinter {
  public:
    static std::string print(const Value &value) {
        switch (value.kind()) {
        case Kind::null:
            return "None";
        case Kind::boolean:
            return value.boolValue() ? "True" : "False";
        case Kind::real:
            return value.doubleValue() == static_cast<double>(value.int64Value()) ? value.description() + ".0"
                                                                                  : value.description();
        case Kind::string:
            return "'" + value.description() + "'";
        case Kind::data:
            return "data[" + std::to_string(value.asData().size()) + "]";
        case Kind::array:
            return list(value.asArray()) + (value.asMutableArray() ? "m" : "");
        case Kind::dictionary:
            return dictionary(value.asDictionary());
        case Kind::object:
            return record(*value.asObject<GenericObject>());
        default:
            return value.description();
        }
    }

    /// At most so many entries.
    static std::string dictionary(const Dictionary &dictionary, size_t limit = SIZE_MAX) {
        std::string text;
        for (const auto &[key, value] : dictionary.entries().first(std::min(limit, dictionary.size())))
            text += (text.empty() ? "" : ", ") + ("'" + key.string() + "': ") + print(value);
        return "{" + text + "}";
    }

  private:
    static std::string list(const Array &array) {
        std::string text;
        for (const Value &value : array)
            text += (text.empty() ? "" : ", ") + print(value);
        return "[" + text + "]";
    }

    static std::string record(const GenericObject &record) {
        if (record.className() == "NSSet" || record.className() == "NSMutableSet")
            return "Set" + list(record.members()["NS.objects"].asArray()) +
                   (record.className() == "NSMutableSet" ? "m" : "");
        std::string text;
        for (const auto &[key, value] : record.members())
            text += (text.empty() ? "" : ", ") + key.string() + "=" + print(value);
        return record.className() + "{" + text + "}";
    }
};

/// One file as the index describes it.
struct Entry {
    std::string file;
    std::string expected; ///< What a reader of a malformed file should do.
    std::string decoded;
};

std::vector<Entry> entriesOf(const fs::path &index) {
    std::vector<Entry> entries;
    std::ifstream stream(index);
    std::string section;
    const std::regex sectionLine("^## ([a-z].*)$");
    const std::regex fileLine("^- `([^`]+)` \\(.*");
    const std::regex expectedLine("^  - expected: (.*)$");
    const std::regex decodedLine("^  - decoded: `(.*)`$");
    std::smatch match;
    for (std::string line; std::getline(stream, line);) {
        if (std::regex_match(line, match, sectionLine))
            section = match[1];
        else if (std::regex_match(line, match, fileLine))
            entries.push_back({(fs::path(section) / match[1].str()).string(), "", ""});
        else if (!entries.empty() && std::regex_match(line, match, expectedLine))
            entries.back().expected = match[1];
        else if (!entries.empty() && std::regex_match(line, match, decodedLine))
            entries.back().decoded = match[1];
    }
    return entries;
}

/// The index tells mutable strings and data from immutable ones, which come back as one.
std::string normalized(const std::string &decoded) {
    const std::string data =
        std::regex_replace(decoded, std::regex("NSMutableData\\{NS\\.data='(data\\[\\d+\\])'\\}"), "$1");
    return std::regex_replace(data, std::regex("'m([,}])"), "'$1");
}

std::vector<uint8_t> contentOf(const fs::path &file) {
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class KeyedArchiveCorpus : public ::testing::Test {
  protected:
    void SetUp() override {
        const char *corpus = std::getenv("MOXEL_CORPUS"); // NOLINT(concurrency-mt-unsafe)
        if (!corpus)
            GTEST_SKIP() << "MOXEL_CORPUS is not set";
        folder_ = fs::path(corpus) / "keyed-archives";
        entries_ = entriesOf(folder_ / "INDEX.md");
        ASSERT_FALSE(entries_.empty());
    }

    fs::path folder_;
    std::vector<Entry> entries_;
};

TEST_F(KeyedArchiveCorpus, EveryFileReadsAsTheIndexSays) {
    size_t accepted = 0;
    size_t refused = 0;
    for (const Entry &entry : entries_) {
        SCOPED_TRACE(entry.file);
        const std::vector<uint8_t> content = contentOf(folder_ / entry.file);
        const Result<Dictionary> objects = unarchiveTopLevelObjects(content);
        const Result<Value> root = unarchiveObjectWithData(content);
        if (entry.expected.find("reject") != std::string::npos) {
            EXPECT_FALSE(objects);
            EXPECT_FALSE(root && *root);
            ++refused;
            continue;
        }
        ++accepted;
        ASSERT_TRUE(objects) << objects.error().message;
        ASSERT_TRUE(root) << root.error().message;
        EXPECT_EQ(*root, (*objects)["root"]);
        std::string expected = normalized(entry.decoded);
        constexpr size_t topLevelObjectsShown = 6;
        std::string actual = IndexPrinter::dictionary(*objects, topLevelObjectsShown);
        if (expected.ends_with("…")) {
            expected.resize(expected.rfind('='));
            actual.resize(std::min(actual.size(), expected.size()));
        }
        EXPECT_EQ(actual, expected);
    }
    EXPECT_GT(accepted, 40u);
    EXPECT_GT(refused, 20u);
}

TEST_F(KeyedArchiveCorpus, ObjectsWithoutKeysAreRead) {
    for (const char *file : {"primitives.bin", "primitives.xml"}) {
        const Result<Dictionary> objects =
            unarchiveTopLevelObjects(contentOf(folder_ / "swift-nskeyedarchiver-2019" / file));
        ASSERT_TRUE(objects) << objects.error().message;
        MutableDictionary others = objects->mutableCopy();
        EXPECT_EQ(others["$4"].asData().size(), 16u);
        others.remove("$4");
        const Value text = "Hello, World!";
        EXPECT_EQ(others, (Dictionary{{"$0", 1},
                                      {"$1", 1},
                                      {"$2", 1.0},
                                      {"$3", 1.5},
                                      {"$5", true},
                                      {"$6", text},
                                      {"$7", text},
                                      {"$8", text},
                                      {"$9", false},
                                      {"$10", false},
                                      {"$11", 42}}));
    }
}

TEST_F(KeyedArchiveCorpus, IndexNamesEveryFile) {
    size_t files = 0;
    for (const fs::directory_entry &file : fs::recursive_directory_iterator(folder_))
        files += file.is_regular_file() && file.path().filename() != "INDEX.md" ? 1 : 0;
    EXPECT_EQ(entries_.size(), files);
}

TEST_F(KeyedArchiveCorpus, RecordsAreWrittenAsTheyWereRead) {
    for (const Entry &entry : entries_) {
        SCOPED_TRACE(entry.file);
        const Result<Value> root = unarchiveObjectWithData(contentOf(folder_ / entry.file));
        if (!root)
            continue;
        const Result<Data> archive = archivedDataWithRootObject(*root);
        ASSERT_TRUE(archive) << archive.error().message;
        const Result<Value> again = unarchiveObjectWithData(archive->bytes());
        ASSERT_TRUE(again) << again.error().message;
        EXPECT_EQ(*again, *root);
        EXPECT_EQ(IndexPrinter::print(*again), IndexPrinter::print(*root));
    }
}

} // namespace
} // namespace moxel
