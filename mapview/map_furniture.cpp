// Map furniture: grid labels at the edges, the scale bar, the north arrow.
//
// Choices:
// - Grid labels follow the lines exactly as the graticule step traces them (the same sink), so a label
//   never names a line that is not drawn, nor sits off its line. Every crossing of a line with an edge of
//   the map's part of the view is a candidate; candidates are taken in drawing order and a label that
//   would touch one already placed (2 pixels apart at least) is dropped rather than moved off its line.
// - The scale bar is measured along the row through the view's centre: on a map whose scale differs
//   across and down (an equirect map away from the equator) a horizontal bar is only right horizontally.
//   Over a large area it is right at the centre only, as on any map.
// - North is along the meridian through the centre (the direction in which latitude grows while the
//   longitude stays), which is not the direction in which latitude grows fastest on a skewed map.
#include <qvgeo/mapview/map_furniture.h>

#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/mapview/map_render_internal.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <tuple>

namespace qv {

namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Rad = std::numbers::pi / 180.0;

double Clamped(double Scale) { return std::isfinite(Scale) ? std::clamp(Scale, 0.25, 8.0) : 1.0; }
std::int32_t Px(double v) { return static_cast<std::int32_t>(std::lround(v)); }

// The fewest decimals (up to Max) that write V exactly to a millionth of its unit.
int NeededDecimals(double V, int Max)
{
    double p = 1.0;
    for (int d = 0; d < Max; ++d, p *= 10.0) {
        const double s = V * p;
        if (std::fabs(s - std::nearbyint(s)) < 1e-6 * p)
            return d;
    }
    return Max;
}

void SetFont(TCanvas& C, const TFurnitureOptions& F)
{
    C.Font = TFont{};
    C.Font.Size = std::max(1, Px(F.FontSize * Clamped(F.Scale)));
    C.Brush.Style = bsClear;
}

// Text with its top-left corner at (X, Y), ringed by the halo colour.
void HaloText(TCanvas& C, std::int32_t X, std::int32_t Y, const std::string& Text, TColor Colour, TColor Halo,
              std::int32_t Ring)
{
    C.Brush.Style = bsClear;
    C.Font.Color = Halo;
    for (std::int32_t dy = -Ring; dy <= Ring; ++dy)
        for (std::int32_t dx = -Ring; dx <= Ring; ++dx)
            if (dx != 0 || dy != 0)
                C.TextOut(X + dx, Y + dy, Text);
    C.Font.Color = Colour;
    C.TextOut(X, Y, Text);
}

bool Touch(const TRect& A, const TRect& B, std::int32_t Gap)
{
    return A.Left < B.Right + Gap && B.Left < A.Right + Gap && A.Top < B.Bottom + Gap && B.Top < A.Bottom + Gap;
}

// The crossings of each traced line with the four edges of Area (control pixels). A point exactly on an
// edge counts as outside, so a line clipped to the map's border (which begins on it) crosses there once.
// A run of points that stops just short of an edge (the parabolas are traced over the visible pixels
// only, up to the last one, a map pixel apart) ends on it: within Near pixels, it is taken to cross there.
class TCrossingSink final : public render_detail::TGridLineSink {
public:
    struct TCrossing {
        TMapEdge Edge;
        double X, Y;
        render_detail::TGridFamily Family;
        double Value;
    };
    TCrossingSink(double L, double T, double R, double B, double Near) : FL(L), FT(T), FR(R), FB(B), FNear(Near) {}
    void Begin(render_detail::TGridFamily Family, double Value) override
    {
        EndRun();
        FFamily = Family, FValue = Value;
    }
    void Point(bool Valid, TPoint P) override
    {
        if (!Valid) {
            EndRun();
            return;
        }
        if (FRun == 0)
            FFirst = P;
        else if (std::isfinite(FValue))
            Segment(FPrev, P);
        FPrev = P, ++FRun;
    }
    // Ends the last line; call once the tracing is done.
    void Finish() { EndRun(); }
    std::vector<TCrossing> Crossings;

private:
    double FL, FT, FR, FB, FNear;
    render_detail::TGridFamily FFamily = render_detail::gfLatitude;
    double FValue = 0.0;
    TPoint FPrev, FFirst;
    int FRun = 0;  // points in the current run

