// The vocabulary shared by every layer: integer pixels (TPoint), pixel sizes (TSize), pixel rectangles
// (TRect), geographic positions (TCoords), font styles (TFontStyles) and colours (TColor), and the typed
// pixels of the map view's two coordinate spaces. They carry no behaviour beyond comparison and the
// arithmetic that means something, so that geodesy, calibration, drawing and widgets can all speak them
// without depending on one another.
//
// Units: pixels with the origin at the top-left corner and y growing downwards; degrees for TCoords.
#pragma once

#include <cstdint>

namespace qv {

// A pixel: column X, row Y.
struct TPoint {
    std::int32_t X = 0;
    std::int32_t Y = 0;
    friend bool operator==(const TPoint&, const TPoint&) = default;
};

struct TSize {
    std::int32_t cx = 0, cy = 0;
    friend bool operator==(const TSize&, const TSize&) = default;
};

// A pixel rectangle: Left <= x < Right, Top <= y < Bottom.
struct TRect {
    std::int32_t Left = 0, Top = 0, Right = 0, Bottom = 0;
    constexpr std::int32_t Width() const { return Right - Left; }
    constexpr std::int32_t Height() const { return Bottom - Top; }
    constexpr bool IsEmpty() const { return Right <= Left || Bottom <= Top; }
    friend bool operator==(const TRect&, const TRect&) = default;
};

// A geographic position in degrees, north and east positive.
struct TCoords {
    double Latit = 0.0;
    double Longit = 0.0;
    friend bool operator==(const TCoords&, const TCoords&) = default;
};

// Font styles and the set of them (captions, canvas fonts).
enum TFontStyle : std::uint8_t { fsBold, fsItalic, fsUnderline, fsStrikeOut };

struct TFontStyles {
    std::uint8_t Bits = 0;  // bit n set: style with ordinal n is in the set

    constexpr bool Contains(TFontStyle Style) const { return (Bits >> Style) & 1u; }
    constexpr void Include(TFontStyle Style) { Bits = static_cast<std::uint8_t>(Bits | (1u << Style)); }
    constexpr void Exclude(TFontStyle Style) { Bits = static_cast<std::uint8_t>(Bits & ~(1u << Style)); }
    constexpr bool Empty() const { return Bits == 0; }
    bool operator==(const TFontStyles&) const = default;
};

// 32-bit colour value, red in the low byte (0x00BBGGRR).
using TColor = std::uint32_t;

// A pixel of one coordinate space. The map view has two: map-image pixels (origin at the image's top-left
// corner) and control pixels (origin at the widget's top-left corner); the magnification and the scroll
// position stand between them, and only the viewport converts. Giving each space its own type makes
// handing a map pixel to code that expects a control pixel a compile error instead of a picture that is off
// by the scroll position. Only the arithmetic that means something exists: the difference of two pixels of
// a space is an offset in that space, and a pixel plus or minus an offset is a pixel of the same space.
namespace pixel_detail {
// Two's-complement wrap of a 32-bit sum or difference, without the undefined behaviour of signed overflow.
constexpr std::int32_t Wrap(std::uint32_t V) { return static_cast<std::int32_t>(V); }
}  // namespace pixel_detail

template <class Space>
struct TPixelOffset {
    std::int32_t DX = 0;
    std::int32_t DY = 0;
    friend bool operator==(const TPixelOffset&, const TPixelOffset&) = default;
    constexpr TPixelOffset operator-() const
    {
        return {pixel_detail::Wrap(0u - std::uint32_t(DX)), pixel_detail::Wrap(0u - std::uint32_t(DY))};
    }
};

template <class Space>
struct TPixel {
    std::int32_t X = 0;
    std::int32_t Y = 0;
    constexpr TPixel() = default;
    constexpr TPixel(std::int32_t x, std::int32_t y) : X(x), Y(y) {}
    // From and to the untyped vocabulary, always spelled out.
    constexpr explicit TPixel(TPoint P) : X(P.X), Y(P.Y) {}
    constexpr TPoint Point() const { return {X, Y}; }
    friend bool operator==(const TPixel&, const TPixel&) = default;
    // Offsets wrap like the 32-bit arithmetic of the pixel formulas, so that no sum is undefined.
    friend constexpr TPixelOffset<Space> operator-(TPixel A, TPixel B)
    {
        return {pixel_detail::Wrap(std::uint32_t(A.X) - std::uint32_t(B.X)),
                pixel_detail::Wrap(std::uint32_t(A.Y) - std::uint32_t(B.Y))};
    }
    friend constexpr TPixel operator+(TPixel A, TPixelOffset<Space> D)
    {
        return {pixel_detail::Wrap(std::uint32_t(A.X) + std::uint32_t(D.DX)),
                pixel_detail::Wrap(std::uint32_t(A.Y) + std::uint32_t(D.DY))};
    }
    friend constexpr TPixel operator-(TPixel A, TPixelOffset<Space> D) { return A + -D; }
};

struct TMapImageSpace;
struct TControlSpace;
using TMapPixel = TPixel<TMapImageSpace>;       // a pixel of the map image
using TControlPixel = TPixel<TControlSpace>;    // a pixel of the control (the view)
using TMapOffset = TPixelOffset<TMapImageSpace>;
using TControlOffset = TPixelOffset<TControlSpace>;

}  // namespace qv
