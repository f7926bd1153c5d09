// geotool map: pictures drawn by the widget library. "map blank" writes a generated, already calibrated
// map of a latitude/longitude rectangle — the first map a user can make without a scanner; "map render"
// draws a calibrated map as the map view shows it (graticule or UTM grid, landmarks) into an image file;
// "map resample" scales an image with the averaging filter the view uses for reduced maps.
//
// Drawing text needs a Qt GUI application object (no widgets: the map is drawn by RenderMapView from a
// viewport, the calibration and the landmarks); the commands make one on Qt's offscreen platform (unless
// QT_QPA_PLATFORM says otherwise), so they run on machines without a display.
#include "command.h"
#include "line_io.h"

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/mapview/map_image.h>
#include <qvgeo/mapview/map_output.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#include <QGuiApplication>

#include <cmath>
#include <filesystem>
#include <fstream>
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

// A QGuiApplication (text needs one), unless the process has an application object.
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

qv::TShowGrat GratKeyword(const std::string& word)
{
    static const struct {
        const char* word;
        qv::TShowGrat value;
    } table[] = {{"none", qv::sgNone},           {"lines", qv::sgLines},
                 {"points", qv::sgPoints},       {"both", qv::sgPointsAndLines},
                 {"utm", qv::sgUTMGrid},         {"utm+points", qv::sgPointsAndUTMGrid}};
    for (const auto& t : table)
        if (word == t.word)
            return t.value;
    throw UsageError{"--grat wants none, lines, points, both, utm or utm+points, not \"" + word + "\""};
}

int RunRender(geotool::Args& args)
{
    std::int32_t width = 1200, height = 900;
    TakeSize(args, width, height);
    const std::string out = args.RequiredOption("--out");
    const std::string id = args.Option("--id", "");
    const std::string landmarks = args.Option("--landmarks", "");
    const std::string landmarksId = args.Option("--landmarks-id", "");
    const qv::TShowGrat grat = GratKeyword(args.Option("--grat", "lines"));
    const double gratDist = args.NumberOption("--grat-dist", 0);
    const std::vector<std::string> pos = args.Positional();
    if (pos.size() != 1)
        throw UsageError{"one calibration file is needed"};
    if (!(gratDist >= 0 && gratDist <= 60))
        throw UsageError{"--grat-dist wants 0..60 degrees (0: automatic)"};

    const auto app = EnsureGuiApplication();
    // The map as the map control would hold it, without the control: the calibration is read in its two
    // steps with the image it names loaded between them; the size check and the image types are the
    // control's (TMapImage).
    const std::string calFile = pos[0];
    qv::TMapCalibration calib;
    calib.SetComponentName("geotool");
    qv::TMapImage image;
    image.SetComponentName("geotool");
    bool read = false;
    if (std::ifstream f(calFile, std::ios::binary); f) {
        const qv::TMapCalibration::TReadResult r = calib.ReadCalibrationRecord(f, id);
        if (r.Found) {
            if (!calib.CalibData().MapFName.empty()) {
                qv::TMapImage::TLoadEvents events;
                events.BesideFile = calFile;  // a calibration file names its image without a directory
                image.Load(calib.CalibData().MapFName, events);
            }
            calib.SetImageName(image.Name());
            calib.SetImageSize(image.Width(), image.Height());
            calib.FinishReading();
        }
        read = r.Found && r.GratOK;
    }
    if (!read && calib.CalibModel() == qv::cmUndefined)
        throw std::runtime_error("\"" + calFile + "\": no calibration" + (id.empty() ? "" : " with id \"" + id + "\""));
    if (image.Name().empty() || image.Bitmap().Empty())
        throw std::runtime_error("\"" + calFile + "\": the map image it names could not be loaded");
    qv::TLandMarkStore store;
    if (!landmarks.empty() && !store.LoadLandMarks(landmarks, landmarksId))
        throw std::runtime_error("\"" + landmarks + "\": no landmark set" +
                                 (landmarksId.empty() ? "" : " with id \"" + landmarksId + "\""));
    qv::TMapAppearance look;
    look.ShowGraticule = grat;
    look.GratLineDist = gratDist;
    // The whole map, as large as fits into WIDTH x HEIGHT.
    const double scale = std::min(static_cast<double>(width) / image.Width(),
                                  static_cast<double>(height) / image.Height());
    qv::TMapViewport view;
    view.SetMapSize({image.Width(), image.Height()});
    view.SetControlSize({width, height});
    view.SetMagnify(scale);
    qv::TMapSources sources;
    sources.MapImgName = image.Name();
    sources.GrafBmp = &image.Bitmap();
    sources.CalibData = &calib.CalibData();
    sources.Fit = &calib.Fit();
    sources.LandMarks = &store;
    qv::TBitmap picture;
    qv::TMapImageCache cache;
    const qv::TMapRenderCachesPtr caches = qv::MakeMapRenderCaches();
    qv::RenderMapOutput(picture, nullptr, view, sources, look, cache, caches.get(), {});
    qv::SaveImageFile(picture, out);
    std::printf("%s (%d x %d px, scale %.4f, %d landmarks)\n", out.c_str(), width, height, scale,
                store.NumLandMarks());
    return 0;
}

