#pragma once

// Common::Error, the outcome of every call: a chain of records, each with a code, a text,
// named parameters and the place it was made.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel_link/common/error_origin.h>
#include <tessel_link/export.h>
#include <tessel_link/impl/common/error_access.h>

namespace Common {

struct ErrorRecord;
class Error;

// One parameter of an error record, typed as it travels: a number, a narrow string or a
// wide string. The strings point into the record and live as long as an Error holds it.
struct TL_API ErrorParameter {
    // How the value travels: a number, a narrow or a wide string.
    enum class Type : char { Number = 'N', Ansi = 'A', Wide = 'W' };
    std::string Name;  // the parameter's name in the record
    Type Kind = Type::Number;  // which of the value fields holds the value
    std::uint64_t Number = 0;  // the value of a Number
    const char* Ansi = nullptr;  // the value of an Ansi string
    const char16_t* Wide = nullptr;  // the value of a Wide string

    // The value as UTF-8 text: a number in decimal, a narrow string as it is when it is
    // UTF-8 (else byte by byte as Latin-1), a wide string converted.
    std::string ValueText() const;
};

// The records of an error from head to deepest cause, each as an error of its own:
//   for (const Common::Error& record : error.Chain()) { ... }
class TL_API ErrorChain {
public:
    // Steps from a record to its cause.
    class TL_API Iterator {
    public:
        using value_type = Error;  // what dereferencing gives
        using difference_type = std::ptrdiff_t;  // for std::ranges
        Iterator() noexcept = default;
        Error operator*() const noexcept;  // the record as an error of its own
        Iterator& operator++() noexcept;  // to the cause
        // To the cause, returning the iterator as it was.
        Iterator operator++(int) noexcept {
            Iterator before = *this;
            ++*this;
            return before;
        }
        // Same record.
        bool operator==(const Iterator& other) const noexcept { return record_ == other.record_; }

    private:
        friend class ErrorChain;
        // At `record`; null is the end.
        explicit Iterator(const ErrorRecord* record) noexcept : record_(record) {}

        const ErrorRecord* record_ = nullptr;
    };

    Iterator begin() const noexcept { return Iterator(head_); }  // the head record
    Iterator end() const noexcept { return Iterator(); }  // past the deepest cause

private:
    friend class Error;
    // The chain from `head` down; the records are the library's own.
    explicit ErrorChain(const ErrorRecord* head) noexcept : head_(head) {}

    const ErrorRecord* head_;
};

// The one error value of the system: a shared pointer to an immutable chain of records.
// The head is the failure as the caller should see it; the rest of the chain are its
// causes, down to the operating system's code. An empty error, and one whose head has
// code 0, mean success.
//
// Building an error never throws: when a record cannot be allocated a static
// out-of-memory record (code 0xfff2) stands in. Operations that fail with an error throw
// it by value and callers catch `const Common::Error&`.
//
// An error is [[nodiscard]]: a function that returns one reports its outcome through it, so
// dropping it unread is a bug. Print one with ToString() or operator<<, walk its records with
// Chain(), read a record's parameters by name with Parameter().
// (The attribute form of TL_API, since both must stand in one attribute position.)
class [[nodiscard]] [[gnu::visibility("default")]] Error {
public:
    // Reserved codes of module 0.
    static constexpr std::uint32_t kSystemCode = 0xfff0;       // system record
    // The C library's error number beneath a system record, on systems where that number is
    // the native reason; the record's "Errno" parameter holds it.
    static constexpr std::uint32_t kErrnoCode = 0xfff1;
    static constexpr std::uint32_t kOutOfMemoryCode = 0xfff2;  // the static record

    Error() noexcept = default;

    // A plain record. Code 0 gives the empty error, whatever else is passed: the same holds
    // for every constructor and factory below.
    Error(const ErrorOrigin& origin, std::uint32_t code);
    // A text record. A wide text that lies inside the loaded message table is held by
    // pointer; any other text is copied into the record.
    Error(const ErrorOrigin& origin, std::uint32_t code, const char* text);
    Error(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text);
    Error(const ErrorOrigin& origin, std::uint32_t code, const std::u16string& text)
        : Error(origin, code, text.c_str()) {}

    // The other record kinds. Parameter names are those of the record's GetNames list.
    static Error Trace(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text,
                       std::uint64_t level);
    // A record with the name of the function that failed.
    static Error WithFunction(const ErrorOrigin& origin, std::uint32_t code,
                              const char16_t* text, const char* function);
    // A record with the path the failure concerns.
    static Error WithPath(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text,
                          const char16_t* path);
    // A record with a function name and a path.
    static Error WithFunctionAndPath(const ErrorOrigin& origin, std::uint32_t code,
                                     const char16_t* text, const char* function,
                                     const char16_t* path);
    // A record with a path and a name inside it.
    static Error WithPathAndName(const ErrorOrigin& origin, std::uint32_t code,
                                 const char16_t* text, const char16_t* path,
                                 const char16_t* name);
    // A record with a path and hints on how it was used.
    static Error WithPathAndHints(const ErrorOrigin& origin, std::uint32_t code,
                                  const char16_t* path, std::uint64_t hints);
    // A library that could not be loaded.
    static Error DelayLoadPath(const ErrorOrigin& origin, std::uint32_t code,
                               const char* library);
    // A symbol missing from a library.
    static Error DelayLoadSymbol(const ErrorOrigin& origin, std::uint32_t code,
                                 const char* library, const char* symbol);
    // An ordinal missing from a library.
    static Error DelayLoadOrdinal(const ErrorOrigin& origin, std::uint32_t code,
                                  const char* library, std::uint64_t ordinal);
    // A record of the system's errno value `errnum`.
    static Error Errno(const ErrorOrigin& origin, std::uint32_t code, int errnum);