    void EndRun()
    {
        if (FRun > 1 && std::isfinite(FValue)) {
            NearEdge(FFirst);
            NearEdge(FPrev);
        }
        FRun = 0;
    }
    void NearEdge(TPoint P)
    {
        const double x = P.X, y = P.Y;
        if (!(x > FL && x < FR && y > FT && y < FB))
            return;  // outside, or on an edge, where a segment crossed already
        if (y - FT < FNear)
            Crossings.push_back({meTop, x, FT, FFamily, FValue});
        if (FB - y < FNear)
            Crossings.push_back({meBottom, x, FB, FFamily, FValue});
        if (x - FL < FNear)
            Crossings.push_back({meLeft, FL, y, FFamily, FValue});
        if (FR - x < FNear)
            Crossings.push_back({meRight, FR, y, FFamily, FValue});
    }
    void Segment(TPoint A, TPoint B)
    {
        const double ax = A.X, ay = A.Y, bx = B.X, by = B.Y;
        // Top and left: outside at or below the edge's coordinate; bottom and right: at or above it.
        const auto rows = {std::tuple{meTop, FT, true}, std::tuple{meBottom, FB, false}};
        for (const auto& [edge, e, low] : rows) {
            if (((low ? ay <= e : ay >= e)) == ((low ? by <= e : by >= e)))
                continue;
            const double x = ax + (e - ay) * (bx - ax) / (by - ay);
            if (x >= FL && x <= FR)
                Crossings.push_back({edge, x, e, FFamily, FValue});
        }
        const auto cols = {std::tuple{meLeft, FL, true}, std::tuple{meRight, FR, false}};
        for (const auto& [edge, e, low] : cols) {
            if (((low ? ax <= e : ax >= e)) == ((low ? bx <= e : bx >= e)))
                continue;
            const double y = ay + (e - ax) * (by - ay) / (bx - ax);
            if (y >= FT && y <= FB)
                Crossings.push_back({edge, e, y, FFamily, FValue});
        }
    }
};

TGridValue ValueKind(render_detail::TGridFamily F)
{
    switch (F) {
    case render_detail::gfLatitude: return gvLatitude;
    case render_detail::gfLongitude: return gvLongitude;
    case render_detail::gfNorthing: return gvNorthing;
    case render_detail::gfEasting: return gvEasting;
    }
    return gvLatitude;
}

// The box of one corner's piece W x H, Stack pixels further inwards (downwards at the top, upwards at the
// bottom) for a second piece in the same corner.
TRect CornerBox(TFurnitureCorner Corner, std::int32_t ViewW, std::int32_t ViewH, std::int32_t W, std::int32_t H,
                std::int32_t Margin, std::int32_t Stack)
{
    const bool right = Corner == fcTopRight || Corner == fcBottomRight;
    const bool bottom = Corner == fcBottomLeft || Corner == fcBottomRight;
    const std::int32_t x = right ? ViewW - Margin - W : Margin;
    const std::int32_t y = bottom ? ViewH - Margin - H - Stack : Margin + Stack;
    return {x, y, x + W, y + H};
}

}  // namespace

