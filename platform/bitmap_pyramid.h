// TBitmapPyramid: a picture held in memory and its copies halved 1, 2, 3 ... times, read as a
// TImageSource. The map view keeps such copies of large pictures (a zoomed-out view reads the level with
// about a pixel per screen pixel rather than the whole picture) and draws them through the same interface
// as a file read by window.
//
// Level k's pixel (x, y) is the rounded mean of the picture's 2^k x 2^k block at (2^k x, 2^k y): its
// LevelScale is exactly 2^k both ways, also for odd sizes, where the last column or row of a level covers
// pixels beyond the picture (HalveBitmap averages only the pixels that exist there).
#pragma once

#include <qvgeo/platform/image_source.h>

#include <vector>

namespace qv {

// Source halved: each pixel the rounded mean of a 2 x 2 block (of the pixels that exist at the right and
// bottom edges of an odd size); the size is rounded up.
TBitmap HalveBitmap(const TBitmap& Source);

class TBitmapPyramid : public TImageSource {
public:
    // Picture and Halved[k - 1] as level k (Halved[i] must be Halved[i - 1] halved, Halved[0] the picture
    // halved). The bitmaps share their pixels with the caller's copies (no pixel is copied); they must not
    // be drawn into while this object lives, or the shared pixels are copied on the first write. The list
    // ends at the first empty bitmap.
    explicit TBitmapPyramid(TBitmap Picture, const std::vector<TBitmap>& Halved = {});

    TSize Size() const override { return LevelSize(0); }
    int LevelCount() const override { return static_cast<int>(FLevels.size()); }
    TSize LevelSize(int Level) const override;
    // The whole of a level comes back sharing its pixels (no copy); any other window is copied.
    TBitmap ReadWindow(int Level, TRect Window) const override;
    std::string FormatName() const override { return "memory"; }
    double LevelScale(int Level) const override;
    double LevelScaleY(int Level) const override { return LevelScale(Level); }

    // The level's bitmap itself (Level in range).
    const TBitmap& Level(int Level) const { return FLevels[static_cast<std::size_t>(Level)]; }

private:
    std::vector<TBitmap> FLevels;
};

}  // namespace qv
