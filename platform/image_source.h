// TImageSource: a raster picture that is read by window and level instead of being held whole. The map
// view draws from one when the picture is too large to keep in memory (a scan of hundreds of megapixels),
// and the halved copies it keeps of a large picture in memory are one too.
//
// Levels: level 0 is the picture at its own size; level k (1 .. LevelCount() - 1) is a reduced copy, its
// size given by LevelSize(k). Reduced levels need not be exact halvings (a file's own overviews may be
// reduced by 3 or by 2.0004): a level pixel covers LevelScale(k) picture pixels across and LevelScaleY(k)
// down (by default the ratios of the sizes), which callers must use rather than assuming 2^k.
//
// Units: pixels of the level read, origin at its top-left corner, y down; rectangles exclude their right
// and bottom edges.
#pragma once

#include <qvgeo/platform/bitmap.h>
#include <qvgeo/support/geometry_types.h>

#include <cstdint>
#include <functional>
#include <string>

namespace qv {

// Called during a long step (decoding, building overviews) with the work done so far and the work in
// all (any unit, Done <= Total); returning false cancels the step.
using TSourceProgress = std::function<bool(std::int64_t Done, std::int64_t Total)>;

class TImageSource {
public:
    virtual ~TImageSource() = default;
    TImageSource() = default;
    TImageSource(const TImageSource&) = delete;
    TImageSource& operator=(const TImageSource&) = delete;

    // The picture's size at level 0.
    virtual TSize Size() const = 0;
    // 1 + the number of reduced levels.
    virtual int LevelCount() const = 0;
    // The size of level Level (0 .. LevelCount() - 1); level 0 is Size().
    virtual TSize LevelSize(int Level) const = 0;
    // The pixels of Window (in Level's pixels) as a bitmap of Window's size. Parts of Window outside the
    // level are white. Raises EXELImageError (platform/image_files.h) when the file cannot be read.
    virtual TBitmap ReadWindow(int Level, TRect Window) const = 0;
    // What the source reads, for messages and the viewer's status line ("JPEG", "GTiff", "memory").
    virtual std::string FormatName() const = 0;

    // Picture pixels per level pixel across (>= 1; 1 at level 0): the ratio of the widths unless the source
    // knows better. Copies made by averaging fixed blocks (2 x 2 halvings) cover exactly 2^k picture pixels
    // per level pixel, the last column reaching beyond an odd-sized picture, and say so here.
    virtual double LevelScale(int Level) const
    {
        const TSize s = LevelSize(Level);
        return s.cx > 0 ? static_cast<double>(Size().cx) / s.cx : 1.0;
    }
    // The same down the picture: the ratio of the heights unless the source knows better. A file's
    // overviews may differ across and down by a fraction of a level pixel (1001 x 333 halved to 501 x 167).
    virtual double LevelScaleY(int Level) const
    {
        const TSize s = LevelSize(Level);
        return s.cy > 0 ? static_cast<double>(Size().cy) / s.cy : 1.0;
    }
};

}  // namespace qv
