// Landmark symbols: DrawLandMarkSymbolOnCanvas draws one symbol shape centred on a control point, exact to
// the pixel; TSymbolSpriteCache draws the same pixels faster by drawing each distinct symbol once into a
// small sprite and copying it.
//
// Units: X, Y, Size and Length in control pixels (origin top-left, y down); Direction in degrees clockwise
// from straight up. Size is a half-size: a symbol spans about 2·Size + 1 pixels.
#pragma once

#include <qvgeo/geomap/landmark_types.h>
#include <qvgeo/platform/canvas.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace qv {

// Draws the symbol Kind at (X, Y). Lines use the canvas's pen width, style and mode (the map draws with a
// 1-pixel solid pen in copy mode; an exclusive-or pen draws a removable figure); the pen colour and the
// brush are set here. The canvas's pen, brush and pen position are left as they were.
//
// Plus and cross get a one-pixel halo in BGColor unless Transparent; square and cross-box get a BGColor
// outline ring; filled shapes are filled with BGColor unless Transparent. Triangle vertices, arrow tips and
// heads are rounded half to even after adding the control point, so a symbol's shape can depend on the
// parity of X and Y by one pixel when a vertex falls exactly between two pixels. lmUserDef draws nothing;
// a Kind outside the enumeration draws a small fixed plus. Coordinates far outside any bitmap (beyond
// ±2^30) are clamped, which leaves every visible pixel unchanged for symbols below 2^29 pixels.
void DrawLandMarkSymbolOnCanvas(TCanvas& Canvas, std::int32_t X, std::int32_t Y, TLandMarkElement Kind,
                                TColor FGColor, TColor BGColor, std::int32_t Size, std::int32_t Direction,
                                std::int32_t Length, bool Transparent);

// Draws the same pixels as DrawLandMarkSymbolOnCanvas, but draws each distinct symbol (shape, colours,
// size, direction, length, transparency and the rounding of its vertices at this point) only once into a
// sprite with a coverage mask and then copies the covered pixels. Only a 1-pixel solid pen in copy mode
// is cached; any other pen (exclusive-or above all, where a pixel's result depends on what lies under
// it) and symbols larger than 500 pixels are drawn directly. The canvas's pen, brush and pen position
// are not touched.
//
// The cache holds at most MaxSprites sprites and starts afresh when that is exceeded. It belongs to one
// thread, like the canvas it draws on.
class TSymbolSpriteCache {
public:
    explicit TSymbolSpriteCache(std::size_t MaxSprites = 4096);
    TSymbolSpriteCache(const TSymbolSpriteCache&) = delete;
    TSymbolSpriteCache& operator=(const TSymbolSpriteCache&) = delete;
    ~TSymbolSpriteCache();

    void Draw(TCanvas& Canvas, std::int32_t X, std::int32_t Y, TLandMarkElement Kind, TColor FGColor,
              TColor BGColor, std::int32_t Size, std::int32_t Direction, std::int32_t Length, bool Transparent);
    void Draw(TCanvas& Canvas, std::int32_t X, std::int32_t Y, const TSymbolProperties& Props)
    {
        Draw(Canvas, X, Y, Props.Kind, Props.FGColor, Props.BGColor, Props.Size, Props.Direction, Props.Length,
             Props.Transparent);
    }

    void Clear();
    std::size_t SpriteCount() const { return FSpriteCount; }

    struct TKey {
        std::int32_t Size, Direction, Length;
        TColor FG, BG;
        std::uint8_t Kind;
        bool Transparent;
        friend bool operator==(const TKey&, const TKey&) = default;
    };
    struct TKeyHash {
        std::size_t operator()(const TKey& K) const noexcept;
    };
    struct TEntry;

private:
    std::size_t FMaxSprites;
    std::size_t FSpriteCount = 0;
    std::unordered_map<TKey, std::unique_ptr<TEntry>, TKeyHash> FEntries;
    // Row addresses of the bitmap drawn on last, valid while its first row stays where it was.
    std::vector<std::uint32_t*> FRows;
    const std::uint32_t* FRowsOf = nullptr;
    std::int32_t FRowsWidth = 0;
};

}  // namespace qv
