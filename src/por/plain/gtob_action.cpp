#include <tessel_link/gtob/action.h>

#include <tessel_link/por/trait_names.h>

namespace Gtob::Dto {

namespace {

const Por::UnitName kName = Por::UnitName::Literal("Name");
const Por::UnitName kCommand = Por::UnitName::Literal("Command");
const Por::UnitName kEnabled = Por::UnitName::Literal("Enabled");
const Por::UnitName kTimeoutSeconds = Por::UnitName::Literal("TimeoutSeconds");

Por::UnitPtr Defaults(const Por::UnitName& property, Por::Construction::UnitFactory& factory) {
    if (property == kCommand) {
        return factory.CreateString(u"");
    }
    if (property == kEnabled) {
        return factory.CreateBoolean(true);
    }
    if (property == kTimeoutSeconds) {
        return factory.CreateDword(0);
    }
    return nullptr;
}

[[maybe_unused]] const bool kRegistered =
    (Por::ConstructionDynamicContext::Register(Action::kTypeName, &Action::Construct), true);

}  // namespace

std::shared_ptr<Por::Util::UnitAccumulator> Action::Construct(
    std::shared_ptr<Por::Util::UnitAccumulator> builder) {
    builder->BeginTrait(Por::UnitName::Literal(Por::TraitNames::Is));
    builder->AddString(kTypeName);
    builder->End();
    return builder;
}

Action::Action() {
    SetDefaultValueFunction(&Defaults);
}

Action::Action(Por::Construction::UnitFactory& factory, Por::ErrorHandler* errorHandler)
    : BaseObject(Por::MakeConstructionContext(Por::RunConstructionScript(&Construct, factory),
                                              factory, errorHandler)) {
    SetDefaultValueFunction(&Defaults);
}

Action::Action(const Por::ConstructionContext& context) : BaseObject(context) {
    SetDefaultValueFunction(&Defaults);
}

std::u16string Action::GetName() const {
    return GetProperty<Por::WideString>(kName);
}
void Action::SetName(const std::u16string& name) {
    SetProperty(kName, name);
}
std::u16string Action::GetCommand() const {
    return GetProperty<Por::WideString>(kCommand);
}
void Action::SetCommand(const std::u16string& command) {
    SetProperty(kCommand, command);
}
bool Action::GetEnabled() const {
    return GetProperty<bool>(kEnabled);
}
void Action::SetEnabled(bool enabled) {
    SetProperty(kEnabled, enabled);
}
std::uint32_t Action::GetTimeoutSeconds() const {
    return GetProperty<std::uint32_t>(kTimeoutSeconds);
}
void Action::SetTimeoutSeconds(std::uint32_t seconds) {
    SetProperty(kTimeoutSeconds, seconds);
}

}  // namespace Gtob::Dto
