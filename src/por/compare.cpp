#include <tessel_link/por/compare.h>

#include <cstring>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "por/binary_operation.h"
#include "por/walkers.h"

#include "por/holders.h"
#include "por/deep_stack.h"
#include "por/por_errors.h"

namespace Por::Util {

namespace {

constexpr const char kCompareFunction[] = "Por::Util::Compare";
constexpr const char kEqualFunction[] = "Por::Util::UnitEqual";

int Sign(int value) {
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

int CompareAt(const View::Unit& a, const View::Unit& b, unsigned depth);
bool UnitEqualAt(const View::Unit& a, const View::Unit& b, unsigned depth);
bool UnitValueEqualAt(const View::Unit& a, const View::Unit& b, unsigned depth);

// ---- values of one kind ----

template <class T>
int CompareScalars(T a, T b) {
    // No special case for doubles: a NaN on either side compares as greater.
    return a < b ? -1 : (a == b ? 0 : 1);
}

int CompareGuids(const Common::Guid& a, const Common::Guid& b) {
    // Data1, Data2, Data3 as numbers, then the last eight bytes as one big-endian number.
    if (a < b) {
        return -1;
    }
    return a == b ? 0 : 1;
}

int CompareStrings(const WideString& a, const WideString& b) {
    // Equal strings are the common case when trees are compared: settle that with memcmp.
    if (a.size() == b.size() &&
        std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0) {
        return 0;
    }
    return Sign(a.compare(b));
}

// In-memory units keep their elements, properties and traits in lists that two walks can
// read side by side, without gathering one side through a processor first. Null for any other
// implementation, which the walkers serve.
//
// The type is told by the address of its type_info alone: where one type should have two
// (copies across shared objects), the general path serves and the answer is the same.
template <class Holder, class Value>
const Holder* IfHolder(const Value& value) {
    return &typeid(value) == &typeid(Holder) ? static_cast<const Holder*>(&value) : nullptr;
}

const ArrayValueHolder* MemoryArray(const View::ArrayValue& value) {
    return IfHolder<ArrayValueHolder>(value);
}

const CompositeValueHolder* MemoryComposite(const View::CompositeValue& value) {
    return IfHolder<CompositeValueHolder>(value);
}

const Por::Detail::TraitList* MemoryTraits(const View::Traits& traits) {
    const TraitsHolderImpl* impl = IfHolder<TraitsHolderImpl>(traits);
    return impl != nullptr ? &impl->List() : nullptr;
}

// Two in-memory lists (properties or traits) have the same names at the same places: every
// item then has its partner at its own index, and no name is on one side only.
template <class List>
bool SameNames(const List& left, const List& right) {
    if (left.size() != right.size()) {
        return false;
    }
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (left[i]->GetName() != right[i]->GetName()) {
            return false;
        }
    }
    return true;
}

// The property lists of two composites that are both in memory with the same names at the
// same places, to be read pair by pair; both null when they are not.
struct AlignedProperties {
    const PropertyList* Left = nullptr;
    const PropertyList* Right = nullptr;
};

AlignedProperties AlignProperties(const View::CompositeValue& a, const View::CompositeValue& b) {
    const CompositeValueHolder* memoryA = MemoryComposite(a);
    const CompositeValueHolder* memoryB = MemoryComposite(b);
    if (memoryA == nullptr || memoryB == nullptr ||
        !SameNames(memoryA->Properties(), memoryB->Properties())) {
        return {};
    }
    return {&memoryA->Properties(), &memoryB->Properties()};
}

int CompareBlobs(const ByteVector& a, const ByteVector& b) {
    const std::size_t common = std::min(a.size(), b.size());
    const int bytes = common == 0 ? 0 : std::memcmp(a.data(), b.data(), common);
    if (bytes != 0) {
        return Sign(bytes);
    }
    if (a.size() == b.size()) {
        return 0;
    }
    return a.size() < b.size() ? -1 : 1;
}

class ArrayComparisonWalker final : public ArrayElementsWalker {
public:
    explicit ArrayComparisonWalker(unsigned depth) : depth_(depth) {}
    bool ProcessPair(const View::Unit& left, const View::Unit& right) override {
        result_ = CompareAt(left, right, depth_);
        return result_ != 0;
    }
    // Counts are equal by then; there is no overflow.
    bool ProcessLeftOverflow(const View::Unit&) override { return true; }
    bool ProcessRightOverflow(const View::Unit&) override { return true; }
    int Result() const { return result_; }

private:
    unsigned depth_;
    int result_ = 0;
};

int CompareArrays(const View::ArrayValue& a, const View::ArrayValue& b, unsigned depth) {
    // By count alone first, whatever the elements.
    const std::uint64_t sizeA = a.Size();
    const std::uint64_t sizeB = b.Size();
    if (sizeA != sizeB) {
        return sizeA < sizeB ? -1 : 1;
    }
    const ArrayValueHolder* memoryA = MemoryArray(a);
    const ArrayValueHolder* memoryB = MemoryArray(b);
    if (memoryA != nullptr && memoryB != nullptr) {
        const UnitList& left = memoryA->Elements();
        const UnitList& right = memoryB->Elements();
        for (std::size_t i = 0; i < left.size(); ++i) {
            if (const int order = CompareAt(*left[i], *right[i], depth + 1); order != 0) {
                return order;
            }
        }
        return 0;
    }
    ArrayComparisonWalker walker(depth + 1);
    WalkArrays(a, b, walker);
    return walker.Result();
}

// A property that only one side has decides, by the lesser such name; otherwise the first
// pair of properties that differs.
class CompositeComparisonWalker final : public CompositePropertyWalker {
public:
    explicit CompositeComparisonWalker(unsigned depth) : depth_(depth) {}

