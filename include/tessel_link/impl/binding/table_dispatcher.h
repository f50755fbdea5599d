#pragma once

// Not API: the table-driven service side that generated dispatchers derive from. Hosts use
// the generated X_Dispatcher classes and Binding::ServiceDispatcher instead.

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <tessel_link/binding/service_dispatcher.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/impl/binding/method_descriptor.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/serializer.h>

namespace Binding {

// The name and kind of one parameter of a served method, as the interface definitions
// give them.
struct ServiceParameter {
    const char* Name;
    ArgumentKind Kind;
};

// What a served method needs at call time, prepared once when its dispatcher is built:
// element names and the MetaInfo of every argument, so that a call builds no strings.
struct PreparedMethod {
    std::uint32_t Number = 0;
    std::uint64_t IntroducedVersion = 0;
    std::string Name;
    Serialization::MetaInfo RequestElement;
    Serialization::MetaInfo ReplyElement;
    std::vector<Serialization::MetaInfo> ArgumentMeta;
    std::vector<ArgumentKind> ArgumentKinds;
};

namespace Detail {

// Calls the implementation's member function with the arguments read from the request.
// `implementation` is the dispatcher's interface pointer and `arguments` the signature's
// tuple of values, both passed untyped so that the code which reads and writes arguments
// is shared by every method of the same signature, whichever interface it belongs to.
using InvokeFunction = Common::Error (*)(void* implementation, void* arguments);
using ServeFunction = void (*)(const PreparedMethod& method, InvokeFunction invoke,
                               void* implementation, Serialization::Deserializer& request,
                               Serialization::Serializer& reply);

}  // namespace Detail

// One row of a dispatcher's table: a method of the interface with its number, name,
// introduced version and parameters, and the code that serves it.
struct ServiceMethod {
    std::uint32_t Number = 0;
    const char* Name = "";
    std::uint64_t IntroducedVersion = 1;
    std::vector<ServiceParameter> Parameters;
    Detail::ServeFunction Serve = nullptr;
    Detail::InvokeFunction Invoke = nullptr;
};

// The same row as plain constant data, as generated dispatchers give their tables: no code
// runs to build it.
struct ServiceMethodRow {
    std::uint32_t Number;
    const char* Name;
    std::uint64_t IntroducedVersion;
    const ServiceParameter* Parameters;  // ParameterCount of them; null when none
    std::size_t ParameterCount;
    Detail::ServeFunction Serve;
    Detail::InvokeFunction Invoke;
};

// A dispatcher driven by a table of its interface's methods. Each component's skeleton
// derives from it and passes the table; the rows are in any order, numbered from 1 without
// gaps.
class TL_API TableDispatcher : public ServiceDispatcher {
public:
    std::uint32_t GetComponentID() const override;
    void Serve(std::uint32_t methodNumber, std::uint64_t interfaceVersion,
               Serialization::Deserializer& request,
               Serialization::Serializer& reply) const override;

    // The interface name without namespace, as the element names carry it.
    const std::string& InterfaceName() const { return interfaceName_; }
    std::uint64_t InterfaceVersion() const { return interfaceVersion_; }

protected:
    // `implementation` is the address of the interface sub-object that the rows' invokers
    // expect; the derived class keeps it alive.
    TableDispatcher(std::uint32_t componentId, std::string interfaceName,
                    std::uint64_t interfaceVersion, void* implementation,
                    std::initializer_list<ServiceMethod> methods);
    TableDispatcher(std::uint32_t componentId, std::string interfaceName,
                    std::uint64_t interfaceVersion, void* implementation,
                    std::span<const ServiceMethodRow> methods);
    ~TableDispatcher() override;

private:
    void AddRow(const ServiceMethodRow& method);

    struct Row {
        PreparedMethod Method;
        Detail::ServeFunction ServeRow = nullptr;
        Detail::InvokeFunction Invoke = nullptr;
    };

    std::uint32_t componentId_;
    std::string interfaceName_;
    std::uint64_t interfaceVersion_;
    void* implementation_;
    // Indexed by method number minus 1.
    std::vector<Row> rows_;
};

// The dispatcher of the interface `Interface`, serving the calls with `implementation`.
// Skeletons derive from it:
//   class TestManager_Dispatcher final : public Binding::ComponentDispatcher<TestManager> {
//   public:
//       explicit TestManager_Dispatcher(std::shared_ptr<TestManager> implementation);
//   };
template <class Interface>
class ComponentDispatcher : public TableDispatcher {
public:
    const std::shared_ptr<Interface>& Implementation() const { return implementation_; }

protected:
    ComponentDispatcher(std::uint32_t componentId, std::string interfaceName,
                        std::uint64_t interfaceVersion, std::shared_ptr<Interface> implementation,
                        std::initializer_list<ServiceMethod> methods)
        : TableDispatcher(componentId, std::move(interfaceName), interfaceVersion,
                          implementation.get(), methods),
          implementation_(std::move(implementation)) {}
    ComponentDispatcher(std::uint32_t componentId, std::string interfaceName,
                        std::uint64_t interfaceVersion, std::shared_ptr<Interface> implementation,
                        std::span<const ServiceMethodRow> methods)
        : TableDispatcher(componentId, std::move(interfaceName), interfaceVersion,
                          implementation.get(), methods),
          implementation_(std::move(implementation)) {}

private:
    std::shared_ptr<Interface> implementation_;
};

}  // namespace Binding
