// geotool calib: the command-line calibration workbench — show a calibration, convert pixels to places
// and back through it, fit a new calibration from a list of control points, and export a calibration
// as a georeferenced VRT, world file or control-point list or import one of the latter two.
//
// Calibration files are read with ParseCalibData, so every model keyword (parabolic included) works. The
// image size, which corners and resolution depend on, comes from --size WxH or from the header of the
// image the calibration names (looked up as written, then beside the calibration file).
#include "command.h"
#include "line_io.h"
#if defined(QVGEO_WITH_GDAL)
#include "calib_georef.h"

#include <qvgeo/gdalio/georef_import.h>
#endif

#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/geomap/calib_points.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/georef_export.h>
#include <qvgeo/geomap/georef_formats.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/support/text.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using geotool::RecordWriter;
using geotool::UsageError;
using geotool::Fields;
using geotool::StreamRecords;

struct ImageSize {
    std::int32_t w = 0, h = 0;
    std::string source;  // how the size was learnt, for `show`
};

bool ParseSize(const std::string& text, std::int32_t& w, std::int32_t& h)
{
    const auto x = text.find_first_of("xX");
    if (x == std::string::npos)
        return false;
    long long a = 0, b = 0;
    if (!geotool::ParseInt(std::string_view(text).substr(0, x), a) ||
        !geotool::ParseInt(std::string_view(text).substr(x + 1), b) || a < 1 || b < 1 || a > 1000000 || b > 1000000)
        return false;
    w = static_cast<std::int32_t>(a);
    h = static_cast<std::int32_t>(b);
    return true;
}

// The image file a calibration names: as written (relative to the working directory or absolute), else
// beside the calibration file, else its bare name beside the calibration file (names written on other
// systems carry foreign directories such as "c:\maps\"). Empty when none exists.
std::string FindImage(const std::string& calFile, const std::string& mapName)
{
    if (mapName.empty())
        return {};
    namespace fs = std::filesystem;
    const fs::path dir = fs::path(calFile).parent_path();
    std::error_code ec;
    for (const fs::path& p : {fs::path(mapName), dir / mapName, dir / qv::StripPath(mapName)})
        if (fs::is_regular_file(p, ec))
            return p.string();
    return {};
}

ImageSize SizeOption(geotool::Args& args, bool required)
{
    ImageSize s;
    bool found = false;
    const std::string text = args.Option("--size", "", &found);
    if (found) {
        if (!ParseSize(text, s.w, s.h))
            throw UsageError{"--size wants WIDTHxHEIGHT in pixels, e.g. 800x600"};
        s.source = "--size";
    } else if (required) {
        throw UsageError{"--size WIDTHxHEIGHT is required"};
    }
    return s;
}

struct Loaded {
    qv::TMapCalibration cal;
    qv::TCalibModel model = qv::cmUndefined;
    qv::TCalibData fileData;  // as read, with the file's corners and resolution
    std::string file, id;
    ImageSize size;
    std::string imagePath;
};

// Reads FILE (the one positional word left after Extra positional words are taken) and fits its model.
// With imageOption, --image IMAGE names the map image instead of the one the calibration names.
void LoadCalibration(geotool::Args& args, Loaded& L, std::vector<std::string>* extra, bool imageOption = false)
{
    const std::string image = imageOption ? args.Option("--image", "") : std::string();
    L.id = args.Option("--id", "");
    L.size = SizeOption(args, false);
    std::vector<std::string> pos = args.Positional();
    if (pos.empty())
        throw UsageError{"a calibration FILE is needed"};
    if (!extra && pos.size() > 1)
        throw UsageError{"only one calibration FILE is expected"};
    L.file = pos[0];
    if (extra)
        extra->assign(pos.begin() + 1, pos.end());
    qv::TCalibData d;
    if (!qv::ParseCalibData(L.file, L.id, d, L.model)) {
        geotool::OpenInput(L.file);  // a file that cannot be read is reported as such, with the reason
        throw std::runtime_error(L.id.empty() ? "no calibration in \"" + L.file + "\""
                                              : "no calibration with id \"" + L.id + "\" in \"" + L.file + "\"");
    }
    L.fileData = d;
    L.imagePath = image.empty() ? FindImage(L.file, d.MapFName) : image;
    if (!image.empty())
        geotool::OpenInput(image);  // named explicitly: it must exist
    if (L.size.source.empty() && !L.imagePath.empty()) {
        if (qv::ReadImageSize(L.imagePath, L.size.w, L.size.h))
            L.size.source = "header of " + L.imagePath;
#if defined(QVGEO_WITH_GDAL)
        else if (qv::ReadRasterSize(L.imagePath, L.size.w, L.size.h))
            L.size.source = "GDAL's reading of " + L.imagePath;
#endif
    }
    L.cal.SetComponentName("calib");
    L.cal.SetImageSize(L.size.w, L.size.h);
    L.cal.LoadCalibData(d, L.model);
}

// ---- show ---------------------------------------------------------------------------------------------

