// TCanvas: the pixel rules of lines, rectangles, ellipses and polygons, and text through Qt.
//
// Lines. A line from A to B with N = max(|dx|, |dy|) steps sets, for step n = 0 .. N - 1, the pixel
// whose major coordinate is A's plus n and whose minor coordinate is A's plus the exact offset
// n * dminor / N rounded to nearest, ties away from A (Bresenham's pixels, computed from a closed form so
// that clipping a long line can start anywhere along it and still give the same pixels). Patterns, in
// pixels along the path: dotted 1 on 1 off, dashed 6 on 3 off, dash-dot 6-3-1-3, dash-dot-dot
// 6-3-1-3-1-3; the phase runs on across consecutive LineTo calls and restarts at MoveTo.
//
// Filled areas. A pixel belongs to an ellipse or polygon when its centre (x + 0.5, y + 0.5) lies inside:
// - Ellipse(L, T, R, B): the ellipse inscribed in the box's outer edges, centre ((L + R) / 2, (T + B) / 2),
//   half axes (R - L) / 2 and (B - T) / 2; a centre on the curve is inside. The test is done in exact
//   integers on doubled coordinates, so the figure is symmetric about both of the box's centre lines. Its
//   outline is the figure's pixels that have a 4-neighbour outside it (always solid, in the pen colour);
//   the rest is the brush.
// - Polygon: vertex (x, y) is the centre of pixel (x, y); a pixel row is cut by the edges with the
//   half-open rule (an edge covers rows min(y0, y1) <= y < max(y0, y1)), the crossings are paired
//   (even-odd), and the pixels from the left crossing up to but excluding the right one are inside. With a
//   clear pen, a polygon through the corners of a rectangle fills exactly the rectangle's pixels (right and
//   bottom edges excluded). The outline is then drawn in the pen over the fill.
// Every pixel of a figure is touched once by the brush and at most once by the pen, so in exclusive-or
// mode drawing a figure twice restores the image. FillRect always copies; the other figures use the pen's
// mode for both pen and brush.
#include <qvgeo/platform/canvas.h>
#include <qvgeo/platform/colors.h>

#include <QFont>
#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>
#include <QString>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

namespace {

std::string_view PenPattern(TPenStyle Style)
{
    switch (Style) {
    case psDot: return "10";
    case psDash: return "111111000";
    case psDashDot: return "1111110001000";
    case psDashDotDot: return "11111100010001000";
    default: return "1";
    }
}

inline void PutPixel(std::uint32_t& Pixel, QRgb Rgb, TPenMode Mode)
{
    switch (Mode) {
    case pmCopy: Pixel = Rgb; break;
    case pmXor: Pixel ^= Rgb & 0x00ffffffu; break;
    case pmNot: Pixel ^= 0x00ffffffu; break;
    }
}

QString ToQString(std::string_view Text) { return QString::fromUtf8(Text.data(), static_cast<qsizetype>(Text.size())); }

__extension__ typedef unsigned __int128 u128;

std::uint64_t ISqrt(std::uint64_t V)
{
    auto r = static_cast<std::uint64_t>(std::sqrt(static_cast<long double>(V)));
    while (r > 0 && r * r > V)
        --r;
    while ((r + 1) * (r + 1) <= V)
        ++r;
    return r;
}

}  // namespace

QFont MakeQFont(const TFont& Font)
{
    QFont f(QString::fromStdString(Font.Name));
    f.setPixelSize(std::max(1, static_cast<int>(std::lround(std::abs(Font.Size) * 96.0 / 72.0))));
    f.setBold(Font.Style.Contains(fsBold));
    f.setItalic(Font.Style.Contains(fsItalic));
    f.setUnderline(Font.Style.Contains(fsUnderline));
    f.setStrikeOut(Font.Style.Contains(fsStrikeOut));
    f.setStyleStrategy(QFont::NoAntialias);
    return f;
}

TCanvas::TCanvas(TBitmap& Target) : FTarget(Target) {}
TCanvas::~TCanvas() = default;