std::string GridValueText(TGridValue Kind, double Value, TDegreeFormat Format)
{
    if (!std::isfinite(Value))
        return "";
    if (Kind == gvNorthing || Kind == gvEasting) {
        const double km = Value / 1000.0;
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.*f", NeededDecimals(std::fabs(km), 3), km);
        return buf;
    }
    double v = Value;
    if (Kind == gvLongitude) {
        v = std::remainder(v, 360.0);  // -180..180
        if (v == -180.0)
            v = 180.0;
    }
    const double a = std::fabs(v);
    const double unit = Format == dfDegMin ? 1.0 / 60.0 : Format == dfDegMinSec ? 1.0 / 3600.0 : 1.0;
    std::string text = DegreeToStr(a, Format, NeededDecimals(a / unit, 6));
    const bool zero = a < 1e-9, antimeridian = Kind == gvLongitude && std::fabs(a - 180.0) < 1e-9;
    if (!zero && !antimeridian)
        text += Kind == gvLatitude ? (v > 0 ? " N" : " S") : (v > 0 ? " E" : " W");
    return text;
}

double EllipsoidDistance(double Lat1, double Long1, double Lat2, double Long2, double a, double b)
{
    const double f = (a - b) / a;
    const double L = std::remainder(Long2 - Long1, 360.0) * Rad;
    const double U1 = std::atan((1 - f) * std::tan(Lat1 * Rad)), U2 = std::atan((1 - f) * std::tan(Lat2 * Rad));
    const double sinU1 = std::sin(U1), cosU1 = std::cos(U1), sinU2 = std::sin(U2), cosU2 = std::cos(U2);
    double lambda = L, sinSigma = 0, cosSigma = 0, sigma = 0, cos2Alpha = 0, cos2SigmaM = 0;
    bool converged = false;
    for (int i = 0; i < 200 && !converged; ++i) {
        const double sinL = std::sin(lambda), cosL = std::cos(lambda);
        sinSigma = std::hypot(cosU2 * sinL, cosU1 * sinU2 - sinU1 * cosU2 * cosL);
        if (sinSigma == 0)
            return 0.0;  // the same point
        cosSigma = sinU1 * sinU2 + cosU1 * cosU2 * cosL;
        sigma = std::atan2(sinSigma, cosSigma);
        const double sinAlpha = cosU1 * cosU2 * sinL / sinSigma;
        cos2Alpha = 1 - sinAlpha * sinAlpha;
        cos2SigmaM = cos2Alpha != 0 ? cosSigma - 2 * sinU1 * sinU2 / cos2Alpha : 0.0;  // 0 on the equator
        const double C = f / 16 * cos2Alpha * (4 + f * (4 - 3 * cos2Alpha));
        const double previous = lambda;
        lambda = L + (1 - C) * f * sinAlpha *
                         (sigma + C * sinSigma * (cos2SigmaM + C * cosSigma * (-1 + 2 * cos2SigmaM * cos2SigmaM)));
        converged = std::fabs(lambda - previous) < 1e-12;
    }
    if (!converged)
        return NaN;
    const double u2 = cos2Alpha * (a * a - b * b) / (b * b);
    const double A = 1 + u2 / 16384 * (4096 + u2 * (-768 + u2 * (320 - 175 * u2)));
    const double B = u2 / 1024 * (256 + u2 * (-128 + u2 * (74 - 47 * u2)));
    const double c2 = cos2SigmaM * cos2SigmaM;
    const double dSigma =
        B * sinSigma *
        (cos2SigmaM + B / 4 * (cosSigma * (-1 + 2 * c2) - B / 6 * cos2SigmaM * (-3 + 4 * sinSigma * sinSigma) * (-3 + 4 * c2)));
    return b * A * (sigma - dSigma);
}