const char* const kCornerNames[4] = {"top-left", "bottom-left", "bottom-right", "top-right"};

void PrintCorners(const qv::TCornerArray& c)
{
    for (int i = 0; i < 4; ++i)
        std::printf("  %-13s %14.8f %14.8f\n", kCornerNames[i], c[static_cast<std::size_t>(i)].Latit,
                    c[static_cast<std::size_t>(i)].Longit);
}

template <std::size_t N>
void PrintSet(const char* name, const std::array<double, N>& a)
{
    std::printf("  %-22s", name);
    for (double v : a)
        std::printf(" %.12g", v);
    std::printf("\n");
}

// "rms 0.42 px, 5.31 m over 6 points; worst point 3 (0.80 px, 10.20 m)" and the leave-one-out figure,
// or why the residuals mean nothing.
std::string ResidualSummary(const qv::TCalibResiduals& r)
{
    if (r.Diagnosis != qv::cdgOK)
        return "not meaningful: " + qv::CalibDiagnosisText(r);
    char buf[256];
    std::string s;
    std::snprintf(buf, sizeof buf, "rms %.2f px, %.2f m over %zu points", r.RmsPixels, r.RmsMetres, r.Quads.size());
    s = buf;
    if (r.Worst > 0) {
        const qv::TQuadResidual& w = r.Quads[static_cast<std::size_t>(r.Worst - 1)];
        std::snprintf(buf, sizeof buf, "; worst point %d (%.2f px, %.2f m)", r.Worst, w.Pixels, w.Metres);
        s += buf;
    }
    if (r.WorstLeaveOneOut > 0) {
        std::snprintf(buf, sizeof buf, "; leave-one-out: point %d moves %.2f px when fitted without it",
                      r.WorstLeaveOneOut, r.Quads[static_cast<std::size_t>(r.WorstLeaveOneOut - 1)].LeaveOneOut);
        s += buf;
    }
    return s;
}

