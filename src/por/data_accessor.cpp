#include <tessel_link/por/data_accessor.h>

#include <sstream>

#include <tessel_link/common/unicode.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/print.h>
#include <tessel_link/por/util.h>

#include "por/por_errors.h"

namespace Por::Util {

namespace {

const UnitName kFirst = UnitName::Literal("first");
const UnitName kSecond = UnitName::Literal("second");

// The step into a composite, or into an array read as a list of key/value pairs.
struct MapElementFinder {
    const UnitName& name;
    const View::Unit* result = nullptr;

    void operator()(const View::CompositeValue& composite) {
        auto take = MakeProcessor<const View::Property>([&](const View::Property& property) {
            result = &property.GetUnit();
            return true;
        });
        composite.Find(name, take);
    }

    void operator()(const View::ArrayValue& array) {
        auto pairs = MakeProcessor<const View::Unit>([&](const View::Unit& element) {
            if (!IsComposite(element)) {
                return false;
            }
            const View::Property* first = GetProperty(element, kFirst);
            if (first == nullptr) {
                return false;
            }
            const WideString key =
                UnitValueGetter<WideString, TypeMismatchHandlers::ReturnFailSafeValue>::Get(
                    first->GetUnit());
            if (Common::Utf16ToUtf8(key) != name.Text()) {
                return false;
            }
            const View::Property* second = GetProperty(element, kSecond);
            result = second != nullptr ? &second->GetUnit() : nullptr;
            return true;
        });
        array.ForEach(pairs);
    }

    template <class Other>
    void operator()(const Other&) {}
};

}  // namespace

const View::Unit* Find(const View::Unit* unit, const UnitName& name) {
    if (unit == nullptr) {
        return nullptr;
    }
    MapElementFinder finder{name};
    VisitValue(*unit, finder);
    return finder.result;
}

ConstDataAccessor ConstDataAccessor::operator[](const UnitName& name) const {
    ConstDataAccessor next(*this);
    if (unit_ == nullptr) {
        return next;
    }
    next.unit_ = Find(unit_, name);
    if (next.unit_ == nullptr) {
        next.failed_ = name;
    }
    return next;
}

void ConstDataAccessor::EnsureUnitIsValid() const {
    if (unit_ != nullptr) {
        return;
    }
    const Common::ErrorOrigin origin = TL_ORIGIN("Por::Util::ConstDataAccessor::EnsureUnitIsValid");
    const View::Unit* tree = owner_ ? owner_.get() : root_;
    if (tree == nullptr) {
        throw Por::Detail::MakeRowErrorWithArguments(
            origin, kErrorElementNotFound, Por::Detail::kRowElementNotFound, {failed_.ToWide()});
    }
    std::ostringstream dump;
    dump << "Unit: ";
    Print(*tree, "", dump);
    throw Por::Detail::MakeRowErrorWithArguments(
        origin, kErrorElementNotFound, Por::Detail::kRowElementNotFound,
        {failed_.ToWide(), Common::Utf8ToUtf16Lenient(dump.str())});
}

const View::Unit& ConstDataAccessor::GetUnit() const {
    EnsureUnitIsValid();
    return *unit_;
}

}  // namespace Por::Util
