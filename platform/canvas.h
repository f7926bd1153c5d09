// TCanvas: drawing on a TBitmap with the semantics the map's geometry is written for, exact to the pixel.
//
// - A line from A to B sets every pixel of its Bresenham path except B itself (so a polyline's shared
//   vertices are set once, which matters in exclusive-or mode). Solid lines of width 1 (and dotted and
//   dashed ones) are rasterised here, not by a renderer, so they are the same pixels on every machine;
//   wider pens are drawn with Qt without anti-aliasing.
// - Rectangle(L, T, R, B): outline in the pen, inside filled with the brush, covering L <= x < R and
//   T <= y < B. FillRect fills the same area with the brush only. Ellipse fills and outlines the ellipse
//   inscribed in that box. Polygon fills with the brush and outlines in the pen, closed.
// - Pen mode pmXor combines the pen colour with the pixel by exclusive-or, so drawing a figure twice
//   restores the image exactly.
// - Text: Font.Size in points at 96 pixels per inch, drawn without anti-aliasing (the same pixels on every
//   machine with the same font files); Font.Orientation rotates the text counter-clockwise in tenths of a
//   degree about the text's top-left corner. The text background is the brush (left unpainted when the
//   brush is clear).
// Coordinates are control or bitmap pixels, origin top-left, y down; everything is clipped to the bitmap.
#pragma once

#include <qvgeo/platform/bitmap.h>

#include <QFont>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qv {

enum TPenStyle : std::uint8_t { psSolid, psDash, psDot, psDashDot, psDashDotDot, psClear };
enum TPenMode : std::uint8_t { pmCopy, pmXor, pmNot };
enum TBrushStyle : std::uint8_t { bsSolid, bsClear };

struct TPen {
    TColor Color = 0x000000;
    std::int32_t Width = 1;
    TPenStyle Style = psSolid;
    TPenMode Mode = pmCopy;
};

struct TBrush {
    TColor Color = 0xFFFFFF;
    TBrushStyle Style = bsSolid;
};

struct TFont {
    std::string Name = "DejaVu Sans";
    std::int32_t Size = 8;         // points at 96 dpi
    TColor Color = 0x000000;
    TFontStyles Style;
    std::int32_t Orientation = 0;  // tenths of a degree, counter-clockwise
};

// The Qt font a canvas draws and measures TFont with: pixel size from points at 96 dpi, no anti-aliasing.
QFont MakeQFont(const TFont& Font);

class TCanvas {
public:
    explicit TCanvas(TBitmap& Target);
    TCanvas(const TCanvas&) = delete;
    TCanvas& operator=(const TCanvas&) = delete;
    ~TCanvas();

    TPen Pen;
    TBrush Brush;
    TFont Font;

    TBitmap& Bitmap() { return FTarget; }
    TPoint PenPos() const { return FPenPos; }

    void MoveTo(std::int32_t X, std::int32_t Y);
    void LineTo(std::int32_t X, std::int32_t Y);  // leaves out (X, Y); the pen position becomes (X, Y)
    void Polyline(std::span<const TPoint> Points);  // MoveTo the first, LineTo each other
    void Rectangle(std::int32_t Left, std::int32_t Top, std::int32_t Right, std::int32_t Bottom);
    void Rectangle(TRect R) { Rectangle(R.Left, R.Top, R.Right, R.Bottom); }
    void FillRect(TRect R);
    void Ellipse(std::int32_t Left, std::int32_t Top, std::int32_t Right, std::int32_t Bottom);
    void Polygon(std::span<const TPoint> Points);

    void TextOut(std::int32_t X, std::int32_t Y, std::string_view Text);  // UTF-8
    TSize TextExtent(std::string_view Text);  // unrotated width and height in pixels
    std::int32_t TextWidth(std::string_view Text) { return TextExtent(Text).cx; }
    std::int32_t TextHeight(std::string_view Text) { return TextExtent(Text).cy; }

    TColor Pixel(std::int32_t X, std::int32_t Y) const { return FTarget.Pixel(X, Y); }
    void SetPixel(std::int32_t X, std::int32_t Y, TColor Color) { FTarget.SetPixel(X, Y, Color); }

    // Draw copies all of Source with its top-left corner at (X, Y), without scaling; CopyRect copies
    // Source's SrcRect onto DstRect, stretched in Mode when the sizes differ.
    void Draw(std::int32_t X, std::int32_t Y, const TBitmap& Source);
    void CopyRect(TRect DstRect, const TBitmap& Source, TRect SrcRect, TStretchMode Mode = smColorOnColor);

private:
    TBitmap& FTarget;
    TPoint FPenPos;
    // Position in the pen's dot/dash pattern: continues along consecutive LineTo calls, restarts at MoveTo.
    std::uint32_t FPatternPos = 0;

    void DrawLine(TPoint A, TPoint B);  // the pen's pixels from A to B, B left out
    void DrawOutline(std::span<const TPoint> Points);  // closed, every pixel of the path once
    void FillSpan(std::int32_t Y, std::int32_t X0, std::int32_t X1, TColor Color, TPenMode Mode);  // [X0, X1)
    void WidePath(std::span<const TPoint> Points, bool Closed);  // pens wider than 1, through Qt
};

}  // namespace qv
