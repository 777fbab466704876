// Speed of the digest over 5 MB, about the size of a world database: the digest as the library
// gives it, each kernel that the processor has, and OpenSSL. To compare the portable kernel with
// OpenSSL without SHA-1 instructions, keep OpenSSL from using them:
//
//     OPENSSL_ia32cap='~0x0:~0x20000000' digest_bench    # x86
//     OPENSSL_armcap=1 digest_bench                      # ARM
#include <benchmark/benchmark.h>
#include <digest/sha1_block.h>
#include <openssl/evp.h>

#include <vector>

#include "library/sha1_digest.h"

namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kSize = 78125 * kBlockSize;

const std::vector<uint8_t> gMessage(kSize, 0x5a);  // The time does not depend on the bytes.

template <typename Function>
void Register(const char* name, Function digest) {
    benchmark::RegisterBenchmark(name, [digest](benchmark::State& state) {
        for (auto _ : state)
            digest();
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
    })->Unit(benchmark::kMillisecond);
}

void RegisterKernel(const char* name, Sha1BlockFunction kernel) {
    if (kernel == nullptr) return;  // The processor lacks its instructions.
    Register(name, [kernel] {
        uint32_t hash[5] = {};
        kernel(hash, gMessage.data(), kSize / kBlockSize);
        benchmark::DoNotOptimize(hash);
    });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Register("library",
             [] { benchmark::DoNotOptimize(offlinetz::DigestOf(gMessage.data(), kSize)); });
    RegisterKernel("kernel/portable", Sha1BlockPortable);
    RegisterKernel("kernel/x86", Sha1BlockX86());
    RegisterKernel("kernel/arm", Sha1BlockArm());
    Register("openssl", [] {
        offlinetz::Digest digest;
        EVP_Digest(gMessage.data(), kSize, digest.data(), nullptr, EVP_sha1(), nullptr);
        benchmark::DoNotOptimize(digest);
    });
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
