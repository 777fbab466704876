// SHA-1 (FIPS 180-1, 1995) as a streaming digest over a context that the caller owns.
//
// All functions here are public C functions. They allocate nothing, log nothing and do not throw.
// The only global state is the choice of the kernel for this processor (digest/sha1_block.h).
// Threads may use different contexts at the same time; one context needs one thread at a time.
#pragma once

#include <stdint.h>

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    shaSuccess = 0,
    shaNull = 1,        // A required pointer is null, or the message exceeded 2^64 - 1 bits.
    shaStateError = 3,  // Input after the digest was taken.
};

enum { SHA1HashSize = 20 };  // Length of a digest in bytes.

// The state of one message. SHA1Reset initializes it; it owns nothing and needs no cleanup.
typedef struct SHA1Context {
    uint32_t Intermediate_Hash[SHA1HashSize / 4];
    uint32_t Length_Low;          // Length of the message so far in bits: the low word,
    uint32_t Length_High;         // and the high word.
    int16_t Message_Block_Index;  // Bytes of Message_Block that are waiting, 0 to 63.
    uint8_t Message_Block[64];
    int32_t Computed;   // Nonzero after SHA1Result has finished the digest.
    int32_t Corrupted;  // 0, or the error that every call reports until SHA1Reset.
} SHA1Context;

// Starts a new message in `context`, whatever it holds. Returns shaSuccess, or shaNull if `context`
// is null.
OFFLINETZ_EXPORT int SHA1Reset(SHA1Context* context);

// Appends `length` bytes at `message` to the message. A message may be split between calls at any
// byte. A length of 0 always succeeds and touches nothing, even if a pointer is null.
// Returns shaSuccess, or:
// - shaNull if a pointer is null; the context is unchanged.
// - shaStateError after SHA1Result; the context is corrupted with this error.
// - the error of a corrupted context; the context is unchanged.
// A message that grows past 2^64 - 1 bits corrupts the context with shaNull. The call that does so
// still returns shaSuccess; the next call reports the error.
OFFLINETZ_EXPORT int SHA1Input(SHA1Context* context, const uint8_t* message, uint32_t length);

// Finishes the message and writes its digest, 20 bytes, to `digest`. Further calls write the same
// digest again. Returns shaSuccess, shaNull if a pointer is null, or the error of a corrupted
// context. `digest` is written on success only.
OFFLINETZ_EXPORT int SHA1Result(SHA1Context* context, uint8_t* digest);

// The steps of the functions above. `context` must not be null.
// SHA1PadMessage appends the padding and the length, and absorbs the last one or two blocks.
// SHA1ProcessMessageBlock absorbs Message_Block and empties it.
OFFLINETZ_EXPORT void SHA1PadMessage(SHA1Context* context);
OFFLINETZ_EXPORT void SHA1ProcessMessageBlock(SHA1Context* context);

#ifdef __cplusplus
}
#endif
