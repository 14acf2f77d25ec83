#include "Daemon/FakeInputDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace moxel::daemon {

namespace {

using FileKey = std::pair<dev_t, ino_t>;

struct Registry {
    std::mutex mutex;
    std::map<FileKey, FakeInputAnswers> devices;
};

Registry &registry() {
    static Registry &all = *new Registry;
    return all;
}

std::optional<FileKey> keyOf(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode))
        return std::nullopt;
    return FileKey(status.st_dev, status.st_ino);
}

int give(const void *bytes, size_t size, void *buffer, size_t room) {
    std::memcpy(buffer, bytes, std::min(size, room));
    return static_cast<int>(std::min(size, room));
}

template <size_t count>
int giveBits(const std::bitset<count> &bits, void *buffer, size_t room) {
    std::vector<uint8_t> bytes((count + 7) / 8);
    for (size_t bit = 0; bit < count; ++bit)
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | (bits[bit] ? 1 << bit % 8 : 0));
    return give(bytes.data(), bytes.size(), buffer, room);
}

std::bitset<EV_CNT> typesOf(const InputCapabilities &capabilities) {
    std::bitset<EV_CNT> types;
    types[EV_SYN] = true;
    types[EV_KEY] = capabilities.keys.any();
    types[EV_REL] = capabilities.relative.any();
    types[EV_ABS] = capabilities.absolute.any();
    return types;
}

int fail(int error) {
    errno = error;
    return -1;
}

int answerTo(const FakeInputAnswers &answers, unsigned long request, void *buffer) {
    constexpr unsigned nameNumber = _IOC_NR(EVIOCGNAME(0));
    constexpr unsigned propertiesNumber = _IOC_NR(EVIOCGPROP(0));
    constexpr unsigned pressedNumber = _IOC_NR(EVIOCGKEY(0));
    constexpr unsigned typesNumber = _IOC_NR(EVIOCGBIT(0, 0));
    constexpr unsigned axesNumber = _IOC_NR(EVIOCGABS(0));
    const unsigned number = _IOC_NR(request);
    const size_t room = _IOC_SIZE(request);
    if (request == EVIOCGVERSION) {
        const int version = EV_VERSION;
        give(&version, sizeof version, buffer, room);
        return 0;
    }
    if (request == EVIOCGID) {
        const input_id identity{BUS_USB, answers.vendorID, answers.productID, 1};
        give(&identity, sizeof identity, buffer, room);
        return 0;
    }
    if (number == nameNumber)
        return give(answers.name.c_str(), answers.name.size() + 1, buffer, room);
    if (number == propertiesNumber)
        return giveBits(answers.capabilities.properties, buffer, room);
    if (number == pressedNumber)
        return giveBits(answers.pressed, buffer, room);
    for (const unsigned none : {_IOC_NR(EVIOCGLED(0)), _IOC_NR(EVIOCGSND(0)), _IOC_NR(EVIOCGSW(0))})
        if (number == none)
            return giveBits(std::bitset<8>(), buffer, room);
    if (number == typesNumber)
        return giveBits(typesOf(answers.capabilities), buffer, room);
    if (number == typesNumber + EV_KEY)
        return giveBits(answers.capabilities.keys, buffer, room);
    if (number == typesNumber + EV_REL)
        return giveBits(answers.capabilities.relative, buffer, room);
    if (number == typesNumber + EV_ABS)
        return giveBits(answers.capabilities.absolute, buffer, room);
    if (number > typesNumber && number < typesNumber + EV_CNT)
        return giveBits(std::bitset<8>(), buffer, room);
    if (number >= axesNumber && number < axesNumber + ABS_CNT) {
        give(&answers.axes[number - axesNumber], sizeof(input_absinfo), buffer, room);
        return 0;
    }
    return fail(ENOENT); // Among them the physical path and the unique identifier.
}

} // namespace

FakeInputAnswers FakeInputAnswers::controller() {
    FakeInputAnswers answers;
    answers.capabilities.relative = 0x3F;
    answers.capabilities.keys[BTN_0] = true;
    answers.capabilities.keys[BTN_1] = true;
    return answers;
}

FakeInputAnswers FakeInputAnswers::absoluteController() {
    FakeInputAnswers answers = controller();
    answers.capabilities.relative.reset();
    for (size_t code = ABS_X; code <= ABS_RZ; ++code) {
        answers.capabilities.absolute[code] = true;
        answers.axes[code].minimum = -350;
        answers.axes[code].maximum = 350;
    }
    return answers;
}

FakeInputAnswers FakeInputAnswers::stick() {
    FakeInputAnswers answers;
    answers.name = "Test Stick";
    answers.productID = 0x0001;
    answers.capabilities.keys[BTN_TRIGGER] = true;
    for (size_t code = ABS_X; code <= ABS_Y; ++code) {
        answers.capabilities.absolute[code] = true;
        answers.axes[code].minimum = -100;
        answers.axes[code].maximum = 100;
    }
    return answers;
}

FakeInputDevice::FakeInputDevice(std::string path, FakeInputAnswers answers) : path_(std::move(path)) {
    // Comes into being whole: it is made under another name.
    const std::string made = path_ + ".new";
    EXPECT_EQ(::mkfifo(made.c_str(), 0600), 0) << made;
    pipe_.reset(::open(made.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const std::optional<FileKey> key = keyOf(pipe_.get());
    EXPECT_TRUE(key.has_value());
    if (key) {
        const std::lock_guard lock(registry().mutex);
        registry().devices[*key] = std::move(answers);
    }
    std::filesystem::rename(made, path_);
}

FakeInputDevice::~FakeInputDevice() { unplug(); }

void FakeInputDevice::write(std::initializer_list<Event> events) {
    std::vector<input_event> records;
    for (const Event &event : events) {
        input_event &record = records.emplace_back();
        record.type = event.type;
        record.code = event.code;
        record.value = event.value;
    }
    const size_t size = records.size() * sizeof(input_event);
    EXPECT_EQ(::write(pipe_.get(), records.data(), size), static_cast<ssize_t>(size));
}

void FakeInputDevice::report(std::initializer_list<Event> events) {
    write(events);
    write({{EV_SYN, SYN_REPORT, 0}});
}

void FakeInputDevice::answer(const FakeInputAnswers &answers) {
    if (const std::optional<FileKey> key = keyOf(pipe_.get())) {
        const std::lock_guard lock(registry().mutex);
        registry().devices[*key] = answers;
    }
}

void FakeInputDevice::unplug() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    if (const std::optional<FileKey> key = keyOf(pipe_.get())) {
        const std::lock_guard lock(registry().mutex);
        registry().devices.erase(*key);
    }
    hangUp();
}

} // namespace moxel::daemon

/// Stands in front of the C library's, for all libraries of the process.
extern "C" __attribute__((visibility("default"))) int ioctl(int descriptor, unsigned long request,
                                                            ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *buffer = va_arg(arguments, void *);
    va_end(arguments);
    using namespace moxel::daemon;
    if (_IOC_TYPE(request) == 'E') {
        if (const auto key = keyOf(descriptor)) {
            const std::lock_guard lock(registry().mutex);
            const auto device = registry().devices.find(*key);
            return device == registry().devices.end() ? fail(ENOTTY)
                                                      : answerTo(device->second, request, buffer);
        }
    }
    return static_cast<int>(::syscall(SYS_ioctl, descriptor, request, buffer));
}
