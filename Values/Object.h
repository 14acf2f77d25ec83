// Base of records that can stand in keyed archives.
#pragma once

#include "../Platform/Export.h"
#include "Node.h"

#include <string>
#include <string_view>
#include <vector>

namespace moxel {

class KeyedEncoder;

/// A keyed-codable record, held by Ref.
class MOXEL_EXPORT Object : public detail::Node {
  public:
    /// The name under which archives know the class.
    [[nodiscard]] virtual std::string className() const = 0;
    /// The archive's class chain, the class itself first, "NSObject" last.
    [[nodiscard]] virtual std::vector<std::string> classChain() const { return {className(), "NSObject"}; }
    /// Hands every archived member to the encoder. May be called from any thread that holds the record.
    virtual void encodeWithCoder(KeyedEncoder &encoder) const = 0;
    /// What "%@" prints.
    [[nodiscard]] virtual std::string description() const = 0;
    /// Identity unless a class says otherwise.
    [[nodiscard]] virtual bool isEqual(const Object &other) const { return this == &other; }

  protected:
    Object() noexcept : Node(Kind::object) {}
};

} // namespace moxel
