#include "ue/FcsFold.h"

#if defined(__x86_64__)

#include <immintrin.h>

// A run of bits is a polynomial over GF(2), the first bit that of the highest power: the FCS is what is left of it,
// times x^16, by P = x^16 + x^12 + x^5 + 1. With X = H x^64 + L, the 128 bits of a block, X x^128 leaves the same as H
// (x^192 mod P) + L (x^128 mod P), which is short enough to be added to the next block.
//
// Bits are sent low bit first, so in a register bit 127-d belongs to x^d, and the product of two 64-bit halves comes
// out one power too high: the factors are x^191 and x^127.

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

[[gnu::target("pclmul")]] __m128i LoadBlock(const unsigned char* pBlock)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pBlock));
}
} // namespace

bool CanFoldFcs()
{
    static const bool bCan = __builtin_cpu_supports("pclmul");
    return bCan;
}

[[gnu::target("pclmul")]] FCS_BLOCK_BYTES FoldFcs(unsigned short usFcs, ByteView bytes)
{
    const __m128i factors = _mm_set_epi64x(Factor(127), Factor(191)); // of L, of H: the first byte is the lowest
    __m128i sum = _mm_xor_si128(LoadBlock(bytes.data()), _mm_cvtsi32_si128(usFcs));
    for (bytes = bytes.subspan(FCS_BLOCK); bytes.size() >= FCS_BLOCK; bytes = bytes.subspan(FCS_BLOCK)) {
        const __m128i high = _mm_clmulepi64_si128(sum, factors, 0x00);
        const __m128i low = _mm_clmulepi64_si128(sum, factors, 0x11);
        sum = _mm_xor_si128(_mm_xor_si128(high, low), LoadBlock(bytes.data()));
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
