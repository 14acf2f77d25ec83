// A driver that does the least that sessions need, so that a measurement is not one of the driver.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace moxel::benchmarks {

/// Publishes the base channel and the dedicated channels that sessions ask for, on a thread of its own. It
/// looks into no request: the first on a channel is the registration, all others are acknowledged.
class BareDriver {
  public:
    explicit BareDriver(std::string busFolder);
    ~BareDriver();
    BareDriver(const BareDriver &) = delete;
    BareDriver &operator=(const BareDriver &) = delete;

    /// Any thread. The socket over which a registered client gets its input.
    [[nodiscard]] int inputSocket(uint16_t clientID);

  private:
    struct Device {
        std::string path; ///< Of its socket.
        std::string name;
        uint64_t channelID = 0; ///< 0 for the base channel.
        uint16_t clientID = 0;
        int input = -1; ///< The connection that is open.
    };
    struct Endpoint {
        int descriptor;
        bool listens;
        std::shared_ptr<Device> device;
    };

    void publish(const std::string &name, uint64_t channelID);
    void add(int descriptor, bool listens, const std::shared_ptr<Device> &device);
    void run();
    void accept(const Endpoint &listener);
    void serve(const Endpoint &connection);
    void setReport(Device &device, uint8_t reportID, const uint8_t *report, size_t size);
    void control(Device &device, const uint8_t *packet);
    void removeDevice(uint64_t channelID);
    void remove(int descriptor);

    const std::string busFolder_;
    const int epoll_;
    const int stop_;
    std::map<int, Endpoint> endpoints_; ///< By descriptor.
    uint16_t lastClient_ = 0;
    std::mutex inputsMutex_;
    std::map<uint16_t, int> inputs_; ///< By client.
    std::thread thread_;
};

} // namespace moxel::benchmarks
