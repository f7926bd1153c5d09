// TMapCalibration: the pushed image, change notices, reference-point editing and the refit sequence that
// follows every edit.
#include <qvgeo/geomap/calibration.h>

#include <qvgeo/geomap/calib_internal.h>
#include <qvgeo/geomap/calib_points.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/support/errors.h>

#include <filesystem>
#include <system_error>

namespace qv {

using calib_detail::WrapMul;
using calib_detail::WrapSub;

namespace {

constexpr std::string_view kWrongModelAdd =
    "current calibration model does not support this version of AddCalibPoint";
constexpr std::string_view kWrongModelRemove =
    "current calibration model does not support this version of RemoveCalibPoint";

bool IsQuadModel(TCalibModel m)
{
    return m >= cmBiquadraticPn && m <= cmUTM;
}

// Index (0-based) of the first line with exactly this kind and value, or -1.
int FindLine(const TCalibData& D, TGratLineKind Kind, double Value)
{
    return FindCalLine(D, Kind, Value) - 1;
}

// Removes point p (0-based) from line l by moving the line's last point into its slot; an emptied line
// is replaced by the last line.
void RemoveLinePoint(TCalibData& D, int l, int p)
{
    TCalibLine& line = D.CalLines[l];
    const int n = ValidLinePoints(line);
    if (n > 0) {
        line.CalPoints[p] = line.CalPoints[n - 1];
        line.NumPoints = n - 1;
    }
    if (line.NumPoints <= 0) {
        const int last = ValidCalLines(D) - 1;
        D.CalLines[l] = D.CalLines[last];
        D.NumCalLines = last;
    }
}

}  // namespace

TMapCalibration::TMapCalibration() = default;

void TMapCalibration::AssignCalibration(const TMapCalibration& Source)
{
    if (&Source == this)
        return;
    FCalibData = Source.FCalibData;
    FFit = Source.FFit;
    FEdit = Source.FEdit;
    Changed(ccPoints | ccModel | ccFit | ccCaption | ccUTMZone | ccImage);
}

// ---- the image -----------------------------------------------------------------------------------------

void TMapCalibration::ImageSize(std::int32_t& Width, std::int32_t& Height) const
{
    Width = FEdit.OwnImageWidth;
    Height = FEdit.OwnImageHeight;
}

void TMapCalibration::SetImageSize(std::int32_t Width, std::int32_t Height)
{
    FEdit.OwnImageWidth = Width < 0 ? 0 : Width;
    FEdit.OwnImageHeight = Height < 0 ? 0 : Height;
}

void TMapCalibration::SetMapImgName(const std::string& FName)
{
    std::error_code ec;
    if (FName.empty() || !std::filesystem::is_regular_file(FName, ec)) {
        FEdit.OwnImageName.clear();
        FEdit.OwnImageWidth = 0;
        FEdit.OwnImageHeight = 0;
    } else {
        // A file whose header cannot be read keeps the previous size, as a map control keeps its
        // previous picture for an image type it cannot load.
        std::int32_t w = 0, h = 0;
        if (ReadImageSize(FName, w, h))
            SetImageSize(w, h);
        FEdit.OwnImageName = FName;
    }
    Changed(ccImage);
}

void TMapCalibration::SetMapCaption(std::string Value)
{
    if (Value == FCalibData.Caption)
        return;
    FCalibData.Caption = std::move(Value);
    Changed(ccCaption);
}

void TMapCalibration::RaiseComponentError(std::string_view Text) const
{
    throw EXELGeoMapError(ComponentMessage(FComponentName, Text));
}

// ---- refit --------------------------------------------------------------------------------------------

void TMapCalibration::RunModelFit()
{
    std::int32_t w = 0, h = 0;
    ImageSize(w, h);
    ReplaceFit([&](TCalibFit& f) {
        f.SetProjection(FCalibData);
        f.FitModel(FCalibData, w, h);
    });
}

bool TMapCalibration::RecalcGratMat()
{
    bool ok = false;
    ReplaceFit([&](TCalibFit& f) {
        f.SetProjection(FCalibData);
        ok = f.FitGratMat(FCalibData);
    });
    return ok;
}

void TMapCalibration::CalcEquiRectCalibration()
{
    ReplaceFit([&](TCalibFit& f) { f.FitEquiRect(FCalibData); });
}

void TMapCalibration::CalcBiquadraticCalibration()
{
    ReplaceFit([&](TCalibFit& f) { f.FitBiquadratic(FCalibData); });
}

void TMapCalibration::CalcMillerCylCalibration()
{
    ReplaceFit([&](TCalibFit& f) { f.FitMillerCyl(FCalibData); });
}

void TMapCalibration::CalcConicCalibration()
{
    std::int32_t w = 0, h = 0;
    ImageSize(w, h);
    ReplaceFit([&](TCalibFit& f) { f.FitConic(FCalibData, w, h); });
}

void TMapCalibration::Refit(bool WithGratMat, unsigned What)
{
    std::int32_t w = 0, h = 0;
    ImageSize(w, h);
    // One new fit for the whole sequence: a reader never sees the graticule of one state with the
    // coefficients of another.
    TChangeNotice::TBatch batch(FNotice);
    ReplaceFit([&](TCalibFit& f) {
        f.SetProjection(FCalibData);
        if (WithGratMat)
            f.FitGratMat(FCalibData);
        f.FitModel(FCalibData, w, h);
    });
    CalcExtentsAndResolution();
    Changed(What);
}

void TMapCalibration::RecalcCalibration()
{
    Refit(true, ccFit);
}

void TMapCalibration::ScaleCalibPoints(double Factor)
{
    using calib_detail::RoundPixelSaturated;
    TCalibData& d = FCalibData;
    for (int l = 0; l < ValidCalLines(d); ++l) {
        TCalibLine& line = d.CalLines[l];
        for (int p = 0; p < ValidLinePoints(line); ++p) {
            line.CalPoints[p].X = RoundPixelSaturated(line.CalPoints[p].X * Factor);
            line.CalPoints[p].Y = RoundPixelSaturated(line.CalPoints[p].Y * Factor);
        }
    }
    for (int q = 0; q < ValidCalQuads(d); ++q) {
        d.CalQuads[q].MapX = RoundPixelSaturated(d.CalQuads[q].MapX * Factor);
        d.CalQuads[q].MapY = RoundPixelSaturated(d.CalQuads[q].MapY * Factor);
    }
    Refit(true, ccPoints);
}

void TMapCalibration::SetCalibModel(TCalibModel Value)
{
    TChangeNotice::TBatch batch(FNotice);
    ReplaceFit([Value](TCalibFit& f) { f.SetModel(Value); });
    Refit(true, ccModel);
}

bool TMapCalibration::SetCalibModel(TCalibModel Value, TMathProgress* Progress)
{
    std::int32_t w = 0, h = 0;
    ImageSize(w, h);
    // Built aside as Refit(true) builds it, installed only when the fit ran to its end.
    TCalibFit next = FFit;
    next.SetModel(Value);
    next.SetProjection(FCalibData);
    next.FitGratMat(FCalibData);
    next.FitModel(FCalibData, w, h, Progress);
    if (Progress && Progress->Abort)
        return false;
    TChangeNotice::TBatch batch(FNotice);
    FFit = std::move(next);
    CalcExtentsAndResolution();
    Changed(ccModel | ccFit);
    return true;
}

bool TMapCalibration::LoadCalibData(const TCalibData& Data, TCalibModel Model)
{
    TChangeNotice::TBatch batch(FNotice);
    FCalibData = Data;
    Changed(ccPoints | ccModel | ccCaption | ccUTMZone);
    ReplaceFit([Model](TCalibFit& f) { f.SetModel(Model); });
    const bool ok = RecalcGratMat();
    RunModelFit();
    return ok;
}

void TMapCalibration::SetUTMZone(std::int32_t Value)
{
    if (Value < 1 || Value > 60 || (Value == FCalibData.UTMZone && Value == FFit.UTMZone()))
        return;
    TChangeNotice::TBatch batch(FNotice);
    FCalibData.UTMZone = Value;
    ReplaceFit([this](TCalibFit& f) { f.SetProjection(FCalibData); });
    Changed(ccUTMZone);
}

void TMapCalibration::SetUTMHemisphere(THemisphere Value)
{
    const bool south = Value == hemiSouth;
    if (south == FCalibData.UTMSouth && south == FFit.UTMSouth())
        return;
    TChangeNotice::TBatch batch(FNotice);
    FCalibData.UTMSouth = south;
    ReplaceFit([this](TCalibFit& f) { f.SetProjection(FCalibData); });
    Changed(ccUTMZone);
}

// ---- adding points ------------------------------------------------------------------------------------

bool TMapCalibration::AddCalibPoint(TGratLineKind LineKind, double LineValue, std::int32_t x, std::int32_t y)
{
    if (CalibModel() != cmParabolicIp)
        RaiseComponentError(kWrongModelAdd);
    // A full record or line drops the point silently.
    AppendLinePoint(FCalibData, LineKind, LineValue, TPoint{x, y});
    Refit(true, ccPoints);
    return false;
}

bool TMapCalibration::AddCalibPoint(double Lat, double Long, std::int32_t x, std::int32_t y)
{
    if (CalibModel() != cmBiquadraticPn && CalibModel() != cmConicConformal && CalibModel() != cmMillerCylindrical &&
        CalibModel() != cmEquiRect)
        RaiseComponentError(kWrongModelAdd);
    if (AppendCalQuad(FCalibData, TCalQuad{Lat, Long, x, y}) != caAppended) {
        Changed(ccPoints);
        return false;
    }
    Refit(false, ccPoints);
    return true;
}

bool TMapCalibration::AddCalibPoint(double Northing, double Easting, std::int32_t Zone, THemisphere Hemisphere,
                                    std::int32_t x, std::int32_t y)
{
    if (CalibModel() != cmUTM)
        RaiseComponentError(kWrongModelAdd);
    if (Zone != FCalibData.UTMZone || (Hemisphere == hemiSouth) != FCalibData.UTMSouth)
        RaiseComponentError("UTM zone parameter changed");
    const int n = ValidCalQuads(FCalibData);
    if (n >= MaxCalQuads) {
        Changed(ccPoints);
        return false;
    }
    FCalibData.UTMZone = Zone;
    FCalibData.UTMSouth = Hemisphere == hemiSouth;
    FCalibData.CalQuads[n] = TCalQuad{Northing, Easting, x, y};
    FCalibData.NumCalQuads = n + 1;
    Refit(false, ccPoints);
    return true;
}

// ---- removing and restoring ---------------------------------------------------------------------------

bool TMapCalibration::RemoveCalibPoint(TGratLineKind LineKind, double LineValue, std::int32_t x, std::int32_t y)
{
    if (CalibModel() != cmParabolicIp)
        RaiseComponentError(kWrongModelRemove);
    TCalibData& d = FCalibData;
    const int l = FindLine(d, LineKind, LineValue);
    if (l >= 0) {
        const int n = ValidLinePoints(d.CalLines[l]);
        // Without a match the scan ends on the last point, which is then the one removed.
        int p = 0;
        while (p < n - 1 && !(d.CalLines[l].CalPoints[p] == TPoint{x, y}))
            ++p;
        RemoveLinePoint(d, l, p);
    }
    Refit(true, ccPoints);
    return false;
}

bool TMapCalibration::RemoveCalibPoint(std::int32_t x, std::int32_t y)
{
    TCalibData& d = FCalibData;
    bool removed = false;
    // Squared distances are formed in wrapping 32-bit arithmetic and then compared as floats; a wrapped
    // (negative) value therefore wins, exactly as the stored calibrations were edited.
    auto dist2 = [x, y](TPoint p) {
        const std::int32_t dx = WrapSub(p.X, x), dy = WrapSub(p.Y, y);
        return static_cast<double>(static_cast<std::int32_t>(
            static_cast<std::uint32_t>(WrapMul(dx, dx)) + static_cast<std::uint32_t>(WrapMul(dy, dy))));
    };
    if (CalibModel() == cmParabolicIp) {
        int bestLine = -1, bestPoint = -1;
        double best = 0.0;
        const int nl = ValidCalLines(d);
        for (int l = 0; l < nl; ++l) {
            const int np = ValidLinePoints(d.CalLines[l]);
            for (int p = 0; p < np; ++p) {
                const double dd = dist2(d.CalLines[l].CalPoints[p]);
                if (bestLine < 0 || dd < best) {
                    best = dd;
                    bestLine = l;
                    bestPoint = p;
                }
            }
        }
        if (bestLine >= 0) {
            const TCalibLine& line = d.CalLines[bestLine];
            FEdit.ParaIpOops = TParaIpOops{line.LineType, line.LineValue, line.CalPoints[bestPoint].X,
                                      line.CalPoints[bestPoint].Y};
            FEdit.RestoreParaIpOK = true;
            RemoveLinePoint(d, bestLine, bestPoint);
            removed = true;
        }
    } else if (IsQuadModel(CalibModel())) {
        int bestQuad = -1;
        double best = 0.0;
        const int nq = ValidCalQuads(d);
        for (int q = 0; q < nq; ++q) {
            const double dd = dist2(TPoint{d.CalQuads[q].MapX, d.CalQuads[q].MapY});
            if (bestQuad < 0 || dd < best) {
                best = dd;
                bestQuad = q;
            }
        }
        if (bestQuad >= 0) {
            FEdit.BiQuadOops = d.CalQuads[bestQuad];
            FEdit.RestoreBiQuadOK = true;
            d.CalQuads[bestQuad] = d.CalQuads[nq - 1];
            d.NumCalQuads = nq - 1;
            removed = true;
        }
    }
    Refit(true, ccPoints);
    return removed;
}

void TMapCalibration::RestoreLastDeletedCalPoint()
{
    TChangeNotice::TBatch batch(FNotice);
    if (CalibModel() == cmParabolicIp) {
        if (FEdit.RestoreParaIpOK) {
            AddCalibPoint(FEdit.ParaIpOops.LineKind, FEdit.ParaIpOops.LineValue, FEdit.ParaIpOops.X, FEdit.ParaIpOops.Y);
            FEdit.RestoreParaIpOK = false;
        }
    } else if (IsQuadModel(CalibModel())) {
        // Under cmUTM the geographic overload rejects the model and raises; the point stays restorable.
        if (FEdit.RestoreBiQuadOK) {
            AddCalibPoint(FEdit.BiQuadOops.Latitude, FEdit.BiQuadOops.Longitude, FEdit.BiQuadOops.MapX, FEdit.BiQuadOops.MapY);
            FEdit.RestoreBiQuadOK = false;
        }
    }
}

// ---- clearing -----------------------------------------------------------------------------------------

void TMapCalibration::ClearCalibData()
{
    TChangeNotice::TBatch batch(FNotice);
    TCalibData& d = FCalibData;
    d.NumCalLines = 0;
    for (TCalibLine& line : d.CalLines)
        line.NumPoints = 0;
    d.Corners = {};
    d.Resolution = 0.0;
    d.CalQuads = {};
    d.NumCalQuads = 0;
    d.UTMZone = -1;
    d.UTMSouth = false;
    d.Ellipsoid = gelWGS84;
    ReplaceFit([this](TCalibFit& f) {
        f.SetProjection(FCalibData);
        f.ClearGratMatAndLinearSets();
    });
    Changed(ccPoints | ccUTMZone);
}

void TMapCalibration::Clear()
{
    TChangeNotice::TBatch batch(FNotice);
    ClearCalibData();
    ReplaceFit([](TCalibFit& f) { f.SetModel(cmUndefined); });
    FCalibData.MapFName.clear();
    FCalibData.Caption.clear();
    SetMapImgName(std::string());
    Changed(ccModel | ccCaption);
}

}  // namespace qv
