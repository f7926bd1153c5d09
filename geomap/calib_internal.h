// Arithmetic helpers shared by the calibration sources (not installed API): the 32-bit wrapping products
// that the pixel formulas keep, and rounding of computed pixels to integers.
#pragma once

#include <qvgeo/support/math_services.h>

#include <cmath>
#include <cstdint>

namespace qv::calib_detail {

// a·b in 32-bit signed arithmetic with wrap-around. The fits and transforms form x², y² and x·y of pixel
// coordinates this way, so values beyond 46340 wrap exactly as the file format's producers computed them.
inline std::int32_t WrapMul(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

inline std::int32_t WrapSub(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

// Nearest integer, ties to even. False (Result untouched) when v is not finite or the rounded value does
// not fit in 32 bits: converting such a double to an integer would be undefined.
inline bool RoundPixel(double v, std::int32_t& Result)
{
    const double r = std::nearbyint(v);
    if (!(r >= -2147483648.0 && r <= 2147483647.0))
        return false;
    Result = static_cast<std::int32_t>(r);
    return true;
}

// As RoundPixel for functions that must return an integer: NaN gives 0, out-of-range values saturate.
inline std::int32_t RoundPixelSaturated(double v) { return RoundSaturated(v); }

}  // namespace qv::calib_detail
