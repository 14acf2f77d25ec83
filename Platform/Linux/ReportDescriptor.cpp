#include "Platform/Linux/ReportDescriptor.h"

#include <array>
#include <cstddef>
#include <optional>

namespace moxel {

namespace {

// A short item's first byte is its tag and type, and in the two lowest bits the size of its data.
constexpr uint8_t sizeBits = 0x03;
constexpr uint8_t longItem = 0xFE;

enum Item : uint8_t {
    inputItem = 0x80,
    outputItem = 0x90,
    collection = 0xA0,
    featureItem = 0xB0,
    endCollection = 0xC0,
    usagePage = 0x04,
    reportID = 0x84,
    push = 0xA4,
    pop = 0xB4,
    usage = 0x08,
};

constexpr uint32_t applicationCollection = 1;
/// The kernel's own parser refuses descriptors that go deeper.
constexpr size_t stackDepth = 4;

class Reader {
  public:
    ReportDescriptorSummary summary;

    void take(uint8_t tag, uint32_t data, size_t size) {
        switch (tag) {
        case usagePage:
            page_ = static_cast<uint16_t>(data);
            break;
        case reportID:
            summary.numbersReports = true;
            break;
        case push:
            if (depth_ < stack_.size())
                stack_[depth_++] = page_;
            break;
        case pop:
            if (depth_ > 0)
                page_ = stack_[--depth_];
            break;
        case usage:
            if (!usage_)
                usage_ = Usage{data, size == sizeof(uint32_t)};
            break;
        case collection:
            if (data == applicationCollection && !isKnown_)
                know();
            [[fallthrough]];
        case inputItem:
        case outputItem:
        case featureItem:
        case endCollection:
            usage_.reset(); // Holds for one main item only.
            break;
        default:
            break;
        }
    }

  private:
    struct Usage {
        uint32_t data;
        bool hasPage; ///< In its upper half.
    };

    void know() {
        isKnown_ = true;
        const Usage first = usage_.value_or(Usage{0, false});
        summary.usagePage = first.hasPage ? static_cast<uint16_t>(first.data >> 16U) : page_;
        summary.usage = static_cast<uint16_t>(first.data);
    }

    uint16_t page_ = 0;
    std::array<uint16_t, stackDepth> stack_{};
    size_t depth_ = 0;
    std::optional<Usage> usage_;
    bool isKnown_ = false;
};

} // namespace

ReportDescriptorSummary summarizeReportDescriptor(std::span<const uint8_t> descriptor) {
    Reader reader;
    while (!descriptor.empty()) {
        const uint8_t first = descriptor[0];
        descriptor = descriptor.subspan(1);
        if (first == longItem) { // Its size and its tag follow.
            if (descriptor.size() < 2 || descriptor.size() - 2 < descriptor[0])
                break;
            descriptor = descriptor.subspan(size_t{2} + descriptor[0]);
            continue;
        }
        constexpr std::array<size_t, 4> sizes{0, 1, 2, 4};
        const size_t size = sizes[first & sizeBits];
        if (descriptor.size() < size)
            break;
        uint32_t data = 0;
        for (size_t i = 0; i < size; ++i)
            data |= static_cast<uint32_t>(descriptor[i]) << (8 * i);
        descriptor = descriptor.subspan(size);
        reader.take(static_cast<uint8_t>(first & ~sizeBits), data, size);
    }
    return reader.summary;
}

} // namespace moxel
