// SHA-1 (FIPS 180-1) as a streaming digest over a context that the caller owns.
//
// No global state but which kernel suits the processor (sha1_block.h), no allocation, no logging:
// different contexts may be used on different threads at once; one context belongs to one thread
// at a time.
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

typedef struct SHA1Context {
    uint32_t Intermediate_Hash[SHA1HashSize / 4];
    uint32_t Length_Low;   // Message bits absorbed so far, low word ...
    uint32_t Length_High;  // ... and high word.
    int16_t Message_Block_Index;
    uint8_t Message_Block[64];
    int32_t Computed;   // Nonzero once SHA1Result has finished the digest.
    int32_t Corrupted;  // 0, or the code that the context returns until SHA1Reset.
} SHA1Context;

// Makes `context` ready for a new message. Returns shaSuccess, or shaNull for a null context.
OFFLINETZ_EXPORT int SHA1Reset(SHA1Context* context);

// Appends `length` bytes to the message; it may be split between calls at any byte.
// Length 0 always succeeds and touches nothing, null pointers included. Returns shaSuccess,
// shaNull, shaStateError after SHA1Result, or the code of a corrupted context. A message that
// grows past 2^64 - 1 bits corrupts the context with shaNull, which the *next* call reports.
OFFLINETZ_EXPORT int SHA1Input(SHA1Context* context, const uint8_t* message, uint32_t length);

// Finishes the message and writes its 20 bytes to `digest`; a repeated call writes the same
// digest again. On any code but shaSuccess `digest` is not written.
OFFLINETZ_EXPORT int SHA1Result(SHA1Context* context, uint8_t* digest);

// Steps of the functions above, exported with them. `context` must not be null.
OFFLINETZ_EXPORT void SHA1PadMessage(SHA1Context* context);
OFFLINETZ_EXPORT void SHA1ProcessMessageBlock(SHA1Context* context);

#ifdef __cplusplus
}
#endif
