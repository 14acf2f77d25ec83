// The bus of the kernel's devices as a whole; what it does with devices needs a kernel that has some.
#include "Platform/Linux/HidrawBus.h"
#include "Support/EnvironmentVariable.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

class HidrawBusAlone : public test::HIDBusTest {};

TEST_F(HidrawBusAlone, IsSharedAndLeavesNothingBehind) {
    const test::EnvironmentVariable choice("MOXEL_HIDRAW", std::nullopt);
    const auto first = HidrawBus::shared();
    ASSERT_TRUE(first.ok()) << first.error().message;
    ASSERT_TRUE(*first);
    EXPECT_EQ(*HidrawBus::shared(), *first);
}

TEST_F(HidrawBusAlone, IsNoneWhereItIsOff) {
    for (const char *choice : {"off", "no", ""}) {
        const test::EnvironmentVariable variable("MOXEL_HIDRAW", choice);
        const auto bus = HidrawBus::shared();
        ASSERT_TRUE(bus.ok());
        EXPECT_EQ(*bus == nullptr, std::string_view(choice) == "off") << choice;
    }
}

} // namespace
} // namespace moxel
