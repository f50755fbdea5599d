#pragma once

// Plain objects: typed records whose state lies in a unit tree. An object shows one branch of
// a tree, and every accessor reads or writes a property of that branch; the tree lives as
// long as any object (or shared branch pointer) that looks into it, and objects over one tree
// see each other's changes.

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/common/non_copyable.h>
#include <tessel_link/impl/por/create_unit.h>
#include <tessel_link/por/construction.h>
#include <tessel_link/por/unit_accumulator.h>
#include <tessel_link/por/util.h>
#include <tessel_link/serialize/category_holder.h>

namespace Por {

// What a property accessor does when the property can't be read or written. A handler may
// return instead of throwing: the accessor then goes on with a default value.
class TL_API ErrorHandler {
public:
    virtual ~ErrorHandler();
    virtual void PropertyNotFound(const UnitName& name) = 0;  // the property `name` is missing
    // The property `name` holds a value of another kind.
    virtual void PropertyTypeMismatch(const UnitName& name, unsigned expectedType,
                                      unsigned actualType) = 0;
    // Reading or writing the property `name` failed with `error`.
    virtual void PropertyProcessingError(const UnitName& name, const Common::Error& error) = 0;
};

// Throws "POR: Property '{0}' cannot be found." (0xfa000d), the property type mismatch
// (0xfa000a), and "POR: Property '{0}' processing error has occurred." (0xfa0001) with the
// caught error as its cause.
class TL_API ThrowingErrorHandler final : public ErrorHandler {
public:
    void PropertyNotFound(const UnitName& name) override;  // throws 0xfa000d
    // Throws the type mismatch 0xfa000a.
    void PropertyTypeMismatch(const UnitName& name, unsigned expectedType,
                              unsigned actualType) override;
    // Throws 0xfa0001 with `error` beneath.
    void PropertyProcessingError(const UnitName& name, const Common::Error& error) override;
};

// The one static throwing handler, used wherever none is given.
TL_API ErrorHandler& DefaultErrorHandler();

// The default of a property that the branch lacks, made with the factory; null when the
// property has none.
using DefaultValueFunction = UnitPtr (*)(const UnitName& property,
                                         Construction::UnitFactory& factory);

// Everything an object needs to stand over a branch.
struct ConstructionContext {
    std::shared_ptr<Construction::Unit> root;  // the whole tree, kept alive
    Construction::Unit* branch = nullptr;  // the unit the object stands over
    Construction::UnitFactory* factory = nullptr;  // makes new units
    ErrorHandler* errorHandler = nullptr;  // null: the default handler
    DefaultValueFunction defaultValue = nullptr;  // defaults of missing properties; may be null
};

// A context whose root and branch are `unit`; a null handler is the default one.
TL_API ConstructionContext MakeConstructionContext(UnitPtr unit, Construction::UnitFactory& factory,
                                                   ErrorHandler* errorHandler = nullptr);

// The base of objects that stand over a branch of a unit tree.
class TL_API PlainObject : private ::Common::NonCopyable, public ::Serialization::CategoryHolder {
public:
    ~PlainObject() override;
    // A deep copy of the branch, made with the object's factory; it shares nothing with it.
    virtual void CopyUnit(UnitPtr& unit) const = 0;
    // The default of `property`; null when it has none.
    virtual UnitPtr DefaultValue(const UnitName& property) const = 0;
};

// A PlainObject over a given branch: the base of typed objects such as those of gtob/.
class TL_API BaseObject : public PlainObject {
public:
    // Not initialised: every access fails until the object is given a tree.
    BaseObject() = default;
    explicit BaseObject(const ConstructionContext& context);

    // Stands over another branch (or none, for an empty context).
    void Reset(const ConstructionContext& context);

    // Raise "POR: There was an attempt to access an uninitialized object." (0xfa0001) on an
    // object without a tree.
    Construction::Unit& Branch() const;
    Construction::UnitFactory& Factory() const;  // the factory of the object's tree
    const std::shared_ptr<Construction::Unit>& Root() const;  // the root of the object's tree

    // Whether the object has a tree.
    bool IsInitialized() const noexcept { return branch_ != nullptr; }
    // The branch, keeping the whole tree alive.
    std::shared_ptr<Construction::Unit> SharedBranch() const;
    // The handler of property failures.
    ErrorHandler& GetErrorHandler() const noexcept { return *errorHandler_; }