void TCanvas::MoveTo(std::int32_t X, std::int32_t Y)
{
    FPenPos = {X, Y};
    FPatternPos = 0;
}

void TCanvas::LineTo(std::int32_t X, std::int32_t Y)
{
    const TPoint a = FPenPos, b{X, Y};
    if (Pen.Width > 1 && Pen.Style != psClear) {
        const TPoint pts[2] = {a, b};
        WidePath(pts, false);
    } else {
        DrawLine(a, b);
    }
    FPenPos = b;
}

void TCanvas::Polyline(std::span<const TPoint> Points)
{
    if (Points.empty())
        return;
    MoveTo(Points[0].X, Points[0].Y);
    if (Pen.Width > 1 && Pen.Style != psClear) {
        WidePath(Points, false);
        FPenPos = Points.back();
        return;
    }
    for (std::size_t i = 1; i < Points.size(); ++i)
        LineTo(Points[i].X, Points[i].Y);
}

void TCanvas::DrawLine(TPoint A, TPoint B)
{
    const std::int64_t dx = std::int64_t{B.X} - A.X, dy = std::int64_t{B.Y} - A.Y;
    const std::int64_t n = std::max(std::abs(dx), std::abs(dy));
    const std::uint32_t phase = FPatternPos;
    FPatternPos += static_cast<std::uint32_t>(n);
    if (n == 0 || Pen.Style == psClear)
        return;
    const bool xMajor = std::abs(dx) >= std::abs(dy);
    const std::int64_t a0 = xMajor ? A.X : A.Y, b0 = xMajor ? A.Y : A.X;
    const std::int64_t sa = (xMajor ? dx : dy) < 0 ? -1 : 1, sb = (xMajor ? dy : dx) < 0 ? -1 : 1;
    const std::int64_t dm = std::abs(xMajor ? dy : dx);
    const std::int64_t majorSize = xMajor ? FTarget.Width() : FTarget.Height();
    const std::int64_t minorSize = xMajor ? FTarget.Height() : FTarget.Width();
    // Steps whose major coordinate lies inside the bitmap.
    std::int64_t first = 0, last = n;  // [first, last)
    if (sa > 0) {
        first = std::max<std::int64_t>(first, -a0);
        last = std::min<std::int64_t>(last, majorSize - a0);
    } else {
        first = std::max<std::int64_t>(first, a0 - majorSize + 1);
        last = std::min<std::int64_t>(last, a0 + 1);
    }
    if (first >= last)
        return;
    // Minor offset at step k: floor((2 k dm + n) / 2n), kept as quotient q and remainder r.
    std::int64_t num = 2 * first * dm + n;
    std::int64_t q = num / (2 * n), r = num % (2 * n);
    const std::string_view pattern = PenPattern(Pen.Style);
    const QRgb rgb = ToQRgb(Pen.Color);
    const TPenMode mode = Pen.Mode;
    for (std::int64_t k = first; k < last; ++k) {
        const std::int64_t ma = a0 + sa * k, mb = b0 + sb * q;
        if (mb >= 0 && mb < minorSize && pattern[(phase + k) % pattern.size()] == '1') {
            const auto x = static_cast<std::int32_t>(xMajor ? ma : mb);
            const auto y = static_cast<std::int32_t>(xMajor ? mb : ma);
            PutPixel(FTarget.ScanLine(y)[x], rgb, mode);
        }
        r += 2 * dm;
        if (r >= 2 * n) {
            r -= 2 * n;
            ++q;
        }
    }
}

void TCanvas::DrawOutline(std::span<const TPoint> Points)
{
    if (Points.empty() || Pen.Style == psClear)
        return;
    if (Pen.Width > 1) {
        WidePath(Points, true);
        return;
    }
    FPatternPos = 0;
    for (std::size_t i = 0; i < Points.size(); ++i)
        DrawLine(Points[i], Points[(i + 1) % Points.size()]);
    // A closed path of one point (or only coincident points) is still that pixel.
    if (std::all_of(Points.begin(), Points.end(), [&](TPoint p) { return p == Points[0]; })) {
        if (Points[0].X >= 0 && Points[0].Y >= 0 && Points[0].X < FTarget.Width() && Points[0].Y < FTarget.Height())
            PutPixel(FTarget.ScanLine(Points[0].Y)[Points[0].X], ToQRgb(Pen.Color), Pen.Mode);
    }
}

