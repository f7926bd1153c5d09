// Latitude and longitude as display text with a hemisphere letter ("48°12.500' N").
#pragma once

#include <qvgeo/support/text.h>

#include <cstdint>
#include <string>

namespace qv {

// Lat (degrees) clamped to -90..90, rendered by DegreeToStr without its sign, then " S" below 0 and
// " N" otherwise (0 is north). NaN is rendered as DegreeToStr renders it, with " N".
std::string GeoLatitude(double Lat, TDegreeFormat Format, std::int32_t Decimals);
// Long (degrees) clamped to -180..180, then " W" below 0 and " E" otherwise.
std::string GeoLongitude(double Long, TDegreeFormat Format, std::int32_t Decimals);

}  // namespace qv
