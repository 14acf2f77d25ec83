// What report descriptors say of their devices, well-formed or not.
#include "Platform/Linux/ReportDescriptor.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace moxel {
namespace {

using Bytes = std::vector<uint8_t>;
using Summary = ReportDescriptorSummary;

TEST(ReportDescriptor, OfAVendorDefinedDeviceTellsItsPageUsageAndIdentifiers) {
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15,
                                              0x00, 0x26, 0xFF, 0x00, 0x75, 0x08, 0x85, 0x35,
                                              0x09, 0x35, 0x96, 0x3F, 0x00, 0x81, 0x02, 0xC0}),
              (Summary{0xFF00, 0x0001, true}));
}

TEST(ReportDescriptor, OfAMouseTellsThatItsReportsHaveNoIdentifiers) {
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0x05, 0x01, 0x09, 0x02, 0xA1, 0x01, 0x09, 0x01, 0xA1, 0x00,
                                              0x05, 0x09, 0x19, 0x01, 0x29, 0x03, 0x81, 0x02, 0xC0, 0xC0}),
              (Summary{1, 2, false}));
}

TEST(ReportDescriptor, UsageOfFourBytesBringsItsOwnPage) {
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0x05, 0x01, 0x0B, 0x08, 0x00, 0x0C, 0x00, 0xA1, 0x01, 0xC0}),
              (Summary{0x000C, 0x0008, false}));
}

TEST(ReportDescriptor, FirstApplicationCollectionAndItsFirstUsageCount) {
    // A physical collection, then two usages for an application, then another application.
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0x05, 0x01, 0x09, 0x01, 0xA1, 0x00, 0xC0, 0x09, 0x04, 0x09,
                                              0x05, 0xA1, 0x01, 0xC0, 0x09, 0x06, 0xA1, 0x01, 0xC0}),
              (Summary{1, 4, false}));
}

TEST(ReportDescriptor, UsageHoldsForOneMainItemOnly) {
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0x05, 0x01, 0x09, 0x04, 0x81, 0x02, 0xA1, 0x01}),
              (Summary{1, 0, false}));
}

TEST(ReportDescriptor, PushedPageComesBack) {
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0x05, 0x0D, 0xA4, 0x05, 0x01, 0xB4, 0x09, 0x02, 0xA1, 0x01}),
              (Summary{0x0D, 2, false}));
}

TEST(ReportDescriptor, StackIsNeitherOverrunNorPoppedEmpty) {
    Bytes deep(1000, 0xA4);
    deep.insert(deep.end(), 2000, 0xB4);
    deep.insert(deep.end(), {0x05, 0x01, 0x09, 0x02, 0xA1, 0x01});
    EXPECT_EQ(summarizeReportDescriptor(deep), (Summary{1, 2, false}));
}

TEST(ReportDescriptor, LongItemsAreSkipped) {
    EXPECT_EQ(summarizeReportDescriptor(
                  Bytes{0xFE, 0x03, 0xF0, 0x09, 0x07, 0xA1, 0x05, 0x01, 0x09, 0x02, 0xA1, 0x01}),
              (Summary{1, 2, false}));
}

TEST(ReportDescriptor, ThatBreaksOffIsReadAsFarAsItGoes) {
    const Bytes whole{0x05, 0x01, 0x09, 0x02, 0xA1, 0x01, 0x85, 0x01, 0x26, 0xFF, 0x00};
    EXPECT_EQ(summarizeReportDescriptor({}), Summary{});
    EXPECT_EQ(summarizeReportDescriptor(Bytes(whole.begin(), whole.begin() + 5)), Summary{});
    EXPECT_EQ(summarizeReportDescriptor(Bytes(whole.begin(), whole.begin() + 6)), (Summary{1, 2, false}));
    EXPECT_EQ(summarizeReportDescriptor(Bytes(whole.begin(), whole.end() - 1)), (Summary{1, 2, true}));
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0xFE}), Summary{});
    EXPECT_EQ(summarizeReportDescriptor(Bytes{0xFE, 0xFF, 0x00, 0x01}), Summary{});
}

TEST(ReportDescriptor, OfRandomBytesIsReadToItsEnd) {
    std::mt19937 random(1);
    size_t numbered = 0;
    for (int round = 0; round < 20'000; ++round) {
        Bytes bytes(random() % 64);
        for (uint8_t &byte : bytes)
            byte = static_cast<uint8_t>(random());
        numbered += summarizeReportDescriptor(bytes).numbersReports ? 1 : 0;
    }
    EXPECT_GT(numbered, 0U);
}

} // namespace
} // namespace moxel
