// Fitting the calibration models to the reference points (TCalibFit): graticule parabolas (parabolic interpolation),
// linear least squares (equirect and UTM), biquadratic least squares, the Miller cylindrical stretch and
// the conic apex search, and the calibration quality figure.
//
// None of these raise on bad geometry. A fit that cannot be made leaves zeroed (equirect, biquadratic)
// or the previous (Miller, conic) coefficients, and the transforms then give meaningless results.
#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/geomap/calibration.h>

#include <qvgeo/geomap/calib_internal.h>
#include <qvgeo/support/curve_fit.h>
#include <qvgeo/support/least_squares.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace qv {

using calib_detail::WrapMul;

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kPiQuarter = 0.7853981633974483;

// Solves the design matrix A (columns = unknowns) for the right-hand side b; Out is written only when
// the solver succeeds.
template <std::size_t N>
void SolveInto(const TMatrix& A, const TVector& b, std::array<double, N>& Out, TMathProgress* Progress)
{
    TVector c;
    bool singular = false;
    if (!SolveLeastSquares(A, b, c, singular, nullptr, Progress) || c.NumElem() != static_cast<int>(N))
        return;
    for (std::size_t i = 0; i < N; ++i)
        Out[i] = c.GetVal(static_cast<int>(i) + 1);
}

// Least-squares line y = k·x + d over n pairs, with TCurveFit's conventions for the undetermined case
// (fewer than 2 pairs or all x equal: k = 0, d = mean of y). Sums are taken about the means. The conic
// search calls this 500 times per fit, so it avoids TCurveFit's per-pair storage.
void LineFit(const double* x, const double* y, int n, double& k, double& d)
{
    if (n < 1) {
        k = 0.0;
        d = 0.0;
        return;
    }
    double mx = 0.0, my = 0.0;
    for (int i = 0; i < n; ++i) {
        mx += x[i];
        my += y[i];
    }
    mx /= n;
    my /= n;
    double sxx = 0.0, sxy = 0.0;
    for (int i = 0; i < n; ++i) {
        const double dx = x[i] - mx;
        sxx += dx * dx;
        sxy += dx * (y[i] - my);
    }
    if (n < 2 || !(sxx > 0.0)) {
        k = 0.0;
        d = my;
        return;
    }
    k = sxy / sxx;
    d = my - k * mx;
}

}  // namespace

TCalibFit::TCalibFit()
{
    FGratMat.Resize(5, 1);
    SyncGratRows();
}

void TCalibFit::SetProjection(const TCalibData& Data)
{
    FUTMZone = Data.UTMZone;
    FUTMSouth = Data.UTMSouth;
    FEllipsoid = Data.Ellipsoid;
}

void TCalibFit::ClearGratMatAndLinearSets()
{
    FGratMat.Resize(5, 1);
    FGratMat.Fill(0.0);
    SyncGratRows();
    FLineParabolas.clear();
    FEquRectSPPL = {};
    FEquRectPLSP = {};
    FCalParsPLSP = {};
    FCalParsSPPL = {};
}

void TCalibFit::FitModel(const TCalibData& Data, std::int32_t Width, std::int32_t Height, TMathProgress* Progress)
{
    switch (FModel) {
    case cmBiquadraticPn: FitBiquadratic(Data, Progress); break;
    case cmConicConformal: FitConic(Data, Width, Height, Progress); break;
    case cmMillerCylindrical: FitMillerCyl(Data); break;
    case cmEquiRect:
    case cmUTM: FitEquiRect(Data, Progress); break;
    case cmParabolicIp:
    case cmUndefined: break;
    }
}

// ---- parabolic interpolation --------------------------------------------------------------------------