int RunShow(geotool::Args& args)
{
    Loaded L;
    LoadCalibration(args, L, nullptr);
    const qv::TMapCalibration& cal = L.cal;
    const qv::TCalibData& d = cal.CalibData();
    std::printf("file          %s\n", L.file.c_str());
    std::printf("model         %s\n", std::string(qv::CalibModelKeywords[L.model]).c_str());
    std::printf("caption       %s\n", d.Caption.c_str());
    std::printf("map image     %s%s\n", d.MapFName.empty() ? "(none)" : d.MapFName.c_str(),
                !d.MapFName.empty() && L.imagePath.empty() ? " (not found)" : "");
    if (L.size.source.empty())
        std::printf("image size    unknown (give --size WxH)\n");
    else
        std::printf("image size    %d x %d px (%s)\n", L.size.w, L.size.h, L.size.source.c_str());
    std::printf("ellipsoid     %s (%s)\n", std::string(qv::GeoEllipsoidId[d.Ellipsoid]).c_str(),
                std::string(qv::GeoEllipsoidName[d.Ellipsoid]).c_str());
    if (d.UTMZone >= 1 && d.UTMZone <= 60)
        std::printf("UTM zone      %d %s\n", d.UTMZone, d.UTMSouth ? "south" : "north");
    else
        std::printf("UTM zone      none\n");
    std::printf("corners (file, latitude longitude in degrees)\n");
    PrintCorners(L.fileData.Corners);
    std::printf("resolution    %.3f m/px (file)\n", L.fileData.Resolution);
    if (!L.size.source.empty() && L.model != qv::cmUndefined) {
        qv::TMapCalibration fitted;
        fitted.AssignCalibration(cal);
        fitted.CalcExtentsAndResolution();
        std::printf("corners (from the fit and the image size)\n");
        PrintCorners(fitted.CalibData().Corners);
        std::printf("resolution    %.3f m/px (from the fit)\n", fitted.CalibData().Resolution);
    }

    std::printf("graticule lines %d\n", d.NumCalLines);
    const qv::TMatrix& g = cal.GratMat();
    const bool gratOk = g.NrOfRows() == qv::ValidCalLines(d) && qv::ValidCalLines(d) > 0;
    for (int i = 0; i < qv::ValidCalLines(d); ++i) {
        const qv::TCalibLine& line = d.CalLines[static_cast<std::size_t>(i)];
        std::printf("  %2d %-8s %-12s", i + 1, line.LineType == qv::gtlParallel ? "parallel" : "meridian",
                    qv::FormatG(line.LineValue).c_str());
        for (int p = 0; p < qv::ValidLinePoints(line); ++p)
            std::printf(" [%d,%d]", line.CalPoints[static_cast<std::size_t>(p)].X,
                        line.CalPoints[static_cast<std::size_t>(p)].Y);
        if (gratOk && line.NumPoints >= 3)
            std::printf("  k0 %.6g k1 %.6g k2 %.6g", g.GetVal(3, i + 1), g.GetVal(4, i + 1), g.GetVal(5, i + 1));
        std::printf("\n");
    }
    if (L.model == qv::cmParabolicIp && !gratOk)
        std::printf("  graticule not usable: it needs two parallels and two meridians of 3 points or more\n");

    const qv::TCalibResiduals res = qv::CalibResiduals(d, cal.Fit(), L.size.w, L.size.h);
    std::printf("quads %d (%s, x y, predicted x y, residual px m, leave-one-out px)\n", d.NumCalQuads,
                L.model == qv::cmUTM ? "northing easting in metres" : "latitude longitude");
    for (int i = 0; i < qv::ValidCalQuads(d); ++i) {
        const qv::TCalQuad& q = d.CalQuads[static_cast<std::size_t>(i)];
        std::printf("  %3d %15.5f %15.5f %6d %6d", i + 1, q.Latitude, q.Longitude, q.MapX, q.MapY);
        const qv::TQuadResidual* r = res.Quads.empty() ? nullptr : &res.Quads[static_cast<std::size_t>(i)];
        if (r && r->Valid) {
            std::printf(" %9.2f %9.2f %8.2f", r->PredX, r->PredY, r->Pixels);
            r->Metres >= 0 ? std::printf(" %9.2f", r->Metres) : std::printf("         -");
            r->LeaveOneOut >= 0 ? std::printf(" %8.2f\n", r->LeaveOneOut) : std::printf("        -\n");
        } else {
            std::printf("         -         -        -         -        -\n");
        }
    }

    std::printf("coefficients\n");
    switch (L.model) {
    case qv::cmEquiRect:
    case qv::cmUTM:
        PrintSet("pixel->lat/northing", cal.EquRectPLSP()[0]);
        PrintSet("pixel->lon/easting", cal.EquRectPLSP()[1]);
        PrintSet("geo->x", cal.EquRectSPPL()[0]);
        PrintSet("geo->y", cal.EquRectSPPL()[1]);
        break;
    case qv::cmBiquadraticPn:
        PrintSet("pixel->lat", cal.CalParsPLSP()[0]);
        PrintSet("pixel->lon", cal.CalParsPLSP()[1]);
        PrintSet("geo->x", cal.CalParsSPPL()[0]);
        PrintSet("geo->y", cal.CalParsSPPL()[1]);
        break;
    case qv::cmMillerCylindrical:
        PrintSet("y-slope y-off x-slope x-off", cal.MillercylPar());
        break;
    case qv::cmConicConformal:
        PrintSet("apex x y, lat k d, lon k d", cal.ConicPars());
        break;
    case qv::cmParabolicIp:
        std::printf("  (the graticule parabolas above)\n");
        break;
    case qv::cmUndefined:
        std::printf("  (none: undefined model)\n");
        break;
    }
    if (L.model >= qv::cmBiquadraticPn && L.model <= qv::cmEquiRect) {
        double qx = 0, qy = 0;
        cal.CalibQuality(qx, qy);
        std::printf("CalibQuality  x %.3f px, y %.3f px (rms)\n", qx, qy);
    } else if (L.model == qv::cmUTM) {
        std::printf("CalibQuality  not meaningful under utm (the quads hold northing/easting)\n");
    }
    if (L.model != qv::cmParabolicIp || res.Diagnosis == qv::cdgOutOfRange)
        std::printf("residuals     %s\n", ResidualSummary(res).c_str());
    return 0;
}

// ---- pix2geo / geo2pix --------------------------------------------------------------------------------

bool TwoInts(const Fields& f, std::int32_t& a, std::int32_t& b, std::string& error)
{
    long long x = 0, y = 0;
    if (!geotool::ParseInt(f[0], x) || !geotool::ParseInt(f[1], y) || x < INT32_MIN ||
        x > INT32_MAX || y < INT32_MIN || y > INT32_MAX) {
        error = "expected two integer pixel coordinates \"x y\"";
        return false;
    }
    a = static_cast<std::int32_t>(x);
    b = static_cast<std::int32_t>(y);
    return true;
}

int RunPix2Geo(geotool::Args& args)
{
    Loaded L;
    std::vector<std::string> extra;
    const int decimals = geotool::PrecisionOption(args).Degrees;
    LoadCalibration(args, L, &extra);
    return StreamRecords("calib pix2geo", extra, {2, 3, "x y"}, [&](const Fields& f, RecordWriter& out, std::string& error) {
        std::int32_t x = 0, y = 0;
        if (!TwoInts(f, x, y, error))
            return false;
        bool v1 = false, v2 = false;
        const double lat = L.cal.CalcLatitude(x, y, v1);
        const double lon = L.cal.CalcLongitude(x, y, v2);
        out.Fixed(lat, decimals).Char(' ').Fixed(lon, decimals).Char(' ').Int(v1 && v2 ? 1 : 0);
        return true;
    });
}

