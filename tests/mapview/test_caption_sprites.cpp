// Landmark captions: placement of the turned text box, and the sprite cache against direct drawing.
#include <qvgeo/mapview/caption_sprites.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace qv;

TLMTextProperties Caption(const char* Text, int Direction, THorzAlignment H, TVerticalAlignment V, bool Transparent,
                          int dx = 0, int dy = 0)
{
    TLMTextProperties c;
    c.Text = Text, c.Size = 9, c.FontName = "DejaVu Sans", c.FGColor = 0x0000FF, c.BGColor = 0xFFFF00;
    c.Transparent = Transparent, c.Direction = Direction, c.HAlignment = H, c.VAlignment = V, c.dx = dx, c.dy = dy;
    return c;
}

// A background that no caption colour matches, different in every pixel of a row.
TBitmap Background(int W, int H)
{
    TBitmap b(W, H);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            b.SetPixel(x, y, 0x204060u + TColor((x * 3 + y * 5) & 0x1F));
    return b;
}

TRect ChangedBox(const TBitmap& A, const TBitmap& B)
{
    TRect r{1 << 20, 1 << 20, -(1 << 20), -(1 << 20)};
    for (int y = 0; y < A.Height(); ++y)
        for (int x = 0; x < A.Width(); ++x)
            if (A.Pixel(x, y) != B.Pixel(x, y))
                r = {std::min(r.Left, x), std::min(r.Top, y), std::max(r.Right, x + 1), std::max(r.Bottom, y + 1)};
    return r;
}

TEST(CaptionSprites, PixelIdenticalToDirectDrawing)
{
    const struct { TLMTextProperties cap; TPoint at; } cases[] = {
        {Caption("Wien", 0, haCenter, vaTop, true, 0, 8), {100, 60}},
        {Caption("Salzburg Hbf", 0, haLeftJustify, vaBottom, false), {100, 60}},
        {Caption("Gipfel 3798 m", 30, haRightJustify, vaCenter, true, 5, -3), {100, 60}},
        {Caption("Brücke", 90, haCenter, vaTop, false, 0, 8), {100, 60}},
        {Caption("gjpqy ÄÖÜ", 180, haLeftJustify, vaBottom, true), {100, 60}},
        {Caption("Ost", 270, haRightJustify, vaTop, false, -4, 2), {100, 60}},
        {Caption("Nordhang", -45, haCenter, vaCenter, false), {100, 60}},
        {Caption("links abgeschnitten", 0, haCenter, vaTop, false), {3, 60}},
        {Caption("rechts unten", 20, haLeftJustify, vaTop, true), {190, 115}},
        {Caption("oben", 135, haCenter, vaBottom, false), {60, 1}},
    };
    TCaptionSpriteCache cache;
    for (const auto& c : cases) {
        TBitmap bg = Background(200, 120), direct = bg, sprite = bg;
        DrawLandMarkCaption(direct.Canvas(), c.at, c.cap);
        cache.Draw(sprite.Canvas(), c.at, c.cap);
        cache.Draw(sprite.Canvas(), c.at, c.cap);  // from the sprite now, over its own pixels
        EXPECT_FALSE(ChangedBox(bg, direct).IsEmpty()) << c.cap.Text;
        EXPECT_TRUE(ChangedBox(direct, sprite).IsEmpty()) << c.cap.Text << " at " << c.at.X << "," << c.at.Y;
        // The same sprite at other points gives the direct drawing there too, also when found through a
        // slot that another caption used before.
        for (const TPoint d : {TPoint{17, -9}, TPoint{-31, 4}, TPoint{1, 1}, TPoint{-2, 13}}) {
            TBitmap direct2 = bg, sprite2 = bg;
            DrawLandMarkCaption(direct2.Canvas(), {c.at.X + d.X, c.at.Y + d.Y}, c.cap);
            cache.Draw(sprite2.Canvas(), {c.at.X + d.X, c.at.Y + d.Y}, c.cap, 0);
            cache.Draw(sprite2.Canvas(), {c.at.X + d.X, c.at.Y + d.Y}, c.cap, 0);
            EXPECT_TRUE(ChangedBox(direct2, sprite2).IsEmpty()) << c.cap.Text << " moved by " << d.X << "," << d.Y;
        }
    }
    EXPECT_EQ(cache.SpriteCount(), 6u);  // the captions read horizontally or vertically
    EXPECT_EQ(cache.Renders(), 6u);
    // An empty caption draws nothing and is not cached.
    TBitmap bg = Background(50, 50), b = bg;
    cache.Draw(b.Canvas(), {25, 25}, Caption("", 0, haCenter, vaTop, false));
    EXPECT_TRUE(ChangedBox(bg, b).IsEmpty());
}

TEST(CaptionSprites, PlacementOfTheTurnedBox)
{
    // Opaque captions: the background box is exactly the turned text box. w x h is the text's extent;
    // (200, 200) the landmark, (dx, dy) = (6, -4), so the anchor is (206, 196).
    // A text and size with an even width and height, so that the centred cases have exact halves.
    TBitmap probe(10, 10);
    TLMTextProperties base = Caption("", 0, haLeftJustify, vaTop, false, 6, -4);
    TSize e{1, 1};
    for (int i = 0; i < 40 && (e.cx % 2 || e.cy % 2); ++i) {
        base.Text = "Anker" + std::string(std::size_t(i / 8), '1');
        base.Size = 8 + i % 8;
        SetCaptionFont(probe.Canvas(), base);
        e = probe.Canvas().TextExtent(base.Text);
    }
    const int w = e.cx, h = e.cy, ax = 206, ay = 196;
    ASSERT_GT(w, 10);
    ASSERT_TRUE(w % 2 == 0 && h % 2 == 0);
    const struct { int dir; THorzAlignment ha; TVerticalAlignment va; TRect box; } cases[] = {
        {0, haLeftJustify, vaTop, {ax, ay, ax + w, ay + h}},
        {0, haRightJustify, vaBottom, {ax - w, ay - h, ax, ay}},
        {0, haCenter, vaCenter, {ax - w / 2, ay - h / 2, ax - w / 2 + w, ay + h / 2}},
        // Reading upwards: the text's top edge faces left.
        {90, haLeftJustify, vaTop, {ax, ay - w, ax + h, ay}},
        {90, haRightJustify, vaBottom, {ax - h, ay, ax, ay + w}},
        // Upside down: the text's top-left corner is its bottom-right on screen.
        {180, haLeftJustify, vaTop, {ax - w, ay - h, ax, ay}},
        {270, haCenter, vaTop, {ax - h, ay - w / 2, ax, ay - w / 2 + w}},
        {-90, haCenter, vaTop, {ax - h, ay - w / 2, ax, ay - w / 2 + w}},
    };
    for (const auto& c : cases) {
        TLMTextProperties cap = base;
        cap.Direction = c.dir, cap.HAlignment = c.ha, cap.VAlignment = c.va;
        TBitmap bg = Background(400, 400), b = bg;
        DrawLandMarkCaption(b.Canvas(), {200, 200}, cap);
        EXPECT_EQ(ChangedBox(bg, b), c.box) << c.dir << " " << int(c.ha) << " " << int(c.va);
    }
}

}  // namespace
