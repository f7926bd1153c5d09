// TBitmapPyramid: a picture in memory and its halved copies as a TImageSource.
#include <qvgeo/platform/bitmap_pyramid.h>

#include <algorithm>
#include <cmath>

namespace qv {

TBitmap HalveBitmap(const TBitmap& Src)
{
    const std::int32_t w = Src.Width(), h = Src.Height();
    const std::int32_t hw = (w + 1) / 2, hh = (h + 1) / 2;
    TBitmap out(hw, hh);
    for (std::int32_t y = 0; y < hh; ++y) {
        const std::uint32_t* r0 = Src.ScanLine(2 * y);
        const std::uint32_t* r1 = Src.ScanLine(std::min(2 * y + 1, h - 1));
        std::uint32_t* d = out.ScanLine(y);
        for (std::int32_t x = 0; x < hw; ++x) {
            const std::int32_t x0 = 2 * x, x1 = std::min(2 * x + 1, w - 1);
            const std::uint32_t p[4] = {r0[x0], r0[x1], r1[x0], r1[x1]};
            std::uint32_t rb = 0, g = 0;
            for (std::uint32_t v : p) {
                rb += v & 0x00FF00FFu;  // red and blue side by side: 4 x 255 fits in 10 bits each
                g += v & 0x0000FF00u;
            }
            rb = ((rb + 0x00020002u) >> 2) & 0x00FF00FFu;
            g = ((g + 0x00000200u) >> 2) & 0x0000FF00u;
            d[x] = 0xFF000000u | rb | g;
        }
    }
    return out;
}

TBitmapPyramid::TBitmapPyramid(TBitmap Picture, const std::vector<TBitmap>& Halved)
{
    FLevels.push_back(std::move(Picture));
    for (const TBitmap& level : Halved) {
        if (level.Empty())
            break;
        FLevels.push_back(level);
    }
}

TSize TBitmapPyramid::LevelSize(int Level) const
{
    if (Level < 0 || Level >= LevelCount())
        return {0, 0};
    const TBitmap& b = FLevels[static_cast<std::size_t>(Level)];
    return {b.Width(), b.Height()};
}

double TBitmapPyramid::LevelScale(int Level) const
{
    return Level <= 0 ? 1.0 : std::ldexp(1.0, Level);
}

TBitmap TBitmapPyramid::ReadWindow(int Level, TRect Window) const
{
    const TSize size = LevelSize(Level);
    if (Window.Left == 0 && Window.Top == 0 && Window.Right == size.cx && Window.Bottom == size.cy)
        return FLevels[static_cast<std::size_t>(Level)];
    TBitmap out(std::max(0, Window.Width()), std::max(0, Window.Height()));
    if (out.Empty() || size.cx <= 0)
        return out;
    const TRect inside{std::max(Window.Left, 0), std::max(Window.Top, 0), std::min(Window.Right, size.cx),
                       std::min(Window.Bottom, size.cy)};
    if (!inside.IsEmpty())
        out.CopyRect(inside.Left - Window.Left, inside.Top - Window.Top, FLevels[static_cast<std::size_t>(Level)],
                     inside);
    return out;
}

}  // namespace qv
