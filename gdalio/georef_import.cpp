// Georeferencing read through GDAL and OGR and turned into calibration points. The coordinate systems
// are OGR's; the models, their fits and the residuals are the calibration's own (geomap/).
#include <qvgeo/gdalio/georef_import.h>

#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/georef_export.h>
#include <qvgeo/geomap/georef_formats.h>
#include <qvgeo/support/errors.h>

#include <cpl_conv.h>
#include <cpl_string.h>
#include <gdal.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

namespace qv {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const std::string& Text) { throw EXELGeoMapError("georeference import: " + Text); }

std::string Quoted(const std::string& s) { return "\"" + s + "\""; }

struct TDatasetCloser {
    void operator()(void* h) const
    {
        if (h)
            GDALClose(h);
    }
};
using TDataset = std::unique_ptr<void, TDatasetCloser>;

struct TCTDeleter {
    void operator()(OGRCoordinateTransformation* ct) const { OGRCoordinateTransformation::DestroyCT(ct); }
};
using TTransform = std::unique_ptr<OGRCoordinateTransformation, TCTDeleter>;
using TSRS = std::unique_ptr<OGRSpatialReference>;

// Driver: only that GDAL driver (the .map one), else any raster driver.
TDataset OpenRaster(const std::string& FName, const char* Driver = nullptr)
{
    TGdalErrorTrap trap;
    const char* const drivers[] = {Driver, nullptr};
    GDALDatasetH h = GDALOpenEx(FName.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, Driver ? drivers : nullptr, nullptr,
                                nullptr);
    if (!h)
        Fail(Quoted(FName) + ": " + trap.Message(Driver ? "GDAL does not read it as a .map calibration file (or cannot "
                                                          "open the image it names)"
                                                        : "GDAL does not read it as a raster"));
    return TDataset(h);
}

// A GDAL configuration option set on this thread for a scope, then restored.
class TThreadConfig {
public:
    TThreadConfig(const char* Key, const char* Value) : FKey(Key)
    {
        const char* old = CPLGetThreadLocalConfigOption(Key, nullptr);
        FHadOld = old != nullptr;
        if (old)
            FOld = old;
        CPLSetThreadLocalConfigOption(Key, Value);
    }
    ~TThreadConfig() { CPLSetThreadLocalConfigOption(FKey, FHadOld ? FOld.c_str() : nullptr); }
    TThreadConfig(const TThreadConfig&) = delete;
    TThreadConfig& operator=(const TThreadConfig&) = delete;

private:
    const char* FKey;
    std::string FOld;
    bool FHadOld = false;
};

// A private copy of a dataset's coordinate system (null when it has none).
TSRS CopySRS(OGRSpatialReferenceH H)
{
    if (!H)
        return nullptr;
    const OGRSpatialReference* s = OGRSpatialReference::FromHandle(H);
    return s->IsEmpty() ? nullptr : TSRS(s->Clone());
}

// The coordinate system the user gave, or null.
TSRS UserSRS(const TGeoRefOptions& O)
{
    if (O.CRS.empty() && O.Zone == 0)
        return nullptr;
    auto s = std::make_unique<OGRSpatialReference>();
    if (!O.CRS.empty()) {
        TGdalErrorTrap trap;
        if (s->SetFromUserInput(O.CRS.c_str()) != OGRERR_NONE)
            Fail("the coordinate system " + Quoted(O.CRS) + " is not one GDAL knows: " + trap.Message("unrecognised"));
    } else {
        if (O.Zone < 1 || O.Zone > 60)
            Fail("UTM zone " + std::to_string(O.Zone) + " is not 1..60");
        s->SetWellKnownGeogCS("WGS84");
        s->SetUTM(O.Zone, O.South ? FALSE : TRUE);
    }
    // Coordinates given by hand and in world files and control-point lists run easting (longitude) first.
    s->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return s;
}

// A coordinate system from a text file (.prj, WKT of any version or the old ESRI keyword form).
TSRS SRSFromText(const std::string& Text, const std::string& What)
{
    auto s = std::make_unique<OGRSpatialReference>();
    TGdalErrorTrap trap;
    if (s->SetFromUserInput(Text.c_str()) != OGRERR_NONE) {
        CPLStringList lines(CSLTokenizeString2(Text.c_str(), "\r\n", 0));
        if (s->importFromESRI(lines.List()) != OGRERR_NONE)
            Fail(What + " is not a coordinate system GDAL knows: " + trap.Message("unrecognised"));
    }
    s->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return s;
}

