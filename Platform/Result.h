// Result<T>: a value or the reason why there is none; must be looked at.
#pragma once

#include "Export.h"
#include <cassert>
#include <string>
#include <utility>
#include <variant>

namespace moxel {

/// Why something failed, in words that can stand behind "Error: " in a log line.
struct Error {
    std::string message; ///< Words.
    int code = 0;        ///< The platform's error number (errno), 0 when there is none.
};

/// An Error from an errno value: "WHAT: text of the error".
[[nodiscard]] MOXEL_EXPORT Error systemError(const std::string &what, int errnoValue);

/// A value, or the reason why there is none.
template <class T>
class [[nodiscard]] Result {
  public:
    /// Success.
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    /// Failure.
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    /// Whether there is a value.
    [[nodiscard]] bool ok() const { return content_.index() == 0; }
    explicit operator bool() const { return ok(); }

    /// The value; only when ok().
    T &value() & { return *checked(); }
    /// The value; only when ok().
    const T &value() const & { return *const_cast<Result *>(this)->checked(); }
    /// The value; only when ok().
    T &&value() && { return std::move(*checked()); }
    /// The value; only when ok().
    T &operator*() & { return value(); }
    /// The value; only when ok().
    const T &operator*() const & { return value(); }
    /// The value; only when ok().
    T &&operator*() && { return std::move(*this).value(); }
    /// The value; only when ok().
    T *operator->() { return checked(); }
    /// The value; only when ok().
    const T *operator->() const { return const_cast<Result *>(this)->checked(); }

    /// The error; only when not ok().
    [[nodiscard]] const Error &error() const {
        assert(!ok());
        return *std::get_if<1>(&content_);
    }

    /// The value, or another one when there is none.
    template <class U>
    [[nodiscard]] T valueOr(U &&other) && {
        return ok() ? std::move(*checked()) : static_cast<T>(std::forward<U>(other));
    }

  private:
    T *checked() {
        assert(ok());
        return std::get_if<0>(&content_);
    }

    std::variant<T, Error> content_;
};

/// The outcome of an operation that yields nothing but success or failure.
template <>
class [[nodiscard]] Result<void> {
  public:
    Result() = default;
    /// Failure.
    Result(Error error) : error_(std::move(error)), ok_(false) {}

    /// Whether it succeeded.
    [[nodiscard]] bool ok() const { return ok_; }
    explicit operator bool() const { return ok_; }
    /// The error; only when not ok().
    [[nodiscard]] const Error &error() const {
        assert(!ok_);
        return error_;
    }

  private:
    Error error_;
    bool ok_ = true;
};

} // namespace moxel
