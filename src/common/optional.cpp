#include <tessel_link/common/optional.h>

#include <cxxabi.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>

namespace Core::Detail {

namespace {

constexpr std::uint32_t kOptionalIsNull = 0x00ac0001;
constexpr std::uint32_t kOptionalIsNullRow = 346;

// The names of the value forms, as the definitions know them.
const char* BuiltInName(const std::type_info& type) {
    static const std::map<std::string, const char*> names = {
        {typeid(bool).name(), "bool"},
        {typeid(unsigned char).name(), "std::uint8_t"},
        {typeid(unsigned short).name(), "std::uint16_t"},
        {typeid(short).name(), "std::int16_t"},
        {typeid(unsigned int).name(), "std::uint32_t"},
        {typeid(int).name(), "std::int32_t"},
        {typeid(unsigned long).name(), "std::uint64_t"},
        {typeid(long).name(), "std::int64_t"},
        {typeid(unsigned long long).name(), "std::uint64_t"},
        {typeid(long long).name(), "std::int64_t"},
        {typeid(double).name(), "double"},
        {typeid(std::string).name(), "std::string"},
        {typeid(std::u16string).name(), "std::u16string"},
    };
    auto found = names.find(type.name());
    return found == names.end() ? nullptr : found->second;
}

// The name of a type as error origins show it ("struct ArchiveManagement::SliceInfo", "int").
std::string DisplayName(const std::type_info& type, bool isClass, bool isEnum) {
    if (const char* name = BuiltInName(type)) {
        return name;
    }
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    std::string name = status == 0 && demangled ? demangled.get() : type.name();
    if (isEnum) {
        return "enum " + name;
    }
    return isClass ? "struct " + name : name;
}

}  // namespace

const char* OptionalGetSite(const std::type_info& type, bool isClass, bool isEnum) {
    // Origins keep a plain pointer to the function name, so every name lives as long as the
    // process; there is one per type that ever met a null optional.
    static std::mutex lock;
    static std::map<std::string, std::string>* sites = new std::map<std::string, std::string>;
    std::lock_guard<std::mutex> guard(lock);
    auto [entry, added] = sites->try_emplace(type.name());
    if (added) {
        entry->second = "Core::Optional<" + DisplayName(type, isClass, isEnum) + ">::Get";
    }
    return entry->second.c_str();
}

void ThrowNullOptional(const char* site) {
    throw Common::Error(TL_ORIGIN(site), kOptionalIsNull, Common::GetMessageRow(kOptionalIsNullRow));
}

}  // namespace Core::Detail
