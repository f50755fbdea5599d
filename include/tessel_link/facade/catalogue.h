#pragma once

// The catalogue of the remote components, read-only: every component by ID and by name,
// with its interface version and its methods (number, name, the version that introduced
// it, parameters with their declared types and directions). For tools, for hosts that
// show or check what a service offers, and for tests that walk every component.
//
//   if (const Core::Catalogue::Component* c = Core::Catalogue::FindComponent("InstanceManager"))
//       for (const Core::Catalogue::Method& m : c->Methods()) ...

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <tessel_link/export.h>

namespace Binding {
class Request;
}

namespace Core::Catalogue {

// Receives a request that lives only for the duration of the call.
using RequestVisitor = void (*)(Binding::Request& request, void* context);

// The direction bits of a parameter's Kind.
inline constexpr std::uint32_t kParameterIn = 1;
inline constexpr std::uint32_t kParameterOut = 2;  // the parameter comes back
inline constexpr std::uint32_t kParameterObscured = 4;  // a wide string that travels obscured

// One parameter of a method.
struct Parameter {
    const char* Name;  // as the interface names it
    const char* Type;  // as the interface declares it ("list<Guid>&")
    std::uint32_t Kind;  // kParameterIn | kParameterOut | kParameterObscured, or 0
};

// One method of a component's interface.
struct Method {
    std::uint32_t Number;  // 1-based, what the service knows it by
    const char* Name;  // without the interface
    std::uint32_t Since;  // the interface version that introduced the method
    const Parameter* Params;  // the parameters, in order
    std::size_t ParamCount;  // their number
    // Builds the request of a call with default-constructed arguments and hands it to
    // `visit`. The request's out arguments point into the builder's frame: write it, don't
    // read a reply into it.
    void (*VisitDefaultRequest)(RequestVisitor visit, void* context);

    // The parameters as a span.
    std::span<const Parameter> Parameters() const { return {Params, ParamCount}; }
};

// One component: its ID, interface, version and methods.
struct Component {
    std::uint32_t ID;  // the component ID that proxies are made for
    const char* Interface;  // with its namespace
    const char* Name;       // without it
    std::uint32_t Version;  // the interface version proxies speak
    const Method* MethodTable;  // in slot order
    std::size_t MethodCount;  // their number

    // The methods as a span.
    std::span<const Method> Methods() const { return {MethodTable, MethodCount}; }
    // Null for a number the component does not have.
    const Method* FindMethod(std::uint32_t number) const {
        for (const Method& method : Methods()) {
            if (method.Number == number) {
                return &method;
            }
        }
        return nullptr;
    }
    // Null for a name the component does not have.
    const Method* FindMethod(std::string_view name) const {
        for (const Method& method : Methods()) {
            if (name == method.Name) {
                return &method;
            }
        }
        return nullptr;
    }
};

// Every remote component, by ascending ID.
TL_API std::span<const Component> Components();

// Null for an ID that is not in the catalogue.
inline const Component* FindComponent(std::uint32_t id) {
    for (const Component& component : Components()) {
        if (component.ID == id) {
            return &component;
        }
    }
    return nullptr;
}

// The component of that interface name, with its namespace ("InstanceManagement::
// InstanceManager") or without it when that is unambiguous; null when none or several match.
inline const Component* FindComponent(std::string_view name) {
    const Component* found = nullptr;
    bool ambiguous = false;
    for (const Component& component : Components()) {
        if (name == component.Interface) {
            return &component;
        }
        if (name == component.Name) {
            ambiguous = ambiguous || found != nullptr;
            found = &component;
        }
    }
    return ambiguous ? nullptr : found;
}

}  // namespace Core::Catalogue
