// The grey picture the graticule finder reads, made from the 0xffRRGGBB pixels every qvgeo bitmap holds.
#pragma once

#include <qvgeo/graticule/graticule_detect.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qv {

// An owned 8-bit grey image; View() lends it to DetectGraticule.
struct TGreyBuffer {
    std::int32_t Width = 0, Height = 0;
    std::vector<std::uint8_t> Pixels;
    TGreyImage View() const { return {Pixels.data(), Width, Height, Width}; }
};

// Grey from Height rows of Width 0xAARRGGBB words, StrideWords apart; weights 0.299, 0.587, 0.114
// (luma), so that a red or blue line on white stays as dark as it looks.
TGreyBuffer GreyFromRgb32(const std::uint32_t* Pixels, std::int32_t Width, std::int32_t Height,
                          std::ptrdiff_t StrideWords);

}  // namespace qv