std::string ReadText(const fs::path& P)
{
    std::ifstream in(P, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// The ellipsoid of ours with the same axes (within a centimetre; the nearest semi-minor axis wins, so
// that WGS 84 and GRS 80, 0.1 mm apart, are told apart).
bool OurEllipsoid(const OGRSpatialReference& S, TGeoEllipsoid& E)
{
    OGRErr e1 = OGRERR_NONE, e2 = OGRERR_NONE;
    const double a = S.GetSemiMajor(&e1), b = S.GetSemiMinor(&e2);
    if (e1 != OGRERR_NONE || e2 != OGRERR_NONE)
        return false;
    double best = 0.01;
    bool found = false;
    for (int i = 0; i < NumGeoEllipsoids; ++i) {
        const TEllipsoidAxes& ax = GeoEllipsoidData[static_cast<std::size_t>(i)];
        if (std::fabs(ax.a - a) < 0.01 && std::fabs(ax.b - b) < best) {
            best = std::fabs(ax.b - b);
            E = static_cast<TGeoEllipsoid>(i);
            found = true;
        }
    }
    return found;
}

bool DegreesFromGreenwich(const OGRSpatialReference& S)
{
    return std::fabs(S.GetAngularUnits(nullptr) - 0.0174532925199433) < 1e-12 && S.GetPrimeMeridian(nullptr) == 0.0;
}

// How the coordinates of a coordinate system become calibration places.
struct TFrame {
    enum TKind { fkGeographic, fkUTM, fkTransform } Kind = fkTransform;
    TGeoEllipsoid Ellipsoid = gelWGS84;
    int Zone = 0;
    bool South = false;
    bool LonFirst = true;  // fkGeographic: the first coordinate is the longitude
    TTransform ToLatLong;  // fkUTM and fkTransform: to (longitude, latitude) in degrees
    std::string Name;
};

TFrame Classify(const OGRSpatialReference& S, std::vector<std::string>& Notes)
{
    TFrame f;
    f.Name = S.GetName() ? S.GetName() : "unnamed";
    TGeoEllipsoid ell = gelWGS84;
    const bool ours = OurEllipsoid(S, ell);
    if (S.IsGeographic() && ours && DegreesFromGreenwich(S)) {
        f.Kind = TFrame::fkGeographic;
        f.Ellipsoid = ell;
        const std::vector<int>& map = S.GetDataAxisToSRSAxisMapping();
        f.LonFirst = !(S.EPSGTreatsAsLatLong() && map.size() >= 2 && map[0] == 1);
        return f;
    }
    // The places: latitude/longitude of the same datum when its ellipsoid is ours, else of WGS 84.
    TSRS target;
    if (ours) {
        target.reset(S.CloneGeogCS());
        if (target && !DegreesFromGreenwich(*target))
            target.reset();
    }
    if (target) {
        f.Ellipsoid = ell;
    } else {
        target = std::make_unique<OGRSpatialReference>();
        target->SetWellKnownGeogCS("WGS84");
        f.Ellipsoid = gelWGS84;
        Notes.push_back("the coordinates of " + Quoted(f.Name) +
                        (ours ? " are not in degrees from Greenwich" : " lie on an ellipsoid that is not one of ours") +
                        ": places transformed to WGS 84");
    }
    target->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    {
        TGdalErrorTrap trap;
        f.ToLatLong.reset(OGRCreateCoordinateTransformation(&S, target.get()));
        if (!f.ToLatLong)
            Fail("no transformation from " + Quoted(f.Name) + " to latitude/longitude: " + trap.Message("GDAL has none"));
    }
    int north = 0;
    const int zone = S.IsProjected() ? S.GetUTMZone(&north) : 0;
    if (zone >= 1 && zone <= 60 && ours && std::fabs(S.GetLinearUnits(nullptr) - 1.0) < 1e-12 && f.Ellipsoid == ell) {
        f.Kind = TFrame::fkUTM;
        f.Zone = zone;
        f.South = north == 0;
    }
    return f;
}

// Lon/lat of a source coordinate through the frame; false when the transformation fails.
bool ToLonLat(const TFrame& F, double X, double Y, double& Lon, double& Lat)
{
    if (F.Kind == TFrame::fkGeographic) {
        Lon = F.LonFirst ? X : Y;
        Lat = F.LonFirst ? Y : X;
        return true;
    }
    TGdalErrorTrap trap;  // a point outside the projection's domain is a failure, not a message
    Lon = X;
    Lat = Y;
    return F.ToLatLong->Transform(1, &Lon, &Lat) && std::isfinite(Lon) && std::isfinite(Lat);
}

// ---- control points ------------------------------------------------------------------------------

struct TPlacePoint {
    double Pixel = 0, Line = 0;  // image coordinates
    double Lat = 0, Lon = 0;
    double North = 0, East = 0;  // fkUTM only
};

// A least-squares polynomial of a coordinate over the image coordinates, for the moves to pixel
// centres: second order with 10 points or more (the move then follows the map's curvature), else first
// order. Image coordinates are centred and scaled to about ±1, which keeps the normal equations sound.
class TLocalFit {
public:
    // False when the points do not determine even the first-order polynomial (collinear pixels).
    bool Fit(const std::vector<TPlacePoint>& P, double TPlacePoint::*V)
    {
        double minX = P[0].Pixel, maxX = minX, minY = P[0].Line, maxY = minY;
        for (const TPlacePoint& p : P) {
            minX = std::min(minX, p.Pixel);
            maxX = std::max(maxX, p.Pixel);
            minY = std::min(minY, p.Line);
            maxY = std::max(maxY, p.Line);
        }
        FX0 = (minX + maxX) / 2;
        FY0 = (minY + maxY) / 2;
        FScale = std::max({maxX - minX, maxY - minY, 1.0}) / 2;
        for (FTerms = P.size() >= 10 ? 6 : 3; FTerms >= 3; FTerms -= 3)
            if (Solve(P, V))
                return true;
        return false;
    }
    double operator()(double Pixel, double Line) const
    {
        const std::array<double, 6> t = Terms(Pixel, Line);
        double v = 0;
        for (std::size_t k = 0; k < FTerms; ++k)
            v += FC[k] * t[k];
        return v;
    }

private:
    std::array<double, 6> Terms(double Pixel, double Line) const
    {
        const double x = (Pixel - FX0) / FScale, y = (Line - FY0) / FScale;
        return {1.0, x, y, x * x, x * y, y * y};
    }
    // Normal equations by Gaussian elimination with partial pivoting; false when singular.
    bool Solve(const std::vector<TPlacePoint>& P, double TPlacePoint::*V)
    {
        const std::size_t n = FTerms;
        std::array<std::array<double, 7>, 6> m{};
        for (const TPlacePoint& p : P) {
            const std::array<double, 6> t = Terms(p.Pixel, p.Line);
            for (std::size_t r = 0; r < n; ++r) {
                for (std::size_t c = 0; c < n; ++c)
                    m[r][c] += t[r] * t[c];
                m[r][n] += t[r] * (p.*V);
            }
        }
        double scale = 0;
        for (std::size_t r = 0; r < n; ++r)
            scale = std::max(scale, m[r][r]);
        for (std::size_t c = 0; c < n; ++c) {
            std::size_t piv = c;
            for (std::size_t r = c + 1; r < n; ++r)
                if (std::fabs(m[r][c]) > std::fabs(m[piv][c]))
                    piv = r;
            if (!(std::fabs(m[piv][c]) > 1e-10 * scale))
                return false;
            std::swap(m[c], m[piv]);
            for (std::size_t r = 0; r < n; ++r) {
                if (r == c)
                    continue;
                const double f = m[r][c] / m[c][c];
                for (std::size_t k = c; k <= n; ++k)
                    m[r][k] -= f * m[c][k];
            }
        }
        for (std::size_t r = 0; r < n; ++r)
            FC[r] = m[r][n] / m[r][r];
        return true;
    }

    std::size_t FTerms = 3;
    std::array<double, 6> FC{};
    double FX0 = 0, FY0 = 0, FScale = 1;
};

const std::array<TCalibModel, 5> kCandidates = {cmEquiRect, cmUTM, cmMillerCylindrical, cmConicConformal,
                                                cmBiquadraticPn};

// Fits every model the points allow and keeps the best (see the header for the rule).
void ChooseModel(TGeoRefImport& R, const TCalibData& Geo, const TCalibData* UTM)
{
    int best = -1;
    bool bestSpare = false;
    double bestRms = 0;
    std::string why;
    for (TCalibModel m : kCandidates) {
        const TCalibData& d = m == cmUTM ? (UTM ? *UTM : Geo) : Geo;
        if ((m == cmUTM && !UTM) || d.NumCalQuads < MinCalibPoints(m))
            continue;
        TMapCalibration cal;
        cal.SetImageSize(R.Width, R.Height);
        cal.LoadCalibData(d, m);
        const TCalibResiduals res = CalibResiduals(d, cal.Fit(), R.Width, R.Height, false);
        R.Candidates.push_back({m, res.Diagnosis, res.RmsMetres, res.RmsPixels});
        const bool allValid = std::all_of(res.Quads.begin(), res.Quads.end(), [](const TQuadResidual& q) { return q.Valid; });
        if ((res.Diagnosis != cdgOK && res.Diagnosis != cdgNoRedundancy) || !allValid || !std::isfinite(res.RmsMetres)) {
            if (why.empty())
                why = res.Diagnosis != cdgOK && res.Diagnosis != cdgNoRedundancy ? CalibDiagnosisText(res)
                                                                                  : "the fits give no place for some points";
            continue;
        }
        const bool spare = res.Diagnosis == cdgOK;
        if (best < 0 || (spare && !bestSpare) || (spare == bestSpare && res.RmsMetres < bestRms - 0.001)) {
            best = static_cast<int>(R.Candidates.size()) - 1;
            bestSpare = spare;
            bestRms = res.RmsMetres;
        }
    }
    if (best < 0)
        Fail("the " + std::to_string(Geo.NumCalQuads) + " points give no usable calibration" +
             (why.empty() ? std::string() : ": " + why));
    R.Model = R.Candidates[static_cast<std::size_t>(best)].Model;
    const TCalibData& chosen = R.Model == cmUTM ? *UTM : Geo;
    R.Data.NumCalQuads = chosen.NumCalQuads;
    R.Data.CalQuads = chosen.CalQuads;
    R.Data.UTMZone = chosen.UTMZone;
    R.Data.UTMSouth = chosen.UTMSouth;
    R.Data.Ellipsoid = chosen.Ellipsoid;
    char buf[160];
    std::snprintf(buf, sizeof buf, "the smallest rms residual (%.3f m) of %zu models fitted to %d points%s",
                  bestRms, R.Candidates.size(), Geo.NumCalQuads,
                  bestSpare ? "" : "; no model has points to spare, so the residuals say nothing");
    R.Reason = buf;
}

// Places of the points at the centres of the pixels they fall in, inside the image, at most 200.
void FromPlacePoints(TGeoRefImport& R, std::vector<TPlacePoint> P, const TFrame& F)
{
    if (P.size() < 3)
        Fail("a calibration needs 3 points or more, the file has " + std::to_string(P.size()));
    TLocalFit lat, lon, north, east;
    const bool utm = F.Kind == TFrame::fkUTM;
    if (!lat.Fit(P, &TPlacePoint::Lat) || !lon.Fit(P, &TPlacePoint::Lon) ||
        (utm && (!north.Fit(P, &TPlacePoint::North) || !east.Fit(P, &TPlacePoint::East))))
        Fail("the points' pixels lie on one straight line");
    std::vector<TPlacePoint> kept;
    std::vector<std::pair<std::int32_t, std::int32_t>> pixels;
    int outside = 0, repeated = 0;
    for (TPlacePoint p : P) {
        const double fx = std::floor(p.Pixel), fy = std::floor(p.Line);
        if (!(fx >= 0 && fx < R.Width && fy >= 0 && fy < R.Height)) {
            ++outside;
            continue;
        }
        const auto px = std::make_pair(static_cast<std::int32_t>(fx), static_cast<std::int32_t>(fy));
        if (std::find(pixels.begin(), pixels.end(), px) != pixels.end()) {
            ++repeated;
            continue;
        }
        pixels.push_back(px);
        // Moved to the pixel's centre, (fx + 0.5, fy + 0.5) in image coordinates, by the change of the
        // local fit (never by its value: the point keeps its own residual).
        const double cx = fx + 0.5, cy = fy + 0.5;
        p.Lat += lat(cx, cy) - lat(p.Pixel, p.Line);
        p.Lon += lon(cx, cy) - lon(p.Pixel, p.Line);
        if (utm) {
            p.North += north(cx, cy) - north(p.Pixel, p.Line);
            p.East += east(cx, cy) - east(p.Pixel, p.Line);
        }
        p.Pixel = fx;
        p.Line = fy;
        kept.push_back(p);
    }
    if (outside > 0)
        R.Notes.push_back(std::to_string(outside) + " point(s) outside the " + std::to_string(R.Width) + " x " +
                          std::to_string(R.Height) + " image left out");
    if (repeated > 0)
        R.Notes.push_back(std::to_string(repeated) + " point(s) in a pixel that an earlier point has left out");
    if (kept.size() > static_cast<std::size_t>(MaxCalQuads)) {
        // Every k-th point, spread over the whole list.
        std::vector<TPlacePoint> thin;
        for (int i = 0; i < MaxCalQuads; ++i)
            thin.push_back(kept[static_cast<std::size_t>(i) * kept.size() / MaxCalQuads]);
        R.Notes.push_back(std::to_string(kept.size()) + " points thinned to " + std::to_string(MaxCalQuads) +
                          ", the most a calibration holds");
        kept = std::move(thin);
    }
    if (kept.size() < 3)
        Fail("only " + std::to_string(kept.size()) + " point(s) inside the " + std::to_string(R.Width) + " x " +
             std::to_string(R.Height) + " image; a calibration needs 3");
    TCalibData geo, grid;
    geo.Ellipsoid = grid.Ellipsoid = F.Ellipsoid;
    geo.UTMZone = -1;
    grid.UTMZone = F.Zone;
    grid.UTMSouth = F.South;
    for (const TPlacePoint& p : kept) {
        const auto x = static_cast<std::int32_t>(p.Pixel), y = static_cast<std::int32_t>(p.Line);
        geo.CalQuads[static_cast<std::size_t>(geo.NumCalQuads++)] = {p.Lat, p.Lon, x, y};
        grid.CalQuads[static_cast<std::size_t>(grid.NumCalQuads++)] = {p.North, p.East, x, y};
    }
    ChooseModel(R, geo, utm ? &grid : nullptr);
}

void FromGCPs(TGeoRefImport& R, const std::vector<TGroundControlPoint>& G, const TFrame& F)
{
    std::vector<TPlacePoint> P;
    int failed = 0;
    for (const TGroundControlPoint& g : G) {
        TPlacePoint p;
        p.Pixel = g.Pixel;
        p.Line = g.Line;
        if (!std::isfinite(g.Pixel) || !std::isfinite(g.Line) || !std::isfinite(g.X) || !std::isfinite(g.Y) ||
            !ToLonLat(F, g.X, g.Y, p.Lon, p.Lat)) {
            ++failed;
            continue;
        }
        p.East = g.X;
        p.North = g.Y;
        P.push_back(p);
    }
    if (failed > 0)
        R.Notes.push_back(std::to_string(failed) + " point(s) not a number or not transformable to latitude/longitude left out");
    FromPlacePoints(R, std::move(P), F);
}

// ---- geotransforms -------------------------------------------------------------------------------

void FromGeoTransform(TGeoRefImport& R, const std::array<double, 6>& GT, const TFrame& F, int GridSize)
{
    if (F.Kind != TFrame::fkTransform) {
        // Affine in the CRS's own coordinates: the world file's terms are the geotransform's at the
        // centre of the top-left pixel, half a pixel in from the corner the geotransform starts at.
        std::array<double, 3> x{GT[0] + 0.5 * GT[1] + 0.5 * GT[2], GT[1], GT[2]};
        std::array<double, 3> y{GT[3] + 0.5 * GT[4] + 0.5 * GT[5], GT[4], GT[5]};
        if (F.Kind == TFrame::fkGeographic && !F.LonFirst)
            std::swap(x, y);
        const TWorldFile w{x[1], y[1], x[2], y[2], x[0], y[0]};
        if (w.A * w.E - w.B * w.D == 0.0)
            Fail("the geotransform is degenerate (its pixel axes are parallel)");
        const bool utm = F.Kind == TFrame::fkUTM;
        R.Model = utm ? cmUTM : cmEquiRect;
        const TCalibData d = WorldFileToCalib(w, R.Width, R.Height, R.Model, utm ? F.Zone : -1, F.South);
        R.Data.NumCalQuads = d.NumCalQuads;
        R.Data.CalQuads = d.CalQuads;
        R.Data.UTMZone = d.UTMZone;
        R.Data.UTMSouth = d.UTMSouth;
        R.Data.Ellipsoid = F.Ellipsoid;
        R.Reason = utm ? "an affine transform in metres of UTM zone " + std::to_string(F.Zone) + (F.South ? " south" : " north")
                       : std::string("an affine transform in latitude/longitude");
        return;
    }
    // Another projection: its pixels sampled on a grid and fitted like control points.
    const int n = std::clamp(GridSize, 2, 14);
    std::vector<TGroundControlPoint> g;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const double px = std::nearbyint(i * (R.Width - 1.0) / (n - 1)) + 0.5;
            const double ln = std::nearbyint(j * (R.Height - 1.0) / (n - 1)) + 0.5;
            g.push_back({px, ln, GT[0] + GT[1] * px + GT[2] * ln, GT[3] + GT[4] * px + GT[5] * ln});
        }
    FromGCPs(R, g, F);
    R.Reason += " (a grid of " + std::to_string(n) + " x " + std::to_string(n) + " pixels of " + Quoted(F.Name) + ")";
    // The fit checked between the sampled pixels, at the centres of the grid's cells.
    TMapCalibration cal;
    cal.SetImageSize(R.Width, R.Height);
    cal.LoadCalibData(R.Data, R.Model);
    double sum = 0, worst = 0;
    int count = 0;
    for (int j = 0; j + 1 < n; ++j)
        for (int i = 0; i + 1 < n; ++i) {
            const std::int32_t x = static_cast<std::int32_t>(std::nearbyint((i + 0.5) * (R.Width - 1.0) / (n - 1)));
            const std::int32_t y = static_cast<std::int32_t>(std::nearbyint((j + 0.5) * (R.Height - 1.0) / (n - 1)));
            const double px = x + 0.5, ln = y + 0.5;
            double lon = 0, lat = 0;
            TCoords c;
            if (!ToLonLat(F, GT[0] + GT[1] * px + GT[2] * ln, GT[3] + GT[4] * px + GT[5] * ln, lon, lat) ||
                !cal.CalcPosition(TPoint{x, y}, c))
                continue;
            const double d = NearbyDistance(lat, lon, c.Latit, c.Longit, R.Data.Ellipsoid);
            sum += d * d;
            worst = std::max(worst, d);
            ++count;
        }
    if (count > 0) {
        R.CheckMaxMetres = worst;
        R.CheckRmsMetres = std::sqrt(sum / count);
        R.CheckPoints = count;
    }
}

// Without a coordinate system: latitude/longitude of WGS 84 when every coordinate could be one.
TSRS DegreesIfTheyLookLikeIt(const std::vector<std::pair<double, double>>& XY, const std::string& What,
                             std::vector<std::string>& Notes)
{
    for (const auto& [x, y] : XY)
        if (!(std::fabs(x) <= 360.0 && std::fabs(y) <= 90.0))
            Fail(What + " names no coordinate system and its coordinates are not degrees; give one (--crs, or "
                        "--zone for UTM)");
    Notes.push_back(What + " names no coordinate system; its coordinates look like degrees and are taken as WGS 84 "
                           "longitude/latitude");
    auto s = std::make_unique<OGRSpatialReference>();
    s->SetWellKnownGeogCS("WGS84");
    s->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return s;
}

void ImageSize(TGeoRefImport& R, const std::string& Image, const TGeoRefOptions& O, const std::string& What)
{
    if (O.Width > 0 && O.Height > 0) {
        R.Width = O.Width;
        R.Height = O.Height;
        return;
    }
    if (Image.empty())
        Fail("the image of " + What + " was not found: name it (--image) or give its size");
    TDataset ds = OpenRaster(Image);
    R.Width = GDALGetRasterXSize(ds.get());
    R.Height = GDALGetRasterYSize(ds.get());
}

// A raster GDAL opens with the base name of Beside (another extension), or "".
std::string ImageBeside(const fs::path& Beside)
{
    std::error_code ec;
    const fs::path dir = Beside.has_parent_path() ? Beside.parent_path() : fs::path(".");
    std::vector<fs::path> names;
    for (const fs::directory_entry& e : fs::directory_iterator(dir, ec))
        if (e.path() != Beside && e.path().stem() == Beside.stem() && e.is_regular_file(ec))
            names.push_back(e.path());
    std::sort(names.begin(), names.end());
    for (const fs::path& p : names) {
        const std::string ext = p.extension().string();
        if (ext == ".prj" || ext == ".xml" || ext == ".points" || ext == ".map" || ext == ".ovr")
            continue;
        TGdalErrorTrap trap;
        if (GDALDatasetH h = GDALOpenEx(p.string().c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr)) {
            GDALClose(h);
            return p.string();
        }
    }
    return {};
}

// ---- the formats -------------------------------------------------------------------------------------

void ImportDataset(TGeoRefImport& R, GDALDatasetH DS, const TGeoRefOptions& O, const std::string& What)
{
    R.Width = GDALGetRasterXSize(DS);
    R.Height = GDALGetRasterYSize(DS);
    TSRS user = UserSRS(O);
    if (const int n = GDALGetGCPCount(DS); n > 0) {
        TSRS srs = user ? std::move(user) : CopySRS(GDALGetGCPSpatialRef(DS));
        const GDAL_GCP* g = GDALGetGCPs(DS);
        std::vector<TGroundControlPoint> gcps;
        std::vector<std::pair<double, double>> xy;
        for (int i = 0; i < n; ++i) {
            gcps.push_back({g[i].dfGCPPixel, g[i].dfGCPLine, g[i].dfGCPX, g[i].dfGCPY});
            xy.emplace_back(g[i].dfGCPX, g[i].dfGCPY);
        }
        if (!srs)
            srs = DegreesIfTheyLookLikeIt(xy, What, R.Notes);
        const TFrame f = Classify(*srs, R.Notes);
        R.CRSName = f.Name;
        R.Source = std::to_string(n) + " ground control points";
        FromGCPs(R, gcps, f);
        return;
    }
    std::array<double, 6> gt{};
    if (GDALGetGeoTransform(DS, gt.data()) != CE_None)
        Fail(What + " has no georeferencing (neither a geotransform nor ground control points)");
    TSRS srs = user ? std::move(user) : CopySRS(GDALGetSpatialRef(DS));
    if (!srs) {
        const std::vector<std::pair<double, double>> corners = {
            {gt[0], gt[3]}, {gt[0] + gt[1] * R.Width + gt[2] * R.Height, gt[3] + gt[4] * R.Width + gt[5] * R.Height}};
        srs = DegreesIfTheyLookLikeIt(corners, What, R.Notes);
    }
    const TFrame f = Classify(*srs, R.Notes);
    R.CRSName = f.Name;
    R.Source = "geotransform";
    FromGeoTransform(R, gt, f, O.GridSize);
}

}  // namespace

