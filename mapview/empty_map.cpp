// Synthetic empty maps. The graticule loops step by repeated addition, as the map has always drawn them, so
// a line's value carries the accumulated rounding of the additions (a parallel meant for 0° may come out
// as -5.6e-17°); rows and columns are computed from that value, and the label shows it as 0° N.
#include <qvgeo/mapview/empty_map.h>

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/text.h>

#include <array>
#include <cmath>
#include <fstream>
#include <string>

namespace qv {

namespace {

constexpr double MaxGratLines = 100000;  // per direction; beyond that lines would only repaint each other

[[noreturn]] void Fail(const std::string& Text)
{
    throw EXELGeoMapError("GenerateEmptyMap: " + Text);
}

// Upper bound on the loop's steps, which also ends it when Dist is too small to change the value.
long long GratSteps(double Min, double Max, double Dist, const char* Kind)
{
    const double start = Dist * std::trunc(Min / Dist);
    const double n = (Max - start) / Dist;
    if (!(n <= MaxGratLines))
        Fail(std::string("more than 100000 ") + Kind + " (graticule distance too small)");
    return static_cast<long long>(std::ceil(std::max(n, 0.0))) + 2;
}

void DrawGraticule(TCanvas& c, const TEmptyMapRequest& r)
{
    const std::int32_t W = r.Width, H = r.Height, M = EmptyMapMargin;
    // The frame: a solid line on the inner edge, a dotted one 4 pixels outside it.
    const std::array<TPoint, 5> inner = {TPoint{M, M}, TPoint{W - M, M}, TPoint{W - M, H - M}, TPoint{M, H - M},
                                         TPoint{M, M}};
    c.Polyline(inner);
    c.Pen.Style = psDot;
    const std::int32_t F = M - 4;
    const std::array<TPoint, 5> outer = {TPoint{F, F}, TPoint{W - F, F}, TPoint{W - F, H - F}, TPoint{F, H - F},
                                         TPoint{F, F}};
    c.Polyline(outer);
    c.Pen.Style = psDash;
    c.Pen.Color = 0xC0C0C0;

    const double dLat = r.LatGratDist;
    long long steps = GratSteps(r.LatMin, r.LatMax, dLat, "parallels");
    for (double phi = dLat * std::trunc(r.LatMin / dLat); phi < r.LatMax && steps-- > 0; phi += dLat) {
        // Row from the top; rows on the frame (30 and H - 30) and outside it are skipped.
        const double fy = (H - std::nearbyint((phi - r.LatMin) / (r.LatMax - r.LatMin) * (H - 2 * M))) - M;
        if (!(fy > M && fy < H - M))
            continue;
        const auto y = static_cast<std::int32_t>(fy);
        c.MoveTo(M, y);
        c.LineTo(W - M, y);
        const std::string label = EmptyMapLabel(phi, dLat, true);
        const TSize e = c.TextExtent(label);
        c.TextOut(M + 6, y - e.cy / 2, label);
        c.TextOut(W - e.cx - (M + 6), y - e.cy / 2, label);
    }

    const double dLon = r.LongGratDist;
    steps = GratSteps(r.LongMin, r.LongMax, dLon, "meridians");
    for (double lam = dLon * std::trunc(r.LongMin / dLon); lam < r.LongMax && steps-- > 0; lam += dLon) {
        const double fx = std::nearbyint((lam - r.LongMin) / (r.LongMax - r.LongMin) * (W - 2 * M)) + M;
        if (!(fx > M && fx < W - M))
            continue;
        const auto x = static_cast<std::int32_t>(fx);
        c.MoveTo(x, M);
        c.LineTo(x, H - M);
        const std::string label = EmptyMapLabel(lam, dLon, false);
        const TSize e = c.TextExtent(label);
        c.TextOut(x - e.cx / 2, (M - 6) - e.cy, label);
        c.TextOut(x - e.cx / 2, H - (M - 6), label);
    }
}

void FillCalibration(const TEmptyMapRequest& r, TCalibData& d)
{
    d = TCalibData{};  // the cleared record: no points, corners (0, 0), no zone, WGS 84
    d.UTMZone = -1;
    d.Caption = std::string(EmptyMapCaption);
    d.Corners[gcoTopLeft] = {r.LatMax, r.LongMin};
    d.Corners[gcoBottomLeft] = {r.LatMin, r.LongMin};
    d.Corners[gcoBottomRight] = {r.LatMin, r.LongMax};
    d.Corners[gcoTopRight] = {r.LatMax, r.LongMax};
    d.Resolution = 0;
    const double W = r.Width, H = r.Height, M = EmptyMapMargin;
    for (int i = 1; i <= 3; ++i)
        for (int j = 1; j <= 3; ++j) {
            TCalQuad& q = d.CalQuads[static_cast<std::size_t>((i - 1) * 3 + j - 1)];
            q.Latitude = r.LatMin + (i - 1) * (r.LatMax - r.LatMin) / 2;
            q.Longitude = r.LongMin + (j - 1) * (r.LongMax - r.LongMin) / 2;
            const double x = r.ShowGrat ? (j - 1) * (W - 2 * M) / 2 + M : (j - 1) * W / 2;
            const double y = r.ShowGrat ? (H - M) - (i - 1) * (H - 2 * M) / 2 : H - (i - 1) * H / 2;
            q.MapX = static_cast<std::int32_t>(std::nearbyint(x));
            q.MapY = static_cast<std::int32_t>(std::nearbyint(y));
        }
    d.NumCalQuads = 9;
}

}  // namespace

TEmptyMapRequest NormalizedEmptyMapRequest(TEmptyMapRequest Request)
{
    TEmptyMapRequest& r = Request;
    if (r.LatMax < r.LatMin)
        ExChange(r.LatMin, r.LatMax);
    if (r.LongMax < r.LongMin)
        ExChange(r.LongMin, r.LongMax);
    if (r.LatGratDist <= 0)
        r.LatGratDist = 1.0;
    if (r.LongGratDist <= 0)
        r.LongGratDist = 1.0;
    r.Width = std::max(r.Width, EmptyMapMinSize);
    r.Height = std::max(r.Height, EmptyMapMinSize);
    return Request;
}

std::string EmptyMapLabel(double Value, double GratDist, bool Latitude)
{
    // Fine graticules need seconds, half and quarter degrees need minutes; whole-degree ones show degrees.
    const TDegreeFormat format = GratDist <= 0.06 ? dfDegMinSec : (GratDist == std::trunc(GratDist) ? dfDecimal : dfDegMin);
    const std::string text = DegreeToStr(std::fabs(Value), format, 0);
    // A value that shows as zero is the equator or the prime meridian, whatever sign the stepping's
    // rounding left on it.
    const bool negative = Value < 0 && text != DegreeToStr(0.0, format, 0);
    const char* hemi = Latitude ? (negative ? " S " : " N ") : (negative ? " W " : " E ");
    return " " + text + hemi;
}

void GenerateEmptyMap(const TEmptyMapRequest& Request, TBitmap& Bitmap, TCalibData& CalData)
{
    for (double v : {Request.LatMin, Request.LongMin, Request.LatMax, Request.LongMax, Request.LatGratDist,
                     Request.LongGratDist})
        if (!std::isfinite(v))
            Fail("limits and graticule distances must be finite");
    const TEmptyMapRequest r = NormalizedEmptyMapRequest(Request);
    Bitmap.SetSize(r.Width, r.Height);
    if (Bitmap.Width() != r.Width || Bitmap.Height() != r.Height)
        Fail("cannot allocate an image of " + std::to_string(r.Width) + " x " + std::to_string(r.Height) +
             " pixels");
    Bitmap.Fill(0xFFFFFF);
    TCanvas& c = Bitmap.Canvas();
    c.Pen = TPen{};
    c.Brush = TBrush{};
    c.Font = TFont{};
    c.MoveTo(0, 0);
    if (r.ShowGrat)
        DrawGraticule(c, r);
    c.Pen = TPen{};  // the application draws with the defaults, not with the graticule's dashed pen
    if (r.OnDrawData)
        r.OnDrawData(c, r.LatMin, r.LongMin, r.LatMax, r.LongMax, r.Width, r.Height);
    FillCalibration(r, CalData);
}

TEmptyMapFiles WriteEmptyMapFiles(const std::string& FName, TEmptyMapRequest Request,
                                  std::string_view ImageExtension, int JpegQuality)
{
    const std::string ext = LowerCase(ImageExtension);
    if (ext != ".bmp" && ext != ".png" && ext != ".jpg" && ext != ".jpeg")
        throw EXELGeoMapError("WriteEmptyMapFiles: unknown image extension \"" + std::string(ImageExtension) +
                              "\" (.bmp, .png, .jpg or .jpeg)");
    const std::string base = StripExtension(FName);
    TEmptyMapFiles files{base + ext, base + ".xml"};
    Request.ShowGrat = true;
    TBitmap bmp;
    TCalibData d;
    GenerateEmptyMap(Request, bmp, d);
    // 24-bit BMP rather than a 16-colour one: the application's drawing may use any colour, and the file
    // is read back into a 32-bit bitmap anyway.
    if (ext == ".bmp")
        SaveBMP(bmp, files.ImageFile);
    else if (ext == ".png")
        SavePNG(bmp, files.ImageFile);
    else
        SaveJPEG(bmp, files.ImageFile, JpegQuality);

    d.MapFName = files.ImageFile;
    std::ofstream out(files.CalibFile, std::ios::binary | std::ios::trunc);
    if (!out)
        throw EXELGeoMapError("WriteEmptyMapFiles: cannot create \"" + files.CalibFile + "\"");
    WriteRawCalDataToOpenXMLFile(out, true, EmptyMapCalibId, d, cmBiquadraticPn);
    out.close();
    if (!out)
        throw EXELGeoMapError("WriteEmptyMapFiles: cannot write \"" + files.CalibFile + "\"");
    return files;
}

}  // namespace qv
