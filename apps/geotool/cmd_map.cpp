// geotool map: pictures drawn by the widget library. "map blank" writes a generated, already calibrated
// map of a latitude/longitude rectangle — the first map a user can make without a scanner.
//
// Drawing text needs a Qt GUI application object; the command makes one on Qt's offscreen platform (unless
// QT_QPA_PLATFORM says otherwise), so it runs on machines without a display.
#include "command.h"
#include "line_io.h"

#include <qvgeo/geomap/view/empty_map.h>
#include <qvgeo/support/text.h>

#include <QGuiApplication>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

using geotool::UsageError;

constexpr long long MaxSide = 30000;
constexpr long long MaxPixels = 100'000'000;  // 400 MB of 32-bit pixels while drawing

double Number(const std::string& text, const char* what)
{
    double v = 0;
    if (!geotool::ParseDouble(text, v) || !std::isfinite(v))
        throw UsageError{std::string(what) + " wants a number, not \"" + text + "\""};
    return v;
}

// "--grat DLAT DLON" takes two words, which Args::Option cannot; it is cut out of the word list first.
void TakeGrat(geotool::Args& args, double& dLat, double& dLon)
{
    std::vector<std::string> w = args.Words();
    for (std::size_t i = 0; i < w.size() && w[i] != "--"; ++i) {
        if (w[i] != "--grat")
            continue;
        if (i + 2 >= w.size())
            throw UsageError{"--grat wants two distances in degrees: DLAT DLON"};
        dLat = Number(w[i + 1], "--grat");
        dLon = Number(w[i + 2], "--grat");
        w.erase(w.begin() + static_cast<long>(i), w.begin() + static_cast<long>(i) + 3);
        args = geotool::Args(std::move(w));
        return;
    }
}

void TakeSize(geotool::Args& args, std::int32_t& width, std::int32_t& height)
{
    bool found = false;
    const std::string text = args.Option("--size", "", &found);
    if (!found)
        return;
    const auto x = text.find_first_of("xX");
    long long w = 0, h = 0;
    if (x == std::string::npos || !geotool::ParseInt(std::string_view(text).substr(0, x), w) ||
        !geotool::ParseInt(std::string_view(text).substr(x + 1), h) || w < 1 || h < 1)
        throw UsageError{"--size wants WIDTHxHEIGHT in pixels, e.g. 1200x900"};
    if (w > MaxSide || h > MaxSide || w * h > MaxPixels)
        throw UsageError{"--size: at most 30000 pixels a side and 100 megapixels in all"};
    width = static_cast<std::int32_t>(w);
    height = static_cast<std::int32_t>(h);
}

// A QGuiApplication for the text of the labels, unless the process has one already.
std::unique_ptr<QGuiApplication> EnsureGuiApplication()
{
    if (QCoreApplication::instance())
        return nullptr;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Without a desktop session Qt reports that it has no runtime directory, which it never needs here.
    static const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            if (!message.startsWith(QLatin1String("QStandardPaths: ")) && previous)
                previous(type, context, message);
        });
    static int argc = 1;
    static char name[] = "geotool";
    static char* argv[] = {name, nullptr};
    return std::make_unique<QGuiApplication>(argc, argv);
}

int RunBlank(geotool::Args& args)
{
    qv::TEmptyMapRequest r;
    r.Width = 1200;
    r.Height = 900;
    TakeGrat(args, r.LatGratDist, r.LongGratDist);
    TakeSize(args, r.Width, r.Height);
    const std::string out = args.RequiredOption("--out");
    const double quality = args.NumberOption("--quality", 90);
    const std::vector<std::string> pos = args.Positional();
    if (pos.size() != 4)
        throw UsageError{"four limits are needed: LATMIN LONMIN LATMAX LONMAX (degrees)"};
    r.LatMin = Number(pos[0], "LATMIN");
    r.LongMin = Number(pos[1], "LONMIN");
    r.LatMax = Number(pos[2], "LATMAX");
    r.LongMax = Number(pos[3], "LONMAX");
    if (!(quality >= 1 && quality <= 100))
        throw UsageError{"--quality wants 1..100"};

    // The image format follows the extension given; none means BMP.
    const std::string base = qv::StripExtension(out);
    std::string ext = qv::LowerCase(out.substr(base.size()));
    if (ext.empty())
        ext = ".bmp";
    if (ext != ".bmp" && ext != ".png" && ext != ".jpg" && ext != ".jpeg")
        throw UsageError{"--out: unknown image extension \"" + ext + "\" (.bmp, .png, .jpg or .jpeg)"};

    const auto app = EnsureGuiApplication();
    const qv::TEmptyMapFiles files = qv::WriteEmptyMapFiles(out, r, ext, static_cast<int>(quality));
    const qv::TEmptyMapRequest n = qv::NormalizedEmptyMapRequest(r);
    std::printf("image       %s (%d x %d px)\n", files.ImageFile.c_str(), n.Width, n.Height);
    std::printf("calibration %s (id %s, model biquadraticpn)\n", files.CalibFile.c_str(),
                std::string(qv::EmptyMapCalibId).c_str());
    return 0;
}

const geotool::Registrar regBlank(
    {"map blank", "write a calibrated empty map image and its calibration file",
     "usage: geotool map blank LATMIN LONMIN LATMAX LONMAX --out FILE [--grat DLAT DLON] [--size WxH]\n"
     "                         [--quality Q]\n\n"
     "Draws a white map of the latitude/longitude rectangle (degrees, north and east positive; swapped\n"
     "limits are put in order) with a frame 30 px inside the edge, a dashed graticule every DLAT degrees\n"
     "of latitude and DLON of longitude (default 1 1; a distance <= 0 means 1) and labels, and writes:\n"
     "  the image      FILE with its extension replaced: .bmp (24-bit, also when FILE has none), .png,\n"
     "                 or .jpg/.jpeg (JPEG at --quality Q, default 90)\n"
     "  a calibration  FILE with the extension .xml: id \"XEL_geomap_caldata\", model biquadraticpn, nine\n"
     "                 points at the frame's corners, edge midpoints and centre, naming the image as\n"
     "                 written in FILE\n"
     "--size is the image size in pixels (default 1200x900; sides below 100 are raised to 100).\n"
     "Existing files are overwritten. Try: geotool calib show FILE.xml",
     RunBlank});

}  // namespace
