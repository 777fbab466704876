// The compression function of SHA-1 over whole blocks, in one implementation ("kernel") for each
// kind of processor. All kernels compute the same; they differ in speed only.
#pragma once

#include <cstddef>
#include <cstdint>

// A kernel absorbs `count` blocks of 64 bytes at `blocks` into the five words at `hash`. `blocks`
// may have any alignment. A count of 0 reads and changes nothing. A kernel has no state and
// allocates nothing; any thread may call it. It cannot fail.
using Sha1BlockFunction = void (*)(uint32_t* hash, const uint8_t* blocks, size_t count);

// The portable kernel, for every processor.
void Sha1BlockPortable(uint32_t* hash, const uint8_t* blocks, size_t count);

// Return the kernel that uses the SHA-1 instructions of x86 or 64-bit ARM. Return null on other
// processors and on processors without these instructions. Each call asks the processor again.
Sha1BlockFunction Sha1BlockX86();
Sha1BlockFunction Sha1BlockArm();

// Returns the fastest kernel for this processor; never null. The first call asks the processor.
// Any thread may call it at any time, also before main and during the exit of the process.
Sha1BlockFunction ChooseSha1Block();
