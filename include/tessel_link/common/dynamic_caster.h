#pragma once

// Interface queries by type name, the way a proxy or event hands out the interfaces it holds.

#include <map>
#include <string>
#include <string_view>
#include <typeinfo>

#include <tessel_link/export.h>

namespace Common {

// Interface query by type name: a holder of several interfaces answers, for the name of a
// pointer type `X*`, a pointer to its `X` sub-object, or null.
class TL_API DynamicCaster {
public:
    virtual ~DynamicCaster();
    // The `X` sub-object for the name of `X*`, or null.
    virtual void* QueryType(const char* typeName) = 0;
};

// The table behind QueryType. A type is registered and found under the compiler's printable
// name of the pointer type, `typeid(X*).name()`: stable for one type within the process,
// which is all that is needed, since the table never leaves the process.
class TL_API DynamicCasterImpl : public virtual DynamicCaster {
public:
    void* QueryType(const char* typeName) override;  // looks the name up in the table

protected:
    // Does nothing if either argument is null; a second registration under one name
    // replaces the first.
    void RegisterType(const char* typeName, void* object);

    // Registers `object` under the key of T.
    template <class T>
    void RegisterInterface(T* object) {
        RegisterType(TypeKey<T>(), static_cast<void*>(object));
    }

public:
    // The key under which an interface T is registered and asked for.
    template <class T>
    static const char* TypeKey() {
        return typeid(T*).name();
    }

private:
    std::map<std::string, void*, std::less<>> table_;
};

// Asks a caster for the interface T.
template <class T>
T* QueryInterface(DynamicCaster& caster) {
    return static_cast<T*>(caster.QueryType(DynamicCasterImpl::TypeKey<T>()));
}

}  // namespace Common
