// A graticule found in a scanned map, and the calibration it gives once two of its lines have values.
//
// The finder (graticule/graticule_detect.h) turns an image into a TGratGrid: the drawn parallels (mostly
// horizontal curves) and meridians (mostly vertical ones), each as a quadratic in pixel coordinates, and
// their intersections to a fraction of a pixel. Lines are numbered in a lattice: parallels from the top,
// meridians from the left, with a number left out wherever a line of the regular spacing was not seen,
// so that the numbers count spacings. Nothing here knows degrees yet.
//
// The user then gives values (TGratLabels): one parallel and one meridian with their latitude and
// longitude, and the spacing of each family, or two lines of a family whose difference gives it.
// FitGraticule turns every intersection into a calibration quad, fits each candidate model, picks the
// one that predicts left-out points best, and says whether the result deserves trust.
//
// Units: pixels are columns and rows of the image with pixel centres at whole numbers ((0, 0) is the
// centre of the top-left pixel), y growing downwards; latitudes, longitudes and spacings in degrees.
#pragma once

#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calib_types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

// A point with fractional pixel coordinates.
struct TGratPoint {
    double X = 0.0, Y = 0.0;
};

// One drawn line of the graticule: a parallel as y = C0 + C1·x + C2·x², a meridian as
// x = C0 + C1·y + C2·y² (pixels). It was seen from From to To along its running coordinate (x for a
// parallel, y for a meridian).
struct TGratCurve {
    TGratLineKind Kind = gtlParallel;
    int Index = 0;            // lattice number: parallels 0.. from the top, meridians 0.. from the left
    double C0 = 0.0, C1 = 0.0, C2 = 0.0;
    double From = 0.0, To = 0.0;
    double RmsPixels = 0.0;   // scatter of the measured centre points about the curve, across it
    double Coverage = 0.0;    // share of From..To where the line was actually seen, 0..1
    std::vector<TGratPoint> Samples;  // measured centre points the curve was fitted to
    // The other coordinate at running coordinate t (y of a parallel at column t, x of a meridian at row t).
    double At(double t) const { return C0 + (C1 + C2 * t) * t; }
};

// An intersection of parallel Row and meridian Col (lattice numbers).
struct TGratNode {
    int Row = 0, Col = 0;
    double X = 0.0, Y = 0.0;  // where the two curves cross
    double Sigma = 0.0;       // its estimated standard error, pixels
    bool Seen = false;        // both lines were seen near the crossing (not an extrapolation of either)
};

// What the finder returns. Found is false (with Message "no graticule found") unless at least
// MinGratLines parallels and as many meridians cross on a regular lattice.
struct TGratGrid {
    bool Found = false;
    std::string Message;
    std::int32_t Width = 0, Height = 0;     // of the image searched
    std::vector<TGratCurve> Parallels;      // by Index, ascending
    std::vector<TGratCurve> Meridians;      // by Index, ascending
    std::vector<TGratNode> Nodes;           // every crossing inside the image, row by row
    double Rotation = 0.0;                  // degrees, clockwise, of the parallels at the image centre
    double Confidence = 0.0;                // 0..1: how sure the finder is that this is a graticule
};

inline constexpr int MinGratLines = 3;
inline constexpr const char* NoGraticuleFound = "no graticule found";

// The grid of a picture reduced Sx times across and Sy times down (found on a reduced level of it), in
// the pixels of the picture itself, Width x Height: crossings, curves, samples, extents and scatter.
// A reduced pixel i covers picture pixels i·S .. (i + 1)·S, so that (pixel centres at whole numbers) a
// reduced coordinate u becomes (u + 0.5)·S - 0.5.
void ScaleGratGrid(TGratGrid& Grid, double Sx, double Sy, std::int32_t Width, std::int32_t Height);

