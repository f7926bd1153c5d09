// TBitFld: a bit field of a given size with 0-based bit numbers. Bits outside the field read as false
// and are ignored when set, so a stale index never writes outside the field.
#pragma once

#include <cstdint>
#include <vector>

namespace qv {

class TBitFld {
public:
    void SetSize(int NumBits);  // keeps the bits that still fit; new bits are false
    int Size() const { return FSize; }
    void Clear();               // all bits false
    void SetBit(int Index, bool Value);
    bool GetBit(int Index) const;
    int CountSetBits() const;

private:
    int FSize = 0;
    std::vector<std::uint64_t> FWords;
};

}  // namespace qv
