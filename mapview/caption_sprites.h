// Landmark captions: where a caption goes relative to its landmark, drawing it directly, and
// TCaptionSpriteCache, which draws the same pixels by rendering each distinct caption once into a sprite.
//
// Placement. Caption.Direction is the reading direction in degrees, counter-clockwise from the control's
// x axis (0 reads left to right, 90 reads upwards). The text box is the unrotated TextExtent, w x h
// pixels, turned by that angle about its top-left corner. The anchor is the landmark's control point
// moved by (dx, dy) control pixels (the offset is not turned). HAlignment picks the point of the box's
// top edge that sits on the anchor's reading line — left end (u = 0), centre (u = w/2), right end (u = w)
// — and VAlignment the depth across it: vaTop puts the box's top edge on the anchor (v = 0, the text
// hangs below, the default caption 8 pixels under its symbol), vaBottom its bottom edge (v = h, the text
// stands above), vaCenter its middle (v = h/2). With a = Direction·π/180 the top-left corner of the text
// is anchor − u·(cos a, −sin a) − v·(sin a, cos a), rounded half to even. An empty caption draws nothing.
#pragma once

#include <qvgeo/geomap/landmark_types.h>
#include <qvgeo/platform/canvas.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qv {

// The font orientation (tenths of a degree) of a caption direction in degrees, normalised to [0, 3600).
std::int32_t CaptionOrientation(std::int32_t Direction);

// Top-left corner of the caption's text for the landmark at control point P, given the unrotated text
// extent Width x Height (see the placement rule above).
TPoint CaptionOrigin(TPoint P, const TLMTextProperties& Caption, std::int32_t Width, std::int32_t Height);

// Sets the canvas's font and brush for the caption: its font name, size, styles and colour, the font
// turned by the direction, a brush of BGColor, clear when the caption is transparent.
void SetCaptionFont(TCanvas& Canvas, const TLMTextProperties& Caption);

// Draws the caption of the landmark at P directly. The canvas's pen, brush and font are left as they were.
void DrawLandMarkCaption(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption);

// Draws the same pixels as DrawLandMarkCaption. Each distinct caption (text, font name, size, styles,
// colours, transparency and direction) read horizontally or vertically (directions that are multiples of
// 90°; other directions are drawn directly, as the rasteriser's rounding of turned glyphs depends on where
// the text starts) is rendered once into a sprite — on two different backgrounds, to
// find which pixels the text covers — and afterwards only its covered pixels are copied. A caption whose
// pixels depend on the background (a blended, anti-aliased edge) keeps being drawn directly. The canvas is
// not touched except for the pixels drawn.
//
// A sprite whose box (the turned text with a margin) has more pixels than the bitmap drawn on is not
// rendered: that caption is drawn directly, clipped by the bitmap, so that a caption of any font size costs
// memory in proportion to the picture, not to the text.
//
// The cache holds at most MaxBytes of sprite pixels and starts afresh when it would exceed them. It
// belongs to one thread, like the canvas it draws on.
class TCaptionSpriteCache {
public:
    explicit TCaptionSpriteCache(std::size_t MaxBytes = std::size_t{256} << 20);
    TCaptionSpriteCache(const TCaptionSpriteCache&) = delete;
    TCaptionSpriteCache& operator=(const TCaptionSpriteCache&) = delete;
    ~TCaptionSpriteCache();

    void Draw(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption);
    // The same, remembering which sprite the caller's item Slot (a landmark's number, say) used last: when
    // the item's caption is still that sprite's, the next paint finds it without hashing.
    void Draw(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption, std::size_t Slot);
    void Clear();
    std::size_t SpriteCount() const { return FEntries.size(); }
    std::size_t Renders() const { return FRenders; }  // sprites rendered since construction
    // Pixels of the scratch bitmap sprites are rendered in (its size is that of the largest sprite so far).
    std::int64_t ScratchPixels() const { return std::int64_t{FScratch.Width()} * FScratch.Height(); }

    struct TKey {
        std::string Text, FontName;
        std::int32_t Size, Orientation;
        TColor FG, BG;
        std::uint8_t Styles;
        bool Transparent;
        friend bool operator==(const TKey&, const TKey&) = default;
    };
    // The same key over borrowed strings, so that a lookup copies no text.
    struct TKeyView {
        std::string_view Text, FontName;
        std::int32_t Size, Orientation;
        TColor FG, BG;
        std::uint8_t Styles;
        bool Transparent;
        friend bool operator==(const TKeyView&, const TKeyView&) = default;
    };
    static TKeyView View(const TKey& K)
    {
        return {K.Text, K.FontName, K.Size, K.Orientation, K.FG, K.BG, K.Styles, K.Transparent};
    }
    // Not noexcept on purpose: the standard library then keeps each node's hash code, so a lookup compares
    // codes along a bucket instead of hashing the texts of the nodes it passes.
    struct TKeyHash {
        using is_transparent = void;
        std::size_t operator()(const TKeyView& K) const;
        std::size_t operator()(const TKey& K) const { return (*this)(View(K)); }
    };
    struct TKeyEqual {
        using is_transparent = void;
        bool operator()(const TKeyView& A, const TKeyView& B) const noexcept { return A == B; }
        bool operator()(const TKey& A, const TKeyView& B) const noexcept { return View(A) == B; }
        bool operator()(const TKeyView& A, const TKey& B) const noexcept { return A == View(B); }
        bool operator()(const TKey& A, const TKey& B) const noexcept { return A == B; }
    };
    // A rendered caption. Each sprite row is kept from its first to its last set pixel, one byte a pixel:
    // 0 not set, 1 and 2 the two colours of Palette (text and background).
    struct TEntry {
        std::int32_t Width = 0, Height = 0;  // unrotated text extent
        bool Direct = false;                 // not cacheable: drawn directly every time
        std::uint32_t Palette[2] = {0, 0};   // QRgb words, as the bitmap's rows hold them
        std::int32_t NumRows = 0;
        // NumRows row headers (TRow), then the pixel bytes of all rows: one block, one allocation.
        std::vector<std::uint8_t> Blob;
    };
    struct TRow {
        std::int32_t Dy, Dx, Length;  // relative to the text's top-left corner
        std::uint32_t Offset;         // of the row's first pixel byte in Blob
    };

private:
    using TMap = std::unordered_map<TKey, TEntry, TKeyHash, TKeyEqual>;
    const TMap::value_type& Find(const TLMTextProperties& Caption, const TKeyView& View, std::int64_t MaxPixels);
    void Blit(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption, const TEntry& E);

    std::size_t FMaxBytes;
    std::size_t FBytes = 0;
    std::size_t FRenders = 0;
    TMap FEntries;  // nodes stay where they are until Clear
    std::vector<const TMap::value_type*> FSlots;
    TBitmap FScratch;  // where sprites are rendered
    // Row addresses of the bitmap drawn on last, valid while its first row and size stay the same.
    std::vector<std::uint32_t*> FRows;
    const std::uint32_t* FRowsOf = nullptr;
    std::int32_t FRowsWidth = 0;
};

}  // namespace qv
