// Georeferenced export and import. Numbers leave in a locale-independent form: control points in their
// shortest exact representation, world files with fixed decimals.
#include <qvgeo/geomap/georef_export.h>

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <istream>
#include <ostream>
#include <sstream>

namespace qv {

namespace {

[[noreturn]] void Fail(const std::string& Text) { throw EXELGeoMapError("georeference: " + Text); }

// Fixed point with Decimals decimals, trailing zeros and a bare "-0" dropped.
std::string Fixed(double v, int Decimals)
{
    std::array<char, 64> buf{};
    const auto r = std::to_chars(buf.data(), buf.data() + buf.size(), v, std::chars_format::fixed, Decimals);
    std::string s(buf.data(), r.ptr);
    if (s.find('.') != std::string::npos) {
        while (s.back() == '0')
            s.pop_back();
        if (s.back() == '.')
            s.pop_back();
    }
    if (s == "-0")
        s = "0";
    return s;
}

std::string XmlEscape(std::string_view s)
{
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

bool IsAffine(TCalibModel m) { return m == cmEquiRect || m == cmUTM; }

void ImageSizeOf(const TMapCalibration& Cal, std::int32_t& W, std::int32_t& H)
{
    W = H = 0;
    Cal.ImageSize(W, H);
    if (W < 1 || H < 1)
        Fail("the size of the map image is unknown");
}

// Whole-line parsing of numbers: from_chars with "." and an optional exponent, finite only.
bool ParseNumber(std::string_view s, double& v)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
        s.remove_suffix(1);
    if (!s.empty() && s.front() == '+')
        s.remove_prefix(1);
    if (s.empty())
        return false;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return r.ec == std::errc() && r.ptr == s.data() + s.size() && std::isfinite(v);
}

std::uint32_t LE16(const unsigned char* p) { return p[0] | (std::uint32_t{p[1]} << 8); }
std::uint32_t LE32(const unsigned char* p) { return LE16(p) | (LE16(p + 2) << 16); }

}  // namespace

std::vector<TGroundControlPoint> CalibGCPs(const TMapCalibration& Cal, TGCPSource Source, int GridSize)
{
    const TCalibData& d = Cal.CalibData();
    const TCalibModel m = Cal.CalibModel();
    if (m == cmUndefined)
        Fail("the calibration has no model");
    const int quads = ValidCalQuads(d);
    if (Source == gcsAuto) {
        // A polynomial of the model's own form fitted to the reference points by least squares gives the
        // calibration's pixel-to-place relation back; for the other models only the fit itself does.
        const bool refit = (IsAffine(m) && quads >= 3) || (m == cmBiquadraticPn && quads >= 6);
        Source = refit ? gcsReferencePoints : gcsFitGrid;
    }
    std::vector<TGroundControlPoint> out;
    if (Source == gcsReferencePoints) {
        if (m == cmParabolicIp)
            Fail("the parabolic model has graticule lines, not reference points; export the fit on a grid");
        for (int i = 0; i < quads; ++i) {
            const TCalQuad& q = d.CalQuads[static_cast<std::size_t>(i)];
            // The quad's place belongs to the pixel's centre, half a pixel in from its corner.
            out.push_back({q.MapX + 0.5, q.MapY + 0.5, q.Longitude, q.Latitude});
        }
    } else {
        if (GridSize < 2 || GridSize > 100)
            Fail("the grid size must be 2..100");
        std::int32_t w = 0, h = 0;
        ImageSizeOf(Cal, w, h);
        const TCalibFit& fit = Cal.Fit();
        for (int j = 0; j < GridSize; ++j)
            for (int i = 0; i < GridSize; ++i) {
                const TPoint p{static_cast<std::int32_t>(std::nearbyint(i * (w - 1.0) / (GridSize - 1))),
                               static_cast<std::int32_t>(std::nearbyint(j * (h - 1.0) / (GridSize - 1)))};
                if (m == cmUTM) {
                    // Easting and northing straight from the affine fit, in the calibration's zone.
                    const TLinearPars& n = fit.EquRectPLSP()[0];
                    const TLinearPars& e = fit.EquRectPLSP()[1];
                    out.push_back({p.X + 0.5, p.Y + 0.5, e[0] + e[1] * p.X + e[2] * p.Y, n[0] + n[1] * p.X + n[2] * p.Y});
                } else {
                    TCoords c;
                    if (fit.CalcPosition(p, c) && std::isfinite(c.Latit) && std::isfinite(c.Longit))
                        out.push_back({p.X + 0.5, p.Y + 0.5, c.Longit, c.Latit});
                }
            }
    }
    if (out.size() < 3)
        Fail("fewer than 3 control points (" + std::to_string(out.size()) + ")");
    return out;
}

std::string UTMWKT(std::int32_t Zone, bool South, TGeoEllipsoid Ellipsoid)
{
    if (Zone < 1 || Zone > 60)
        Fail("UTM zone " + std::to_string(Zone) + " is not 1..60");
    const TEllipsoidAxes ax = GeoEllipsoidData[Ellipsoid];
    const bool wgs = Ellipsoid == gelWGS84;
    const std::string zone = std::to_string(Zone) + (South ? "S" : "N");
    const std::string ellName(GeoEllipsoidName[Ellipsoid]);
    const std::string geog = wgs ? "WGS 84" : "unknown datum on " + ellName;
    std::string s = "PROJCS[\"" + geog + " / UTM zone " + zone + "\",GEOGCS[\"" + geog + "\",DATUM[\"" +
                    (wgs ? "WGS_1984" : "unknown") + "\",SPHEROID[\"" + (wgs ? "WGS 84" : ellName) + "\"," +
                    ShortestText(ax.a) + "," + (wgs ? std::string("298.257223563") : ax.a == ax.b ? std::string("0") : ShortestText(RecipFlattening(Ellipsoid))) +
                    "]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],"
                    "PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",0],"
                    "PARAMETER[\"central_meridian\"," + std::to_string(6 * Zone - 183) +
                    "],PARAMETER[\"scale_factor\",0.9996],PARAMETER[\"false_easting\",500000],"
                    "PARAMETER[\"false_northing\"," + (South ? "10000000" : "0") +
                    "],UNIT[\"metre\",1],AXIS[\"Easting\",EAST],AXIS[\"Northing\",NORTH]";
    if (wgs)
        s += ",AUTHORITY[\"EPSG\",\"" + std::to_string((South ? 32700 : 32600) + Zone) + "\"]";
    return s + "]";
}

