// geotool geodesy commands: utm, tm, ups, geocentric, helmert, zone, datums, countries.
//
// The conversions stream one record a line from standard input (or take a single record from the command
// line), print degrees with 10 decimals and metres with 4, and report a malformed line on standard error
// with its number; the run goes on and the exit code is 1 at the end.
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

using geotool::Fields;
using geotool::StreamRecords;
using geotool::RecordWriter;

constexpr int DegDecimals = 10;
constexpr int MetreDecimals = 4;
constexpr double Pi = 3.141592653589793;

qv::TGeoEllipsoid EllipsoidOption(geotool::Args& args)
{
    const std::string id = args.Option("--ellipsoid", "gelWGS84");
    qv::TGeoEllipsoid ell;
    if (!qv::FindGeoEllipsoid(id, ell))
        throw geotool::UsageError{"unknown ellipsoid \"" + id + "\" (geotool ellipsoids lists them)"};
    return ell;
}

// A field for an error message: at most 40 characters, anything unprintable shown as '?'.
std::string Quote(std::string_view field)
{
    std::string q = "\"";
    for (std::size_t i = 0; i < field.size() && i < 40; ++i) {
        const unsigned char c = static_cast<unsigned char>(field[i]);
        q.push_back(c >= 32 && c < 127 ? static_cast<char>(c) : '?');
    }
    return q + (field.size() > 40 ? "...\"" : "\"");
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

bool Numbers(const Fields& f, std::size_t first, std::size_t count, double* values, std::string& error)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (!geotool::ParseDouble(f[first + i], values[i])) {
            error = "not a number: " + Quote(f[first + i]);
            return false;
        }
    }
    return true;
}

bool FieldCount(const Fields& f, std::size_t n, const char* layout, std::string& error)
{
    if (f.size() == n)
        return true;
    error = "expected " + std::to_string(n) + " fields (" + layout + "), got " + std::to_string(f.size());
    return false;
}

bool LatLongInRange(double lat, double lon, std::string& error)
{
    if (lat < -90.0 || lat > 90.0) {
        error = "latitude outside -90..90";
        return false;
    }
    if (lon < -180.0 || lon > 180.0) {
        error = "longitude outside -180..180";
        return false;
    }
    return true;
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
    error = "hemisphere must be N or S, not " + Quote(field);
    return false;
}

// ---------------------------------------------------------------------------------------------------------

int RunUTM(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const auto positional = args.Positional();
    if (!inverse) {
        return StreamRecords("utm", positional, [ell](const Fields& f, RecordWriter& out, std::string& error) {
            double v[2];
            if (!FieldCount(f, 2, "lat lon", error) || !Numbers(f, 0, 2, v, error) || !LatLongInRange(v[0], v[1], error))
                return false;
            int zone;
            char band;
            double e, n;
            qv::GeoToUTMZone(v[0], v[1], zone, band);
            qv::LatLongToUTM(v[0], v[1], ell, zone, e, n);
            if (!Finite({e, n}, error))
                return false;
            out.Int(zone).Char(' ').Char(zone == 0 ? '-' : band).Char(' ');
            out.Fixed(e, MetreDecimals).Char(' ').Fixed(n, MetreDecimals).EndLine();
            return true;
        });
    }
    return StreamRecords("utm", positional, [ell](const Fields& f, RecordWriter& out, std::string& error) {
        long long zone;
        bool south;
        double v[2];
        if (!FieldCount(f, 4, "zone N|S easting northing", error))
            return false;
        if (!geotool::ParseInt(f[0], zone) || zone < 1 || zone > 60) {
            error = "zone must be a whole number from 1 to 60, not " + Quote(f[0]);
            return false;
        }
        if (!Hemisphere(f[1], south, error) || !Numbers(f, 2, 2, v, error))
            return false;
        double lat, lon;
        qv::UTMToLatLong(v[0], v[1], static_cast<int>(zone), south, ell, lat, lon);
        if (!Finite({lat, lon}, error))
            return false;
        out.Fixed(lat, DegDecimals).Char(' ').Fixed(lon, DegDecimals).EndLine();
        return true;
    });
}