int RunGeo2Pix(geotool::Args& args)
{
    Loaded L;
    std::vector<std::string> extra;
    LoadCalibration(args, L, &extra);
    return StreamRecords("calib geo2pix", extra, {2, 3, "lat lon"}, [&](const Fields& f, RecordWriter& out, std::string& error) {
        double v[2];
        if (!geotool::Numbers(f, 0, 2, v, error) || !geotool::LatLongInRange(v[0], v[1], error))
            return false;
        std::int32_t x = 0, y = 0;
        const bool ok = L.cal.CalcPixelCoords(v[0], v[1], x, y);
        out.Int(x).Char(' ').Int(y).Char(' ').Int(ok ? 1 : 0);
        return true;
    });
}

// ---- fit ----------------------------------------------------------------------------------------------

// Nothing can come of too few points, positions off the globe or collinear points; repeated points and an
// exact fit still give a calibration, with a warning.
bool UsableFit(const qv::TCalibResiduals& res, const char* command)
{
    switch (res.Diagnosis) {
    case qv::cdgTooFewPoints:
    case qv::cdgOutOfRange:
    case qv::cdgCollinearPoints:
        std::fprintf(stderr, "geotool %s: %s\n", command, qv::CalibDiagnosisText(res).c_str());
        return false;
    default:
        return true;
    }
}

qv::TGeoEllipsoid EllipsoidOption(const std::string& text)
{
    qv::TGeoEllipsoid ell = qv::gelWGS84;
    if (!qv::FindGeoEllipsoid(text, ell))
        throw UsageError{"unknown ellipsoid \"" + text + "\" (geotool ellipsoids lists them)"};
    return ell;
}

// The UTM zone of --zone (1..60), required by the utm model and refused, with --south, by the others;
// -1 for models without a zone.
long long ZoneOption(qv::TCalibModel model, bool zoneGiven, const std::string& zoneText, bool south)
{
    long long zone = -1;
    if (model == qv::cmUTM) {
        if (!zoneGiven || !geotool::ParseInt(zoneText, zone) || zone < 1 || zone > 60)
            throw UsageError{"the utm model needs --zone 1..60"};
    } else if (zoneGiven || south) {
        throw UsageError{"--zone and --south belong to the utm model"};
    }
    return zone;
}

int RunFit(geotool::Args& args)
{
    const std::string keyword = qv::LowerCase(args.RequiredOption("--model"));
    int ix = -1;
    for (int i = 0; i < qv::NumCalibModels; ++i)
        if (qv::CalibModelKeywords[static_cast<std::size_t>(i)] == keyword)
            ix = i;
    if (ix < 0 || ix == qv::cmUndefined)
        throw UsageError{"unknown --model \"" + keyword +
                         "\" (parabolicip, biquadraticpn, conicconformal, millercylindrical, equirect, utm)"};
    const auto model = static_cast<qv::TCalibModel>(ix);
    const ImageSize size = SizeOption(args, true);
    bool zoneGiven = false;
    const std::string zoneText = args.Option("--zone", "", &zoneGiven);
    const bool south = args.Flag("--south");
    const std::string id = args.Option("--id", "1");
    const std::string map = args.Option("--map", "");
    const std::string caption = args.Option("--caption", "");
    const std::string ellText = args.Option("--ellipsoid", "gelWGS84");
    if (!args.Positional().empty())
        throw UsageError{"no positional arguments expected: the reference points come from standard input"};
    const qv::TGeoEllipsoid ell = EllipsoidOption(ellText);
    const long long zone = ZoneOption(model, zoneGiven, zoneText, south);
    if (zone == 60)
        std::fprintf(stderr, "geotool calib fit: warning: zone 60 is not written to calibration files; "
                             "readers will see no zone\n");

    qv::TCalibData d;
    d.MapFName = map;
    d.Caption = caption;
    d.UTMZone = static_cast<std::int32_t>(zone);
    d.UTMSouth = south;
    d.Ellipsoid = ell;
    geotool::RecordReader in(stdin);
    Fields f;
    bool failed = false;
    auto bad = [&](std::string_view msg) {
        geotool::ReportLineError("calib fit", in.LineNumber(), msg);
        failed = true;
    };
    while (in.Next(f)) {
        if (model == qv::cmParabolicIp) {
            double value = 0;
            long long x = 0, y = 0;
            const std::string kind = f.empty() ? std::string() : qv::LowerCase(f[0]);
            if (f.size() != 4 || (kind != "parallel" && kind != "meridian") || !geotool::ParseDouble(f[1], value) ||
                !geotool::ParseInt(f[2], x) || !geotool::ParseInt(f[3], y) || x < INT32_MIN || x > INT32_MAX ||
                y < INT32_MIN || y > INT32_MAX) {
                bad("expected \"parallel|meridian VALUE x y\"");
                continue;
            }
            const qv::TGratLineKind k = kind == "parallel" ? qv::gtlParallel : qv::gtlMeridian;
            switch (qv::AppendLinePoint(d, k, value, qv::TPoint{static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)})) {
            case qv::caLinesFull: bad("more than 25 graticule lines"); break;
            case qv::caLineFull: bad("more than 10 points on this graticule line"); break;
            default: break;
            }
        } else {
            double a = 0, b = 0;
            long long x = 0, y = 0;
            if (f.size() != 4 || !geotool::ParseDouble(f[0], a) || !geotool::ParseDouble(f[1], b) ||
                !geotool::ParseInt(f[2], x) || !geotool::ParseInt(f[3], y) || x < INT32_MIN || x > INT32_MAX ||
                y < INT32_MIN || y > INT32_MAX) {
                bad(model == qv::cmUTM ? "expected \"northing easting x y\"" : "expected \"latitude longitude x y\"");
                continue;
            }
            if (qv::AppendCalQuad(d, qv::TCalQuad{a, b, static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)}) !=
                qv::caAppended)
                bad("more than 200 reference points");
        }
    }
    if (failed)
        return 1;

    qv::TMapCalibration cal;
    cal.SetComponentName("calib");
    cal.SetImageSize(size.w, size.h);
    cal.LoadCalibData(d, model);
    const qv::TCalibResiduals res = qv::CalibResiduals(cal.CalibData(), cal.Fit(), size.w, size.h);
    if (!UsableFit(res, "calib fit"))
        return 1;
    cal.CalcExtentsAndResolution();
    qv::WriteRawCalDataToOpenXMLFile(std::cout, true, id, cal.CalibData(), model);
    geotool::CheckStandardOutput(std::cout);
    if (model != qv::cmParabolicIp)
        std::fprintf(stderr, "geotool calib fit: %d reference points, residuals %s\n", d.NumCalQuads,
                     ResidualSummary(res).c_str());
    return 0;
}