std::string CalibCRS(const TCalibData& Data, TCalibModel Model)
{
    if (Model != cmUTM)
        return "EPSG:4326";
    if (Data.Ellipsoid == gelWGS84 && Data.UTMZone >= 1 && Data.UTMZone <= 60)
        return "EPSG:" + std::to_string((Data.UTMSouth ? 32700 : 32600) + Data.UTMZone);
    return UTMWKT(Data.UTMZone, Data.UTMSouth, Data.Ellipsoid);
}

bool ReadImageBands(const std::string& FName, TImageBands& Bands)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f)
        return false;
    // Headers, palettes and JPEG segments before the frame header are small; 1 MiB bounds the search.
    std::vector<unsigned char> b(1 << 20);
    f.read(reinterpret_cast<char*>(b.data()), static_cast<std::streamsize>(b.size()));
    b.resize(static_cast<std::size_t>(f.gcount()));
    const std::size_t n = b.size();
    Bands = {};
    if (n >= 30 && b[0] == 'B' && b[1] == 'M') {
        const std::uint32_t dib = LE32(&b[14]);
        const bool core = dib == 12;
        if (!core && (dib < 40 || n < 50))
            return false;
        const std::uint32_t bits = LE16(&b[core ? 24 : 28]);
        if (bits > 8) {
            Bands.Count = 3;
            return bits == 16 || bits == 24 || bits == 32;
        }
        if (bits != 1 && bits != 4 && bits != 8)
            return false;
        std::uint32_t used = core ? 0 : LE32(&b[46]);
        if (used == 0 || used > (1u << bits))
            used = 1u << bits;
        const std::size_t entry = core ? 3 : 4, at = 14 + dib;
        if (at + used * entry > n)
            return false;
        Bands.Count = 1;
        for (std::uint32_t i = 0; i < used; ++i) {
            const unsigned char* p = &b[at + i * entry];  // blue, green, red
            Bands.Palette.push_back((std::uint32_t{p[2]} << 16) | (std::uint32_t{p[1]} << 8) | p[0]);
        }
        return true;
    }
    if (n >= 4 && b[0] == 0xFF && b[1] == 0xD8) {
        std::size_t i = 2;
        while (i + 4 <= n) {
            if (b[i] != 0xFF)
                return false;
            const unsigned char m = b[i + 1];
            if (m == 0xFF) {  // fill byte
                ++i;
                continue;
            }
            const std::size_t len = (std::size_t{b[i + 2]} << 8) | b[i + 3];
            const bool sof = m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
            if (sof) {
                if (i + 10 > n)
                    return false;
                Bands.Count = b[i + 9];
                return Bands.Count == 1 || Bands.Count == 3 || Bands.Count == 4;
            }
            if (len < 2)
                return false;
            i += 2 + len;
        }
    }
    return false;
}