int RunResample(geotool::Args& args)
{
    std::int32_t width = 0, height = 0;
    TakeSize(args, width, height);
    const std::string out = args.RequiredOption("--out");
    const double quality = args.NumberOption("--quality", 90);
    const std::vector<std::string> pos = args.Positional();
    if (pos.size() != 1)
        throw UsageError{"one image file is needed"};
    if (width == 0)
        throw UsageError{"--size WIDTHxHEIGHT is needed"};
    if (!(quality >= 1 && quality <= 100))
        throw UsageError{"--quality wants 1..100"};

    const auto app = EnsureGuiApplication();
    qv::TBitmap source, target(width, height);
    qv::LoadImageFile(source, pos[0]);
    // Averaging, not pixel dropping: a reduced photograph keeps its texture instead of aliasing, and a
    // thin line stays visible as a lighter one. Enlarging repeats pixels.
    target.StretchRect({0, 0, width, height}, source, {0, 0, source.Width(), source.Height()}, qv::smHalftone);
    qv::SaveImageFile(target, out, static_cast<std::int32_t>(quality));
    std::printf("%s (%d x %d px from %d x %d)\n", out.c_str(), width, height, source.Width(), source.Height());
    return 0;
}

const geotool::Registrar regResample(
    {"map resample", "scale an image (a map scan) to a new size with an averaging filter",
     "usage: geotool map resample IMAGE --size WxH --out FILE [--quality Q]\n\n"
     "Reads IMAGE (BMP, JPEG or PNG, by content) and writes it scaled to WIDTH x HEIGHT pixels into FILE\n"
     "(.png, .jpg/.jpeg at --quality Q, default 90, or .bmp by its extension). Each output pixel is the\n"
     "mean of the source pixels it covers, weighted by the part of each it covers. The aspect ratio is\n"
     "not kept: a calibration for the new image must scale its pixel positions by the same factors.",
     RunResample});

const geotool::Registrar regRender(
    {"map render", "draw a calibrated map with its graticule and landmarks into an image file",
     "usage: geotool map render CALFILE --out FILE [--id ID] [--size WxH] [--grat MODE] [--grat-dist DEG]\n"
     "                          [--landmarks FILE [--landmarks-id ID]]\n\n"
     "Loads the calibration ID (default: the first) of CALFILE and the map image it names, and draws the\n"
     "whole map as the map view shows it, scaled to fit WIDTH x HEIGHT (default 1200x900), into FILE\n"
     "(.png, .jpg/.jpeg or .bmp by its extension). --grat chooses what is drawn over the image: none,\n"
     "lines (default: meridians and parallels, or parabolas for a parabolic calibration), points (the\n"
     "calibration points), both, utm or utm+points (the UTM grid of a UTM calibration). --grat-dist is the\n"
     "spacing of meridians and parallels in degrees (default 0: automatic). --landmarks adds the landmark\n"
     "set ID (default: the first) of a landmark file, with symbols and captions.",
     RunRender});

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
