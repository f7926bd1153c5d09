// geotool calib import of georeferencing read through GDAL (see calib_georef.h): the calibration file
// goes to --out (or standard output), the report — model and why, coordinate system, notes, the
// residual of every point and their rms — to standard output (or standard error).
#if defined(QVGEO_WITH_GDAL)

#include "calib_georef.h"
#include "line_io.h"

#include <qvgeo/gdalio/georef_import.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/georef_export.h>
#include <qvgeo/geomap/georef_formats.h>
#include <qvgeo/support/text.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

namespace geotool {

namespace {

bool ParseSizeText(const std::string& text, std::int32_t& w, std::int32_t& h)
{
    const auto x = text.find_first_of("xX");
    long long a = 0, b = 0;
    if (x == std::string::npos || !ParseInt(std::string_view(text).substr(0, x), a) ||
        !ParseInt(std::string_view(text).substr(x + 1), b) || a < 2 || b < 2 || a > 1000000 || b > 1000000)
        return false;
    w = static_cast<std::int32_t>(a);
    h = static_cast<std::int32_t>(b);
    return true;
}

void Report(std::FILE* out, const qv::TGeoRefImport& r)
{
    std::fprintf(out, "model         %s (%s)\n", std::string(qv::CalibModelKeywords[r.Model]).c_str(), r.Reason.c_str());
    std::fprintf(out, "source        %s in \"%s\"\n", r.Source.c_str(), r.CRSName.c_str());
    std::fprintf(out, "image         %s, %d x %d px\n", r.Data.MapFName.empty() ? "(none)" : r.Data.MapFName.c_str(),
                 r.Width, r.Height);
    for (const qv::TGeoRefCandidate& c : r.Candidates)
        std::fprintf(out, "candidate     %-18s rms %10.3f m %9.3f px%s\n",
                     std::string(qv::CalibModelKeywords[c.Model]).c_str(), c.RmsMetres, c.RmsPixels,
                     c.Model == r.Model ? "  (chosen)" : "");
    for (const std::string& n : r.Notes)
        std::fprintf(out, "note          %s\n", n.c_str());
    const qv::TCalibResiduals& res = r.Residuals;
    std::fprintf(out, "points        %d (x y, residual px m)\n", r.Data.NumCalQuads);
    for (int i = 0; i < qv::ValidCalQuads(r.Data); ++i) {
        const qv::TCalQuad& q = r.Data.CalQuads[static_cast<std::size_t>(i)];
        const qv::TQuadResidual* p = i < static_cast<int>(res.Quads.size()) ? &res.Quads[static_cast<std::size_t>(i)] : nullptr;
        if (p && p->Valid)
            std::fprintf(out, "  %3d %6d %6d %9.3f %9.3f\n", i + 1, q.MapX, q.MapY, p->Pixels, p->Metres);
        else
            std::fprintf(out, "  %3d %6d %6d         -         -\n", i + 1, q.MapX, q.MapY);
    }
    if (r.CheckPoints > 0)
        std::fprintf(out, "check         max %.3f m, rms %.3f m at %d pixels between the sampled ones\n", r.CheckMaxMetres,
                     r.CheckRmsMetres, r.CheckPoints);
    if (res.Diagnosis == qv::cdgOK)
        std::fprintf(out, "rms           %.3f px, %.3f m\n", res.RmsPixels, res.RmsMetres);
    else
        std::fprintf(out, "rms           %.3f px, %.3f m (%s)\n", res.RmsPixels, res.RmsMetres,
                     qv::CalibDiagnosisText(res).c_str());
}

}  // namespace

int RunGeoRefImport(Args& args, const std::string& format)
{
    qv::TGeoRefOptions o;
    bool outGiven = false, zoneGiven = false, sizeGiven = false, modelGiven = false, ellGiven = false;
    const std::string outFile = args.Option("--out", "", &outGiven);
    o.Image = args.Option("--image", "");
    o.CRS = args.Option("--crs", "");
    const std::string zoneText = args.Option("--zone", "", &zoneGiven);
    o.South = args.Flag("--south");
    const std::string sizeText = args.Option("--size", "", &sizeGiven);
    const std::string id = args.Option("--id", "1");
    const std::string caption = args.Option("--caption", "");
    // A world file's numbers may be declared by the older options: --model equirect (degrees) or utm
    // (metres of --zone), on --ellipsoid.
    const std::string modelText = format == "worldfile" ? qv::LowerCase(args.Option("--model", "", &modelGiven)) : "";
    const std::string ellText = format == "worldfile" ? args.Option("--ellipsoid", "gelWGS84", &ellGiven) : "gelWGS84";
    const std::vector<std::string> pos = args.Positional();
    if (pos.size() != 1)
        throw UsageError{"one input FILE is expected"};
    if (sizeGiven && !ParseSizeText(sizeText, o.Width, o.Height))
        throw UsageError{"--size wants WIDTHxHEIGHT in pixels, e.g. 800x600"};
    if (zoneGiven) {
        long long z = 0;
        if (!ParseInt(zoneText, z) || z < 1 || z > 60)
            throw UsageError{"--zone wants a UTM zone 1..60"};
        o.Zone = static_cast<int>(z);
    } else if (o.South) {
        throw UsageError{"--south goes with --zone"};
    }
    if (zoneGiven && !o.CRS.empty())
        throw UsageError{"give --crs or --zone, not both"};
    qv::TGeoEllipsoid ell = qv::gelWGS84;
    if (!qv::FindGeoEllipsoid(ellText, ell))
        throw UsageError{"unknown ellipsoid \"" + ellText + "\" (geotool ellipsoids lists them)"};
    if (modelGiven && modelText != "equirect" && modelText != "utm")
        throw UsageError{"a world file gives an equirect or a utm calibration"};
    if (modelText == "utm" && !zoneGiven)
        throw UsageError{"the utm model needs --zone 1..60"};
    if (modelText == "equirect" && zoneGiven)
        throw UsageError{"--zone and --south belong to the utm model"};
    if (format == "worldfile" && o.CRS.empty() && (zoneGiven ? ell != qv::gelWGS84 : (modelGiven || ellGiven))) {
        // The ellipsoid (and degrees) as the user declared them, in place of any .prj.
        o.CRS = zoneGiven ? qv::UTMWKT(o.Zone, o.South, ell) : qv::GeographicWKT(ell);
        o.Zone = 0;
    }
    const qv::TGeoRefFormat f = format == "geotiff" ? qv::grfRaster
                                : format == "map"   ? qv::grfMapFile
                                : format == "points" ? qv::grfPoints
                                                     : qv::grfWorldFile;
    qv::TGeoRefImport r = qv::ImportGeoRef(pos[0], f, o);
    r.Data.Caption = caption;
    qv::TMapCalibration cal;
    cal.SetComponentName("calib");
    cal.SetImageSize(r.Width, r.Height);
    cal.LoadCalibData(r.Data, r.Model);
    cal.CalcExtentsAndResolution();
    std::ostringstream text;
    qv::WriteRawCalDataToOpenXMLFile(text, true, id, cal.CalibData(), r.Model);
    if (outGiven) {
        std::ofstream out(outFile, std::ios::binary | std::ios::trunc);
        if (!out)
            throw std::runtime_error(FileError(outFile, "cannot create"));
        out << text.str();
        out.close();
        if (!out)
            throw std::runtime_error(FileError(outFile, "cannot write"));
        Report(stdout, r);
    } else {
        std::cout << text.str();
        CheckStandardOutput(std::cout);
        Report(stderr, r);
    }
    return 0;
}

}  // namespace geotool

#endif
