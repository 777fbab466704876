#include "sha1.h"

#include <algorithm>
#include <cstring>

#include "digest/sha1_block.h"

namespace {

constexpr uint32_t kBlockSize = 64;
constexpr uint32_t kBlockBits = 8 * kBlockSize;

void StoreBigEndian(uint32_t word, uint8_t* bytes) {
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(word >> (24 - 8 * i));
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
        // Whole blocks are absorbed directly from the input while the low word of the bit count
        // cannot wrap. The block in which it wraps goes byte by byte below, which carries into the
        // high word and stops at the right byte at 2^64 bits.
        const uint32_t blocks =
                std::min(length / kBlockSize, (UINT32_MAX - context->Length_Low) / kBlockBits);
        if (context->Message_Block_Index == 0 && blocks > 0) {
            ChooseSha1Block()(context->Intermediate_Hash, message, blocks);
            context->Length_Low += kBlockBits * blocks;
            message += kBlockSize * blocks;
            length -= kBlockSize * blocks;
            // The context holds the last block absorbed, on both paths.
            std::memcpy(context->Message_Block, message - kBlockSize, kBlockSize);
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
    ChooseSha1Block()(context->Intermediate_Hash, context->Message_Block, 1);
    context->Message_Block_Index = 0;
}
