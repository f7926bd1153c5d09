#include <qvgeo/geobasics/ellipsoids.h>

#include <qvgeo/support/errors.h>

#include <cmath>
#include <utility>

namespace qv {

const std::array<std::string_view, NumGeoEllipsoids> GeoEllipsoidId = {
    "gelWGS84",
    "gelWGS72",
    "gelWGS66",
    "gelWGS60",
    "gelClrk80RGS",
    "gelClrk66",
    "gelBess41",
    "gelBess41Jap",
    "gelBess41Nam",
    "gelNewInt67",
    "gelInt24",
    "gelEver69",
    "gelEver56",
    "gelEver48",
    "gelEver30Ind",
    "gelEverPak",
    "gelEverest",
    "gelGRS80",
    "gelAiry30",
    "gelModifAiry",
    "gelFish68",
    "gelFish60",
    "gelModifFish60",
    "gelAuNat65",
    "gelKrass40",
    "gelHough60",
    "gelSphere",
    "gelIndo74",
    "gelHelm06",
    "gelSGS85",
    "gelSAm69",
    "gelATS77",
    "gelAuthSph",
    "gelBesselMod",
    "gelCGCS2000",
    "gelClrk58",
    "gelClrk66Mich",
    "gelClrk80",
    "gelClrk80Arc",
    "gelClrk80Benoit",
    "gelClrk80IGN",
    "gelClrk80intfoot",
    "gelClrk80SGA22",
    "gelDan76",
    "gelEver30",
    "gelEver75",
    "gelGEM10C",
    "gelGRS67",
    "gelGRS67Mod",
    "gelHughes80",
    "gelIAG75",
    "gelInt24AuthSph",
    "gelOSU86F",
    "gelOSU91A",
    "gelPlessis17",
    "gelPopVisSphere",
    "gelPZ90",
    "gelStruve60",
    "gelWarOffice",
    "gelHongKong63",
    "gelNahrwan29"};

const std::array<std::string_view, NumGeoEllipsoids> GeoEllipsoidName = {
    "WGS 1984",
    "WGS 1972",
    "WGS 1966",
    "WGS 1960",
    "Clarke 1880 RGS",
    "Clarke 1866",
    "Bessel 1841",
    "Bessel 1841 (Japan)",
    "Bessel 1841 (Namibia)",
    "New International 1967",
    "International 1924",
    "Everest 1969 (Malaysia)",
    "Everest 1956 (India)",
    "Everest 1948",
    "Everest 1830 (India 1937 adj.)",
    "Everest (Pakistan)",
    "Everest (1967 Definition)",
    "GRS 1980",
    "Airy 1830",
    "Modified Airy",
    "Fisher 1968",
    "Fisher 1960",
    "Modified Fisher 1960",
    "Australian Nat 1965",
    "Krassovsky 1940",
    "Hough 1960",
    "Normal Sphere",
    "Indonesian 1974",
    "Helmert 1906",
    "SGS 1985",
    "South American 1969",
    "ATS77",
    "Authalic Sphere",
    "Bessel Modified",
    "CGCS2000",
    "Clarke 1858",
    "Clarke 1866 Michigan",
    "Clarke 1880",
    "Clarke 1880 (Arc)",
    "Clarke 1880 (Benoit)",
    "Clarke 1880 (IGN)",
    "Clarke 1880 (international foot)",
    "Clarke 1880 (SGA 1922)",
    "Danish 1876",
    "Everest (1830 Definition)",
    "Everest 1830 (1975 Definition)",
    "GEM 10C",
    "GRS 1967",
    "GRS 1967 Modified",
    "Hughes 1980",
    "IAG 1975",
    "International 1924 Authalic Sphere",
    "OSU86F",
    "OSU91A",
    "Plessis 1817",
    "Popular Visualisation Sphere",
    "PZ-90",
    "Struve 1860",
    "War Office",
    "Hong Kong 1963",
    "Nahrwan 1929"};

// {a, b} in metres, exactly as catalogued (several rows share axes and differ only in name).
const std::array<TEllipsoidAxes, NumGeoEllipsoids> GeoEllipsoidData = {{
    {6378137.0, 6356752.314245},
    {6378135.0, 6356750.519915},
    {6378145.0, 6356759.769356},
    {6378165.0, 6356783.286959},
    {6378249.145, 6356514.86955},
    {6378206.4, 6356583.8},
    {6377397.155, 6356078.96284},
    {6377397.155, 6356078.963},
    {6377483.865, 6356165.382966},
    {6378157.5, 6356772.2},
    {6378388.0, 6356911.94613},
    {6377295.664, 6356094.667915},
    {6377301.243, 6356100.228368},
    {6377304.063, 6356103.039},
    {6377276.3452, 6356075.4133},
    {6377309.613, 6356108.570542},
    {6377298.556, 6356097.550301},
    {6378137.0, 6356752.31414},
    {6377563.396, 6356256.91},
    {6377340.189, 6356034.448},
    {6378150.0, 6356768.337303},
    {6378166.0, 6356784.283666},
    {6378155.0, 6356773.3205},
    {6378160.0, 6356774.719},
    {6378245.0, 6356863.0188},
    {6378270.0, 6356794.343479},
    {6370997.0, 6370997.0},
    {6378160.0, 6356774.504086},
    {6378200.0, 6356818.169628},
    {6378136.0, 6356751.301569},
    {6378160.0, 6356774.719},
    {6378135.0, 6356750.304922},
    {6371000.0, 6371000.0},
    {6377492.018, 6356173.508713},
    {6378137.0, 6356752.31414},
    {6378293.6452, 6356617.987671},
    {6378450.0475, 6356826.62144},
    {6378249.1448, 6356514.966196},
    {6378249.145, 6356514.966399},
    {6378300.789, 6356566.435},
    {6378249.2, 6356515.0},
    {6378306.3696, 6356571.996},
    {6378249.2, 6356514.996942},
    {6377019.2567, 6355762.525844},
    {6377299.3656, 6356098.35901},
    {6377299.151, 6356098.14512},
    {6378137.0, 6356752.314245},
    {6378160.0, 6356774.516091},
    {6378160.0, 6356774.719195},
    {6378273.0, 6356889.449},
    {6378140.0, 6356755.288158},
    {6371228.0, 6371228.0},
    {6378136.2, 6356751.516927},
    {6378136.3, 6356751.616592},
    {6376523.0, 6355862.933256},
    {6378137.0, 6378137.0},
    {6378136.0, 6356751.361746},
    {6378298.3, 6356657.14267},
    {6378300.0, 6356751.689189},
    {6378235.6, 6356560.13971},
    {6378300.782, 6356566.42744}}};

bool FindGeoEllipsoid(std::string_view Id, TGeoEllipsoid& Ellipsoid)
{
    for (int i = 0; i < NumGeoEllipsoids; ++i)
        if (GeoEllipsoidId[i] == Id) {
            Ellipsoid = static_cast<TGeoEllipsoid>(i);
            return true;
        }
    return false;
}

// The parameter functions below are the textbook formulas (e² = 1 - b²/a², 1/f = 1/(1 - b/a),
// 1/f = 1/(1 - sqrt(1 - e²))) rearranged so that nothing cancels: 1 - b/a in doubles keeps only about
// seven significant digits of f for the Earth. a - b is exact for any two axes within a factor of two
// of each other, so these forms are correctly rounded, and 1/f of WGS 84 comes out as 298.2572235604902.

double GeoEllEccSquared(TGeoEllipsoid Ellipsoid)
{
    const auto& e = GeoEllipsoidData[Ellipsoid];
    return GeoEllEccSquared(e.a, e.b);
}

double GeoEllEccSquared(double a, double b)
{
    if (a < b)
        std::swap(a, b);
    return ((a - b) * (a + b)) / (a * a);
}

double GeoEllEccSquared(double RecipFlat)
{
    if (RecipFlat == 0.0)
        return 0.0;
    const double f = 1.0 / RecipFlat;
    return 2.0 * f - f * f;
}

double RecipFlattening(TGeoEllipsoid Ellipsoid)
{
    const auto& e = GeoEllipsoidData[Ellipsoid];
    return RecipFlattening(e.a, e.b);
}

double RecipFlattening(double a, double b)
{
    if (b == a)
        return 0.0;
    return a / (a - b);
}

double RecipFlattening(double EccSquared)
{
    if (EccSquared == 0.0)
        return 0.0;
    // Outside 0 < e² <= 1 the result is meaningless (NaN for e² > 1, a negative figure for e² < 0);
    // by contract nothing is raised here, unlike the two semi-minor-axis functions below.
    const double root = std::sqrt(1.0 - EccSquared);
    return (1.0 + root) / EccSquared;
}

double EllipsoidMinAxFlat(double a, double RecipFlat)
{
    if (RecipFlat < 0.0)
        throw EXELGeoBasicsError("invalid reciprocal flattening");
    if (RecipFlat == 0.0)
        return a;
    return a * (1.0 - 1.0 / RecipFlat);
}

double EllipsoidMinAxEcc(double a, double EccSquared)
{
    if (EccSquared < 0.0)
        throw EXELGeoBasicsError("invalid eccentricity");
    return a * std::sqrt(1.0 - EccSquared);
}

}  // namespace qv