void TCanvas::WidePath(std::span<const TPoint> Points, bool Closed)
{
    if (FTarget.Image().isNull())
        return;
    QPainter p(&FTarget.Image());
    p.setRenderHint(QPainter::Antialiasing, false);
    QPen pen(ToQColor(Pen.Color), Pen.Width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    switch (Pen.Style) {
    case psDash: pen.setStyle(Qt::DashLine); break;
    case psDot: pen.setStyle(Qt::DotLine); break;
    case psDashDot: pen.setStyle(Qt::DashDotLine); break;
    case psDashDotDot: pen.setStyle(Qt::DashDotDotLine); break;
    default: break;
    }
    if (Pen.Mode == pmXor) {
        p.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
    } else if (Pen.Mode == pmNot) {
        p.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
        pen.setColor(QColor(0xff, 0xff, 0xff));
    }
    p.setPen(pen);
    QPolygon poly;
    for (const TPoint& pt : Points)
        poly << QPoint(pt.X, pt.Y);
    if (Closed)
        p.drawPolygon(poly);
    else
        p.drawPolyline(poly);
}

void TCanvas::FillSpan(std::int32_t Y, std::int32_t X0, std::int32_t X1, TColor Color, TPenMode Mode)
{
    if (Y < 0 || Y >= FTarget.Height())
        return;
    X0 = std::max(X0, 0);
    X1 = std::min(X1, FTarget.Width());
    if (X0 >= X1)
        return;
    std::uint32_t* row = FTarget.ScanLine(Y);
    const QRgb rgb = ToQRgb(Color);
    if (Mode == pmCopy) {
        std::fill(row + X0, row + X1, rgb);
        return;
    }
    for (std::int32_t x = X0; x < X1; ++x)
        PutPixel(row[x], rgb, Mode);
}

void TCanvas::FillRect(TRect R)
{
    if (Brush.Style == bsClear)
        return;
    if (R.Right < R.Left) std::swap(R.Left, R.Right);
    if (R.Bottom < R.Top) std::swap(R.Top, R.Bottom);
    for (std::int32_t y = std::max(R.Top, 0); y < std::min(R.Bottom, FTarget.Height()); ++y)
        FillSpan(y, R.Left, R.Right, Brush.Color, pmCopy);
}

void TCanvas::Rectangle(std::int32_t Left, std::int32_t Top, std::int32_t Right, std::int32_t Bottom)
{
    if (Right < Left) std::swap(Left, Right);
    if (Bottom < Top) std::swap(Top, Bottom);
    if (Right == Left || Bottom == Top)
        return;
    const bool pen = Pen.Style != psClear;
    const std::int32_t inset = pen ? 1 : 0;
    if (Brush.Style == bsSolid) {
        for (std::int32_t y = std::max(Top + inset, 0); y < std::min(Bottom - inset, FTarget.Height()); ++y)
            FillSpan(y, Left + inset, Right - inset, Brush.Color, Pen.Mode);
    }
    if (!pen)
        return;
    if (Right - Left == 1 || Bottom - Top == 1) {
        // A one-pixel-wide box is a single run: the closed outline would go over it twice.
        if (Pen.Width > 1) {
            const TPoint pts[2] = {{Left, Top}, {Right - 1, Bottom - 1}};
            WidePath(pts, false);
        } else {
            FPatternPos = 0;
            DrawLine({Left, Top}, {Right - 1 + (Right - Left == 1 ? 0 : 1), Bottom - 1 + (Bottom - Top == 1 ? 0 : 1)});
            if (Right - Left == 1 && Bottom - Top == 1)
                FillSpan(Top, Left, Right, Pen.Color, Pen.Mode);
        }
        return;
    }
    const TPoint pts[4] = {{Left, Top}, {Right - 1, Top}, {Right - 1, Bottom - 1}, {Left, Bottom - 1}};
    DrawOutline(pts);
}

void TCanvas::Ellipse(std::int32_t Left, std::int32_t Top, std::int32_t Right, std::int32_t Bottom)
{
    if (Right < Left) std::swap(Left, Right);
    if (Bottom < Top) std::swap(Top, Bottom);
    if (Right == Left || Bottom == Top)
        return;
    const std::int64_t a = std::int64_t{Right} - Left, b = std::int64_t{Bottom} - Top;  // doubled half axes
    const std::int64_t sumX = std::int64_t{Left} + Right, sumY = std::int64_t{Top} + Bottom;
    // Span [l, r] of row y (empty when l > r): 2x + 1 - sumX = X2 with X2^2 b^2 + Y2^2 a^2 <= a^2 b^2.
    auto span = [&](std::int64_t y) -> std::pair<std::int64_t, std::int64_t> {
        if (y < Top || y >= Bottom)
            return {1, 0};
        const std::int64_t y2 = 2 * y + 1 - sumY;
        if (y2 * y2 > b * b)
            return {1, 0};
        const u128 t = static_cast<u128>(a * a) * static_cast<u128>(b * b - y2 * y2);
        const auto m = static_cast<std::int64_t>(ISqrt(static_cast<std::uint64_t>(t / static_cast<u128>(b * b))));
        // x from ceil((sumX - 1 - m) / 2) to floor((sumX - 1 + m) / 2).
        const std::int64_t lo = sumX - 1 - m, hi = sumX - 1 + m;
        const std::int64_t l = (lo >= 0) ? (lo + 1) / 2 : -((-lo) / 2);
        const std::int64_t r = (hi >= 0) ? hi / 2 : -((-hi + 1) / 2);
        return {l, r};
    };
    const bool pen = Pen.Style != psClear;
    const std::int64_t y0 = std::max<std::int64_t>(Top, 0), y1 = std::min<std::int64_t>(Bottom, FTarget.Height());
    if (pen && Pen.Width > 1) {
        if (Brush.Style == bsSolid) {
            for (std::int64_t y = y0; y < y1; ++y) {
                const auto [l, r] = span(y);
                if (l <= r)
                    FillSpan(static_cast<std::int32_t>(y), static_cast<std::int32_t>(std::max<std::int64_t>(l, -1)),
                             static_cast<std::int32_t>(std::min<std::int64_t>(r + 1, FTarget.Width())), Brush.Color, Pen.Mode);
            }
        }
        QPainter p(&FTarget.Image());
        p.setRenderHint(QPainter::Antialiasing, false);
        p.setPen(QPen(ToQColor(Pen.Color), Pen.Width));
        p.drawEllipse(QRect(Left, Top, Right - Left - 1, Bottom - Top - 1));
        return;
    }
    const std::int64_t wlim = FTarget.Width();
    auto clampX = [&](std::int64_t x) { return static_cast<std::int32_t>(std::clamp<std::int64_t>(x, -1, wlim)); };
    for (std::int64_t y = y0; y < y1; ++y) {
        const auto [l, r] = span(y);
        if (l > r)
            continue;
        const auto yy = static_cast<std::int32_t>(y);
        if (!pen) {
            if (Brush.Style == bsSolid)
                FillSpan(yy, clampX(l), clampX(r + 1), Brush.Color, Pen.Mode);
            continue;
        }
        const auto [lu, ru] = span(y - 1);
        const auto [ld, rd] = span(y + 1);
        std::int64_t ia = r + 1, ib = r;  // interior [ia, ib]; empty when a neighbour row is empty
        if (lu <= ru && ld <= rd) {
            ia = std::max({l + 1, lu, ld});
            ib = std::min({r - 1, ru, rd});
        }
        if (ia > ib) {
            FillSpan(yy, clampX(l), clampX(r + 1), Pen.Color, Pen.Mode);
            continue;
        }
        FillSpan(yy, clampX(l), clampX(ia), Pen.Color, Pen.Mode);
        if (Brush.Style == bsSolid)
            FillSpan(yy, clampX(ia), clampX(ib + 1), Brush.Color, Pen.Mode);
        FillSpan(yy, clampX(ib + 1), clampX(r + 1), Pen.Color, Pen.Mode);
    }
}

void TCanvas::Polygon(std::span<const TPoint> Points)
{
    if (Points.empty())
        return;
    if (Brush.Style == bsSolid && Points.size() >= 3) {
        std::int32_t top = Points[0].Y, bottom = Points[0].Y;
        for (const TPoint& p : Points) {
            top = std::min(top, p.Y);
            bottom = std::max(bottom, p.Y);
        }
        std::vector<std::int64_t> xs;
        for (std::int32_t y = std::max(top, 0); y < std::min(bottom, FTarget.Height()); ++y) {
            xs.clear();
            for (std::size_t i = 0; i < Points.size(); ++i) {
                TPoint p = Points[i], q = Points[(i + 1) % Points.size()];
                if (p.Y == q.Y)
                    continue;
                if (p.Y > q.Y)
                    std::swap(p, q);
                if (y < p.Y || y >= q.Y)
                    continue;
                // First pixel at or right of the crossing: ceil(p.X + (y - p.Y)(q.X - p.X) / (q.Y - p.Y)).
                const std::int64_t den = std::int64_t{q.Y} - p.Y;
                const std::int64_t num = std::int64_t{p.X} * den + (std::int64_t{y} - p.Y) * (std::int64_t{q.X} - p.X);
                xs.push_back(num >= 0 ? (num + den - 1) / den : -((-num) / den));
            }
            std::sort(xs.begin(), xs.end());
            for (std::size_t i = 0; i + 1 < xs.size(); i += 2) {
                const auto lo = static_cast<std::int32_t>(std::clamp<std::int64_t>(xs[i], -1, FTarget.Width()));
                const auto hi = static_cast<std::int32_t>(std::clamp<std::int64_t>(xs[i + 1], -1, FTarget.Width()));
                FillSpan(y, lo, hi, Brush.Color, Pen.Mode);
            }
        }
    }
    DrawOutline(Points);
}

void TCanvas::TextOut(std::int32_t X, std::int32_t Y, std::string_view Text)
{
    if (FTarget.Image().isNull() || Text.empty())
        return;
    QPainter p(&FTarget.Image());
    const QFont font = MakeQFont(Font);
    p.setFont(font);
    const QFontMetrics fm(font, &FTarget.Image());
    const QString s = ToQString(Text);
    p.translate(X, Y);
    if (Font.Orientation != 0)
        p.rotate(-Font.Orientation / 10.0);
    if (Brush.Style == bsSolid)
        p.fillRect(QRect(0, 0, fm.horizontalAdvance(s), fm.height()), ToQColor(Brush.Color));
    p.setPen(ToQColor(Font.Color));
    p.drawText(0, fm.ascent(), s);
}

TSize TCanvas::TextExtent(std::string_view Text)
{
    const QFont font = MakeQFont(Font);
    const QString s = ToQString(Text);
    if (FTarget.Image().isNull()) {
        const QFontMetrics fm(font);
        return {fm.horizontalAdvance(s), fm.height()};
    }
    const QFontMetrics fm(font, &FTarget.Image());
    return {fm.horizontalAdvance(s), fm.height()};
}

void TCanvas::Draw(std::int32_t X, std::int32_t Y, const TBitmap& Source)
{
    FTarget.CopyRect(X, Y, Source, TRect{0, 0, Source.Width(), Source.Height()});
}

void TCanvas::CopyRect(TRect DstRect, const TBitmap& Source, TRect SrcRect, TStretchMode Mode)
{
    if (DstRect.Width() == SrcRect.Width() && DstRect.Height() == SrcRect.Height()) {
        FTarget.CopyRect(DstRect.Left, DstRect.Top, Source, SrcRect);
        return;
    }
    FTarget.StretchRect(DstRect, Source, SrcRect, Mode);
}

}  // namespace qv
