// Graticule, UTM grid and calibration points of a map view.
//
// Meridians and parallels (biquadratic, conic, Miller, equirect): each family spans the range its
// coordinate takes over the four calibrated corners. Spacing 1/f degrees: f = 1/GratLineDist, or
// automatically the largest of 1°, 0.1°, 0.01°, ... not larger than the range. Line k lies at
// (Trunc(min·f) + k)/f — computed from the index, not by adding steps, so that a long run of lines does
// not drift — while that value is below the maximum. Each line is 101 points evenly spaced in the other
// coordinate over its range, converted by the fit and the view; a point the fit cannot convert lifts the
// pen. A GratLineDist so small that a family would exceed 1000 lines is widened tenfold until it does not.
//
// UTM grid: the corners are projected with LatLongToUTM in the fit's ellipsoid (when a corner falls in
// another zone than the map's, the corner pixels are taken through the linear fit instead, which is in
// the map's zone by construction). The spacing is UTMGridDist metres when positive, otherwise Round125 of
// a tenth of the larger of the easting and northing ranges (about ten lines across the map), at least
// 1 m, and widened tenfold while a family would exceed 1000 lines. Lines are drawn at every whole multiple
// of the spacing from the smallest to the largest corner value, both included; each line runs through its
// map positions at the top and bottom rows (eastings) or left and right columns (northings), is clipped to
// the map's box (0, 0)–(width, height) in map pixels with TSLine and drawn between the clipped ends.
//
// Calibration points: a plus of 7 × 7 pixels in ColorCalibPoints centred on the point's control pixel —
// the graticule-line points under the parabolic model, the calibration quads under the others.
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/mapview/map_render_internal.h>
#include <qvgeo/support/line_clip.h>
#include <qvgeo/support/math_services.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace qv::render_detail {