double MetresPerControlPixel(const TMapViewport& View, const TMapSources& Sources)
{
    const TCalibFit* fit = Sources.Fit;
    const double mag = View.Magnify();
    if (!fit || fit->Model() == cmUndefined || !(mag > 0) || !std::isfinite(mag))
        return NaN;
    // Whole map pixels on either side of the centre, about 50 control pixels each way: ends of integer map
    // pixels make the control length exact.
    const double half = std::max(1.0, std::nearbyint(50.0 / mag));
    const double cx = View.MapXAt(View.ControlSize().cx / 2.0), cy = View.MapYAt(View.ControlSize().cy / 2.0);
    const double x0 = std::nearbyint(cx - half), y = std::nearbyint(cy);
    if (!(std::fabs(x0) < 1e9 && std::fabs(x0 + 2 * half) < 1e9 && std::fabs(y) < 1e9))
        return NaN;  // beyond any map, and beyond the pixel type
    TCoords p, q;
    if (!fit->CalcPosition({Px(x0), Px(y)}, p) || !fit->CalcPosition({Px(x0 + 2 * half), Px(y)}, q))
        return NaN;
    const TEllipsoidAxes axes = GeoEllipsoidData[fit->Ellipsoid()];
    const double d = EllipsoidDistance(p.Latit, p.Longit, q.Latit, q.Longit, axes.a, axes.b);
    const double perPixel = d / (2 * half * mag);
    return std::isfinite(perPixel) && perPixel > 0 ? perPixel : NaN;
}

TScaleBar MeasureScaleBar(const TMapViewport& View, const TMapSources& Sources, double MaxPixels)
{
    TScaleBar bar;
    const double mpp = MetresPerControlPixel(View, Sources);
    if (!std::isfinite(mpp) || !(MaxPixels >= 1))
        return bar;
    const double most = mpp * MaxPixels;
    double metres = std::pow(10.0, std::floor(std::log10(most)));
    for (const double step : {5.0, 2.0})
        if (metres * step <= most * (1 + 1e-12)) {
            metres *= step;
            break;
        }
    bar.Metres = metres;
    bar.Pixels = metres / mpp;
    char buf[64];
    if (metres >= 1000)
        std::snprintf(buf, sizeof buf, "%g km", metres / 1000);
    else
        std::snprintf(buf, sizeof buf, "%g m", metres);
    bar.Text = buf;
    bar.Valid = bar.Pixels >= 1;
    return bar;
}

bool NorthDirection(const TMapViewport& View, const TMapSources& Sources, double& DX, double& DY)
{
    const TCalibFit* fit = Sources.Fit;
    if (!fit || fit->Model() == cmUndefined)
        return false;
    const double cx = std::nearbyint(View.MapXAt(View.ControlSize().cx / 2.0));
    const double cy = std::nearbyint(View.MapYAt(View.ControlSize().cy / 2.0));
    if (!(std::fabs(cx) < 1e9 && std::fabs(cy) < 1e9))
        return false;
    TCoords c;
    if (!fit->CalcPosition({Px(cx), Px(cy)}, c))
        return false;
    // A step of latitude about 30 control pixels long, so that the points are well apart but near.
    const double mpp = MetresPerControlPixel(View, Sources);
    double step = std::isfinite(mpp) ? 30.0 * mpp / 111000.0 : 1e-3;
    step = std::clamp(step, 1e-7, 1.0);
    const double north = std::min(c.Latit + step, 90.0), south = std::max(c.Latit - step, -90.0);
    double xn = 0, yn = 0, xs = 0, ys = 0;
    if (!fit->CalcPixelPosition(north, c.Longit, xn, yn) || !fit->CalcPixelPosition(south, c.Longit, xs, ys))
        return false;
    const double len = std::hypot(xn - xs, yn - ys);
    if (!(len > 0) || !std::isfinite(len))
        return false;
    DX = (xn - xs) / len, DY = (yn - ys) / len;
    return true;
}

