// A caption sprite is the set of pixels the text (and its opaque background) sets when drawn with its
// top-left corner at a fixed origin, stored as runs along rows. Copying those runs to another origin gives
// the pixels a direct TextOut there gives, because the text is drawn without anti-aliasing and moved by
// whole pixels only: each pixel is either set to the text or background colour or left alone. Rendering
// twice on two background colours that differ from both caption colours finds the set pixels; a pixel
// that differs between the two renders was blended with the background, and such a caption is not cached.
#include <qvgeo/mapview/caption_sprites.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>

namespace qv {

namespace {

constexpr double Pi = 3.141592653589793;

// Sine and cosine of a whole number of tenths of a degree; exact at multiples of 90°, so that a half
// pixel in the placement stays an exact half and rounds the same way for every quarter turn.
void SinCos(std::int32_t Orientation, double& S, double& C)
{
    switch (Orientation) {
    case 0: S = 0; C = 1; return;
    case 900: S = 1; C = 0; return;
    case 1800: S = 0; C = -1; return;
    case 2700: S = -1; C = 0; return;
    default: {
        const double a = Orientation / 10.0 * Pi / 180.0;
        S = std::sin(a);
        C = std::cos(a);
    }
    }
}

std::int32_t RoundToInt(double v)
{
    // Captions of landmarks far outside the control: keep the corner within reach of int arithmetic.
    return static_cast<std::int32_t>(std::clamp(std::nearbyint(v), -1073741824.0, 1073741824.0));
}

}  // namespace

std::int32_t CaptionOrientation(std::int32_t Direction)
{
    return (Direction % 360 + 360) % 360 * 10;
}

TPoint CaptionOrigin(TPoint P, const TLMTextProperties& Caption, std::int32_t Width, std::int32_t Height)
{
    double u = 0, v = 0;
    switch (Caption.HAlignment) {
    case haRightJustify: u = Width; break;
    case haCenter: u = Width / 2.0; break;
    default: break;
    }
    switch (Caption.VAlignment) {
    case vaBottom: v = Height; break;
    case vaCenter: v = Height / 2.0; break;
    default: break;
    }
    double s, c;
    SinCos(CaptionOrientation(Caption.Direction), s, c);
    const double ax = double(P.X) + Caption.dx, ay = double(P.Y) + Caption.dy;
    return {RoundToInt(ax - u * c - v * s), RoundToInt(ay + u * s - v * c)};
}

void SetCaptionFont(TCanvas& Canvas, const TLMTextProperties& Caption)
{
    Canvas.Font.Name = Caption.FontName;
    Canvas.Font.Size = Caption.Size;
    Canvas.Font.Color = Caption.FGColor;
    Canvas.Font.Style = Caption.FontStyles;
    Canvas.Font.Orientation = CaptionOrientation(Caption.Direction);
    Canvas.Brush.Color = Caption.BGColor;
    Canvas.Brush.Style = Caption.Transparent ? bsClear : bsSolid;
}

void DrawLandMarkCaption(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption)
{
    if (Caption.Text.empty())
        return;
    const TFont font = Canvas.Font;
    const TBrush brush = Canvas.Brush;
    SetCaptionFont(Canvas, Caption);
    const TSize ext = Canvas.TextExtent(Caption.Text);
    const TPoint o = CaptionOrigin(P, Caption, ext.cx, ext.cy);
    Canvas.TextOut(o.X, o.Y, Caption.Text);
    Canvas.Font = font;
    Canvas.Brush = brush;
}

// ---- the sprite cache ----

std::size_t TCaptionSpriteCache::TKeyHash::operator()(const TKeyView& K) const
{
    auto mix = [](std::uint64_t h, std::uint64_t v) { return (h ^ v) * 0x100000001B3ull + (h >> 29); };
    std::uint64_t h = std::hash<std::string_view>()(K.Text);
    h = mix(h, std::hash<std::string_view>()(K.FontName));
    h = mix(h, (std::uint64_t(std::uint32_t(K.Size)) << 32) | std::uint32_t(K.Orientation));
    h = mix(h, (std::uint64_t(K.FG) << 32) | K.BG);
    h = mix(h, (std::uint64_t(K.Styles) << 1) | (K.Transparent ? 1u : 0u));
    return static_cast<std::size_t>(h);
}

TCaptionSpriteCache::TCaptionSpriteCache(std::size_t MaxBytes) : FMaxBytes(MaxBytes) {}
TCaptionSpriteCache::~TCaptionSpriteCache() = default;

void TCaptionSpriteCache::Clear()
{
    FEntries.clear();
    FSlots.clear();
    FBytes = 0;
}

namespace {

// Two background colours for the renders, both different from the caption's colours.
std::array<TColor, 2> KeyColours(TColor FG, TColor BG)
{
    static constexpr std::array<TColor, 4> candidates = {0x000000, 0xFFFFFF, 0x00FF00, 0xFF00FF};
    std::array<TColor, 2> k{};
    int n = 0;
    for (TColor c : candidates) {
        if (n < 2 && (c & 0xFFFFFF) != (FG & 0xFFFFFF) && (c & 0xFFFFFF) != (BG & 0xFFFFFF))
            k[static_cast<std::size_t>(n++)] = c;
    }
    return k;
}

TCaptionSpriteCache::TKeyView KeyOf(const TLMTextProperties& Caption)
{
    return {Caption.Text,
            Caption.FontName,
            Caption.Size,
            CaptionOrientation(Caption.Direction),
            Caption.FGColor & 0xFFFFFF,
            Caption.Transparent ? 0u : (Caption.BGColor & 0xFFFFFF),
            Caption.FontStyles.Bits,
            Caption.Transparent};
}

}  // namespace

const TCaptionSpriteCache::TMap::value_type& TCaptionSpriteCache::Find(const TLMTextProperties& Caption,
                                                                      const TKeyView& View,
                                                                      std::int64_t MaxPixels)
{
    auto it = FEntries.find(View);
    if (it != FEntries.end())
        return *it;
    TEntry e;
    TCanvas& sc = FScratch.Canvas();
    SetCaptionFont(sc, Caption);
    const TSize ext = sc.TextExtent(Caption.Text);
    e.Width = ext.cx;
    e.Height = ext.cy;
    // Box of the turned text plus a margin for glyphs reaching beyond their advance and line height.
    double s, c;
    SinCos(View.Orientation, s, c);
    double minX = 0, maxX = 0, minY = 0, maxY = 0;
    for (const auto& [u, v] : {std::pair<double, double>{double(ext.cx), 0.0}, {0.0, double(ext.cy)},
                               {double(ext.cx), double(ext.cy)}}) {
        const double x = u * c + v * s, y = -u * s + v * c;
        minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
    const std::int32_t m = ext.cy + 4;
    const std::int32_t ax = -static_cast<std::int32_t>(std::floor(minX)) + m;
    const std::int32_t ay = -static_cast<std::int32_t>(std::floor(minY)) + m;
    const std::int32_t bw = ax + static_cast<std::int32_t>(std::ceil(maxX)) + m;
    const std::int32_t bh = ay + static_cast<std::int32_t>(std::ceil(maxY)) + m;
    // A sprite larger than the picture it is drawn on would cost more than drawing the text there (a
    // caption of font size 2000 renders to hundreds of megapixels, of which the view shows a corner):
    // such a caption is drawn directly, clipped by the canvas, and the scratch bitmap never outgrows it.
    if (std::int64_t{bw} * bh > MaxPixels)
        e.Direct = true;
    const auto keys = KeyColours(Caption.FGColor, Caption.BGColor);
    std::array<std::vector<std::uint32_t>, 2> img;
    std::array<std::uint32_t, 2> raw{};
    if (!e.Direct)
        FScratch.SetSize(bw, bh);
    for (std::size_t r = 0; r < 2 && !e.Direct; ++r) {
        FScratch.Fill(keys[r]);
        raw[r] = FScratch.ScanLine(0)[0];
        sc.TextOut(ax, ay, Caption.Text);
        img[r].resize(static_cast<std::size_t>(bw) * static_cast<std::size_t>(bh));
        for (std::int32_t y = 0; y < bh; ++y)
            std::memcpy(img[r].data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw), FScratch.ScanLine(y),
                        static_cast<std::size_t>(bw) * 4);
    }
    if (!e.Direct)
        ++FRenders;
    std::vector<TRow> rows;
    std::vector<std::uint8_t> bytes;
    int colours = 0;
    for (std::int32_t y = 0; y < bh && !e.Direct; ++y) {
        const std::uint32_t* a = img[0].data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw);
        const std::uint32_t* b = img[1].data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw);
        std::int32_t first = -1, last = -1;
        for (std::int32_t x = 0; x < bw && !e.Direct; ++x) {
            if (a[x] == raw[0] && b[x] == raw[1])
                continue;
            // Blended with the background, reaching the sprite's border, or a third colour: draw directly.
            if (a[x] != b[x] || x == 0 || x == bw - 1 || y == 0 || y == bh - 1)
                e.Direct = true;
            else if (colours == 0 || (a[x] != e.Palette[0] && colours == 1))
                e.Palette[colours++] = a[x];
            else if (a[x] != e.Palette[0] && a[x] != e.Palette[1])
                e.Direct = true;
            if (first < 0)
                first = x;
            last = x;
        }
        if (e.Direct || first < 0)
            continue;
        rows.push_back({y - ay, first - ax, last + 1 - first, static_cast<std::uint32_t>(bytes.size())});
        for (std::int32_t x = first; x <= last; ++x)
            bytes.push_back(a[x] == raw[0] && b[x] == raw[1] ? 0 : a[x] == e.Palette[0] ? 1 : 2);
    }
    if (!e.Direct) {
        e.NumRows = static_cast<std::int32_t>(rows.size());
        const std::size_t head = rows.size() * sizeof(TRow);
        e.Blob.resize(head + bytes.size());
        for (TRow& r : rows)
            r.Offset += static_cast<std::uint32_t>(head);
        if (!rows.empty())
            std::memcpy(e.Blob.data(), rows.data(), head);
        if (!bytes.empty())
            std::memcpy(e.Blob.data() + head, bytes.data(), bytes.size());
    }
    const std::size_t size = e.Blob.size() + sizeof(TMap::value_type) + Caption.Text.size() + 64;
    if (FBytes + size > FMaxBytes)
        Clear();
    FBytes += size;
    return *FEntries
                .emplace(TKey{std::string(View.Text), std::string(View.FontName), View.Size, View.Orientation, View.FG,
                              View.BG, View.Styles, View.Transparent},
                         std::move(e))
                .first;
}

