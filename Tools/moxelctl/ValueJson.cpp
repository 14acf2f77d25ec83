#include "ValueJson.h"

#include "QuotedText.h"
#include "ValueText.h"
#include "ValueWalk.h"
#include "Values/DateText.h"
#include <Moxel/MoxelStrings.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace moxel::tool {

namespace {

constexpr size_t jsonTextLimit = size_t{256} << 20;

std::string dateText(Date date) {
    const std::optional<std::string> text = detail::xmlTextFromDate(date);
    const std::string seconds = realText(date.secondsSince2001);
    return "{\"$date\": " + (text ? quotedText(*text) : "null") +
           ", \"$seconds\": " + (std::isfinite(date.secondsSince2001) ? seconds : quotedText(seconds)) + "}";
}

class JsonWriter final : public ValueVisitor {
  public:
    explicit JsonWriter(JsonLayout layout) : isIndented_(layout == JsonLayout::indented) {}

    void member(const String &key, size_t index, size_t depth) override {
        if (index > 0)
            text_ += isIndented_ ? "," : ", ";
        startRow(depth);
        if (key)
            text_ += quotedText(key.view()) + ": ";
    }

    void leaf(const Value &value, size_t) override {
        switch (value.kind()) {
        case Kind::null:
            text_ += "null";
            break;
        case Kind::boolean:
            text_ += value.boolValue() ? "true" : "false";
            break;
        case Kind::integer:
            text_ += std::to_string(value.int64Value());
            break;
        case Kind::unsignedInteger:
            text_ += std::to_string(value.uint64Value());
            break;
        case Kind::real: {
            const std::string real = realText(value.doubleValue());
            text_ += std::isfinite(value.doubleValue()) ? real : "{\"$real\": " + quotedText(real) + "}";
            break;
        }
        case Kind::date:
            text_ += dateText(value.asDate());
            break;
        case Kind::uid:
            text_ += "{\"$uid\": " + std::to_string(value.asUID().index) + "}";
            break;
        case Kind::data:
            text_ += "{\"$data\": " + quotedText(hexString(value.asData()).view()) + "}";
            break;
        default:
            text_ += quotedText(value.asString().view());
        }
    }

    bool open(const Value &container, size_t, size_t) override {
        if (const Ref<Object> record = container.asObject())
            openRecord(*record);
        else
            text_ += container.kind() == Kind::array ? '[' : '{';
        return true;
    }

    void close(const Value &container, size_t size, size_t depth) override {
        if (size > 0)
            startRow(depth);
        text_ += container.kind() == Kind::array ? "]" : container.kind() == Kind::object ? "}}" : "}";
    }

    bool hasEnough() const override { return text_.size() > jsonTextLimit; }

    std::string takeText() { return std::move(text_); }

  private:
    void startRow(size_t depth) {
        if (isIndented_)
            (text_ += '\n').append(2 * std::min(depth, deepestIndentation), ' ');
    }

    void openRecord(const Object &record) {
        text_ += "{\"$class\": " + quotedText(record.className()) + ", \"$classes\": [";
        bool isFirst = true;
        for (const std::string &name : record.classChain()) {
            text_ += (isFirst ? "" : ", ") + quotedText(name);
            isFirst = false;
        }
        text_ += "], \"$members\": {";
    }

    const bool isIndented_;
    std::string text_;
};

} // namespace

Result<std::string> jsonText(const Value &value, JsonLayout layout) {
    JsonWriter writer(layout);
    walk(value, writer);
    if (writer.hasEnough())
        return Error{"the JSON text would be larger than 256 MiB: it repeats what stands in several places"};
    return writer.takeText();
}

std::string realText(double real) {
    if (std::isnan(real))
        return "nan";
    if (std::isinf(real))
        return real < 0 ? "-inf" : "inf";
    return nlohmann::json(real).dump();
}

} // namespace moxel::tool
