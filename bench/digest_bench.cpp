// Speed of the digest over 5 MB, the size of a world database: as the library gives it, and by each
// kernel that the processor has; beside them, in the same run, OpenSSL. Then once more what needs
// no SHA-1 instructions, with OpenSSL kept from using them: it takes that from the environment as
// it is loaded, so the program starts itself again.
#include <benchmark/benchmark.h>
#include <digest/sha1_block.h>
#include <openssl/evp.h>
#include <sha1.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

constexpr size_t kSize = 5000000;  // A whole number of blocks.
constexpr size_t kBlockSize = 64;

std::vector<uint8_t> MakeMessage() {
    std::mt19937 random(1);
    std::vector<uint8_t> message(kSize);
    for (uint8_t& byte : message)
        byte = static_cast<uint8_t>(random());
    return message;
}

const std::vector<uint8_t> gMessage = MakeMessage();

void CountBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
}

void Library(benchmark::State& state) {
    for (auto _ : state) {
        SHA1Context context;
        std::array<uint8_t, SHA1HashSize> digest;
        SHA1Reset(&context);
        SHA1Input(&context, gMessage.data(), kSize);
        SHA1Result(&context, digest.data());
        benchmark::DoNotOptimize(digest);
    }
    CountBytes(state);
}

void Kernel(benchmark::State& state, Sha1BlockFunction absorb) {
    std::array<uint32_t, 5> hash{};
    for (auto _ : state) {
        absorb(hash.data(), gMessage.data(), kSize / kBlockSize);
        benchmark::DoNotOptimize(hash);
    }
    CountBytes(state);
}

void OpenSsl(benchmark::State& state) {
    for (auto _ : state) {
        std::array<uint8_t, SHA1HashSize> digest;
        EVP_Digest(gMessage.data(), kSize, digest.data(), nullptr, EVP_sha1(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    CountBytes(state);
}

void Register(const char* name, Sha1BlockFunction kernel) {
    if (kernel != nullptr)
        benchmark::RegisterBenchmark(name, Kernel, kernel)->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    static constexpr char kStartedAgain[] = "OFFLINETZ_DIGEST_BENCH_STARTED_AGAIN";
    const bool isStartedAgain = std::getenv(kStartedAgain) != nullptr;
    std::vector<char*> arguments(argv, argv + argc);
    arguments.push_back(nullptr);
    benchmark::Initialize(&argc, argv);

    Register("kernel/plain", Sha1BlockPortable);
    if (isStartedAgain) {
        benchmark::RegisterBenchmark("openssl/without_sha_instructions", OpenSsl)
                ->Unit(benchmark::kMillisecond);
    } else {
        Register("kernel/x86", Sha1BlockX86());
        Register("kernel/arm", Sha1BlockArm());
        benchmark::RegisterBenchmark("library", Library)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("openssl", OpenSsl)->Unit(benchmark::kMillisecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    if (isStartedAgain) return 0;

    setenv(kStartedAgain, "", 1);
    setenv("OPENSSL_ia32cap", "~0x0:~0x20000000", 1);  // All of an x86 processor but these.
    setenv("OPENSSL_armcap", "1", 1);                  // Of an ARM processor only the vectors.
    std::fflush(stdout);
    execv("/proc/self/exe", arguments.data());
    std::perror("/proc/self/exe");
    return 1;
}
