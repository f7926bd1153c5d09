// TCanvas pixel rules: lines without their end point, patterns, exclusive-or, rectangles, ellipses,
// polygons and text, checked pixel by pixel on small bitmaps.
#include <qvgeo/platform/canvas.h>
#include <qvgeo/platform/colors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace qv;

namespace {

constexpr TColor kWhite = 0xFFFFFF, kBlack = 0x000000, kRed = 0x0000FF;

// Pixels of colour C, row by row.
std::vector<TPoint> PixelsOf(const TBitmap& B, TColor C)
{
    std::vector<TPoint> out;
    for (std::int32_t y = 0; y < B.Height(); ++y)
        for (std::int32_t x = 0; x < B.Width(); ++x)
            if (B.Pixel(x, y) == C)
                out.push_back({x, y});
    return out;
}

std::vector<TPoint> Sorted(std::vector<TPoint> P)
{
    std::sort(P.begin(), P.end(), [](TPoint a, TPoint b) { return a.Y != b.Y ? a.Y < b.Y : a.X < b.X; });
    return P;
}

}  // namespace

TEST(Canvas, LineToLeavesOutItsEndPointInEveryDirection)
{
    struct Case { TPoint A, B; std::vector<TPoint> Pixels; };
    const Case cases[] = {
        {{2, 5}, {6, 5}, {{2, 5}, {3, 5}, {4, 5}, {5, 5}}},
        {{6, 5}, {2, 5}, {{6, 5}, {5, 5}, {4, 5}, {3, 5}}},
        {{3, 1}, {3, 4}, {{3, 1}, {3, 2}, {3, 3}}},
        {{3, 4}, {3, 1}, {{3, 4}, {3, 3}, {3, 2}}},
        {{4, 4}, {1, 1}, {{4, 4}, {3, 3}, {2, 2}}},
        {{1, 4}, {4, 1}, {{1, 4}, {2, 3}, {3, 2}}},
        {{0, 0}, {5, 2}, {{0, 0}, {1, 0}, {2, 1}, {3, 1}, {4, 2}}},  // nearest pixel to y = 0.4 x
        {{5, 2}, {0, 0}, {{5, 2}, {4, 2}, {3, 1}, {2, 1}, {1, 0}}},
        {{0, 0}, {2, 5}, {{0, 0}, {0, 1}, {1, 2}, {1, 3}, {2, 4}}},
        {{7, 0}, {5, 5}, {{7, 0}, {7, 1}, {6, 2}, {6, 3}, {5, 4}}},
        {{0, 0}, {4, 2}, {{0, 0}, {1, 1}, {2, 1}, {3, 2}}},  // ties (y = 0.5) go away from the start
        {{3, 3}, {3, 3}, {}},
    };
    for (const Case& c : cases) {
        TBitmap b(10, 10);
        b.Canvas().MoveTo(c.A.X, c.A.Y);
        b.Canvas().LineTo(c.B.X, c.B.Y);
        EXPECT_EQ(PixelsOf(b, kBlack), Sorted(c.Pixels)) << c.A.X << "," << c.A.Y << " -> " << c.B.X << "," << c.B.Y;
        EXPECT_EQ(b.Canvas().PenPos(), c.B);
    }
}

TEST(Canvas, LinesClippedAtTheEdgeKeepTheirPixels)
{
    // A long line mostly outside the bitmap sets the same pixels as its visible part in a larger bitmap.
    TBitmap big(400, 400), small(50, 50);
    for (TBitmap* b : {&big, &small}) {
        b->Canvas().MoveTo(-30, 60);
        b->Canvas().LineTo(370, -21);
    }
    for (std::int32_t y = 0; y < 50; ++y)
        for (std::int32_t x = 0; x < 50; ++x)
            ASSERT_EQ(small.Pixel(x, y), big.Pixel(x, y)) << x << "," << y;
    EXPECT_FALSE(PixelsOf(small, kBlack).empty());
}

TEST(Canvas, PenPatternsRunOnAcrossLineToAndRestartAtMoveTo)
{
    struct Case { TPenStyle Style; std::vector<std::int32_t> Row0, Row1; };
    const Case cases[] = {
        {psDot, {0, 2, 4, 6, 8, 10}, {0, 2}},
        {psDash, {0, 1, 2, 3, 4, 5, 9, 10}, {0, 1, 2}},
        {psClear, {}, {}},
    };
    for (const Case& c : cases) {
        TBitmap b(12, 2);
        b.Canvas().Pen.Style = c.Style;
        b.Canvas().MoveTo(0, 0);
        b.Canvas().LineTo(3, 0);  // the pattern continues into the next segment
        b.Canvas().LineTo(11, 0);
        b.Canvas().MoveTo(0, 1);  // and starts again here
        b.Canvas().LineTo(3, 1);
        std::vector<std::int32_t> rows[2];
        for (const TPoint& p : PixelsOf(b, kBlack))
            rows[p.Y].push_back(p.X);
        EXPECT_EQ(rows[0], c.Row0) << int(c.Style);
        EXPECT_EQ(rows[1], c.Row1) << int(c.Style);
    }
}

