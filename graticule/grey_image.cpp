#include <qvgeo/graticule/grey_image.h>

namespace qv {

TGreyBuffer GreyFromRgb32(const std::uint32_t* Pixels, std::int32_t Width, std::int32_t Height,
                          std::ptrdiff_t StrideWords)
{
    TGreyBuffer g;
    if (!Pixels || Width <= 0 || Height <= 0 || StrideWords < Width)
        return g;
    g.Width = Width;
    g.Height = Height;
    g.Pixels.resize(static_cast<std::size_t>(Width) * static_cast<std::size_t>(Height));
    for (std::int32_t y = 0; y < Height; ++y) {
        const std::uint32_t* row = Pixels + y * StrideWords;
        std::uint8_t* out = g.Pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(Width);
        for (std::int32_t x = 0; x < Width; ++x) {
            const std::uint32_t p = row[x];
            // Fixed-point luma, weights summing to 1024, rounded.
            const std::uint32_t v = (306u * ((p >> 16) & 0xffu) + 601u * ((p >> 8) & 0xffu) + 117u * (p & 0xffu) + 512u) >> 10;
            out[x] = static_cast<std::uint8_t>(v > 255u ? 255u : v);
        }
    }
    return g;
}

}  // namespace qv