int RunTM(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    bool found = false;
    const std::string lon0Text = args.Option("--lon0", "", &found);
    double lon0 = 0;
    if (!found || !geotool::ParseDouble(lon0Text, lon0) || lon0 < -180.0 || lon0 > 180.0)
        throw geotool::UsageError{"option --lon0 DEG (central meridian, -180 to 180 degrees) is required"};
    const double lambda0 = lon0 * Pi / 180.0;
    const auto positional = args.Positional();
    if (!inverse) {
        return StreamRecords("tm", positional, [=](const Fields& f, RecordWriter& out, std::string& error) {
            double v[2];
            if (!FieldCount(f, 2, "lat lon", error) || !Numbers(f, 0, 2, v, error) || !LatLongInRange(v[0], v[1], error))
                return false;
            double x, y;
            qv::LatLongToTM(v[0] * Pi / 180.0, v[1] * Pi / 180.0, lambda0, ell, x, y);
            if (!Finite({x, y}, error))
                return false;
            out.Fixed(x, MetreDecimals).Char(' ').Fixed(y, MetreDecimals).EndLine();
            return true;
        });
    }
    return StreamRecords("tm", positional, [=](const Fields& f, RecordWriter& out, std::string& error) {
        double v[2];
        if (!FieldCount(f, 2, "x y", error) || !Numbers(f, 0, 2, v, error))
            return false;
        double phi, lambda;
        qv::TMToLatLong(v[0], v[1], lambda0, ell, phi, lambda);
        if (!Finite({phi, lambda}, error))
            return false;
        out.Fixed(phi * 180.0 / Pi, DegDecimals).Char(' ').Fixed(lambda * 180.0 / Pi, DegDecimals).EndLine();
        return true;
    });
}

int RunUPS(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const auto positional = args.Positional();
    if (!inverse) {
        return StreamRecords("ups", positional, [ell](const Fields& f, RecordWriter& out, std::string& error) {
            double v[2];
            if (!FieldCount(f, 2, "lat lon", error) || !Numbers(f, 0, 2, v, error) || !LatLongInRange(v[0], v[1], error))
                return false;
            double x, y;
            qv::LatLongToUPS(v[0], v[1], ell, x, y);
            if (!Finite({x, y}, error))
                return false;
            out.Fixed(x, MetreDecimals).Char(' ').Fixed(y, MetreDecimals).EndLine();
            return true;
        });
    }
    return StreamRecords("ups", positional, [ell](const Fields& f, RecordWriter& out, std::string& error) {
        bool south;
        double v[2];
        if (!FieldCount(f, 3, "N|S x y", error) || !Hemisphere(f[0], south, error) || !Numbers(f, 1, 2, v, error))
            return false;
        double lat, lon;
        qv::UPSToLatLong(v[0], v[1], south, ell, lat, lon);
        if (!Finite({lat, lon}, error))
            return false;
        out.Fixed(lat, DegDecimals).Char(' ').Fixed(lon, DegDecimals).EndLine();
        return true;
    });
}

