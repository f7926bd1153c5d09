// A caption sprite is the set of pixels the text (and its opaque background) sets when drawn with its
// top-left corner at a fixed origin, stored as runs along rows. Copying those runs to another origin gives
// the pixels a direct TextOut there gives, because the text is drawn without anti-aliasing and moved by
// whole pixels only: each pixel is either set to the text or background colour or left alone. Rendering
// twice on two background colours that differ from both caption colours finds the set pixels; a pixel
// that differs between the two renders was blended with the background, and such a caption is not cached.
#include <qvgeo/geomap/view/caption_sprites.h>

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

struct TCaptionSpriteCache::TEntry {
    std::int32_t Width = 0, Height = 0;  // unrotated text extent
    bool Direct = false;                 // not cacheable: draw directly every time
    struct TRun {
        std::int32_t Dy, Dx, Length;     // relative to the text's top-left corner
        std::uint32_t Offset;            // into Pixels
    };
    std::vector<TRun> Runs;
    std::vector<std::uint32_t> Pixels;   // QRgb words, as the bitmap's rows hold them
    std::size_t Bytes() const { return Runs.size() * sizeof(TRun) + Pixels.size() * 4 + sizeof(TEntry) + 64; }
};

std::size_t TCaptionSpriteCache::TKeyHash::operator()(const TKeyView& K) const noexcept
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

}  // namespace

void TCaptionSpriteCache::Draw(TCanvas& Canvas, TPoint P, const TLMTextProperties& Caption)
{
    if (Caption.Text.empty())
        return;
    const TKeyView view{Caption.Text,
                        Caption.FontName,
                        Caption.Size,
                        CaptionOrientation(Caption.Direction),
                        Caption.FGColor & 0xFFFFFF,
                        Caption.Transparent ? 0u : (Caption.BGColor & 0xFFFFFF),
                        Caption.FontStyles.Bits,
                        Caption.Transparent};
    auto it = FEntries.find(view);
    if (it == FEntries.end()) {
        auto e = std::make_unique<TEntry>();
        TCanvas& sc = FScratch.Canvas();
        SetCaptionFont(sc, Caption);
        const TSize ext = sc.TextExtent(Caption.Text);
        e->Width = ext.cx;
        e->Height = ext.cy;
        // Box of the turned text plus a margin for glyphs reaching beyond their advance and line height.
        double s, c;
        SinCos(view.Orientation, s, c);
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
        const auto keys = KeyColours(Caption.FGColor, Caption.BGColor);
        std::array<std::vector<std::uint32_t>, 2> img;
        std::array<std::uint32_t, 2> raw{};
        FScratch.SetSize(bw, bh);
        for (int r = 0; r < 2; ++r) {
            FScratch.Fill(keys[static_cast<std::size_t>(r)]);
            raw[static_cast<std::size_t>(r)] = FScratch.ScanLine(0)[0];
            sc.TextOut(ax, ay, Caption.Text);
            auto& buf = img[static_cast<std::size_t>(r)];
            buf.resize(static_cast<std::size_t>(bw) * static_cast<std::size_t>(bh));
            for (std::int32_t y = 0; y < bh; ++y)
                std::memcpy(buf.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw), FScratch.ScanLine(y),
                            static_cast<std::size_t>(bw) * 4);
        }
        ++FRenders;
        for (std::int32_t y = 0; y < bh && !e->Direct; ++y) {
            const std::uint32_t* a = img[0].data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw);
            const std::uint32_t* b = img[1].data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw);
            std::int32_t x = 0;
            while (x < bw) {
                if (a[x] == raw[0] && b[x] == raw[1]) {
                    ++x;
                    continue;
                }
                const std::int32_t x0 = x;
                while (x < bw && !(a[x] == raw[0] && b[x] == raw[1])) {
                    // Blended with the background, or reaching the sprite's border: draw directly.
                    if (a[x] != b[x] || x == 0 || x == bw - 1 || y == 0 || y == bh - 1) {
                        e->Direct = true;
                        break;
                    }
                    ++x;
                }
                if (e->Direct)
                    break;
                e->Runs.push_back({y - ay, x0 - ax, x - x0, static_cast<std::uint32_t>(e->Pixels.size())});
                e->Pixels.insert(e->Pixels.end(), a + x0, a + x);
            }
        }
        if (e->Direct) {
            e->Runs.clear();
            e->Pixels.clear();
        }
        const std::size_t bytes = e->Bytes();
        if (FBytes + bytes > FMaxBytes)
            Clear();
        FBytes += bytes;
        it = FEntries.emplace(TKey{std::string(Caption.Text), std::string(Caption.FontName), view.Size,
                                   view.Orientation, view.FG, view.BG, view.Styles, view.Transparent},
                              std::move(e))
                 .first;
    }
    const TEntry& e = *it->second;
    if (e.Direct) {
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
    const TPoint o = CaptionOrigin(P, Caption, e.Width, e.Height);
    const std::int64_t h = bmp.Height(), w = FRowsWidth;
    for (const TEntry::TRun& r : e.Runs) {
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
        if (x1 <= x0)
            continue;
        std::memcpy(FRows[static_cast<std::size_t>(y)] + x0, e.Pixels.data() + r.Offset + skip,
                    static_cast<std::size_t>(x1 - x0) * 4);
    }
}

}  // namespace qv
