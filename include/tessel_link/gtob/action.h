#pragma once

// Gtob::Dto::Action, an action of a plan as a typed view over a unit tree.

#include <cstdint>

#include <tessel_link/por/plain_object.h>

namespace Gtob::Dto {

// A command that a plan runs before or after its work: a plain object over a branch of a
// unit tree. Properties: "Name" (string, no default), "Command" (string, default empty),
// "Enabled" (boolean, default true), "TimeoutSeconds" (dword, default 0: no limit).
class TL_API Action final : public Por::BaseObject {
public:
    // The class name the trait "Is" carries.
    static constexpr char16_t kTypeName[] = u"Gtob::Dto::Action";

    // Not initialised.
    Action();
    // A fresh tree: a composite with the trait "Is" naming the class, and no properties.
    explicit Action(Por::Construction::UnitFactory& factory,
                    Por::ErrorHandler* errorHandler = nullptr);
    // A view over an existing branch.
    explicit Action(const Por::ConstructionContext& context);

    std::u16string GetName() const;  // the property "Name"
    void SetName(const std::u16string& name);  // sets "Name"
    std::u16string GetCommand() const;  // the property "Command"
    void SetCommand(const std::u16string& command);  // sets "Command"
    bool GetEnabled() const;  // the property "Enabled"
    void SetEnabled(bool enabled);  // sets "Enabled"
    std::uint32_t GetTimeoutSeconds() const;  // the property "TimeoutSeconds"
    void SetTimeoutSeconds(std::uint32_t seconds);  // sets "TimeoutSeconds"

    // Adds the trait "Is" to the unit under construction.
    static std::shared_ptr<Por::Util::UnitAccumulator> Construct(
        std::shared_ptr<Por::Util::UnitAccumulator> builder);
};

}  // namespace Gtob::Dto
