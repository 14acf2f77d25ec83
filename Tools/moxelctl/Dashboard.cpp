#include "Dashboard.h"

#include "Values/Format.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace moxel::tool {

namespace {

constexpr std::chrono::milliseconds framePause{33};
constexpr size_t latestRows = 5;
constexpr int halfWidth = 24;
/// Deflection that fills a bar.
constexpr int fullDeflection = 350;
constexpr const char *axisNames[] = {"x ", "y ", "z ", "rx", "ry", "rz"};

/// A bar that grows from the middle: "[      |####    ]".
std::string bar(int value) {
    const int length = std::min(std::abs(value) * halfWidth / fullDeflection, halfWidth);
    const std::string filled = [length] {
        std::string cells;
        for (int i = 0; i < length; ++i)
            cells += "█";
        return cells;
    }();
    const std::string left = value < 0 ? std::string(static_cast<size_t>(halfWidth - length), ' ') + filled
                                       : std::string(halfWidth, ' ');
    const std::string right = value > 0 ? filled + std::string(static_cast<size_t>(halfWidth - length), ' ')
                                        : std::string(halfWidth, ' ');
    return "[" + left + "|" + right + "]";
}

std::string lamps(uint32_t buttons) {
    std::string text;
    for (int button = 0; button < 32; ++button) {
        if (button > 0 && button % 8 == 0)
            text += ' ';
        text += buttons >> button & 1 ? "●" : "○";
    }
    return text;
}

} // namespace

Dashboard::Dashboard(std::string title) : title_(std::move(title)) {
    std::fputs("\x1b[?25l", stdout);
    draw();
}

Dashboard::~Dashboard() {
    draw();
    std::fputs("\x1b[?25h", stdout);
    std::fflush(stdout);
}

void Dashboard::show(const Event &event) {
    ++events_;
    isStale_ = true;
    if (event.kind == Event::Kind::motion)
        std::copy_n(event.record.axis, 6, state_.axis);
    if (event.kind == Event::Kind::motion || event.kind == Event::Kind::buttons) {
        state_.buttons = event.record.buttons;
        return;
    }
    latest_.push_back(toText(event));
    if (latest_.size() > latestRows)
        latest_.pop_front();
}

int Dashboard::refresh() {
    if (!isStale_)
        return -1;
    const auto waited = std::chrono::steady_clock::now() - drawn_;
    if (waited >= framePause) {
        draw();
        return -1;
    }
    return static_cast<int>(
               std::chrono::duration_cast<std::chrono::milliseconds>(framePause - waited).count()) +
           1;
}

std::string Dashboard::picture() const {
    std::string text = format("%s   %llu events\n", title_, events_);
    for (size_t axis = 0; axis < 6; ++axis)
        text += format("  %s %s %6d\n", axisNames[axis], bar(state_.axis[axis]), state_.axis[axis]);
    text += "  buttons " + lamps(state_.buttons) + "\n";
    for (size_t row = 0; row < latestRows; ++row)
        text += row < latest_.size() ? "  " + latest_[row] + "\n" : "\n";
    return text;
}

void Dashboard::draw() {
    std::string text = picture();
    const auto rows = static_cast<size_t>(std::ranges::count(text, '\n'));
    if (rows_ > 0)
        std::printf("\x1b[%zuA", rows_); // Back to the first row of the last picture.
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 4))
        text.insert(at, "\x1b[K"); // Clears what a longer line left.
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    rows_ = rows;
    drawn_ = std::chrono::steady_clock::now();
    isStale_ = false;
}

} // namespace moxel::tool
