// One Obscure call (key schedule, CFB-64, base64) against OpenSSL's Blowfish doing the same
// work per call.

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <tessel_link/serialize/obscurer.h>

#include "ratio_reporter.h"

namespace {

const std::u16string kSecret = u"P@ssw0rd-of-the-operator";

void BM_Obscure(benchmark::State& state) {
    const auto obscurer = Serialization::CreateBlowfishObscurer();
    for (auto _ : state) {
        benchmark::DoNotOptimize(obscurer->Obscure(kSecret));
    }
}
BENCHMARK(BM_Obscure);

void BM_OpenSslBlowfishPerCall(benchmark::State& state) {
    static const unsigned char key[] = "7E21C05D3A9B2f6c";
    const std::u16string salted = u"5B2E7A90D1F" + kSecret;
    for (auto _ : state) {
        std::vector<unsigned char> data;
        for (char16_t c : salted) {
            data.push_back(static_cast<unsigned char>(c));
            data.push_back(static_cast<unsigned char>(c >> 8));
        }
        BF_KEY schedule;
        BF_set_key(&schedule, sizeof(key), key);
        unsigned char iv[8] = {'7', 'E', '2', '1', 'C', '0', '5', 'D'};
        int position = 0;
        BF_cfb64_encrypt(data.data(), data.data(), static_cast<long>(data.size()), &schedule, iv,
                         &position, BF_ENCRYPT);
        std::vector<unsigned char> text((data.size() + 2) / 3 * 4 + 1);
        EVP_EncodeBlock(text.data(), data.data(), static_cast<int>(data.size()));
        benchmark::DoNotOptimize(std::u16string(text.begin(), text.end() - 1));
    }
}
BENCHMARK(BM_OpenSslBlowfishPerCall);

}  // namespace

int main(int argc, char** argv) {
    // "Within 1.2 times the peer's time" is a peer/ours ratio of at least 1/1.2.
    return bench_support::RunWithRatios(argc, argv,
                                        {{"Obscure vs OpenSSL Blowfish per call",
                                          "BM_OpenSslBlowfishPerCall", "BM_Obscure", 1.0 / 1.2}});
}
