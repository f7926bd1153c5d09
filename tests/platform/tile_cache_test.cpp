// The tile cache and the in-memory pyramid as image sources: windows assembled from tiles are the
// source's own pixels (white beyond the level), tiles are read once while held, the least recently used go
// first and the bytes held never pass the bound.
#include "../mapview/tiled_picture.h"

#include <qvgeo/platform/tile_cache.h>

#include <gtest/gtest.h>

#include <tuple>

namespace qv {
namespace {

using test::TCountingSource;

bool SamePixels(const TBitmap& A, const TBitmap& B)
{
    if (A.Width() != B.Width() || A.Height() != B.Height())
        return false;
    for (std::int32_t y = 0; y < A.Height(); ++y)
        for (std::int32_t x = 0; x < A.Width(); ++x)
            if (A.Pixel(x, y) != B.Pixel(x, y))
                return false;
    return true;
}

TEST(TileCache, WindowsAreTheSourcesPixelsWhiteBeyondTheLevel)
{
    auto source = std::make_shared<TCountingSource>(test::FormulaPicture(300, 170), 3);
    TTileCache cache(source, 32);
    EXPECT_EQ(std::tuple(cache.Size().cx, cache.LevelCount(), cache.LevelSize(2).cx, cache.LevelScale(1)),
              std::tuple(300, 3, 75, 2.0));
    const struct { int level; TRect window; } cases[] = {
        {0, {0, 0, 300, 170}},     // the whole level: edge tiles cut at 300 and 170
        {0, {31, 31, 33, 33}},     // four tiles meet
        {0, {-10, -5, 40, 20}},    // beyond the top-left corner
        {0, {290, 160, 330, 200}}, // beyond the bottom-right corner
        {0, {400, 10, 420, 30}},   // wholly outside: white
        {1, {10, 20, 150, 85}},
        {2, {70, 40, 80, 50}},
    };
    for (const auto& c : cases) {
        const TBitmap got = cache.ReadWindow(c.level, c.window);
        TBitmap expected(c.window.Width(), c.window.Height());
        for (int y = 0; y < expected.Height(); ++y)
            for (int x = 0; x < expected.Width(); ++x) {
                const int lx = c.window.Left + x, ly = c.window.Top + y;
                const TBitmap& level = source->Level(c.level);
                if (lx >= 0 && ly >= 0 && lx < level.Width() && ly < level.Height())
                    expected.SetPixel(x, y, level.Pixel(lx, ly));
            }
        EXPECT_TRUE(SamePixels(got, expected)) << c.level << " " << c.window.Left << " " << c.window.Top;
    }
    // The whole of level 0 is 10 x 6 tiles, each read once however often it was used since.
    EXPECT_EQ(std::tuple(cache.Holds(0, 9, 5), cache.Holds(0, 10, 5)), std::tuple(true, false));
}

TEST(TileCache, TheLeastRecentlyUsedTilesGoAndTheBoundHolds)
{
    auto source = std::make_shared<TCountingSource>(test::FormulaPicture(256, 256), 1);
    // Three 64 x 64 tiles of 16 KiB fit, the fourth does not.
    TTileCache cache(source, 64, 3 * 64 * 64 * 4 + 100);
    auto tile = [&](int Col, int Row) { cache.ReadWindow(0, {Col * 64 + 1, Row * 64 + 1, Col * 64 + 2, Row * 64 + 2}); };
    tile(0, 0), tile(1, 0), tile(2, 0);
    EXPECT_EQ(std::tuple(cache.TileCount(), cache.Bytes(), cache.TilesRead()), std::tuple(3u, 3 * 16384, 3u));
    tile(0, 0);  // used again: now the most recent, and not read again
    EXPECT_EQ(cache.TilesRead(), 3u);
    tile(3, 0);  // room for it: (1, 0), the least recently used, goes
    EXPECT_EQ(std::tuple(cache.Holds(0, 0, 0), cache.Holds(0, 1, 0), cache.Holds(0, 2, 0), cache.Holds(0, 3, 0)),
              std::tuple(true, false, true, true));
    tile(1, 0);  // read again
    EXPECT_EQ(cache.TilesRead(), 5u);
    EXPECT_FALSE(cache.Holds(0, 2, 0));
    // A window larger than the bound still comes back whole; the cache keeps within its bound meanwhile.
    const TBitmap all = cache.ReadWindow(0, {0, 0, 256, 256});
    EXPECT_TRUE(SamePixels(all, source->Level(0)));
    EXPECT_LE(cache.Bytes(), cache.ByteLimit());
    EXPECT_EQ(cache.TileCount(), 3u);
    // A limit below one tile is raised to one tile.
    TTileCache tiny(source, 64, 10);
    EXPECT_EQ(tiny.ByteLimit(), 16384);
    tiny.ReadWindow(0, {0, 0, 200, 10});
    EXPECT_EQ(std::tuple(tiny.TileCount(), tiny.Bytes()), std::tuple(1u, 16384));
}

// A tile the source cannot read leaves nothing behind: the next read tries again.
TEST(TileCache, AFailedReadIsNotCached)
{
    struct TFailing : TCountingSource {
        using TCountingSource::TCountingSource;
        mutable int Failures = 1;
        TBitmap ReadWindow(int Level, TRect Window) const override
        {
            if (Failures > 0 && Failures--)
                throw std::runtime_error("unreadable");
            return TCountingSource::ReadWindow(Level, Window);
        }
    };
    auto source = std::make_shared<TFailing>(test::FormulaPicture(100, 100), 1);
    TTileCache cache(source, 64);
    EXPECT_THROW(cache.ReadWindow(0, {0, 0, 10, 10}), std::runtime_error);
    EXPECT_EQ(std::tuple(cache.TileCount(), cache.Bytes(), cache.TilesRead()), std::tuple(0u, 0, 0u));
    EXPECT_TRUE(SamePixels(cache.ReadWindow(0, {0, 0, 10, 10}), source->ReadWindow(0, {0, 0, 10, 10})));
}

TEST(BitmapPyramid, LevelsAreExactHalvingsSharedNotCopied)
{
    const TBitmap picture = test::FormulaPicture(201, 99);
    const TBitmap l1 = HalveBitmap(picture), l2 = HalveBitmap(l1);
    const TBitmapPyramid p(picture, {l1, l2, TBitmap(), TBitmap(5, 5)});  // the list ends at the empty one
    EXPECT_EQ(std::tuple(p.LevelCount(), p.LevelSize(1).cx, p.LevelSize(1).cy, p.LevelSize(2).cx, p.LevelSize(3).cx),
              std::tuple(3, 101, 50, 51, 0));
    // A level pixel covers exactly 2^k picture pixels, though 201 / 101 is not 2.
    EXPECT_EQ(std::tuple(p.LevelScale(0), p.LevelScale(1), p.LevelScaleY(2)), std::tuple(1.0, 2.0, 4.0));
    // The last column averages the one picture column there is; a pixel is the rounded mean of its block.
    const auto mean = [&](int X, int Y, int Shift) {
        const int s = (picture.Pixel(2 * X, 2 * Y) >> Shift & 255) + (picture.Pixel(2 * X + 1, 2 * Y) >> Shift & 255) +
                      (picture.Pixel(2 * X, 2 * Y + 1) >> Shift & 255) + (picture.Pixel(2 * X + 1, 2 * Y + 1) >> Shift & 255);
        return (s + 2) / 4;
    };
    for (int shift : {0, 8, 16})
        EXPECT_EQ(static_cast<int>(l1.Pixel(17, 23) >> shift & 255), mean(17, 23, shift));
    EXPECT_EQ(l1.Pixel(100, 0) & 0xFF, ((picture.Pixel(200, 0) & 0xFF) * 2 + (picture.Pixel(200, 1) & 0xFF) * 2 + 2) / 4);
    // The whole level shares its pixels; a part is copied.
    EXPECT_EQ(p.ReadWindow(1, {0, 0, 101, 50}).Image().constBits(), l1.Image().constBits());
    EXPECT_EQ(p.ReadWindow(1, {99, 48, 103, 52}).Pixel(3, 3), 0xFFFFFFu);
    EXPECT_EQ(p.ReadWindow(1, {99, 48, 103, 52}).Pixel(1, 1), l1.Pixel(100, 49));
}

}  // namespace
}  // namespace qv