// ---- export / import ----------------------------------------------------------------------------------

// Writes Content to FILE whole; a file that cannot be created or written is named with the reason.
void WriteOutputFile(const std::string& file, const std::string& content)
{
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    if (!out)
        throw std::runtime_error(geotool::FileError(file, "cannot create"));
    out << content;
    out.close();
    if (!out)
        throw std::runtime_error(geotool::FileError(file, "cannot write"));
}

qv::TCalibModel ModelOption(geotool::Args& args, qv::TCalibModel fallback)
{
    bool found = false;
    const std::string keyword = qv::LowerCase(args.Option("--model", "", &found));
    if (!found)
        return fallback;
    for (int i = 0; i < qv::NumCalibModels; ++i)
        if (qv::CalibModelKeywords[static_cast<std::size_t>(i)] == keyword)
            return static_cast<qv::TCalibModel>(i);
    throw UsageError{"unknown --model \"" + keyword + "\""};
}

int RunExport(geotool::Args& args)
{
    const std::string format = args.RequiredOption("--format");
    const std::string outFile = args.RequiredOption("--out");
    const std::string points = args.Option("--points", "auto");
    const double grid = args.NumberOption("--grid", 5);
    if (format != "vrt" && format != "worldfile" && format != "gcp" && format != "map" && format != "points")
        throw UsageError{"--format is vrt, worldfile, gcp, map or points"};
    if (points != "auto" && points != "reference" && points != "grid")
        throw UsageError{"--points is auto, reference or grid"};
    const qv::TGCPSource source = points == "auto" ? qv::gcsAuto : points == "reference" ? qv::gcsReferencePoints : qv::gcsFitGrid;
    if (grid != std::floor(grid) || grid < 2 || grid > 100)
        throw UsageError{"--grid wants a whole number 2..100"};
    Loaded L;
    LoadCalibration(args, L, nullptr, true);
    if (L.model == qv::cmUndefined)
        throw std::runtime_error("the calibration in \"" + L.file + "\" has no model to export");
    std::ostringstream text;
    if (format == "worldfile") {
        const qv::TWorldFile w = qv::CalibWorldFile(L.cal);
        qv::WriteWorldFile(text, w, L.model == qv::cmUTM);
        if (L.model == qv::cmUTM) {
            // A world file has no place for its coordinate system: metres of the zone go into a .prj beside it.
            const std::string prj = std::filesystem::path(outFile).replace_extension(".prj").string();
            WriteOutputFile(prj, qv::UTMWKT(L.cal.UTMZone(), L.cal.UTMHemisphere() == qv::hemiSouth,
                                            L.cal.CalibData().Ellipsoid) + "\n");
        }
    } else if (format == "map" || format == "points") {
        if (L.size.source.empty())
            throw std::runtime_error("the image size is unknown: give --size WxH or --image IMAGE");
        if (format == "points") {
            qv::WritePointsFile(text, L.cal, source);
        } else {
            // The image as the .map's readers look for it: relative to the .map when it was found.
            std::string imageName = L.cal.CalibData().MapFName;
            if (!L.imagePath.empty()) {
                namespace fs = std::filesystem;
                std::error_code ec;
                const fs::path rel = fs::absolute(L.imagePath, ec).lexically_relative(fs::absolute(outFile, ec).parent_path());
                imageName = rel.empty() ? fs::absolute(L.imagePath, ec).string() : rel.generic_string();
            }
            qv::WriteMapFile(text, L.cal, imageName, L.cal.CalibData().Caption.empty() ? L.id : L.cal.CalibData().Caption);
        }
    } else {
        if (L.size.source.empty())
            throw std::runtime_error("the image size is unknown: give --size WxH or --image IMAGE");
        const std::vector<qv::TGroundControlPoint> gcps = qv::CalibGCPs(L.cal, source, static_cast<int>(grid));
        if (format == "gcp") {
            qv::WriteGCPList(text, L.cal, gcps);
        } else {
            if (L.imagePath.empty())
                throw std::runtime_error("a VRT needs the map image: \"" + L.cal.CalibData().MapFName +
                                         "\" was not found beside \"" + L.file + "\" (give --image IMAGE)");
            qv::TImageBands bands;
            if (!qv::ReadImageBands(L.imagePath, bands))
                throw std::runtime_error("\"" + L.imagePath + "\" is not a BMP or JPEG image");
            // The image is named relative to the VRT when it can be, so both can move together.
            namespace fs = std::filesystem;
            std::error_code ec;
            const fs::path image = fs::absolute(L.imagePath, ec);
            const fs::path dir = fs::absolute(outFile, ec).parent_path();
            const fs::path rel = image.lexically_relative(dir);
            const bool relative = !rel.empty();
            qv::WriteGeoRefVRT(text, L.cal, gcps, relative ? rel.generic_string() : image.string(), relative, bands);
        }
    }
    WriteOutputFile(outFile, text.str());
    return 0;
}

