// Symbol geometry is computed in two steps so that the sprite cache reproduces the direct drawing exactly:
// the direction-dependent parts are computed once per symbol (sines and cosines, unrounded), and the
// integer vertices at a given control point are formed from them by Round(v + X) - X. That difference is
// not always Round(v): v + X is rounded to a double first and ties go to the even integer, so for example
// a size-7 triangle pointing up has its lower vertices one pixel lower at even Y than at odd Y. The cache
// therefore keys its sprites on these integer offsets, not on the symbol parameters alone.
#include <qvgeo/mapview/landmark_symbols.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace qv {

namespace {

constexpr double Pi = 3.141592653589793;
constexpr double Rad120 = 2.0943951023931953;  // triangle vertices are 120° apart
constexpr double Rad20 = 0.3490658503988659;   // half-angle of an arrow head

// Coordinates handed to the canvas stay within ±2^30 so that no pixel arithmetic downstream overflows.
constexpr std::int64_t CoordLimit = std::int64_t(1) << 30;

std::int32_t C(std::int64_t v)
{
    return static_cast<std::int32_t>(std::clamp(v, -CoordLimit, CoordLimit));
}

std::int64_t RoundI(double v)
{
    return static_cast<std::int64_t>(std::nearbyint(v));
}

// The unrounded, direction-dependent parts of a symbol. Triangle: vertex k at (Vx[k] + X, Vy[k] + Y), each
// rounded. Arrows: the far end of the shaft at (Vx[0] + X, Vy[0] + Y), rounded, and the head's offsets
// Hx, Hy (already whole pixels; see SymbolGeometry for their sign).
struct TSymbolTrig {
    std::array<double, 3> Vx{}, Vy{};
    std::array<std::int64_t, 2> Hx{}, Hy{};
};

// Integer geometry of a symbol relative to its control point: everything DrawSymbolAt needs.
struct TSymbolGeometry {
    std::uint8_t Kind = lmPlus;
    bool Transparent = false;
    std::int64_t S = 0;
    std::array<std::int64_t, 3> Dx{}, Dy{};  // triangle: P0..P2; arrows: shaft end, H1, H2
    friend bool operator==(const TSymbolGeometry&, const TSymbolGeometry&) = default;
};

TSymbolTrig SymbolTrig(std::uint8_t Kind, std::int32_t Size, std::int32_t Direction, std::int32_t Length)
{
    TSymbolTrig t;
    const double a = Direction * Pi / 180.0;
    const double s = Size;
    if (Kind == lmTriangle) {
        const double ak[3] = {a, a + Rad120, a - Rad120};
        for (int k = 0; k < 3; ++k) {
            t.Vx[k] = s * std::sin(ak[k]);
            t.Vy[k] = -s * std::cos(ak[k]);
        }
    } else if (Kind == lmArrowFrom || Kind == lmArrowTo) {
        const double l = Length;
        t.Vx[0] = l * std::sin(a);
        t.Vy[0] = -l * std::cos(a);
        const double ah[2] = {a + Rad20, a - Rad20};
        for (int k = 0; k < 2; ++k) {
            t.Hx[k] = RoundI(s * std::sin(ah[k]));
            t.Hy[k] = RoundI(s * std::cos(ah[k]));
        }
    }
    return t;
}

TSymbolGeometry SymbolGeometry(std::uint8_t Kind, std::int32_t Size, bool Transparent, const TSymbolTrig& t,
                               std::int32_t X, std::int32_t Y)
{
    TSymbolGeometry g;
    g.Kind = Kind;
    g.Transparent = Transparent;
    g.S = Size;
    // Round(v + X) - X: the vertex rounded where it lies, not relative to the control point.
    auto rel = [](double v, std::int32_t origin) { return RoundI(v + origin) - origin; };
    if (Kind == lmTriangle) {
        for (int k = 0; k < 3; ++k) {
            g.Dx[k] = rel(t.Vx[k], X);
            g.Dy[k] = rel(t.Vy[k], Y);
        }
    } else if (Kind == lmArrowFrom || Kind == lmArrowTo) {
        g.Dx[0] = rel(t.Vx[0], X);
        g.Dy[0] = rel(t.Vy[0], Y);
        for (int k = 0; k < 2; ++k) {
            if (Kind == lmArrowFrom) {  // head behind the tip, pointing outwards
                g.Dx[k + 1] = g.Dx[0] - t.Hx[k];
                g.Dy[k + 1] = g.Dy[0] + t.Hy[k];
            } else {  // head at the landmark, pointing at it
                g.Dx[k + 1] = t.Hx[k];
                g.Dy[k + 1] = -t.Hy[k];
            }
        }
    }
    return g;
}

void Line(TCanvas& c, std::int64_t x0, std::int64_t y0, std::int64_t x1, std::int64_t y1)
{
    c.MoveTo(C(x0), C(y0));
    c.LineTo(C(x1), C(y1));
}

void SquareOutline(TCanvas& c, std::int64_t X, std::int64_t Y, std::int64_t s)
{
    c.MoveTo(C(X - s), C(Y - s));
    c.LineTo(C(X - s), C(Y + s));
    c.LineTo(C(X + s), C(Y + s));
    c.LineTo(C(X + s), C(Y - s));
    c.LineTo(C(X - s), C(Y - s));
}

void Polygon(TCanvas& c, std::initializer_list<std::array<std::int64_t, 2>> pts)
{
    std::array<TPoint, 4> p{};
    std::size_t n = 0;
    for (const auto& q : pts)
        p[n++] = TPoint{C(q[0]), C(q[1])};
    c.Polygon(std::span<const TPoint>(p.data(), n));
}

// Draws geometry g with its control point at (X, Y). Sets pen colour and brush; leaves them changed.
void DrawSymbolAt(TCanvas& c, std::int64_t X, std::int64_t Y, const TSymbolGeometry& g, TColor FG, TColor BG)
{
    const std::int64_t s = g.S;
    const bool halo = !g.Transparent;
    c.Brush.Color = BG;
    c.Brush.Style = bsSolid;
    auto P = [&](int k) { return std::array<std::int64_t, 2>{X + g.Dx[k], Y + g.Dy[k]}; };
    switch (g.Kind) {
    case lmPlus:
        if (halo) {
            c.Pen.Color = BG;
            for (int i = -1; i <= 1; ++i)
                for (int j = -1; j <= 1; ++j) {
                    Line(c, X + i, Y - s + j, X + i, Y + s + 1 + j);
                    Line(c, X - s + i, Y + j, X + s + 1 + i, Y + j);
                }
        }
        c.Pen.Color = FG;
        Line(c, X, Y - s, X, Y + s + 1);
        Line(c, X - s, Y, X + s + 1, Y);
        break;
    case lmSquare:
    case lmCrossBox:
        if (g.Transparent) {
            c.Pen.Color = FG;
            SquareOutline(c, X, Y, s);
            if (g.Kind == lmCrossBox) {
                c.LineTo(C(X + s), C(Y + s));  // on from the outline's end at (X - s, Y - s)
                Line(c, X - s, Y + s, X + s, Y - s);
            }
            break;
        }
        c.Pen.Color = BG;
        SquareOutline(c, X, Y, s);
        c.Pen.Color = FG;
        c.Rectangle(C(X - s + 1), C(Y - s + 1), C(X + s), C(Y + s));
        if (g.Kind == lmCrossBox) {
            Line(c, X - s + 1, Y + s - 1, X + s, Y - s);
            Line(c, X + s - 1, Y + s - 1, X - s, Y - s);
        }
        break;
    case lmTriangle:
        c.Pen.Color = FG;
        if (!g.Transparent) {
            Polygon(c, {P(0), P(1), P(2)});
        } else {
            Line(c, P(0)[0], P(0)[1], P(1)[0], P(1)[1]);
            c.LineTo(C(P(2)[0]), C(P(2)[1]));
            c.LineTo(C(P(0)[0]), C(P(0)[1]));
        }
        break;
    case lmCircle:
        c.Pen.Color = FG;
        if (g.Transparent)
            c.Brush.Style = bsClear;
        c.Ellipse(C(X - s), C(Y - s), C(X + s), C(Y + s));
        break;
    case lmArrowFrom:
    case lmArrowTo: {
        c.Pen.Color = FG;
        const auto tip = g.Kind == lmArrowFrom ? P(0) : std::array<std::int64_t, 2>{X, Y};
        if (g.Kind == lmArrowFrom)
            Line(c, X, Y, tip[0], tip[1]);
        else
            Line(c, P(0)[0], P(0)[1], X, Y);
        if (!g.Transparent) {
            Polygon(c, {tip, P(1), P(2)});
        } else {
            Line(c, P(1)[0], P(1)[1], tip[0], tip[1]);
            c.LineTo(C(P(2)[0]), C(P(2)[1]));
        }
        break;
    }
    case lmSpade:
        c.Pen.Color = FG;
        if (!g.Transparent) {
            Polygon(c, {{X + s, Y}, {X, Y + s}, {X - s, Y}, {X, Y - s}});
        } else {
            Line(c, X, Y - s, X + s, Y);
            c.LineTo(C(X), C(Y + s));
            c.LineTo(C(X - s), C(Y));
            c.LineTo(C(X), C(Y - s));
        }
        break;
    case lmCross:
        if (halo) {
            c.Pen.Color = BG;
            for (int i = -1; i <= 1; ++i)
                for (int j = -1; j <= 1; ++j) {
                    Line(c, X + s + i, Y + j - s, X - s + i - 1, Y + j + s + 1);
                    Line(c, X + i - s, Y - s + j, X + i + s + 1, Y + s + j + 1);
                }
        }
        c.Pen.Color = FG;
        Line(c, X - s, Y - s, X + s + 1, Y + s + 1);
        Line(c, X - s, Y + s, X + s + 1, Y - s - 1);
        break;
    case lmUserDef:
        break;
    default:  // a value outside the enumeration (from a damaged file): a small fixed plus
        c.Pen.Color = FG;
        Line(c, X - 4, Y, X + 5, Y);
        Line(c, X, Y - 4, X, Y + 5);
        break;
    }
}

// Restores the canvas's pen, brush and pen position when drawing is done.
class TCanvasStateGuard {
public:
    explicit TCanvasStateGuard(TCanvas& c) : FC(c), FPen(c.Pen), FBrush(c.Brush), FPos(c.PenPos()) {}
    ~TCanvasStateGuard()
    {
        FC.Pen = FPen;
        FC.Brush = FBrush;
        FC.MoveTo(FPos.X, FPos.Y);
    }
    TCanvasStateGuard(const TCanvasStateGuard&) = delete;
    TCanvasStateGuard& operator=(const TCanvasStateGuard&) = delete;

private:
    TCanvas& FC;
    TPen FPen;
    TBrush FBrush;
    TPoint FPos;
};

// Half-extent of a symbol around its control point, in pixels, halo included (a halo line reaches one
// pixel beyond the symbol's own lines).
std::int64_t SymbolReach(const TSymbolGeometry& g)
{
    std::int64_t r = std::max<std::int64_t>(g.S < 0 ? -g.S : g.S, 0) + 2;
    if (g.Kind > lmUserDef)
        r = std::max<std::int64_t>(r, 6);
    if (g.Kind == lmTriangle || g.Kind == lmArrowFrom || g.Kind == lmArrowTo)
        for (int k = 0; k < 3; ++k)
            r = std::max({r, std::abs(g.Dx[k]) + 1, std::abs(g.Dy[k]) + 1});
    return r;
}

constexpr std::int64_t MaxSpriteReach = 250;  // sprites up to about 500 x 500 pixels
constexpr std::int64_t SpriteMargin = 2;      // blank frame that proves nothing was cut off

}  // namespace

