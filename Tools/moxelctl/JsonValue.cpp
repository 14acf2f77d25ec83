#include "JsonValue.h"

#include "Values/Array.h"
#include "Values/Dictionary.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace moxel::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr size_t jsonDepthLimit = 64;

/// Makes values while the parser reads, with a stack of its own.
class ValueBuilder final : public nlohmann::json_sax<Json> {
  public:
    [[nodiscard]] Result<Value> take() const { return error_.empty() ? Result<Value>(root_) : Error{error_}; }

    bool null() override { return add({}); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(int64_t value) override { return add(value); }
    bool number_unsigned(uint64_t value) override { return add(value); }
    bool number_float(double value, const std::string &) override { return add(value); }
    bool string(std::string &value) override { return add(value); }
    bool binary(Json::binary_t &) override { return false; }
    bool start_object(size_t) override { return open(MutableDictionary::withCapacity(0)); }
    bool start_array(size_t) override { return open(MutableArray::withCapacity(0)); }
    bool key(std::string &text) override {
        open_.back().key = text;
        return true;
    }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool parse_error(size_t position, const std::string &,
                     const nlohmann::detail::exception &exception) override {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
        const std::string text = exception.what();
        const size_t start = text.find("] ");
        error_ = start == std::string::npos ? "not JSON at byte " + std::to_string(position)
                                            : text.substr(start + 2);
        return false;
    }

  private:
    struct Container {
        Value value;
        String key; ///< Of the next member.
    };

    bool open(const Value &container) {
        if (open_.size() >= jsonDepthLimit) {
            error_ = "nested too deep";
            return false;
        }
        open_.push_back({container, {}});
        return true;
    }
    bool close() {
        const Value closed = open_.back().value;
        open_.pop_back();
        return add(closed);
    }
    bool add(const Value &value) {
        if (open_.empty())
            root_ = value;
        else if (MutableArray array = open_.back().value.asMutableArray())
            array.append(value);
        else
            open_.back().value.asMutableDictionary().set(open_.back().key, value);
        return true;
    }

    std::vector<Container> open_;
    Value root_;
    std::string error_;
};

} // namespace

Result<Value> valueFromJson(std::span<const uint8_t> content) {
    ValueBuilder builder;
    Json::sax_parse(content.begin(), content.end(), &builder);
    return builder.take();
}

} // namespace moxel::tool
