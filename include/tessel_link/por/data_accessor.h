#pragma once

// Addressing a nested unit step by step: accessor["Settings"]["Name"].

#include <memory>

#include <tessel_link/por/view.h>

namespace Por::Util {

// One step down from `unit` by `name`:
// - a composite gives the unit of its property of that name;
// - an array is read as a map: the first element that is a composite whose property "first"
//   holds `name` as a string gives its property "second" (a "first" of another kind reads
//   as the empty string; elements that are no composites or lack "first" are skipped);
// - anything else, a null unit and a missing property give null.
TL_API const View::Unit* Find(const View::Unit* unit, const UnitName& name);

// A position in a tree, reached by successive names. A step from a missing unit is missing
// too, and the accessor remembers the first name that could not be followed.
class TL_API ConstDataAccessor {
public:
    // The caller keeps the tree alive.
    explicit ConstDataAccessor(const View::Unit* unit) noexcept : root_(unit), unit_(unit) {}
    // The accessor and every accessor made from it keep `owner` alive.
    ConstDataAccessor(std::shared_ptr<const View::Unit> owner, const View::Unit* unit) noexcept
        : owner_(std::move(owner)), root_(unit), unit_(unit) {}

    // The accessor of the property `name`.
    ConstDataAccessor operator[](const UnitName& name) const;

    // Raises "POR: Element '{0}' cannot be found." (0xfa0020) with the first name that failed
    // when the unit is missing; the record also carries a dump of the tree ("Unit: ...").
    void EnsureUnitIsValid() const;
    // The unit, after EnsureUnitIsValid.
    const View::Unit& GetUnit() const;

    // The unit reached, or null.
    const View::Unit* Get() const noexcept { return unit_; }
    bool IsValid() const noexcept { return unit_ != nullptr; }  // whether the unit is there
    // The first name that could not be followed; empty while the unit is there.
    const UnitName& FailedName() const noexcept { return failed_; }

private:
    std::shared_ptr<const View::Unit> owner_;
    const View::Unit* root_;  // the unit the walk started on, for the dump
    const View::Unit* unit_;
    UnitName failed_;
};

}  // namespace Por::Util