int RunImport(geotool::Args& args)
{
    const std::string format = args.RequiredOption("--format");
#if defined(QVGEO_WITH_GDAL)
    if (format == "geotiff" || format == "worldfile" || format == "map" || format == "points")
        return geotool::RunGeoRefImport(args, format);
#endif
    const std::string outFile = args.RequiredOption("--out");
    const std::string image = args.RequiredOption("--image");
    ImageSize size = SizeOption(args, false);
    bool zoneGiven = false;
    const std::string zoneText = args.Option("--zone", "", &zoneGiven);
    const bool south = args.Flag("--south");
    const qv::TCalibModel model = ModelOption(args, zoneGiven ? qv::cmUTM : qv::cmEquiRect);
    const std::string id = args.Option("--id", "1");
    const std::string caption = args.Option("--caption", "");
    const std::string ellText = args.Option("--ellipsoid", "gelWGS84");
    const std::vector<std::string> pos = args.Positional();
    if (format != "worldfile" && format != "gcp")
#if defined(QVGEO_WITH_GDAL)
        throw UsageError{"--format is geotiff, worldfile, map, points or gcp"};
#else
        throw UsageError{"--format is worldfile or gcp (this geotool is built without GDAL)"};
#endif
    if (pos.size() != 1)
        throw UsageError{"one input FILE (the world file or control-point list) is expected"};
    const qv::TGeoEllipsoid ell = EllipsoidOption(ellText);
    const long long zone = ZoneOption(model, zoneGiven, zoneText, south);
    if (format == "worldfile" ? (model != qv::cmEquiRect && model != qv::cmUTM)
                              : (model == qv::cmParabolicIp || model == qv::cmUndefined))
        throw UsageError{format == "worldfile" ? "a world file gives an equirect or a utm calibration"
                                               : "control points give a quad model, not parabolicip or undefined"};
    if (size.source.empty()) {
        geotool::OpenInput(image);
        if (!qv::ReadImageSize(image, size.w, size.h))
            throw std::runtime_error("cannot read the size of \"" + image + "\" (not a BMP or JPEG; give --size WxH)");
    }
    std::ifstream in = geotool::OpenInput(pos[0]);
    std::string error;
    qv::TCalibData d;
    if (format == "worldfile") {
        qv::TWorldFile w;
        if (!qv::ReadWorldFile(in, w, error))
            throw std::runtime_error("\"" + pos[0] + "\": " + error);
        d = qv::WorldFileToCalib(w, size.w, size.h, model, static_cast<std::int32_t>(zone), south);
    } else {
        std::vector<qv::TGroundControlPoint> gcps;
        if (!qv::ReadGCPList(in, gcps, error))
            throw std::runtime_error("\"" + pos[0] + "\": " + error);
        qv::GCPsToCalib(gcps, d);
        d.UTMZone = static_cast<std::int32_t>(zone);
        d.UTMSouth = south;
    }
    if (in.bad())
        throw std::runtime_error(geotool::FileError(pos[0], "cannot read"));
    d.MapFName = image;
    d.Caption = caption;
    d.Ellipsoid = ell;
    qv::TMapCalibration cal;
    cal.SetComponentName("calib");
    cal.SetImageSize(size.w, size.h);
    cal.LoadCalibData(d, model);
    const qv::TCalibResiduals res = qv::CalibResiduals(cal.CalibData(), cal.Fit(), size.w, size.h);
    if (!UsableFit(res, "calib import"))
        return 1;
    cal.CalcExtentsAndResolution();
    std::ostringstream text;
    qv::WriteRawCalDataToOpenXMLFile(text, true, id, cal.CalibData(), model);
    WriteOutputFile(outFile, text.str());
    if (format == "gcp")
        std::fprintf(stderr, "geotool calib import: %d reference points, residuals %s\n", d.NumCalQuads,
                     ResidualSummary(res).c_str());
    return 0;
}