void WriteGeoRefVRT(std::ostream& F, const TMapCalibration& Cal, const std::vector<TGroundControlPoint>& GCPs,
                    const std::string& SourceFName, bool RelativeToVRT, const TImageBands& Bands)
{
    std::int32_t w = 0, h = 0;
    ImageSizeOf(Cal, w, h);
    if (Bands.Count < 1)
        Fail("the map image has no bands");
    const TCalibModel m = Cal.CalibModel();
    // Control points carry X = longitude/easting and Y = latitude/northing; EPSG:4326 orders its axes
    // latitude first, so data axis 1 is its axis 2.
    F << "<VRTDataset rasterXSize=\"" << w << "\" rasterYSize=\"" << h << "\">\n"
      << "  <GCPList Projection=\"" << XmlEscape(CalibCRS(Cal.CalibData(), m)) << "\" dataAxisToSRSAxisMapping=\""
      << (m == cmUTM ? "1,2" : "2,1") << "\">\n";
    int id = 0;
    for (const TGroundControlPoint& g : GCPs)
        F << "    <GCP Id=\"" << ++id << "\" Pixel=\"" << ShortestText(g.Pixel) << "\" Line=\"" << ShortestText(g.Line)
          << "\" X=\"" << ShortestText(g.X) << "\" Y=\"" << ShortestText(g.Y) << "\"/>\n";
    F << "  </GCPList>\n";
    static const char* const kRGB[] = {"Red", "Green", "Blue"};
    static const char* const kCMYK[] = {"Cyan", "Magenta", "Yellow", "Black"};
    for (int b = 1; b <= Bands.Count; ++b) {
        F << "  <VRTRasterBand dataType=\"Byte\" band=\"" << b << "\">\n";
        if (Bands.Count == 1 && !Bands.Palette.empty()) {
            F << "    <ColorInterp>Palette</ColorInterp>\n    <ColorTable>\n";
            for (std::uint32_t c : Bands.Palette)
                F << "      <Entry c1=\"" << ((c >> 16) & 255) << "\" c2=\"" << ((c >> 8) & 255) << "\" c3=\""
                  << (c & 255) << "\" c4=\"255\"/>\n";
            F << "    </ColorTable>\n";
        } else {
            F << "    <ColorInterp>"
              << (Bands.Count == 1 ? "Gray" : Bands.Count == 3 ? kRGB[b - 1] : kCMYK[b - 1]) << "</ColorInterp>\n";
        }
        F << "    <SimpleSource>\n      <SourceFilename relativeToVRT=\"" << (RelativeToVRT ? 1 : 0) << "\">"
          << XmlEscape(SourceFName) << "</SourceFilename>\n      <SourceBand>" << b << "</SourceBand>\n"
          << "      <SrcRect xOff=\"0\" yOff=\"0\" xSize=\"" << w << "\" ySize=\"" << h << "\"/>\n"
          << "      <DstRect xOff=\"0\" yOff=\"0\" xSize=\"" << w << "\" ySize=\"" << h << "\"/>\n"
          << "    </SimpleSource>\n  </VRTRasterBand>\n";
    }
    F << "</VRTDataset>\n";
    if (!F)
        Fail("writing the VRT failed");
}

