#pragma once

// Not API: the templates behind the visitor bases and VisitValue of por/visitors.h. Hosts use
// View::NullVisitor, View::TypeMismatchThrowingVisitor (and their Modification and
// Construction forms) and VisitValue.

#include <tessel_link/impl/por/type_mismatch.h>
#include <tessel_link/por/construction.h>

namespace Por::Detail {

// All slots do nothing: readers override the kinds they care for and skip the rest.
template <class Visitor>
class BasicNullVisitor : public Visitor {
public:
#define TL_POR_SLOT(Kind, Value, Index) \
    void On##Kind(typename Visitor::Kind##Arg) override {}
    TL_POR_FOR_EACH_KIND(TL_POR_SLOT)
#undef TL_POR_SLOT
};

// Every slot raises the type mismatch error for the expected kind and the kind met.
template <class Visitor>
class BasicTypeMismatchThrowingVisitor : public Visitor {
public:
    explicit BasicTypeMismatchThrowingVisitor(unsigned expectedType) : expected_(expectedType) {}

#define TL_POR_SLOT(Kind, Value, Idx) \
    void On##Kind(typename Visitor::Kind##Arg) override { Mismatch(Idx); }
    TL_POR_FOR_EACH_KIND(TL_POR_SLOT)
#undef TL_POR_SLOT

    unsigned ExpectedType() const { return expected_; }

protected:
    [[noreturn]] void Mismatch(unsigned actualType) const {
        throw Util::Detail::MakeTypeMismatchError(expected_, actualType);
    }

private:
    unsigned expected_;
};

// Forwards every slot to one handler object, overloaded (or generic) over the value types.
template <class Handler, class Visitor = View::UnitReader>
class UnitVisitorAdaptor final : public Visitor {
public:
    explicit UnitVisitorAdaptor(Handler& handler) : handler_(handler) {}

#define TL_POR_SLOT(Kind, Value, Index) \
    void On##Kind(typename Visitor::Kind##Arg value) override { handler_(value); }
    TL_POR_FOR_EACH_KIND(TL_POR_SLOT)
#undef TL_POR_SLOT

private:
    Handler& handler_;
};

}  // namespace Por::Detail
