// Landmark symbols against their documented pixel geometry, and the sprite cache against direct drawing.
#include <qvgeo/mapview/landmark_symbols.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace qv;

constexpr TColor White = 0xFFFFFF, FG = 0x0000FF, BG = 0x00FF00;

enum Expect : char { F = 'F', B = 'B', U = 'U' };  // foreground, background colour, untouched (white)

struct Px { int x, y; Expect e; };

struct ShapeCase {
    const char* name;
    TLandMarkElement kind;
    int x, y, size, dir, len;
    bool transparent;
    std::vector<Px> pixels;
};

// Pixels worked out by hand from the documented geometry (lines exclude their end point, rectangles their
// right and bottom edge, halos are the lines shifted by one pixel in every direction). A plus, triangle,
// circle, spade or cross drawn transparent only loses its background: it is checked as well, with every
// background pixel untouched.
const std::vector<ShapeCase> kShapes = {
    {"plus", lmPlus, 50, 50, 5, 0, 0, false,
     {{50, 45, F}, {50, 55, F}, {45, 50, F}, {55, 50, F}, {50, 50, F}, {49, 51, B}, {51, 52, B}, {50, 44, B},
      {50, 56, B}, {56, 50, B}, {44, 49, B}, {57, 50, U}, {50, 57, U}, {52, 52, U}}},
    {"square", lmSquare, 50, 50, 5, 0, 0, false,
     {{45, 45, B}, {55, 55, B}, {45, 55, B}, {55, 45, B}, {55, 50, B}, {46, 46, F}, {54, 54, F}, {50, 46, F},
      {46, 50, F}, {50, 50, B}, {53, 53, B}, {56, 50, U}, {50, 44, U}}},
    {"square transparent", lmSquare, 50, 50, 5, 0, 0, true,
     {{45, 45, F}, {55, 55, F}, {45, 55, F}, {55, 45, F}, {50, 45, F}, {50, 50, U}, {46, 46, U}, {56, 50, U}}},
    {"triangle (documented example)", lmTriangle, 50, 50, 6, 0, 0, false,
     {{50, 44, F}, {55, 53, F}, {45, 53, F}, {50, 53, F}, {50, 50, B}, {50, 43, U}, {56, 53, U}, {50, 54, U}}},
    {"triangle pointing right", lmTriangle, 50, 50, 6, 90, 0, false,
     {{56, 50, F}, {47, 55, F}, {47, 45, F}, {50, 50, B}, {57, 50, U}}},
    {"circle", lmCircle, 50, 50, 5, 0, 0, false, {{50, 50, B}, {48, 52, B}, {44, 50, U}, {56, 50, U}, {50, 56, U}}},
    {"arrow from (documented example)", lmArrowFrom, 100, 100, 5, 90, 20, false,
     {{100, 100, F}, {110, 100, F}, {120, 100, F}, {115, 98, F}, {115, 102, F}, {117, 100, B}, {121, 100, U},
      {99, 100, U}, {114, 100, F}}},
    {"arrow from transparent", lmArrowFrom, 100, 100, 5, 90, 20, true,
     {{100, 100, F}, {117, 100, F}, {120, 100, F}, {115, 98, F}, {115, 102, U}, {121, 100, U}}},
    {"arrow to", lmArrowTo, 100, 100, 5, 90, 20, false,
     {{120, 100, F}, {110, 100, F}, {100, 100, F}, {105, 102, F}, {105, 98, F}, {103, 100, B}, {121, 100, U},
      {99, 100, U}}},
    {"arrow to transparent", lmArrowTo, 100, 100, 5, 90, 20, true,
     {{120, 100, F}, {103, 100, F}, {100, 100, F}, {105, 102, F}, {105, 98, U}, {99, 100, U}}},
    {"cross box", lmCrossBox, 50, 50, 5, 0, 0, false,
     {{45, 45, B}, {55, 55, B}, {46, 46, F}, {54, 46, F}, {50, 50, F}, {48, 48, F}, {52, 48, F}, {47, 53, F},
      {53, 53, F}, {55, 54, B}, {50, 47, B}, {53, 50, B}, {56, 50, U}}},
    {"cross box transparent", lmCrossBox, 50, 50, 5, 0, 0, true,
     {{45, 45, F}, {55, 55, F}, {55, 45, F}, {45, 55, F}, {48, 48, F}, {52, 48, F}, {50, 47, U}, {46, 50, U}}},
    {"spade", lmSpade, 50, 50, 5, 0, 0, false,
     {{55, 50, F}, {50, 55, F}, {45, 50, F}, {50, 45, F}, {47, 48, F}, {50, 50, B}, {48, 50, B}, {46, 46, U},
      {56, 50, U}}},
    {"cross", lmCross, 50, 50, 5, 0, 0, false,
     {{45, 45, F}, {55, 55, F}, {45, 55, F}, {55, 45, F}, {50, 50, F}, {46, 45, B}, {51, 50, B}, {56, 56, B},
      {56, 44, B}, {44, 56, B}, {50, 47, U}, {57, 57, U}}},
    {"kind out of range: small plus", static_cast<TLandMarkElement>(42), 50, 50, 9, 0, 0, false,
     {{46, 50, F}, {54, 50, F}, {50, 46, F}, {50, 54, F}, {45, 50, U}, {55, 50, U}, {50, 55, U}, {49, 49, U}}},
};

