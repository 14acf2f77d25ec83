// A HID device on a USB, which the kernel plays itself.
#include "Kernel/VirtualDevice.h"
#include "Support/ChildProcess.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace moxel {
namespace {

namespace fs = std::filesystem;

/// Plugged in by the constructor, unplugged by the destructor.
class UsbGadget {
  public:
    static inline const fs::path controllers = "/sys/class/udc";
    static inline const fs::path folder = "/sys/kernel/config/usb_gadget";

    UsbGadget() {
        for (const char *part : {"", "strings/0x409", "configs/c.1", "functions/hid.0"})
            fs::create_directory(gadget_ / part);
        write("idVendor", "0x1234");
        write("idProduct", "0x5678");
        write("strings/0x409/manufacturer", "Maker");
        write("strings/0x409/product", "Thing");
        write("strings/0x409/serialnumber", "42");
        write("functions/hid.0/report_length", "4");
        const test::Bytes reports = test::VirtualDevice::unnumberedReports();
        write("functions/hid.0/report_desc", std::string(reports.begin(), reports.end()));
        fs::create_directory_symlink(gadget_ / "functions/hid.0", gadget_ / "configs/c.1/hid.0");
        write("UDC", fs::directory_iterator(controllers)->path().filename().string());
    }
    ~UsbGadget() {
        write("UDC", "\n");
        for (const char *part : {"configs/c.1/hid.0", "configs/c.1", "functions/hid.0", "strings/0x409", ""})
            fs::remove(gadget_ / part);
    }
    UsbGadget(const UsbGadget &) = delete;
    UsbGadget &operator=(const UsbGadget &) = delete;

  private:
    void write(const std::string &name, const std::string &content) const {
        std::ofstream file(gadget_ / name, std::ios::binary);
        file << content;
        file.close();
        EXPECT_TRUE(file) << name;
    }

    const fs::path gadget_ = folder / "moxel";
};

class UsbDevice : public test::HIDBusTest {
  protected:
    UsbDevice() { ::unsetenv("MOXEL_HIDRAW"); } // NOLINT(concurrency-mt-unsafe): no thread runs yet
    void SetUp() override {
        std::error_code none;
        if (::geteuid() != 0 || !fs::is_directory(UsbGadget::folder, none) ||
            fs::directory_iterator(UsbGadget::controllers, none) == fs::directory_iterator())
            GTEST_SKIP() << "needs root, and a kernel that plays USB devices (dummy_hcd, usb_f_hid)";
    }
    void TearDown() override {}
};

TEST_F(UsbDevice, SaysItselfWhoMadeIt) {
    const UsbGadget gadget;
    const test::HIDClient client({{std::string(hidVendorIDKey), HIDProperty(int64_t{0x1234})}});
    const HIDDeviceReference device = client.awaitDevice("Maker Thing");
    ASSERT_TRUE(device);
    EXPECT_EQ(device->property(hidManufacturerKey), HIDProperty(std::string("Maker")));
    EXPECT_EQ(device->property(hidProductKey), HIDProperty(std::string("Thing")));
    EXPECT_EQ(device->property(hidSerialNumberKey), HIDProperty(std::string("42")));
    EXPECT_EQ(device->property(hidProductIDKey), HIDProperty(int64_t{0x5678}));
}

} // namespace
} // namespace moxel
