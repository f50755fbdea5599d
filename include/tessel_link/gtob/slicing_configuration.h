#pragma once

// Gtob::Dto::SlicingConfiguration, the slicing of a plan as a typed view over a unit tree.

#include <cstdint>

#include <tessel_link/gtob/action.h>

namespace Gtob::Dto {

// How a backup is cut into slices: a plain object over a branch of a unit tree. Properties:
// "SliceSize" (qword bytes, default 0: no limit), "MaxSlices" (dword, default 0: no limit),
// "Scheme" (string, default "Incremental") and "PostAction", an Action that lives in the same
// tree.
class TL_API SlicingConfiguration final : public Por::BaseObject {
public:
    // The class name the trait "Is" carries.
    static constexpr char16_t kTypeName[] = u"Gtob::Dto::SlicingConfiguration";

    SlicingConfiguration();  // not initialised
    // A fresh tree: a composite with the trait "Is" naming the class, and no properties.
    explicit SlicingConfiguration(Por::Construction::UnitFactory& factory,
                                  Por::ErrorHandler* errorHandler = nullptr);
    // A view over an existing branch.
    explicit SlicingConfiguration(const Por::ConstructionContext& context);

    std::uint64_t GetSliceSize() const;  // the property "SliceSize"
    void SetSliceSize(std::uint64_t bytes);  // sets "SliceSize"
    std::uint32_t GetMaxSlices() const;  // the property "MaxSlices"
    void SetMaxSlices(std::uint32_t count);  // sets "MaxSlices"
    std::u16string GetScheme() const;  // the property "Scheme"
    void SetScheme(const std::u16string& scheme);  // sets "Scheme"

    bool HasPostAction() const;  // whether the property "PostAction" is there
    // The action over the property "PostAction", made (as a fresh Action's unit) when the
    // configuration has none. Changes through it are changes of this tree.
    Action PostAction();

    // Adds the trait "Is" to the unit under construction.
    static std::shared_ptr<Por::Util::UnitAccumulator> Construct(
        std::shared_ptr<Por::Util::UnitAccumulator> builder);
};

}  // namespace Gtob::Dto