    void CopyUnit(UnitPtr& unit) const override;
    // Forwards to the default value function; raises "POR: An internal error has occurred."
    // (0xfa0001) when there is none.
    UnitPtr DefaultValue(const UnitName& property) const override;

protected:
    // Sets the defaults of missing properties.
    void SetDefaultValueFunction(DefaultValueFunction function) noexcept {
        defaultValue_ = function;
    }

    // A context for an object over `branch`, a unit of this object's tree.
    ConstructionContext BranchContext(Construction::Unit& branch) const;

    // The value of a property of the stored type T (bool, the integer kinds, double,
    // ByteVector, Common::Guid, WideString, Common::Error). A missing property gives its
    // default, or is reported as not found; a property of another kind is a mismatch;
    // any other failure is a processing error. When the handler returns, T{} is the result.
    template <class T>
    T GetProperty(const UnitName& name) const;
    // Writes the value into the property, adding it when it is missing; a property of
    // another kind is a mismatch and stays as it is.
    template <class T>
    void SetProperty(const UnitName& name, const T& value);

private:
    // The unit of the property, or null. Raises only for a branch that is no composite.
    Construction::Unit* FindProperty(const UnitName& name) const;

    std::shared_ptr<Construction::Unit> root_;
    Construction::Unit* branch_ = nullptr;
    Construction::UnitFactory* factory_ = nullptr;
    ErrorHandler* errorHandler_ = &DefaultErrorHandler();
    DefaultValueFunction defaultValue_ = nullptr;
};

// The unit of a fresh object: a composite whose one trait "Is" names the class. The class's
// construction function continues the unit under construction (it adds the trait) and hands
// the builder on.
using ConstructionFunction =
    std::shared_ptr<Util::UnitAccumulator> (*)(std::shared_ptr<Util::UnitAccumulator> builder);
// Builds the unit of a fresh object with `construct`, its units made with `factory`.
TL_API UnitPtr RunConstructionScript(ConstructionFunction construct,
                                     Construction::UnitFactory& factory);

// The process-wide map from a plain class's full name to its construction function. Classes
// register themselves during static initialisation; a second registration of a name replaces
// the first.
class TL_API ConstructionDynamicContext {
public:
    // Registers `function` under `typeName`.
    static void Register(const std::u16string& typeName, ConstructionFunction function);
    // Null for a name that nobody registered.
    static ConstructionFunction Find(const std::u16string& typeName);
};

// The handler is called outside the try blocks, so that what a throwing handler raises is
// not taken for a processing error.
template <class T>
T BaseObject::GetProperty(const UnitName& name) const {
    Branch();  // an object without a tree fails here, not through the handler
    constexpr unsigned expected = Util::Detail::StoredKind<T>::Index;
    unsigned actual = UnknownType;
    bool present = false;
    Common::Error failure;
    bool failed = false;
    try {
        UnitPtr fallback;
        const View::Unit* unit = FindProperty(name);
        if (unit == nullptr && defaultValue_ != nullptr) {
            fallback = defaultValue_(name, Factory());
            unit = fallback.get();
        }
        if (unit != nullptr) {
            present = true;
            actual = Util::GetValueTypeIndex(*unit);
            if (actual == expected) {
                return Util::UnitValueGetter<T>::Get(*unit);
            }
        }
    } catch (const Common::Error& error) {
        failure = error;
        failed = true;
    }
    if (failed) {
        errorHandler_->PropertyProcessingError(name, failure);
    } else if (!present) {
        errorHandler_->PropertyNotFound(name);
    } else {
        errorHandler_->PropertyTypeMismatch(name, expected, actual);
    }
    return T{};
}

template <class T>
void BaseObject::SetProperty(const UnitName& name, const T& value) {
    Construction::Unit& branch = Branch();
    constexpr unsigned expected = Util::Detail::StoredKind<T>::Index;
    unsigned actual = UnknownType;
    Common::Error failure;
    bool failed = false;
    try {
        Construction::Unit* unit = FindProperty(name);
        if (unit == nullptr) {
            Util::AddProperty(branch, name, Detail::CreateUnitOf(Factory(), value), Factory());
            return;
        }
        actual = Util::GetValueTypeIndex(*unit);
        if (actual == expected) {
            VisitValue(*unit, [&](auto& stored) {
                using Value = std::remove_reference_t<decltype(stored)>;
                if constexpr (ValueKindOf<Value> == expected) {
                    stored.Set(value);
                }
            });
            return;
        }
    } catch (const Common::Error& error) {
        failure = error;
        failed = true;
    }
    if (failed) {
        errorHandler_->PropertyProcessingError(name, failure);
    } else {
        errorHandler_->PropertyTypeMismatch(name, expected, actual);
    }
}

}  // namespace Por