    bool ProcessPair(const View::Property& left, const View::Property& right) override {
        if (pairResult_ == 0 && leftOnly_ == nullptr && rightOnly_ == nullptr) {
            pairResult_ = CompareAt(left.GetUnit(), right.GetUnit(), depth_);
        }
        return false;
    }
    bool ProcessLeftOverflow(const View::Property& left) override {
        if (leftOnly_ == nullptr) {
            leftOnly_ = left.GetName().c_str();
        }
        return rightOnly_ != nullptr;
    }
    bool ProcessRightOverflow(const View::Property& right) override {
        if (rightOnly_ == nullptr) {
            rightOnly_ = right.GetName().c_str();
        }
        // Right-only names come last, and only the first one counts.
        return true;
    }

    int Result() const {
        const char* left = leftOnly_ != nullptr ? leftOnly_ : "";
        const char* right = rightOnly_ != nullptr ? rightOnly_ : "";
        if (*left != '\0' || *right != '\0') {
            return UnitName::Compare(left, right);
        }
        return pairResult_;
    }

private:
    unsigned depth_;
    int pairResult_ = 0;
    const char* leftOnly_ = nullptr;
    const char* rightOnly_ = nullptr;
};

int CompareComposites(const View::CompositeValue& a, const View::CompositeValue& b,
                      unsigned depth) {
    if (const AlignedProperties aligned = AlignProperties(a, b); aligned.Left != nullptr) {
        // No lone names: the first pair that differs decides.
        const PropertyList& left = *aligned.Left;
        const PropertyList& right = *aligned.Right;
        for (std::size_t i = 0; i < left.size(); ++i) {
            const int order = CompareAt(left[i]->GetUnit(), right[i]->GetUnit(), depth + 1);
            if (order != 0) {
                return order;
            }
        }
        return 0;
    }
    CompositeComparisonWalker walker(depth + 1);
    WalkComposites(a, b, walker);
    return walker.Result();
}

// All 289 pairs of kinds.
struct PerformValueCompare {
    unsigned depth;
    int result = 0;