std::vector<TEdgeLabel> PlaceGridLabels(TCanvas& Canvas, const TMapViewport& View, const TMapSources& Sources,
                                        const TMapAppearance& Look, const std::vector<TRect>& Reserved)
{
    std::vector<TEdgeLabel> placed;
    const TFurnitureOptions& F = Look.Furniture;
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    const double mag = View.Magnify();
    if (W <= 0 || H <= 0 || !(mag > 0))
        return placed;
    // The map's part of the view.
    const TSize mapSize = MapPictureSize(Sources);
    const double L = std::max(0.0, -View.TopLeft().X * mag), T = std::max(0.0, -View.TopLeft().Y * mag);
    const double R = std::min<double>(W, (mapSize.cx - View.TopLeft().X) * mag);
    const double B = std::min<double>(H, (mapSize.cy - View.TopLeft().Y) * mag);
    if (!(R > L && B > T))
        return placed;
    // A traced point every map pixel, or every control pixel when reduced: a run's end may stop short of
    // the edge by that much.
    TCrossingSink sink(L, T, R, B, std::max(1.0, mag) + 0.5);
    render_detail::TraceGridLines(sink, View, Sources, Look);
    sink.Finish();
    SetFont(Canvas, F);
    const std::int32_t margin = std::max(3, Px(3 * Clamped(F.Scale)));
    // Whole pixels inside the area; an edge a rounding error off a whole pixel (540 x 0.7) is on it.
    const std::int32_t l = Px(std::ceil(L - 1e-6)) + margin, t = Px(std::ceil(T - 1e-6)) + margin;
    const std::int32_t r = Px(std::floor(R + 1e-6)) - margin, b = Px(std::floor(B + 1e-6)) - margin;
    const std::int32_t beside = std::max(2, Px(2 * Clamped(F.Scale)));
    for (const TCrossingSink::TCrossing& c : sink.Crossings) {
        TEdgeLabel label;
        label.Edge = c.Edge, label.X = c.X, label.Y = c.Y, label.Kind = ValueKind(c.Family), label.Value = c.Value;
        label.Text = GridValueText(label.Kind, c.Value, F.DegreeFormat);
        const TSize ext = Canvas.TextExtent(label.Text);
        if (ext.cx > r - l || ext.cy > b - t)
            continue;
        std::int32_t x = 0, y = 0;
        // Beside the line rather than over it: right of a line leaving at the top or bottom, above a line
        // leaving at the left or right, so that the line stays visible up to the edge.
        switch (c.Edge) {
        case meTop: x = Px(std::floor(c.X)) + beside, y = t; break;
        case meBottom: x = Px(std::floor(c.X)) + beside, y = b - ext.cy; break;
        case meLeft: x = l, y = Px(std::floor(c.Y)) - beside - ext.cy + 1; break;
        case meRight: x = r - ext.cx, y = Px(std::floor(c.Y)) - beside - ext.cy + 1; break;
        }
        x = std::clamp(x, l, r - ext.cx), y = std::clamp(y, t, b - ext.cy);
        label.Box = {x, y, x + ext.cx, y + ext.cy};
        const auto touches = [&](const TRect& o) { return Touch(label.Box, o, 2); };
        if (std::any_of(Reserved.begin(), Reserved.end(), touches) ||
            std::any_of(placed.begin(), placed.end(), [&](const TEdgeLabel& p) { return touches(p.Box); }))
            continue;
        placed.push_back(std::move(label));
    }
    return placed;
}

