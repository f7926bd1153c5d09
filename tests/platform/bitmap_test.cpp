// TBitmap: the colour conversion, size changes, rectangle copies and the two stretch modes.
#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/colors.h>

#include <gtest/gtest.h>

using namespace qv;

namespace {

TBitmap Row(std::initializer_list<std::uint8_t> Greys)
{
    TBitmap b(static_cast<std::int32_t>(Greys.size()), 1);
    std::int32_t x = 0;
    for (std::uint8_t g : Greys)
        b.SetPixel(x++, 0, g * 0x010101u);
    return b;
}

}  // namespace

TEST(Bitmap, ColoursKeepRedInTheLowByte)
{
    EXPECT_EQ(ToQRgb(0x0000FF), 0xffff0000u);
    EXPECT_EQ(ToQRgb(0x123456), 0xff563412u);
    EXPECT_EQ(FromQRgb(0xff563412u), 0x123456u);
    TBitmap b(2, 1);
    b.SetPixel(1, 0, 0x0000FF);
    EXPECT_EQ(b.Image().pixel(1, 0), qRgb(255, 0, 0));
    EXPECT_EQ(b.Pixel(1, 0), 0x0000FFu);
    EXPECT_EQ(b.Pixel(2, 0), 0u);  // outside
}

TEST(Bitmap, SetSizeKeepsTheTopLeftAndWhitensNewPixels)
{
    TBitmap b(3, 2);
    b.Fill(0x102030);
    b.SetSize(5, 1);
    EXPECT_EQ(b.Width(), 5);
    EXPECT_EQ(b.Height(), 1);
    EXPECT_EQ(b.Pixel(2, 0), 0x102030u);
    EXPECT_EQ(b.Pixel(3, 0), 0xFFFFFFu);
    b.SetSize(-4, 7);
    EXPECT_EQ(b.Width(), 0);
}

TEST(Bitmap, CopyRectClipsBothRectangles)
{
    TBitmap src(4, 4), dst(4, 4);
    for (std::int32_t y = 0; y < 4; ++y)
        for (std::int32_t x = 0; x < 4; ++x)
            src.SetPixel(x, y, static_cast<TColor>(10 * y + x));
    dst.CopyRect(-1, 2, src, {-1, 0, 3, 3});  // the source's column -1 does not exist; dst rows 2..3 only
    EXPECT_EQ(dst.Pixel(0, 2), 0u);
    EXPECT_EQ(dst.Pixel(2, 3), 12u);
    EXPECT_EQ(dst.Pixel(3, 2), 0xFFFFFFu);
    EXPECT_EQ(dst.Pixel(0, 1), 0xFFFFFFu);
    // Copying within one bitmap reads the pixels as they were before.
    src.CopyRect(1, 0, src, {0, 0, 3, 1});
    EXPECT_EQ(src.Pixel(1, 0), 0u);
    EXPECT_EQ(src.Pixel(3, 0), 2u);
}

TEST(Bitmap, StretchAveragesOrDropsPixels)
{
    TBitmap checker(2, 2);  // white on the diagonal, black off it
    checker.SetPixel(1, 0, 0x000000);
    checker.SetPixel(0, 1, 0x000000);
    TBitmap one(1, 1);
    one.StretchRect({0, 0, 1, 1}, checker, {0, 0, 2, 2}, smHalftone);
    EXPECT_EQ(one.Pixel(0, 0), 0x808080u);  // 127.5 rounds up
    one.StretchRect({0, 0, 1, 1}, checker, {0, 0, 2, 2}, smColorOnColor);
    EXPECT_EQ(one.Pixel(0, 0), 0xFFFFFFu);  // the pixel under the centre, (1, 1)

    struct Case { TBitmap Src; std::int32_t Dw; TStretchMode Mode; std::vector<std::uint8_t> Out; };
    const Case cases[] = {
        {Row({0, 90, 180}), 2, smHalftone, {30, 150}},  // (0 + 90 / 2) / 1.5 and (90 / 2 + 180) / 1.5
        {Row({0, 0, 255, 255}), 2, smHalftone, {0, 255}},
        {Row({0, 100}), 4, smHalftone, {0, 0, 100, 100}},
        {Row({0, 100}), 3, smHalftone, {0, 50, 100}},
        {Row({10, 20, 30, 40, 50, 60}), 3, smColorOnColor, {20, 40, 60}},
        {Row({10, 20}), 5, smColorOnColor, {10, 10, 20, 20, 20}},  // centre 2.5 / 5 on the border: right
    };
    for (const Case& c : cases) {
        TBitmap d(c.Dw, 1);
        d.StretchRect({0, 0, c.Dw, 1}, c.Src, {0, 0, c.Src.Width(), 1}, c.Mode);
        for (std::int32_t x = 0; x < c.Dw; ++x)
            EXPECT_EQ(d.Pixel(x, 0), c.Out[static_cast<std::size_t>(x)] * 0x010101u) << x << " of " << c.Dw;
    }
}

TEST(Bitmap, StretchIntoAPartlyVisibleRectangleMatchesTheWholeStretch)
{
    TBitmap src(37, 23);
    for (std::int32_t y = 0; y < 23; ++y)
        for (std::int32_t x = 0; x < 37; ++x)
            src.SetPixel(x, y, static_cast<TColor>((x * 7) | (y * 11) << 8 | ((x * y) & 0xff) << 16));
    for (TStretchMode mode : {smHalftone, smColorOnColor}) {
        TBitmap whole(50, 40), part(45, 35);
        whole.StretchRect({0, 0, 50, 40}, src, {2, 1, 35, 22}, mode);
        part.StretchRect({-12, -9, 38, 31}, src, {2, 1, 35, 22}, mode);
        for (std::int32_t y = 0; y < 31; ++y)
            for (std::int32_t x = 0; x < 38; ++x)
                ASSERT_EQ(part.Pixel(x, y), whole.Pixel(x + 12, y + 9)) << int(mode) << ": " << x << "," << y;
        EXPECT_EQ(part.Pixel(38, 0), 0xFFFFFFu);  // beyond the destination rectangle: untouched
        EXPECT_EQ(part.Pixel(0, 31), 0xFFFFFFu);
    }
    // Source pixels beyond the bitmap read as the nearest edge pixel.
    TBitmap d(3, 1);
    d.StretchRect({0, 0, 3, 1}, Row({40, 80}), {-1, 0, 2, 1}, smColorOnColor);
    EXPECT_EQ(d.Pixel(0, 0), 40 * 0x010101u);
}