    template <class L, class R>
    void operator()(const L& left, const R& right) {
        constexpr unsigned leftType = ValueKindOf<L>;
        constexpr unsigned rightType = ValueKindOf<R>;
        if constexpr (leftType != rightType) {
            result = leftType < rightType ? -1 : 1;
        } else if constexpr (leftType == NilType) {
            result = 0;
        } else if constexpr (leftType == ArrayType) {
            result = CompareArrays(left, right, depth);
        } else if constexpr (leftType == CompositeType) {
            result = CompareComposites(left, right, depth);
        } else if constexpr (leftType == GuidType) {
            result = CompareGuids(left.Get(), right.Get());
        } else if constexpr (leftType == StringType) {
            result = CompareStrings(left.Get(), right.Get());
        } else if constexpr (leftType == BlobType) {
            result = CompareBlobs(left.Get(), right.Get());
        } else if constexpr (leftType == ErrorType) {
            result = CompareErrors(left.Get(), right.Get());
        } else {
            result = CompareScalars(left.Get(), right.Get());
        }
    }
};

// ---- traits ----

// UnitEqual over the pairs of two trait sets, each pair worked out once. Both directions of
// an inclusion test meet the same pairs (the relation is symmetric); without remembering them,
// traits nested in traits would cost twice as much per level of nesting.
class TraitPairs {
public:
    TraitPairs(const View::Traits& left, const View::Traits& right, unsigned depth)
        : left_(left), right_(right), depth_(depth) {}

    // The trait of the right set equal to a trait of the left one, or null.
    const View::Trait* PartnerOfLeft(const View::Trait& trait) {
        return Partner(right_, trait, true);
    }
    const View::Trait* PartnerOfRight(const View::Trait& trait) {
        return Partner(left_, trait, false);
    }

    // True when both sets are in memory, equally long, and each trait is equal to the one at
    // its own place on the other side: then every trait has a partner. Equal sets of
    // in-memory units always line up so, as their traits are kept in order; when the sets
    // do not, the pairs worked out on the way are kept for the search of partners.
    bool LineUp() {
        const Por::Detail::TraitList* left = MemoryTraits(left_);
        const Por::Detail::TraitList* right = MemoryTraits(right_);
        if (left == nullptr || right == nullptr || !SameNames(*left, *right)) {
            return false;
        }
        for (std::size_t i = 0; i < left->size(); ++i) {
            if (!Equal(*(*left)[i], *(*right)[i])) {
                return false;
            }
        }
        return true;
    }

private:
    struct Known {
        const View::Trait* left;
        const View::Trait* right;
        bool equal;
    };
    // Units carry few traits: the pairs usually fit without a heap allocation.
    static constexpr std::size_t kInline = 8;

    bool Equal(const View::Trait& left, const View::Trait& right) {
        for (std::size_t i = 0; i < count_; ++i) {
            const Known& k = i < kInline ? inline_[i] : overflow_[i - kInline];
            if (k.left == &left && k.right == &right) {
                return k.equal;
            }
        }
        const bool equal = UnitEqualAt(left.GetUnit(), right.GetUnit(), depth_);
        const Known known{&left, &right, equal};
        if (count_ < kInline) {
            inline_[count_] = known;
        } else {
            overflow_.push_back(known);
        }
        ++count_;
        return equal;
    }

    const View::Trait* Partner(const View::Traits& others, const View::Trait& trait,
                               bool traitIsLeft) {
        const View::Trait* found = nullptr;
        auto match = MakeProcessor<const View::Trait>([&](const View::Trait& other) {
            const bool equal = traitIsLeft ? Equal(trait, other) : Equal(other, trait);
            if (equal) {
                found = &other;
            }
            return equal;
        });
        others.ForEachByName(trait.GetName(), match);
        return found;
    }

    const View::Traits& left_;
    const View::Traits& right_;
    unsigned depth_;
    std::size_t count_ = 0;
    Known inline_[kInline];
    std::vector<Known> overflow_;
};

// The traits of one side that the other side lacks: the first is kept, unless a later one of
// the same name has a lesser unit; one of another name closes the list.
struct TraitCandidate {
    const View::Trait* trait = nullptr;
    bool closed = false;