bool TCalibFit::FitGratMat(const TCalibData& Data)
{
    const TCalibData& d = Data;
    const int nl = ValidCalLines(d);
    FGratMat.Resize(5, nl);
    FLineParabolas.assign(static_cast<std::size_t>(nl), TLineParabola{});
    int parallels = 0, meridians = 0;
    TCurveFit fit;
    for (int i = 0; i < nl; ++i) {
        const TCalibLine& line = d.CalLines[i];
        const int row = i + 1;
        const bool parallel = line.LineType == gtlParallel;
        FGratMat.SetVal(1, row, parallel ? 1.0 : 0.0);
        FGratMat.SetVal(2, row, line.LineValue);
        const int np = ValidLinePoints(line);
        TLineParabola& drawn = FLineParabolas[static_cast<std::size_t>(i)];
        drawn.Parallel = parallel;
        if (np < 1)
            continue;
        fit.Init();
        for (int p = 0; p < np; ++p) {
            const TPoint pt = line.CalPoints[p];
            // A parallel is y(x), a meridian x(y): both run roughly along their own axis.
            if (parallel)
                fit.EnterStatValue(pt.X, pt.Y);
            else
                fit.EnterStatValue(pt.Y, pt.X);
        }
        double k0 = 0.0, k1 = 0.0, k2 = 0.0, quality = 0.0;
        fit.CalcParabolFit(k0, k1, k2, quality);
        drawn = TLineParabola{parallel, true, k0, k1, k2};
        // The matrix takes only lines of 3 points or more; the drawing takes every line.
        if (np < 3)
            continue;
        FGratMat.SetVal(3, row, k0);
        FGratMat.SetVal(4, row, k1);
        FGratMat.SetVal(5, row, k2);
        if (parallel)
            ++parallels;
        else
            ++meridians;
    }
    const bool ok = parallels >= 2 && meridians >= 2;
    if (!ok) {
        FGratMat.Resize(5, 1);
        FGratMat.Fill(0.0);
    }
    SyncGratRows();
    return ok;
}

void TCalibFit::SyncGratRows()
{
    const int rows = FGratMat.NrOfRows();
    FGratRows.resize(static_cast<std::size_t>(rows));
    FGratParallels = FGratMeridians = 0;
    for (int r = 1; r <= rows; ++r) {
        TGratRow& g = FGratRows[static_cast<std::size_t>(r - 1)];
        g = TGratRow{FGratMat.GetVal(1, r), FGratMat.GetVal(2, r), FGratMat.GetVal(3, r), FGratMat.GetVal(4, r),
                     FGratMat.GetVal(5, r)};
        const double k = std::nearbyint(g.Kind);
        FGratParallels += k == 1.0;
        FGratMeridians += k == 0.0;
    }
}

// ---- equirect and UTM ---------------------------------------------------------------------------------

void TCalibFit::FitEquiRect(const TCalibData& Data, TMathProgress* Progress)
{
    FEquRectSPPL = {};
    FEquRectPLSP = {};
    const TCalibData& d = Data;
    const int n = ValidCalQuads(d);
    if (n < 1)
        return;
    TMatrix a(3, n);
    TVector lat(n), lon(n), xs(n), ys(n);
    for (int i = 0; i < n; ++i) {
        const TCalQuad& q = d.CalQuads[i];
        a.SetVal(1, i + 1, 1.0);
        a.SetVal(2, i + 1, q.MapX);
        a.SetVal(3, i + 1, q.MapY);
        lat.SetVal(i + 1, q.Latitude);
        lon.SetVal(i + 1, q.Longitude);
        xs.SetVal(i + 1, q.MapX);
        ys.SetVal(i + 1, q.MapY);
    }
    SolveInto(a, lat, FEquRectPLSP[0], Progress);
    SolveInto(a, lon, FEquRectPLSP[1], Progress);
    for (int i = 0; i < n; ++i) {
        a.SetVal(2, i + 1, d.CalQuads[i].Latitude);
        a.SetVal(3, i + 1, d.CalQuads[i].Longitude);
    }
    SolveInto(a, xs, FEquRectSPPL[0], Progress);
    SolveInto(a, ys, FEquRectSPPL[1], Progress);
}

// ---- biquadratic polynomial ---------------------------------------------------------------------------