void DrawMapFurniture(TCanvas& Canvas, const TMapViewport& View, const TMapSources& Sources,
                      const TMapAppearance& Look)
{
    const TFurnitureOptions& F = Look.Furniture;
    if (!F.GridLabels && !F.ScaleBar && !F.NorthArrow)
        return;
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    if (W <= 0 || H <= 0)
        return;
    const double s = Clamped(F.Scale);
    const std::int32_t ring = std::max(1, Px(s)), margin = Px(8 * s);
    SetFont(Canvas, F);
    const std::int32_t th = Canvas.TextHeight("N");
    std::vector<TRect> reserved;
    std::array<std::int32_t, 4> stack{};  // pixels taken in each corner
    const TPen pen0 = Canvas.Pen;
    const TBrush brush0 = Canvas.Brush;

    double dx = 0, dy = 0;
    if (F.NorthArrow && NorthDirection(View, Sources, dx, dy)) {
        const std::int32_t R = Px(14 * s), side = 2 * (R + th + 2);
        const TRect box = CornerBox(F.NorthArrowCorner, W, H, side, side, margin, stack[F.NorthArrowCorner]);
        stack[F.NorthArrowCorner] += side + Px(4 * s);
        reserved.push_back(box);
        const double cx = (box.Left + box.Right) / 2.0, cy = (box.Top + box.Bottom) / 2.0;
        const double px = -dy, py = dx, w = 0.35 * R;
        auto at = [&](double along, double across) {
            return TPoint{Px(cx + dx * along + px * across), Px(cy + dy * along + py * across)};
        };
        const std::array<TPoint, 3> head = {at(R, 0), at(0, w), at(0, -w)};
        const std::array<TPoint, 3> tail = {at(-R, 0), at(0, w), at(0, -w)};
        const std::array<TPoint, 4> outline = {at(R, 0), at(0, w), at(-R, 0), at(0, -w)};
        Canvas.Pen = {F.HaloColor, 1 + 2 * ring, psSolid, pmCopy};
        Canvas.Brush = {F.HaloColor, bsSolid};
        Canvas.Polygon(outline);
        Canvas.Pen = {F.Color, 1, psSolid, pmCopy};
        Canvas.Brush = {F.HaloColor, bsSolid};
        Canvas.Polygon(tail);
        Canvas.Brush = {F.Color, bsSolid};
        Canvas.Polygon(head);
        const std::int32_t tw = Canvas.TextWidth("N");
        const TPoint n = at(R + th / 2.0 + 2, 0);
        HaloText(Canvas, n.X - tw / 2, n.Y - th / 2, "N", F.Color, F.HaloColor, ring);
    }
    if (F.ScaleBar) {
        const TScaleBar bar = MeasureScaleBar(View, Sources, std::min(150.0 * s, W / 3.0));
        if (bar.Valid) {
            const std::int32_t P = Px(bar.Pixels), bh = std::max(3, Px(5 * s));
            const std::int32_t tw = Canvas.TextWidth(bar.Text), gap = Px(2 * s);
            const std::int32_t bw = std::max(P + 1, tw) + 2 * ring, bhTotal = th + gap + bh + 2 * ring;
            const TRect box = CornerBox(F.ScaleBarCorner, W, H, bw, bhTotal, margin, stack[F.ScaleBarCorner]);
            stack[F.ScaleBarCorner] += bhTotal + Px(4 * s);
            reserved.push_back(box);
            const std::int32_t x0 = box.Left + ring + (bw - 2 * ring - (P + 1)) / 2;
            const std::int32_t y0 = box.Bottom - ring - bh;
            // The bar's outline covers columns x0 .. x0 + P: its ends are P pixels apart.
            Canvas.Pen = {F.HaloColor, 1, psSolid, pmCopy};
            Canvas.Brush = {F.HaloColor, bsSolid};
            Canvas.FillRect({x0 - ring, y0 - ring, x0 + P + 1 + ring, y0 + bh + ring});
            Canvas.Pen = {F.Color, 1, psSolid, pmCopy};
            Canvas.Brush = {F.HaloColor, bsSolid};
            Canvas.Rectangle(x0, y0, x0 + P + 1, y0 + bh);
            Canvas.Brush = {F.Color, bsSolid};
            Canvas.FillRect({x0, y0, x0 + P / 2, y0 + bh});
            HaloText(Canvas, x0 + (P + 1 - tw) / 2, y0 - gap - th, bar.Text, F.Color, F.HaloColor, ring);
        }
    }
    if (F.GridLabels) {
        const std::vector<TEdgeLabel> labels = PlaceGridLabels(Canvas, View, Sources, Look, reserved);
        for (const TEdgeLabel& l : labels)
            HaloText(Canvas, l.Box.Left, l.Box.Top, l.Text, Look.ColorGraticule, F.HaloColor, ring);
    }
    Canvas.Pen = pen0;
    Canvas.Brush = brush0;
}

}  // namespace qv