TEST(Canvas, ExclusiveOrTwiceRestoresTheImage)
{
    TBitmap b(40, 30);
    for (std::int32_t y = 0; y < 30; ++y)
        for (std::int32_t x = 0; x < 40; ++x)
            b.SetPixel(x, y, static_cast<TColor>(x * 6 + (y * 8 << 8) + ((x ^ y) << 17)));
    const TBitmap original = b;
    TCanvas& c = b.Canvas();
    c.Pen.Mode = pmXor;
    c.Pen.Color = 0xFFFFFF;
    c.Brush.Color = 0x3060A0;
    const TPoint poly[] = {{5, 5}, {30, 8}, {12, 25}, {5, 5}, {35, 28}};
    auto drawAll = [&] {
        c.MoveTo(1, 1);
        c.LineTo(38, 20);
        c.LineTo(3, 28);
        c.LineTo(1, 1);
        c.Rectangle(4, 4, 20, 15);
        c.Rectangle(22, 3, 23, 12);  // one pixel wide
        c.Ellipse(10, 10, 31, 26);
        c.Polygon(poly);
    };
    drawAll();
    EXPECT_EQ(b.ScanLine(1)[1], original.ScanLine(1)[1] ^ 0x00FFFFFFu);  // a white pen inverts, alpha stays
    drawAll();
    EXPECT_EQ(b.Image(), original.Image());
}

TEST(Canvas, RectangleExcludesRightAndBottomEdges)
{
    TBitmap b(10, 10);
    b.Canvas().Brush.Color = kRed;
    b.Canvas().Rectangle(2, 3, 7, 6);
    const std::vector<TPoint> outline = {{2, 3}, {3, 3}, {4, 3}, {5, 3}, {6, 3}, {2, 4}, {6, 4},
                                         {2, 5}, {3, 5}, {4, 5}, {5, 5}, {6, 5}};
    EXPECT_EQ(PixelsOf(b, kBlack), outline);
    EXPECT_EQ(PixelsOf(b, kRed), (std::vector<TPoint>{{3, 4}, {4, 4}, {5, 4}}));
    // FillRect covers the same box with the brush only; a clear brush leaves the inside alone.
    TBitmap f(10, 10);
    f.Canvas().Brush.Color = kRed;
    f.Canvas().FillRect({2, 3, 7, 6});
    EXPECT_EQ(PixelsOf(f, kRed).size(), 15u);
    f.Canvas().Brush.Style = bsClear;
    f.Canvas().Rectangle(0, 0, 10, 10);
    EXPECT_EQ(PixelsOf(f, kRed).size(), 15u);
    EXPECT_EQ(PixelsOf(f, kBlack).size(), 36u);
}

TEST(Canvas, EllipseIsSymmetricFillsItsBoxAndHasAClosedOutline)
{
    const TRect boxes[] = {{2, 2, 4, 4}, {1, 1, 6, 6}, {3, 2, 20, 9}, {0, 0, 24, 24}, {5, 1, 6, 12}, {2, 4, 17, 5}};
    for (const TRect& r : boxes) {
        TBitmap b(30, 30);
        b.Canvas().Brush.Color = kRed;
        b.Canvas().Ellipse(r.Left, r.Top, r.Right, r.Bottom);
        std::int32_t minX = 99, maxX = -1, minY = 99, maxY = -1;
        for (std::int32_t y = 0; y < 30; ++y) {
            for (std::int32_t x = 0; x < 30; ++x) {
                const TColor c = b.Pixel(x, y);
                const TColor mx = b.Pixel(r.Left + r.Right - 1 - x, y), my = b.Pixel(x, r.Top + r.Bottom - 1 - y);
                if (c == kWhite)
                    continue;
                ASSERT_TRUE(x >= r.Left && x < r.Right && y >= r.Top && y < r.Bottom);
                ASSERT_EQ(c, mx) << x << "," << y;
                ASSERT_EQ(c, my) << x << "," << y;
                minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
                if (c != kRed)
                    continue;
                for (const auto& [dx, dy] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}})  // outline closed
                    ASSERT_NE(b.Pixel(x + dx, y + dy), kWhite) << x << "," << y;
            }
        }
        EXPECT_EQ(TRect({minX, minY, maxX + 1, maxY + 1}), r);
    }
    // The 4 x 4 box: a centre (x + 0.5, y + 0.5) inside the inscribed circle, corners out.
    TBitmap b(6, 6);
    b.Canvas().Brush.Color = kRed;
    b.Canvas().Ellipse(1, 1, 5, 5);
    EXPECT_EQ(PixelsOf(b, kBlack).size(), 8u);
    EXPECT_EQ(PixelsOf(b, kRed), (std::vector<TPoint>{{2, 2}, {3, 2}, {2, 3}, {3, 3}}));
    EXPECT_EQ(b.Pixel(1, 1), kWhite);
}

