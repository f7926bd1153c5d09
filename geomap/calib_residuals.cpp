#include <qvgeo/geomap/calib_residuals.h>

#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/geobasics/transverse_mercator.h>

#include <cmath>

namespace qv {

namespace {

constexpr double kRad = 3.141592653589793 / 180.0;

// Whether the n points (u, v) lie on one straight line: the smaller principal spread of the cloud is
// below 1e-12 of the larger (exactly collinear integer pixels give a determinant of rounding size).
template <typename U, typename V>
bool Collinear(int n, U u, V v)
{
    double mu = 0.0, mv = 0.0;
    for (int i = 0; i < n; ++i) {
        mu += u(i);
        mv += v(i);
    }
    mu /= n;
    mv /= n;
    double suu = 0.0, svv = 0.0, suv = 0.0;
    for (int i = 0; i < n; ++i) {
        const double du = u(i) - mu, dv = v(i) - mv;
        suu += du * du;
        svv += dv * dv;
        suv += du * dv;
    }
    const double trace = suu + svv;
    return suu * svv - suv * suv <= 1e-12 * trace * trace;
}

// The quads' diagnosis apart from no-redundancy; fills R.Diagnosis, Point1, Point2.
void DiagnoseQuads(const TCalibData& D, TCalibModel Model, TCalibResiduals& R)
{
    const int n = ValidCalQuads(D);
    auto set = [&R](TCalibDiagnosis d, int p1, int p2) {
        R.Diagnosis = d;
        R.Point1 = p1;
        R.Point2 = p2;
    };
    if (n < MinCalibPoints(Model))
        return set(cdgTooFewPoints, 0, 0);
    for (int i = 0; i < n; ++i) {
        const TCalQuad& q = D.CalQuads[i];
        const bool inside = Model == cmUTM ? (q.Latitude >= 0 && q.Latitude <= 10000000.0 && q.Longitude >= 0 &&
                                              q.Longitude <= 1000000.0)
                                           : (std::fabs(q.Latitude) <= 90.0 && std::fabs(q.Longitude) <= 180.0);
        if (!inside)
            return set(cdgOutOfRange, i + 1, 0);
    }
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j) {
            const TCalQuad &a = D.CalQuads[i], &b = D.CalQuads[j];
            if ((a.MapX == b.MapX && a.MapY == b.MapY) || (a.Latitude == b.Latitude && a.Longitude == b.Longitude))
                return set(cdgRepeatedPoints, i + 1, j + 1);
        }
    const auto& q = D.CalQuads;
    bool collinear = false;
    if (Model == cmMillerCylindrical) {
        // x follows from the longitude alone and y from the latitude alone.
        bool latsDiffer = false, longsDiffer = false;
        for (int i = 1; i < n; ++i) {
            latsDiffer = latsDiffer || q[i].Latitude != q[0].Latitude;
            longsDiffer = longsDiffer || q[i].Longitude != q[0].Longitude;
        }
        collinear = !latsDiffer || !longsDiffer;
    } else {
        collinear = Collinear(n, [&](int i) { return double(q[i].MapX); }, [&](int i) { return double(q[i].MapY); }) ||
                    Collinear(n, [&](int i) { return q[i].Latitude; }, [&](int i) { return q[i].Longitude; });
    }
    if (collinear)
        return set(cdgCollinearPoints, 0, 0);
    if (n == CalibCoefficients(Model))
        return set(cdgNoRedundancy, 0, 0);
}

// The quad's position in degrees (UTM quads hold northing and easting in the map's zone).
TCoords QuadPosition(const TCalQuad& q, const TCalibFit& F)
{
    TCoords c{q.Latitude, q.Longitude};
    if (F.Model() == cmUTM)
        UTMToLatLong(q.Longitude, q.Latitude, F.UTMZone(), F.UTMSouth(), F.Ellipsoid(), c.Latit, c.Longit);
    return c;
}

bool PredictQuad(const TCalibFit& F, const TCalQuad& q, double& x, double& y)
{
    return F.Model() == cmUTM ? F.CalcPixelPositionUTM(q.Latitude, q.Longitude, x, y)
                              : F.CalcPixelPosition(q.Latitude, q.Longitude, x, y);
}

}  // namespace

int MinCalibPoints(TCalibModel Model)
{
    switch (Model) {
    case cmBiquadraticPn: return 6;
    case cmConicConformal:
    case cmMillerCylindrical:
    case cmEquiRect:
    case cmUTM: return 3;
    case cmParabolicIp: return 12;
    case cmUndefined: break;
    }
    return 0;
}

int CalibCoefficients(TCalibModel Model)
{
    switch (Model) {
    case cmBiquadraticPn: return 6;
    case cmMillerCylindrical: return 2;
    case cmConicConformal:
    case cmEquiRect:
    case cmUTM: return 3;
    case cmParabolicIp:
    case cmUndefined: break;
    }
    return 0;
}

double NearbyDistance(double Lat1, double Long1, double Lat2, double Long2, TGeoEllipsoid Ellipsoid)
{
    const TEllipsoidAxes ax = GeoEllipsoidData[static_cast<std::size_t>(Ellipsoid) < GeoEllipsoidData.size() ? Ellipsoid : gelWGS84];
    const double e2 = (ax.a * ax.a - ax.b * ax.b) / (ax.a * ax.a);
    const double phi = 0.5 * (Lat1 + Lat2) * kRad;
    const double w2 = 1.0 - e2 * std::sin(phi) * std::sin(phi);
    const double meridional = ax.a * (1.0 - e2) / (w2 * std::sqrt(w2));
    const double primeVertical = ax.a / std::sqrt(w2);
    const double dLong = std::remainder(Long2 - Long1, 360.0);
    const double north = meridional * (Lat2 - Lat1) * kRad;
    const double east = primeVertical * std::cos(phi) * dLong * kRad;
    return std::hypot(north, east);
}

