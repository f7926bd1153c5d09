// A picture for the tiled-map tests: made from a formula (no file), kept in memory with its halved copies
// exactly as the map image keeps those of a large picture, and read by window through the TImageSource
// interface while counting and recording every read, so that a test can compare a tiled map with the same
// picture held whole and see which windows a view asked for.
#pragma once

#include <qvgeo/platform/bitmap_pyramid.h>
#include <qvgeo/platform/image_source.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qv::test {

// Colours that change at every pixel both ways (so that a window or a stretch placed one pixel off shows)
// and have broad gradients (so that averaging matters).
inline TBitmap FormulaPicture(std::int32_t W, std::int32_t H)
{
    TBitmap b(W, H);
    for (std::int32_t y = 0; y < H; ++y) {
        std::uint32_t* row = b.ScanLine(y);
        for (std::int32_t x = 0; x < W; ++x) {
            const std::uint32_t r = static_cast<std::uint32_t>(x * 255 / (W - 1));
            const std::uint32_t g = static_cast<std::uint32_t>(y * 255 / (H - 1));
            const std::uint32_t bl = static_cast<std::uint32_t>((x * 7 + y * 13 + (x ^ y) * 3) & 0xFF);
            row[x] = 0xFF000000u | r << 16 | g << 8 | bl;
        }
    }
    return b;
}

// The picture and Levels - 1 halved copies (as the map image makes them), read by window.
class TCountingSource : public TImageSource {
public:
    TCountingSource(TBitmap Picture, int Levels)
    {
        std::vector<TBitmap> halved;
        TBitmap from = Picture;
        for (int k = 1; k < Levels; ++k) {
            from = HalveBitmap(from);
            halved.push_back(from);
        }
        FPyramid = std::make_unique<TBitmapPyramid>(std::move(Picture), halved);
    }
    TSize Size() const override { return FPyramid->Size(); }
    int LevelCount() const override { return FPyramid->LevelCount(); }
    TSize LevelSize(int Level) const override { return FPyramid->LevelSize(Level); }
    double LevelScale(int Level) const override { return FPyramid->LevelScale(Level); }
    double LevelScaleY(int Level) const override { return FPyramid->LevelScaleY(Level); }
    std::string FormatName() const override { return "formula"; }
    TBitmap ReadWindow(int Level, TRect Window) const override
    {
        Reads.push_back({Level, Window});
        // A copy of its own, as a file reader makes: nothing shares the level's pixels.
        TBitmap b = FPyramid->ReadWindow(Level, Window);
        return TBitmap(b.Image().copy());
    }

    // The bitmaps of the levels (level 0 is the picture).
    const TBitmap& Level(int Level) const { return FPyramid->Level(Level); }
    struct TRead {
        int Level;
        TRect Window;
    };
    mutable std::vector<TRead> Reads;

private:
    std::unique_ptr<TBitmapPyramid> FPyramid;
};

}  // namespace qv::test
