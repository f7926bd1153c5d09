// Transverse Mercator series, UTM and UPS.
//
// Every formula is evaluated in a fixed order of operations: the map calibrations depend on the results
// bit for bit, so do not regroup terms, replace sin 4φ by 2·sin 2φ·cos 2φ or fold constants across a
// multiplication. The only liberty taken is that everything that depends on the ellipsoid alone (the
// series coefficients, which use the general power function, and the UPS normalisers) is computed once
// per ellipsoid; each cached value is exactly the subexpression it replaces, so results are unchanged.
// Powers of per-point quantities (cos φ, tan φ, the longitude difference) are repeated products.
#include <qvgeo/geobasics/transverse_mercator.h>

#include <qvgeo/support/math_services.h>

#include <array>
#include <cmath>

namespace qv {

namespace {

constexpr double Pi = 3.141592653589793;

struct TEllipsoidConsts {
    // Transverse Mercator
    double a2;     // a·a
    double b;
    double ep2;    // second eccentricity squared (a² − b²)/b²
    double alpha;  // ((a + b)/2)·(1 + n²/4 + n⁴/64), shared by the arc length and the footpoint
    double beta, gamma, delta, epsilon;      // meridian arc series
    double betaF, gammaF, deltaF, epsilonF;  // footpoint latitude series
    // UPS
    double upsE;         // √|1 − (b/a)²|
    double upsE2;        // 1 − (b/a)²
    double upsRhoScale;  // a·0.994·2
    double upsRhoDen;    // √(1 − (1 − k²))·exp(e·artanh e) with k = b/a
    double upsSqrt1mE2;  // √(1 − e²)
    double upsExpEAtE;   // exp(e·artanh e)
    double upsAK;        // a·0.994
};

TEllipsoidConsts ComputeConsts(TGeoEllipsoid Ellipsoid)
{
    const double a = GeoEllipsoidData[Ellipsoid].a;
    const double b = GeoEllipsoidData[Ellipsoid].b;
    TEllipsoidConsts c{};
    c.a2 = a * a;
    c.b = b;
    c.ep2 = (a * a - b * b) / (b * b);
    const double n = (a - b) / (a + b);
    c.alpha = ((a + b) / 2.0) * (1.0 + std::pow(n, 2.0) / 4.0 + std::pow(n, 4.0) / 64.0);
    c.beta = -3.0 * n / 2.0 + 9.0 * std::pow(n, 3.0) / 16.0 - 3.0 * std::pow(n, 5.0) / 32.0;
    c.gamma = 15.0 * std::pow(n, 2.0) / 16.0 - 15.0 * std::pow(n, 4.0) / 32.0;
    c.delta = -35.0 * std::pow(n, 3.0) / 48.0 + 105.0 * std::pow(n, 5.0) / 256.0;
    c.epsilon = 315.0 * std::pow(n, 4.0) / 512.0;
    c.betaF = 3.0 * n / 2.0 - 27.0 * std::pow(n, 3.0) / 32.0 + 269.0 * std::pow(n, 5.0) / 512.0;
    c.gammaF = 21.0 * std::pow(n, 2.0) / 16.0 - 55.0 * std::pow(n, 4.0) / 32.0;
    c.deltaF = 151.0 * std::pow(n, 3.0) / 96.0 - 417.0 * std::pow(n, 5.0) / 128.0;
    c.epsilonF = 1097.0 * std::pow(n, 4.0) / 512.0;

    const double k = b / a;
    const double e = std::sqrt(std::fabs(1.0 - k * k));
    c.upsE = e;
    c.upsE2 = 1.0 - k * k;
    c.upsRhoScale = a * UPSScaleFactor * 2.0;
    // √(1 − (1 − k²)) is k up to rounding; it is kept as written so that ρ does not change by an ulp.
    c.upsRhoDen = std::sqrt(1.0 - (1.0 - k * k)) * std::exp(e * std::atanh(e));
    c.upsSqrt1mE2 = std::sqrt(1.0 - c.upsE2);
    c.upsExpEAtE = std::exp(e * std::atanh(e));
    c.upsAK = a * UPSScaleFactor;
    return c;
}

const TEllipsoidConsts& Consts(TGeoEllipsoid Ellipsoid)
{
    static const std::array<TEllipsoidConsts, NumGeoEllipsoids> table = [] {
        std::array<TEllipsoidConsts, NumGeoEllipsoids> t{};
        for (int i = 0; i < NumGeoEllipsoids; ++i)
            t[i] = ComputeConsts(static_cast<TGeoEllipsoid>(i));
        return t;
    }();
    return table[Ellipsoid];
}

double ArcLength(double Phi, const TEllipsoidConsts& c)
{
    return c.alpha * (Phi + c.beta * std::sin(2.0 * Phi) + c.gamma * std::sin(4.0 * Phi) +
                      c.delta * std::sin(6.0 * Phi) + c.epsilon * std::sin(8.0 * Phi));
}

double FootpointLatitude(double Y, const TEllipsoidConsts& c)
{
    const double y = Y / c.alpha;
    return y + c.betaF * std::sin(2.0 * y) + c.gammaF * std::sin(4.0 * y) + c.deltaF * std::sin(6.0 * y) +
           c.epsilonF * std::sin(8.0 * y);
}

double DegToRad(double Deg) { return Deg * Pi / 180.0; }
double RadToDeg(double Rad) { return Rad * 180.0 / Pi; }

// The kernels, kept internal so that the UTM functions call them directly (the public names are
// exported from a shared library and could otherwise not be inlined).

double CentralMeridian(int Zone)
{
    // Evaluated at compile time with the same IEEE operations as at run time: identical bits.
    static constexpr std::array<double, 61> meridians = [] {
        std::array<double, 61> m{};
        for (int z = 1; z <= 60; ++z)
            m[z] = (6.0 * z - 183.0) * Pi / 180.0;
        return m;
    }();
    if (Zone < 1 || Zone > 60)
        return 0.0;
    return meridians[Zone];
}

void Forward(double Phi, double Lambda, double Lambda0, const TEllipsoidConsts& c, double& X, double& Y)
{
    const double cf = std::cos(Phi);
    const double cf2 = cf * cf;
    const double nu2 = c.ep2 * cf2;
    const double N = c.a2 / (c.b * std::sqrt(1.0 + nu2));
    const double t = std::tan(Phi);
    const double t2 = t * t;
    const double t4 = t2 * t2;
    const double t6 = t4 * t2;
    const double l = Lambda - Lambda0;

    const double l3coef = 1.0 - t2 + nu2;
    const double l4coef = 5.0 - t2 + 9.0 * nu2 + 4.0 * (nu2 * nu2);
    const double l5coef = 5.0 - 18.0 * t2 + t4 + 14.0 * nu2 - 58.0 * t2 * nu2;
    const double l6coef = 61.0 - 58.0 * t2 + t4 + 270.0 * nu2 - 330.0 * t2 * nu2;
    const double l7coef = 61.0 - 479.0 * t2 + 179.0 * t4 - t6;
    const double l8coef = 1385.0 - 3111.0 * t2 + 543.0 * t4 - t6;

    const double cf3 = cf2 * cf, cf4 = cf3 * cf, cf5 = cf4 * cf, cf6 = cf5 * cf, cf7 = cf6 * cf, cf8 = cf7 * cf;
    const double lp2 = l * l, lp3 = lp2 * l, lp4 = lp3 * l, lp5 = lp4 * l, lp6 = lp5 * l, lp7 = lp6 * l,
                 lp8 = lp7 * l;

    X = N * cf * l + (N / 6.0) * cf3 * l3coef * lp3 + (N / 120.0) * cf5 * l5coef * lp5 +
        (N / 5040.0) * cf7 * l7coef * lp7;
    Y = ArcLength(Phi, c) + (t / 2.0) * N * cf2 * lp2 + (t / 24.0) * N * cf4 * l4coef * lp4 +
        (t / 720.0) * N * cf6 * l6coef * lp6 + (t / 40320.0) * N * cf8 * l8coef * lp8;
}

void Inverse(double X, double Y, double Lambda0, const TEllipsoidConsts& c, double& Phi, double& Lambda)
{
    const double phif = FootpointLatitude(Y, c);
    const double cf = std::cos(phif);
    const double nuf2 = c.ep2 * (cf * cf);
    const double Nf = c.a2 / (c.b * std::sqrt(1.0 + nuf2));
    const double tf = std::tan(phif);
    const double tf2 = tf * tf;
    const double tf4 = tf2 * tf2;
    const double tf6 = tf4 * tf2;

    const double Nf2 = Nf * Nf, Nf3 = Nf2 * Nf, Nf4 = Nf3 * Nf, Nf5 = Nf4 * Nf, Nf6 = Nf5 * Nf, Nf7 = Nf6 * Nf,
                 Nf8 = Nf7 * Nf;
    const double x1frac = 1.0 / (Nf * cf);
    const double x2frac = tf / (2.0 * Nf2);
    const double x3frac = 1.0 / (6.0 * Nf3 * cf);
    const double x4frac = tf / (24.0 * Nf4);
    const double x5frac = 1.0 / (120.0 * Nf5 * cf);
    const double x6frac = tf / (720.0 * Nf6);
    const double x7frac = 1.0 / (5040.0 * Nf7 * cf);
    const double x8frac = tf / (40320.0 * Nf8);

    const double nuf4 = nuf2 * nuf2;
    const double x2poly = -1.0 - nuf2;
    const double x3poly = -1.0 - 2.0 * tf2 - nuf2;
    const double x4poly = 5.0 + 3.0 * tf2 + 6.0 * nuf2 - 6.0 * tf2 * nuf2 - 3.0 * nuf4 - 9.0 * tf2 * nuf4;
    const double x5poly = 5.0 + 28.0 * tf2 + 24.0 * tf4 + 6.0 * nuf2 + 8.0 * tf2 * nuf2;
    const double x6poly = -61.0 - 90.0 * tf2 - 45.0 * tf4 - 107.0 * nuf2 + 162.0 * tf2 * nuf2;
    const double x7poly = -61.0 - 662.0 * tf2 - 1320.0 * tf4 - 720.0 * tf6;
    const double x8poly = 1385.0 + 3633.0 * tf2 + 4095.0 * tf4 + 1575.0 * tf6;

    const double xp2 = X * X, xp3 = xp2 * X, xp4 = xp3 * X, xp5 = xp4 * X, xp6 = xp5 * X, xp7 = xp6 * X,
                 xp8 = xp7 * X;

    Phi = phif + x2frac * x2poly * xp2 + x4frac * x4poly * xp4 + x6frac * x6poly * xp6 + x8frac * x8poly * xp8;
    Lambda = Lambda0 + x1frac * X + x3frac * x3poly * xp3 + x5frac * x5poly * xp5 + x7frac * x7poly * xp7;
    // A northing past the pole (the series' quarter meridian is a fraction of a micrometre shorter than
    // the true one, so the pole itself given by an exact projection is already past it) comes out as a
    // latitude beyond ±90°. The series is symmetric about the pole: φ beyond ±π/2 on λ is the point at
    // ±π − φ on the opposite meridian λ + π, which is where the northing continues over the pole.
    if (Phi > Pi / 2.0) {
        Phi = Pi - Phi;
        Lambda = Lambda + Pi;
    } else if (Phi < -Pi / 2.0) {
        Phi = -Pi - Phi;
        Lambda = Lambda + Pi;
    }
}

void UTMZone(double Lat, double Long, int& Zone, char& Band)
{
    Zone = 0;
    Band = ' ';
    // Written as positive tests so that NaN falls outside as well.
    if (!(Lat >= -80.0 && Lat <= 84.0 && Long >= -180.0 && Long < 180.0))
        return;
    // Every zone and band edge is a whole degree, so the whole degree below the position decides, and it
    // is exact. Adding 80 or 180 first and dividing would round: one ulp below 180 plus 180 is 360, which
    // made zone 61, and one ulp below a band or zone edge landed in the next band or zone.
    const int latDeg = static_cast<int>(std::floor(Lat));   // −80 to 84
    const int lonDeg = static_cast<int>(std::floor(Long));  // −180 to 179
    int k = (latDeg + 80) / 8;
    if (k >= 6)
        ++k;  // no band I
    if (k >= 12)
        ++k;  // no band O
    if (k >= 21)
        k = 21;  // X stretches to 84° inclusive
    Band = static_cast<char>(67 + k);
    Zone = (lonDeg + 180) / 6 + 1;
    if (Band == 'V' && Long >= 3.0 && Long < 12.0)
        Zone = 32;
    if (Band == 'X' && Long >= 0.0 && Long < 42.0)
        Zone = 2 * ((lonDeg + 3) / 12) + 31;
}

}  // namespace

double ArcLengthOfMeridian(double Phi, TGeoEllipsoid Ellipsoid)
{
    return ArcLength(Phi, Consts(Ellipsoid));
}

double UTMCentralMeridian(int Zone) { return CentralMeridian(Zone); }

void LatLongToTM(double Phi, double Lambda, double Lambda0, TGeoEllipsoid Ellipsoid, double& X, double& Y)
{
    Forward(Phi, Lambda, Lambda0, Consts(Ellipsoid), X, Y);
}

void TMToLatLong(double X, double Y, double Lambda0, TGeoEllipsoid Ellipsoid, double& Phi, double& Lambda)
{
    Inverse(X, Y, Lambda0, Consts(Ellipsoid), Phi, Lambda);
}

void GeoToUTMZone(double Lat, double Long, int& Zone, char& Band) { UTMZone(Lat, Long, Zone, Band); }

std::string GeoToUTMZone(double Lat, double Long)
{
    int zone;
    char band;
    UTMZone(Lat, Long, zone, band);
    if (zone == 0)
        return {};
    std::string s = std::to_string(zone);
    s.push_back(band);
    return s;
}

void LatLongToUTM(double Lat, double Long, TGeoEllipsoid Ellipsoid, int& Zone, double& Easting, double& Northing)
{
    char band;
    UTMZone(Lat, Long, Zone, band);
    double x, y;
    Forward(DegToRad(Lat), DegToRad(Long), CentralMeridian(Zone), Consts(Ellipsoid), x, y);
    Easting = x * UTMScaleFactor + UTMFalseEasting;
    Northing = y * UTMScaleFactor;
    if (Northing < 0.0)
        Northing = Northing + UTMFalseNorthingSouth;
}

void UTMToLatLong(double Easting, double Northing, int Zone, bool South, TGeoEllipsoid Ellipsoid, double& Lat,
                  double& Long)
{
    const double x = (Easting - UTMFalseEasting) / UTMScaleFactor;
    const double y = (South ? Northing - UTMFalseNorthingSouth : Northing) / UTMScaleFactor;
    double phi, lambda;
    Inverse(x, y, CentralMeridian(Zone), Consts(Ellipsoid), phi, lambda);
    Lat = RadToDeg(phi);
    Long = RadToDeg(lambda);
}

double WrapLongitude(double Long)
{
    if (Long >= -180.0 && Long < 180.0)
        return Long;
    if (!std::isfinite(Long))
        return Long;
    // remainder is exact (no rounding at all), and lands in −180..180 with both ends possible.
    const double r = std::remainder(Long, 360.0);
    return r == 180.0 ? -180.0 : r;
}

void LatLongToUPS(double Lat, double Long, TGeoEllipsoid Ellipsoid, double& X, double& Y)
{
    const TEllipsoidConsts& c = Consts(Ellipsoid);
    const double chi = DegToRad(Lat < 0.0 ? Lat + 90.0 : 90.0 - Lat);
    const double rho =
        c.upsRhoScale * std::tan(chi / 2.0) * std::exp(c.upsE * std::atanh(c.upsE * std::cos(chi))) / c.upsRhoDen;
    double L = Long;
    if (Long >= 180.0)
        L = Long - 360.0;
    else if (Long < -180.0)
        L = Long + 360.0;
    const double lambda = DegToRad(L);
    // sin(−π) and cos(π/2) are not exactly zero in floating point; the grid axes must be.
    X = L == -180.0 ? 0.0 : rho * std::sin(lambda);
    Y = std::fabs(L) == 90.0 ? 0.0 : rho * std::cos(lambda);
    if (Lat >= 0.0)
        Y = -Y;
    X = X + UPSFalseOrigin;
    Y = Y + UPSFalseOrigin;
}

void UPSToLatLong(double X, double Y, bool South, TGeoEllipsoid Ellipsoid, double& Lat, double& Long)
{
    const TEllipsoidConsts& c = Consts(Ellipsoid);
    const double e2 = c.upsE2;
    const double e = c.upsE;
    const double dx = X - UPSFalseOrigin;
    const double dy = Y - UPSFalseOrigin;
    const double rho = std::sqrt(dx * dx + dy * dy);
    const double T = rho * c.upsSqrt1mE2 * c.upsExpEAtE / c.upsAK;
    double chi = 2.0 * std::atan(T / 2.0);
    // The tolerance is far below one ulp of χ: in practice the loop ends when Δ is exactly 0, or after
    // six rounds.
    const double tolerance = 0.1 * std::sqrt(uc_MinDouble);
    for (int round = 0; round < 6; ++round) {
        const double cc = std::cos(chi);
        const double g = std::exp(e * std::atanh(e * cc));
        const double h = chi / 2.0;
        const double ch = std::cos(h);
        const double delta = -(2.0 * std::tan(h) * g - T) / ((1.0 - e2) * g / ((1.0 - e2 * (cc * cc)) * (ch * ch)));
        chi = chi + delta;
        if (std::fabs(delta) < tolerance)
            break;
    }
    Lat = 90.0 - RadToDeg(chi);
    if (South)
        Lat = -Lat;
    Long = RadToDeg(South ? -std::atan2(-dx, dy) : -std::atan2(-dx, -dy));
}

}  // namespace qv
