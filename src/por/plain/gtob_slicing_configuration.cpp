#include <tessel_link/gtob/slicing_configuration.h>

#include <tessel_link/por/trait_names.h>

namespace Gtob::Dto {

namespace {

const Por::UnitName kSliceSize = Por::UnitName::Literal("SliceSize");
const Por::UnitName kMaxSlices = Por::UnitName::Literal("MaxSlices");
const Por::UnitName kScheme = Por::UnitName::Literal("Scheme");
const Por::UnitName kPostAction = Por::UnitName::Literal("PostAction");

Por::UnitPtr Defaults(const Por::UnitName& property, Por::Construction::UnitFactory& factory) {
    if (property == kSliceSize) {
        return factory.CreateQword(0);
    }
    if (property == kMaxSlices) {
        return factory.CreateDword(0);
    }
    if (property == kScheme) {
        return factory.CreateString(u"Incremental");
    }
    return nullptr;
}

[[maybe_unused]] const bool kRegistered =
    (Por::ConstructionDynamicContext::Register(SlicingConfiguration::kTypeName,
                                               &SlicingConfiguration::Construct),
     true);

}  // namespace

std::shared_ptr<Por::Util::UnitAccumulator> SlicingConfiguration::Construct(
    std::shared_ptr<Por::Util::UnitAccumulator> builder) {
    builder->BeginTrait(Por::UnitName::Literal(Por::TraitNames::Is));
    builder->AddString(kTypeName);
    builder->End();
    return builder;
}

SlicingConfiguration::SlicingConfiguration() {
    SetDefaultValueFunction(&Defaults);
}

SlicingConfiguration::SlicingConfiguration(Por::Construction::UnitFactory& factory,
                                           Por::ErrorHandler* errorHandler)
    : BaseObject(Por::MakeConstructionContext(Por::RunConstructionScript(&Construct, factory),
                                              factory, errorHandler)) {
    SetDefaultValueFunction(&Defaults);
}

SlicingConfiguration::SlicingConfiguration(const Por::ConstructionContext& context)
    : BaseObject(context) {
    SetDefaultValueFunction(&Defaults);
}

std::uint64_t SlicingConfiguration::GetSliceSize() const {
    return GetProperty<std::uint64_t>(kSliceSize);
}
void SlicingConfiguration::SetSliceSize(std::uint64_t bytes) {
    SetProperty(kSliceSize, bytes);
}
std::uint32_t SlicingConfiguration::GetMaxSlices() const {
    return GetProperty<std::uint32_t>(kMaxSlices);
}
void SlicingConfiguration::SetMaxSlices(std::uint32_t count) {
    SetProperty(kMaxSlices, count);
}
std::u16string SlicingConfiguration::GetScheme() const {
    return GetProperty<Por::WideString>(kScheme);
}
void SlicingConfiguration::SetScheme(const std::u16string& scheme) {
    SetProperty(kScheme, scheme);
}

bool SlicingConfiguration::HasPostAction() const {
    return Por::Util::GetProperty(Branch(), kPostAction) != nullptr;
}

Action SlicingConfiguration::PostAction() {
    Por::Construction::Property* property = Por::Util::GetProperty(Branch(), kPostAction);
    if (property == nullptr) {
        Por::Util::AddProperty(Branch(), kPostAction,
                               Por::RunConstructionScript(&Action::Construct, Factory()),
                               Factory());
        property = Por::Util::GetProperty(Branch(), kPostAction);
    }
    return Action(BranchContext(property->GetUnit()));
}

}  // namespace Gtob::Dto