const char* const kCommon =
    "FILE is a calibration file; --id ID picks a calibration in it (default: the first). The image\n"
    "size (needed for corners and resolution) comes from --size WxH, else from the header of the BMP\n"
    "or JPEG image the calibration names, looked up as written and then beside FILE.\n";

const geotool::Registrar regShow({"calib show", "show a calibration: model, corners, points, coefficients",
                                  std::string("usage: geotool calib show FILE [--id ID] [--size WxH]\n\n") + kCommon +
                                      "\nPrints the model, ellipsoid, UTM zone, the corners and resolution stored in\n"
                                      "the file and (when the image size is known) those of the fit, the graticule\n"
                                      "lines, the quads with their predicted pixels and residuals (pixels, metres,\n"
                                      "leave-one-out), the fitted coefficients, the calibration quality and the\n"
                                      "residual summary or why it is not meaningful.",
                                  RunShow});

const geotool::Registrar regPix({"calib pix2geo", "map pixels to latitude/longitude through a calibration",
                                 std::string("usage: geotool calib pix2geo FILE [--id ID] [--size WxH] [--precision N] [X Y]\n\n") +
                                     kCommon +
                                     "\nReads lines \"x y\" (integer pixels, origin top-left, y down) and writes\n"
                                     "\"latitude longitude valid\": degrees with 10 decimals (N with --precision N),\n"
                                     "valid 1 or 0.\n\n" + std::string(geotool::StreamNote),
                                 RunPix2Geo});

const geotool::Registrar regGeo({"calib geo2pix", "latitude/longitude to map pixels through a calibration",
                                 std::string("usage: geotool calib geo2pix FILE [--id ID] [--size WxH] [LAT LON]\n\n") +
                                     kCommon +
                                     "\nReads lines \"latitude longitude\" in degrees and writes \"x y ok\": pixels\n"
                                     "rounded half to even, ok 1 or 0.\n\n" + std::string(geotool::StreamNote),
                                 RunGeo2Pix});

const geotool::Registrar regFit(
    {"calib fit", "fit a calibration from control points and write its file",
     "usage: geotool calib fit --model KEYWORD --size WxH [--zone Z [--south]] [--id ID] [--map IMAGE]\n"
     "                         [--caption TEXT] [--ellipsoid ID]\n\n"
     "Reads control points from standard input and writes a calibration file (with its header line)\n"
     "to standard output; a summary goes to standard error: the rms residual in pixels and metres, the\n"
     "worst point, and the point whose prediction moves most when fitted without it (leave-one-out).\n"
     "Too few points, points off the globe and collinear points are errors (exit 1); an exact fit\n"
     "(as many points as coefficients) or repeated points are reported as such.\n"
     "  equirect, biquadraticpn, conicconformal, millercylindrical: lines \"latitude longitude x y\"\n"
     "  utm (needs --zone, --south for the southern hemisphere): lines \"northing easting x y\" (metres)\n"
     "  parabolicip: lines \"parallel|meridian VALUE x y\", points on drawn graticule lines\n"
     "At most 200 points (10 per graticule line, 25 lines). Minimum: 6 points for biquadraticpn, 3 for\n"
     "the other quad models, two parallels and two meridians of 3 points for parabolicip.\n"
     "--size is the map image's size in pixels; --id defaults to 1, --ellipsoid to gelWGS84.",
     RunFit});

