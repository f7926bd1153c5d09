// geotool geodesy commands: utm, tm, ups, geocentric, helmert, zone, datums, countries.
//
// The conversions stream one record a line from standard input (or take a single record from the command
// line) through StreamRecords, print degrees with 10 decimals and metres with 4 unless --precision says
// otherwise, and reject input outside a projection's domain rather than print numbers for it.
#include "command.h"
#include "line_io.h"

#include <qvgeo/geobasics/countries.h>
#include <qvgeo/geobasics/datums.h>
#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/geobasics/geocentric.h>
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/support/text.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace {

using geotool::Decimals;
using geotool::Fields;
using geotool::RecordShape;
using geotool::RecordWriter;
using geotool::StreamRecords;

constexpr double Pi = 3.141592653589793;

// The UTM grid is read as far as 400 km either side of a zone's central meridian (the zone edge lies
// 334 km out at the equator) and from the equator to the false northing; the place found must then lie
// in the UTM area, widened by half a degree into the polar caps, and within 9 degrees of the meridian
// (the widened Svalbard zones reach 6). Near the poles 400 km are many degrees of longitude, and the
// kernel's series is off by degrees there, which the second test catches.
constexpr double UTMMinEasting = 100000.0, UTMMaxEasting = 900000.0;  // metres
constexpr double UTMMaxNorthing = 10000000.0;                        // metres
constexpr double UTMMaxFromMeridian = 9.0;                           // degrees
// UTM covers -80..84 degrees; the UPS caps start half a degree inside it, so the two overlap.
constexpr double UTMSouthLimit = -80.0, UTMNorthLimit = 84.0;
constexpr double UPSNorthLimit = 83.5, UPSSouthLimit = -79.5;
// Farthest from its meridian that geotool tm goes, degrees: the kernel's series is off by 0.4 m at 15
// degrees, 4 m at 20 and 120 m at 30 on the equator (against the exact projection), kilometres beyond.
constexpr double TMMaxFromMeridian = 30.0;

qv::TGeoEllipsoid EllipsoidOption(geotool::Args& args)
{
    const std::string id = args.Option("--ellipsoid", "gelWGS84");
    qv::TGeoEllipsoid ell;
    if (!qv::FindGeoEllipsoid(id, ell))
        throw geotool::UsageError{"unknown ellipsoid \"" + id + "\" (geotool ellipsoids lists them)"};
    return ell;
}

// Input far outside a projection's domain can overflow to infinity or NaN; that is reported, not printed.
bool Finite(std::initializer_list<double> values, std::string& error)
{
    for (double v : values)
        if (!std::isfinite(v)) {
            error = "no finite result: the input lies far outside the range of the conversion";
            return false;
        }
    return true;
}

bool LatLong(const Fields& f, double* v, std::string& error)
{
    return geotool::Numbers(f, 0, 2, v, error) && geotool::LatLongInRange(v[0], v[1], error);
}

// "N"/"S" (either case) as the southern flag.
bool Hemisphere(std::string_view field, bool& south, std::string& error)
{
    if (field == "N" || field == "n") {
        south = false;
        return true;
    }
    if (field == "S" || field == "s") {
        south = true;
        return true;
    }
    error = "hemisphere must be N or S, not " + geotool::Quote(field);
    return false;
}

// A value quoted in a message: every digit it takes to read back as itself, so that 84.0000001 is never
// shown as 84 beside the range 80..84 it lies outside.
std::string Deg(double v) { return geotool::ShortestText(v); }

// Degrees from the central meridian lon0 to lon the short way round, in -180..180 (the difference rounds
// by at most half an ulp, the reduction not at all).
double FromMeridian(double lon, double lon0) { return std::remainder(lon - lon0, 360.0); }

// ---------------------------------------------------------------------------------------------------------

int RunUTM(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const Decimals dec = geotool::PrecisionOption(args);
    const auto positional = args.Positional();
    if (!inverse) {
        return StreamRecords("utm", positional, RecordShape{2, 4, "lat lon"},
                             [=](const Fields& f, RecordWriter& out, std::string& error) {
            double v[2];
            if (!LatLong(f, v, error))
                return false;
            if (v[0] < UTMSouthLimit || v[0] > UTMNorthLimit) {
                error = "latitude " + Deg(v[0]) + " is outside the UTM area -80..84 (geotool ups covers the caps)";
                return false;
            }
            if (v[1] == 180.0)  // the same meridian as -180, which starts zone 1
                v[1] = -180.0;
            int zone;
            char band;
            double e, n;
            qv::GeoToUTMZone(v[0], v[1], zone, band);
            qv::LatLongToUTM(v[0], v[1], ell, zone, e, n);
            if (!Finite({e, n}, error))
                return false;
            out.Int(zone).Char(' ').Char(band).Char(' ');
            out.Fixed(e, dec.Metres).Char(' ').Fixed(n, dec.Metres);
            return true;
        });
    }
    return StreamRecords("utm", positional, RecordShape{4, 2, "zone N|S easting northing"},
                         [=](const Fields& f, RecordWriter& out, std::string& error) {
        long long zone;
        bool south;
        double v[2];
        if (!geotool::ParseInt(f[0], zone) || zone < 1 || zone > 60) {
            error = "zone must be a whole number from 1 to 60, not " + geotool::Quote(f[0]);
            return false;
        }
        if (!Hemisphere(f[1], south, error) || !geotool::Numbers(f, 2, 2, v, error))
            return false;
        if (v[0] < UTMMinEasting || v[0] > UTMMaxEasting) {
            error = "easting " + Deg(v[0]) +
                    " is outside 100000..900000 m (400 km either side of the zone's central meridian)";
            return false;
        }
        if (v[1] < 0.0 || v[1] > UTMMaxNorthing) {
            error = "northing " + Deg(v[1]) + " is outside 0..10000000 m";
            return false;
        }
        double lat, lon;
        qv::UTMToLatLong(v[0], v[1], static_cast<int>(zone), south, ell, lat, lon);
        if (!Finite({lat, lon}, error))
            return false;
        // West of zone 1 and east of zone 60 the library's longitude runs on past -180 and 180; printed, it
        // is wrapped into the range that geotool utm takes back.
        lon = qv::WrapLongitude(lon);
        const double fromMeridian = FromMeridian(lon, 6.0 * static_cast<double>(zone) - 183.0);
        if (!(lat >= UTMSouthLimit - 0.5 && lat <= UTMNorthLimit + 0.5)) {
            error = "easting and northing lie beyond the zone: latitude " + Deg(lat) + " is outside -80.5..84.5";
            return false;
        }
        if (!(std::fabs(fromMeridian) <= UTMMaxFromMeridian)) {
            error = "easting and northing lie beyond the zone: longitude " + Deg(lon) + " is " +
                    Deg(std::fabs(fromMeridian)) + " degrees from its meridian, more than 9";
            return false;
        }
        out.Fixed(lat, dec.Degrees).Char(' ').Fixed(lon, dec.Degrees);
        return true;
    });
}

int RunTM(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const Decimals dec = geotool::PrecisionOption(args);
    bool found = false;
    const std::string lon0Text = args.Option("--lon0", "", &found);
    double lon0 = 0;
    if (!found || !geotool::ParseDouble(lon0Text, lon0) || lon0 < -180.0 || lon0 > 180.0)
        throw geotool::UsageError{"option --lon0 DEG (central meridian, -180 to 180 degrees) is required"};
    const double lambda0 = lon0 * Pi / 180.0;
    const auto positional = args.Positional();
    // Distances from the central meridian are taken the short way round (179 is 2 degrees from -179). A
    // pole lies on every meridian. Along the axis x = 0 the series is the exact meridian arc, and the axis
    // runs on over the poles onto the opposite meridian: onAxis admits that meridian whatever its distance.
    const auto inDomain = [lon0](double lat, double lon, bool onAxis, std::string& error) {
        if (!(std::fabs(lat) <= 90.0)) {
            error = "latitude " + Deg(lat) + " is beyond the pole";
            return false;
        }
        const double d = std::fabs(FromMeridian(lon, lon0));
        if (!(d <= TMMaxFromMeridian || std::fabs(lat) == 90.0 || onAxis)) {
            error = "longitude " + Deg(lon) + " is " + Deg(d) +
                    " degrees from the central meridian, more than 30, where the series no longer holds";
            return false;
        }
        return true;
    };
    if (!inverse) {
        return StreamRecords("tm", positional, RecordShape{2, 2, "lat lon"},
                             [=](const Fields& f, RecordWriter& out, std::string& error) {
            double v[2];
            if (!LatLong(f, v, error))
                return false;
            const bool opposite = std::fabs(FromMeridian(v[1], lon0)) == 180.0;
            if (!inDomain(v[0], v[1], opposite, error))
                return false;
            if (opposite) {
                // The meridian opposite the central one is the axis x = 0 continued over the pole, which
                // the series cannot reach (it would need the longitude difference 180): mirror the point
                // on the central meridian about the pole, as the inverse does.
                double x0, y0;
                qv::LatLongToTM(v[0] * Pi / 180.0, lambda0, lambda0, ell, x0, y0);
                const double q = qv::ArcLengthOfMeridian(Pi / 2.0, ell);
                const double y = (v[0] >= 0.0 ? 2.0 * q : -2.0 * q) - y0;
                if (!Finite({y}, error))
                    return false;
                out.Fixed(0.0, dec.Metres).Char(' ').Fixed(y, dec.Metres);
                return true;
            }
            // The kernel takes the plain difference of longitudes: across the antimeridian the longitude
            // is moved by a turn to the central meridian's side (exact: both lie within 30 of +-180).
            double lon = v[1];
            if (lon - lon0 > 180.0)
                lon -= 360.0;
            else if (lon - lon0 < -180.0)
                lon += 360.0;
            double x, y;
            qv::LatLongToTM(v[0] * Pi / 180.0, lon * Pi / 180.0, lambda0, ell, x, y);
            if (!Finite({x, y}, error))
                return false;
            out.Fixed(x, dec.Metres).Char(' ').Fixed(y, dec.Metres);
            return true;
        });
    }
    return StreamRecords("tm", positional, RecordShape{2, 2, "x y"},
                         [=](const Fields& f, RecordWriter& out, std::string& error) {
        double v[2];
        if (!geotool::Numbers(f, 0, 2, v, error))
            return false;
        double phi, lambda;
        qv::TMToLatLong(v[0], v[1], lambda0, ell, phi, lambda);
        const double lat = phi * 180.0 / Pi, lon = qv::WrapLongitude(lambda * 180.0 / Pi);
        if (!Finite({lat, lon}, error) || !inDomain(lat, lon, v[0] == 0.0, error))
            return false;
        out.Fixed(lat, dec.Degrees).Char(' ').Fixed(lon, dec.Degrees);
        return true;
    });
}

int RunUPS(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const Decimals dec = geotool::PrecisionOption(args);
    const auto positional = args.Positional();
    const char* const capError = "outside the UPS caps (latitude 83.5 to 90 north, -79.5 to -90 south)";
    if (!inverse) {
        return StreamRecords("ups", positional, RecordShape{2, 2, "lat lon"},
                             [=](const Fields& f, RecordWriter& out, std::string& error) {
            double v[2];
            if (!LatLong(f, v, error))
                return false;
            if (v[0] < UPSNorthLimit && v[0] > UPSSouthLimit) {
                error = "latitude " + Deg(v[0]) + " is " + capError;
                return false;
            }
            double x, y;
            qv::LatLongToUPS(v[0], v[1], ell, x, y);
            if (!Finite({x, y}, error))
                return false;
            out.Fixed(x, dec.Metres).Char(' ').Fixed(y, dec.Metres);
            return true;
        });
    }
    return StreamRecords("ups", positional, RecordShape{3, 2, "N|S x y"},
                         [=](const Fields& f, RecordWriter& out, std::string& error) {
        bool south;
        double v[2];
        if (!Hemisphere(f[0], south, error) || !geotool::Numbers(f, 1, 2, v, error))
            return false;
        double lat, lon;
        qv::UPSToLatLong(v[0], v[1], south, ell, lat, lon);
        if (!Finite({lat, lon}, error))
            return false;
        if (south ? lat > UPSSouthLimit : lat < UPSNorthLimit) {
            error = std::string("x y lie beyond the cap: latitude ") + Deg(lat) + " is " + capError;
            return false;
        }
        out.Fixed(lat, dec.Degrees).Char(' ').Fixed(lon, dec.Degrees);
        return true;
    });
}

int RunGeocentric(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const bool folded = args.Flag("--folded");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const Decimals dec = geotool::PrecisionOption(args);
    const auto positional = args.Positional();
    if (folded && !inverse)
        throw geotool::UsageError{"--folded belongs to --inverse"};
    if (!inverse) {
        return StreamRecords("geocentric", positional, RecordShape{3, 3, "lat lon h"},
                             [=](const Fields& f, RecordWriter& out, std::string& error) {
            double v[3];
            if (!geotool::Numbers(f, 0, 3, v, error) || !geotool::LatLongInRange(v[0], v[1], error))
                return false;
            double X, Y, Z;
            qv::GeoToCartesian(v[0], v[1], v[2], ell, X, Y, Z);
            if (!Finite({X, Y, Z}, error))
                return false;
            out.Fixed(X, dec.Metres).Char(' ').Fixed(Y, dec.Metres).Char(' ').Fixed(Z, dec.Metres);
            return true;
        });
    }
    if (qv::RecipFlattening(ell) == 0.0)
        throw geotool::UsageError{"geocentric --inverse needs an ellipsoid, not a sphere"};
    return StreamRecords("geocentric", positional, RecordShape{3, 3, "X Y Z"},
                         [=](const Fields& f, RecordWriter& out, std::string& error) {
        double v[3];
        if (!geotool::Numbers(f, 0, 3, v, error))
            return false;
        double lat, lon, h;
        if (folded) {
            if (v[0] == 0.0 && v[1] == 0.0) {
                error = "a point on the polar axis (X = Y = 0) has no folded longitude";
                return false;
            }
            qv::CartesianToGeo(v[0], v[1], v[2], ell, lat, lon, h);
        } else {
            qv::CartesianToGeoUnfolded(v[0], v[1], v[2], ell, lat, lon, h);
        }
        if (!Finite({lat, lon, h}, error))
            return false;
        out.Fixed(lat, dec.Degrees).Char(' ').Fixed(lon, dec.Degrees).Char(' ').Fixed(h, dec.Metres);
        return true;
    });
}

int DatumArgument(const std::string& word)
{
    long long n = 0;
    if (!geotool::ParseInt(word, n) || n < 1 || n > qv::NumGeoDatums)
        throw geotool::UsageError{"datum number must be 1 to 271 (geotool datums lists them), not \"" + word + "\""};
    return static_cast<int>(n);
}

int RunHelmert(geotool::Args& args)
{
    const bool folded = args.Flag("--folded");
    const Decimals dec = geotool::PrecisionOption(args);
    auto words = args.Positional();
    if (words.size() < 2)
        throw geotool::UsageError{"source and target datum numbers are required"};
    const int src = DatumArgument(words[0]);
    const int dst = DatumArgument(words[1]);
    words.erase(words.begin(), words.begin() + 2);
    for (const qv::TGeoDatum* d : {qv::GeoDatum(src), qv::GeoDatum(dst)})
        if (qv::RecipFlattening(d->Ellipsoid) == 0.0)
            throw geotool::UsageError{"datum on a sphere is not supported by the geocentric inverse"};
    return StreamRecords("helmert", words, RecordShape{3, 4, "lat lon h"},
                         [=](const Fields& f, RecordWriter& out, std::string& error) {
        double v[3];
        if (!geotool::Numbers(f, 0, 3, v, error))
            return false;
        double lat = 0, lon = 0, h = 0;
        const int status = folded ? qv::HelmertTransform(src, v[0], v[1], v[2], dst, lat, lon, h)
                                  : qv::HelmertTransformUnfolded(src, v[0], v[1], v[2], dst, lat, lon, h);
        if (status != qv::HelmertOk) {
            error = "HelmertTransform status " + std::to_string(status) +
                    (status == qv::HelmertBadLatitude ? ": latitude " + Deg(v[0]) + " is outside -90..90"
                                                      : ": longitude " + Deg(v[1]) + " is outside -180..180");
            return false;
        }
        if (!Finite({lat, lon, h}, error))
            return false;
        out.Fixed(lat, dec.Degrees).Char(' ').Fixed(lon, dec.Degrees).Char(' ').Fixed(h, dec.Metres);
        out.Char(' ').Int(status);
        return true;
    });
}

int RunZone(geotool::Args& args)
{
    return StreamRecords("zone", args.Positional(), RecordShape{2, 1, "lat lon"},
                         [](const Fields& f, RecordWriter& out, std::string& error) {
        double v[2];
        if (!geotool::Numbers(f, 0, 2, v, error))
            return false;
        const std::string zone = qv::GeoToUTMZone(v[0], v[1]);
        out.Text(zone.empty() ? "-" : zone);
        return true;
    });
}

// Shortest text that reads back as the same double.
RecordWriter& Shortest(RecordWriter& out, double v)
{
    return out.Text(qv::ShortestText(v));
}

int RunDatums(geotool::Args& args)
{
    if (!args.Positional().empty())
        throw geotool::UsageError{"no arguments expected"};
    RecordWriter out(stdout);
    for (int n = 1; n <= qv::NumGeoDatums; ++n) {
        const qv::TGeoDatum& d = *qv::GeoDatum(n);
        out.Int(n).Char('\t').Text(d.Name).Char('\t').Text(d.Region).Char('\t').Text(qv::GeoEllipsoidId[d.Ellipsoid]);
        for (double v : {d.dX, d.dY, d.dZ, d.Scale, d.rX, d.rY, d.rZ})
            Shortest(out.Char('\t'), v);
        out.EndLine();
    }
    return 0;
}

bool Contains(std::string_view text, std::string_view part)
{
    return qv::LowerCase(text).find(qv::LowerCase(part)) != std::string::npos;
}

// A short filter (up to 3 characters) is taken as a code or the start of a name, since as a substring
// it would hit half the table ("au" in Mauritius, Nassau, ...); a longer one as part of the name or
// capital.
bool CountryMatches(const qv::TCountryData& c, std::string_view filter)
{
    if (filter.empty())
        return true;
    if (qv::SameText(c.Fips10, filter) || qv::SameText(c.ISO3166_2, filter) || qv::SameText(c.ISO3166_3, filter))
        return true;
    if (filter.size() <= 3)
        return c.Name.size() >= filter.size() && qv::SameText(c.Name.substr(0, filter.size()), filter);
    return Contains(c.Name, filter) || Contains(c.Capital, filter);
}

int RunCountries(geotool::Args& args)
{
    const auto words = args.Positional();
    if (words.size() > 1)
        throw geotool::UsageError{"at most one filter text expected (quote names with blanks)"};
    const std::string filter = words.empty() ? std::string() : std::string(qv::Trim(words[0]));
    RecordWriter out(stdout);
    int shown = 0;
    for (int i = 0; i < qv::NumCountries; ++i) {
        const qv::TCountryData& c = qv::CountryData[i];
        if (!CountryMatches(c, filter))
            continue;
        out.Int(i).Char('\t').Text(c.Name).Char('\t').Text(c.Fips10).Char('\t').Text(c.ISO3166_2).Char('\t');
        out.Text(c.ISO3166_3).Char('\t');
        Shortest(out, c.CLat).Char('\t');
        Shortest(out, c.CLong).Char('\t').Text(c.Capital).Char('\t');
        Shortest(out, c.CapLat).Char('\t');
        Shortest(out, c.CapLong).Char('\t').Int(c.CapAlt).EndLine();
        ++shown;
    }
    out.Flush();
    if (shown == 0) {
        std::fprintf(stderr, "geotool countries: nothing matches \"%s\"\n", filter.c_str());
        return 1;
    }
    return 0;
}

const std::string StreamNote = std::string(geotool::StreamNote) + std::string(geotool::PrecisionNote);

const geotool::Registrar regUTM(
    {"utm", "geographic <-> UTM (zone, band, easting, northing)",
     "usage: geotool utm [--ellipsoid ID] [--precision N] [lat lon]\n"
     "       geotool utm --inverse [--ellipsoid ID] [--precision N] [zone N|S easting northing]\n\n"
     "Forward: lat lon (degrees) -> zone band easting northing (metres). Zones follow the Norway and\n"
     "Svalbard exceptions; longitude 180 is taken as -180 (zone 1). A latitude outside the UTM area\n"
     "-80..84 is rejected (geotool ups covers the caps).\n"
     "Inverse: zone (1-60), N or S for the hemisphere, easting, northing -> lat lon. The easting must lie\n"
     "within 400 km of the zone's central meridian (100000 to 900000 m), the northing within 0 to\n"
     "10000000 m, and the place found within 9 degrees of the meridian and between latitudes -80.5 and\n"
     "84.5; anything else is rejected. Longitudes come out in -180..180 (west of zone 1 is east of 174).\n"     "--ellipsoid ID selects the ellipsoid (default gelWGS84; geotool ellipsoids lists them).\n\n" +
         StreamNote,
     RunUTM});

const geotool::Registrar regTM(
    {"tm", "Transverse Mercator kernel about any meridian (unscaled)",
     "usage: geotool tm --lon0 DEG [--inverse] [--ellipsoid ID] [--precision N] [record]\n\n"
     "Forward: lat lon (degrees) -> x y (metres from the central meridian DEG and the equator,\n"
     "without scale factor or false origin). Inverse: x y -> lat lon. The series loses accuracy away\n"
     "from the meridian (on the equator about 1 mm at 6 degrees, 0.4 m at 15, 4 m at 20, 120 m at 30);\n"
     "a place more than 30 degrees from it, counted the short way round, is rejected either way. The\n"
     "poles lie on every meridian; x = 0 runs on over a pole onto the opposite meridian, both ways.\n"
     "Inverse longitudes come out in -180..180.\n\n" +
         StreamNote,
     RunTM});

const geotool::Registrar regUPS(
    {"ups", "geographic <-> UPS (polar caps)",
     "usage: geotool ups [--ellipsoid ID] [--precision N] [lat lon]\n"
     "       geotool ups --inverse [--ellipsoid ID] [--precision N] [N|S x y]\n\n"
     "Forward: lat lon (degrees) -> x y (metres, false origin 2000000 m, scale 0.994). Inverse: N or S\n"
     "for the cap, x, y -> lat lon. The caps reach half a degree into the UTM area: latitudes from 83.5\n"
     "to 90 in the north and from -79.5 to -90 in the south; a place or grid position beyond its cap\n"
     "is rejected.\n\n" +
         StreamNote,
     RunUPS});

const geotool::Registrar regGeocentric(
    {"geocentric", "geographic <-> earth-centred X Y Z",
     "usage: geotool geocentric [--ellipsoid ID] [--precision N] [lat lon h]\n"
     "       geotool geocentric --inverse [--folded] [--ellipsoid ID] [--precision N] [X Y Z]\n\n"
     "Forward: lat lon (degrees), h (metres above the ellipsoid) -> X Y Z (metres).\n"
     "Inverse: X Y Z -> lat lon h with the true longitude, -180..180 degrees (CartesianToGeoUnfolded; a\n"
     "point on the polar axis gives latitude +-90 and longitude 0). --folded gives the library's\n"
     "documented CartesianToGeo instead, whose longitude is folded into -90..90 (a point at 120 degrees\n"
     "east comes back as -60) and which rejects points on the axis.\n\n" +
         StreamNote,
     RunGeocentric});

const geotool::Registrar regHelmert(
    {"helmert", "seven-parameter datum shift between two datums",
     "usage: geotool helmert SRC DST [--folded] [--precision N] [lat lon h]\n\n"
     "Shifts lat lon (degrees) h (metres) from datum number SRC to datum number DST through\n"
     "WGS 84 (geotool datums lists the numbers; 269 is WGS 84) and prints lat lon h status. The\n"
     "longitude is the true one, -180..180 degrees (HelmertTransformUnfolded); --folded gives the\n"
     "library's documented HelmertTransform, whose longitude is folded into -90..90. A record whose\n"
     "status is not 0 (-3 latitude outside -90..90, -4 longitude outside -180..180) is rejected, so a\n"
     "printed status is always 0.\n\n" +
         StreamNote,
     RunHelmert});

const geotool::Registrar regZone(
    {"zone", "UTM zone text (e.g. 33T) of a position",
     "usage: geotool zone [LAT LON]\n\n"
     "Prints the UTM zone number and latitude band of a position (degrees), e.g. 33T, or '-' outside\n"
     "the UTM area (latitude beyond -80..84, longitude 180 and beyond).\n\n" +
         std::string(geotool::StreamNote),
     RunZone});

const geotool::Registrar regDatums(
    {"datums", "list the 271 geodetic datums and their shifts to WGS 84",
     "usage: geotool datums\n\n"
     "One line per datum, fields separated by a tab: number, name, region, ellipsoid identifier,\n"
     "dX, dY, dZ (m), scale (ppm), rX, rY, rZ (arc-seconds, position-vector convention). Names and\n"
     "regions keep their catalogued spelling, trailing blanks included.",
     RunDatums});

const geotool::Registrar regCountries(
    {"countries", "list the 231 countries, optionally filtered",
     "usage: geotool countries [TEXT]\n\n"
     "One line per country, fields separated by a tab: index, name, FIPS 10-4 code, ISO 3166\n"
     "two- and three-letter codes, centre latitude and longitude (degrees), capital, capital\n"
     "latitude and longitude (degrees), capital altitude (m). With TEXT, ignoring case: the rows\n"
     "one of whose codes equals TEXT, and those whose name starts with TEXT (up to 3 characters) or\n"
     "whose name or capital contains TEXT (longer texts). Exit code 1 when nothing matches.",
     RunCountries});

}  // namespace
