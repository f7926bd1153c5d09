// Map pixel <-> geographic position under each calibration model (TCalibFit), the UTM grid helpers, the
// map's corner positions and resolution, and the point-in-quadrilateral test.
//
// Pixels are rounded half to even. Where the formulas square pixel coordinates (biquadratic, parabolic)
// the squares are 32-bit wrapping integer products, matching how the coefficients were fitted.
#include <qvgeo/geomap/calibration.h>

#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calib_internal.h>
#include <qvgeo/support/math_services.h>

#include <cmath>
#include <cstring>

namespace qv {

using calib_detail::RoundPixel;
using calib_detail::RoundPixelSaturated;
using calib_detail::WrapMul;

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kPiQuarter = 0.7853981633974483;
constexpr double kMillerLatInverse = 143.2394487827058;  // 2.5·180/π
constexpr double kMillerLatStretch = 1.2566370614359172;  // 0.4·π: the Miller stretch 0.4·φ in radians per 180°
constexpr double kEarthRadius = 6378000.0;                // metres, for the resolution only
constexpr double kCircumference = 40074155.889191404;     // 2π·kEarthRadius
constexpr double kHalfCircumference = 20037077.944595702;
constexpr double kFar = 1e20;

double Linear(const TLinearPars& c, double u, double v)
{
    return c[0] + c[1] * u + c[2] * v;
}

double QuadraticOfPixel(const TQuadraticPars& c, std::int32_t x, std::int32_t y)
{
    return c[0] + c[1] * x + c[2] * y + c[3] * WrapMul(x, x) + c[4] * (static_cast<double>(x) * y) +
           c[5] * WrapMul(y, y);
}

bool ValidEllipsoid(TGeoEllipsoid e)
{
    return static_cast<int>(e) < NumGeoEllipsoids;
}

template <typename Row>
double Parabola(const Row& g, std::int32_t t)
{
    return g.K0 + g.K1 * t + g.K2 * WrapMul(t, t);
}

// Nearest and second nearest rows (0-based, -1 for none) of the kind Kind by the distance Dist(row);
// ties keep the earlier row. Distances of 1e20 and beyond (or NaN) never count.
template <typename Rows, typename F>
void TwoNearest(const Rows& rows, double Kind, F Dist, int& r1, int& r2)
{
    double d1 = kFar, d2 = kFar;
    r1 = r2 = -1;
    for (int i = 0; i < static_cast<int>(rows.size()); ++i) {
        if (rows[static_cast<std::size_t>(i)].Kind != Kind)
            continue;
        const double d = Dist(rows[static_cast<std::size_t>(i)]);
        if (d < d1) {
            d2 = d1;
            r2 = r1;
            d1 = d;
            r1 = i;
        } else if (d < d2) {
            d2 = d;
            r2 = i;
        }
    }
}

}  // namespace

// ---- pixel -> geographic ------------------------------------------------------------------------------

void TCalibFit::ParabolicPosition(std::int32_t x, std::int32_t y, unsigned Want, TCoords& C, bool& ValidLat,
                                  bool& ValidLong) const
{
    if (FGratParallels < 2 || FGratMeridians < 2)
        return;
    const auto row = [this](int i) -> const TGratRow& { return FGratRows[static_cast<std::size_t>(i)]; };
    int r1 = -1, r2 = -1;
    if (Want & 1)
        TwoNearest(FGratRows, 1.0, [&](const TGratRow& g) { return std::fabs(y - Parabola(g, x)); }, r1, r2);
    if (r1 >= 0 && r2 >= 0) {
        const double y1 = Parabola(row(r1), x), y2 = Parabola(row(r2), x);
        ValidLat = true;
        C.Latit = row(r2).Value + (row(r1).Value - row(r2).Value) * (y - y2) / (y1 - y2);
    }
    r1 = r2 = -1;
    if (Want & 2)
        TwoNearest(FGratRows, 0.0, [&](const TGratRow& g) { return std::fabs(x - Parabola(g, y)); }, r1, r2);
    if (r1 >= 0 && r2 >= 0) {
        const double x1 = Parabola(row(r1), y), x2 = Parabola(row(r2), y);
        ValidLong = true;
        C.Longit = row(r2).Value + (row(r1).Value - row(r2).Value) * (x - x2) / (x1 - x2);
    }
}

