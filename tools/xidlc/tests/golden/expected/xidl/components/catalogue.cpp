// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "facade/component_catalogue.h"
#include "facade/component_proxy_factory.h"

namespace Shapes {

void VisitDefaultRequest_Canvas_Draw(::Core::Catalogue::RequestVisitor visit, void* context);
void VisitDefaultRequest_Canvas_Clear(::Core::Catalogue::RequestVisitor visit, void* context);
void VisitDefaultRequest_Canvas_CountFilled(::Core::Catalogue::RequestVisitor visit, void* context);

}  // namespace Shapes

namespace Core {

namespace Generated {

std::unique_ptr<::ComponentManagement::Component>& CreateProxy_9001(
    const std::shared_ptr<::Binding::RequestChannel>&, std::unique_ptr<::ComponentManagement::Component>&);

}  // namespace Generated

std::span<const ComponentProxyEntry> ComponentProxyTable() {
    static constexpr ComponentProxyEntry kTable[] = {
        {9001, &Generated::CreateProxy_9001},
    };
    return kTable;
}

namespace Catalogue {
namespace {

constexpr Parameter kParams_9001_1[] = {{"outline", "Outline", 0}, {"number", "ulong&", 2}};
constexpr Parameter kParams_9001_3[] = {{"fill", "Fill", 0}, {"corners", "set<Point>", 0}, {"result", "ulong&", 0}};
constexpr Method kMethods_9001[] = {
    {1, "Draw", 1, kParams_9001_1, 2, &::Shapes::VisitDefaultRequest_Canvas_Draw},
    {2, "Clear", 1, nullptr, 0, &::Shapes::VisitDefaultRequest_Canvas_Clear},
    {3, "CountFilled", 2, kParams_9001_3, 3, &::Shapes::VisitDefaultRequest_Canvas_CountFilled},
};

constexpr Component kComponents[] = {
    {9001, "Shapes::Canvas", "Canvas", 2, kMethods_9001, 3},
};

}  // namespace

std::span<const Component> Components() {
    return kComponents;
}

}  // namespace Catalogue

}  // namespace Core
