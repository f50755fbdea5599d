#include <tessel_link/por/print.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/util.h>

#include "por/deep_stack.h"

namespace Por::Util {

namespace {

// UTF-8; a text with a lone surrogate cannot be converted and is narrowed unit by unit.
std::string Narrow(std::u16string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c >= 0xd800 && c <= 0xdbff) {
            if (i + 1 < text.size() && text[i + 1] >= 0xdc00 && text[i + 1] <= 0xdfff) {
                ++i;
                continue;
            }
        } else if (c < 0xdc00 || c > 0xdfff) {
            continue;
        }
        std::string narrowed;
        narrowed.reserve(text.size());
        for (char16_t unit : text) {
            narrowed.push_back(static_cast<char>(unit));
        }
        return narrowed;
    }
    return Common::Utf16ToUtf8(text);
}

template <class T>
const char* ScalarTypeName();
template <> const char* ScalarTypeName<bool>() { return "bool"; }
template <> const char* ScalarTypeName<std::uint8_t>() { return "unsigned char"; }
template <> const char* ScalarTypeName<std::int8_t>() { return "signed char"; }
template <> const char* ScalarTypeName<std::uint16_t>() { return "unsigned short"; }
template <> const char* ScalarTypeName<std::int16_t>() { return "short"; }
template <> const char* ScalarTypeName<std::uint32_t>() { return "unsigned long"; }
template <> const char* ScalarTypeName<std::int32_t>() { return "long"; }
template <> const char* ScalarTypeName<std::uint64_t>() { return "unsigned __int64"; }
template <> const char* ScalarTypeName<std::int64_t>() { return "__int64"; }
template <> const char* ScalarTypeName<double>() { return "double"; }

template <class T>
std::string FormatScalar(T value) {
    char buffer[64];
    if constexpr (std::is_same_v<T, double>) {
        std::snprintf(buffer, sizeof buffer, "%.16g", value);
    } else if constexpr (std::is_signed_v<T>) {
        std::snprintf(buffer, sizeof buffer, "%lli", static_cast<long long>(value));
    } else {
        std::snprintf(buffer, sizeof buffer, "%llu", static_cast<unsigned long long>(value));
    }
    return buffer;
}

class TreePrinter {
public:
    TreePrinter(std::ostream& out, bool newlines) : out_(out), newlines_(newlines) {}

    void PrintUnit(std::string_view name, const View::Unit& unit, const std::string& indent,
                   std::string_view prefix, unsigned depth) {
        Por::Detail::OnFreshStackIfDue(depth, "Por::Util::Print",
                                       [&] { PrintUnitHere(name, unit, indent, prefix, depth); });
    }

    void PrintUnitHere(std::string_view name, const View::Unit& unit, const std::string& indent,
                       std::string_view prefix, unsigned depth) {
        out_ << indent << prefix << name;
        if (depth > kMaxPrintDepth) {
            out_ << " ...";
            EndLine();
            return;
        }
        ValuePrinter printer{*this, indent, depth};
        VisitValue(unit, printer);

        const std::string childIndent = indent + "  ";
        auto traits = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
            // A trait reads "[Name ...]" on one line: its unit is printed without line ends.
            TreePrinter inner(out_, false);
            inner.PrintUnit(trait.GetName().Text(), trait.GetUnit(), childIndent, "[",
                            depth + 1);
            const unsigned type = GetValueTypeIndex(trait.GetUnit());
            if (type == ArrayType || type == CompositeType) {
                out_ << childIndent;
            }
            out_ << ']';
            EndLine();
        });
        unit.GetTraits().ForEach(traits);

        VisitValue(unit, ChildrenPrinter{*this, childIndent, depth});
    }

private:
    struct ValuePrinter {
        TreePrinter& self;
        const std::string& indent;
        unsigned depth;

        void operator()(const View::NilValue&) { self.Line(" (NIL)"); }
        void operator()(const View::CompositeValue&) { self.Line(" (Composite)"); }
        void operator()(const View::ArrayValue&) { self.Line(" (Array)"); }
        void operator()(const View::ComplexValue<ByteVector>& value) {
            self.out_ << " (Blob) Size = " << value.Get().size();
            self.EndLine();
        }
        void operator()(const View::ComplexValue<Common::Guid>& value) {
            self.out_ << " (Common::Guid) = " << Common::ToString(value.Get());
            self.EndLine();
        }
        void operator()(const View::ComplexValue<WideString>& value) {
            self.out_ << " (Common::String) = " << Narrow(value.Get());
            self.EndLine();
        }
        void operator()(const View::ComplexValue<Common::Error>& value) {
            self.out_ << " (Common::Error)";
            self.PrintError(value.Get(), indent, depth);
        }
        template <class T>
        void operator()(const View::ScalarValue<T>& value) {
            self.out_ << " (" << ScalarTypeName<T>() << ") = " << FormatScalar(value.Get());
            self.EndLine();
        }
    };

    struct ChildrenPrinter {
        TreePrinter& self;
        const std::string& indent;
        unsigned depth;

        void operator()(const View::ArrayValue& value) {
            std::uint64_t index = 0;
            auto each = MakeProcessor<const View::Unit>([&](const View::Unit& element) {
                self.PrintUnit(std::to_string(index++), element, indent, "", depth + 1);
            });
            value.ForEach(each);
        }
        void operator()(const View::CompositeValue& value) {
            auto each = MakeProcessor<const View::Property>([&](const View::Property& property) {
                self.PrintUnit(property.GetName().Text(), property.GetUnit(), indent, "",
                               depth + 1);
            });
            value.ForEach(each);
        }
        template <class Other>
        void operator()(const Other&) {}
    };

    void Line(const char* text) {
        out_ << text;
        EndLine();
    }

    void EndLine() {
        if (newlines_) {
            out_ << '\n';
        }
    }

    // The rest of the error's line, then its causes, each under "(SubError)" two blanks
    // further in, as far as the first empty one.
    void PrintError(const Common::Error& error, const std::string& indent, unsigned depth) {
        ErrorFields(error);
        std::string causeIndent = indent;
        Common::Error cause = error.Cause();
        while (cause.Code() != 0) {
            causeIndent += "  ";
            out_ << causeIndent << "(SubError)";
            if (++depth > kMaxPrintDepth) {
                out_ << " ...";
                EndLine();
                return;
            }
            ErrorFields(cause);
            cause = cause.Cause();
        }
    }

    void ErrorFields(const Common::Error& error) {
        out_ << " Code = " << error.Code() << " LineTag = " << error.Origin().LineTag;
        const std::u16string text = error.Text();
        if (!text.empty()) {
            out_ << " Message = " << Narrow(text);
        }
        EndLine();
    }

    std::ostream& out_;
    bool newlines_;
};

}  // namespace

void PrintUnit(std::string_view name, const View::Unit& unit, std::string_view indent,
               std::string_view prefix, bool newlines, std::ostream& stream) {
    TreePrinter(stream, newlines).PrintUnit(name, unit, std::string(indent), prefix, 0);
}

void Print(const View::Unit& unit, std::string_view indent, std::ostream& stream, bool newlines) {
    PrintUnit("Root", unit, indent, "", newlines, stream);
}

}  // namespace Por::Util