namespace {

constexpr double MaxLinesPerFamily = 1000.0;

// Hands a line's map pixels to the sink as canvas pixels; a point the fit could not convert lifts the pen.
class TMapPolyline {
public:
    TMapPolyline(TGridLineSink& Sink, const TMapViewport& View, TGridFamily Family, double Value)
        : FSink(Sink), FView(View)
    {
        FSink.Begin(Family, Value);
    }
    void Add(bool Valid, TMapPixel MapPixel) { FSink.Point(Valid, Valid ? CanvasPixel(FView, MapPixel) : TPoint{}); }

private:
    TGridLineSink& FSink;
    const TMapViewport& FView;
};

// The drawing sink: a polyline per line, the pen lifted at invalid points.
class TCanvasLineSink final : public TGridLineSink {
public:
    explicit TCanvasLineSink(TCanvas& Canvas) : FCanvas(Canvas) {}
    void Begin(TGridFamily, double) override { FDown = false; }
    void Point(bool Valid, TPoint P) override
    {
        if (!Valid) {
            FDown = false;
            return;
        }
        if (FDown)
            FCanvas.LineTo(P.X, P.Y);
        else
            FCanvas.MoveTo(P.X, P.Y);
        FDown = true;
    }

private:
    TCanvas& FCanvas;
    bool FDown = false;
};

std::int32_t MapWidth(const TMapSources& S) { return MapPictureSize(S).cx; }
std::int32_t MapHeight(const TMapSources& S) { return MapPictureSize(S).cy; }

// cmParabolicIp: each calibration line as the parabola through its points, one point per visible map
// column (parallels) or row (meridians), or per control pixel where a column is narrower than that.
void DrawParabolas(TGridLineSink& Sink, const TMapViewport& View, const TMapSources& S)
{
    const double mag = View.Magnify();
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    if (W <= 0 || H <= 0)
        return;
    // Above two points per control pixel of a view up to 65536 pixels wide: a bound that only an
    // unrepresentable request reaches.
    const double MaxParabolaPoints = 2.0 * 65536.0 + 2.0;
    // The parabolas come with the fit, made when the calibration was refitted, not on every paint.
    const auto& lines = S.Fit->LineParabolas();
    for (std::size_t n = 0; n < lines.size(); ++n) {
        const TLineParabola& line = lines[n];
        if (!line.Drawn)
            continue;
        const bool parallel = line.Parallel;
        const double c0 = line.K0, c1 = line.K1, c2 = line.K2;
        // The parabolas follow the record's lines in order; a line beyond the record has no known value.
        const double value = n < static_cast<std::size_t>(ValidCalLines(*S.CalibData))
                                 ? S.CalibData->CalLines[n].LineValue
                                 : std::numeric_limits<double>::quiet_NaN();
        TMapPolyline poly(Sink, View, parallel ? gfLatitude : gfLongitude, value);
        const double start = parallel ? View.TopLeft().X : View.TopLeft().Y;
        const double span = (parallel ? W : H) / mag;  // visible map columns (rows)
        // One point per map column while a column is wider than half a control pixel; on a view reduced
        // further, every step-th column, about one point per control pixel, so that the work is bounded by
        // the visible pixels whatever the magnification.
        const double step = std::max(1.0, std::floor(1.0 / mag));
        const std::int64_t count = static_cast<std::int64_t>(std::min(std::ceil(span / step), MaxParabolaPoints));
        for (std::int64_t i = 0; i < count; ++i) {
            const double t = start + double(i) * step;
            const double f = c0 + c1 * t + c2 * t * t;
            const std::int32_t v = RoundSaturated(t);
            poly.Add(true, parallel ? TMapPixel{v, RoundSaturated(f)} : TMapPixel{RoundSaturated(f), v});
        }
    }
}

void DrawMeridiansAndParallels(TGridLineSink& Sink, const TMapViewport& View, const TMapSources& S, double GratLineDist)
{
    const TCornerArray& c = S.CalibData->Corners;
    double latMin = c[0].Latit, latMax = c[0].Latit, lonMin = c[0].Longit, lonMax = c[0].Longit;
    for (const TCoords& k : c) {
        latMin = std::min(latMin, k.Latit), latMax = std::max(latMax, k.Latit);
        lonMin = std::min(lonMin, k.Longit), lonMax = std::max(lonMax, k.Longit);
    }
    for (const bool meridians : {true, false}) {
        const double vMin = meridians ? lonMin : latMin, vMax = meridians ? lonMax : latMax;
        const double oMin = meridians ? latMin : lonMin, oMax = meridians ? latMax : lonMax;
        const double range = vMax - vMin;
        if (!std::isfinite(range) || !std::isfinite(oMax - oMin) || range <= 0)
            continue;
        double f = 1.0;
        if (GratLineDist > 0) {
            f = 1.0 / GratLineDist;
        } else {
            for (double r = range; r < 1.0; r *= 10.0)
                f *= 10.0;
        }
        while (range * f > MaxLinesPerFamily)
            f /= 10.0;
        const double first = std::trunc(vMin * f);
        for (int k = 0;; ++k) {
            const double v = (first + k) / f;
            if (!(v < vMax))
                break;
            TMapPolyline poly(Sink, View, meridians ? gfLongitude : gfLatitude, v);
            for (int i = 0; i <= 100; ++i) {
                const double o = oMin + (oMax - oMin) * i / 100.0;
                TMapPixel p;
                const bool ok = meridians ? S.Fit->CalcPixelCoords(o, v, p.X, p.Y)
                                          : S.Fit->CalcPixelCoords(v, o, p.X, p.Y);
                poly.Add(ok, p);
            }
        }
    }
}

// One clipped straight grid line through two map positions.
void DrawClippedLine(TGridLineSink& Sink, TGridFamily Family, double Value, const TMapViewport& View, double x1,
                     double y1, double x2, double y2, double W, double H)
{
    Sink.Begin(Family, Value);
    TSLine line;
    if (!line.LineFrom2Points(x1, y1, x2, y2))
        return;
    double a = 0, b = 0, e = 0, f = 0;
    if (!line.ClipBox(0, 0, W, H, a, b, e, f))
        return;
    const TPoint p = CanvasPixel(View, {RoundSaturated(a), RoundSaturated(b)});
    const TPoint q = CanvasPixel(View, {RoundSaturated(e), RoundSaturated(f)});
    Sink.Point(true, p);
    Sink.Point(true, q);
}

void DrawUTMGrid(TGridLineSink& Sink, const TMapViewport& View, const TMapSources& S, std::int32_t UTMGridDist)
{
    const TCalibFit& fit = *S.Fit;
    const std::int32_t W = MapWidth(S), H = MapHeight(S);
    std::array<double, 4> east{}, north{};
    bool sameZone = true;
    for (std::size_t i = 0; i < 4; ++i) {
        int zone = 0;
        LatLongToUTM(S.CalibData->Corners[i].Latit, S.CalibData->Corners[i].Longit, fit.Ellipsoid(), zone, east[i],
                     north[i]);
        sameZone = sameZone && zone == fit.UTMZone();
    }
    if (!sameZone) {
        // Corner pixels in TCorners order, through the linear fit (northing and easting of a pixel).
        const std::array<TPoint, 4> px = {TPoint{0, 0}, TPoint{0, H}, TPoint{W, H}, TPoint{W, 0}};
        const auto& pl = fit.EquRectPLSP();
        for (std::size_t i = 0; i < 4; ++i) {
            north[i] = pl[0][0] + pl[0][1] * px[i].X + pl[0][2] * px[i].Y;
            east[i] = pl[1][0] + pl[1][1] * px[i].X + pl[1][2] * px[i].Y;
        }
    }
    const auto [eMin, eMax] = std::minmax_element(east.begin(), east.end());
    const auto [nMin, nMax] = std::minmax_element(north.begin(), north.end());
    const double eRange = *eMax - *eMin, nRange = *nMax - *nMin;
    if (!std::isfinite(eRange) || !std::isfinite(nRange))
        return;
    double d = UTMGridDist > 0 ? double(UTMGridDist) : std::max(1.0, Round125(std::max(eRange, nRange) / 10.0));
    while (std::max(eRange, nRange) / d > MaxLinesPerFamily)
        d *= 10.0;
    for (double k = std::ceil(*eMin / d); k * d <= *eMax; k += 1.0) {
        const double e = k * d;
        DrawClippedLine(Sink, gfEasting, e, View, fit.CalcUTMxFromEastingY(e, 0), 0, fit.CalcUTMxFromEastingY(e, H), H, W, H);
    }
    for (double k = std::ceil(*nMin / d); k * d <= *nMax; k += 1.0) {
        const double n = k * d;
        DrawClippedLine(Sink, gfNorthing, n, View, 0, fit.CalcUTMyFromNorthingX(n, 0), W, fit.CalcUTMyFromNorthingX(n, W), W, H);
    }
}

void MarkPoint(TCanvas& Canvas, const TMapViewport& View, TMapPixel MapPixel)
{
    const TPoint c = CanvasPixel(View, MapPixel);
    Canvas.MoveTo(c.X - 3, c.Y);
    Canvas.LineTo(c.X + 4, c.Y);
    Canvas.MoveTo(c.X, c.Y - 3);
    Canvas.LineTo(c.X, c.Y + 4);
}

void DrawCalibPoints(TCanvas& Canvas, const TMapViewport& View, const TCalibData& d, TColor Colour, TCalibModel Model)
{
    Canvas.Pen.Color = Colour;
    if (Model == cmParabolicIp) {
        for (int i = 0; i < ValidCalLines(d); ++i) {
            const TCalibLine& line = d.CalLines[static_cast<std::size_t>(i)];
            for (int k = 0; k < ValidLinePoints(line); ++k)
                MarkPoint(Canvas, View, TMapPixel(line.CalPoints[static_cast<std::size_t>(k)]));
        }
    } else {
        for (int i = 0; i < ValidCalQuads(d); ++i) {
            const TCalQuad& q = d.CalQuads[static_cast<std::size_t>(i)];
            MarkPoint(Canvas, View, {q.MapX, q.MapY});
        }
    }
}

}  // namespace

