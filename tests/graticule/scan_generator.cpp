// Synthetic scans of graticule maps (see scan_generator.h).
//
// Exactness of the ground truth rests on three things:
// - Base maps place every graticule line on known pixels. The empty map is requested with a whole
//   number of pixels per graticule step and limits a whole number of pixels beyond the first and last
//   line, so that the map's own rounding of rows and columns changes nothing (checked on every scan:
//   a line that lands off its exact pixel throws). Drawn graticules are stroked by TStrokeLayer, whose
//   coverage is symmetric about the exact centre line.
// - Pixel centres are at whole numbers everywhere: Qt's aliased line at row y covers row y, our strokes
//   measure distances from pixel centres, and OpenCV's warps map pixel centre to pixel centre. The
//   scan's Truth is therefore the homography applied to the base pixel, nothing added.
// - Everything after the warp (light, stains, blur, noise, JPEG) is either of low frequency or
//   symmetric, so it does not move a line's centre. OpenCV's warp quantises source positions to 1/32
//   pixel: up to 0.016 px, scattered.
#include "scan_generator.h"
#include "scan_content.h"

#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/platform/bitmap.h>

#include <QBuffer>
#include <QImage>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace qvtest {

namespace {

using namespace scan;

// ---- base maps -------------------------------------------------------------------------------------

cv::Mat WorldImage()
{
    static const cv::Mat world = [] {
        // The build names the source tree: __FILE__ may be relative to a build directory that is not the
        // working directory of the test run.
#ifdef QVGEO_SOURCE_DIR
        const auto path = std::filesystem::path(QVGEO_SOURCE_DIR) / "data/samples/world.jpg";
#else
        const auto path = std::filesystem::path(__FILE__).parent_path() / "../../data/samples/world.jpg";
#endif
        QImage img(QString::fromStdString(path.lexically_normal().string()));
        if (img.isNull())
            throw std::runtime_error("scan generator: cannot read " + path.string());
        img = img.convertToFormat(QImage::Format_RGB888);
        cv::Mat rgb(img.height(), img.width(), CV_8UC3, img.bits(), static_cast<std::size_t>(img.bytesPerLine()));
        cv::Mat bgr;
        cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
        return bgr;
    }();
    return world;
}

// The world map through Affine (world pixel -> base pixel), paled towards white by Pale: a printed map's
// tint rather than a photograph's dark sea.
cv::Mat WorldBackground(const cv::Matx23d& Affine, int W, int H, double Pale)
{
    cv::Mat out;
    cv::warpAffine(WorldImage(), out, cv::Mat(Affine), cv::Size(W, H), cv::INTER_LINEAR, cv::BORDER_REFLECT);
    out.convertTo(out, -1, 1 - Pale, 255 * Pale);
    return out;
}

// Base map + the base pixel of a geographic position (false outside the graticule's area).
struct TBase {
    cv::Mat Image;
    std::function<bool(double, double, double&, double&)> Pixel;
    std::vector<double> Latitudes, Longitudes;
    double LatSpacing = 0, LongSpacing = 0;
    qv::TCalibData Calib;
    std::string Text;
};

struct TEmptyAxis {
    int N, P, O1, O2;   // lines, pixels per step, pixels from the lower limit to the first line and from
    double D, First;    // the last line to the upper limit; degrees per step, value of the first line
};

// One axis of the empty map: Side pixels including both margins, values within [-Limit, Limit].
TEmptyAxis EmptyAxis(TRandom& R, int Side, double Limit)
{
    static const double steps[] = {0.25, 0.5, 1, 2, 5, 10, 15, 20};
    TEmptyAxis a{};
    a.N = R.Int(4, 15);
    const int inner = Side - 2 * qv::EmptyMapMargin;
    if (R.Chance(0.5)) {  // limits on the lattice: the frame falls on the first and last step
        a.P = inner / (a.N + 1);
        a.O1 = a.O2 = a.P;
    } else {
        a.P = inner / a.N;
        a.O1 = R.Int(a.P / 6, a.P * 5 / 6);
        a.O2 = R.Int(a.P / 6, a.P * 5 / 6);
    }
    // First = D·j with the limits inside ±Limit: D·(j - 1) >= -Limit and D·(j + N) <= Limit.
    int jLo = 0, jHi = -1;
    while (jHi < jLo) {
        a.D = steps[R.Int(0, 7)];
        jLo = static_cast<int>(std::ceil(-Limit / a.D)) + 1;
        jHi = static_cast<int>(std::floor(Limit / a.D)) - a.N;
    }
    a.First = a.D * R.Int(jLo, jHi);
    return a;
}

TBase EmptyMapBase(TRandom& R, int LongSide)
{
    const int shortSide = std::max(800, static_cast<int>(LongSide * R.Range(0.65, 1.0)));
    const bool landscape = R.Chance(0.5);
    const int M = qv::EmptyMapMargin;
    const TEmptyAxis ax = EmptyAxis(R, landscape ? LongSide : shortSide, 180);
    const TEmptyAxis ay = EmptyAxis(R, landscape ? shortSide : LongSide, 89);
    qv::TEmptyMapRequest rq;
    rq.Width = (ax.N - 1) * ax.P + ax.O1 + ax.O2 + 2 * M;
    rq.Height = (ay.N - 1) * ay.P + ay.O1 + ay.O2 + 2 * M;
    rq.LongGratDist = ax.D;
    rq.LatGratDist = ay.D;
    rq.LongMin = ax.First - ax.D * ax.O1 / ax.P;
    rq.LongMax = ax.First + ax.D * (ax.N - 1 + static_cast<double>(ax.O2) / ax.P);
    rq.LatMin = ay.First - ay.D * ay.O1 / ay.P;
    rq.LatMax = ay.First + ay.D * (ay.N - 1 + static_cast<double>(ay.O2) / ay.P);
    qv::TBitmap bmp;
    TBase b;
    qv::GenerateEmptyMap(rq, bmp, b.Calib);
    const QImage& img = bmp.Image();
    cv::Mat bgra(img.height(), img.width(), CV_8UC4, const_cast<uchar*>(img.constBits()),
                 static_cast<std::size_t>(img.bytesPerLine()));
    cv::cvtColor(bgra, b.Image, cv::COLOR_BGRA2BGR);

    // The map's rows and columns, by its own loops and rounding, must be the exact ones.
    const double W = rq.Width, H = rq.Height;
    auto fx = [=](double lam) { return M + (lam - rq.LongMin) / (rq.LongMax - rq.LongMin) * (W - 2 * M); };
    auto fy = [=](double phi) { return (H - M) - (phi - rq.LatMin) / (rq.LatMax - rq.LatMin) * (H - 2 * M); };
    for (int i = 0; i < ax.N; ++i) {
        const double lam = ax.First + i * ax.D;
        if (std::fabs(fx(lam) - (M + ax.O1 + i * ax.P)) > 1e-6)
            throw std::logic_error("scan generator: meridian off its pixel column");
        b.Longitudes.push_back(lam);
    }
    for (int i = 0; i < ay.N; ++i) {
        const double phi = ay.First + i * ay.D;
        if (std::fabs(fy(phi) - (H - M - ay.O1 - i * ay.P)) > 1e-6)
            throw std::logic_error("scan generator: parallel off its pixel row");
        b.Latitudes.push_back(phi);
    }
    // The map's own loops, as it draws: no other line may appear (the frame rows are skipped).
    auto drawn = [](double Min, double Max, double D, double Inner, auto Pos) {
        int n = 0;
        for (double v = D * std::trunc(Min / D); v < Max; v += D) {
            const double p = Pos(std::nearbyint((v - Min) / (Max - Min) * Inner));
            n += p > qv::EmptyMapMargin && p < Inner + qv::EmptyMapMargin;
        }
        return n;
    };
    if (drawn(rq.LatMin, rq.LatMax, ay.D, H - 2 * M, [&](double r) { return (H - r) - M; }) != ay.N ||
        drawn(rq.LongMin, rq.LongMax, ax.D, W - 2 * M, [&](double r) { return r + M; }) != ax.N)
        throw std::logic_error("scan generator: the empty map draws another number of lines");
    b.LatSpacing = ay.D;
    b.LongSpacing = ax.D;
    b.Pixel = [=](double Lat, double Long, double& X, double& Y) {
        if (Lat < rq.LatMin || Lat > rq.LatMax || Long < rq.LongMin || Long > rq.LongMax)
            return false;
        X = fx(Long);
        Y = fy(Lat);
        return true;
    };
    char text[160];
    std::snprintf(text, sizeof text, "empty map %dx%d px, step %d x %d px, frame %s the meridians' lattice, %s the parallels'",
                  rq.Width, rq.Height, ax.P, ay.P, ax.O1 == ax.P ? "on" : "off", ay.O1 == ay.P ? "on" : "off");
    b.Text = text;
    return b;
}

// The multiples of D strictly inside (Lo, Hi), at least 0.15 step from either end (a line that close
// to a neatline would merge with it).
std::vector<double> LinesIn(double Lo, double Hi, double D)
{
    std::vector<double> v;
    for (double k = std::ceil(Lo / D + 0.15); k * D < Hi - 0.15 * D; ++k)
        v.push_back(k * D);
    return v;
}

// A nice spacing that gives 4..15 lines in (Lo, Hi), at random among those that do.
double PickSpacing(TRandom& R, double Lo, double Hi)
{
    static const double steps[] = {0.5, 1, 2, 2.5, 5, 10, 15, 20, 30};
    std::vector<double> ok;
    for (double d : steps)
        if (const std::size_t n = LinesIn(Lo, Hi, d).size(); n >= 4 && n <= 15)
            ok.push_back(d);
    if (ok.empty())
        return (Hi - Lo) / 6;
    return ok[static_cast<std::size_t>(R.Int(0, static_cast<int>(ok.size()) - 1))];
}

// Projection of the drawn graticule onto base pixels.
struct TProjection {
    TScanProjection Kind = spEquiRect;
    double K = 1;             // pixels per radian (equirect: of latitude)
    double KxOverK = 1;       // equirect: longitude scale relative to latitude
    double Long0 = 0;
    double N = 1, Rho0 = 0, Phi1 = 0;  // conic: cone constant, radius at the standard parallel, its latitude
    bool South = false;
    cv::Point2d Shift{0, 0};

