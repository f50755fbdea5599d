#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include <tessel_link/common/error.h>

#include "facade/component_info.h"
#include "facade/component_traits.h"

namespace Core {

namespace Detail {

// "Core::ComponentInfoImpl<ID>::GetMethodInfo" as a constant, for the error origin.
template <std::uint32_t ID>
struct MethodInfoSite {
    static constexpr auto kText = [] {
        constexpr std::string_view prefix = "Core::ComponentInfoImpl<";
        constexpr std::string_view suffix = ">::GetMethodInfo";
        std::array<char, prefix.size() + 10 + suffix.size() + 1> text{};
        char* out = std::copy(prefix.begin(), prefix.end(), text.data());
        char digits[10] = {};
        char* end = digits;
        std::uint32_t rest = ID;
        do {
            *end++ = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        while (end != digits) {
            *out++ = *--end;
        }
        std::copy(suffix.begin(), suffix.end(), out);
        return text;
    }();
};

}  // namespace Detail

// The information of component ID, from its traits and the rules of the family.
template <std::uint32_t ID>
class ComponentInfoImpl final : public ComponentInfo {
public:
    using Traits = ComponentTraits<ID>;

    std::uint32_t GetComponentID() const override { return ID; }
    bool GetClassFlag() const override { return Traits::kClassFlag; }

    Common::Error GetMethodInfo(std::int32_t number, MethodInfo& info) const override {
        if (number < 1 || number > Traits::kMethodCount) {
            return Common::Error(TL_ORIGIN(Detail::MethodInfoSite<ID>::kText.data()),
                                 kMethodNumberOutOfRange);
        }
        info = kMethods[static_cast<std::size_t>(number - 1)];
        return Common::ErrorSuccess;
    }

    std::uint32_t GetInterfaceVersion() const override { return Traits::kInterfaceVersion; }
    std::uint32_t GetRevision() const override { return 1; }
    std::uint32_t GetOptionFlag(std::uintptr_t, std::uintptr_t) const override {
        return Traits::kOptionFlag;
    }

private:
    static constexpr auto kMethods = [] {
        std::array<MethodInfo, static_cast<std::size_t>(Traits::kMethodCount)> table{};
        table.fill(Traits::kMethodInfo);
        return table;
    }();
};

}  // namespace Core