bool HasGeoRef(const std::string& FName)
{
    TGdalErrorTrap trap;
    GDALDatasetH ds = GDALOpenEx(FName.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr);
    if (!ds)
        return false;
    // A file without one reports the identity (0, 1, 0, 0, 0, 1) and CE_Failure.
    std::array<double, 6> gt{};
    const bool result = GDALGetGCPCount(ds) > 0 || GDALGetGeoTransform(ds, gt.data()) == CE_None;
    GDALClose(ds);
    return result;
}

bool ReadRasterSize(const std::string& FName, std::int32_t& Width, std::int32_t& Height)
{
    TGdalErrorTrap trap;
    GDALDatasetH ds = GDALOpenEx(FName.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr);
    if (!ds)
        return false;
    Width = GDALGetRasterXSize(ds);
    Height = GDALGetRasterYSize(ds);
    GDALClose(ds);
    return Width > 0 && Height > 0;
}

TGeoRefImport ImportGeoRef(const std::string& FName, TGeoRefFormat Format, const TGeoRefOptions& Options)
{
    GdalSession();
    TGeoRefImport R;
    const TGeoRefOptions& O = Options;
    switch (Format) {
    case grfRaster: {
        TDataset ds = OpenRaster(FName);
        ImportDataset(R, ds.get(), O, Quoted(FName));
        R.Data.MapFName = O.Image.empty() ? FName : O.Image;
        break;
    }
    case grfMapFile: {
        // GDAL turns points that an affine transform fits to within a quarter pixel into that transform,
        // throwing away up to a quarter pixel of the map's curvature; only points that are affine to a
        // thousandth of a pixel are taken as affine here.
        TThreadConfig exactOnly("GDAL_GCPS_TO_GEOTRANSFORM_APPROX_THRESHOLD", "0.001");
        TDataset ds = OpenRaster(FName, "MAP");  // GDAL's driver of the .map calibration format
        ImportDataset(R, ds.get(), O, Quoted(FName));
        R.Source += " of a .map file";
        // The image the file names, as GDAL found it (the first file of the dataset that is not the .map).
        std::string image;
        CPLStringList files(GDALGetFileList(ds.get()));
        for (int i = 0; i < files.size(); ++i)
            if (fs::path(files[i]) != fs::path(FName) && image.empty())
                image = files[i];
        R.Data.MapFName = O.Image.empty() ? image : O.Image;
        break;
    }
    case grfWorldFile: {
        std::array<double, 6> gt{};
        {
            // GDAL reads any text as numbers (a word counts as 0): the six lines are checked first.
            std::ifstream in(FName);
            if (!in)
                Fail(Quoted(FName) + ": cannot be opened");
            TWorldFile w;
            std::string error;
            if (!ReadWorldFile(in, w, error))
                Fail(Quoted(FName) + ": " + error);
            TGdalErrorTrap trap;
            if (!GDALLoadWorldFile(FName.c_str(), gt.data()))
                Fail(Quoted(FName) + ": " + trap.Message("GDAL does not read it as a world file"));
        }
        const std::string image = O.Image.empty() ? ImageBeside(FName) : O.Image;
        ImageSize(R, image, O, "the world file " + Quoted(FName));
        TSRS srs = UserSRS(O);
        // The .prj beside the world file, else the one beside the image.
        std::vector<fs::path> prjs{fs::path(FName).replace_extension(".prj")};
        if (!image.empty())
            prjs.push_back(fs::path(image).replace_extension(".prj"));
        for (const fs::path& prj : prjs) {
            std::error_code ec;
            if (!srs && fs::is_regular_file(prj, ec))
                srs = SRSFromText(ReadText(prj), Quoted(prj.string()));
        }
        if (!srs) {
            const std::vector<std::pair<double, double>> corners = {
                {gt[0], gt[3]}, {gt[0] + gt[1] * R.Width + gt[2] * R.Height, gt[3] + gt[4] * R.Width + gt[5] * R.Height}};
            srs = DegreesIfTheyLookLikeIt(corners, "the world file " + Quoted(FName), R.Notes);
        }
        const TFrame f = Classify(*srs, R.Notes);
        R.CRSName = f.Name;
        R.Source = "world file";
        FromGeoTransform(R, gt, f, O.GridSize);
        R.Data.MapFName = image;
        break;
    }
    case grfPoints: {
        std::ifstream in(FName);
        if (!in)
            Fail(Quoted(FName) + ": cannot be opened");
        TPointsFile pf;
        std::string error;
        if (!ReadPointsFile(in, pf, error))
            Fail(Quoted(FName) + ": " + error);
        std::string image = O.Image;
        if (image.empty() && fs::path(FName).extension() == ".points") {
            std::error_code ec;
            const fs::path guess = fs::path(FName).replace_extension();
            if (fs::is_regular_file(guess, ec))
                image = guess.string();
        }
        ImageSize(R, image, O, Quoted(FName));
        TSRS srs = UserSRS(O);
        if (!srs && !pf.CRS.empty())
            srs = SRSFromText(pf.CRS, "the \"#CRS:\" line of " + Quoted(FName));
        if (!srs) {
            std::vector<std::pair<double, double>> xy;
            for (const TGroundControlPoint& g : pf.Points)
                xy.emplace_back(g.X, g.Y);
            srs = DegreesIfTheyLookLikeIt(xy, Quoted(FName), R.Notes);
        }
        if (pf.Disabled > 0)
            R.Notes.push_back(std::to_string(pf.Disabled) + " disabled point(s) left out");
        const TFrame f = Classify(*srs, R.Notes);
        R.CRSName = f.Name;
        R.Source = std::to_string(pf.Points.size()) + " control points of a .points file";
        FromGCPs(R, pf.Points, f);
        R.Data.MapFName = image;
        break;
    }
    }
    if (R.Model == cmUTM && R.Data.UTMZone == 60)
        R.Notes.push_back("UTM zone 60 is not written to calibration files: a reader of the file sees no zone");
    TMapCalibration cal;
    cal.SetImageSize(R.Width, R.Height);
    cal.LoadCalibData(R.Data, R.Model);
    R.Residuals = CalibResiduals(R.Data, cal.Fit(), R.Width, R.Height, true);
    return R;
}

}  // namespace qv
