#include <tessel_link/por/pattern.h>

#include <map>
#include <string>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/data_accessor.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/util.h>

#include "por/deep_stack.h"
#include "por/por_errors.h"

namespace Por::Util {

namespace {

const UnitName kFrom = UnitName::Literal("From");
const UnitName kTo = UnitName::Literal("To");
const UnitName kAnyValue = UnitName::Literal("AnyValue");
const UnitName kIs = UnitName::Literal(TraitNames::Is);
const UnitName kSource = UnitName::Literal(TraitNames::Source);
const UnitName kPrimaryKey = UnitName::Literal(TraitNames::PrimaryKey);
const UnitName kForeignKey = UnitName::Literal(TraitNames::ForeignKey);

// Depth of the patterns being matched on this thread: "Not" and "Or" recurse through the
// table, so the bound lives beside it rather than in an argument.
thread_local unsigned t_depth = 0;

class DepthGuard {
public:
    DepthGuard() {
        if (++t_depth > kMaxTreeDepth) {
            --t_depth;
            Por::Detail::ThrowTooDeep("Por::Util::Match");
        }
    }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    ~DepthGuard() { --t_depth; }
};

[[noreturn]] void ThrowStructureMismatch(const char* function) {
    throw Por::Detail::MakeRowError(TL_ORIGIN(function), kErrorPattern,
                                    Por::Detail::kRowStructureMismatch);
}

const WideString* StringOf(const View::Unit& unit) {
    const WideString* text = nullptr;
    VisitValue(unit, [&](const auto& value) {
        if constexpr (ValueKindOf<decltype(value)> == StringType) {
            text = &value.Get();
        }
    });
    return text;
}

const View::ArrayValue* ArrayOf(const View::Unit& unit) {
    const View::ArrayValue* array = nullptr;
    VisitValue(unit, [&](const auto& value) {
        if constexpr (ValueKindOf<decltype(value)> == ArrayType) {
            array = &value;
        }
    });
    return array;
}

// True when `unit` is an array with an element for which `test` holds.
template <class Test>
bool AnyElement(const View::Unit& unit, Test&& test) {
    const View::ArrayValue* array = ArrayOf(unit);
    if (array == nullptr) {
        return false;
    }
    auto each = MakeProcessor<const View::Unit>(
        [&](const View::Unit& element) { return static_cast<bool>(test(element)); });
    return array->ForEach(each);
}

int CompareSameKind(const View::Unit& source, const View::Unit& argument, bool& sameKind) {
    sameKind = HaveSameType(source, argument);
    return sameKind ? Compare(source, argument) : 0;
}

bool AnyValuePattern(const View::Unit&, const View::Unit&) {
    return true;
}

bool BetweenPattern(const View::Unit& source, const View::Unit& argument) {
    ConstDataAccessor range(&argument);
    const View::Unit& from = range[kFrom].GetUnit();
    const View::Unit& to = range[kTo].GetUnit();
    if (!HaveSameType(from, to)) {
        throw Por::Detail::MakeRowError(TL_ORIGIN("Por::Util::ValidateBetweenPattern"),
                                        kErrorPattern, Por::Detail::kRowRangeCheck);
    }
    if (!HaveSameType(source, to)) {
        return false;
    }
    return Compare(source, from) != -1 && Compare(source, to) != 1;
}

bool EqualValuePattern(const View::Unit& source, const View::Unit& argument) {
    return UnitValueEqual(source, argument);
}

bool GreaterPattern(const View::Unit& source, const View::Unit& argument) {
    bool same;
    const int order = CompareSameKind(source, argument, same);
    return same && order == 1;
}

bool GreaterEqualPattern(const View::Unit& source, const View::Unit& argument) {
    bool same;
    const int order = CompareSameKind(source, argument, same);
    return same && order != -1;
}

bool LessPattern(const View::Unit& source, const View::Unit& argument) {
    bool same;
    const int order = CompareSameKind(source, argument, same);
    return same && order == -1;
}

bool LessEqualPattern(const View::Unit& source, const View::Unit& argument) {
    bool same;
    const int order = CompareSameKind(source, argument, same);
    return same && order != 1;
}

bool IncludedInArrayPattern(const View::Unit& source, const View::Unit& argument) {
    return AnyElement(source, [&](const View::Unit& e) { return UnitEqual(e, argument); });
}

bool ValueIncludedInArrayPattern(const View::Unit& source, const View::Unit& argument) {
    return AnyElement(source, [&](const View::Unit& e) { return UnitValueEqual(e, argument); });
}

bool InPattern(const View::Unit& source, const View::Unit& argument) {
    return AnyElement(argument, [&](const View::Unit& e) { return UnitEqual(source, e); });
}

bool ValueInPattern(const View::Unit& source, const View::Unit& argument) {
    return AnyElement(argument, [&](const View::Unit& e) { return UnitValueEqual(source, e); });
}

bool IsPattern(const View::Unit& source, const View::Unit& argument) {
    return HasTraitWithValue(source, kIs, argument);
}

bool LikePattern(const View::Unit& source, const View::Unit& argument) {
    const WideString* pattern = StringOf(argument);
    if (pattern == nullptr) {
        ThrowStructureMismatch("Por::Util::ValidateLikePattern");
    }
    if (IsSearchableArray(source)) {
        return AnyElement(source, [&](const View::Unit& element) {
            const WideString* text = StringOf(element);
            return text != nullptr && LikeMatch(*text, *pattern);
        });
    }
    const WideString* text = StringOf(source);
    return text != nullptr && LikeMatch(*text, *pattern);
}

bool NotPattern(const View::Unit& source, const View::Unit& argument) {
    return !Match(source, argument);
}

bool OrPattern(const View::Unit& source, const View::Unit& argument) {
    return AnyElement(argument, [&](const View::Unit& element) { return Match(source, element); });
}

bool SourcePattern(const View::Unit& source, const View::Unit& argument) {
    if (HasTrait(argument, kAnyValue)) {
        return HasTrait(source, kSource);
    }
    return HasTraitWithValue(source, kSource, argument);
}

bool PrimaryKeyPattern(const View::Unit& source, const View::Unit& argument) {
    return HasTraitWithValue(source, kPrimaryKey, argument);
}

bool ForeignKeyPattern(const View::Unit& source, const View::Unit& argument) {
    return HasTraitWithValue(source, kForeignKey, argument);
}

// A string source that starts with the argument. A source of another kind simply doesn't
// fit, while an argument of another kind is a malformed pattern.
bool DirectRelativePattern(const View::Unit& source, const View::Unit& argument) {
    const WideString* prefix = StringOf(argument);
    if (prefix == nullptr) {
        ThrowStructureMismatch("Por::Util::DirectRelativePattern");
    }
    const WideString* text = StringOf(source);
    return text != nullptr && text->compare(0, prefix->size(), *prefix) == 0 &&
           text->size() >= prefix->size();
}

// Both sides must be arrays: unlike "DirectRelative", a source of another kind is an error.
bool HasIntersectionPattern(const View::Unit& source, const View::Unit& argument) {
    if (!IsArray(source) || !IsArray(argument)) {
        ThrowStructureMismatch("Por::Util::HasIntersectionPattern");
    }
    return AnyElement(source, [&](const View::Unit& e) { return ValueInPattern(e, argument); });
}

const std::map<std::string, PatternTest, std::less<>>& PatternTable() {
    static const std::map<std::string, PatternTest, std::less<>> table = {
        {"AnyValue", &AnyValuePattern},
        {"Between", &BetweenPattern},
        {"EqualValue", &EqualValuePattern},
        {"Greater", &GreaterPattern},
        {"GreaterEqual", &GreaterEqualPattern},
        {"Less", &LessPattern},
        {"LessEqual", &LessEqualPattern},
        {"IncludedInArray", &IncludedInArrayPattern},
        {"ValueIncludedInArray", &ValueIncludedInArrayPattern},
        {"In", &InPattern},
        {"ValueIn", &ValueInPattern},
        {"Is", &IsPattern},
        {"Like", &LikePattern},
        {"Not", &NotPattern},
        {"Or", &OrPattern},
        {"Source", &SourcePattern},
        {"PrimaryKey", &PrimaryKeyPattern},
        {"ForeignKey", &ForeignKeyPattern},
        {"DirectRelative", &DirectRelativePattern},
        {"HasIntersection", &HasIntersectionPattern},
    };
    return table;
}

// Built before main, so that threads only ever read the table.
[[maybe_unused]] const auto& kTableAtStart = PatternTable();

}  // namespace

PatternTest GetPatternByName(const UnitName& name) {
    const auto& table = PatternTable();
    const auto found = table.find(name.Text());
    if (found == table.end()) {
        throw Por::Detail::MakeRowErrorWithArguments(
            TL_ORIGIN("Por::Util::GetPatternByName"), kErrorPattern,
            Por::Detail::kRowPatternNotRegistered, {name.ToWide()});
    }
    return found->second;
}

bool LikeMatch(std::u16string_view text, std::u16string_view pattern) {
    if (pattern.empty()) {
        return true;  // an empty pattern matches every text, on purpose
    }
    // Greedy, with one back-up point: the place behind the last "%" and the text position
    // it took over. A mismatch lets that "%" take one unit more; the match is decided once
    // the pattern is used up, without backing up again.
    std::size_t t = 0;
    std::size_t p = 0;
    bool backup = false;
    std::size_t backupPattern = 0;
    std::size_t backupText = 0;
    while (p < pattern.size()) {
        if (pattern[p] == u'%') {
            backup = true;
            backupPattern = ++p;
            backupText = t;
        } else if (t < text.size() && (pattern[p] == u'_' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (backup && t < text.size()) {
            p = backupPattern;
            t = ++backupText;
        } else {
            return false;  // no back-up point, or the text ran out
        }
    }
    return pattern.back() == u'%' || t == text.size();
}

bool MatchTraits(const View::Unit& source, const View::Unit& pattern) {
    if (!HasTraits(pattern) && !IsComposite(pattern)) {
        return UnitValueEqual(source, pattern);
    }
    auto each = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        const PatternTest test = GetPatternByName(trait.GetName());
        return !test(source, trait.GetUnit());  // stop at the first test that fails
    });
    return !pattern.GetTraits().ForEach(each);
}

bool MatchHere(const View::Unit& source, const View::Unit& pattern);

bool Match(const View::Unit& source, const View::Unit& pattern) {
    DepthGuard depth;
    // The depth lives in a thread-local: a level that moves to a fresh stack takes it along.
    const unsigned level = t_depth;
    return Por::Detail::OnFreshStackIfDue(level, "Por::Util::Match", [&] {
        t_depth = level;  // already so on this thread; a fresh one starts from 0
        return MatchHere(source, pattern);
    });
}

bool MatchHere(const View::Unit& source, const View::Unit& pattern) {
    const unsigned kind = GetValueTypeIndex(pattern);
    if (kind == NilType && !HasTraits(pattern)) {
        return true;
    }
    if (kind != GetValueTypeIndex(source)) {
        return false;
    }
    if (!MatchTraits(source, pattern)) {
        return false;
    }
    if (kind != CompositeType) {
        return true;
    }
    const View::CompositeValue& sourceProperties = AsComposite(source);
    auto each = MakeProcessor<const View::Property>([&](const View::Property& property) {
        const View::Unit* found = nullptr;
        auto take = MakeProcessor<const View::Property>([&](const View::Property& p) {
            found = &p.GetUnit();
            return true;
        });
        sourceProperties.Find(property.GetName(), take);
        return found == nullptr || !Match(*found, property.GetUnit());
    });
    return !AsComposite(pattern).ForEach(each);
}

}  // namespace Por::Util