TCalibResiduals CalibResiduals(const TCalibData& Data, const TCalibFit& Fit, std::int32_t Width,
                               std::int32_t Height, bool LeaveOneOut)
{
    TCalibResiduals R;
    R.Model = Fit.Model();
    if (R.Model == cmUndefined) {
        R.Diagnosis = cdgNoModel;
        return R;
    }
    if (R.Model == cmParabolicIp) {
        int parallels = 0, meridians = 0;
        for (int l = 0; l < ValidCalLines(Data); ++l) {
            const TCalibLine& line = Data.CalLines[l];
            const double limit = line.LineType == gtlParallel ? 90.0 : 180.0;
            if (!(std::fabs(line.LineValue) <= limit)) {
                R.Diagnosis = cdgOutOfRange;
                R.Point1 = l + 1;
                return R;
            }
            if (ValidLinePoints(line) >= 3)
                ++(line.LineType == gtlParallel ? parallels : meridians);
        }
        if (parallels < 2 || meridians < 2)
            R.Diagnosis = cdgTooFewPoints;
        return R;
    }
    DiagnoseQuads(Data, R.Model, R);
    const int n = ValidCalQuads(Data);
    const TGeoEllipsoid ell = static_cast<int>(Fit.Ellipsoid()) < NumGeoEllipsoids ? Fit.Ellipsoid() : gelWGS84;
    R.Quads.resize(static_cast<std::size_t>(n));
    double sumPx = 0.0, sumM = 0.0;
    int valid = 0;
    for (int i = 0; i < n; ++i) {
        const TCalQuad& q = Data.CalQuads[i];
        TQuadResidual& r = R.Quads[static_cast<std::size_t>(i)];
        if (!PredictQuad(Fit, q, r.PredX, r.PredY))
            continue;
        r.Valid = true;
        r.Dx = r.PredX - q.MapX;
        r.Dy = r.PredY - q.MapY;
        r.Pixels = std::hypot(r.Dx, r.Dy);
        TCoords atPixel;
        if (Fit.CalcPosition(TPoint{q.MapX, q.MapY}, atPixel)) {
            const TCoords truth = QuadPosition(q, Fit);
            r.Metres = NearbyDistance(truth.Latit, truth.Longit, atPixel.Latit, atPixel.Longit, ell);
            sumM += r.Metres * r.Metres;
        }
        sumPx += r.Pixels * r.Pixels;
        ++valid;
        if (R.Worst == 0 || r.Pixels > R.Quads[static_cast<std::size_t>(R.Worst - 1)].Pixels)
            R.Worst = i + 1;
    }
    if (valid > 0) {
        R.RmsPixels = std::sqrt(sumPx / valid);
        R.RmsMetres = std::sqrt(sumM / valid);
    }
    if (!LeaveOneOut || n - 1 < MinCalibPoints(R.Model) ||
        (R.Diagnosis != cdgOK && R.Diagnosis != cdgNoRedundancy))
        return R;
    TCalibData without = Data;
    double worst = -1.0;
    for (int i = 0; i < n; ++i) {
        TQuadResidual& r = R.Quads[static_cast<std::size_t>(i)];
        if (!r.Valid)
            continue;
        // Quad i left out, the others in their order.
        for (int j = i; j < n - 1; ++j)
            without.CalQuads[j] = Data.CalQuads[j + 1];
        without.NumCalQuads = n - 1;
        TCalibFit refit = Fit;
        refit.FitModel(without, Width, Height);
        double x = 0.0, y = 0.0;
        if (PredictQuad(refit, Data.CalQuads[i], x, y)) {
            r.LeaveOneOut = std::hypot(x - r.PredX, y - r.PredY);
            if (r.LeaveOneOut > worst) {
                worst = r.LeaveOneOut;
                R.WorstLeaveOneOut = i + 1;
            }
        }
        without.CalQuads[i] = Data.CalQuads[i];
    }
    return R;
}

std::string CalibDiagnosisText(const TCalibResiduals& R)
{
    const std::string p1 = std::to_string(R.Point1), p2 = std::to_string(R.Point2);
    switch (R.Diagnosis) {
    case cdgOK: return {};
    case cdgNoModel: return "no calibration model";
    case cdgTooFewPoints:
        if (R.Model == cmParabolicIp)
            return "too few points: the graticule needs two parallels and two meridians of 3 points or more";
        return "too few points: the " + std::string(CalibModelKeywords[R.Model]) + " model needs at least " +
               std::to_string(MinCalibPoints(R.Model)) + ", got " + std::to_string(R.Quads.size());
    case cdgOutOfRange:
        if (R.Model == cmParabolicIp)
            return "graticule line " + p1 + " lies outside the globe (latitude beyond 90 or longitude beyond 180 degrees)";
        if (R.Model == cmUTM)
            return "point " + p1 + " lies outside the UTM grid (northing 0..10000000 m, easting 0..1000000 m)";
        return "point " + p1 + " lies outside the globe (latitude beyond 90 or longitude beyond 180 degrees)";
    case cdgRepeatedPoints: return "points " + p1 + " and " + p2 + " repeat a pixel or a position";
    case cdgCollinearPoints:
        return R.Model == cmMillerCylindrical ? "collinear points: all on one parallel or one meridian"
                                              : "collinear points: all pixels or all positions on one straight line";
    case cdgNoRedundancy:
        return "no redundancy: " + std::to_string(R.Quads.size()) + " points for " +
               std::to_string(CalibCoefficients(R.Model)) +
               " coefficients per axis, the fit passes through every point whatever they are worth";
    }
    return {};
}

}  // namespace qv
