// The `.map` and `.points` writers and the `.points` reader. Numbers are written with std::to_chars, so
// the process locale (a GUI application may have set a comma one) never reaches the files.
#include <qvgeo/geomap/georef_formats.h>

#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#include <array>
#include <charconv>
#include <cmath>
#include <istream>
#include <ostream>

namespace qv {

const std::string_view MapFileMagic = "OziExplorer Map Data File Version 2.2";

namespace {

[[noreturn]] void Fail(const std::string& Text) { throw EXELGeoMapError("georeference: " + Text); }

std::string FixedText(double v, int Decimals)
{
    std::array<char, 64> buf{};
    const auto r = std::to_chars(buf.data(), buf.data() + buf.size(), v, std::chars_format::fixed, Decimals);
    return std::string(buf.data(), r.ptr);
}

// Fixed point with trailing zeros (and a bare "-0") dropped.
std::string Trimmed(double v, int Decimals)
{
    std::string s = FixedText(v, Decimals);
    if (s.find('.') != std::string::npos) {
        while (s.back() == '0')
            s.pop_back();
        if (s.back() == '.')
            s.pop_back();
    }
    return s == "-0" ? "0" : s;
}

// Right-aligned in Width characters, as the format's columns are.
std::string Pad(const std::string& s, std::size_t Width)
{
    return s.size() >= Width ? s : std::string(Width - s.size(), ' ') + s;
}

// Degrees and minutes of |v| with minutes to 6 decimals (about 2 mm), carried so that "60.000000"
// never appears.
void DegreesMinutes(double v, long long& Degrees, double& Minutes)
{
    const long long micro = std::llround(std::fabs(v) * 60.0e6);  // millionths of a minute
    Degrees = micro / 60000000;
    Minutes = static_cast<double>(micro % 60000000) / 1.0e6;
}

// The place the calibration gives the image coordinate (x, y), the corner shared by the pixels
// (x-1, y-1) .. (x, y): the mean of their four centres. The fit's curvature over one pixel makes this
// differ from the exact place by a few millionths of a pixel.
bool CornerPlace(const TMapCalibration& Cal, std::int32_t x, std::int32_t y, TCoords& Place)
{
    TCoords sum{0.0, 0.0};
    for (const TPoint p : {TPoint{x - 1, y - 1}, TPoint{x, y - 1}, TPoint{x - 1, y}, TPoint{x, y}}) {
        TCoords c;
        if (!Cal.CalcPosition(p, c) || !std::isfinite(c.Latit) || !std::isfinite(c.Longit))
            return false;
        sum.Latit += c.Latit;
        sum.Longit += c.Longit;
    }
    Place = {sum.Latit / 4.0, sum.Longit / 4.0};
    return true;
}

std::vector<std::string> SplitCommas(std::string_view s)
{
    std::vector<std::string> out;
    std::size_t at = 0;
    for (;;) {
        const auto comma = s.find(',', at);
        out.emplace_back(Trim(s.substr(at, comma == std::string_view::npos ? std::string_view::npos : comma - at)));
        if (comma == std::string_view::npos)
            return out;
        at = comma + 1;
    }
}

bool Number(const std::string& s, double& v)
{
    std::string_view t = s;
    if (!t.empty() && t.front() == '+')
        t.remove_prefix(1);
    if (t.empty())
        return false;
    const auto r = std::from_chars(t.data(), t.data() + t.size(), v);
    return r.ec == std::errc() && r.ptr == t.data() + t.size() && std::isfinite(v);
}

std::string Lower(std::string s)
{
    for (char& c : s)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return s;
}

}  // namespace

std::string GeographicWKT(TGeoEllipsoid Ellipsoid)
{
    if (Ellipsoid == gelWGS84)
        return "GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563]],"
               "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433],AXIS[\"Latitude\",NORTH],"
               "AXIS[\"Longitude\",EAST],AUTHORITY[\"EPSG\",\"4326\"]]";
    const TEllipsoidAxes ax = GeoEllipsoidData[Ellipsoid];
    const std::string name(GeoEllipsoidName[Ellipsoid]);
    return "GEOGCS[\"unknown datum on " + name + "\",DATUM[\"unknown\",SPHEROID[\"" + name + "\"," + ShortestText(ax.a) +
           "," + (ax.a == ax.b ? std::string("0") : ShortestText(RecipFlattening(Ellipsoid))) +
           "]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433],AXIS[\"Latitude\",NORTH],"
           "AXIS[\"Longitude\",EAST]]";
}

void WriteMapFile(std::ostream& Out, const TMapCalibration& Cal, const std::string& ImageName, const std::string& Title)
{
    const TCalibModel m = Cal.CalibModel();
    const TCalibData& d = Cal.CalibData();
    std::int32_t w = 0, h = 0;
    Cal.ImageSize(w, h);
    if (w < 1 || h < 1)
        Fail("the size of the map image is unknown");
    // The fit itself, not the reference points: a reader fits a polynomial of its own choosing (GDAL's
    // order depends on the number of points) through whatever points it gets, and only points without
    // residuals make every such polynomial give this calibration's places.
    const std::vector<TGroundControlPoint> gcps = CalibGCPs(Cal, gcsFitGrid, 5);

    Out << MapFileMagic << "\r\n" << Title << "\r\n" << ImageName << "\r\n1 ,Map Code,\r\n"
        << "WGS 84,WGS 84,   0.0000,   0.0000,WGS 84\r\nReserved 1\r\nReserved 2\r\nMagnetic Variation,,,E\r\n"
        << "Map Projection,Latitude/Longitude,PolyCal,No,AutoCalOnly,No,BSBUseWPX,No\r\n";
    for (int i = 0; i < MaxMapFilePoints; ++i) {
        const std::string no = (i < 9 ? "0" : "") + std::to_string(i + 1);
        if (i >= static_cast<int>(gcps.size())) {
            Out << "Point" << no << ",xy,     ,     ,in, deg,    ,          ,N,    ,          ,E, grid,   ,"
                   "           ,           ,N\r\n";
            continue;
        }
        const TGroundControlPoint& g = gcps[static_cast<std::size_t>(i)];
        // The control points sit at pixel centres (x + 0.5, y + 0.5); the file gets the pixel's corner.
        const auto x = static_cast<std::int32_t>(std::floor(g.Pixel)), y = static_cast<std::int32_t>(std::floor(g.Line));
        TCoords place{g.Y, g.X};
        if (m == cmUTM)
            UTMToLatLong(g.X, g.Y, d.UTMZone, d.UTMSouth, d.Ellipsoid, place.Latit, place.Longit);
        TCoords centre, corner;
        if (!Cal.CalcPosition(TPoint{x, y}, centre) || !CornerPlace(Cal, x, y, corner) || !std::isfinite(place.Latit) ||
            !std::isfinite(place.Longit))
            Fail("the calibration gives no place for pixel " + std::to_string(x) + ", " + std::to_string(y));
        place.Latit += corner.Latit - centre.Latit;
        place.Longit += corner.Longit - centre.Longit;
        long long latD = 0, lonD = 0;
        double latM = 0, lonM = 0;
        DegreesMinutes(place.Latit, latD, latM);
        DegreesMinutes(place.Longit, lonD, lonM);
        Out << "Point" << no << ",xy," << Pad(std::to_string(x), 5) << ',' << Pad(std::to_string(y), 5) << ",in, deg,"
            << Pad(std::to_string(latD), 4) << ',' << Pad(FixedText(latM, 6), 10) << ',' << (place.Latit < 0 ? 'S' : 'N')
            << ',' << Pad(std::to_string(lonD), 4) << ',' << Pad(FixedText(lonM, 6), 10) << ','
            << (place.Longit < 0 ? 'W' : 'E') << ", grid,   ,           ,           ,N\r\n";
    }
    Out << "Projection Setup,,,,,,,,,,\r\nMap Feature = MF ; Map Comment = MM     ; Track File = TF\r\nMM0,Yes\r\n"
        << "MMPNUM,4\r\n";
    const std::array<TPoint, 4> corners = {TPoint{0, 0}, TPoint{w - 1, 0}, TPoint{w - 1, h - 1}, TPoint{0, h - 1}};
    for (std::size_t i = 0; i < corners.size(); ++i)
        Out << "MMPXY," << i + 1 << ',' << corners[i].X << ',' << corners[i].Y << "\r\n";
    for (std::size_t i = 0; i < corners.size(); ++i) {
        TCoords c;
        if (!CornerPlace(Cal, corners[i].X, corners[i].Y, c))
            Fail("the calibration gives no place for the image's corners");
        Out << "MMPLL," << i + 1 << ',' << Pad(FixedText(c.Longit, 6), 11) << ',' << Pad(FixedText(c.Latit, 6), 11) << "\r\n";
    }
    Out << "IWH,Map Image Width/Height," << w << ',' << h << "\r\n";
    if (!Out)
        Fail("writing the .map file failed");
}

void WritePointsFile(std::ostream& Out, const TMapCalibration& Cal, TGCPSource Source)
{
    const TCalibModel m = Cal.CalibModel();
    const TCalibData& d = Cal.CalibData();
    const std::vector<TGroundControlPoint> gcps = CalibGCPs(Cal, Source);
    const std::string crs = m == cmUTM ? UTMWKT(d.UTMZone, d.UTMSouth, d.Ellipsoid) : GeographicWKT(d.Ellipsoid);
    Out << "#CRS: " << crs << "\nmapX,mapY,pixelX,pixelY,enable,dX,dY,residual\n";
    for (const TGroundControlPoint& g : gcps) {
        double px = 0, py = 0, dx = 0, dy = 0;
        const bool ok = m == cmUTM ? Cal.Fit().CalcPixelPositionUTM(g.Y, g.X, px, py)
                                   : Cal.Fit().CalcPixelPosition(g.Y, g.X, px, py);
        if (ok) {
            // Predicted minus given, in image coordinates; the file's y axis points up.
            dx = px + 0.5 - g.Pixel;
            dy = -(py + 0.5 - g.Line);
        }
        // Residuals to a millionth of a pixel: the fit's rounding noise below that says nothing.
        Out << ShortestText(g.X) << ',' << ShortestText(g.Y) << ',' << ShortestText(g.Pixel) << ',' << ShortestText(-g.Line) << ",1,"
            << Trimmed(dx, 6) << ',' << Trimmed(dy, 6) << ',' << Trimmed(std::hypot(dx, dy), 6) << '\n';
    }
    if (!Out)
        Fail("writing the .points file failed");
}

bool ReadPointsFile(std::istream& In, TPointsFile& File, std::string& Error)
{
    File = {};
    std::string line;
    int lineNo = 0;
    std::size_t columns = 0;  // 0 until the header is read
    auto bad = [&](const std::string& Text) {
        Error = "line " + std::to_string(lineNo) + ": " + Text;
        return false;
    };
    while (std::getline(In, line)) {
        ++lineNo;
        const std::string t(Trim(line));
        if (t.empty())
            continue;
        if (t[0] == '#') {
            if (t.rfind("#CRS:", 0) == 0) {
                if (columns != 0)
                    return bad("the \"#CRS:\" line must come before the header");
                File.CRS = std::string(Trim(std::string_view(t).substr(5)));
            }
            continue;
        }
        if (columns == 0) {
            const std::string hdr = Lower(t);
            for (const char* image : {"pixel", "source"}) {
                const std::string base = std::string("mapx,mapy,") + image + "x," + image + "y,enable";
                if (hdr == base)
                    columns = 5;
                else if (hdr == base + ",dx,dy,residual")
                    columns = 8;
            }
            if (columns == 0)
                return bad("expected the header \"mapX,mapY,pixelX,pixelY,enable,dX,dY,residual\" (or its first five "
                           "columns)");
            continue;
        }
        const std::vector<std::string> f = SplitCommas(t);
        if (f.size() != columns)
            return bad("expected " + std::to_string(columns) + " comma-separated fields, found " + std::to_string(f.size()));
        std::array<double, 8> v{};
        for (std::size_t i = 0; i < columns; ++i)
            if (!Number(f[i], v[i]))
                return bad("field " + std::to_string(i + 1) + " \"" + f[i] + "\" is not a finite number");
        if (v[4] != 0.0 && v[4] != 1.0)
            return bad("enable must be 0 or 1, not \"" + f[4] + "\"");
        if (v[4] == 0.0) {
            ++File.Disabled;
            continue;
        }
        if (File.Points.size() == static_cast<std::size_t>(MaxCalQuads))
            return bad("more than " + std::to_string(MaxCalQuads) + " enabled points (a calibration holds at most " +
                       std::to_string(MaxCalQuads) + ")");
        File.Points.push_back({v[2], -v[3], v[0], v[1]});
    }
    if (columns == 0) {
        Error = "no header \"mapX,mapY,pixelX,pixelY,enable,...\": not a .points file";
        return false;
    }
    if (File.Points.empty()) {
        Error = "no enabled points";
        return false;
    }
    return true;
}

}  // namespace qv
