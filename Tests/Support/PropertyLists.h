// Reading and writing property lists in tests, and their contents as exact text.
#pragma once

#include "Values/PropertyList.h"

#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::test {

inline std::span<const uint8_t> asBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

inline std::string asText(const Data &data) { return {data.bytes().begin(), data.bytes().end()}; }

inline Data dataOf(std::initializer_list<uint8_t> bytes) { return Data(std::vector<uint8_t>(bytes)); }

/// Makes text of a value that, unlike Value::description(), tells all kinds apart: 1 true real(1) date(1)
/// uid(1) "1" <31>. Dictionaries keep their order.
class ExactText {
  public:
    static std::string of(const Value &value) {
        ExactText text;
        text.append(value);
        return std::move(text.text_);
    }

  private:
    void append(const Value &value) {
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
            append("real(%.17g)", value.doubleValue());
            break;
        case Kind::date:
            append("date(%.17g)", value.asDate().secondsSince2001);
            break;
        case Kind::uid:
            text_ += "uid(" + std::to_string(value.asUID().index) + ")";
            break;
        case Kind::string:
            append(value.asString());
            break;
        case Kind::data:
            text_ += '<';
            for (const uint8_t byte : value.asData().bytes())
                append("%02x", byte);
            text_ += '>';
            break;
        case Kind::array:
            append(value.asArray());
            break;
        case Kind::dictionary:
            append(value.asDictionary());
            break;
        case Kind::object:
            text_ += "record";
            break;
        }
    }

    template <class Number>
    void append(const char *format, Number number) {
        char buffer[48];
        std::snprintf(buffer, sizeof buffer, format, number);
        text_ += buffer;
    }

    void append(const String &string) {
        text_ += '"';
        for (const char c : string.view()) {
            if (c == '"' || c == '\\')
                text_ += '\\';
            if (static_cast<uint8_t>(c) < 0x20)
                append("\\x%02x", static_cast<unsigned>(c));
            else
                text_ += c;
        }
        text_ += '"';
    }

    void append(const Array &array) {
        text_ += '[';
        for (size_t i = 0; i < array.size(); ++i) {
            text_ += i == 0 ? "" : ", ";
            append(array[i]);
        }
        text_ += ']';
    }

    void append(const Dictionary &dictionary) {
        text_ += '{';
        for (const Dictionary::Entry &entry : dictionary) {
            text_ += &entry == dictionary.entries().data() ? "" : ", ";
            append(entry.key);
            text_ += ": ";
            append(entry.value);
        }
        text_ += '}';
    }

    std::string text_;
};

/// The exact text of what was read, or "error: " and why not.
inline std::string outcomeOf(const Result<Value> &result) {
    return result ? ExactText::of(*result) : "error: " + result.error().message;
}
inline std::string outcomeOf(const Result<PropertyList> &result) {
    return result ? ExactText::of(result->root) : "error: " + result.error().message;
}

inline Data binaryOf(const Value &root) {
    const Result<Data> data = writeBinaryPropertyList(root);
    EXPECT_TRUE(data) << data.error().message;
    return data ? *data : Data();
}

inline std::string xmlOf(const Value &root) {
    const Result<std::string> text = writeXMLPropertyList(root);
    EXPECT_TRUE(text) << text.error().message;
    return text ? *text : std::string();
}

} // namespace moxel::test
