#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Binding {
class Request;
}

namespace Core::Catalogue {

// Receives a request that lives only for the duration of the call.
using RequestVisitor = void (*)(Binding::Request& request, void* context);

struct Parameter {
    const char* Name;
    const char* Type;  // as the interface declares it ("list<Guid>&")
    std::uint32_t Kind;
};

struct Method {
    std::uint32_t Number;
    const char* Name;
    std::uint32_t Since;
    const Parameter* Params;
    std::size_t ParamCount;
    // Builds the request of a call with default-constructed arguments and hands it to
    // `visit`. The request's out arguments point into the builder's frame: write it, don't
    // read a reply into it.
    void (*VisitDefaultRequest)(RequestVisitor visit, void* context);

    std::span<const Parameter> Parameters() const { return {Params, ParamCount}; }
};

struct Component {
    std::uint32_t ID;
    const char* Interface;  // with its namespace
    const char* Name;       // without it
    std::uint32_t Version;
    const Method* MethodTable;  // in slot order
    std::size_t MethodCount;

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
};

// Every remote component, by ascending ID.
std::span<const Component> Components();

// Null for an ID that is not in the catalogue.
inline const Component* FindComponent(std::uint32_t id) {
    for (const Component& component : Components()) {
        if (component.ID == id) {
            return &component;
        }
    }
    return nullptr;
}

}  // namespace Core::Catalogue