void DrawLandMarkSymbolOnCanvas(TCanvas& Canvas, std::int32_t X, std::int32_t Y, TLandMarkElement Kind,
                                TColor FGColor, TColor BGColor, std::int32_t Size, std::int32_t Direction,
                                std::int32_t Length, bool Transparent)
{
    if (Kind == lmUserDef)
        return;
    TCanvasStateGuard guard(Canvas);
    const TSymbolTrig t = SymbolTrig(Kind, Size, Direction, Length);
    DrawSymbolAt(Canvas, X, Y, SymbolGeometry(Kind, Size, Transparent, t, X, Y), FGColor, BGColor);
}

// ---- sprite cache ----------------------------------------------------------------------------------------

namespace {

// One drawn symbol: the covered pixels as runs along rows, relative to the control point.
struct TSprite {
    TSymbolGeometry Geometry;
    bool Direct = false;  // too large to cache, or reached the sprite's edge: draw it directly
    struct TRun {
        std::int32_t Dy, Dx, Len;
        std::uint32_t Offset;  // into Pixels
    };
    std::vector<TRun> Runs;
    std::vector<std::uint32_t> Pixels;  // QRgb words, as in TBitmap::ScanLine
};

// Draws g twice, on black and on white; a pixel is covered exactly when both drawings agree, since the
// symbol's pen and brush paint opaquely and anything left alone keeps the two different backgrounds.
TSprite RenderSprite(const TSymbolGeometry& g, TColor FG, TColor BG)
{
    TSprite sp;
    sp.Geometry = g;
    const std::int64_t reach = SymbolReach(g);
    if (reach > MaxSpriteReach) {
        sp.Direct = true;
        return sp;
    }
    const std::int64_t half = reach + SpriteMargin;
    const auto side = static_cast<std::int32_t>(2 * half + 1);
    TBitmap a(side, side), b(side, side);
    a.Fill(0x000000);
    b.Fill(0xFFFFFF);
    DrawSymbolAt(a.Canvas(), half, half, g, FG, BG);
    DrawSymbolAt(b.Canvas(), half, half, g, FG, BG);
    for (std::int32_t y = 0; y < side; ++y) {
        const std::uint32_t* ra = a.ScanLine(y);
        const std::uint32_t* rb = b.ScanLine(y);
        std::int32_t x = 0;
        while (x < side) {
            if (ra[x] != rb[x]) {
                ++x;
                continue;
            }
            if (y == 0 || y == side - 1 || x == 0) {  // touches the edge: the sprite may be cut off
                sp.Direct = true;
                return sp;
            }
            const std::int32_t x0 = x;
            while (x < side && ra[x] == rb[x])
                ++x;
            if (x == side) {
                sp.Direct = true;
                return sp;
            }
            sp.Runs.push_back({static_cast<std::int32_t>(y - half), static_cast<std::int32_t>(x0 - half), x - x0,
                               static_cast<std::uint32_t>(sp.Pixels.size())});
            sp.Pixels.insert(sp.Pixels.end(), ra + x0, ra + x);
        }
    }
    return sp;
}

void BlitSprite(std::uint32_t* const* rows, std::int64_t w, std::int64_t h, std::int64_t X, std::int64_t Y,
                const TSprite& sp)
{
    for (const TSprite::TRun& r : sp.Runs) {
        const std::int64_t y = Y + r.Dy;
        if (y < 0 || y >= h)
            continue;
        std::int64_t x0 = X + r.Dx;
        const std::int64_t x1 = std::min(x0 + r.Len, w);
        const std::uint32_t* src = sp.Pixels.data() + r.Offset;
        if (x0 < 0) {
            src -= x0;
            x0 = 0;
        }
        // Runs are a few pixels long: a plain loop beats a call to memcpy.
        std::uint32_t* dst = rows[y];
        for (std::int64_t x = x0; x < x1; ++x)
            dst[x] = *src++;
    }
}

}  // namespace