TWorldFile CalibWorldFile(const TMapCalibration& Cal)
{
    const TCalibModel m = Cal.CalibModel();
    if (!IsAffine(m))
        Fail("a world file holds an affine transform; the " + std::string(CalibModelKeywords[m]) +
             " model is not affine (export a VRT or a control-point list instead)");
    // Row 0 gives latitude (northing), row 1 longitude (easting), each c0 + c1·x + c2·y of the pixel's
    // centre: exactly the world file's terms, with no half-pixel shift.
    const TLinearPars& y = Cal.Fit().EquRectPLSP()[0];
    const TLinearPars& x = Cal.Fit().EquRectPLSP()[1];
    TWorldFile w{x[1], y[1], x[2], y[2], x[0], y[0]};
    if (w.A * w.E - w.B * w.D == 0.0 || !std::isfinite(w.A * w.E - w.B * w.D))
        Fail("the calibration's fit is degenerate (too few or collinear reference points)");
    return w;
}

void WriteWorldFile(std::ostream& Out, const TWorldFile& W, bool Metres)
{
    const int px = Metres ? 8 : 12, origin = Metres ? 4 : 10;
    Out << Fixed(W.A, px) << '\n' << Fixed(W.D, px) << '\n' << Fixed(W.B, px) << '\n' << Fixed(W.E, px) << '\n'
        << Fixed(W.C, origin) << '\n' << Fixed(W.F, origin) << '\n';
    if (!Out)
        Fail("writing the world file failed");
}

bool ReadWorldFile(std::istream& In, TWorldFile& W, std::string& Error)
{
    std::array<double, 6> v{};
    std::string line;
    int count = 0, lineNo = 0;
    while (std::getline(In, line)) {
        ++lineNo;
        const bool blank = line.find_first_not_of(" \t\r") == std::string::npos;
        if (count == 6) {
            if (!blank) {
                Error = "line " + std::to_string(lineNo) + ": a world file has six lines";
                return false;
            }
            continue;
        }
        if (!ParseNumber(line, v[static_cast<std::size_t>(count)])) {
            Error = "line " + std::to_string(lineNo) + ": not a number";
            return false;
        }
        ++count;
    }
    if (count < 6) {
        Error = "a world file has six lines, this one " + std::to_string(count);
        return false;
    }
    W = {v[0], v[1], v[2], v[3], v[4], v[5]};
    if (W.A * W.E - W.B * W.D == 0.0) {
        Error = "the pixel axes are degenerate (A*E - B*D = 0)";
        return false;
    }
    return true;
}

