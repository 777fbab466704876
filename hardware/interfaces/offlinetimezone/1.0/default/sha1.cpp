#include "sha1.h"

#include <cstring>

namespace {

constexpr uint32_t kBlockSize = 64;
constexpr uint32_t kBlockBits = 8 * kBlockSize;

inline uint32_t RotateLeft(uint32_t word, unsigned bits) {
    return (word << bits) | (word >> (32 - bits));
}

inline uint32_t LoadBigEndian(const uint8_t* bytes) {
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) |
           uint32_t{bytes[3]};
}

void StoreBigEndian(uint32_t word, uint8_t* bytes) {
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(word >> (24 - 8 * i));
}

// One step. The five working variables stay where they are; each step's caller names them one
// place further on instead of moving them.
template <typename Function>
inline void Step(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, Function f,
                 uint32_t word) {
    e += RotateLeft(a, 5) + f(b, c, d) + word;
    b = RotateLeft(b, 30);
}

// Word t of the schedule, made in place from the sixteen before it.
inline uint32_t ScheduleWord(uint32_t (&w)[16], int t) {
    if (t >= 16) {
        w[t & 15] = RotateLeft(w[(t + 13) & 15] ^ w[(t + 8) & 15] ^ w[(t + 2) & 15] ^ w[t & 15], 1);
    }
    return w[t & 15];
}

// The 20 steps from `first` on; `f` and `k` are their logical function and constant.
template <typename Function>
inline void Stage(int first, uint32_t k, Function f, uint32_t (&w)[16], uint32_t (&v)[5]) {
    for (int t = first; t < first + 20; t += 5) {
        Step(v[0], v[1], v[2], v[3], v[4], f, ScheduleWord(w, t) + k);
        Step(v[4], v[0], v[1], v[2], v[3], f, ScheduleWord(w, t + 1) + k);
        Step(v[3], v[4], v[0], v[1], v[2], f, ScheduleWord(w, t + 2) + k);
        Step(v[2], v[3], v[4], v[0], v[1], f, ScheduleWord(w, t + 3) + k);
        Step(v[1], v[2], v[3], v[4], v[0], f, ScheduleWord(w, t + 4) + k);
    }
}

// The compression function over one 64-byte block.
void Compress(uint32_t* hash, const uint8_t* block) {
    uint32_t w[16];
    for (int t = 0; t < 16; ++t)
        w[t] = LoadBigEndian(block + 4 * t);

    const auto choose = [](uint32_t b, uint32_t c, uint32_t d) { return (b & c) | (~b & d); };
    const auto parity = [](uint32_t b, uint32_t c, uint32_t d) { return b ^ c ^ d; };
    const auto majority = [](uint32_t b, uint32_t c, uint32_t d) {
        return (b & c) | (b & d) | (c & d);
    };
    uint32_t v[5];
    std::memcpy(v, hash, sizeof v);
    Stage(0, 0x5A827999u, choose, w, v);
    Stage(20, 0x6ED9EBA1u, parity, w, v);
    Stage(40, 0x8F1BBCDCu, majority, w, v);
    Stage(60, 0xCA62C1D6u, parity, w, v);
    for (int i = 0; i < 5; ++i)
        hash[i] += v[i];
}

}  // namespace

int SHA1Reset(SHA1Context* context) {
    if (context == nullptr) return shaNull;
    context->Length_Low = 0;
    context->Length_High = 0;
    context->Message_Block_Index = 0;
    context->Intermediate_Hash[0] = 0x67452301u;
    context->Intermediate_Hash[1] = 0xEFCDAB89u;
    context->Intermediate_Hash[2] = 0x98BADCFEu;
    context->Intermediate_Hash[3] = 0x10325476u;
    context->Intermediate_Hash[4] = 0xC3D2E1F0u;
    context->Computed = 0;
    context->Corrupted = 0;
    return shaSuccess;
}

int SHA1Input(SHA1Context* context, const uint8_t* message, uint32_t length) {
    if (length == 0) return shaSuccess;
    if (context == nullptr || message == nullptr) return shaNull;
    if (context->Computed != 0) {
        context->Corrupted = shaStateError;
        return shaStateError;
    }
    if (context->Corrupted != 0) return context->Corrupted;

    while (length > 0 && context->Corrupted == 0) {
        // A whole block goes straight from the input, unless the bit count could wrap in it:
        // the last block before 2^64 bits takes the bytewise way, which stops at the right byte.
        if (context->Message_Block_Index == 0 && length >= kBlockSize &&
            context->Length_Low <= UINT32_MAX - kBlockBits) {
            Compress(context->Intermediate_Hash, message);
            context->Length_Low += kBlockBits;
            message += kBlockSize;
            length -= kBlockSize;
            continue;
        }
        context->Message_Block[context->Message_Block_Index++] = *message++;
        --length;
        context->Length_Low += 8;
        if (context->Length_Low == 0 && ++context->Length_High == 0) context->Corrupted = shaNull;
        if (context->Message_Block_Index == static_cast<int16_t>(kBlockSize)) {
            SHA1ProcessMessageBlock(context);
        }
    }
    return shaSuccess;
}

int SHA1Result(SHA1Context* context, uint8_t* digest) {
    if (context == nullptr || digest == nullptr) return shaNull;
    if (context->Corrupted != 0) return context->Corrupted;
    if (context->Computed == 0) {
        SHA1PadMessage(context);
        std::memset(context->Message_Block, 0, sizeof context->Message_Block);
        context->Length_Low = 0;
        context->Length_High = 0;
        context->Computed = 1;
    }
    for (int i = 0; i < SHA1HashSize / 4; ++i) {
        StoreBigEndian(context->Intermediate_Hash[i], digest + 4 * i);
    }
    return shaSuccess;
}

void SHA1PadMessage(SHA1Context* context) {
    constexpr int kLengthOffset = 56;
    uint8_t* block = context->Message_Block;
    int index = context->Message_Block_Index;
    block[index++] = 0x80;
    if (index > kLengthOffset) {
        std::memset(block + index, 0, static_cast<size_t>(static_cast<int>(kBlockSize) - index));
        SHA1ProcessMessageBlock(context);
        index = 0;
    }
    std::memset(block + index, 0, static_cast<size_t>(kLengthOffset - index));
    StoreBigEndian(context->Length_High, block + kLengthOffset);
    StoreBigEndian(context->Length_Low, block + kLengthOffset + 4);
    SHA1ProcessMessageBlock(context);
}

void SHA1ProcessMessageBlock(SHA1Context* context) {
    Compress(context->Intermediate_Hash, context->Message_Block);
    context->Message_Block_Index = 0;
}