TEST(Canvas, PolygonFillsPixelsWhoseCentreIsInside)
{
    TBitmap b(8, 8);
    b.Canvas().Pen.Style = psClear;
    b.Canvas().Brush.Color = kRed;
    const TPoint tri[] = {{0, 0}, {4, 0}, {0, 4}};
    b.Canvas().Polygon(tri);
    const std::vector<TPoint> inside = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {0, 1}, {1, 1}, {2, 1}, {0, 2}, {1, 2}, {0, 3}};
    EXPECT_EQ(PixelsOf(b, kRed), inside);
    // With the pen, the outline is drawn over the fill: the closed path through the three vertices.
    b.Canvas().Pen.Style = psSolid;
    b.Fill(kWhite);
    b.Canvas().Polygon(tri);
    EXPECT_EQ(PixelsOf(b, kBlack).size(), 12u);
    EXPECT_EQ(PixelsOf(b, kRed), (std::vector<TPoint>{{1, 1}, {2, 1}, {1, 2}}));
    // A diamond: rows through a vertex are cut once per side, so its area is exactly 2 * 4 * 4.
    const TPoint diamond[] = {{4, 0}, {8, 4}, {4, 8}, {0, 4}};
    TBitmap d(9, 9);
    d.Canvas().Pen.Style = psClear;
    d.Canvas().Brush.Color = kRed;
    d.Canvas().Polygon(diamond);
    EXPECT_EQ(PixelsOf(d, kRed).size(), 32u);
    EXPECT_EQ(d.Pixel(0, 4), kRed);
    EXPECT_EQ(d.Pixel(8, 4), kWhite);
    // A rectangle as a polygon with a clear pen covers the rectangle's pixels exactly.
    TBitmap p(10, 10), q(10, 10);
    p.Canvas().Pen.Style = q.Canvas().Pen.Style = psClear;
    p.Canvas().Brush.Color = q.Canvas().Brush.Color = kRed;
    const TPoint box[] = {{2, 3}, {7, 3}, {7, 6}, {2, 6}};
    p.Canvas().Polygon(box);
    q.Canvas().Rectangle(2, 3, 7, 6);
    EXPECT_EQ(p.Image(), q.Image());
}

TEST(Canvas, TextHasAnExtentAndRotatesAboutItsTopLeftCorner)
{
    TBitmap b(120, 120);
    TCanvas& c = b.Canvas();
    c.Brush.Style = bsClear;
    const TSize ext = c.TextExtent("Graticule");
    ASSERT_GT(ext.cx, 20);
    ASSERT_GT(ext.cy, 5);
    c.Font.Style.Include(fsBold);
    EXPECT_GT(c.TextWidth("Graticule"), ext.cx);
    c.Font.Style = {};
    struct Case { std::int32_t Orientation; TRect Box; };
    const Case cases[] = {
        {0, {20, 20, 20 + ext.cx, 20 + ext.cy}},
        {900, {60, 60 - ext.cx, 60 + ext.cy, 61}},  // 90 degrees counter-clockwise: reads upwards
    };
    for (const Case& k : cases) {
        b.Fill(kWhite);
        c.Font.Orientation = k.Orientation;
        const std::int32_t at = k.Orientation == 0 ? 20 : 60;
        c.TextOut(at, at, "Graticule");
        const std::vector<TPoint> ink = PixelsOf(b, kBlack);
        ASSERT_GT(ink.size(), 30u) << k.Orientation;
        for (const TPoint& p : ink)
            ASSERT_TRUE(p.X >= k.Box.Left - 1 && p.X <= k.Box.Right && p.Y >= k.Box.Top - 1 && p.Y <= k.Box.Bottom)
                << k.Orientation << ": " << p.X << "," << p.Y;
        EXPECT_EQ(ink.size() + PixelsOf(b, kWhite).size(), 120u * 120u);  // no grey: never smoothed
    }
    // A solid brush paints the text's background box.
    b.Fill(kWhite);
    c.Font.Orientation = 0;
    c.Brush = {kRed, bsSolid};
    c.TextOut(5, 5, "ab");
    const TSize ab = c.TextExtent("ab");
    EXPECT_EQ(PixelsOf(b, kRed).size() + PixelsOf(b, kBlack).size(), static_cast<std::size_t>(ab.cx * ab.cy));
}
