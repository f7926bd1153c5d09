// The graticule finder's stages, shared by its source files. Both families go through one code path: the
// meridians' work image is transposed, so that every family's lines run along the first coordinate t
// ("running") and are placed by the second, u ("across"): a parallel is u = y(t = x), a meridian u = x(t = y).
#pragma once

#include <qvgeo/geomap/graticule_grid.h>
#include <qvgeo/graticule/graticule_detect.h>

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <utility>
#include <vector>

namespace qv::grat_detail {

// A line of one family found on the reduced work image: u = C0 + C1·t + C2·t² (work pixels), seen from
// From to To, with its place Pos at the family's reference running coordinate.
struct TLineCandidate {
    double C0 = 0.0, C1 = 0.0, C2 = 0.0;
    double From = 0.0, To = 0.0;
    double Strength = 0.0;  // mean ridge darkness of its peaks times their count
    double Pos = 0.0;
    int Index = 0;          // lattice number once the lattice is chosen
    double At(double t) const { return C0 + (C1 + C2 * t) * t; }
};

// Ridge map of lines running along x: how much darker each pixel is than the brightest of its vertical
// neighbourhood (a black-hat across the lines), clipped so that solid ink (text, symbols) weighs no more
// than a drawn line. Grey is the 8-bit work image, already turned for the family.
cv::Mat LineRidges(const cv::Mat& Grey, int KernelLength);

// Lines of one family on Ridge (CV_8U, lines along x): strips across the lines, a sheared projection per
// strip and slope, peaks linked from strip to strip into chains, chains merged and fitted. MinSpacing in
// work pixels; lines must be seen over at least MinSpan work pixels of t.
std::vector<TLineCandidate> FindLineCandidates(const cv::Mat& Ridge, double MaxRotation, double MinSpacing,
                                               double MinSpan);

// The largest regularly spaced subset of Candidates (spacing varying slowly, missing lines allowed and
// numbered), ordered by Pos with Index set from 0; empty when fewer than MinGratLines fit.
std::vector<TLineCandidate> SelectLattice(std::vector<TLineCandidate> Candidates, double MinSpacing);

// Value at lattice number At predicted by a fit of degree up to MaxDegree through (Index, Value) pairs.
double PredictFromNeighbours(const std::vector<std::pair<int, double>>& Others, int At, int MaxDegree = 2);

// The up to four lines nearest to line Keep[A] by lattice number, among the lines Keep, as (Index,
// Value) pairs.
std::vector<std::pair<int, double>> Neighbours(const std::vector<int>& Index, const std::vector<double>& Value,
                                               const std::vector<std::size_t>& Keep, std::size_t A);

// The lines (positions into Index) whose places keep the regularity of the family, the worst offender
// dropped first while four or more lines remain (the frame or a neatline near a grid position, a road).
// Each line is compared with a quadratic in the lattice number through its four nearest neighbours,
// which follows the slowly changing spacing of Mercator-like parallels and of perspective to a small
// fraction of the spacing; tolerance 1.5 pixels and 1 % of Spacing. Pos holds the lines' places at a few
// common running coordinates (near both ends of their common stretch, so that a line at the right place
// but at the wrong angle is caught too).
std::vector<std::size_t> RegularLines(const std::vector<int>& Index, const std::vector<std::vector<double>>& Pos,
                                      double Spacing);

// Read access to the caller's image along one family: Value(t, u) is the grey value at running
// coordinate t (a whole pixel) and fractional across coordinate u, linearly interpolated across.
struct TFamilyImage {
    const std::uint8_t* Pixels = nullptr;
    std::ptrdiff_t Stride = 0;
    int Width = 0, Height = 0;
    bool Transposed = false;  // meridians: t is y, u is x
    int RunLength() const { return Transposed ? Height : Width; }
    int AcrossLength() const { return Transposed ? Width : Height; }
    // u is clamped into the image.
    double Value(int t, double u) const;
};

// A line measured at full resolution.
struct TRefinedLine {
    bool Ok = false;
    double C0 = 0.0, C1 = 0.0, C2 = 0.0;      // u = C0 + C1·t + C2·t², full-resolution pixels
    double From = 0.0, To = 0.0, Rms = 0.0, Coverage = 0.0;
    double Open = 0.0;  // length of t over which the line could be measured inside the image
    std::vector<TGratPoint> Samples;          // (t, u) of the inlier centre points
    // For the standard error of the curve at t: the fit was made in s = (t - Mid) / Half, and the
    // curve's variance at t is Rms² · vᵀ·Cov·v with v = (1, s, s²).
    double Mid = 0.0, Half = 1.0;
    std::array<double, 9> Cov{};
    double At(double t) const { return C0 + (C1 + C2 * t) * t; }
    double SigmaAt(double t) const;
};

struct TRefineParams {
    int Step = 4;            // pixels of t between samples
    int AlongHalf = 8;       // profiles averaged over t ± AlongHalf
    int AcrossHalf = 6;      // half-width of the window in which a line's centre is looked for
    double MaxShift = 6.0;   // the centre may lie this far from the prediction
    double SkipHalf = 10.0;  // no samples within this distance of a crossing line
};

// Measures the line predicted by Predict (u of full-resolution t) over the image's whole running length,
// skipping samples near the running coordinates in Crossings (sorted), and fits it robustly.
// The first pass looks CoarseError pixels further either side of the prediction.
TRefinedLine RefineLine(const TFamilyImage& Image, const std::function<double(double)>& Predict,
                        const std::vector<double>& Crossings, const TRefineParams& Params, double CoarseError,
                        double FixedC2 = std::numeric_limits<double>::quiet_NaN());

// The robust quadratic fit of points (t, u) sampled every Step pixels of t: iteratively reweighted, then
// least squares over the inliers (residual within MinTolerance or three robust sigmas). From and To leave
// out small groups of inliers isolated at either end; Coverage is the share of From..To sampled.
// A finite FixedC2 holds the curvature at that value.
TRefinedLine FitCurve(const std::vector<TGratPoint>& Points, double MinTolerance, int Step,
                      double FixedC2 = std::numeric_limits<double>::quiet_NaN());

// The centre of the dark line nearest to u0 in the profile across the line at t, averaged along the
// predicted curve (Shape gives u of t up to a constant), or false when there is no single clear line.
// Width, when given, receives the number of profile samples darker than half the peak.
bool MeasureCentre(const TFamilyImage& Image, int t, double u0, const std::vector<double>& Shape,
                   const TRefineParams& Params, double& Centre, int* Width = nullptr);

}  // namespace qv::grat_detail