TColor Expected(Expect e)
{
    return e == F ? FG : (e == B ? BG : White);
}

TEST(LandMarkSymbols, DocumentedGeometry)
{
    for (const ShapeCase& c : kShapes) {
        const bool haloOnly = !c.transparent && (c.kind == lmPlus || c.kind == lmTriangle || c.kind == lmCircle ||
                                                 c.kind == lmSpade || c.kind == lmCross);
        for (bool tr : {c.transparent, true}) {
            TBitmap bmp(160, 120);
            DrawLandMarkSymbolOnCanvas(bmp.Canvas(), c.x, c.y, c.kind, FG, BG, c.size, c.dir, c.len, tr);
            for (const Px& p : c.pixels)
                EXPECT_EQ(bmp.Pixel(p.x, p.y), Expected(tr && p.e == B ? U : p.e))
                    << c.name << (tr ? " transparent" : "") << " at (" << p.x << "," << p.y << ")";
            if (!haloOnly)
                break;
        }
    }
}

// Where a shape may draw at all: every changed pixel within Reach of the point (-1: nothing drawn). The
// circle's outline pixels belong to the canvas; the symbol fixes its box and its fill. Size 0 (and length
// 0) draws at most the point and its neighbours. The canvas's pen, brush and position are kept.
TEST(LandMarkSymbols, ExtentAndCanvasState)
{
    struct Case { TLandMarkElement kind; int size; bool transparent; int reach; };
    std::vector<Case> cases = {{lmCircle, 8, false, 8}, {lmCircle, 8, true, 8}, {lmUserDef, 10, false, -1}};
    for (int k = 0; k < NumLandMarkElements; ++k)
        for (bool tr : {false, true})
            cases.push_back({static_cast<TLandMarkElement>(k), 0, tr, k == lmUserDef ? -1 : 1});
    for (const Case& c : cases) {
        TBitmap bmp(41, 41);
        TCanvas& cv = bmp.Canvas();
        cv.Pen = TPen{0x123456, 1, psSolid, pmCopy};
        cv.Brush = TBrush{0x654321, bsClear};
        cv.MoveTo(3, 4);
        DrawLandMarkSymbolOnCanvas(cv, 20, 20, c.kind, FG, BG, c.size, 30, 0, c.transparent);
        int changed = 0;
        for (int y = 0; y < 41; ++y)
            for (int x = 0; x < 41; ++x)
                if (bmp.Pixel(x, y) != White) {
                    ++changed;
                    EXPECT_LE(std::max(std::abs(x - 20), std::abs(y - 20)), c.reach) << c.kind << " " << x << "," << y;
                }
        EXPECT_TRUE(cv.Pen.Color == 0x123456 && cv.Brush.Color == 0x654321 &&
                    cv.Brush.Style == bsClear && cv.PenPos() == (TPoint{3, 4})) << c.kind;
        if (c.kind == lmCircle && c.size > 0) {
            EXPECT_GT(changed, 30);
            EXPECT_EQ(bmp.Pixel(20, 20), c.transparent ? White : BG);
        }
    }
}

