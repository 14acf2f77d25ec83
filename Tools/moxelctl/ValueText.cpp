#include "ValueText.h"

#include "QuotedText.h"
#include "ValueJson.h"
#include "ValueWalk.h"
#include "Values/DateText.h"
#include "Values/Format.h"

#include <algorithm>
#include <unordered_map>

namespace moxel::tool {

namespace {

/// Bytes up to this many stand on the row of their key.
constexpr size_t shortData = 16;

std::string indentation(size_t depth) { return std::string(2 * std::min(depth, deepestIndentation), ' '); }

/// Counts in how many places each container stands.
class PlaceCounter final : public ValueVisitor {
  public:
    void member(const String &, size_t, size_t) override {}
    void leaf(const Value &, size_t) override {}
    bool open(const Value &container, size_t, size_t) override { return ++places_[container.node()] == 1; }
    void close(const Value &, size_t, size_t) override {}
    bool hasEnough() const override { return false; }

    [[nodiscard]] bool isShared(const Value &container) const { return places_.at(container.node()) > 1; }

  private:
    std::unordered_map<const detail::Node *, size_t> places_;
};

/// A key as it is when it is a plain word, else between quotation marks.
std::string keyText(const String &key) {
    const std::string_view text = key.view();
    const bool isPlain = !text.empty() && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '.' || c == '$' || c == '-';
    });
    return isPlain ? std::string(text) : quotedText(text);
}

class TextWriter final : public ValueVisitor {
  public:
    TextWriter(const PlaceCounter &places, size_t dataLimit) : places_(places), dataLimit_(dataLimit) {}

    void member(const String &key, size_t, size_t depth) override {
        text_ += indentation(depth);
        if (key)
            text_ += keyText(key) + " = ";
    }

    void leaf(const Value &value, size_t depth) override {
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
        case Kind::real:
            text_ += realText(value.doubleValue());
            break;
        case Kind::date:
            text_ += detail::xmlTextFromDate(value.asDate())
                         .value_or(realText(value.asDate().secondsSince2001) + " s since 2001");
            break;
        case Kind::uid:
            text_ += "uid " + std::to_string(value.asUID().index);
            break;
        case Kind::data:
            return writeData(value.asData().bytes(), depth);
        default:
            text_ += quotedText(value.asString().view());
        }
        text_ += '\n';
    }

    bool open(const Value &container, size_t size, size_t) override {
        if (size > 0 && places_.isShared(container)) {
            const auto [at, isNew] = marks_.try_emplace(container.node(), marks_.size() + 1);
            if (!isNew) {
                text_ += "*" + std::to_string(at->second) + "\n";
                return false;
            }
            text_ += "&" + std::to_string(at->second) + " ";
        }
        if (const Ref<Object> record = container.asObject())
            text_ += keyText(record->className()) + " ";
        text_ += container.kind() == Kind::array ? "[" : "{";
        if (size > 0)
            text_ += '\n';
        return true;
    }

    void close(const Value &container, size_t size, size_t depth) override {
        if (size > 0)
            text_ += indentation(depth);
        text_ += container.kind() == Kind::array ? "]\n" : "}\n";
    }

    bool hasEnough() const override { return false; }

    std::string takeText() { return std::move(text_); }

  private:
    void writeData(std::span<const uint8_t> bytes, size_t depth) {
        if (bytes.size() <= shortData) {
            text_ += "<" + spacedHex(bytes) + ">\n";
        } else {
            text_ +=
                format("<%zu bytes>\n", bytes.size()) + hexDump(bytes, indentation(depth + 1), dataLimit_);
        }
    }

    const PlaceCounter &places_;
    const size_t dataLimit_;
    std::unordered_map<const detail::Node *, size_t> marks_;
    std::string text_;
};

} // namespace

std::string readableText(const Value &value, size_t dataLimit) {
    PlaceCounter places;
    walk(value, places);
    TextWriter writer(places, dataLimit);
    walk(value, writer);
    return writer.takeText();
}

} // namespace moxel::tool
