// TCalibFit: one fitted calibration — the model, the coefficient sets its fits produced, the graticule
// rows and the UTM zone, hemisphere and ellipsoid — with the transforms between map pixels and
// geographic positions as const members.
//
// It is a value. A copy is a snapshot that nothing done later to the calibration it came from (points
// added or removed, a new model, a refit) can change: TMapCalibration builds a new fit after every edit
// and assigns it whole. A painter, the atlas or a worker thread copies TMapCalibration::Fit() on the
// owning thread and then reads its copy for as long as it likes.
//
// Units: latitude and longitude in degrees; northing and easting (UTM model) in metres; pixels are
// columns and rows of the unmagnified image with the origin at its top-left corner, y growing downwards.
#pragma once

#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/matrix.h>

#include <array>
#include <cstdint>
#include <vector>

namespace qv {

// Coefficients of a function of two variables u, v: c[0] + c[1]·u + c[2]·v.
using TLinearPars = std::array<double, 3>;
// Coefficients of c[0] + c[1]·u + c[2]·v + c[3]·u² + c[4]·u·v + c[5]·v².
using TQuadraticPars = std::array<double, 6>;

// The parabola through the points of one graticule line as the parabolic model's graticule draws it: a
// parallel as y = K0 + K1·x + K2·x², a meridian as x = K0 + K1·y + K2·y² (pixels). Lines of 1 or 2 points
// (or 3 on fewer distinct abscissae) get TCurveFit's straight-line fallback, K2 = 0; a line of no points
// is not Drawn.
struct TLineParabola {
    bool Parallel = false;
    bool Drawn = false;
    double K0 = 0.0, K1 = 0.0, K2 = 0.0;
};

class TCalibFit {
public:
    // Model cmUndefined, a graticule matrix of one zero row, all coefficient sets zero, zone -1, WGS 84.
    TCalibFit();

    TCalibModel Model() const { return FModel; }
    void SetModel(TCalibModel Value) { FModel = Value; }
    // Takes the UTM zone, hemisphere and ellipsoid that the UTM transforms use from Data.
    void SetProjection(const TCalibData& Data);
    std::int32_t UTMZone() const { return FUTMZone; }
    bool UTMSouth() const { return FUTMSouth; }
    TGeoEllipsoid Ellipsoid() const { return FEllipsoid; }

    // ---- fitting (calibration_fit.cpp) ----
    // Each refits one model's sets from Data's reference points and leaves the other models' sets as
    // they are. None raises on bad geometry: a fit that cannot be made leaves zeroed (equirect,
    // biquadratic) or the previous (Miller, conic) coefficients. Progress: see least_squares.h; null
    // means the calling thread's ProcStat, MathFeedBackProc and AbortMathProc. An aborted fit leaves
    // zeroed (equirect, biquadratic) or the previous (conic) coefficients.
    //
    // The graticule matrix from the lines of 3 points or more; true when 2 parallels and 2 meridians
    // could be fitted (otherwise the matrix becomes one zero row). Also the parabola of every line, of
    // any number of points (LineParabolas), whatever the result.
    bool FitGratMat(const TCalibData& Data);
    void FitEquiRect(const TCalibData& Data, TMathProgress* Progress = nullptr);
    void FitBiquadratic(const TCalibData& Data, TMathProgress* Progress = nullptr);
    void FitMillerCyl(const TCalibData& Data);
    // Width and Height of the map image in pixels bound the start of the apex search. One progress step
    // per round of the search, whose step halves from 1000000 pixels to 1 (20 in all).
    void FitConic(const TCalibData& Data, std::int32_t Width, std::int32_t Height,
                  TMathProgress* Progress = nullptr);
    // The fit that Model() uses: biquadratic, conic, Miller, or the linear fit of equirect and UTM;
    // none for cmParabolicIp and cmUndefined (their graticule matrix is FitGratMat's).
    void FitModel(const TCalibData& Data, std::int32_t Width, std::int32_t Height,
                  TMathProgress* Progress = nullptr);
    // A graticule matrix of one zero row, no line parabolas, and the equirect and biquadratic sets zeroed.
    void ClearGratMatAndLinearSets();

