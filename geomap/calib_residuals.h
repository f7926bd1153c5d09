// How well a calibration fits its reference points: the fewest points each model needs, the residual of
// every calibration quad in pixels and in metres, their RMS, the worst point, a leave-one-out figure,
// and a diagnosis of reference points that make the figures meaningless (too few, no redundancy,
// repeated, collinear, outside the globe). geotool and the viewer's calibration editor both report
// these.
//
// Units: pixels of the unmagnified image (fractional: predictions are not rounded); metres on the
// ellipsoid of the fit (the record's, WGS 84 unless set).
#pragma once

#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/geomap/calib_types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

// Fewest reference points a model is fitted from: quads (6 biquadratic; 3 equirect, UTM, Miller, conic),
// graticule-line points for cmParabolicIp (12: two parallels and two meridians of 3 points), 0 for
// cmUndefined.
int MinCalibPoints(TCalibModel Model);

// Coefficients the model fits per pixel axis (equirect and UTM 3, biquadratic 6, Miller 2, conic 3: slope,
// offset and its share of the apex); 0 for cmParabolicIp and cmUndefined. With exactly this many quads
// every residual is 0 whatever the points are worth.
int CalibCoefficients(TCalibModel Model);

// Why residuals would mislead, in order of precedence.
enum TCalibDiagnosis : std::uint8_t {
    cdgOK,
    cdgNoModel,          // cmUndefined
    cdgTooFewPoints,     // fewer than MinCalibPoints (parabolic: no usable graticule)
    cdgOutOfRange,       // a latitude beyond ±90° or a longitude beyond ±180° (UTM: northing outside
                         // 0..10 000 000 m or easting outside 0..1 000 000 m)
    cdgRepeatedPoints,   // two quads on one pixel or at one position
    cdgCollinearPoints,  // all pixels, or all positions, on one straight line (Miller: on one parallel
                         // or one meridian)
    cdgNoRedundancy,     // as many quads as CalibCoefficients: the fit passes through every point
};

// One quad's residual. Dx, Dy are the predicted minus the measured pixel.
struct TQuadResidual {
    bool Valid = false;          // false when the fit gives no pixel for the quad's position
    double PredX = 0.0, PredY = 0.0;
    double Dx = 0.0, Dy = 0.0;
    double Pixels = 0.0;         // hypot(Dx, Dy)
    double Metres = -1.0;        // from the quad's position to the fit's position of its pixel; -1: none
    double LeaveOneOut = -1.0;   // pixels the prediction moves when the fit is made without this quad; -1: none
};

struct TCalibResiduals {
    TCalibModel Model = cmUndefined;
    TCalibDiagnosis Diagnosis = cdgOK;
    int Point1 = 0, Point2 = 0;  // the quads (1-based) the diagnosis names; 0: none
    std::vector<TQuadResidual> Quads;  // one per quad, in order (empty for cmParabolicIp, cmUndefined)
    double RmsPixels = 0.0;      // over the valid quads
    double RmsMetres = 0.0;
    int Worst = 0;               // the quad (1-based) with the largest pixel residual; 0: none
    int WorstLeaveOneOut = 0;    // the quad (1-based) whose prediction moves most; 0: not computed
};

// Residuals of Fit (fitted from Data under Fit.Model()) over Data's quads. Width and Height are the image
// size the conic refits of the leave-one-out need. LeaveOneOut refits once per quad (the conic search
// costs a millisecond or so per refit); it is computed only when one quad fewer still reaches
// MinCalibPoints and the diagnosis is cdgOK or cdgNoRedundancy.
TCalibResiduals CalibResiduals(const TCalibData& Data, const TCalibFit& Fit, std::int32_t Width,
                               std::int32_t Height, bool LeaveOneOut = true);

// The diagnosis in words, naming the points: "2 and 5 are the same pixel or position", "" for cdgOK.
std::string CalibDiagnosisText(const TCalibResiduals& R);

// Distance in metres between two nearby positions (degrees) on Ellipsoid, from the meridional and
// prime-vertical radii at their mean latitude: within 0.1 % of the geodesic up to 10 km apart, which is
// what residuals need. Longitudes are compared the short way round.
double NearbyDistance(double Lat1, double Long1, double Lat2, double Long2, TGeoEllipsoid Ellipsoid);

}  // namespace qv
