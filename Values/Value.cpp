// Conversions between values and what they hold.
#include "Value.h"

#include <cmath>

namespace moxel {

static_assert(sizeof(Value) == 16);

Value::Value(String string) noexcept : Value(Kind::string, string.node_.leak()) {}
Value::Value(Data data) noexcept : Value(Kind::data, data.node_.leak()) {}
Value::Value(Array array) noexcept : Value(Kind::array, array.node_.leak()) {}
Value::Value(Dictionary dictionary) noexcept : Value(Kind::dictionary, dictionary.node_.leak()) {}
Value::Value(Object *object) noexcept : Value(Kind::object, object) {}

bool Value::boolValue() const noexcept {
    return kind_ == Kind::real ? content_.real != 0 : int64Value() != 0;
}

int64_t Value::int64Value() const noexcept {
    switch (kind_) {
    case Kind::boolean:
    case Kind::integer:
        return content_.integer;
    case Kind::unsignedInteger:
        return static_cast<int64_t>(content_.unsignedInteger);
    case Kind::real:
        if (std::isnan(content_.real))
            return 0;
        if (content_.real >= 0x1p63)
            return INT64_MAX;
        return content_.real < -0x1p63 ? INT64_MIN : static_cast<int64_t>(content_.real);
    default:
        return 0;
    }
}

double Value::doubleValue() const noexcept {
    switch (kind_) {
    case Kind::boolean:
    case Kind::integer:
        return static_cast<double>(content_.integer);
    case Kind::unsignedInteger:
        return static_cast<double>(content_.unsignedInteger);
    case Kind::real:
        return content_.real;
    default:
        return 0;
    }
}

String Value::asString() const noexcept {
    return kind_ == Kind::string ? String(Ref<const detail::Node>::share(content_.node)) : String();
}

Data Value::asData() const noexcept {
    return kind_ == Kind::data ? Data(Ref<const detail::Node>::share(content_.node)) : Data();
}

Array Value::asArray() const noexcept {
    return kind_ == Kind::array ? Array(Ref<detail::Node>::share(content_.node)) : Array();
}

Dictionary Value::asDictionary() const noexcept {
    return kind_ == Kind::dictionary ? Dictionary(Ref<detail::Node>::share(content_.node)) : Dictionary();
}

MutableArray Value::asMutableArray() const noexcept {
    const bool isOne = kind_ == Kind::array && content_.node->isMutable();
    return isOne ? MutableArray(Ref<detail::Node>::share(content_.node)) : MutableArray();
}

MutableDictionary Value::asMutableDictionary() const noexcept {
    const bool isOne = kind_ == Kind::dictionary && content_.node->isMutable();
    return isOne ? MutableDictionary(Ref<detail::Node>::share(content_.node)) : MutableDictionary();
}

} // namespace moxel
