// Which neighbouring file events become one.
#include "Platform/Linux/FileEventBuffer.h"
#include "Platform/FileEvents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace moxel {
namespace {

using ::testing::ElementsAre;

constexpr uint32_t movedIn = fileEventCreated | fileEventRenamed;

std::vector<uint32_t> merged(const std::vector<uint32_t> &events) {
    FileEventBuffer buffer;
    for (const uint32_t flags : events)
        buffer.add("/folder/file", flags);
    return buffer.take().flags;
}

TEST(FileEventBuffer, KeepsTheOrder) {
    FileEventBuffer buffer;
    buffer.add("/b", fileEventCreated);
    buffer.add("/a", fileEventModified);
    buffer.add("/b", fileEventModified);
    const auto batch = buffer.take();
    EXPECT_THAT(batch.paths, ElementsAre("/b", "/a", "/b"));
    EXPECT_THAT(batch.flags, ElementsAre(fileEventCreated, fileEventModified, fileEventModified));
}

TEST(FileEventBuffer, MergesEqualNeighbours) {
    for (const uint32_t flags : {fileEventCreated, fileEventRemoved, fileEventMetadataChanged,
                                 fileEventRenamed, movedIn, fileEventModified})
        EXPECT_THAT(merged({flags, flags, flags}), ElementsAre(flags));
}

TEST(FileEventBuffer, MergesTheChangesOfOneFile) {
    EXPECT_THAT(merged({fileEventCreated, fileEventModified}),
                ElementsAre(fileEventCreated | fileEventModified));
    EXPECT_THAT(merged({fileEventCreated, fileEventMetadataChanged, fileEventModified}),
                ElementsAre(fileEventCreated | fileEventMetadataChanged | fileEventModified));
    EXPECT_THAT(merged({fileEventModified, fileEventMetadataChanged, fileEventModified}),
                ElementsAre(fileEventModified | fileEventMetadataChanged));
}

TEST(FileEventBuffer, NeverMergesARemovalOrARenamingWithAnythingElse) {
    EXPECT_THAT(merged({fileEventCreated, fileEventRemoved}),
                ElementsAre(fileEventCreated, fileEventRemoved));
    EXPECT_THAT(merged({fileEventRemoved, fileEventCreated}),
                ElementsAre(fileEventRemoved, fileEventCreated));
    EXPECT_THAT(merged({fileEventModified, fileEventRemoved}),
                ElementsAre(fileEventModified, fileEventRemoved));
    EXPECT_THAT(merged({fileEventCreated, fileEventRenamed}),
                ElementsAre(fileEventCreated, fileEventRenamed));
    EXPECT_THAT(merged({fileEventRenamed, fileEventCreated}),
                ElementsAre(fileEventRenamed, fileEventCreated));
    EXPECT_THAT(merged({movedIn, fileEventModified}), ElementsAre(movedIn, fileEventModified));
    EXPECT_THAT(merged({fileEventRenamed, movedIn}), ElementsAre(fileEventRenamed, movedIn));
}

TEST(FileEventBuffer, NeverMergesAChangeWithALaterCreation) {
    EXPECT_THAT(merged({fileEventModified, fileEventCreated}),
                ElementsAre(fileEventModified, fileEventCreated));
}

TEST(FileEventBuffer, NumbersGrowFromBatchToBatch) {
    FileEventBuffer buffer;
    buffer.add("/a", fileEventCreated);
    buffer.add("/b", fileEventCreated);
    EXPECT_THAT(buffer.take().identifiers, ElementsAre(1u, 2u));
    EXPECT_TRUE(buffer.isEmpty());
    buffer.add("/b", fileEventCreated);
    EXPECT_THAT(buffer.take().identifiers, ElementsAre(3u));
}

} // namespace
} // namespace moxel
