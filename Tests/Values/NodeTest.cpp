// Reference counts and the freeing of deep trees.
#include "Values/Node.h"
#include "Support/DeepValue.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>
#include <thread>

namespace moxel {
namespace {

using test::nestedArrays;
using test::nestedDictionaries;

/// Tells when it is freed, and may hold another.
class Probe final : public Object {
  public:
    explicit Probe(int &freed, Value next = {}) : freed_(freed), next_(std::move(next)) {}
    ~Probe() override { ++freed_; }

    [[nodiscard]] std::string className() const override { return "Probe"; }
    void encodeWithCoder(KeyedEncoder &) const override {}
    [[nodiscard]] std::string description() const override { return "probe"; }

  private:
    int &freed_;
    Value next_;
};

TEST(Node, LastReferenceFreesTheNode) {
    int freed = 0;
    Ref<Probe> first = makeRef<Probe>(freed);
    Ref<Probe> second = first;
    first = nullptr;
    EXPECT_EQ(freed, 0);
    second = nullptr;
    EXPECT_EQ(freed, 1);
}

TEST(Node, ReferencesMoveWithoutBeingCounted) {
    int freed = 0;
    Ref<Probe> first = makeRef<Probe>(freed);
    Ref<Object> moved = std::move(first);
    EXPECT_TRUE(moved->hasOneReference());
    Ref<Object> copied;
    copied = moved;
    EXPECT_FALSE(moved->hasOneReference());
    EXPECT_EQ(copied, moved);
}

TEST(Node, AssigningAReferenceToItselfKeepsTheNode) {
    int freed = 0;
    Ref<Probe> probe = makeRef<Probe>(freed);
    const Ref<Probe> &same = probe;
    probe = same;
    EXPECT_EQ(freed, 0);
    EXPECT_TRUE(probe->hasOneReference());
}

TEST(Node, MillionNestedArraysAreFreedWithoutStack) {
    const Value deep = nestedArrays(1'000'000);
    EXPECT_EQ(deep.asArray().size(), 1u);
}

TEST(Node, MillionNestedDictionariesAreFreedWithoutStack) {
    const Value deep = nestedDictionaries(1'000'000);
    EXPECT_EQ(deep.asDictionary().size(), 1u);
}

TEST(Node, MillionNestedRecordsAreFreedWithoutStack) {
    int freed = 0;
    Value chain;
    for (int i = 0; i < 1'000'000; ++i)
        chain = makeRef<Probe>(freed, std::move(chain));
    EXPECT_EQ(freed, 0);
    chain = nullptr;
    EXPECT_EQ(freed, 1'000'000);
}

TEST(Node, EverythingIsFreedWhenTheLastHandleGoes) {
    int freed = 0;
    {
        const Value probe = makeRef<Probe>(freed);
        Value tree = Dictionary{{"list", Array{probe, Dictionary{{"probe", probe}}}}};
        tree = nullptr;
        EXPECT_EQ(freed, 0);
    }
    EXPECT_EQ(freed, 1);
}

TEST(Node, ThreadsShareValues) {
    int freed = 0;
    {
        const Value shared = Array{makeRef<Probe>(freed), "text", Dictionary{{"key", 5}}};
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([copy = shared] {
                for (int j = 0; j < 2000; ++j) {
                    const Array wrapped{copy, copy.asArray()[1], copy.asArray()[2].asDictionary()};
                    ASSERT_EQ(wrapped[1].asString(), String("text"));
                }
            });
        for (std::thread &thread : threads)
            thread.join();
    }
    EXPECT_EQ(freed, 1);
}

} // namespace
} // namespace moxel