    Error(const Error& other) noexcept;  // shares the records
    // Takes the records.
    Error(Error&& other) noexcept : head_(other.head_) { other.head_ = nullptr; }
    Error& operator=(const Error& other) noexcept;  // shares the records
    Error& operator=(Error&& other) noexcept;  // takes the records
    ~Error();

    // The head's code, 0 when empty.
    std::uint32_t Code() const noexcept;
    bool Succeeded() const noexcept { return Code() == 0; }  // code 0
    bool Failed() const noexcept { return Code() != 0; }  // a code other than 0
    bool Empty() const noexcept { return head_ == nullptr; }  // no record at all

    // The next record of the chain, as an error of its own.
    Error Cause() const noexcept;

    // Makes `other` the cause of the head. A cause that the head had is replaced, not
    // appended to. A head shared with other errors is copied first, so that their view
    // stays as it was.
    Error& AddCause(const Error& other) noexcept;

    // Adds a system record as the cause. Windows errors are stored in HRESULT form
    // ((error & 0xffff) | 0x80070000, or unchanged when 0 or negative), NT status values
    // with bit 28 set, HRESULTs unchanged.
    Error& AddWindowsError(int error) noexcept;
    Error& AddHResult(unsigned hresult) noexcept;  // a system HRESULT as the cause
    Error& AddNTStatus(unsigned status) noexcept;  // an NT status as the cause

    // The head record's message text and parameters; empty or null on an empty error.
    std::u16string Text() const;
    // A numeric parameter; 0 when missing.
    std::uint64_t GetNumber(const char* name) const noexcept;
    // A narrow string parameter; null when missing.
    const char* GetAnsi(const char* name) const noexcept;
    // A wide string parameter; null when missing.
    const char16_t* GetWide(const char* name) const noexcept;
    // Comma-separated parameter names in serialization order; "" on an empty error.
    const char* GetNames() const noexcept;
    ErrorOrigin Origin() const noexcept;  // where the head record was made

    // The head record's parameter names in serialization order (GetNames split at commas).
    std::vector<std::string> ParameterNames() const;
    // The head record's parameter of that name, typed as it travels; nothing when the record
    // has no such parameter (or the error is empty).
    std::optional<ErrorParameter> Parameter(std::string_view name) const;
    // Every parameter of the head record, in the order of ParameterNames().
    std::vector<ErrorParameter> Parameters() const;

    // The head record's text with its placeholders expanded from its parameters: "{name}"
    // becomes the parameter's value, "{name, choice, 1#text|2#other}" the text of the
    // highest limit not above the parameter's number (placeholders inside it expanded too).
    // A placeholder whose parameter is missing stays as it is.
    std::u16string FormattedText() const;

    // The whole chain as UTF-8 text, one line per record from the head to the deepest cause:
    //   0x000000BB Cannot find a component with ID '7'. [at src/x.cpp:42 in Binding::Send]
    //     caused by 0x80070005 Access is denied. [at ...]
    // Each line has the code in hexadecimal, the expanded text, the parameters no placeholder
    // used ("{Errno=13}"), and the origin when the record has one. "success" for an empty
    // error.
    std::string ToString() const;

    // The records of the chain, head first.
    ErrorChain Chain() const noexcept { return ErrorChain(head_); }
    // How many records the chain has.
    std::size_t Depth() const noexcept;

    // An identity of the head record, for telling whether two errors share their head.
    const void* Identity() const noexcept { return head_; }

    // The serialized form: a version byte 0x01, then every record of the chain.
    // The pointer form is allocated with new[] and freed by the caller with delete[];
    // it returns null (size 0) when memory runs out.
    unsigned char* Serialize(std::size_t& size) const;
    std::vector<unsigned char> Serialize() const;
    // Rebuilds an error from its serialized form; every record becomes a generic one. A
    // block that is too short or has the wrong version gives the empty error. Reading stops
    // at a record with code 0 or at the first damaged record (a cut value, an unknown type
    // byte, a text that is not UTF-8, a name with a comma), keeping the records before it.
    static Error Deserialize(const void* data, std::size_t size);

    // Rebuilds this error through its serialized form, so that its records no longer point
    // at constants of this module.
    Error& Detach();

private:
    friend struct Detail::ErrorAccess;
    friend class ErrorChain::Iterator;

    ErrorRecord* head_ = nullptr;
};

// Writes ToString() to the stream.
TL_API std::ostream& operator<<(std::ostream& out, const Error& error);

// The success value, for assignment.
TL_API extern const Error ErrorSuccess;

// The build identifier that every record answers for "$module".
inline constexpr const char kModuleIdentifier[] = "tessel_link_vsa64_42582";

}  // namespace Common