// Both coordinates of pixel (x, y) by the model's formulas; an invalid coordinate is left 0.
void TCalibFit::Position(std::int32_t x, std::int32_t y, unsigned Want, TCoords& C, bool& ValidLat,
                         bool& ValidLong) const
{
    C = TCoords{};
    ValidLat = ValidLong = false;
    switch (FModel) {
    case cmParabolicIp:
        ParabolicPosition(x, y, Want, C, ValidLat, ValidLong);
        break;
    case cmBiquadraticPn:
        C = TCoords{QuadraticOfPixel(FCalParsPLSP[0], x, y), QuadraticOfPixel(FCalParsPLSP[1], x, y)};
        ValidLat = ValidLong = true;
        break;
    case cmConicConformal: {
        const double dx = x - FConicPars[0], dy = y - FConicPars[1];
        if (Want & 1)
            C.Latit = FConicPars[2] * std::sqrt(dx * dx + dy * dy) + FConicPars[3];
        // The plain arctangent of dx/dy: meridians are rays below (or above) the apex, never beside it.
        if (Want & 2)
            C.Longit = FConicPars[4] * std::atan(dx / dy) + FConicPars[5];
        ValidLat = ValidLong = true;
        break;
    }
    case cmMillerCylindrical:
        if ((Want & 1) && FMillercylPar[0] != 0.0) {
            C.Latit = (std::atan(std::exp((y - FMillercylPar[1]) / FMillercylPar[0])) - kPiQuarter) * kMillerLatInverse;
            ValidLat = true;
        }
        if ((Want & 2) && FMillercylPar[2] != 0.0) {
            C.Longit = (x - FMillercylPar[3]) / FMillercylPar[2] / kPi * 180;
            ValidLong = true;
        }
        break;
    case cmEquiRect:
        C = TCoords{Linear(FEquRectPLSP[0], x, y), Linear(FEquRectPLSP[1], x, y)};
        ValidLat = ValidLong = true;
        break;
    case cmUTM:
        if (ValidEllipsoid(FEllipsoid)) {
            // One inverse projection gives both coordinates.
            const double n = Linear(FEquRectPLSP[0], x, y);
            const double e = Linear(FEquRectPLSP[1], x, y);
            UTMToLatLong(e, n, FUTMZone, FUTMSouth, FEllipsoid, C.Latit, C.Longit);
            ValidLat = ValidLong = true;
        }
        break;
    case cmUndefined:
        break;
    }
}

bool TCalibFit::CalcPosition(TPoint P, TCoords& Result) const
{
    bool vLat = false, vLong = false;
    Position(P.X, P.Y, 3, Result, vLat, vLong);
    return vLat && vLong;
}

double TCalibFit::CalcLatitude(std::int32_t x, std::int32_t y, bool& Valid) const
{
    TCoords c;
    bool vLong = false;
    Position(x, y, 1, c, Valid, vLong);
    return c.Latit;
}

double TCalibFit::CalcLongitude(std::int32_t x, std::int32_t y, bool& Valid) const
{
    TCoords c;
    bool vLat = false;
    Position(x, y, 2, c, vLat, Valid);
    return c.Longit;
}

// ---- geographic -> pixel ------------------------------------------------------------------------------

bool TCalibFit::ParabolicPixel(double Lat, double Long, double& x, double& y) const
{
    if (FGratRows.size() < 4)
        return false;
    int m1 = 0, m2 = 0, p1 = 0, p2 = 0;
    TwoNearest(FGratRows, 0.0, [&](const TGratRow& g) { return std::fabs(Long - g.Value); }, m1, m2);
    TwoNearest(FGratRows, 1.0, [&](const TGratRow& g) { return std::fabs(Lat - g.Value); }, p1, p2);
    if (m1 < 0 || m2 < 0 || p1 < 0 || p2 < 0)
        return false;
    auto row = [this](int i) -> const TGratRow& { return FGratRows[static_cast<std::size_t>(i)]; };
    // Coefficients interpolated linearly in the value between the two nearest lines of each kind, in
    // the order (c1 − c2)·(v − v2)/(v1 − v2) that stored calibrations were evaluated with.
    auto blend = [](const TGratRow& a1, const TGratRow& a2, double v, std::array<double, 3>& K) {
        K[0] = a2.K0 + (a1.K0 - a2.K0) * (v - a2.Value) / (a1.Value - a2.Value);
        K[1] = a2.K1 + (a1.K1 - a2.K1) * (v - a2.Value) / (a1.Value - a2.Value);
        K[2] = a2.K2 + (a1.K2 - a2.K2) * (v - a2.Value) / (a1.Value - a2.Value);
    };
    std::array<double, 3> P{}, M{};
    blend(row(p1), row(p2), Lat, P);
    blend(row(m1), row(m2), Long, M);
    // Fixed-point iteration between the interpolated parallel y(x) and meridian x(y): a fixed count of
    // 15 rounds, no tolerance; a run-away iteration reports failure.
    double fx = 500.0, fy = 0.0;
    for (int it = 0; it < 15; ++it) {
        fy = P[0] + P[1] * fx + P[2] * fx * fx;
        fx = M[0] + M[1] * fy + M[2] * fy * fy;
        if (std::fabs(fx) > 50000 && std::fabs(fy) > 50000)
            return false;
    }
    x = fx;
    y = fy;
    return true;
}