struct TSymbolSpriteCache::TEntry {
    TSymbolTrig Trig;
    std::vector<TSprite> Sprites;  // one per rounding variant met so far; usually one or two
};

std::size_t TSymbolSpriteCache::TKeyHash::operator()(const TKey& K) const noexcept
{
    auto mix = [](std::uint64_t h, std::uint64_t v) {
        h ^= v + 0x9E3779B97F4A7C15ull + (h << 6) + (h >> 2);
        return h;
    };
    std::uint64_t h = (std::uint64_t(K.Kind) << 1) | (K.Transparent ? 1u : 0u);
    h = mix(h, (std::uint64_t(std::uint32_t(K.Size)) << 32) | std::uint32_t(K.Direction));
    h = mix(h, (std::uint64_t(K.FG) << 32) | K.BG);
    h = mix(h, std::uint32_t(K.Length));
    return static_cast<std::size_t>(h * 0xFF51AFD7ED558CCDull >> 7);
}

TSymbolSpriteCache::TSymbolSpriteCache(std::size_t MaxSprites) : FMaxSprites(std::max<std::size_t>(MaxSprites, 1)) {}

TSymbolSpriteCache::~TSymbolSpriteCache() = default;

void TSymbolSpriteCache::Clear()
{
    FEntries.clear();
    FSpriteCount = 0;
}