void TCalibFit::FitBiquadratic(const TCalibData& Data, TMathProgress* Progress)
{
    FCalParsPLSP = {};
    FCalParsSPPL = {};
    const TCalibData& d = Data;
    const int n = ValidCalQuads(d);
    if (n < 1)
        return;
    TMatrix a(6, n);
    TVector lat(n), lon(n), xs(n), ys(n);
    for (int i = 0; i < n; ++i) {
        const TCalQuad& q = d.CalQuads[i];
        const int r = i + 1;
        a.SetVal(1, r, 1.0);
        a.SetVal(2, r, q.MapX);
        a.SetVal(3, r, q.MapY);
        // Integer products that wrap beyond 46340 pixels, as the stored calibrations were fitted.
        a.SetVal(4, r, WrapMul(q.MapX, q.MapX));
        a.SetVal(5, r, WrapMul(q.MapX, q.MapY));
        a.SetVal(6, r, WrapMul(q.MapY, q.MapY));
        lat.SetVal(r, q.Latitude);
        lon.SetVal(r, q.Longitude);
        xs.SetVal(r, q.MapX);
        ys.SetVal(r, q.MapY);
    }
    SolveInto(a, lat, FCalParsPLSP[0], Progress);
    SolveInto(a, lon, FCalParsPLSP[1], Progress);
    for (int i = 0; i < n; ++i) {
        const TCalQuad& q = d.CalQuads[i];
        const int r = i + 1;
        a.SetVal(2, r, q.Latitude);
        a.SetVal(3, r, q.Longitude);
        a.SetVal(4, r, q.Latitude * q.Latitude);
        a.SetVal(5, r, q.Latitude * q.Longitude);
        a.SetVal(6, r, q.Longitude * q.Longitude);
    }
    SolveInto(a, xs, FCalParsSPPL[0], Progress);
    SolveInto(a, ys, FCalParsSPPL[1], Progress);
}

// ---- Miller cylindrical -------------------------------------------------------------------------------

void TCalibFit::FitMillerCyl(const TCalibData& Data)
{
    const TCalibData& d = Data;
    const int n = ValidCalQuads(d);
    if (n < 3)
        return;
    TCurveFit fx, fy;
    for (int i = 0; i < n; ++i) {
        const TCalQuad& q = d.CalQuads[i];
        fx.EnterStatValue(q.Longitude * kPi / 180, q.MapX);
        // The Miller stretch: y ∝ ln tan(π/4 + 0.4·φ); keep this operation order, the stored
        // coefficients were fitted with it.
        fy.EnterStatValue(std::log(std::tan(0.4 * q.Latitude * kPi / 180 + kPiQuarter)), q.MapY);
    }
    double quality = 0.0;
    fx.CalcLinFit(FMillercylPar[2], FMillercylPar[3], quality);
    fy.CalcLinFit(FMillercylPar[0], FMillercylPar[1], quality);
}

// ---- conic conformal ----------------------------------------------------------------------------------

