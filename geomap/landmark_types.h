// The landmark record of a map and its companions: symbol shapes and their appearance, caption
// properties (font styles and the two alignments, defined here without any GUI framework type), the
// short-string capacities, the add/remove question put to the owner, and the defaults of
// the template landmark.
#pragma once

#include <qvgeo/support/geometry_types.h>
#include <qvgeo/support/rect_double.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

// Symbol shape. The ordinals are fixed: files and applications store them.
enum TLandMarkElement : std::uint8_t {
    lmPlus, lmSquare, lmTriangle, lmCircle, lmArrowFrom, lmArrowTo, lmCrossBox, lmSpade, lmCross, lmUserDef
};
inline constexpr int NumLandMarkElements = 10;

// What the owner is asked about before a landmark is added or removed.
enum TLandMarkAction : std::uint8_t { lmaAdd, lmaRemove };

// Horizontal alignment of a caption at its point. Landmark files store the ordinal.
enum THorzAlignment : std::uint8_t { haLeftJustify, haRightJustify, haCenter };
inline constexpr int NumHorzAlignments = 3;

// Vertical alignment of a caption at its point. Landmark files store the ordinal.
enum TVerticalAlignment : std::uint8_t { vaTop, vaBottom, vaCenter };
inline constexpr int NumVerticalAlignments = 3;

// Short strings: at most this many characters (bytes). Longer texts are cut where the landmark
// operations and readers take them in.
using TLMIdentifier = std::string;
using TLMText = std::string;
inline constexpr std::size_t LMIdentifierCapacity = 15;
inline constexpr std::size_t LMTextCapacity = 80;

// S cut to at most Capacity bytes. A cut never splits a UTF-8 multi-byte sequence: the partial
// sequence is dropped as well, so a cut text stays valid UTF-8 when it was before.
std::string CutShortString(std::string_view S, std::size_t Capacity);

// How a symbol is drawn. Sizes and lengths in control pixels, directions in degrees clockwise from up.
struct TSymbolProperties {
    TLandMarkElement Kind = lmPlus;
    std::int32_t Size = 0;
    TColor FGColor = 0;  // line colour
    TColor BGColor = 0;  // fill colour
    bool Transparent = false;
    std::int32_t Direction = 0;
    std::int32_t Length = 0;

    bool operator==(const TSymbolProperties&) const = default;
};

// The caption of a landmark.
struct TLMTextProperties {
    TLMText Text;
    std::int32_t Size = 0;  // font size in points
    std::string FontName;
    TFontStyles FontStyles;
    TColor FGColor = 0;
    TColor BGColor = 0;
    bool Transparent = false;  // no background when true
    std::int32_t dx = 0;       // offset from the landmark's point, control pixels
    std::int32_t dy = 0;
    std::int32_t Direction = 0;
    THorzAlignment HAlignment = haLeftJustify;
    TVerticalAlignment VAlignment = vaTop;

    bool operator==(const TLMTextProperties&) const = default;
};

// One landmark. A value-initialised record has every field zero or empty, which is what the landmark
// file reader starts each landmark from; the template defaults are DefaultLandMarkRecord().
struct TLandMark {
    double Latitude = 0;   // degrees
    double Longitude = 0;  // degrees
    double Altitude = 0;   // metres
    std::uint8_t ClassFlag = 0;
    std::int32_t Tag = 0;  // free for the application
    TSymbolProperties SymbolProps;
    TLMTextProperties Caption;
    TLMIdentifier Identifier;
    double Time = 0;  // days since 1899-12-30

    bool operator==(const TLandMark&) const = default;
};

// The defaults of the template landmark: a 7-pixel blue cross on white, no caption text in
// 8-point "MS Sans Serif", black on a transparent background, 8 pixels below the point, centred.
TLandMark DefaultLandMarkRecord();

// The record with its identifier and caption text cut to their capacities.
void CutLandMarkStrings(TLandMark& LandMark);

}  // namespace qv