void TSymbolSpriteCache::Draw(TCanvas& Canvas, std::int32_t X, std::int32_t Y, TLandMarkElement Kind,
                              TColor FGColor, TColor BGColor, std::int32_t Size, std::int32_t Direction,
                              std::int32_t Length, bool Transparent)
{
    if (Kind == lmUserDef)
        return;
    if (Canvas.Pen.Mode != pmCopy || Canvas.Pen.Style != psSolid || Canvas.Pen.Width != 1) {
        DrawLandMarkSymbolOnCanvas(Canvas, X, Y, Kind, FGColor, BGColor, Size, Direction, Length, Transparent);
        return;
    }
    // Direction and length change only triangles and arrows; other shapes share one entry for all.
    const bool directed = Kind == lmTriangle || Kind == lmArrowFrom || Kind == lmArrowTo;
    const TKey key{Size, directed ? Direction : 0, Kind == lmTriangle || !directed ? 0 : Length,
                   FGColor, BGColor, Kind, Transparent};
    if (FSpriteCount >= FMaxSprites)
        Clear();
    auto it = FEntries.find(key);
    if (it == FEntries.end()) {
        auto e = std::make_unique<TEntry>();
        e->Trig = SymbolTrig(Kind, Size, Direction, Length);
        it = FEntries.emplace(key, std::move(e)).first;
    }
    TEntry& e = *it->second;
    const TSymbolGeometry g = SymbolGeometry(Kind, Size, Transparent, e.Trig, X, Y);
    const TSprite* sp = nullptr;
    for (const TSprite& s : e.Sprites)
        if (s.Geometry == g) {
            sp = &s;
            break;
        }
    if (!sp) {
        e.Sprites.push_back(RenderSprite(g, FGColor, BGColor));
        ++FSpriteCount;
        sp = &e.Sprites.back();
    }
    if (sp->Direct) {
        TCanvasStateGuard guard(Canvas);
        DrawSymbolAt(Canvas, X, Y, g, FGColor, BGColor);
        return;
    }
    TBitmap& bmp = Canvas.Bitmap();
    if (bmp.Width() <= 0 || bmp.Height() <= 0)
        return;
    // Row addresses are looked up once per bitmap: ScanLine costs more than copying a short run.
    std::uint32_t* const first = bmp.ScanLine(0);
    if (first != FRowsOf || bmp.Width() != FRowsWidth || static_cast<std::size_t>(bmp.Height()) != FRows.size()) {
        FRows.resize(static_cast<std::size_t>(bmp.Height()));
        for (std::int32_t y = 0; y < bmp.Height(); ++y)
            FRows[static_cast<std::size_t>(y)] = bmp.ScanLine(y);
        FRowsOf = first;
        FRowsWidth = bmp.Width();
    }
    BlitSprite(FRows.data(), FRowsWidth, bmp.Height(), X, Y, *sp);
}

}  // namespace qv