void TCaptionSpriteCache::Blit(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption, const TEntry& E)
{
    if (E.Direct) {
        DrawLandMarkCaption(Canvas, P, Caption);
        return;
    }
    TBitmap& bmp = Canvas.Bitmap();
    if (bmp.Width() <= 0 || bmp.Height() <= 0)
        return;
    const std::uint32_t* first = bmp.ScanLine(0);
    if (first != FRowsOf || bmp.Width() != FRowsWidth || static_cast<std::size_t>(bmp.Height()) != FRows.size()) {
        FRows.resize(static_cast<std::size_t>(bmp.Height()));
        for (std::int32_t y = 0; y < bmp.Height(); ++y)
            FRows[static_cast<std::size_t>(y)] = bmp.ScanLine(y);
        FRowsOf = first;
        FRowsWidth = bmp.Width();
    }
    const TPoint o = CaptionOrigin(P, Caption, E.Width, E.Height);
    const std::int64_t h = bmp.Height(), w = FRowsWidth;
    const std::uint32_t c1 = E.Palette[0], c2 = E.Palette[1];
    const std::uint8_t* blob = E.Blob.data();
    for (std::int32_t k = 0; k < E.NumRows; ++k) {
        TRow r;
        std::memcpy(&r, blob + static_cast<std::size_t>(k) * sizeof(TRow), sizeof(TRow));
        const std::int64_t y = std::int64_t{o.Y} + r.Dy;
        if (y < 0 || y >= h)
            continue;
        std::int64_t x0 = std::int64_t{o.X} + r.Dx, x1 = x0 + r.Length;
        std::int64_t skip = 0;
        if (x0 < 0) {
            skip = -x0;
            x0 = 0;
        }
        x1 = std::min(x1, w);
        std::uint32_t* d = FRows[static_cast<std::size_t>(y)] + x0;
        const std::uint8_t* p = blob + r.Offset + skip;
        for (std::int64_t i = 0, n = x1 - x0; i < n; ++i) {
            const std::uint32_t v = p[i] == 1 ? c1 : c2;
            d[i] = p[i] ? v : d[i];
        }
    }
}