void TraceGridLines(TGridLineSink& Sink, const TMapViewport& View, const TMapSources& S, const TMapAppearance& Look)
{
    if (Look.ShowGraticule == sgNone || !S.Fit || !S.CalibData)
        return;
    const TCalibModel model = S.Fit->Model();
    const TShowGrat g = Look.ShowGraticule;
    if (model == cmUTM) {
        if (g == sgUTMGrid || g == sgPointsAndUTMGrid)
            DrawUTMGrid(Sink, View, S, Look.UTMGridDist);
    } else if (model != cmUndefined && (g == sgLines || g == sgPointsAndLines)) {
        if (model == cmParabolicIp)
            DrawParabolas(Sink, View, S);
        else
            DrawMeridiansAndParallels(Sink, View, S, Look.GratLineDist);
    }
}

void DrawGraticuleAndPoints(TCanvas& Canvas, const TMapViewport& View, const TMapSources& S,
                            const TMapAppearance& Look)
{
    if (Look.ShowGraticule == sgNone || !S.Fit || !S.CalibData)
        return;
    const TCalibModel model = S.Fit->Model();
    if (model == cmUndefined)
        return;
    const TShowGrat g = Look.ShowGraticule;
    Canvas.Pen.Color = Look.ColorGraticule;
    TCanvasLineSink lines(Canvas);
    TraceGridLines(lines, View, S, Look);
    if (g == sgPoints || g == sgPointsAndLines || g == sgPointsAndUTMGrid)
        DrawCalibPoints(Canvas, View, *S.CalibData, Look.ColorCalibPoints, model);
}

}  // namespace qv::render_detail