    // ---- transforms (calib_transforms.cpp) ----
    // The position of pixel (x, y), converted once (the UTM model runs one inverse projection for both
    // coordinates). True when both coordinates are valid; an invalid coordinate is 0. Latit and Longit
    // are bit for bit what CalcLatitude and CalcLongitude return.
    bool CalcPosition(TPoint P, TCoords& Position) const;
    double CalcLatitude(std::int32_t x, std::int32_t y, bool& Valid) const;
    double CalcLongitude(std::int32_t x, std::int32_t y, bool& Valid) const;
    // Pixel of a position, rounded half to even. False on failure (and when the pixel is not finite or
    // outside the 32-bit range; x and y are then left unchanged). Under cmUndefined nothing is written
    // and the result is true.
    bool CalcPixelCoords(double Lat, double Long, std::int32_t& x, std::int32_t& y) const;
    // The same pixel unrounded (fractional column and row), for residuals finer than a pixel. False for
    // cmUndefined, a failed parabolic iteration or a non-finite result. Under the conic model x follows
    // from the unrounded row, so it may differ by more than rounding from CalcPixelCoords' column.
    bool CalcPixelPosition(double Lat, double Long, double& x, double& y) const;
    // Under cmUTM only: the pixel of a northing and easting in the map's zone (metres); the Position form
    // unrounded, false when not finite.
    bool CalcPixelPositionUTM(double Northing, double Easting, double& x, double& y) const;
    bool CalcPixelCoordsUTM(double Northing, double Easting, std::int32_t& x, std::int32_t& y) const;
    std::int32_t CalcUTMyFromNorthingX(double Northing, std::int32_t x) const;
    std::int32_t CalcUTMxFromEastingY(double Easting, std::int32_t y) const;

    // ---- fitted sets ----
    const TMatrix& GratMat() const { return FGratMat; }
    // One per graticule line of the record last given to FitGratMat, in its order: what a renderer draws
    // instead of fitting each line again on every paint.
    const std::vector<TLineParabola>& LineParabolas() const { return FLineParabolas; }
    const std::array<TLinearPars, 2>& EquRectSPPL() const { return FEquRectSPPL; }     // [0] x, [1] y
    const std::array<TLinearPars, 2>& EquRectPLSP() const { return FEquRectPLSP; }     // [0] lat, [1] long
    const std::array<TQuadraticPars, 2>& CalParsPLSP() const { return FCalParsPLSP; }  // [0] lat, [1] long
    const std::array<TQuadraticPars, 2>& CalParsSPPL() const { return FCalParsSPPL; }  // [0] x, [1] y
    // y-slope, y-offset, x-slope, x-offset
    const std::array<double, 4>& MillercylPar() const { return FMillercylPar; }
    // apex x, apex y (pixels), latitude slope, latitude offset, longitude slope, longitude offset
    const std::array<double, 6>& ConicPars() const { return FConicPars; }

private:
    // FGratMat's rows in plain form for the per-point parabolic transforms (rendering calls them for
    // every graticule point); rebuilt by SyncGratRows wherever FGratMat changes.
    struct TGratRow {
        double Kind, Value, K0, K1, K2;  // columns 1..5
    };
    void SyncGratRows();
    // Want: bit 0 latitude, bit 1 longitude; the other coordinate is left 0 and invalid where skipping it
    // saves work (not under UTM, whose one inverse projection gives both).
    void Position(std::int32_t x, std::int32_t y, unsigned Want, TCoords& C, bool& ValidLat, bool& ValidLong) const;
    void ParabolicPosition(std::int32_t x, std::int32_t y, unsigned Want, TCoords& C, bool& ValidLat,
                           bool& ValidLong) const;
    bool ParabolicPixel(double Lat, double Long, double& x, double& y) const;

    TCalibModel FModel = cmUndefined;
    std::int32_t FUTMZone = -1;
    bool FUTMSouth = false;
    TGeoEllipsoid FEllipsoid = gelWGS84;
    TMatrix FGratMat;
    std::vector<TGratRow> FGratRows;
    std::vector<TLineParabola> FLineParabolas;
    int FGratParallels = 0, FGratMeridians = 0;  // rows whose kind rounds to 1 and to 0
    std::array<TLinearPars, 2> FEquRectSPPL{};
    std::array<TLinearPars, 2> FEquRectPLSP{};
    std::array<TQuadraticPars, 2> FCalParsPLSP{};
    std::array<TQuadraticPars, 2> FCalParsSPPL{};
    std::array<double, 4> FMillercylPar{};
    std::array<double, 6> FConicPars{};
};

}  // namespace qv