// The values the user gives. For each family: the lattice number of one line and its value, and either
// the spacing (degrees from one line to the next in increasing lattice number: negative for parallels
// of a map with north up, whose numbers run southwards) or a second line and its value.
struct TGratAxisLabel {
    int Index = 0;
    double Value = 0.0;
    bool HasSecond = false;
    int Index2 = 0;         // with HasSecond: a second line of the family, not Index
    double Value2 = 0.0;
    double Spacing = 0.0;   // without HasSecond: degrees per lattice step, not 0
};

struct TGratLabels {
    TGratAxisLabel Parallels;  // values are latitudes
    TGratAxisLabel Meridians;  // values are longitudes
    // A kilometre grid instead of a graticule: with a zone 1..60 the "parallels" are lines of northing
    // and the "meridians" lines of easting, values in metres of that UTM zone, and the model is cmUTM.
    std::int32_t UTMZone = 0;
    bool UTMSouth = false;
};

// Latitude of parallel Index or longitude of meridian Index under Label; false (Value untouched) when the
// label cannot give one (two lines with one number, a spacing of 0 or not finite).
bool GratLineValue(const TGratAxisLabel& Label, int Index, double& Value);

// The models FitGraticule tries, in the order tried; on equal merit the earlier (simpler) one wins. The
// parabolic model, last, is made from the found lines themselves (TGratFitOptions::Parabolic).
inline constexpr TCalibModel GratCandidateModels[] = {cmEquiRect, cmMillerCylindrical, cmConicConformal,
                                                      cmBiquadraticPn, cmParabolicIp};

struct TGratCandidate {
    TCalibModel Model = cmUndefined;
    TCalibDiagnosis Diagnosis = cdgOK;
    double RmsPixels = 0.0;        // residuals of the fit at the quads it was made from
    // How far the model is expected to err between the crossings, pixels; -1: not fitted. Quad models: the
    // rms distance of each crossing (as found, unrounded) from the fit made without it. Parabolic: the
    // rms distance of the crossings of each line from the fit made without that line, divided by 4 for
    // an inner line (interpolating over two spacings errs four times as much as over one) and by 8 for
    // an outermost one (extrapolated).
    double LeaveOneOutRms = -1.0;
    double MaxPixels = 0.0;        // largest residual (parabolic: largest scaled left-out distance)
};

struct TGratCalibration {
    bool Ok = false;               // a calibration was made (false: Reason says why)
    bool Confident = false;        // and it deserves trust (false: Reason says what is doubtful)
    std::string Reason;
    // The quads (at most MaxCalQuads, spread over the grid) and, when the parabolic model was tried,
    // the found lines as graticule lines (at most MaxCalLines, 10 points each); WGS 84.
    TCalibData Data;
    TCalibModel Model = cmUndefined;
    std::vector<TGratCandidate> Candidates;  // in the order of GratCandidateModels
    TCalibFit Fit;                 // Model fitted from Data (with the grid image's size)
    TCalibResiduals Residuals;     // of Model over Data's quads
    std::vector<int> NodeOfQuad;   // for each quad, the index into the grid's Nodes it came from
};

struct TGratFitOptions {
    // Accepted as good: the chosen model's expected error between crossings (LeaveOneOutRms) within a
    // pixel, and no crossing further than 2.5 pixels from it (a crossing found wrong, or one the model
    // cannot follow).
    double MaxLeaveOneOutRms = 1.0;
    double MaxResidual = 2.5;
    // Whether the parabolic model is tried: it follows lines that no quad model does (a turned Miller
    // map, a conic one under perspective), but TGeoMap's calibration reader takes "parabolicip" for an
    // undefined model, so a map that must be saved and shown again had better not use it.
    bool Parabolic = true;
};

// The calibration of the grid under Labels. Nodes that are not Seen are used only when too few are.
TGratCalibration FitGraticule(const TGratGrid& Grid, const TGratLabels& Labels,
                              const TGratFitOptions& Options = {});

}  // namespace qv
