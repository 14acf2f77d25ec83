// The live picture of a session on a terminal: bars for the axes, lamps for the buttons, the latest other
// events.
#pragma once

#include "Event.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace moxel::tool {

/// Draws over its own last picture, at most thirty times a second. Draws with ASCII characters where the
/// locale's are not UTF-8. On the main thread.
class Dashboard {
  public:
    /// Hides the cursor and cuts long rows until destroyed.
    explicit Dashboard(std::string title);
    ~Dashboard();
    Dashboard(const Dashboard &) = delete;
    Dashboard &operator=(const Dashboard &) = delete;

    void show(const Event &event);
    /// Draws what show() left undrawn, if it is time; returns the milliseconds until it is, -1 when nothing
    /// waits.
    [[nodiscard]] int refresh();

    /// The picture as text; one line a row.
    [[nodiscard]] std::string picture() const;

  private:
    void draw();

    [[nodiscard]] std::string bar(int value) const;
    [[nodiscard]] std::string lamps() const;

    const std::string title_;
    const bool isUtf8_;
    MoxelStateRecord state_{};
    std::deque<std::string> latest_; ///< Lines of events that are neither motion nor buttons.
    uint64_t events_ = 0;
    bool isStale_ = true;
    std::chrono::steady_clock::time_point drawn_{};
    size_t rows_ = 0; ///< Of the last picture.
};

} // namespace moxel::tool