    cv::Point2d operator()(double Lat, double Long) const
    {
        const double lam = (Long - Long0) * Rad, phi = Lat * Rad;
        cv::Point2d p;
        switch (Kind) {
        case spEquiRect: p = {K * KxOverK * lam, -K * phi}; break;
        case spMiller: p = {K * lam, -K * 1.25 * std::log(std::tan(Pi / 4 + 0.4 * phi))}; break;
        case spConic: {
            // The radius grows linearly away from the apex (north of a northern map, south of a southern
            // one): parallels are equally spaced concentric arcs, meridians rays at N times their longitude.
            const double rho = K * (Rho0 + Phi1 - (South ? -phi : phi)), th = N * lam;
            p = {rho * std::sin(th), South ? -rho * std::cos(th) : rho * std::cos(th)};
        }
        }
        return p + Shift;
    }
};

// The graticule's strokes: width 1..3 px, dark or coloured, solid or dashed; a neatline on the area's
// edge for some maps.
std::string DrawGraticule(cv::Mat& Img, TRandom& R, const TBase& B, double LatLo, double LatHi, double LongLo,
                          double LongHi)
{
    static const cv::Scalar inks[] = {{0, 0, 0}, {50, 50, 50}, {20, 45, 80}, {140, 40, 10}, {30, 20, 180},
                                      {130, 20, 130}, {30, 100, 20}};
    const int inkNo = R.Int(0, 6);
    const double width = R.Range(1, 3);
    const bool dashed = R.Chance(0.35);
    const double dash = R.Range(6, 20), gap = R.Range(3, 10);
    const bool neat = R.Chance(0.6);
    const double neatWidth = width + R.Range(0.5, 1.5);
    TStrokeLayer layer(Img.cols, Img.rows);
    auto curve = [&](bool Parallel, double Value, double From, double To) {
        TLine line;
        double x = 0, y = 0;
        for (int i = 0; i <= 2000; ++i) {
            const double t = From + (To - From) * i / 2000;
            if (Parallel ? B.Pixel(Value, t, x, y) : B.Pixel(t, Value, x, y))
                line.emplace_back(x, y);
        }
        return line;
    };
    for (double phi : B.Latitudes)
        layer.Stroke(curve(true, phi, LongLo, LongHi), width, dashed ? dash : 0, gap);
    for (double lam : B.Longitudes)
        layer.Stroke(curve(false, lam, LatLo, LatHi), width, dashed ? dash : 0, gap);
    layer.Composite(Img, inks[inkNo]);
    if (neat) {
        layer.Stroke(curve(true, LatLo, LongLo, LongHi), neatWidth);
        layer.Stroke(curve(true, LatHi, LongLo, LongHi), neatWidth);
        layer.Stroke(curve(false, LongLo, LatLo, LatHi), neatWidth);
        layer.Stroke(curve(false, LongHi, LatLo, LatHi), neatWidth);
        layer.Composite(Img, {20, 20, 20});
        // Values outside the neatline at both ends of every line, as printed maps have them.
        const double scale = R.Range(0.45, 0.8);
        auto label = [&](double Value, bool Parallel, double X, double Y, int Side) {
            char v[32];
            std::snprintf(v, sizeof v, "%g%c", std::fabs(Value), Parallel ? (Value < 0 ? 'S' : 'N') : (Value < 0 ? 'W' : 'E'));
            int base = 0;
            const cv::Size t = cv::getTextSize(v, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &base);
            const double x = Parallel ? (Side < 0 ? X - t.width - 6 : X + 6) : X - t.width / 2.0;
            const double y = Parallel ? Y + t.height / 2.0 : (Side < 0 ? Y - 6 : Y + t.height + 6);
            cv::putText(Img, v, cv::Point(static_cast<int>(x), static_cast<int>(y)), cv::FONT_HERSHEY_SIMPLEX, scale,
                        {20, 20, 20}, 1, cv::LINE_AA);
        };
        double x = 0, y = 0;
        for (double phi : B.Latitudes) {
            if (B.Pixel(phi, LongLo, x, y))
                label(phi, true, x, y, -1);
            if (B.Pixel(phi, LongHi, x, y))
                label(phi, true, x, y, 1);
        }
        for (double lam : B.Longitudes) {
            if (B.Pixel(LatHi, lam, x, y))
                label(lam, false, x, y, -1);
            if (B.Pixel(LatLo, lam, x, y))
                label(lam, false, x, y, 1);
        }
    }
    char text[80];
    std::snprintf(text, sizeof text, "lines %.1f px %s %s%s", width, dashed ? "dashed" : "solid",
                  inkNo < 2 ? "dark" : "coloured", neat ? ", neatline" : "");
    return text;
}

TBase WorldBase(TRandom& R, TRandom& Content, TScanProjection Kind, int LongSide, bool Clutter)
{
    TProjection pr;
    pr.Kind = Kind;
    double latLo = 0, latHi = 0, dLong = 0;
    // The bounding box of the area's outline as projected (unscaled until K is set).
    auto box = [&](double LongLo, double LongHi) {
        cv::Point2d lo(1e300, 1e300), hi(-1e300, -1e300);
        for (int i = 0; i <= 64; ++i) {
            const double t = i / 64.0, lon = LongLo + t * (LongHi - LongLo), lat = latLo + t * (latHi - latLo);
            for (const cv::Point2d& p : {pr(latLo, lon), pr(latHi, lon), pr(lat, LongLo), pr(lat, LongHi)}) {
                lo = {std::min(lo.x, p.x), std::min(lo.y, p.y)};
                hi = {std::max(hi.x, p.x), std::max(hi.y, p.y)};
            }
        }
        return std::pair{lo, hi};
    };
    // The longitude span that gives the area a width of Aspect times its height.
    auto fitAspect = [&](double Aspect, double MaxLong) {
        for (int i = 0; i < 3; ++i) {
            const auto [lo, hi] = box(-dLong / 2, dLong / 2);
            dLong = std::min(MaxLong, dLong * Aspect * (hi.y - lo.y) / (hi.x - lo.x));
        }
    };
    if (Kind == spConic) {
        pr.Phi1 = R.Range(25, 55) * Rad;
        const bool south = R.Chance(0.3);  // mirrored once the northern area is settled
        pr.N = std::sin(pr.Phi1);
        pr.Rho0 = 1 / std::tan(pr.Phi1);
        const double dLat = R.Range(0.5, 1.0) * std::min(40.0, pr.Rho0 / 3 / Rad);
        const double c = pr.Phi1 / Rad + R.Range(-0.3, 0.3) * dLat;
        latLo = std::max(c - dLat / 2, 5.0);
        latHi = std::min(c + dLat / 2, 84.0);
        dLong = dLat / std::cos(pr.Phi1);
        fitAspect(R.Range(0.65, 1.5), 150);
        // Gently curved: the radius at the poleward edge stays at least 3 times the map's size, so that
        // a parabola follows each parallel to a small fraction of a pixel.
        for (;;) {
            const double rhoMin = pr.Rho0 + pr.Phi1 - latHi * Rad;
            const double size = std::max((latHi - latLo) * Rad, std::cos(pr.Phi1) * dLong * Rad);
            if (rhoMin >= 3 * size)
                break;
            const double mid = (latLo + latHi) / 2;
            latLo = mid - (mid - latLo) * 0.85;
            latHi = mid + (latHi - mid) * 0.85;
            dLong *= 0.85;
        }
        if (south) {
            pr.South = true;
            const double t = latLo;
            latLo = -latHi;
            latHi = -t;
        }
    } else {
        const double dLat = R.Range(8, Kind == spMiller ? 70 : 60);
        const double c = R.Range(-1, 1) * (80 - dLat / 2);
        latLo = c - dLat / 2;
        latHi = c + dLat / 2;
        dLong = dLat;
        if (Kind == spEquiRect && R.Chance(0.5))
            pr.KxOverK = std::cos((latLo + latHi) / 2 * Rad);
        fitAspect(R.Range(0.65, 1.5), 350);
    }
    pr.Long0 = R.Range(-1, 1) * (180 - dLong / 2);
    const double longLo = pr.Long0 - dLong / 2, longHi = pr.Long0 + dLong / 2;

    // Scale and shift (every projection here scales linearly with K).
    const auto [lo, hi] = box(longLo, longHi);
    const double inset = R.Range(15, 60);
    pr.K = (LongSide - 2 * inset) / std::max(hi.x - lo.x, hi.y - lo.y);
    pr.Shift = {inset - lo.x * pr.K, inset - lo.y * pr.K};
    const int W = static_cast<int>(std::ceil((hi.x - lo.x) * pr.K + 2 * inset));
    const int H = static_cast<int>(std::ceil((hi.y - lo.y) * pr.K + 2 * inset));

    TBase b;
    const double pale = R.Range(0.45, 0.75);
    // A piece of the world map enlarged 1..4 times; for an equirectangular graticule whose own scale
    // allows, the very piece it frames (world pixel u = 4(λ + 180) - 0.5, v = 4(90 - φ) - 0.5).
    const double f = R.Range(1, 4), u0 = R.Range(0, std::max(0.0, 1440 - W / f)), v0 = R.Range(0, std::max(0.0, 720 - H / f));
    const double fx = pr.K * pr.KxOverK * Rad / 4, fy = pr.K * Rad / 4;
    if (Kind == spEquiRect && fy >= 1 && fy <= 4) {
        const cv::Point2d o = pr(0, pr.Long0);
        const double tx = o.x + pr.K * pr.KxOverK * (-180 - pr.Long0) * Rad + fx * 0.5;
        const double ty = o.y - pr.K * 90 * Rad + fy * 0.5;
        b.Image = WorldBackground(cv::Matx23d(fx, 0, tx, 0, fy, ty), W, H, pale);
    } else {
        b.Image = WorldBackground(cv::Matx23d(f, 0, -f * u0, 0, f, -f * v0), W, H, pale);
    }
    b.LatSpacing = PickSpacing(R, latLo, latHi);
    const std::size_t same = LinesIn(longLo, longHi, b.LatSpacing).size();
    b.LongSpacing = R.Chance(0.6) && same >= 4 && same <= 15 ? b.LatSpacing : PickSpacing(R, longLo, longHi);
    b.Latitudes = LinesIn(latLo, latHi, b.LatSpacing);
    b.Longitudes = LinesIn(longLo, longHi, b.LongSpacing);
    b.Pixel = [=](double Lat, double Long, double& X, double& Y) {
        if (Lat < latLo || Lat > latHi || Long < longLo || Long > longHi)
            return false;
        const cv::Point2d p = pr(Lat, Long);
        X = p.x;
        Y = p.y;
        return true;
    };
    if (Clutter)
        DrawAreas(b.Image, Content);
    const std::string style = DrawGraticule(b.Image, R, b, latLo, latHi, longLo, longHi);
    if (Clutter)
        DrawFeatures(b.Image, Content);
    char text[160];
    std::snprintf(text, sizeof text, "world %dx%d px, %.1f..%.1f N %.1f..%.1f E, %s", W, H, latLo, latHi, longLo,
                  longHi, style.c_str());
    b.Text = text;
    return b;
}

// Map content without a graticule: a piece of the world map or blank paper, maybe a frame.
TBase NoGridBase(TRandom& R, TRandom& Content, int LongSide, bool Clutter)
{
    const int W = LongSide, H = std::max(800, static_cast<int>(LongSide * R.Range(0.6, 1.0)));
    TBase b;
    const bool world = R.Chance(0.6);
    if (world) {
        const double f = R.Range(1, 4);
        b.Image = WorldBackground(cv::Matx23d(f, 0, -f * R.Range(0, std::max(0.0, 1440 - W / f)), 0, f,
                                              -f * R.Range(0, std::max(0.0, 720 - H / f))),
                                  W, H, R.Range(0.35, 0.7));
    } else {
        b.Image = cv::Mat(H, W, CV_8UC3, cv::Scalar(255, 255, 255));
    }
    const bool frame = R.Chance(0.5);
    if (frame) {
        const int m = R.Int(15, 60);
        cv::rectangle(b.Image, cv::Rect(m, m, W - 2 * m, H - 2 * m), {20, 20, 20}, R.Int(1, 3));
    }
    if (Clutter) {
        DrawAreas(b.Image, Content);
        DrawFeatures(b.Image, Content);
    }
    b.Pixel = [](double, double, double&, double&) { return false; };
    b.Text = std::string(world ? "world piece" : "blank paper") + (frame ? " with a frame" : "");
    return b;
}

// ---- the scan ----------------------------------------------------------------------------------------

// Base pixel -> scan pixel: perspective about the base's centre (the scale changing by P from one edge to
// the other along Direction), then scale, turn (counter-clockwise as seen, y down) and shift onto paper.
cv::Matx33d ScanTransform(int W, int H, double Scale, double Rotation, double P, double Direction,
                          double MarginShare, cv::Size& Out)
{
    const double cx = (W - 1) / 2.0, cy = (H - 1) / 2.0;
    const double dx = std::cos(Direction), dy = std::sin(Direction);
    const double extent = std::fabs(dx) * W + std::fabs(dy) * H;
    const cv::Matx33d centre(1, 0, -cx, 0, 1, -cy, 0, 0, 1);
    const cv::Matx33d persp(1, 0, 0, 0, 1, 0, P * dx / extent, P * dy / extent, 1);
    const double c = std::cos(Rotation * Rad), s = std::sin(Rotation * Rad);
    const cv::Matx33d turn(Scale * c, Scale * s, 0, -Scale * s, Scale * c, 0, 0, 0, 1);
    cv::Matx33d h = turn * persp * centre;
    double x0 = 1e300, y0 = 1e300, x1 = -1e300, y1 = -1e300;
    for (const cv::Point2d& p : {cv::Point2d(0, 0), cv::Point2d(W - 1, 0), cv::Point2d(0, H - 1), cv::Point2d(W - 1, H - 1)}) {
        const cv::Vec3d q = h * cv::Vec3d(p.x, p.y, 1);
        x0 = std::min(x0, q[0] / q[2]);
        x1 = std::max(x1, q[0] / q[2]);
        y0 = std::min(y0, q[1] / q[2]);
        y1 = std::max(y1, q[1] / q[2]);
    }
    const double margin = 10 + MarginShare * std::max(x1 - x0, y1 - y0);
    Out = cv::Size(static_cast<int>(std::ceil(x1 - x0 + 2 * margin)) + 1, static_cast<int>(std::ceil(y1 - y0 + 2 * margin)) + 1);
    return cv::Matx33d(1, 0, margin - x0, 0, 1, margin - y0, 0, 0, 1) * h;
}

// Uneven light and stains as one affine change per pixel and channel, v·Mul + Add, both smooth fields
// sampled every Step pixels and interpolated bilinearly.
void LightAndStains(cv::Mat& Img, TRandom& R, int Stains)
{
    constexpr int Step = 32;
    const int fw = Img.cols / Step + 2, fh = Img.rows / Step + 2;
    cv::Mat coarse(4, 4, CV_32F), light;
    for (int i = 0; i < 16; ++i)
        coarse.at<float>(i / 4, i % 4) = static_cast<float>(R.Range(0.75, 1.0));
    cv::resize(coarse, light, cv::Size(fw, fh), 0, 0, cv::INTER_CUBIC);
    cv::Mat mul, add(fh, fw, CV_32FC3, cv::Scalar(0, 0, 0));
    light = cv::min(cv::max(light, 0.7), 1.0);
    cv::merge(std::vector<cv::Mat>{light, light, light}, mul);
    for (int i = 0; i < Stains; ++i) {
        cv::Mat m(fh, fw, CV_32F, cv::Scalar(0));
        const double ax = R.Range(0.04, 0.2) * std::max(fw, fh), ay = ax * R.Range(0.4, 1.0);
        cv::ellipse(m, cv::Point(R.Int(0, fw - 1), R.Int(0, fh - 1)), cv::Size(static_cast<int>(ax) + 1, static_cast<int>(ay) + 1),
                    R.Range(0, 180), 0, 360, cv::Scalar(1), -1);
        cv::GaussianBlur(m, m, cv::Size(0, 0), std::max(1.0, ay / 2));
        const double a = R.Range(0.1, 0.4);
        const cv::Scalar colour = R.Chance(0.6) ? cv::Scalar(R.Range(60, 110), R.Range(110, 160), R.Range(150, 200))
                                                : cv::Scalar::all(R.Range(90, 170));
        for (int y = 0; y < fh; ++y)
            for (int x = 0; x < fw; ++x) {
                const double am = a * m.at<float>(y, x);
                for (int k = 0; k < 3; ++k) {
                    mul.at<cv::Vec3f>(y, x)[k] *= static_cast<float>(1 - am);
                    add.at<cv::Vec3f>(y, x)[k] = static_cast<float>(add.at<cv::Vec3f>(y, x)[k] * (1 - am) + colour[k] * am);
                }
            }
    }
    std::vector<cv::Vec3f> rowMul(static_cast<std::size_t>(fw)), rowAdd(static_cast<std::size_t>(fw));
    for (int y = 0; y < Img.rows; ++y) {
        const int fy = y / Step;
        const float ty = static_cast<float>(y - fy * Step) / Step;
        for (int x = 0; x < fw; ++x) {
            rowMul[static_cast<std::size_t>(x)] = mul.at<cv::Vec3f>(fy, x) * (1 - ty) + mul.at<cv::Vec3f>(fy + 1, x) * ty;
            rowAdd[static_cast<std::size_t>(x)] = add.at<cv::Vec3f>(fy, x) * (1 - ty) + add.at<cv::Vec3f>(fy + 1, x) * ty;
        }
        auto* p = Img.ptr<cv::Vec3b>(y);
        for (int x = 0; x < Img.cols; ++x) {
            const auto fx = static_cast<std::size_t>(x / Step);
            const float tx = static_cast<float>(x % Step) / Step;
            const cv::Vec3f m = rowMul[fx] * (1 - tx) + rowMul[fx + 1] * tx, a = rowAdd[fx] * (1 - tx) + rowAdd[fx + 1] * tx;
            for (int k = 0; k < 3; ++k)
                p[x][k] = cv::saturate_cast<uchar>(p[x][k] * m[k] + a[k]);
        }
    }
}

// Gaussian noise of Sigma grey levels, the same on the three channels: a table of 65536 deviates drawn
// once, indexed by 16 random bits per pixel.
void AddNoise(cv::Mat& Img, TRandom& R, double Sigma)
{
    static const std::vector<float> table = [] {
        TRandom t(20261124);
        std::vector<float> v(65536);
        for (float& g : v)
            g = static_cast<float>(t.Gauss());
        return v;
    }();
    std::uint32_t bits = 0;
    for (int y = 0; y < Img.rows; ++y) {
        auto* p = Img.ptr<cv::Vec3b>(y);
        for (int x = 0; x < Img.cols; ++x) {
            if ((x & 1) == 0)
                bits = R.Next();
            const float n = static_cast<float>(Sigma) * table[(x & 1) ? bits >> 16 : bits & 0xffff];
            for (int k = 0; k < 3; ++k)
                p[x][k] = cv::saturate_cast<uchar>(p[x][k] + n);
        }
    }
}

// Grey levels with the fixed weights 0.299, 0.587, 0.114 of a BGR image, after a JPEG round trip at
// Quality (0: none) through Qt.
std::vector<std::uint8_t> JpegGrey(const cv::Mat& Bgr, int Quality)
{
    cv::Mat rgb;
    cv::cvtColor(Bgr, rgb, cv::COLOR_BGR2RGB);
    QImage img(rgb.data, rgb.cols, rgb.rows, static_cast<qsizetype>(rgb.step), QImage::Format_RGB888);
    QImage back = img;
    if (Quality > 0) {
        QByteArray bytes;
        QBuffer buf(&bytes);
        buf.open(QIODevice::WriteOnly);
        if (!img.save(&buf, "JPG", Quality) || !back.loadFromData(bytes, "JPG"))
            throw std::runtime_error("scan generator: JPEG round trip failed");
        back = back.convertToFormat(QImage::Format_RGB888);
    }
    std::vector<std::uint8_t> grey(static_cast<std::size_t>(Bgr.cols) * static_cast<std::size_t>(Bgr.rows));
    for (int y = 0; y < back.height(); ++y) {
        const uchar* p = back.constScanLine(y);
        std::uint8_t* g = grey.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(Bgr.cols);
        for (int x = 0; x < back.width(); ++x, p += 3)
            g[x] = static_cast<std::uint8_t>((299 * p[0] + 587 * p[1] + 114 * p[2] + 500) / 1000);
    }
    return grey;
}

}  // namespace

