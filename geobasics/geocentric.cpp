// Geodetic <-> geocentric conversion. Results must stay identical to the documented formulas, so the
// order of operations below is deliberate; only the per-ellipsoid parameters (e², f, a) are looked up
// once per ellipsoid, from the very catalogue functions the formulas name.
#include <qvgeo/geobasics/geocentric.h>

#include <array>
#include <cmath>

namespace qv {

namespace {

constexpr double Pi = 3.141592653589793;

struct TGeocentricConsts {
    double a;
    double e2;  // GeoEllEccSquared
    double f;   // 1 / RecipFlattening (infinite for a sphere)
};

const TGeocentricConsts& Consts(TGeoEllipsoid Ellipsoid)
{
    static const std::array<TGeocentricConsts, NumGeoEllipsoids> table = [] {
        std::array<TGeocentricConsts, NumGeoEllipsoids> t{};
        for (int i = 0; i < NumGeoEllipsoids; ++i) {
            const auto ell = static_cast<TGeoEllipsoid>(i);
            t[i] = {GeoEllipsoidData[ell].a, GeoEllEccSquared(ell), 1.0 / RecipFlattening(ell)};
        }
        return t;
    }();
    return table[Ellipsoid];
}

}  // namespace

void GeoToCartesian(double Lat, double Long, double Height, TGeoEllipsoid Ellipsoid, double& X, double& Y,
                    double& Z)
{
    const TGeocentricConsts& c = Consts(Ellipsoid);
    const double phi = Lat * Pi / 180.0;
    const double lambda = Long * Pi / 180.0;
    const double sinPhi = std::sin(phi);
    const double cosPhi = std::cos(phi);
    const double N = c.a / std::sqrt(1.0 - c.e2 * (sinPhi * sinPhi));
    X = (N + Height) * cosPhi * std::cos(lambda);
    Y = (N + Height) * cosPhi * std::sin(lambda);
    Z = (N * (1.0 - c.e2) + Height) * sinPhi;
}

namespace {

// Bowring's closed form; Folded chooses the documented one-argument arc tangent for the longitude.
void ToGeo(double X, double Y, double Z, TGeoEllipsoid Ellipsoid, bool Folded, double& Lat, double& Long,
           double& Height)
{
    const TGeocentricConsts& c = Consts(Ellipsoid);
    const double a = c.a, e2 = c.e2, f = c.f;
    const double p = std::sqrt(X * X + Y * Y);
    const double r = std::sqrt(p * p + Z * Z);
    const double u = std::atan((Z / p) * ((1.0 - f) + e2 * a / r));
    const double sinU = std::sin(u), cosU = std::cos(u);
    // atan, not atan2: the longitude folding into [−90°, 90°] is part of CartesianToGeo's contract.
    const double lambda = Folded ? std::atan(Y / X) : std::atan2(Y, X);
    const double phi = std::atan((Z * (1.0 - f) + e2 * a * (sinU * sinU * sinU)) /
                                 ((1.0 - f) * (p - e2 * a * (cosU * cosU * cosU))));
    const double sinPhi = std::sin(phi);
    Height = p * std::cos(phi) + Z * sinPhi - a * std::sqrt(1.0 - e2 * (sinPhi * sinPhi));
    Lat = phi * 180.0 / Pi;
    Long = lambda * 180.0 / Pi;
}

}  // namespace

void CartesianToGeo(double X, double Y, double Z, TGeoEllipsoid Ellipsoid, double& Lat, double& Long,
                    double& Height)
{
    ToGeo(X, Y, Z, Ellipsoid, true, Lat, Long, Height);
}

void CartesianToGeoUnfolded(double X, double Y, double Z, TGeoEllipsoid Ellipsoid, double& Lat, double& Long,
                            double& Height)
{
    if (X == 0.0 && Y == 0.0) {
        // Bowring's quotient has p = 0 in it; on the axis the answer is known exactly.
        Lat = Z >= 0.0 ? 90.0 : -90.0;
        Long = 0.0;
        Height = std::fabs(Z) - GeoEllipsoidData[Ellipsoid].b;
        return;
    }
    ToGeo(X, Y, Z, Ellipsoid, false, Lat, Long, Height);
}

}  // namespace qv
