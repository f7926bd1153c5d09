// DrawFrame: the colour of each ring's top-left and bottom-right parts for every style.
#include <qvgeo/platform/frame.h>

#include <gtest/gtest.h>

using namespace qv;

TEST(Frame, EachStyleColoursItsRings)
{
    constexpr TColor W = 0xFFFFFF, S = 0xC0C0C0, G = 0x808080, K = 0x000000, none = 0x00FF00;
    struct Case { TFrameStyle Style; TColor OuterTL, OuterBR, InnerTL, InnerBR; };
    const Case cases[] = {
        {fsNone, none, none, none, none},     {fsLowered, G, W, K, S},      {fsRaised, S, K, W, G},
        {fsFlat, K, K, none, none},           {fsSingleLowered, G, W, none, none},
        {fsSingleRaised, W, G, none, none},   {fsEtched, G, W, W, G},       {fsBump, W, G, G, W},
    };
    for (const Case& c : cases) {
        TBitmap b(12, 9);  // the control's client rectangle: (0, 0) - (11, 8)
        b.Fill(none);
        b.Canvas().Pen.Color = 0x123456;
        DrawFrame(b.Canvas(), c.Style, 0, 0, 11, 8, W, S, G, K);
        EXPECT_EQ(b.Canvas().Pen.Color, 0x123456u);
        // ring i: top-left part (top row but its right end, left column but its bottom end) and the rest
        for (int i = 0; i < 2; ++i) {
            const TColor tl = i == 0 ? c.OuterTL : c.InnerTL, br = i == 0 ? c.OuterBR : c.InnerBR;
            const std::int32_t l = i, t = i, r = 11 - i, bt = 8 - i;
            for (std::int32_t x = l; x < r; ++x) {
                EXPECT_EQ(b.Pixel(x, t), tl) << int(c.Style) << " ring " << i << " top " << x;
                EXPECT_EQ(b.Pixel(x + 1, bt), br) << int(c.Style) << " ring " << i << " bottom " << x + 1;
            }
            for (std::int32_t y = t; y < bt; ++y) {
                EXPECT_EQ(b.Pixel(l, y), tl) << int(c.Style) << " ring " << i << " left " << y;
                EXPECT_EQ(b.Pixel(r, y + 1), br) << int(c.Style) << " ring " << i << " right " << y + 1;
            }
            EXPECT_EQ(b.Pixel(r, t), br) << int(c.Style);
            EXPECT_EQ(b.Pixel(l, bt), br) << int(c.Style);
        }
        for (std::int32_t y = 2; y < 7; ++y)
            for (std::int32_t x = 2; x < 10; ++x)
                ASSERT_EQ(b.Pixel(x, y), none);
    }
}
