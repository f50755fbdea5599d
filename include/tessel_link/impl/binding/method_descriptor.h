#pragma once

// Not API: the identity of a remote method and the kinds of its arguments, as
// generated proxies and dispatchers fill them in.

#include <cstdint>
#include <string>

namespace Binding {

// The identity of a remote method, built anew for every call and copied into its request.
struct MethodDescriptor {
    std::uint32_t ComponentID = 0;
    // 1-based number of the method in its interface: what the service knows it by.
    std::uint32_t MethodNumber = 0;
    // Interface name without namespace ("ArchiveManager") and method name.
    std::string ComponentName;
    std::string MethodName;
    // The interface's present version, the same for all methods of a component.
    std::uint64_t InterfaceVersion = 0;
    // The interface version in which the method first stood.
    std::uint64_t IntroducedVersion = 0;
    // The category the packet is written for; proxies always ask for all of them.
    std::uint64_t Category = 0;
};

inline constexpr std::uint64_t kAllCategories = ~std::uint64_t{0};

// Direction and obscuring of one argument: the low two bits are the direction, the bit of
// value 4 asks for the value to be obscured when written. Values 5 to 7 combine the two;
// anything above 7 is not a kind and is never written.
enum class ArgumentKind : std::uint32_t {
    Default = 0,  // direction follows the parameter's type
    In = 1,
    Out = 2,
    InOut = 3,
    Obscured = 4,  // as Default, obscured on the wire
};

inline constexpr std::uint32_t kArgumentDirectionMask = 3;
inline constexpr std::uint32_t kArgumentObscureBit = 4;
inline constexpr std::uint32_t kLargestArgumentKind = 7;

// Whether an argument of this kind goes into the request packet.
constexpr bool IsWritten(ArgumentKind kind) {
    const auto bits = static_cast<std::uint32_t>(kind);
    return bits <= kLargestArgumentKind &&
           (bits & kArgumentDirectionMask) != static_cast<std::uint32_t>(ArgumentKind::Out);
}

constexpr bool IsObscured(ArgumentKind kind) {
    return (static_cast<std::uint32_t>(kind) & kArgumentObscureBit) != 0;
}

// Whether a non-constant reference argument of this kind is read back from the reply.
// Arguments that are values or constant references are never read back, whatever the kind.
constexpr bool IsReadBack(ArgumentKind kind) {
    return (static_cast<std::uint32_t>(kind) & ~kArgumentObscureBit) !=
           static_cast<std::uint32_t>(ArgumentKind::In);
}

}  // namespace Binding
