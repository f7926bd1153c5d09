// geotool calib detect: finds the graticule of a scanned map and, given the values of its lines, writes
// the calibration made from every crossing. Without values it lists the lines and crossings with their
// lattice numbers, which is what the user needs to name two of them.
#if defined(QVGEO_WITH_OPENCV)

#include "command.h"
#include "line_io.h"

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/graticule_grid.h>
#include <qvgeo/graticule/graticule_detect.h>
#include <qvgeo/graticule/grey_image.h>
#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/image_files.h>

#include <QGuiApplication>

#include <memory>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace geotool {

namespace {

// "N=VALUE": a lattice number and a value.
bool ParseLine(const std::string& Text, int& Index, double& Value)
{
    const auto eq = Text.find('=');
    long long n = 0;
    if (eq == std::string::npos || !ParseInt(std::string_view(Text).substr(0, eq), n) || n < -100000 || n > 100000 ||
        !ParseDouble(std::string_view(Text).substr(eq + 1), Value))
        return false;
    Index = static_cast<int>(n);
    return true;
}

// One family's label from --NAME (once or twice) and --STEP-NAME; false when no line is given.
bool TakeAxis(Args& args, const char* Name, const char* StepName, qv::TGratAxisLabel& L)
{
    bool have1 = false, have2 = false, haveStep = false;
    const std::string first = args.Option(Name, "", &have1);
    const std::string second = args.Option(Name, "", &have2);
    const std::string step = args.Option(StepName, "", &haveStep);
    if (!have1) {
        if (haveStep)
            throw UsageError{std::string(StepName) + " needs " + Name + " N=VALUE"};
        return false;
    }
    if (!ParseLine(first, L.Index, L.Value) || (have2 && !ParseLine(second, L.Index2, L.Value2)))
        throw UsageError{std::string(Name) + " wants N=VALUE (lattice number = degrees)"};
    L.HasSecond = have2;
    if (have2 == haveStep)
        throw UsageError{std::string(Name) + " twice, or once with " + StepName + ", gives the spacing"};
    if (haveStep && (!ParseDouble(step, L.Spacing) || L.Spacing == 0.0))
        throw UsageError{std::string(StepName) + " wants a spacing other than 0"};
    if (have2 && L.Index2 == L.Index)
        throw UsageError{std::string("the two ") + Name + " lines need different numbers"};
    return true;
}

void ReportGrid(std::FILE* out, const qv::TGratGrid& g)
{
    std::fprintf(out, "graticule     %zu parallels, %zu meridians, %zu crossings, rotation %.3f deg, confidence %.2f\n",
                 g.Parallels.size(), g.Meridians.size(), g.Nodes.size(), g.Rotation, g.Confidence);
    for (const auto* family : {&g.Parallels, &g.Meridians})
        for (const qv::TGratCurve& c : *family)
            std::fprintf(out, "%-9s %3d  %s = %.3f %+.6f*t %+.3e*t^2, t %.0f..%.0f, rms %.3f px, seen %.0f%%\n",
                         c.Kind == qv::gtlParallel ? "parallel" : "meridian", c.Index,
                         c.Kind == qv::gtlParallel ? "y" : "x", c.C0, c.C1, c.C2, c.From, c.To, c.RmsPixels,
                         100.0 * c.Coverage);
    std::fprintf(out, "crossings     (parallel meridian: x y, sigma px)\n");
    for (const qv::TGratNode& n : g.Nodes)
        std::fprintf(out, "  %3d %3d: %10.3f %10.3f  %.3f%s\n", n.Row, n.Col, n.X, n.Y, n.Sigma, n.Seen ? "" : "  (extrapolated)");
}

void ReportFit(std::FILE* out, const qv::TGratCalibration& c)
{
    std::fprintf(out, "model         %s\n", std::string(qv::CalibModelKeywords[c.Model]).c_str());
    std::fprintf(out, "verdict       %s\n", c.Reason.c_str());
    for (const qv::TGratCandidate& k : c.Candidates)
        std::fprintf(out, "candidate     %-18s rms %7.3f px, left out %7.3f px, largest %7.3f px%s\n",
                     std::string(qv::CalibModelKeywords[k.Model]).c_str(), k.RmsPixels, k.LeaveOneOutRms, k.MaxPixels,
                     k.Model == c.Model ? "  (chosen)" : "");
    std::fprintf(out, "points        %d, rms %.3f px, %.3f m\n", c.Data.NumCalQuads, c.Residuals.RmsPixels,
                 c.Residuals.RmsMetres);
}

int RunDetect(Args& args)
{
    qv::TGratLabels labels;
    const bool lat = TakeAxis(args, "--parallel", "--lat-step", labels.Parallels);
    const bool lon = TakeAxis(args, "--meridian", "--long-step", labels.Meridians);
    bool zoneGiven = false, outGiven = false;
    const std::string zone = args.Option("--utm", "", &zoneGiven);
    const std::string outFile = args.Option("--out", "", &outGiven);
    const std::string id = args.Option("--id", "XEL_geomap_caldata");
    const std::string caption = args.Option("--caption", "");
    qv::TGratFitOptions fitOptions;
    fitOptions.Parabolic = !args.Flag("--quads-only");
    const std::vector<std::string> pos = args.Positional();
    if (pos.size() != 1)
        throw UsageError{"one image file is needed"};
    if (lat != lon)
        throw UsageError{"give values for both families (--parallel and --meridian), or for none"};
    if (zoneGiven) {
        long long z = 0;
        const bool south = !zone.empty() && (zone.back() == 'S' || zone.back() == 's');
        const bool north = !zone.empty() && (zone.back() == 'N' || zone.back() == 'n');
        if (!ParseInt(std::string_view(zone).substr(0, zone.size() - (south || north ? 1 : 0)), z) || z < 1 || z > 60)
            throw UsageError{"--utm wants a zone 1..60, N or S after it for the hemisphere"};
        labels.UTMZone = static_cast<std::int32_t>(z);
        labels.UTMSouth = south;
    }

    int argc = 1;
    char name[] = "geotool";
    char* argv[] = {name, nullptr};
    std::unique_ptr<QGuiApplication> app;
    if (!QCoreApplication::instance())
        app = std::make_unique<QGuiApplication>(argc, argv);
    qv::TBitmap image;
    qv::LoadImageFile(image, pos[0]);
    const qv::TGreyBuffer grey = qv::GreyFromRgb32(image.ScanLine(0), image.Width(), image.Height(),
                                                   image.Height() > 1 ? image.ScanLine(1) - image.ScanLine(0) : image.Width());
    const qv::TGratGrid grid = qv::DetectGraticule(grey.View());
    std::FILE* report = outGiven || !lat ? stdout : stderr;
    std::fprintf(report, "image         %s, %d x %d px\n", pos[0].c_str(), grid.Width, grid.Height);
    if (!grid.Found) {
        std::fprintf(stderr, "geotool calib detect: %s: %s\n", pos[0].c_str(), grid.Message.c_str());
        return 1;
    }
    ReportGrid(report, grid);
    if (!lat)
        return 0;

    qv::TGratCalibration c = qv::FitGraticule(grid, labels, fitOptions);
    if (!c.Ok) {
        std::fprintf(stderr, "geotool calib detect: %s\n", c.Reason.c_str());
        return 1;
    }
    c.Data.MapFName = outGiven ? std::filesystem::path(pos[0]).filename().string() : pos[0];
    c.Data.Caption = caption;
    ReportFit(report, c);
    std::ostringstream text;
    qv::WriteRawCalDataToOpenXMLFile(text, true, id, c.Data, c.Model);
    if (outGiven) {
        std::ofstream out(outFile, std::ios::binary | std::ios::trunc);
        out << text.str();
        out.close();
        if (!out)
            throw std::runtime_error(FileError(outFile, "cannot write"));
    } else {
        std::cout << text.str();
        CheckStandardOutput(std::cout);
    }
    if (!c.Confident) {
        std::fprintf(stderr, "geotool calib detect: %s\n", c.Reason.c_str());
        return 3;
    }
    return 0;
}

const Registrar reg(
    {"calib detect", "find the graticule of a scanned map and calibrate it from two given values",
     "usage: geotool calib detect IMAGE [--parallel N=LAT (--parallel M=LAT | --lat-step DEG)\n"
     "                                  --meridian N=LONG (--meridian M=LONG | --long-step DEG)]\n"
     "                                  [--utm ZONE[N|S]] [--quads-only] [--out FILE] [--id ID] [--caption TEXT]\n\n"
     "Finds the drawn parallels and meridians of IMAGE (BMP, JPEG or PNG) and their crossings. The lines\n"
     "are numbered in a lattice: parallels 0, 1, ... from the top, meridians 0, 1, ... from the left,\n"
     "with a number left out where a line of the regular spacing is missing.\n\n"
     "Without values it lists the lines (each as a quadratic: y of x for a parallel, x of y for a\n"
     "meridian), the crossings and the grid's rotation, and exits with 0.\n\n"
     "With values it numbers every crossing: --parallel N=LAT names parallel N; a second --parallel M=LAT\n"
     "or --lat-step DEG (degrees from one parallel to the next, negative when north is up) gives the\n"
     "spacing; likewise --meridian and --long-step. The calibration is fitted with every model\n"
     "(equirect, millercylindrical, conicconformal, biquadraticpn from the crossings, parabolicip from\n"
     "the found lines) and the one expected to err least between crossings (judged by leaving crossings,\n"
     "or lines, out of its fit) is chosen. --quads-only leaves out parabolicip, which TGeoMap's own\n"
     "calibration reader takes for an undefined model. With --utm the lines are a kilometre grid: values are\n"
     "northings and eastings in metres of that zone, and the model is utm. The calibration file goes to\n"
     "--out (the image named by its bare name) or standard output; the report to standard output (or\n"
     "standard error).\n\n"
     "Exit codes: 0 calibrated and trustworthy; 1 \"no graticule found\" or no calibration; 3 calibrated\n"
     "but doubtful (the file is written, the reason printed): check the numbers and values given.",
     RunDetect});

}  // namespace

}  // namespace geotool

#endif
