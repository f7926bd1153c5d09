// TBitmap: the 32-bit raster every widget draws into (a QImage in Format_RGB32, 0xffRRGGBB per pixel in
// memory), with the pixel-exact copy and the two stretch modes the map rendering is written for. Image
// files (BMP, JPEG, PNG) are read and written by platform/image_files.h.
//
// Units: pixels, origin at the top-left corner, y growing downwards. Rectangles exclude their right and
// bottom edges. Colours crossing this interface are TColor (red in the low byte); ToQRgb/FromQRgb in
// platform/colors.h are the only conversion.
#pragma once

#include <qvgeo/support/geometry_types.h>

#include <QImage>

#include <cstdint>
#include <memory>

namespace qv {

class TCanvas;

// How StretchRect maps source pixels onto destination pixels.
enum TStretchMode : std::uint8_t {
    smHalftone,      // averaging: each destination pixel is the mean of the source pixels it covers
    smColorOnColor,  // pixel dropping: each destination pixel takes the one source pixel at its centre
};

class TBitmap {
public:
    TBitmap();
    TBitmap(std::int32_t Width, std::int32_t Height);  // filled white
    explicit TBitmap(QImage Image);                    // converted to Format_RGB32 when it is not
    TBitmap(const TBitmap& Other);
    TBitmap& operator=(const TBitmap& Other);
    TBitmap(TBitmap&&) noexcept;
    TBitmap& operator=(TBitmap&&) noexcept;
    ~TBitmap();

    std::int32_t Width() const;
    std::int32_t Height() const;
    bool Empty() const;  // 0 x 0
    // New size; the overlapping top-left part keeps its pixels, new pixels are white. Negative sizes
    // count as 0.
    void SetSize(std::int32_t Width, std::int32_t Height);

    TColor Pixel(std::int32_t X, std::int32_t Y) const;  // 0 outside the bitmap
    void SetPixel(std::int32_t X, std::int32_t Y, TColor Color);  // ignored outside
    // Row Y as 0xffRRGGBB words (QRgb), Width() of them. Y must be in range.
    std::uint32_t* ScanLine(std::int32_t Y);
    const std::uint32_t* ScanLine(std::int32_t Y) const;
    void Fill(TColor Color);

    // Copies Source's SrcRect to this bitmap with its top-left corner at (DstX, DstY), without scaling;
    // both rectangles are clipped to their bitmaps.
    void CopyRect(std::int32_t DstX, std::int32_t DstY, const TBitmap& Source, TRect SrcRect);
    // Scales Source's SrcRect onto DstRect (clipped to this bitmap) in the given mode. Either rectangle
    // may extend beyond its bitmap: source pixels outside read as the nearest edge pixel.
    void StretchRect(TRect DstRect, const TBitmap& Source, TRect SrcRect, TStretchMode Mode);

    // The canvas drawing on this bitmap (created on first use, valid as long as the bitmap).
    TCanvas& Canvas();

    QImage& Image() { return FImage; }
    const QImage& Image() const { return FImage; }

private:
    QImage FImage;
    std::unique_ptr<TCanvas> FCanvas;
};

}  // namespace qv
