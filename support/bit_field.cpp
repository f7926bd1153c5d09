#include <qvgeo/support/bit_field.h>

#include <algorithm>
#include <bit>

namespace qv {

void TBitFld::SetSize(int NumBits)
{
    const int old = FSize;
    FSize = std::max(NumBits, 0);
    FWords.resize((static_cast<std::size_t>(FSize) + 63) / 64, 0);
    // Bits past the new end must read as false if the field grows again later.
    if (FSize < old && FSize % 64 != 0)
        FWords.back() &= (std::uint64_t{1} << (FSize % 64)) - 1;
}

void TBitFld::Clear() { std::fill(FWords.begin(), FWords.end(), 0); }

void TBitFld::SetBit(int Index, bool Value)
{
    if (Index < 0 || Index >= FSize)
        return;
    const std::uint64_t mask = std::uint64_t{1} << (Index % 64);
    auto& word = FWords[static_cast<std::size_t>(Index) / 64];
    word = Value ? (word | mask) : (word & ~mask);
}

bool TBitFld::GetBit(int Index) const
{
    if (Index < 0 || Index >= FSize)
        return false;
    return (FWords[static_cast<std::size_t>(Index) / 64] >> (Index % 64)) & 1U;
}

int TBitFld::CountSetBits() const
{
    int n = 0;
    for (const auto w : FWords)
        n += std::popcount(w);
    return n;
}

}  // namespace qv
