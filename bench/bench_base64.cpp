// base64 of the packet forms against OpenSSL's block functions, on 1 MiB of random bytes.

#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include "ratio_reporter.h"
#include "serialize/base64.h"

namespace {

constexpr std::size_t kSize = 1 << 20;

const std::vector<unsigned char>& Bytes() {
    static const std::vector<unsigned char> bytes = [] {
        std::vector<unsigned char> b(kSize);
        std::mt19937 random(42);
        for (auto& c : b) {
            c = static_cast<unsigned char>(random());
        }
        return b;
    }();
    return bytes;
}

const std::string& Text() {
    static const std::string text = [] {
        std::string t(Serialization::Base64::EncodedSize(kSize), '\0');
        Serialization::Base64::Encode(Bytes().data(), kSize, t.data());
        return t;
    }();
    return text;
}

void BM_Base64Encode(benchmark::State& state) {
    std::string out(Serialization::Base64::EncodedSize(kSize), '\0');
    for (auto _ : state) {
        Serialization::Base64::Encode(Bytes().data(), kSize, out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kSize * state.iterations()));
}
BENCHMARK(BM_Base64Encode);

void BM_OpenSslEncodeBlock(benchmark::State& state) {
    std::vector<unsigned char> out(Serialization::Base64::EncodedSize(kSize) + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_EncodeBlock(out.data(), Bytes().data(), static_cast<int>(kSize)));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kSize * state.iterations()));
}
BENCHMARK(BM_OpenSslEncodeBlock);

void BM_Base64Decode(benchmark::State& state) {
    std::vector<unsigned char> out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Serialization::Base64::Decode(Text(), out));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kSize * state.iterations()));
}
BENCHMARK(BM_Base64Decode);

void BM_OpenSslDecodeBlock(benchmark::State& state) {
    std::vector<unsigned char> out(kSize + 3);
    const auto* text = reinterpret_cast<const unsigned char*>(Text().data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_DecodeBlock(out.data(), text, static_cast<int>(Text().size())));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kSize * state.iterations()));
}
BENCHMARK(BM_OpenSslDecodeBlock);

}  // namespace

int main(int argc, char** argv) {
    Text();
    return bench_support::RunWithRatios(
        argc, argv,
        {{"base64 encode vs EVP_EncodeBlock", "BM_OpenSslEncodeBlock", "BM_Base64Encode", 1.0},
         {"base64 decode vs EVP_DecodeBlock", "BM_OpenSslDecodeBlock", "BM_Base64Decode", 1.0}});
}