// A background that differs from pixel to pixel, so that a sprite copying more than the symbol covers (or
// an exclusive-or figure copied as a sprite) shows.
void Pattern(TBitmap& b)
{
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < b.Width(); ++x)
            b.SetPixel(x, y, static_cast<TColor>((x * 2654435761u) ^ (y * 40503u)) & 0xFFFFFF);
}

// The cache reproduces direct drawing pixel for pixel: every shape, filled and transparent, sizes from 0 to
// past the bitmap, directions whose vertices round differently at odd and even points, and positions
// that clip the symbol at every edge.
TEST(SymbolSpriteCache, IdenticalToDirectDrawing)
{
    const int W = 64, H = 48;
    const int sizes[] = {0, 1, 2, 3, 5, 7, 12, 40};
    const int dirs[] = {0, 30, 45, 90, 150, 200, 333, -60};
    const int lens[] = {0, 9, 25};
    const TPoint pts[] = {{31, 23}, {32, 24}, {33, 25}, {0, 0}, {-3, 20}, {62, 47}, {66, 10}, {20, -4}, {40, 50}};
    const TColor colours[][2] = {{0x0000FF, 0x00FF00}, {0x000000, 0xFFFFFF}, {0xFFFFFF, 0xFFFFFF}};
    TSymbolSpriteCache cache;
    TBitmap direct(W, H), cached(W, H), base(W, H);
    Pattern(base);
    int compared = 0;
    for (int k = 0; k <= NumLandMarkElements; ++k)
        for (bool tr : {false, true})
            for (int size : sizes)
                for (int dir : dirs)
                    for (int len : lens) {
                        const auto kind = static_cast<TLandMarkElement>(k);
                        const bool directed = kind == lmArrowFrom || kind == lmArrowTo;
                        if ((!directed && len != 0) || (!directed && kind != lmTriangle && dir != 0))
                            continue;
                        for (const TPoint& p : pts) {
                            const TColor* col = colours[(k + size) % 3];
                            direct = base;
                            cached = base;
                            DrawLandMarkSymbolOnCanvas(direct.Canvas(), p.X, p.Y, kind, col[0], col[1], size, dir,
                                                       len, tr);
                            cache.Draw(cached.Canvas(), p.X, p.Y, kind, col[0], col[1], size, dir, len, tr);
                            ASSERT_EQ(direct.Image(), cached.Image())
                                << "kind " << k << " size " << size << " dir " << dir << " len " << len
                                << (tr ? " transparent" : "") << " at " << p.X << "," << p.Y;
                            ++compared;
                        }
                    }
    EXPECT_GT(compared, 2000);
    // Exclusive-or drawing goes around the sprites: drawn twice it restores the background.
    cached = base;
    cached.Canvas().Pen.Mode = pmXor;
    for (int pass = 0; pass < 2; ++pass)
        cache.Draw(cached.Canvas(), 30, 20, lmCross, 0x00FF00, 0x0000FF, 5, 0, 0, false);
    EXPECT_EQ(cached.Image(), base.Image());
}

// A size-7 triangle pointing up has vertices at x.5 - 1e-15 below the control point; at even and odd rows
// they round to different pixels. The cache keeps one sprite per rounding.
TEST(SymbolSpriteCache, RoundingVariantsAreSeparateSprites)
{
    TBitmap a(40, 40), b(40, 40);
    DrawLandMarkSymbolOnCanvas(a.Canvas(), 20, 20, lmTriangle, FG, BG, 7, 0, 0, true);
    DrawLandMarkSymbolOnCanvas(b.Canvas(), 20, 21, lmTriangle, FG, BG, 7, 0, 0, true);
    EXPECT_EQ(a.Pixel(26, 24), FG);  // Round(3.4999999999999987 + 20) = 24 (tie to even)
    EXPECT_EQ(b.Pixel(26, 24), FG);  // Round(3.4999999999999987 + 21) = 24
    TSymbolSpriteCache cache;
    cache.Draw(a.Canvas(), 20, 20, lmTriangle, FG, BG, 7, 0, 0, true);
    cache.Draw(a.Canvas(), 10, 20, lmTriangle, FG, BG, 7, 0, 0, true);
    EXPECT_EQ(cache.SpriteCount(), 1u);
    cache.Draw(b.Canvas(), 20, 21, lmTriangle, FG, BG, 7, 0, 0, true);
    EXPECT_EQ(cache.SpriteCount(), 2u);
}

}  // namespace
