#include <qvgeo/geodb/geo_text.h>

#include <algorithm>
#include <cmath>

namespace qv {

namespace {
std::string WithHemisphere(double Value, double Limit, TDegreeFormat Format, std::int32_t Decimals,
                           const char* Negative, const char* Positive)
{
    // std::clamp would pass NaN through unchanged, which is what we want here.
    const double v = std::isnan(Value) ? Value : std::clamp(Value, -Limit, Limit);
    std::string text = DegreeToStr(std::fabs(v), Format, Decimals);
    text += v < 0 ? Negative : Positive;
    return text;
}
}  // namespace

std::string GeoLatitude(double Lat, TDegreeFormat Format, std::int32_t Decimals)
{
    return WithHemisphere(Lat, 90.0, Format, Decimals, " S", " N");
}

std::string GeoLongitude(double Long, TDegreeFormat Format, std::int32_t Decimals)
{
    return WithHemisphere(Long, 180.0, Format, Decimals, " W", " E");
}

}  // namespace qv
