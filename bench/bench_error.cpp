// The cost of errors: making one, passing it on by copy, and its serialized form, beside
// what standard C++ offers for the same jobs.

#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <system_error>

#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/common/unicode.h>

#include "ratio_reporter.h"

namespace {

constexpr std::uint32_t kAccessDeniedRow = 13;

Common::Error SampleChain() {
    Common::Error e = Common::Error::WithFunctionAndPath(
        TL_ORIGIN("Bench::Open"), 0x40014, Common::GetMessageRow(kAccessDeniedRow), "CreateFileW",
        u"C:\\Data\\archive-0001.tib");
    e.AddWindowsError(5);
    return e;
}

// Making and dropping an error whose text is a message row.
void ErrorCreate(benchmark::State& state) {
    const char16_t* text = Common::GetMessageRow(kAccessDeniedRow);
    for (auto _ : state) {
        Common::Error e(TL_ORIGIN("Bench::Create"), 0x40014, text);
        benchmark::DoNotOptimize(e);
    }
}
BENCHMARK(ErrorCreate);

// The standard way to carry a code with a message.
void PeerSystemErrorCreate(benchmark::State& state) {
    for (auto _ : state) {
        std::system_error e(std::make_error_code(std::errc::permission_denied),
                            "Access is denied.");
        benchmark::DoNotOptimize(e);
    }
}
BENCHMARK(PeerSystemErrorCreate);

// Making an error with a system cause: two records.
void ErrorCreateWithCause(benchmark::State& state) {
    const char16_t* text = Common::GetMessageRow(kAccessDeniedRow);
    for (auto _ : state) {
        Common::Error e(TL_ORIGIN("Bench::Create"), 0x40014, text);
        e.AddWindowsError(5);
        benchmark::DoNotOptimize(e);
    }
}
BENCHMARK(ErrorCreateWithCause);

void PeerNestedExceptionCreate(benchmark::State& state) {
    for (auto _ : state) {
        std::exception_ptr cause = std::make_exception_ptr(
            std::system_error(std::error_code(5, std::system_category())));
        std::system_error e(std::make_error_code(std::errc::permission_denied),
                            "Access is denied.");
        benchmark::DoNotOptimize(cause);
        benchmark::DoNotOptimize(e);
    }
}
BENCHMARK(PeerNestedExceptionCreate);

// Passing an error on: one copy and its release.
void ErrorCopyRelease(benchmark::State& state) {
    const Common::Error e = SampleChain();
    for (auto _ : state) {
        Common::Error copy = e;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(ErrorCopyRelease);

void PeerExceptionPtrCopyRelease(benchmark::State& state) {
    const std::exception_ptr e = std::make_exception_ptr(
        std::system_error(std::make_error_code(std::errc::permission_denied), "Access is denied."));
    for (auto _ : state) {
        std::exception_ptr copy = e;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(PeerExceptionPtrCopyRelease);

// The serialized form of a two-record chain, into a block the caller frees.
void ErrorSerialize(benchmark::State& state) {
    const Common::Error e = SampleChain();
    std::size_t size = 0;
    for (auto _ : state) {
        unsigned char* block = e.Serialize(size);
        benchmark::DoNotOptimize(block);
        delete[] block;
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}
BENCHMARK(ErrorSerialize);

// The same bytes written by hand into a string, every field known in advance: the least
// that any serialized form of this chain costs.
void PutText(std::string& out, const char* s) {
    out.append(s, std::strlen(s) + 1);
}
template <class T>
void PutNumber(std::string& out, T v) {
    out.append(reinterpret_cast<const char*>(&v), sizeof v);
}

void PeerHandWrittenSerialize(benchmark::State& state) {
    const std::u16string text = Common::GetMessageRow(kAccessDeniedRow);
    const std::u16string path = u"C:\\Data\\archive-0001.tib";
    const std::u16string systemText = u"Access is denied";
    const Common::ErrorOrigin origin = TL_ORIGIN("Bench::Open");
    for (auto _ : state) {
        std::string out;
        out.push_back(1);
        PutNumber<std::uint32_t>(out, 0x40014);
        PutNumber(out, origin.LineTag);
        PutText(out, Common::Utf16ToUtf8(text).c_str());
        PutText(out, "function");
        PutText(out, "ACreateFileW");
        PutText(out, "path");
        out.push_back('W');
        PutText(out, Common::Utf16ToUtf8(path).c_str());
        PutText(out, "$module");
        out.push_back('A');
        PutText(out, Common::kModuleIdentifier);
        PutText(out, "$file");
        out.push_back('A');
        PutText(out, origin.File);
        PutText(out, "$func");
        out.push_back('A');
        PutText(out, origin.Func);
        PutText(out, "$line");
        out.push_back('N');
        PutNumber<std::uint64_t>(out, origin.Line);
        out.push_back(0);
        PutNumber<std::uint32_t>(out, 0xfff0);
        PutNumber(out, origin.LineTag);
        PutText(out, Common::Utf16ToUtf8(systemText).c_str());
        PutText(out, "code");
        out.push_back('N');
        PutNumber<std::uint64_t>(out, 0x80070005);
        PutText(out, "$module");
        out.push_back('A');
        PutText(out, Common::kModuleIdentifier);
        PutText(out, "$file");
        out.push_back('A');
        PutText(out, origin.File);
        PutText(out, "$func");
        out.push_back('A');
        PutText(out, "Common::Error::AddWindowsError");
        PutText(out, "$line");
        out.push_back('N');
        PutNumber<std::uint64_t>(out, origin.Line);
        out.push_back(0);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(PeerHandWrittenSerialize);

void ErrorDeserialize(benchmark::State& state) {
    const std::vector<unsigned char> bytes = SampleChain().Serialize();
    for (auto _ : state) {
        Common::Error e = Common::Error::Deserialize(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(e);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(ErrorDeserialize);

}  // namespace

int main(int argc, char** argv) {
    // Creating and copying must beat the standard forms; the serialized form asks names and
    // values through the records' operations, so it may cost about twice writing the same
    // bytes by hand.
    return bench_support::RunWithRatios(
        argc, argv,
        {{"error create vs std::system_error", "PeerSystemErrorCreate", "ErrorCreate", 1.0},
         {"error with cause vs nested exceptions", "PeerNestedExceptionCreate",
          "ErrorCreateWithCause", 1.0},
         {"error copy+release vs std::exception_ptr", "PeerExceptionPtrCopyRelease",
          "ErrorCopyRelease", 0.8},
         {"error serialize vs hand-written bytes", "PeerHandWrittenSerialize", "ErrorSerialize",
          0.5}});
}