// The largest sprite worth rendering for a canvas: its own picture's size.
static std::int64_t SpriteLimit(TCanvas& Canvas)
{
    const TBitmap& b = Canvas.Bitmap();
    return std::int64_t{b.Width()} * b.Height();
}

// Text turned by an angle other than a quarter turn is placed by the font rasteriser at fractional positions
// that it rounds after adding the text's origin, so the same caption can come out a pixel different at
// two origins: such captions are drawn directly every time.
bool Cacheable(const TLMTextProperties& Caption)
{
    return CaptionOrientation(Caption.Direction) % 900 == 0;
}

void TCaptionSpriteCache::Draw(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption)
{
    if (Caption.Text.empty())
        return;
    if (!Cacheable(Caption)) {
        DrawLandMarkCaption(Canvas, P, Caption);
        return;
    }
    Blit(Canvas, P, Caption, Find(Caption, KeyOf(Caption), SpriteLimit(Canvas)).second);
}

void TCaptionSpriteCache::Draw(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption, std::size_t Slot)
{
    if (Caption.Text.empty())
        return;
    if (!Cacheable(Caption)) {
        DrawLandMarkCaption(Canvas, P, Caption);
        return;
    }
    const TKeyView view = KeyOf(Caption);
    if (Slot < FSlots.size() && FSlots[Slot] && View(FSlots[Slot]->first) == view) {
        Blit(Canvas, P, Caption, FSlots[Slot]->second);
        return;
    }
    const TMap::value_type& node = Find(Caption, view, SpriteLimit(Canvas));  // may start afresh, forgetting every slot
    if (Slot >= FSlots.size())
        FSlots.resize(Slot + 1, nullptr);
    FSlots[Slot] = &node;
    Blit(Canvas, P, Caption, node.second);
}

}  // namespace qv