    void Offer(const View::Trait& offered, unsigned depth) {
        if (trait == nullptr) {
            trait = &offered;
        } else if (offered.GetName() == trait->GetName()) {
            if (CompareAt(offered.GetUnit(), trait->GetUnit(), depth) < 0) {
                trait = &offered;
            }
        } else {
            closed = true;
        }
    }
};

// `depth` is that of the trait units.
//
// A trait with an equal partner on the other side forms a pair. Pairs never decide: the units
// of a pair are UnitEqual, and UnitEqual units always compare as 0 (equal values compare as
// 0 kind by kind, and mutually included trait sets leave no lone trait). So only the lone
// traits of each side count.
int CompareTraitsAt(const View::Unit& a, const View::Unit& b, unsigned depth) {
    const View::Traits& left = a.GetTraits();
    const View::Traits& right = b.GetTraits();
    if (HasNoTraits(left) && HasNoTraits(right)) {
        return 0;
    }
    TraitPairs pairs(left, right, depth);
    if (pairs.LineUp()) {
        return 0;
    }
    TraitCandidate leftOnly;
    TraitCandidate rightOnly;

    auto leftWalk = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        if (pairs.PartnerOfLeft(trait) == nullptr) {
            leftOnly.Offer(trait, depth);
        }
        return leftOnly.closed;
    });
    left.ForEach(leftWalk);
    auto rightWalk = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        if (pairs.PartnerOfRight(trait) == nullptr) {
            rightOnly.Offer(trait, depth);
        }
        return rightOnly.closed;
    });
    right.ForEach(rightWalk);

    if (leftOnly.trait == nullptr && rightOnly.trait == nullptr) {
        return 0;
    }
    if (leftOnly.trait == nullptr) {
        return -1;
    }
    if (rightOnly.trait == nullptr) {
        return 1;
    }
    const int byName =
        UnitName::Compare(leftOnly.trait->GetName().c_str(), rightOnly.trait->GetName().c_str());
    if (byName != 0) {
        return byName;
    }
    return CompareAt(leftOnly.trait->GetUnit(), rightOnly.trait->GetUnit(), depth);
}

int CompareAtHere(const View::Unit& a, const View::Unit& b, unsigned depth);

int CompareAt(const View::Unit& a, const View::Unit& b, unsigned depth) {
    if (&a == &b) {
        return 0;
    }
    return Por::Detail::Descend(depth, kCompareFunction, [&] { return CompareAtHere(a, b, depth); });
}

int CompareAtHere(const View::Unit& a, const View::Unit& b, unsigned depth) {
    PerformValueCompare op{depth, 0};
    Por::Detail::ApplyBinary(a, b, op);
    if (op.result != 0) {
        return op.result;
    }
    return CompareTraitsAt(a, b, depth + 1);
}

// ---- equality ----

// Every trait of `b` has an equal one of the same name in `a`. `depth` is that of the trait
// units.
bool IncludesAt(const View::Unit& a, const View::Unit& b, unsigned depth) {
    TraitPairs pairs(a.GetTraits(), b.GetTraits(), depth);
    bool missing = false;
    auto each = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        missing = pairs.PartnerOfRight(trait) == nullptr;
        return missing;
    });
    b.GetTraits().ForEach(each);
    return !missing;
}

// Both inclusions, sharing the pairs worked out.
bool IncludeEachOtherAt(const View::Unit& a, const View::Unit& b, unsigned depth) {
    if (HasNoTraits(a.GetTraits()) && HasNoTraits(b.GetTraits())) {
        return true;
    }
    TraitPairs pairs(a.GetTraits(), b.GetTraits(), depth);
    if (pairs.LineUp()) {
        return true;
    }
    bool missing = false;
    auto leftHasAll = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        missing = pairs.PartnerOfRight(trait) == nullptr;
        return missing;
    });
    b.GetTraits().ForEach(leftHasAll);
    if (missing) {
        return false;
    }
    auto rightHasAll = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        missing = pairs.PartnerOfLeft(trait) == nullptr;
        return missing;
    });
    a.GetTraits().ForEach(rightHasAll);
    return !missing;
}

class ArrayEqualityChecker final : public ArrayElementsWalker {
public:
    explicit ArrayEqualityChecker(unsigned depth) : depth_(depth) {}
    bool ProcessPair(const View::Unit& left, const View::Unit& right) override {
        equal_ = UnitEqualAt(left, right, depth_);
        return !equal_;
    }
    bool ProcessLeftOverflow(const View::Unit&) override { return Differ(); }
    bool ProcessRightOverflow(const View::Unit&) override { return Differ(); }
    bool Equal() const { return equal_; }

private:
    bool Differ() {
        equal_ = false;
        return true;
    }
    unsigned depth_;
    bool equal_ = true;
};