int RunGeocentric(geotool::Args& args)
{
    const bool inverse = args.Flag("--inverse");
    const qv::TGeoEllipsoid ell = EllipsoidOption(args);
    const auto positional = args.Positional();
    if (!inverse) {
        return StreamRecords("geocentric", positional, [ell](const Fields& f, RecordWriter& out, std::string& error) {
            double v[3];
            if (!FieldCount(f, 3, "lat lon h", error) || !Numbers(f, 0, 3, v, error) || !LatLongInRange(v[0], v[1], error))
                return false;
            double X, Y, Z;
            qv::GeoToCartesian(v[0], v[1], v[2], ell, X, Y, Z);
            if (!Finite({X, Y, Z}, error))
                return false;
            out.Fixed(X, MetreDecimals).Char(' ').Fixed(Y, MetreDecimals).Char(' ').Fixed(Z, MetreDecimals).EndLine();
            return true;
        });
    }
    if (qv::RecipFlattening(ell) == 0.0)
        throw geotool::UsageError{"geocentric --inverse needs an ellipsoid, not a sphere"};
    return StreamRecords("geocentric", positional, [ell](const Fields& f, RecordWriter& out, std::string& error) {
        double v[3];
        if (!FieldCount(f, 3, "X Y Z", error) || !Numbers(f, 0, 3, v, error))
            return false;
        if (v[0] == 0.0 && v[1] == 0.0) {
            error = "a point on the polar axis (X = Y = 0) has no defined longitude";
            return false;
        }
        double lat, lon, h;
        qv::CartesianToGeo(v[0], v[1], v[2], ell, lat, lon, h);
        if (!Finite({lat, lon, h}, error))
            return false;
        out.Fixed(lat, DegDecimals).Char(' ').Fixed(lon, DegDecimals).Char(' ').Fixed(h, MetreDecimals).EndLine();
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
    auto words = args.Positional();
    if (words.size() < 2)
        throw geotool::UsageError{"source and target datum numbers are required"};
    const int src = DatumArgument(words[0]);
    const int dst = DatumArgument(words[1]);
    words.erase(words.begin(), words.begin() + 2);
    for (const qv::TGeoDatum* d : {qv::GeoDatum(src), qv::GeoDatum(dst)})
        if (qv::RecipFlattening(d->Ellipsoid) == 0.0)
            throw geotool::UsageError{"datum on a sphere is not supported by the geocentric inverse"};
    return StreamRecords("helmert", words, [=](const Fields& f, RecordWriter& out, std::string& error) {
        double v[3];
        if (!FieldCount(f, 3, "lat lon h", error) || !Numbers(f, 0, 3, v, error))
            return false;
        double lat = 0, lon = 0, h = 0;
        const int status = qv::HelmertTransform(src, v[0], v[1], v[2], dst, lat, lon, h);
        if (!Finite({lat, lon, h}, error))
            return false;
        out.Fixed(lat, DegDecimals).Char(' ').Fixed(lon, DegDecimals).Char(' ').Fixed(h, MetreDecimals);
        out.Char(' ').Int(status).EndLine();
        return true;
    });
}

int RunZone(geotool::Args& args)
{
    return StreamRecords("zone", args.Positional(), [](const Fields& f, RecordWriter& out, std::string& error) {
        double v[2];
        if (!FieldCount(f, 2, "lat lon", error) || !Numbers(f, 0, 2, v, error))
            return false;
        out.Text(qv::GeoToUTMZone(v[0], v[1])).EndLine();
        return true;
    });
}

// Shortest text that reads back as the same double.
RecordWriter& Shortest(RecordWriter& out, double v)
{
    char tmp[32];
    const auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, v);
    return out.Text(ec == std::errc() ? std::string_view(tmp, end - tmp) : std::string_view("nan"));
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

const char* const StreamNote =
    "Records are read one a line from standard input (fields separated by blanks; blank lines and\n"
    "lines starting with '#' are skipped), or one record is taken from the command line. Degrees are\n"
    "printed with 10 decimals, metres with 4. A bad line is reported on standard error with its\n"
    "number; the run goes on and the exit code is 1.\n";

const geotool::Registrar regUTM(
    {"utm", "geographic <-> UTM (zone, band, easting, northing)",
     std::string("usage: geotool utm [--ellipsoid ID] [lat lon]\n"
                 "       geotool utm --inverse [--ellipsoid ID] [zone N|S easting northing]\n\n"
                 "Forward: lat lon (degrees) -> zone band easting northing (metres). Zones follow the\n"
                 "Norway and Svalbard exceptions. Outside the UTM area (latitude beyond -80..84, longitude\n"
                 "180) the zone is 0, the band '-' and the point is projected about the Greenwich meridian.\n"
                 "Inverse: zone (1-60), N or S for the hemisphere, easting, northing -> lat lon.\n"
                 "--ellipsoid ID selects the ellipsoid (default gelWGS84; geotool ellipsoids lists them).\n\n") +
         StreamNote,
     RunUTM});

const geotool::Registrar regTM(
    {"tm", "Transverse Mercator kernel about any meridian (unscaled)",
     std::string("usage: geotool tm --lon0 DEG [--inverse] [--ellipsoid ID] [record]\n\n"
                 "Forward: lat lon (degrees) -> x y (metres from the central meridian DEG and the equator,\n"
                 "without scale factor or false origin). Inverse: x y -> lat lon. The series loses\n"
                 "accuracy beyond about 6 degrees from the central meridian.\n\n") +
         StreamNote,
     RunTM});

const geotool::Registrar regUPS(
    {"ups", "geographic <-> UPS (polar caps)",
     std::string("usage: geotool ups [--ellipsoid ID] [lat lon]\n"
                 "       geotool ups --inverse [--ellipsoid ID] [N|S x y]\n\n"
                 "Forward: lat lon (degrees) -> x y (metres, false origin 2000000 m, scale 0.994); latitude\n"
                 "0 and above counts as the northern cap. Inverse: N or S for the cap, x, y -> lat lon.\n\n") +
         StreamNote,
     RunUPS});

const geotool::Registrar regGeocentric(
    {"geocentric", "geographic <-> earth-centred X Y Z",
     std::string("usage: geotool geocentric [--ellipsoid ID] [lat lon h]\n"
                 "       geotool geocentric --inverse [--ellipsoid ID] [X Y Z]\n\n"
                 "Forward: lat lon (degrees), h (metres above the ellipsoid) -> X Y Z (metres).\n"
                 "Inverse: X Y Z -> lat lon h. The inverse returns the longitude folded into -90..90\n"
                 "degrees (a point at 120 degrees east comes back as -60): that is the library's contract.\n\n") +
         StreamNote,
     RunGeocentric});

const geotool::Registrar regHelmert(
    {"helmert", "seven-parameter datum shift between two datums",
     std::string("usage: geotool helmert SRC DST [lat lon h]\n\n"
                 "Shifts lat lon (degrees) h (metres) from datum number SRC to datum number DST through\n"
                 "WGS 84 (geotool datums lists the numbers; 269 is WGS 84) and prints lat lon h status.\n"
                 "Status 0 is success, -3 a latitude outside -90..90, -4 a longitude outside -180..180\n"
                 "(the numbers are then meaningless). The longitude comes back folded into -90..90 degrees.\n\n") +
         StreamNote,
     RunHelmert});

const geotool::Registrar regZone(
    {"zone", "UTM zone text (e.g. 33T) of a position",
     std::string("usage: geotool zone [LAT LON]\n\n"
                 "Prints the UTM zone number and latitude band of a position (degrees), e.g. 33T, or an\n"
                 "empty line outside the UTM area (latitude beyond -80..84, longitude 180 and beyond).\n\n") +
         StreamNote,
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