namespace {

// The conic inverse up to the unrounded row: θ-tangent t and row fy. False when a slope is 0.
bool ConicRow(const std::array<double, 6>& c, double Lat, double Long, double& t, double& fy)
{
    if (c[2] == 0.0 || c[4] == 0.0)
        return false;
    const double theta = (Long - c[5]) / c[4];
    t = std::tan(theta);
    const double r = (Lat - c[3]) / c[2];
    // Southern maps have the apex below the map.
    fy = Lat < 0 ? c[1] - r / std::sqrt(t * t + 1) : c[1] + r / std::sqrt(t * t + 1);
    return true;
}

}  // namespace

bool TCalibFit::CalcPixelPosition(double Lat, double Long, double& x, double& y) const
{
    double fx = 0.0, fy = 0.0;
    switch (FModel) {
    case cmEquiRect:
        fx = Linear(FEquRectSPPL[0], Lat, Long);
        fy = Linear(FEquRectSPPL[1], Lat, Long);
        break;
    case cmBiquadraticPn: {
        const std::array<double, 6> t = {1.0, Lat, Long, Lat * Lat, Long * Lat, Long * Long};
        for (int i = 0; i < 6; ++i) {
            fx += FCalParsSPPL[0][i] * t[i];
            fy += FCalParsSPPL[1][i] * t[i];
        }
        break;
    }
    case cmMillerCylindrical:
        fx = FMillercylPar[2] * (Long / 180) * kPi + FMillercylPar[3];
        fy = FMillercylPar[0] * std::log(std::tan(Lat / 180 * kMillerLatStretch + kPiQuarter)) + FMillercylPar[1];
        break;
    case cmUTM: {
        if (!ValidEllipsoid(FEllipsoid))
            return false;
        // The position is projected in its own zone, not the map's.
        int zone = 0;
        double e = 0.0, n = 0.0;
        LatLongToUTM(Lat, Long, FEllipsoid, zone, e, n);
        fx = Linear(FEquRectSPPL[0], n, e);
        fy = Linear(FEquRectSPPL[1], n, e);
        break;
    }
    case cmConicConformal: {
        double t = 0.0;
        if (!ConicRow(FConicPars, Lat, Long, t, fy))
            fy = 0.0;  // as CalcPixelCoords: zero slopes put every position on pixel (0, 0)
        else
            fx = FConicPars[0] + (fy - FConicPars[1]) * t;
        break;
    }
    case cmParabolicIp:
        if (!ParabolicPixel(Lat, Long, fx, fy))
            return false;
        break;
    case cmUndefined:
        return false;
    }
    if (!std::isfinite(fx) || !std::isfinite(fy))
        return false;
    x = fx;
    y = fy;
    return true;
}

bool TCalibFit::CalcPixelCoords(double Lat, double Long, std::int32_t& x, std::int32_t& y) const
{
    if (FModel == cmUndefined)
        return true;
    std::int32_t rx = 0, ry = 0;
    if (FModel == cmConicConformal) {
        double t = 0.0, fy = 0.0;
        if (!ConicRow(FConicPars, Lat, Long, t, fy)) {
            x = 0;
            y = 0;
            return true;
        }
        // x follows from the already rounded row.
        if (!RoundPixel(fy, ry) || !RoundPixel(FConicPars[0] + (ry - FConicPars[1]) * t, rx))
            return false;
    } else {
        double fx = 0.0, fy = 0.0;
        if (FModel == cmParabolicIp) {
            if (!ParabolicPixel(Lat, Long, fx, fy))
                return false;
        } else if (!CalcPixelPosition(Lat, Long, fx, fy)) {
            return false;  // an invalid ellipsoid (UTM) or a pixel that is not finite
        }
        if (!RoundPixel(fx, rx) || !RoundPixel(fy, ry))
            return false;
    }
    x = rx;
    y = ry;
    return true;
}