class CompositeEqualityChecker final : public CompositePropertyWalker {
public:
    explicit CompositeEqualityChecker(unsigned depth) : depth_(depth) {}
    bool ProcessPair(const View::Property& left, const View::Property& right) override {
        equal_ = UnitEqualAt(left.GetUnit(), right.GetUnit(), depth_);
        return !equal_;
    }
    bool ProcessLeftOverflow(const View::Property&) override { return Differ(); }
    bool ProcessRightOverflow(const View::Property&) override { return Differ(); }
    bool Equal() const { return equal_; }

private:
    bool Differ() {
        equal_ = false;
        return true;
    }
    unsigned depth_;
    bool equal_ = true;
};

// Equal kinds only; any two kinds that differ are unequal.
struct ValueComparator {
    unsigned depth;
    bool result = false;

    template <class L, class R>
    void operator()(const L& left, const R& right) {
        constexpr unsigned leftType = ValueKindOf<L>;
        constexpr unsigned rightType = ValueKindOf<R>;
        if constexpr (leftType != rightType) {
            result = false;
        } else if constexpr (leftType == NilType) {
            result = true;
        } else if constexpr (leftType == ArrayType) {
            if (left.Size() != right.Size()) {
                result = false;
                return;
            }
            const ArrayValueHolder* memoryLeft = MemoryArray(left);
            const ArrayValueHolder* memoryRight = MemoryArray(right);
            if (memoryLeft != nullptr && memoryRight != nullptr) {
                const UnitList& a = memoryLeft->Elements();
                const UnitList& b = memoryRight->Elements();
                result = true;
                for (std::size_t i = 0; i < a.size() && result; ++i) {
                    result = UnitEqualAt(*a[i], *b[i], depth + 1);
                }
                return;
            }
            ArrayEqualityChecker checker(depth + 1);
            WalkArrays(left, right, checker);
            result = checker.Equal();
        } else if constexpr (leftType == CompositeType) {
            if (const AlignedProperties aligned = AlignProperties(left, right);
                aligned.Left != nullptr) {
                const PropertyList& a = *aligned.Left;
                const PropertyList& b = *aligned.Right;
                result = true;
                for (std::size_t i = 0; i < a.size() && result; ++i) {
                    result = UnitEqualAt(a[i]->GetUnit(), b[i]->GetUnit(), depth + 1);
                }
                return;
            }
            CompositeEqualityChecker checker(depth + 1);
            WalkComposites(left, right, checker);
            result = checker.Equal();
        } else if constexpr (leftType == ErrorType) {
            result = CompareErrors(left.Get(), right.Get()) == 0;
        } else {
            result = left.Get() == right.Get();
        }
    }
};

bool UnitValueEqualAt(const View::Unit& a, const View::Unit& b, unsigned depth) {
    return Por::Detail::Descend(depth, kEqualFunction, [&] {
        ValueComparator op{depth, false};
        Por::Detail::ApplyBinary(a, b, op);
        return op.result;
    });
}

bool UnitEqualAtHere(const View::Unit& a, const View::Unit& b, unsigned depth);

bool UnitEqualAt(const View::Unit& a, const View::Unit& b, unsigned depth) {
    if (&a == &b) {
        return true;
    }
    return Por::Detail::Descend(depth, kEqualFunction, [&] { return UnitEqualAtHere(a, b, depth); });
}

bool UnitEqualAtHere(const View::Unit& a, const View::Unit& b, unsigned depth) {
    // Traits first: they are few, and usually decide quickly.
    if (!IncludeEachOtherAt(a, b, depth + 1)) {
        return false;
    }
    return UnitValueEqualAt(a, b, depth);
}

// ---- errors ----