TScanRecipe BenchmarkRecipe(int N)
{
    TRandom r(0x51A7u + static_cast<std::uint32_t>(N) * 2654435761u);
    TScanRecipe s;
    s.Seed = r.Next();
    if (N < 0 || N >= 200) {
        s.Base = sbNoGrid;
    } else if (N % 2 == 0) {
        s.Base = sbEmptyMap;
    } else {
        s.Base = sbWorld;
        static const TScanProjection kinds[] = {spConic, spMiller, spEquiRect};
        s.Projection = kinds[(N / 2) % 3];
    }
    s.Rotation = r.Range(-10, 10);
    s.Scale = r.Range(0.8, 2.5);
    s.Perspective = r.Range(0, 0.02);
    s.JpegQuality = r.Int(40, 90);
    s.Blur = r.Range(0, 1.5);
    s.Noise = r.Range(0, 8);
    s.Stains = r.Int(0, 4);
    s.Clutter = s.Base == sbNoGrid || r.Chance(0.85);
    return s;
}

TSyntheticScan MakeScan(const TScanRecipe& Recipe)
{
    // Separate streams, so that switching content off leaves the geometry as it was.
    TRandom geo(Recipe.Seed), content(Recipe.Seed ^ 0x9E3779B9u), photo(Recipe.Seed ^ 0x7F4A7C15u);
    const double scale = Recipe.Scale > 0 ? Recipe.Scale : 1.0;
    const int longSide = std::clamp(static_cast<int>(geo.Range(1400, 3200) / scale), 1000, 3000);
    TBase b;
    switch (Recipe.Base) {
    case sbEmptyMap:
        b = EmptyMapBase(geo, longSide);
        if (Recipe.Clutter) {
            DrawAreas(b.Image, content);
            DrawFeatures(b.Image, content);
        }
        break;
    case sbWorld: b = WorldBase(geo, content, Recipe.Projection, longSide, Recipe.Clutter); break;
    case sbNoGrid: b = NoGridBase(geo, content, longSide, Recipe.Clutter); break;
    }

    const double direction = geo.Range(0, 2 * Pi), marginShare = geo.Range(0.02, 0.06);
    cv::Size size;
    double s = scale;
    cv::Matx33d h = ScanTransform(b.Image.cols, b.Image.rows, s, Recipe.Rotation, Recipe.Perspective, direction,
                                  marginShare, size);
    if (Recipe.TargetPixels > 0) {
        s *= std::sqrt(Recipe.TargetPixels / (static_cast<double>(size.width) * size.height));
        h = ScanTransform(b.Image.cols, b.Image.rows, s, Recipe.Rotation, Recipe.Perspective, direction, marginShare,
                          size);
    }
    // Shrinking samples the base more coarsely than its pixels: a symmetric prefilter against aliasing.
    const double smallest = s * (1 - Recipe.Perspective);
    if (smallest < 1)
        cv::GaussianBlur(b.Image, b.Image, cv::Size(0, 0), 0.5 * std::sqrt(1 / (smallest * smallest) - 1));
    const cv::Scalar paper(photo.Range(215, 240), photo.Range(230, 248), photo.Range(238, 252));
    cv::Mat scan;
    cv::warpPerspective(b.Image, scan, cv::Mat(h), size, cv::INTER_LINEAR, cv::BORDER_CONSTANT, paper);
    b.Image.release();
    LightAndStains(scan, photo, std::max(0, Recipe.Stains));
    if (Recipe.Blur > 0.05)
        cv::GaussianBlur(scan, scan, cv::Size(0, 0), Recipe.Blur);
    if (Recipe.Noise > 0)
        AddNoise(scan, photo, Recipe.Noise);

    TSyntheticScan out;
    out.Recipe = Recipe;
    out.Width = scan.cols;
    out.Height = scan.rows;
    out.Grey = JpegGrey(scan, Recipe.JpegQuality);
    out.HasGrid = Recipe.Base != sbNoGrid;
    out.LatSpacing = b.LatSpacing;
    out.LongSpacing = b.LongSpacing;
    out.Latitudes = b.Latitudes;
    out.Longitudes = b.Longitudes;
    for (int i = 0; i < 9; ++i)
        out.Homography[static_cast<std::size_t>(i)] = h.val[i];
    out.BaseCalib = b.Calib;
    out.Truth = [H = out.Homography, Pixel = b.Pixel](double Lat, double Long, double& X, double& Y) {
        double x = 0, y = 0;
        if (!Pixel(Lat, Long, x, y))
            return false;
        const double w = H[6] * x + H[7] * y + H[8];
        X = (H[0] * x + H[1] * y + H[2]) / w;
        Y = (H[3] * x + H[4] * y + H[5]) / w;
        return true;
    };
    static const char* const bases[] = {"empty map", "world", "no grid"};
    static const char* const projections[] = {"equirect", "Miller", "conic"};
    char text[400];
    std::snprintf(text, sizeof text,
                  "seed %u %s%s%s rot %+.1f scale %.2f persp %.3f jpeg %d blur %.2f noise %.1f stains %d%s, "
                  "%dx%d px, %zux%zu lines %gx%g deg | %s",
                  Recipe.Seed, bases[Recipe.Base], Recipe.Base == sbWorld ? " " : "",
                  Recipe.Base == sbWorld ? projections[Recipe.Projection] : "", Recipe.Rotation, s, Recipe.Perspective,
                  Recipe.JpegQuality, Recipe.Blur, Recipe.Noise, Recipe.Stains, Recipe.Clutter ? " clutter" : "",
                  out.Width, out.Height, out.Latitudes.size(), out.Longitudes.size(), out.LatSpacing, out.LongSpacing,
                  b.Text.c_str());
    out.Description = text;
    return out;
}

bool SaveScan(const TSyntheticScan& Scan, const std::string& FName)
{
    if (Scan.Width <= 0 || Scan.Height <= 0 ||
        Scan.Grey.size() != static_cast<std::size_t>(Scan.Width) * static_cast<std::size_t>(Scan.Height))
        return false;
    const QImage img(Scan.Grey.data(), Scan.Width, Scan.Height, Scan.Width, QImage::Format_Grayscale8);
    return img.save(QString::fromStdString(FName), "PNG");
}

}  // namespace qvtest
