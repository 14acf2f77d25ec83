// A HID device that a test lets the kernel have, and plays itself.
#pragma once

#include "Support/Await.h"
#include "Support/BusPublisher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/input.h>
#include <linux/uhid.h>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace moxel::test {

/// Skips the test where the kernel lets this process have no virtual device.
#define MOXEL_NEEDS_UHID()                                                                                   \
    if (::access("/dev/uhid", R_OK | W_OK) != 0)                                                             \
    GTEST_SKIP() << "/dev/uhid: " << std::strerror(errno)

/// What the kernel told the device.
struct KernelEvent {
    uint32_t type = 0;
    uint8_t reportType = 0;
    Bytes report; ///< Of an output, its identifier first; the identifier alone of a request.
};

class VirtualDevice {
  public:
    struct Description {
        std::string name = "Moxel Test Device";
        std::string address = "Moxel/virtual";
        std::string serialNumber = "S1";
        uint16_t bus = BUS_VIRTUAL;
        uint32_t vendorID = 0x4D58;
        uint32_t productID = 0x0102;
        Bytes descriptor = numberedReports();
    };
    /// The answer to a request for a report; an empty one is an error.
    using Answer = std::function<Bytes(uint8_t reportID)>;

    /// Usage page 0xFF00, usage 1; reports 0x35 in (63 bytes) and 0x46 out (3071 bytes).
    static Bytes numberedReports() {
        return {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00, 0x26, 0xFF,
                0x00, 0x75, 0x08, 0x85, 0x35, 0x09, 0x35, 0x96, 0x3F, 0x00, 0x81,
                0x02, 0x85, 0x46, 0x09, 0x46, 0x96, 0xFF, 0x0B, 0x91, 0x02, 0xC0};
    }
    /// Usage page 0xFF00, usage 1; one report of 4 bytes in.
    static Bytes unnumberedReports() {
        return {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00, 0x26, 0xFF,
                0x00, 0x75, 0x08, 0x09, 0x02, 0x95, 0x04, 0x81, 0x02, 0xC0};
    }

    VirtualDevice() : VirtualDevice(Description{}) {}
    explicit VirtualDevice(const Description &description)
        : device_(::open("/dev/uhid", O_RDWR | O_CLOEXEC)), stop_(::eventfd(0, EFD_CLOEXEC)) {
        uhid_event event{};
        event.type = UHID_CREATE2;
        uhid_create2_req &create = event.u.create2;
        std::ranges::copy(description.name, create.name);
        std::ranges::copy(description.address, create.phys);
        std::ranges::copy(description.serialNumber, create.uniq);
        std::ranges::copy(description.descriptor, create.rd_data);
        create.rd_size = static_cast<uint16_t>(description.descriptor.size());
        create.bus = description.bus;
        create.vendor = description.vendorID;
        create.product = description.productID;
        write(event);
        thread_ = std::thread([this] { serve(); });
    }
    ~VirtualDevice() { unplug(); }
    VirtualDevice(const VirtualDevice &) = delete;
    VirtualDevice &operator=(const VirtualDevice &) = delete;

    /// Gone from the kernel when this returns.
    void unplug() {
        if (!thread_.joinable())
            return;
        ::eventfd_write(stop_, 1);
        thread_.join();
        ::close(device_);
        ::close(stop_);
    }

    void sendInput(const Bytes &report) const {
        uhid_event event{};
        event.type = UHID_INPUT2;
        event.u.input2.size = static_cast<uint16_t>(report.size());
        std::ranges::copy(report, event.u.input2.data);
        write(event);
    }
    /// Without an answer, requests stay without a reply.
    void setAnswer(Answer answer) { answer_.set(std::move(answer)); }

    [[nodiscard]] bool await(uint32_t type, size_t count = 1) const {
        return events_.await([&](const auto &events) { return countOf(events, type) >= count; });
    }
    [[nodiscard]] size_t count(uint32_t type) const { return countOf(events_.get(), type); }
    [[nodiscard]] std::vector<Bytes> outputs() const {
        std::vector<Bytes> reports;
        for (const KernelEvent &event : events_.get())
            if (event.type == UHID_OUTPUT)
                reports.push_back(event.report);
        return reports;
    }

  private:
    static size_t countOf(const std::vector<KernelEvent> &events, uint32_t type) {
        return static_cast<size_t>(std::ranges::count(events, type, &KernelEvent::type));
    }

    void write(const uhid_event &event) const {
        EXPECT_EQ(::write(device_, &event, sizeof event), static_cast<ssize_t>(sizeof event))
            << std::strerror(errno);
    }

    void serve() {
        for (;;) {
            pollfd ready[2] = {{device_, POLLIN, 0}, {stop_, POLLIN, 0}};
            if (::poll(ready, 2, -1) < 0 || ready[1].revents != 0)
                return;
            uhid_event event{};
            if (::read(device_, &event, sizeof event) > 0)
                take(event);
        }
    }

    void take(const uhid_event &event) {
        KernelEvent taken{event.type, 0, {}};
        if (event.type == UHID_OUTPUT) {
            const uhid_output_req &output = event.u.output;
            taken.reportType = output.rtype;
            taken.report.assign(output.data, output.data + output.size);
        } else if (event.type == UHID_GET_REPORT) {
            taken.reportType = event.u.get_report.rtype;
            taken.report = {event.u.get_report.rnum};
        }
        events_.change([&](auto &events) { events.push_back(taken); });
        const Answer answer = answer_.get();
        if (event.type != UHID_GET_REPORT || !answer)
            return;
        const Bytes report = answer(event.u.get_report.rnum);
        uhid_event reply{};
        reply.type = UHID_GET_REPORT_REPLY;
        reply.u.get_report_reply.id = event.u.get_report.id;
        reply.u.get_report_reply.err = report.empty() ? EIO : 0;
        reply.u.get_report_reply.size = static_cast<uint16_t>(report.size());
        std::ranges::copy(report, reply.u.get_report_reply.data);
        write(reply);
    }

    int device_;
    int stop_;
    Awaited<std::vector<KernelEvent>> events_;
    Awaited<Answer> answer_;
    std::thread thread_;
};

} // namespace moxel::test