// Parameters by the names lists. The last name of a list (the module) is not a field.
int CompareFieldValue(const Common::Error& a, const Common::Error& b, const char* name) {
    const char16_t* wideA = a.GetWide(name);
    const char16_t* wideB = b.GetWide(name);
    if (wideA != nullptr || wideB != nullptr) {
        if (wideA == nullptr || wideB == nullptr) {
            return wideA == nullptr ? -1 : 1;
        }
        const std::size_t lengthA = std::char_traits<char16_t>::length(wideA);
        const std::size_t lengthB = std::char_traits<char16_t>::length(wideB);
        if (lengthA != lengthB) {
            return lengthA < lengthB ? -1 : 1;
        }
        return Sign(std::memcmp(wideA, wideB, lengthA * sizeof(char16_t)));
    }
    const char* narrowA = a.GetAnsi(name);
    const char* narrowB = b.GetAnsi(name);
    if (narrowA != nullptr || narrowB != nullptr) {
        if (narrowA == nullptr || narrowB == nullptr) {
            return narrowA == nullptr ? -1 : 1;
        }
        return Sign(std::strcmp(narrowA, narrowB));
    }
    const auto difference =
        static_cast<std::int64_t>(a.GetNumber(name) - b.GetNumber(name));
    return difference < 0 ? -1 : (difference > 0 ? 1 : 0);
}

int CompareFields(const Common::Error& a, const Common::Error& b) {
    const char* namesA = a.GetNames();
    const char* namesB = b.GetNames();
    if (namesA == nullptr || namesB == nullptr) {
        if (namesA == namesB) {
            return 0;
        }
        return namesA == nullptr ? -1 : 1;
    }
    std::string field;
    for (;;) {
        const char* commaA = std::strchr(namesA, ',');
        const char* commaB = std::strchr(namesB, ',');
        if (commaA == nullptr && commaB == nullptr) {
            return 0;
        }
        if (commaA == nullptr || commaB == nullptr) {
            return commaA == nullptr ? -1 : 1;
        }
        const std::string_view nameA(namesA, static_cast<std::size_t>(commaA - namesA));
        const std::string_view nameB(namesB, static_cast<std::size_t>(commaB - namesB));
        const int byName = Sign(nameA.compare(nameB));
        if (byName != 0) {
            return byName;
        }
        field.assign(nameA);
        const int byValue = CompareFieldValue(a, b, field.c_str());
        if (byValue != 0) {
            return byValue;
        }
        namesA = commaA + 1;
        namesB = commaB + 1;
    }
}

}  // namespace

int Compare(const View::Unit& a, const View::Unit& b) {
    return CompareAt(a, b, 0);
}

bool UnitLess(const View::Unit& a, const View::Unit& b) {
    return &a != &b && Compare(a, b) < 0;
}

bool UnitEqual(const View::Unit& a, const View::Unit& b) {
    return UnitEqualAt(a, b, 0);
}

bool UnitValueEqual(const View::Unit& a, const View::Unit& b) {
    // No shortcut for a unit against itself: a NaN is not equal to itself.
    return UnitValueEqualAt(a, b, 0);
}

bool TraitsInclude(const View::Unit& a, const View::Unit& b) {
    return &a == &b || IncludesAt(a, b, 1);
}

int CompareErrors(const Common::Error& a, const Common::Error& b) {
    if (a.Identity() == b.Identity()) {
        return 0;
    }
    // Codes first, level by level down the chains of causes; the parameter lists count only
    // when all codes agree, the deepest level first. Iterative, so that a long chain of
    // causes needs no stack.
    std::vector<std::pair<Common::Error, Common::Error>> levels;
    Common::Error x = a;
    Common::Error y = b;
    for (;;) {
        const std::uint32_t codeX = x.Code();
        const std::uint32_t codeY = y.Code();
        if (codeX != codeY) {
            return codeX < codeY ? -1 : 1;
        }
        if (codeX == 0 || x.Identity() == y.Identity()) {
            break;
        }
        Common::Error causeX = x.Cause();
        Common::Error causeY = y.Cause();
        levels.emplace_back(std::move(x), std::move(y));
        x = std::move(causeX);
        y = std::move(causeY);
    }
    for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
        const int byFields = CompareFields(level->first, level->second);
        if (byFields != 0) {
            return byFields;
        }
    }
    return 0;
}

}  // namespace Por::Util
