// Short words for writing, reading and making up keyed archives, and a record to archive.
#pragma once

#include "Support/PropertyLists.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

#include <string>

/// Of its own, because the words are short ones.
namespace moxel::archives {

inline Data archived(const Value &root) {
    Result<Data> archive = archivedDataWithRootObject(root);
    EXPECT_TRUE(archive) << archive.error().message;
    return archive ? *archive : Data();
}

inline Value unarchived(const Data &archive) {
    Result<Value> root = unarchiveObjectWithData(archive.bytes());
    EXPECT_TRUE(root) << root.error().message;
    return root ? *root : Value();
}

inline Value roundTrip(const Value &root) { return unarchived(archived(root)); }

/// The object table of an archive.
inline Array objectTable(const Value &root) {
    const Result<Value> list = readBinaryPropertyList(archived(root).bytes(), Mutability::immutable);
    EXPECT_TRUE(list);
    return list ? list->asDictionary()["$objects"].asArray() : Array();
}

/// An archive of a hand-made object table whose root is UID 1.
inline Data archiveOf(const Array &objects) {
    const Result<Data> archive = writeBinaryPropertyList(Dictionary{{"$version", 100000},
                                                                    {"$archiver", "NSKeyedArchiver"},
                                                                    {"$top", Dictionary{{"root", UID{1}}}},
                                                                    {"$objects", objects}});
    EXPECT_TRUE(archive) << archive.error().message;
    return archive ? *archive : Data();
}

inline std::string errorOf(const Data &archive) {
    const Result<Value> root = unarchiveObjectWithData(archive.bytes());
    return root ? "no error, but " + root->description() : root.error().message;
}

inline Dictionary classRecord(const char *name, const char *parent = nullptr) {
    return {{"$classname", name},
            {"$classes", parent ? Array{name, parent, "NSObject"} : Array{name, "NSObject"}}};
}

/// A record with members of every sort.
class Sample final : public Object {
  public:
    Value name;
    Value count;
    Value list;
    Value self;

    [[nodiscard]] std::string className() const override { return "MxSample"; }
    void encodeWithCoder(KeyedEncoder &encoder) const override {
        encoder.encodeObject(name, "name");
        encoder.encodeScalar(count, "count");
        encoder.encodeContents(list, "list");
        if (self)
            encoder.encodeObject(self, "self");
    }
    [[nodiscard]] std::string description() const override { return "<Sample>"; }
    [[nodiscard]] bool isEqual(const Object &other) const override {
        const auto &sample = static_cast<const Sample &>(other);
        return sample.name == name && sample.count == count && sample.list == list;
    }
};

inline Ref<Object> makeSample(const KeyedDecoder &decoder) {
    Ref<Sample> sample = makeRef<Sample>();
    sample->name = decoder.decode("name");
    sample->count = decoder.decode("count");
    sample->list = decoder.decode("list");
    return sample;
}

inline Ref<Sample> sampleRecord() {
    Ref<Sample> sample = makeRef<Sample>();
    sample->name = "Box";
    sample->count = 7;
    sample->list = Array{"x", 7};
    return sample;
}

} // namespace moxel::archives
