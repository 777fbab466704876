// The compression function of SHA-1 over whole blocks, in the ways that processors offer
// ("kernels"). They differ in speed alone.
#pragma once

#include <cstddef>
#include <cstdint>

// A kernel absorbs `count` blocks of 64 bytes, at any alignment, into the five words of `hash`.
// A count of 0 reads and changes nothing. No state, no allocation: any thread may call it.
using Sha1BlockFunction = void (*)(uint32_t* hash, const uint8_t* blocks, size_t count);

// The kernel in plain C++, for every processor.
void Sha1BlockPlain(uint32_t* hash, const uint8_t* blocks, size_t count);

// The kernels in the SHA-1 instructions of a kind of processor; null on every other kind, and
// where this one lacks them. Each call asks the processor anew.
Sha1BlockFunction Sha1BlockX86();
Sha1BlockFunction Sha1BlockArm();

// The fastest kernel that this processor has; never null. The processor is asked once. Any thread
// may call it at any time, before main and at the process's exit included.
Sha1BlockFunction ChooseSha1Block();
