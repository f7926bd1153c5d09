// Map furniture over the bundled Vienna map under four models: the grid labels read the calibration's
// values where their lines leave the view, never overlap and stay inside it; the scale bar's drawn length
// is its text's length on the ellipsoid; the north arrow follows the meridian; with everything off the
// picture does not change.
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/mapview/map_furniture.h>
#include <qvgeo/mapview/map_output.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/image_files.h>

#if __has_include(<GeographicLib/Geodesic.hpp>)
#include <GeographicLib/Geodesic.hpp>
#define QVGEO_TEST_GEODESIC 1
#endif

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace qv {
namespace {

const std::string Samples = std::string(QVGEO_SOURCE_DIR) + "/data/samples/";

// The Vienna map under one calibration of the sample file, optionally refitted to another model.
struct TVienna {
    TMapCalibration Calib;
    TBitmap Image;
    std::string Name;

    explicit TVienna(const std::string& Id, TCalibModel Model = cmUndefined)
    {
        std::ifstream f(Samples + "calib-vienna.xml", std::ios::binary);
        EXPECT_TRUE(Calib.ReadCalibrationRecord(f, Id).Found);
        Name = Calib.CalibData().MapFName;
        LoadBMP(Image, Samples + Name);
        Calib.SetImageName(Name);
        Calib.SetImageSize(Image.Width(), Image.Height());
        Calib.FinishReading();
        if (Model != cmUndefined)
            Calib.SetCalibModel(Model);
    }
    TMapSources Sources() const
    {
        TMapSources s;
        s.MapImgName = Name;
        s.GrafBmp = &Image;
        s.CalibData = &Calib.CalibData();
        s.Fit = &Calib.Fit();
        return s;
    }
};

struct TModelCase {
    const char* Id;
    TCalibModel Refit;  // cmUndefined: the file's own model
    TShowGrat Grat;
};
const TModelCase Models[] = {
    {"geo", cmUndefined, sgLines},            // equirect
    {"utm", cmUndefined, sgUTMGrid},          // UTM grid in kilometres
    {"grat", cmParabolicIp, sgLines},         // parabolic: curved lines through the calibration lines
    {"geo", cmConicConformal, sgLines},       // conic: converging meridians
};

TMapViewport MakeView(int W, int H, double Mag, TMapPixel TopLeft)
{
    TMapViewport v;
    v.SetControlSize({W, H});
    v.SetMagnify(Mag);
    v.SetTopLeft(TopLeft);
    return v;
}

TBitmap Draw(const TMapViewport& View, const TMapSources& S, const TMapAppearance& Look)
{
    TBitmap aux;
    TMapImageCache cache;
    RenderMapView(View, S, Look, aux, cache);
    return aux;
}

// A label's text back to a number: degrees from "48°12'30.5" N" in any of the formats (S and W negative),
// kilometres as metres.
double ParseLabel(const std::string& Text, TGridValue Kind)
{
    if (Kind == gvEasting || Kind == gvNorthing)
        return std::strtod(Text.c_str(), nullptr) * 1000.0;
    double value = 0, unit = 1;
    const char* p = Text.c_str();
    while (*p) {
        if ((*p >= '0' && *p <= '9') || *p == '.') {
            char* end = nullptr;
            value += std::strtod(p, &end) * unit;
            unit /= 60;
            p = end;
        } else {
            if (*p == 'S' || *p == 'W')
                value = -value;
            ++p;
        }
    }
    return value;
}

// The coordinate a label names, from the calibration at a map pixel: latitude, longitude, or the UTM
// northing or easting of the fit's position.
double CoordinateAt(const TCalibFit& Fit, TGridValue Kind, TPoint P)
{
    TCoords c;
    EXPECT_TRUE(Fit.CalcPosition(P, c));
    if (Kind == gvLatitude)
        return c.Latit;
    if (Kind == gvLongitude)
        return c.Longit;
    int zone = 0;
    double e = 0, n = 0;
    LatLongToUTM(c.Latit, c.Longit, Fit.Ellipsoid(), zone, e, n);
    return Kind == gvEasting ? e : n;
}

bool Overlap(const TRect& A, const TRect& B)
{
    return A.Left < B.Right && B.Left < A.Right && A.Top < B.Bottom && B.Top < A.Bottom;
}

// The labels of one view: each reads its line's value, which the calibration gives where the line meets
// the edge; each sits inside the map's part of the view, against its edge, beside its line.
void CheckEdgeLabels(const TMapViewport& View, const TMapSources& Src, const TMapAppearance& Look, TSize MapSize,
                     const std::string& PngName)
{
    TBitmap scratch(8, 8);
    const std::vector<TEdgeLabel> labels = PlaceGridLabels(scratch.Canvas(), View, Src, Look);
    ASSERT_GE(labels.size(), 4u);
    const double mag = View.Magnify();
    const TMapPixel tl = View.TopLeft();
    const double W = View.ControlSize().cx, H = View.ControlSize().cy;
    const double L = std::max(0.0, -tl.X * mag), T = std::max(0.0, -tl.Y * mag);
    const double R = std::min(W, (MapSize.cx - tl.X) * mag), B = std::min(H, (MapSize.cy - tl.Y) * mag);
    std::array<int, 4> perEdge{};
    for (const TEdgeLabel& l : labels) {
        ++perEdge[l.Edge];
        const double read = ParseLabel(l.Text, l.Kind);
        EXPECT_NEAR(read, l.Value, 1e-9 + std::fabs(l.Value) * 1e-12) << l.Text;
        // The map pixel under the crossing and the coordinate's change over a pixel there: the drawn line
        // runs through integer pixels, within about 1.5 map pixels of the exact one.
        const TPoint p{int(std::lround(View.MapXAt(l.X))), int(std::lround(View.MapYAt(l.Y)))};
        const double dx = CoordinateAt(*Src.Fit, l.Kind, {p.X + 1, p.Y}) - CoordinateAt(*Src.Fit, l.Kind, {p.X - 1, p.Y});
        const double dy = CoordinateAt(*Src.Fit, l.Kind, {p.X, p.Y + 1}) - CoordinateAt(*Src.Fit, l.Kind, {p.X, p.Y - 1});
        const double perPixel = std::hypot(dx, dy) / 2;
        EXPECT_NEAR(read, CoordinateAt(*Src.Fit, l.Kind, p), 2.5 * perPixel) << l.Text << " at " << l.X << "," << l.Y;
        // The crossing lies on its edge; the text inside, 3 pixels from that edge.
        const double edgeAt[] = {T, B, L, R};
        EXPECT_DOUBLE_EQ(l.Edge <= meBottom ? l.Y : l.X, edgeAt[l.Edge]);
        EXPECT_TRUE(l.Box.Left >= L && l.Box.Right <= R && l.Box.Top >= T && l.Box.Bottom <= B);
        const double gap = l.Edge == meTop ? l.Box.Top - T : l.Edge == meBottom ? B - l.Box.Bottom
                         : l.Edge == meLeft ? l.Box.Left - L : R - l.Box.Right;
        EXPECT_NEAR(gap, 3.0, 0.99);  // 3, and up to a pixel more when the edge falls inside a pixel
        // Beside the line: right of it at the top and bottom, above it at the sides (unless pushed back
        // into the view by a corner).
        if (l.Edge <= meBottom && l.Box.Right < R - 3) {
            EXPECT_GT(l.Box.Left, l.X) << l.Text;
        }
        if (l.Edge >= meLeft && l.Box.Top > T + 3) {
            EXPECT_LE(l.Box.Bottom, l.Y + 1) << l.Text;
        }
    }
    if (const char* dir = std::getenv("QVGEO_FURNITURE_PNG")) {  // to look at
        TMapAppearance all = Look;
        all.Furniture.ScaleBar = all.Furniture.NorthArrow = true;
        SavePNG(Draw(View, Src, all), std::string(dir) + "/" + PngName + ".png");
    }
    // Lines run both ways, so every edge has a label at these spacings.
    for (int e = 0; e < 4; ++e)
        EXPECT_GE(perEdge[static_cast<std::size_t>(e)], 1) << "edge " << e;
}

TEST(MapFurniture, EdgeLabelsReadTheCalibrationWhereTheirLinesLeaveTheView)
{
    const struct {
        double Mag;
        TMapPixel TopLeft;
    } views[] = {{1.0, {120, 80}}, {2.5, {200, 100}}, {0.5, {-40, -30}}};  // the last shows the whole map
    for (const TModelCase& m : Models) {
        TVienna map(m.Id, m.Refit);
        TMapAppearance look;
        look.ShowGraticule = m.Grat;
        look.Furniture.GridLabels = true;
        look.Furniture.DegreeFormat = dfDegMin;
        if (m.Grat == sgLines)
            look.GratLineDist = 0.01;  // the parabolic model draws its calibration lines instead
        for (const auto& v : views) {
            const std::string name = std::string(m.Id) + "-" + std::to_string(m.Refit) + "-" + std::to_string(v.Mag);
            SCOPED_TRACE(name);
            CheckEdgeLabels(MakeView(480, 360, v.Mag, v.TopLeft), map.Sources(), look,
                            {map.Image.Width(), map.Image.Height()}, "labels-" + name);
        }
    }
}

TEST(MapFurniture, EdgeLabelsOfAMapTurnedAgainstTheGraticule)
{
    // A 600 x 400 map turned by 30 degrees: its lines meet the edges slanted, well away from the points the
    // graticule step traces, and the UTM grid of the same turn.
    for (const TCalibModel model : {cmEquiRect, cmUTM}) {
        TBitmap img(600, 400);
        img.Fill(0xFFFFFF);
        TCalibData cal;
        const double a = 30 * std::numbers::pi / 180, k = model == cmUTM ? 20.0 : 1e-4;  // units per pixel
        const double n0 = model == cmUTM ? 5340000 : 48.2, e0 = model == cmUTM ? 600000 : 16.3;
        const int px[4][2] = {{0, 0}, {0, 400}, {600, 400}, {600, 0}};
        for (const auto& p : px) {
            const double north = n0 - k * (p[1] * std::cos(a) - p[0] * std::sin(a));
            const double east = e0 + k * (p[0] * std::cos(a) + p[1] * std::sin(a));
            cal.CalQuads[static_cast<std::size_t>(cal.NumCalQuads++)] = {north, east, p[0], p[1]};
        }
        cal.UTMZone = 33;
        TCalibFit fit;
        fit.SetModel(model);
        fit.SetProjection(cal);
        fit.FitEquiRect(cal);
        for (std::size_t i = 0; i < 4; ++i)
            fit.CalcPosition({px[i][0], px[i][1]}, cal.Corners[i]);
        TMapSources src;
        src.MapImgName = "turned.bmp", src.GrafBmp = &img, src.CalibData = &cal, src.Fit = &fit;
        TMapAppearance look;
        look.ShowGraticule = model == cmUTM ? sgUTMGrid : sgLines;
        look.GratLineDist = 0.005;
        look.UTMGridDist = 1000;
        look.Furniture.GridLabels = true;
        look.Furniture.DegreeFormat = dfDecimal;
        for (const double mag : {1.0, 0.7}) {
            SCOPED_TRACE(std::to_string(model) + " mag " + std::to_string(mag));
            CheckEdgeLabels(MakeView(420, 300, mag, {60, 40}), src, look, {600, 400},
                            "turned-" + std::to_string(model) + "-" + std::to_string(mag));
        }
    }
}

TEST(MapFurniture, LabelsNeverOverlapEachOtherOrTheCornerPieces)
{
    std::mt19937 rng(20);
    std::uniform_real_distribution<double> mag(0.3, 4.0), pos(-200, 700), size(120, 700);
    for (const TModelCase& m : Models) {
        TVienna map(m.Id, m.Refit);
        const TMapSources src = map.Sources();
        TMapAppearance look;
        look.ShowGraticule = m.Grat;
        look.Furniture.GridLabels = look.Furniture.ScaleBar = look.Furniture.NorthArrow = true;
        look.Furniture.DegreeFormat = dfDegMinSec;
        for (int i = 0; i < 40; ++i) {
            const int W = int(size(rng)), H = int(size(rng));
            const TMapViewport view = MakeView(W, H, mag(rng), {int(pos(rng)), int(pos(rng))});
            look.GratLineDist = i % 2 ? 0.01 : 0;
            TBitmap scratch(8, 8);
            const std::vector<TRect> reserved = {{W - 60, H - 40, W, H}};
            const std::vector<TEdgeLabel> labels = PlaceGridLabels(scratch.Canvas(), view, src, look, reserved);
            for (std::size_t a = 0; a < labels.size(); ++a) {
                EXPECT_FALSE(Overlap(labels[a].Box, reserved[0])) << labels[a].Text;
                EXPECT_TRUE(labels[a].Box.Left >= 0 && labels[a].Box.Top >= 0 && labels[a].Box.Right <= W &&
                            labels[a].Box.Bottom <= H);
                for (std::size_t b = a + 1; b < labels.size(); ++b)
                    EXPECT_FALSE(Overlap(labels[a].Box, labels[b].Box)) << labels[a].Text << " / " << labels[b].Text;
            }
            // The whole drawing runs on every such view.
            const TBitmap pic = Draw(view, src, look);
            EXPECT_EQ(pic.Width(), W);
        }
    }
}

TEST(MapFurniture, ValueTexts)
{
    const struct {
        TGridValue Kind;
        double Value;
        TDegreeFormat Format;
        const char* Text;
    } cases[] = {
        {gvLatitude, 48.25, dfDegMinSec, "48°15'00\" N"},
        {gvLatitude, -33.5, dfDegMin, "33°30' S"},
        {gvLatitude, 48.21, dfDegMin, "48°12.6' N"},
        {gvLatitude, 0.0, dfDecimal, "0°"},
        {gvLongitude, 16.35, dfDecimal, "16.35° E"},
        {gvLongitude, -0.125, dfDecimalPlain, "0.125 W"},
        {gvLongitude, 190.0, dfDecimal, "170° W"},
        {gvLongitude, -180.0, dfDegMin, "180°00'"},
        {gvLongitude, 16.0 + 1.0 / 3600, dfDegMinSec, "16°00'01\" E"},
        {gvEasting, 596000, dfDecimal, "596"},
        {gvNorthing, 5344500, dfDecimal, "5344.5"},
        {gvEasting, 600250, dfDecimal, "600.25"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(GridValueText(c.Kind, c.Value, c.Format), c.Text) << c.Value;
}

#ifdef QVGEO_TEST_GEODESIC
// The geodesic between the positions of two map pixels on one row, by the peer.
double PeerDistance(const TCalibFit& Fit, TPoint A, TPoint B)
{
    TCoords p, q;
    EXPECT_TRUE(Fit.CalcPosition(A, p));
    EXPECT_TRUE(Fit.CalcPosition(B, q));
    double s = 0;
    GeographicLib::Geodesic::WGS84().Inverse(p.Latit, p.Longit, q.Latit, q.Longit, s);
    return s;
}

TEST(MapFurniture, ScaleBarIsItsTextsLengthOnTheEllipsoid)
{
    const TColor Ink = 0x2A1B3C;  // a colour the map does not have
    for (const TModelCase& m : Models) {
        TVienna map(m.Id, m.Refit);
        const TMapSources src = map.Sources();
        for (const double mag : {0.3, 1.0, 3.0, 7.0}) {
            SCOPED_TRACE(std::string(m.Id) + " mag " + std::to_string(mag));
            const TMapViewport view = MakeView(600, 400, mag, {100, 60});
            TMapAppearance look;
            look.Furniture.ScaleBar = true;
            look.Furniture.Color = Ink;
            const TScaleBar bar = MeasureScaleBar(view, src, 150);
            ASSERT_TRUE(bar.Valid);
            // A round length, the longest that fits.
            const double mantissa = bar.Metres / std::pow(10.0, std::floor(std::log10(bar.Metres) + 1e-9));
            EXPECT_TRUE(std::fabs(mantissa - 1) < 1e-9 || std::fabs(mantissa - 2) < 1e-9 || std::fabs(mantissa - 5) < 1e-9)
                << bar.Metres;
            EXPECT_LE(bar.Pixels, 150.0);
            EXPECT_GT(bar.Pixels * (mantissa == 2 ? 2.5 : 2.0), 150.0);
            const double textMetres = std::strtod(bar.Text.c_str(), nullptr) *
                                      (bar.Text.find(" km") != std::string::npos ? 1000.0 : 1.0);
            EXPECT_DOUBLE_EQ(textMetres, bar.Metres) << bar.Text;
            // The drawn bar: the longest run of its colour in the bottom-left corner is its outline's top row.
            const TBitmap pic = Draw(view, src, look);
            int best = 0;
            for (int y = 300; y < 398; ++y) {
                int run = 0;
                for (int x = 2; x < 300; ++x) {
                    run = (pic.Pixel(x, y) & 0xFFFFFF) == Ink ? run + 1 : 0;
                    best = std::max(best, run);
                }
            }
            const double drawn = best - 1;  // pixels between the end columns
            EXPECT_NEAR(drawn, bar.Pixels, 0.5 + 1e-9);
            // Independently: that many control pixels across the centre, measured by the peer.
            const double half = drawn / 2 / mag;
            const double cx = view.MapXAt(300), cy = view.MapYAt(200);
            const TPoint a{int(std::lround(cx - half)), int(std::lround(cy))};
            const TPoint b{int(std::lround(cx + half)), int(std::lround(cy))};
            const double metresPerControl = PeerDistance(*src.Fit, a, b) / ((b.X - a.X) * mag);
            EXPECT_NEAR(drawn * metresPerControl, textMetres, 0.01 * textMetres);
        }
    }
}
#endif

TEST(MapFurniture, NorthArrowFollowsTheMeridianThroughTheCentre)
{
    for (const TModelCase& m : Models) {
        TVienna map(m.Id, m.Refit);
        const TMapSources src = map.Sources();
        SCOPED_TRACE(std::string(m.Id) + " refit " + std::to_string(m.Refit));
        const TMapViewport view = MakeView(400, 300, 1.0, {200, 150});
        double dx = 0, dy = 0;
        ASSERT_TRUE(NorthDirection(view, src, dx, dy));
        EXPECT_NEAR(std::hypot(dx, dy), 1.0, 1e-12);
        // From the pixel-to-position transform: north is across the longitude's gradient, the way latitude
        // grows.
        const TCalibFit& fit = *src.Fit;
        const int cx = 400, cy = 300, k = 40;
        auto at = [&](int x, int y) {
            TCoords c;
            EXPECT_TRUE(fit.CalcPosition({x, y}, c));
            return c;
        };
        const double gx = at(cx + k, cy).Longit - at(cx - k, cy).Longit, gy = at(cx, cy + k).Longit - at(cx, cy - k).Longit;
        const double lx = at(cx + k, cy).Latit - at(cx - k, cy).Latit, ly = at(cx, cy + k).Latit - at(cx, cy - k).Latit;
        double nx = gy, ny = -gx;
        if (nx * lx + ny * ly < 0)
            nx = -nx, ny = -ny;
        const double angle = std::atan2(dx * ny - dy * nx, dx * nx + dy * ny) * 180 / std::numbers::pi;
        EXPECT_NEAR(angle, 0.0, 0.3);
        // Up the map, not exactly: the grid of a UTM map is turned against the meridians east of the
        // zone's centre, so its arrow leans west of grid north.
        EXPECT_LT(dy, -0.99);
        if (m.Refit == cmUndefined && std::string(m.Id) == "utm") {
            EXPECT_LT(dx, -0.01);
        }

        // Drawn in the top-right corner: the north half filled, the south half in the halo colour.
        TMapAppearance look;
        look.Furniture.NorthArrow = true;
        const TBitmap pic = Draw(view, src, look), bare = Draw(view, src, TMapAppearance{});
        int changedTR = 0, changedElsewhere = 0;
        for (int y = 0; y < 300; ++y)
            for (int x = 0; x < 400; ++x)
                if (pic.Pixel(x, y) != bare.Pixel(x, y))
                    ++(x >= 300 && y < 100 ? changedTR : changedElsewhere);
        EXPECT_GT(changedTR, 100);
        EXPECT_EQ(changedElsewhere, 0);
    }
}

TEST(MapFurniture, ArrowHeadPointsNorthInThePicture)
{
    TVienna map("geo", cmConicConformal);
    const TMapSources src = map.Sources();
    const TMapViewport view = MakeView(400, 300, 1.0, {200, 150});
    TMapAppearance look;
    look.Furniture.NorthArrow = true;
    look.Furniture.NorthArrowCorner = fcBottomLeft;
    const TBitmap pic = Draw(view, src, look);
    double dx = 0, dy = 0;
    ASSERT_TRUE(NorthDirection(view, src, dx, dy));
    // The box of the arrow: 2 (14 + text height + 2) pixels square, 8 pixels from the corner.
    TBitmap scratch(8, 8);
    scratch.Canvas().Font = TFont{};
    const int th = scratch.Canvas().TextHeight("N"), side = 2 * (14 + th + 2);
    const double cx = 8 + side / 2.0, cy = 300 - 8 - side / 2.0;
    for (const double along : {4.0, 8.0, 11.0}) {
        EXPECT_EQ(pic.Pixel(int(std::lround(cx + dx * along)), int(std::lround(cy + dy * along))) & 0xFFFFFF, 0x000000u) << along;
        EXPECT_EQ(pic.Pixel(int(std::lround(cx - dx * along)), int(std::lround(cy - dy * along))) & 0xFFFFFF, 0xFFFFFFu) << along;
    }
}

TEST(MapFurniture, OffDrawsTheSamePixels)
{
    TVienna map("utm");
    const TMapSources src = map.Sources();
    const TMapViewport view = MakeView(500, 400, 1.25, {300, 200});
    TMapAppearance plain;
    plain.ShowGraticule = sgPointsAndUTMGrid;
    TMapAppearance off = plain;  // every furniture setting but the switches changed
    off.Furniture.Scale = 3, off.Furniture.Color = 0x00FF00, off.Furniture.FontSize = 20;
    off.Furniture.DegreeFormat = dfDecimal, off.Furniture.ScaleBarCorner = fcTopLeft;
    const TBitmap a = Draw(view, src, plain), b = Draw(view, src, off);
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 500; ++x)
            ASSERT_EQ(a.Pixel(x, y), b.Pixel(x, y)) << x << "," << y;
}

TEST(MapFurniture, HostileSettingsAndViewsDrawNothingWrong)
{
    TVienna map("geo");
    const TMapSources src = map.Sources();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        int W, H;
        double Mag;
        TMapPixel TopLeft;
        double Scale;
        int FontSize;
    } cases[] = {
        {5, 4, 1.0, {0, 0}, 1.0, 8},              // too small for anything
        {300, 200, 1.0, {100, 100}, nan, 8},      // a scale that is no number: the normal size
        {300, 200, 1.0, {100, 100}, 1e9, -3},     // huge scale, negative font
        {300, 200, 1e-6, {0, 0}, 1.0, 8},         // the map a dot
        {300, 200, 64.0, {1000000000, -1000000000}, 1.0, 8},  // far off the map
    };
    for (const auto& c : cases) {
        TMapAppearance look;
        look.ShowGraticule = sgLines;
        look.Furniture.GridLabels = look.Furniture.ScaleBar = look.Furniture.NorthArrow = true;
        look.Furniture.Scale = c.Scale, look.Furniture.FontSize = c.FontSize;
        const TMapViewport view = MakeView(c.W, c.H, c.Mag, c.TopLeft);
        const TBitmap pic = Draw(view, src, look);
        EXPECT_GE(pic.Width(), c.W);
        TBitmap scratch(8, 8);
        for (const TEdgeLabel& l : PlaceGridLabels(scratch.Canvas(), view, src, look))
            EXPECT_TRUE(l.Box.Left >= 0 && l.Box.Right <= c.W && l.Box.Top >= 0 && l.Box.Bottom <= c.H);
        const TScaleBar bar = MeasureScaleBar(view, src, c.W / 3.0);
        EXPECT_TRUE(!bar.Valid || (bar.Pixels >= 1 && bar.Pixels <= c.W / 3.0 && std::isfinite(bar.Metres)));
    }
}

int Differing(const TBitmap& A, const TBitmap& B)
{
    int n = 0;
    for (int y = 0; y < std::min(A.Height(), B.Height()); ++y)
        for (int x = 0; x < std::min(A.Width(), B.Width()); ++x)
            n += (A.Pixel(x, y) & 0xFFFFFF) != (B.Pixel(x, y) & 0xFFFFFF);
    return n;
}

TEST(MapFurniture, TheControlDrawsItAtEveryPaintAndInItsCopies)
{
    TGeoMap m, plain;
    for (TGeoMap* g : {&m, &plain}) {
        g->resize(360, 260);
        g->OnMapImageRequest = [](TGeoMap&, std::string& Name) { Name = Samples + Name; };
        g->LoadCalDataFromXML(Samples + "calib-vienna.xml", "utm");
        g->SetShowGraticule(sgUTMGrid);
        g->SetMagnification(1.5);
        g->SetTopLeft({250, 150});
    }
    TFurnitureOptions f;
    f.GridLabels = true;  // alone: no corner piece takes a label's place
    m.SetFurniture(f);
    EXPECT_TRUE(m.Furniture().GridLabels);
    for (const TPoint topLeft : {TPoint{250, 150}, TPoint{287, 121}}) {  // panned: the labels follow
        m.SetTopLeft(topLeft);
        plain.SetTopLeft(topLeft);
        TBitmap drawn;
        TMapImageCache cache;
        RenderMapView(m.Viewport(), m.RenderSources(), m.Appearance(), drawn, cache);
        EXPECT_EQ(Differing(m.AuxBmp(), drawn), 0);
        EXPECT_GT(Differing(m.AuxBmp(), plain.AuxBmp()), 300);
        // The labels' text is drawn over each label's box.
        TBitmap scratch(8, 8);
        const auto labels = PlaceGridLabels(scratch.Canvas(), m.Viewport(), m.RenderSources(), m.Appearance());
        ASSERT_GE(labels.size(), 4u);
        for (const TEdgeLabel& l : labels) {
            int ink = 0;
            for (int y = l.Box.Top; y < l.Box.Bottom; ++y)
                for (int x = l.Box.Left; x < l.Box.Right; ++x)
                    ink += (m.AuxBmp().Pixel(x, y) & 0xFFFFFF) == m.ColorGraticule();
            EXPECT_GT(ink, 5) << l.Text;
        }
        if (const char* dir = std::getenv("QVGEO_FURNITURE_PNG"))
            SavePNG(m.AuxBmp(), std::string(dir) + "/control-" + std::to_string(topLeft.X) + ".png");
    }
    // A copy at a scale of its own carries it too; the plain map's copy is its own picture.
    f.ScaleBar = f.NorthArrow = true;
    m.SetFurniture(f);
    TBitmap a, b;
    m.CopyToBMP(a, {100, 100}, 0.75, {200, 150});
    plain.CopyToBMP(b, {100, 100}, 0.75, {200, 150});
    EXPECT_GT(Differing(a, b), 300);
    m.SetFurniture({});
    m.CopyToBMP(a, {100, 100}, 0.75, {200, 150});
    EXPECT_EQ(Differing(a, b), 0);
}

TEST(MapFurniture, PrintedAtThePrintersResolutionTheSizeItHasOnScreen)
{
    // A 300 dpi page: the map goes down at the device's resolution, what is drawn over it in 1/96-inch
    // pixels, so the arrow and the bar keep their size on paper.
    TVienna map("utm");
    const TMapSources src = map.Sources();
    TMapAppearance on, off;
    on.Furniture.ScaleBar = on.Furniture.NorthArrow = true;
    const TColor Ink = 0x2A1B3C;
    on.Furniture.Color = Ink;
    auto print = [&](const TMapAppearance& Look) {
        QImage page(1000, 800, QImage::Format_RGB32);
        page.setDotsPerMeterX(11811), page.setDotsPerMeterY(11811);  // 300 dpi
        page.fill(Qt::white);
        QPainter painter(&page);
        TMapImageCache cache;
        const double scale = DrawEntireMap(painter, {0, 0, 1000, 800}, 1.0, {map.Image.Width(), map.Image.Height()},
                                           src, [&](TBitmap& Out, TBitmap* Bare, TMapPixel Pos, double Scale, TSize Size) {
                                               RenderMapOutput(Out, Bare, MakeView(Size.cx, Size.cy, Scale, Pos), src,
                                                               Look, cache, nullptr, {});
                                           });
        EXPECT_DOUBLE_EQ(scale, 0.4);  // 800 x 600 map pixels onto 1000 x 800 at 300/96 device per pixel
        return page;
    };
    const QImage with = print(on), without = print(off);
    int changed = 0, longest = 0;
    const QRgb ink = qRgb(Ink & 0xFF, (Ink >> 8) & 0xFF, (Ink >> 16) & 0xFF);
    for (int y = 0; y < 800; ++y) {
        int run = 0;
        for (int x = 0; x < 1000; ++x) {
            changed += with.pixel(x, y) != without.pixel(x, y);
            run = with.pixel(x, y) == ink ? run + 1 : 0;
            longest = std::max(longest, run);
        }
    }
    EXPECT_GT(changed, 2000);
    // The bar's outline: its rendered pixels (the bar of the 320 x 240 rendering) at 300/96 device each.
    const TScaleBar bar = MeasureScaleBar(MakeView(320, 240, 0.4, {0, 0}), src, 320 / 3.0);  // a third of the width
    ASSERT_TRUE(bar.Valid);
    EXPECT_NEAR(longest, (std::lround(bar.Pixels) + 1) * 300.0 / 96, 2.0);
}

}  // namespace
}  // namespace qv
