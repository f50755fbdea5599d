#pragma once

#include <cstdint>

#include <tessel_link/gtob/action.h>

namespace Gtob::Dto {

// How a backup is cut into slices: a plain object over a branch of a unit tree. Properties:
// "SliceSize" (qword bytes, default 0: no limit), "MaxSlices" (dword, default 0: no limit),
// "Scheme" (string, default "Incremental") and "PostAction", an Action that lives in the same
// tree.
class TL_API SlicingConfiguration final : public Por::BaseObject {
public:
    static constexpr char16_t kTypeName[] = u"Gtob::Dto::SlicingConfiguration";

    SlicingConfiguration();
    explicit SlicingConfiguration(Por::Construction::UnitFactory& factory,
                                  Por::ErrorHandler* errorHandler = nullptr);
    explicit SlicingConfiguration(const Por::ConstructionContext& context);

    std::uint64_t GetSliceSize() const;
    void SetSliceSize(std::uint64_t bytes);
    std::uint32_t GetMaxSlices() const;
    void SetMaxSlices(std::uint32_t count);
    std::u16string GetScheme() const;
    void SetScheme(const std::u16string& scheme);

    bool HasPostAction() const;
    // The action over the property "PostAction", made (as a fresh Action's unit) when the
    // configuration has none. Changes through it are changes of this tree.
    Action PostAction();

    static std::shared_ptr<Por::Util::UnitAccumulator> Construct(
        std::shared_ptr<Por::Util::UnitAccumulator> builder);
};

}  // namespace Gtob::Dto