const geotool::Registrar regExport(
    {"calib export", "write a calibration as a georeferenced VRT, world file or control-point list",
     "usage: geotool calib export FILE [--id ID] [--size WxH] [--image IMAGE] --format vrt|worldfile|gcp|map|points\n"
     "                            --out OUT [--points auto|reference|grid] [--grid N]\n\n" + std::string(kCommon) +
     "--image IMAGE names the map image instead.\n\n"
     "  vrt        a raster VRT over the map image (named relative to OUT) with ground control points;\n"
     "             GDAL and other raster tools read it. Needs the image (for its size and bands).\n"
     "  worldfile  six lines A D B E C F: X = A*x + B*y + C, Y = D*x + E*y + F for the centre of pixel\n"
     "             (x, y), so C F is the centre of the top-left pixel. Only for the affine models:\n"
     "             equirect in degrees (X longitude, Y latitude), utm in metres of the calibration's zone,\n"
     "             whose coordinate system goes into OUT with the extension .prj.\n"
     "  gcp        a control-point list: '#' comment lines (model, image, coordinate system), then\n"
     "             \"pixel line X Y\" per point.\n"
     "  map        the .map calibration format: the fit on a 5 x 5 grid of pixels in degrees and\n"
     "             minutes, each point at the top-left corner of its pixel with the place the\n"
     "             calibration gives that corner, as GDAL reads the format (readers fit their own\n"
     "             polynomial through the points, so residuals are left out). The image is named\n"
     "             relative to OUT; the datum line says \"WGS 84\".\n"
     "  points     a .points control-point list: \"#CRS:\" with the WKT, then\n"
     "             \"mapX,mapY,pixelX,pixelY,enable,dX,dY,residual\" per point; pixelY is the image\n"
     "             coordinate down negated, dX dY residual are the point's residual in pixels.\n"
     "Control points: pixel and line put (0, 0) at the image's top-left corner (a pixel's centre is at\n"
     "x + 0.5, y + 0.5); X Y are longitude and latitude in degrees (EPSG:4326) or, under utm, easting\n"
     "and northing in metres (EPSG:326zz/327zz on WGS 84, a WKT otherwise). --points auto (default)\n"
     "takes the reference points where a polynomial of the model's form refits them to the same\n"
     "transform (equirect and utm: order 1, biquadraticpn: order 2), else the fit on an N x N grid over\n"
     "the image (--grid N, default 5); reference or grid forces one or the other.",
     RunExport});

const geotool::Registrar regImport(
    {"calib import", "make a calibration file from georeferencing (GeoTIFF, world file, .map, .points, gcp)",
     "usage: geotool calib import FILE --format geotiff|worldfile|map|points|gcp [--image IMAGE] [--id ID]\n"
     "                            [--out CALFILE] [--size WxH] [--crs CRS | --zone Z [--south]]\n"
     "                            [--model KEYWORD] [--caption TEXT] [--ellipsoid ID]\n\n"
#if defined(QVGEO_WITH_GDAL)
     "geotiff, worldfile, map, points (read through GDAL): the calibration goes to CALFILE (standard\n"
     "output without --out) and a report to standard output (standard error without --out): the model\n"
     "and why it was chosen, the coordinate system, notes, every point's residual in pixels and metres\n"
     "and their rms.\n"
     "  geotiff    any raster GDAL reads with a geotransform or ground control points and their\n"
     "             coordinate system; the calibration names FILE as its image (or IMAGE).\n"
     "  worldfile  FILE is the world file; its image is IMAGE, else the raster beside it with the same\n"
     "             base name (its size; or --size WxH). The coordinate system: --crs or --zone, else\n"
     "             the .prj beside the world file or the image, else WGS 84 degrees when the numbers\n"
     "             are degrees; metres without any of these are an error. --model equirect|utm and\n"
     "             --ellipsoid declare the numbers as before (degrees, or metres of --zone).\n"
     "  map        a file in the .map calibration format, read by GDAL with the image it names.\n"
     "  points     a .points control-point list (\"#CRS:\" line optional; without it, degrees of WGS 84\n"
     "             when the numbers are degrees); the image is IMAGE, else FILE without \".points\".\n"
     "A geotransform on a geographic coordinate system gives equirect, one on a UTM zone utm (four\n"
     "points at the corner pixels' centres). Control points, and a geotransform on any other projection\n"
     "(sampled on a 10 x 10 grid of pixels), become places in latitude/longitude (WGS 84 when the\n"
     "datum's ellipsoid is not one of geotool's, with a note) and every quad model the number of\n"
     "points allows is fitted: the smallest rms residual in metres wins, a model with points to spare\n"
     "before one that passes through all of them. Each control point becomes the pixel its image\n"
     "coordinate falls in, its place moved to that pixel's centre; points outside the image are left\n"
     "out, more than 200 thinned (in a .points file, an error). --crs takes what GDAL takes\n"
     "(EPSG:32633, a WKT, a PROJ string) and overrides the file's.\n\n"
     "gcp (read here; --image and --out are needed):\n"
#endif
     "Reads FILE and writes a calibration of the map image IMAGE (its size from the BMP or JPEG header,\n"
     "or --size WxH) to CALFILE; the file names IMAGE as given.\n"
#if !defined(QVGEO_WITH_GDAL)
     "  worldfile  six lines A D B E C F (see calib export) become four reference points at the centres\n"
     "             of the corner pixels: equirect (degrees; the default) or utm (metres; --zone, and\n"
     "             --south for the southern hemisphere).\n"
#endif
     "  gcp        lines \"pixel line X Y\" ('#' lines skipped) with (0, 0) at the image's top-left corner;\n"
     "             each becomes a reference point at the pixel whose centre is nearest. --model is any of\n"
     "             equirect (default; utm with --zone), biquadraticpn, conicconformal, millercylindrical.\n"
     "             The residual summary goes to standard error, as with calib fit.\n"
     "The calibration file keeps places to 5 decimals: about a metre in degrees, 10 micrometres in metres.\n"
     "--id defaults to 1, --ellipsoid to gelWGS84.",
     RunImport});

}  // namespace