bool TCalibFit::CalcPixelPositionUTM(double Northing, double Easting, double& x, double& y) const
{
    if (FModel != cmUTM)
        return false;
    const double fx = Linear(FEquRectSPPL[0], Northing, Easting), fy = Linear(FEquRectSPPL[1], Northing, Easting);
    if (!std::isfinite(fx) || !std::isfinite(fy))
        return false;
    x = fx;
    y = fy;
    return true;
}

bool TCalibFit::CalcPixelCoordsUTM(double Northing, double Easting, std::int32_t& x, std::int32_t& y) const
{
    if (FModel != cmUTM) {
        x = 0;
        y = 0;
        return false;
    }
    std::int32_t rx = 0, ry = 0;
    if (!RoundPixel(Linear(FEquRectSPPL[0], Northing, Easting), rx) ||
        !RoundPixel(Linear(FEquRectSPPL[1], Northing, Easting), ry))
        return false;
    x = rx;
    y = ry;
    return true;
}

std::int32_t TCalibFit::CalcUTMyFromNorthingX(double Northing, std::int32_t x) const
{
    const TLinearPars& X = FEquRectSPPL[0];
    const TLinearPars& Y = FEquRectSPPL[1];
    const double e = (x - X[0] - X[1] * Northing) / X[2];
    return RoundPixelSaturated(Y[0] + Y[1] * Northing + Y[2] * e);
}

std::int32_t TCalibFit::CalcUTMxFromEastingY(double Easting, std::int32_t y) const
{
    const TLinearPars& X = FEquRectSPPL[0];
    const TLinearPars& Y = FEquRectSPPL[1];
    const double n = (y - Y[0] - Y[2] * Easting) / Y[1];
    return RoundPixelSaturated(X[0] + X[1] * n + X[2] * Easting);
}

// ---- corners and resolution ---------------------------------------------------------------------------

void TMapCalibration::CalcExtentsAndResolution()
{
    std::int32_t w = 0, h = 0;
    ImageSize(w, h);
    auto at = [&](std::int32_t x, std::int32_t y) {
        TCoords c;
        FFit.CalcPosition(TPoint{x, y}, c);
        return c;
    };
    TCalibData& d = FCalibData;
    const TCornerArray oldCorners = d.Corners;
    const double oldResolution = d.Resolution;
    d.Corners[gcoTopLeft] = at(0, 0);
    d.Corners[gcoBottomLeft] = at(0, h);
    d.Corners[gcoBottomRight] = at(w, h);
    d.Corners[gcoTopRight] = at(w, 0);
    if (w < 1) {
        d.Resolution = 0.0;
    } else {
        const TCoords left = at(0, h / 2), right = at(w, h / 2);
        double dist = SphereGreatCircleDist(left.Latit, left.Longit, right.Latit, right.Longit, kEarthRadius);
        // A map wider than half the globe: the great circle takes the short way round, add the rest.
        const double dLong = right.Longit - left.Longit;
        if (dLong > 360)
            dist += kCircumference;
        else if (dLong > 180)
            dist += kHalfCircumference;
        d.Resolution = dist / w;
    }
    // Compared bit for bit: a NaN corner that stays NaN is no change, and a writer that only refreshes
    // the corners before saving notifies nobody.
    if (std::memcmp(&oldCorners, &d.Corners, sizeof oldCorners) != 0 ||
        std::memcmp(&oldResolution, &d.Resolution, sizeof oldResolution) != 0)
        Changed(ccFit);
}

bool TMapCalibration::IsPositionWithinMap(double Lat, double Long) const
{
    return PositionInMap(Lat, Long, FCalibData.Corners);
}

bool PositionInMap(double Lat, double Long, const TCornerArray& C)
{
    const double s = (C[3].Latit - C[0].Latit) * (C[0].Longit - Long) + (C[3].Longit - C[0].Longit) * (Lat - C[0].Latit);
    for (int i = 0; i < 3; ++i) {
        const double si = (C[i].Latit - C[i + 1].Latit) * (C[i + 1].Longit - Long) +
                          (C[i].Longit - C[i + 1].Longit) * (Lat - C[i + 1].Latit);
        if (!(si * s > 0))
            return false;
    }
    return true;
}

}  // namespace qv