void TCalibFit::FitConic(const TCalibData& Data, std::int32_t Width, std::int32_t Height, TMathProgress* Progress)
{
    const TCalibData& d = Data;
    const int n = ValidCalQuads(d);
    // With fewer than 3 quads no apex can be judged: the previous coefficients stay.
    if (n < 3)
        return;
    std::int64_t minX = Width, minY = Height, maxX = 0, maxY = 0;
    for (int i = 0; i < n; ++i) {
        minX = std::min<std::int64_t>(minX, d.CalQuads[i].MapX);
        maxX = std::max<std::int64_t>(maxX, d.CalQuads[i].MapX);
        minY = std::min<std::int64_t>(minY, d.CalQuads[i].MapY);
        maxY = std::max<std::int64_t>(maxY, d.CalQuads[i].MapY);
    }
    // Integer division truncating towards zero, as the search was defined. 64-bit: the candidate apexes
    // reach a million pixels beyond any image.
    std::int64_t cx = (minX + maxX) / 2, cy = (minY + maxY) / 2;
    double best = 1e10;
    bool found = false;
    std::array<double, 6> bestPars{};
    std::int64_t bestAx = cx, bestAy = cy;

    std::vector<double> px(n), py(n), lat(n), lon(n), r(n), ang(n), angLon(n);
    for (int i = 0; i < n; ++i) {
        px[i] = d.CalQuads[i].MapX;
        py[i] = d.CalQuads[i].MapY;
        lat[i] = d.CalQuads[i].Latitude;
        lon[i] = d.CalQuads[i].Longitude;
    }

    // Two shortcuts keep the search well below a frame time for 200 quads without changing its result:
    // an apex already judged in the previous round (the centre, and for even steps its eight
    // neighbours) cannot beat the best it helped to set, and a candidate whose latitude residual alone
    // reaches the best sum cannot win, so its arctangents are not computed.
    std::vector<std::pair<std::int64_t, std::int64_t>> judged, judgedNow;
    judged.reserve(25);
    judgedNow.reserve(25);
    for (std::int64_t step = 1000000; step > 0; step /= 2) {
        if (!MathProgressStep(Progress))
            return;  // aborted: the previous coefficients stay
        judgedNow.clear();
        for (int i = -2; i <= 2; ++i) {
            for (int j = -2; j <= 2; ++j) {
                const std::int64_t ax = cx + i * step, ay = cy + j * step;
                judgedNow.emplace_back(ax, ay);
                if (std::find(judged.begin(), judged.end(), std::make_pair(ax, ay)) != judged.end())
                    continue;
                const double fax = static_cast<double>(ax), fay = static_cast<double>(ay);
                // Parallels are circles about the apex: latitude linear in the distance.
                for (int q = 0; q < n; ++q) {
                    const double dx = px[q] - fax, dy = py[q] - fay;
                    r[q] = std::sqrt(dx * dx + dy * dy);
                }
                double latK = 0.0, latD = 0.0;
                LineFit(r.data(), lat.data(), n, latK, latD);
                double s1 = 0.0;
                for (int q = 0; q < n; ++q) {
                    const double e = lat[q] - latK * r[q] - latD;
                    s1 += e * e;
                }
                const double r1 = std::sqrt(s1 / n);
                if (!(r1 * r1 < best))
                    continue;
                // Meridians are rays from the apex: longitude linear in the plain arctangent of dx/dy.
                // Points on the apex row have no angle and are left out, but the mean is over all n.
                int m = 0;
                for (int q = 0; q < n; ++q) {
                    if (py[q] == fay)
                        continue;
                    ang[m] = std::atan((px[q] - fax) / (py[q] - fay));
                    angLon[m] = lon[q];
                    ++m;
                }
                double lonK = 0.0, lonD = 0.0;
                LineFit(ang.data(), angLon.data(), m, lonK, lonD);
                double s2 = 0.0;
                for (int q = 0; q < m; ++q) {
                    const double e = angLon[q] - lonK * ang[q] - lonD;
                    s2 += e * e;
                }
                const double r2 = std::sqrt(s2 / n);
                if (r1 * r1 + r2 * r2 < best) {
                    best = r1 * r1 + r2 * r2;
                    bestPars = {fax, fay, latK, latD, lonK, lonD};
                    bestAx = ax;
                    bestAy = ay;
                    found = true;
                }
            }
        }
        judged.swap(judgedNow);
        cx = bestAx;
        cy = bestAy;
    }
    if (found)
        FConicPars = bestPars;
}

// ---- quality ------------------------------------------------------------------------------------------

void TMapCalibration::CalibQuality(double& QualX, double& QualY) const
{
    TCurveFit fx, fy;
    if (CalibModel() >= cmBiquadraticPn && CalibModel() <= cmUTM) {
        const int n = ValidCalQuads(FCalibData);
        for (int i = 0; i < n; ++i) {
            const TCalQuad& q = FCalibData.CalQuads[i];
            // Under cmUTM the quads hold northing and easting, yet they are passed on as a latitude and a
            // longitude: the figure is then meaningless. This is how the quality has always been defined.
            std::int32_t x = 0, y = 0;
            CalcPixelCoords(q.Latitude, q.Longitude, x, y);
            fx.EnterStatValue(q.MapX, x);
            fy.EnterStatValue(q.MapY, y);
        }
    }
    int num = 0;
    double mx = 0, my = 0, sx = 0, sy = 0, corr = 0, meanDiff = 0;
    fx.CalcStatistics(num, mx, my, sx, sy, corr, QualX, meanDiff);
    fy.CalcStatistics(num, mx, my, sx, sy, corr, QualY, meanDiff);
}

}  // namespace qv
