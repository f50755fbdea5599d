#pragma once

// Double dispatch over a pair of units: the left unit is visited, and for the kind found a
// second visitor resolves the right one; the operation is then called with both values.
// The operation sees all 289 pairs of kinds.

#include <tessel_link/por/visitors.h>

namespace Por::Detail {

// Calls `op` with the values of two units, whatever their kinds.
template <class Op>
class BinaryValueOperation {
public:
    explicit BinaryValueOperation(Op& op) : op_(op) {}

    void operator()(const View::Unit& left, const View::Unit& right) {
        LeftResolver resolver{op_, right};
        VisitValue(left, resolver);
    }

private:
    template <class LeftValue>
    struct RightResolver {
        Op& op;
        const LeftValue& left;
        template <class RightValue>
        void operator()(const RightValue& right) {
            op(left, right);
        }
    };

    struct LeftResolver {
        Op& op;
        const View::Unit& right;
        template <class LeftValue>
        void operator()(const LeftValue& left) {
            RightResolver<LeftValue> resolver{op, left};
            VisitValue(right, resolver);
        }
    };

    Op& op_;
};

template <class Op>
void ApplyBinary(const View::Unit& left, const View::Unit& right, Op& op) {
    BinaryValueOperation<Op> operation(op);
    operation(left, right);
}

}  // namespace Por::Detail
