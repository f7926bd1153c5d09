#include <qvgeo/support/line_clip.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace qv {

bool TSLine::LineFrom2Points(double x1, double y1, double x2, double y2)
{
    FX0 = x1;
    FY0 = y1;
    FDX = x2 - x1;
    FDY = y2 - y1;
    FDefined = (FDX != 0.0 || FDY != 0.0);
    return FDefined;
}

bool TSLine::ClipBox(double Left, double Top, double Right, double Bottom,
                     double& X1, double& Y1, double& X2, double& Y2) const
{
    if (!FDefined)
        return false;
    const double xmin = std::min(Left, Right), xmax = std::max(Left, Right);
    const double ymin = std::min(Top, Bottom), ymax = std::max(Top, Bottom);
    // Parametric clipping of P(t) = P0 + t*D against the four slabs (Liang–Barsky on an infinite line).
    double tLow = -std::numeric_limits<double>::infinity();
    double tHigh = std::numeric_limits<double>::infinity();
    auto slab = [&](double p0, double d, double lo, double hi) {
        if (d == 0.0)
            return p0 >= lo && p0 <= hi;
        double t1 = (lo - p0) / d, t2 = (hi - p0) / d;
        if (t1 > t2)
            std::swap(t1, t2);
        tLow = std::max(tLow, t1);
        tHigh = std::min(tHigh, t2);
        return true;
    };
    if (!slab(FX0, FDX, xmin, xmax) || !slab(FY0, FDY, ymin, ymax) || tLow > tHigh)
        return false;
    // Evaluate at the parameters, then pin to the box so rounding never puts an end point outside it.
    X1 = std::clamp(FX0 + tLow * FDX, xmin, xmax);
    Y1 = std::clamp(FY0 + tLow * FDY, ymin, ymax);
    X2 = std::clamp(FX0 + tHigh * FDX, xmin, xmax);
    Y2 = std::clamp(FY0 + tHigh * FDY, ymin, ymax);
    return true;
}

}  // namespace qv
