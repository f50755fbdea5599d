#include <tessel_link/por/plain_object.h>

#include <map>
#include <mutex>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/root_holder.h>

#include "por/por_errors.h"

namespace Serialization {
CategoryHolder::~CategoryHolder() = default;
}

namespace Por {

ErrorHandler::~ErrorHandler() = default;

void ThrowingErrorHandler::PropertyNotFound(const UnitName& name) {
    throw Detail::MakeRowErrorWithArguments(
        TL_ORIGIN("Por::ThrowingErrorHandler::PropertyNotFound"), kErrorPropertyNotFound,
        Detail::kRowPropertyNotFound, {name.ToWide()});
}

void ThrowingErrorHandler::PropertyTypeMismatch(const UnitName& name, unsigned expectedType,
                                                unsigned actualType) {
    throw Util::Detail::MakePropertyTypeMismatchError(name, expectedType, actualType);
}

void ThrowingErrorHandler::PropertyProcessingError(const UnitName& name,
                                                   const Common::Error& error) {
    Common::Error failure = Detail::MakeRowErrorWithArguments(
        TL_ORIGIN("Por::ThrowingErrorHandler::PropertyProcessingError"), kErrorObject,
        Detail::kRowPropertyProcessing, {name.ToWide()});
    failure.AddCause(error);
    throw failure;
}

ErrorHandler& DefaultErrorHandler() {
    static ThrowingErrorHandler handler;
    return handler;
}

ConstructionContext MakeConstructionContext(UnitPtr unit, Construction::UnitFactory& factory,
                                            ErrorHandler* errorHandler) {
    ConstructionContext context;
    context.root = std::shared_ptr<Construction::Unit>(std::move(unit));
    context.branch = context.root.get();
    context.factory = &factory;
    context.errorHandler = errorHandler != nullptr ? errorHandler : &DefaultErrorHandler();
    return context;
}

PlainObject::~PlainObject() = default;

BaseObject::BaseObject(const ConstructionContext& context) {
    Reset(context);
}

void BaseObject::Reset(const ConstructionContext& context) {
    root_ = context.root;
    branch_ = context.branch;
    factory_ = context.factory;
    errorHandler_ = context.errorHandler != nullptr ? context.errorHandler : &DefaultErrorHandler();
    if (context.defaultValue != nullptr) {
        defaultValue_ = context.defaultValue;
    }
}

namespace {
[[noreturn]] void ThrowUninitialized(const char* function) {
    throw Detail::MakeRowError(TL_ORIGIN(function), kErrorObject, Detail::kRowUninitializedObject);
}
}  // namespace

Construction::Unit& BaseObject::Branch() const {
    if (branch_ == nullptr) {
        ThrowUninitialized("Por::BaseObject::Branch");
    }
    return *branch_;
}

Construction::UnitFactory& BaseObject::Factory() const {
    if (factory_ == nullptr) {
        ThrowUninitialized("Por::BaseObject::Factory");
    }
    return *factory_;
}

const std::shared_ptr<Construction::Unit>& BaseObject::Root() const {
    if (!root_) {
        ThrowUninitialized("Por::BaseObject::Root");
    }
    return root_;
}

std::shared_ptr<Construction::Unit> BaseObject::SharedBranch() const {
    return Util::MakeSharedBranch(Root(), &Branch());
}

ConstructionContext BaseObject::BranchContext(Construction::Unit& branch) const {
    ConstructionContext context;
    context.root = Root();
    context.branch = &branch;
    context.factory = &Factory();
    context.errorHandler = errorHandler_;
    return context;
}

void BaseObject::CopyUnit(UnitPtr& unit) const {
    unit = Util::CopyUnit(Branch(), Factory());
}

UnitPtr BaseObject::DefaultValue(const UnitName& property) const {
    if (defaultValue_ == nullptr) {
        throw Detail::MakeRowError(TL_ORIGIN("Por::BaseObject::DefaultValue"), kErrorObject,
                                   Detail::kRowInternalError);
    }
    return defaultValue_(property, Factory());
}

Construction::Unit* BaseObject::FindProperty(const UnitName& name) const {
    Construction::Property* property = Util::GetProperty(Branch(), name);
    return property != nullptr ? &property->GetUnit() : nullptr;
}

UnitPtr RunConstructionScript(ConstructionFunction construct, Construction::UnitFactory& factory) {
    using Holder = std::shared_ptr<Util::UnitAccumulator>;
    // Each step calls one slot of the builder and hands the builder on.
    const auto beginComposite = [](Holder builder) {
        builder->BeginComposite();
        return builder;
    };
    const auto end = [](Holder builder) {
        builder->End();
        return builder;
    };
    Holder builder =
        end(construct(beginComposite(std::make_shared<Util::UnitAccumulator>(factory))));
    UnitPtr unit;
    builder->TakeUnit(unit);
    return unit;
}

namespace {

struct DynamicContextTable {
    std::mutex lock;
    std::map<std::u16string, ConstructionFunction> functions;
};

DynamicContextTable& Table() {
    static DynamicContextTable table;
    return table;
}

}  // namespace

void ConstructionDynamicContext::Register(const std::u16string& typeName,
                                          ConstructionFunction function) {
    DynamicContextTable& table = Table();
    std::lock_guard<std::mutex> guard(table.lock);
    table.functions[typeName] = function;
}

ConstructionFunction ConstructionDynamicContext::Find(const std::u16string& typeName) {
    DynamicContextTable& table = Table();
    std::lock_guard<std::mutex> guard(table.lock);
    const auto found = table.functions.find(typeName);
    return found != table.functions.end() ? found->second : nullptr;
}

}  // namespace Por
