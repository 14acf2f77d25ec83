// Archived records of classes that nobody registered.
#include "KeyedArchive.h"

#include "Format.h"

#include <cassert>

namespace moxel {

GenericObject::GenericObject(std::string className, std::vector<std::string> chain, const Dictionary &members)
    : GenericObject(std::make_shared<ArchivedClass>(ArchivedClass{std::move(className), std::move(chain)}),
                    members, std::vector<bool>(members.size(), false)) {}

GenericObject::GenericObject(std::shared_ptr<const ArchivedClass> archivedClass, const Dictionary &members,
                             std::vector<bool> isInline)
    : class_(std::move(archivedClass)), members_(members.copy()), isInline_(std::move(isInline)) {
    assert(isInline_.size() == members_.size());
}

void GenericObject::encodeWithCoder(KeyedEncoder &encoder) const {
    for (size_t i = 0; i < members_.size(); ++i) {
        const auto &[key, value] = members_.entries()[i];
        if (!isInline_[i])
            encoder.encodeObject(value, key.view());
        else if (value.kind() == Kind::array || value.kind() == Kind::dictionary)
            encoder.encodeContents(value, key.view());
        else
            encoder.encodeScalar(value, key.view());
    }
}

std::string GenericObject::description() const { return format("<%s %@>", class_->name, members_); }

bool GenericObject::isEqual(const Object &other) const {
    const auto *generic = dynamic_cast<const GenericObject *>(&other);
    return generic && *generic->class_ == *class_ && generic->members_ == members_;
}

} // namespace moxel
