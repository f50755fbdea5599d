#include "platform/late_binding.h"

#include <dlfcn.h>

#include <cstdlib>
#include <fstream>
#include <utility>

#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>

namespace Platform {

namespace {

// "Cannot load the dynamic library." and "Cannot find the symbol in the dynamic library."
constexpr std::uint32_t kRowCannotLoad = 19;
constexpr std::uint32_t kRowNoSymbol = 30;

enum class Failure { Library, Symbol };

// Every failure of late binding ends here. The head record names the library (and the
// symbol); beneath it stand the message row of the failure and the loader's own reason.
[[noreturn]] void FailureHook(Failure failure, const std::string& path, const char* function,
                              const std::string& reason) {
    const Common::ErrorOrigin origin = TL_ORIGIN("`anonymous-namespace'::FailureHook");
    Common::Error error =
        failure == Failure::Library
            ? Common::Error::DelayLoadPath(origin, kErrorLateBindingLibrary, path.c_str())
            : Common::Error::DelayLoadSymbol(origin, kErrorLateBindingSymbol, path.c_str(),
                                             function);
    Common::Error text(origin, error.Code(),
                       Common::GetMessageRow(failure == Failure::Library ? kRowCannotLoad
                                                                         : kRowNoSymbol));
    if (!reason.empty()) {
        text.AddCause(Common::Error(origin, error.Code(), reason.c_str()));
    }
    error.AddCause(text);
    throw error;
}

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

// The value of "name=value" when the entry is for `name`.
bool Entry(const std::string& entry, const std::string& name, std::string& value) {
    const auto equals = entry.find('=');
    if (equals == std::string::npos || Trim(entry.substr(0, equals)) != name) {
        return false;
    }
    value = Trim(entry.substr(equals + 1));
    return !value.empty();
}

std::string DefaultFileName(const std::string& name) {
    if (name.find('/') != std::string::npos || name.find(".so") != std::string::npos) {
        return name;
    }
    return "lib" + name + ".so";
}

class SystemDynamicLoader final : public DynamicLoader {
public:
    void* Open(const std::string& path) override {
        return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    void* Symbol(void* library, const char* name) override {
        dlerror();
        return dlsym(library == nullptr ? RTLD_DEFAULT : library, name);
    }
    std::string LastError() override {
        const char* text = dlerror();
        return text == nullptr ? std::string() : std::string(text);
    }
};

}  // namespace

DynamicLoader& SystemLoader() {
    static SystemDynamicLoader loader;
    return loader;
}

ComponentLocations ComponentLocations::FromEnvironment() {
    ComponentLocations locations;
    if (const char* value = std::getenv(kComponentsVariable)) {
        locations.Variable = value;
    }
    return locations;
}

std::string ConfiguredPath(const std::string& name, const ComponentLocations& locations) {
    std::string value;
    std::size_t start = 0;
    while (start <= locations.Variable.size()) {
        auto end = locations.Variable.find(';', start);
        if (end == std::string::npos) {
            end = locations.Variable.size();
        }
        if (Entry(locations.Variable.substr(start, end - start), name, value)) {
            return value;
        }
        start = end + 1;
    }
    std::ifstream file(locations.File);
    std::string line;
    while (std::getline(file, line)) {
        const auto comment = line.find('#');
        if (comment != std::string::npos) {
            line.erase(comment);
        }
        if (Entry(line, name, value)) {
            return value;
        }
    }
    return {};
}

LateBinding::LateBinding(DynamicLoader& loader, ComponentLocations locations)
    : loader_(loader), locations_(std::move(locations)) {}

bool LateBinding::Configured(const std::string& name) const {
    return !ConfiguredPath(name, locations_).empty();
}

void* LateBinding::Library(const std::string& name) {
    const std::lock_guard<std::mutex> lock(lock_);
    const auto known = loaded_.find(name);
    if (known != loaded_.end()) {
        return known->second.first;
    }
    std::string path = ConfiguredPath(name, locations_);
    if (path.empty()) {
        path = DefaultFileName(name);
    }
    void* library = loader_.Open(path);
    if (library == nullptr) {
        FailureHook(Failure::Library, path, nullptr, loader_.LastError());
    }
    loaded_.emplace(name, std::make_pair(library, path));
    return library;
}

void* LateBinding::Function(const std::string& library, const char* function) {
    void* handle = Library(library);
    void* symbol = loader_.Symbol(handle, function);
    if (symbol == nullptr) {
        std::string path;
        {
            const std::lock_guard<std::mutex> lock(lock_);
            path = loaded_.at(library).second;
        }
        FailureHook(Failure::Symbol, path, function, loader_.LastError());
    }
    return symbol;
}

void* LateBinding::InProcess(const char* function) {
    return loader_.Symbol(nullptr, function);
}

LateBinding& ProcessLateBinding() {
    static LateBinding binding;
    return binding;
}

}  // namespace Platform