TCalibData WorldFileToCalib(const TWorldFile& W, std::int32_t Width, std::int32_t Height, TCalibModel Model,
                            std::int32_t Zone, bool South)
{
    if (!IsAffine(Model))
        Fail("a world file gives an equirect or a utm calibration, not " + std::string(CalibModelKeywords[Model]));
    if (Width < 2 || Height < 2)
        Fail("the image must be at least 2 x 2 pixels");
    if (Model == cmUTM && (Zone < 1 || Zone > 60))
        Fail("a utm calibration needs a zone 1..60");
    TCalibData d;
    d.UTMZone = Model == cmUTM ? Zone : -1;
    d.UTMSouth = Model == cmUTM && South;
    // The centres of the four corner pixels: the widest spread, so that rounding the places to the
    // calibration file's 5 decimals disturbs the refitted terms least.
    const std::array<TPoint, 4> px = {TPoint{0, 0}, TPoint{Width - 1, 0}, TPoint{0, Height - 1},
                                      TPoint{Width - 1, Height - 1}};
    for (const TPoint& p : px) {
        TCalQuad& q = d.CalQuads[static_cast<std::size_t>(d.NumCalQuads++)];
        q.MapX = p.X;
        q.MapY = p.Y;
        q.Longitude = W.C + W.A * p.X + W.B * p.Y;
        q.Latitude = W.F + W.D * p.X + W.E * p.Y;
    }
    return d;
}

void WriteGCPList(std::ostream& Out, const TMapCalibration& Cal, const std::vector<TGroundControlPoint>& GCPs)
{
    const TCalibData& d = Cal.CalibData();
    const TCalibModel m = Cal.CalibModel();
    std::int32_t w = 0, h = 0;
    Cal.ImageSize(w, h);
    Out << "# control points of \"" << d.Caption << "\" (model " << CalibModelKeywords[m] << "), image "
        << (d.MapFName.empty() ? "(none)" : d.MapFName) << ", " << w << " x " << h << " pixels\n"
        << "# crs " << CalibCRS(d, m) << "\n"
        << "# pixel line " << (m == cmUTM ? "easting northing (metres)" : "longitude latitude (degrees)")
        << "; pixel and line put (0, 0) at the image's top-left corner: the centre of the top-left pixel is"
           " 0.5 0.5\n";
    for (const TGroundControlPoint& g : GCPs)
        Out << ShortestText(g.Pixel) << ' ' << ShortestText(g.Line) << ' ' << ShortestText(g.X) << ' ' << ShortestText(g.Y) << '\n';
    if (!Out)
        Fail("writing the control-point list failed");
}

bool ReadGCPList(std::istream& In, std::vector<TGroundControlPoint>& GCPs, std::string& Error)
{
    GCPs.clear();
    std::string line;
    int lineNo = 0;
    while (std::getline(In, line)) {
        ++lineNo;
        std::istringstream words(line);
        std::vector<std::string> f;
        for (std::string s; words >> s;)
            f.push_back(s);
        if (f.empty() || f[0][0] == '#')
            continue;
        double v[4];
        bool ok = f.size() == 4;
        for (std::size_t i = 0; ok && i < 4; ++i)
            ok = ParseNumber(f[i], v[i]);
        if (!ok) {
            Error = "line " + std::to_string(lineNo) + ": expected \"pixel line X Y\"";
            return false;
        }
        GCPs.push_back({v[0], v[1], v[2], v[3]});
    }
    if (GCPs.empty()) {
        Error = "no control points";
        return false;
    }
    return true;
}

void GCPsToCalib(const std::vector<TGroundControlPoint>& GCPs, TCalibData& Data)
{
    if (GCPs.size() > static_cast<std::size_t>(MaxCalQuads))
        Fail("more than " + std::to_string(MaxCalQuads) + " control points");
    Data.NumCalQuads = 0;
    for (const TGroundControlPoint& g : GCPs) {
        // The pixel whose centre (x + 0.5, y + 0.5) is nearest to the image coordinates.
        const double x = std::nearbyint(g.Pixel - 0.5), y = std::nearbyint(g.Line - 0.5);
        if (!(std::fabs(x) <= 2147483647.0 && std::fabs(y) <= 2147483647.0))
            Fail("image coordinates beyond the 32-bit pixel range");
        Data.CalQuads[static_cast<std::size_t>(Data.NumCalQuads++)] =
            TCalQuad{g.Y, g.X, static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)};
    }
}

}  // namespace qv
