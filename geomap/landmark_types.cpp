#include <qvgeo/geomap/landmark_types.h>

namespace qv {

std::string CutShortString(std::string_view S, std::size_t Capacity)
{
    if (S.size() <= Capacity)
        return std::string(S);
    std::size_t n = Capacity;
    // Back off over continuation bytes (10xxxxxx) to the lead byte of the sequence the cut falls into,
    // and drop that lead byte too.
    if ((static_cast<unsigned char>(S[n]) & 0xC0u) == 0x80u) {
        while (n > 0 && (static_cast<unsigned char>(S[n]) & 0xC0u) == 0x80u)
            --n;
    }
    return std::string(S.substr(0, n));
}

TLandMark DefaultLandMarkRecord()
{
    TLandMark lm;
    lm.SymbolProps.Kind = lmCross;
    lm.SymbolProps.Size = 7;
    lm.SymbolProps.FGColor = 0xFF0000;  // blue
    lm.SymbolProps.BGColor = 0xFFFFFF;
    lm.SymbolProps.Transparent = false;
    lm.SymbolProps.Direction = 0;
    lm.SymbolProps.Length = 10;
    lm.Caption.Size = 8;
    lm.Caption.FontName = "MS Sans Serif";
    lm.Caption.FGColor = 0x000000;
    lm.Caption.BGColor = 0xFFFFFF;
    lm.Caption.Transparent = true;
    lm.Caption.dx = 0;
    lm.Caption.dy = 8;
    lm.Caption.Direction = 0;
    lm.Caption.HAlignment = haCenter;
    lm.Caption.VAlignment = vaTop;
    return lm;
}

void CutLandMarkStrings(TLandMark& LandMark)
{
    if (LandMark.Identifier.size() > LMIdentifierCapacity)
        LandMark.Identifier = CutShortString(LandMark.Identifier, LMIdentifierCapacity);
    if (LandMark.Caption.Text.size() > LMTextCapacity)
        LandMark.Caption.Text = CutShortString(LandMark.Caption.Text, LMTextCapacity);
}

}  // namespace qv
