#include "Dashboard.h"

#include "Values/Format.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>

namespace moxel::tool {

namespace {

constexpr std::chrono::milliseconds framePause{33};
constexpr size_t latestRows = 5;
constexpr int halfWidth = 24;
/// Deflection that fills a bar.
constexpr int fullDeflection = 350;
constexpr const char *axisNames[] = {"x ", "y ", "z ", "rx", "ry", "rz"};

/// Cursor off, and rows that are wider than the terminal are cut instead of wrapped, which would put the next
/// picture in a wrong place.
constexpr const char *enter = "\x1b[?25l\x1b[?7l";
constexpr const char *leave = "\x1b[?7h\x1b[?25h";

bool localeIsUtf8() {
    const char *codeset = ::nl_langinfo(CODESET); // NOLINT(concurrency-mt-unsafe): the locale stays as it is
    return std::strcmp(codeset, "UTF-8") == 0;
}

std::string repeated(const char *text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

} // namespace

Dashboard::Dashboard(std::string title) : title_(std::move(title)), isUtf8_(localeIsUtf8()) {
    std::fputs(enter, stdout);
    draw();
}

Dashboard::~Dashboard() {
    draw();
    std::fputs(leave, stdout);
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

/// A bar that grows from the middle: "[      |####    ]".
std::string Dashboard::bar(int value) const {
    const int length = std::min(std::abs(value) * halfWidth / fullDeflection, halfWidth);
    const std::string filled = repeated(isUtf8_ ? "█" : "#", length);
    const std::string rest(static_cast<size_t>(halfWidth - length), ' ');
    const std::string empty(static_cast<size_t>(halfWidth), ' ');
    return "[" + (value < 0 ? rest + filled : empty) + "|" + (value > 0 ? filled + rest : empty) + "]";
}

std::string Dashboard::lamps() const {
    std::string text;
    for (int button = 0; button < 32; ++button) {
        if (button > 0 && button % 8 == 0)
            text += ' ';
        const bool isDown = state_.buttons >> button & 1;
        text += isUtf8_ ? (isDown ? "●" : "○") : (isDown ? "O" : ".");
    }
    return text;
}

std::string Dashboard::picture() const {
    std::string text = format("%s   %llu event%s\n", title_, events_, events_ == 1 ? "" : "s");
    for (size_t axis = 0; axis < 6; ++axis)
        text += format("  %s %s %6d\n", axisNames[axis], bar(state_.axis[axis]), state_.axis[axis]);
    text += "  buttons " + lamps() + "\n";
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
