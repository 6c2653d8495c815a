#include "ue/FcsFold.h"

#if defined(__x86_64__)

#include <immintrin.h>

// A run of bits is a polynomial over GF(2), the first bit that of the highest power: the FCS is what is left of it,
// times x^16, by P = x^16 + x^12 + x^5 + 1. With X = H x^64 + L, the 128 bits of a block, X x^128 leaves the same as H
// (x^192 mod P) + L (x^128 mod P), which is short enough to be added to the next block.
//
// Bits are sent low bit first, so in a register bit 127-d belongs to x^d, and the product of two 64-bit halves comes
// out one power too high: the factors are x^191 and x^127.
//
// Zeros ahead of the bytes leave nothing of their own, so they fill the first block when the bytes are no whole number
// of blocks. What the FCS is begun with is added to the first two bytes.

namespace
{
constexpr unsigned int POLYNOMIAL = 0x1021; // without its x^16

/// x^uiPower mod P, in a 64-bit half: bit 63-i belongs to x^i.
constexpr long long Factor(unsigned int uiPower)
{
    unsigned int uiRest = 1;
    for (unsigned int i = 0; i < uiPower; ++i)
        uiRest = ((uiRest << 1) ^ ((uiRest & 0x8000) != 0 ? POLYNOMIAL : 0)) & 0xFFFF;
    unsigned long long ullHalf = 0;
    for (unsigned int i = 0; i < 16; ++i)
        ullHalf |= static_cast<unsigned long long>(uiRest >> i & 1) << (63 - i);
    return static_cast<long long>(ullHalf);
}

[[gnu::target("pclmul,ssse3")]] __m128i LoadBlock(const unsigned char* pBlock)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pBlock));
}

/// The 16 bytes from place n on make a shuffle that gives 16 - n zeros, then a block's first n bytes: 0x80 stands for a
/// zero, any other value for the byte of that place.
constexpr std::array<unsigned char, 2 * FCS_BLOCK> BuildShuffle()
{
    std::array<unsigned char, 2 * FCS_BLOCK> aucShuffle{};
    for (size_t i = 0; i < FCS_BLOCK; ++i) {
        aucShuffle[i] = 0x80;
        aucShuffle[FCS_BLOCK + i] = static_cast<unsigned char>(i);
    }
    return aucShuffle;
}
constexpr auto g_aucShuffle = BuildShuffle();

/// The first szCount bytes of the block, fewer than all, behind zeros.
[[gnu::target("pclmul,ssse3")]] __m128i BehindZeros(__m128i block, size_t szCount)
{
    return _mm_shuffle_epi8(block, LoadBlock(g_aucShuffle.data() + szCount));
}
} // namespace

bool CanFoldFcs()
{
    static const bool bCan = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
    return bCan;
}

[[gnu::target("pclmul,ssse3")]] FCS_BLOCK_BYTES FoldFcs(unsigned short usFcs, ByteView bytes)
{
    const __m128i factors = _mm_set_epi64x(Factor(127), Factor(191)); // of L, of H: the first byte is the lowest
    const size_t szHead = bytes.size() % FCS_BLOCK;
    __m128i sum = _mm_xor_si128(LoadBlock(bytes.data()), _mm_cvtsi32_si128(usFcs));
    __m128i late = _mm_setzero_si128(); // what the second byte is begun with, when it is no part of the first block
    if (szHead > 0)
        sum = BehindZeros(sum, szHead);
    if (szHead == 1)
        late = _mm_cvtsi32_si128(usFcs >> 8);
    for (bytes = bytes.subspan(szHead > 0 ? szHead : FCS_BLOCK); !bytes.empty(); bytes = bytes.subspan(FCS_BLOCK)) {
        const __m128i high = _mm_clmulepi64_si128(sum, factors, 0x00);
        const __m128i low = _mm_clmulepi64_si128(sum, factors, 0x11);
        sum = _mm_xor_si128(_mm_xor_si128(high, low), _mm_xor_si128(LoadBlock(bytes.data()), late));
        late = _mm_setzero_si128();
    }
    FCS_BLOCK_BYTES aucBlock;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(aucBlock.data()), sum);
    return aucBlock;
}

#else

bool CanFoldFcs()
{
    return false;
}

FCS_BLOCK_BYTES FoldFcs(unsigned short, ByteView)
{
    return {};
}

#endif
