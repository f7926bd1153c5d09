// Pieces of the synthetic scans (scan_generator.h): the random numbers, strokes drawn with an exact centre
// line, and the map content that is printed over or under a graticule.
#pragma once

#include <opencv2/core.hpp>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace qvtest::scan {

inline constexpr double Pi = 3.14159265358979323846;
inline constexpr double Rad = Pi / 180;

// Only mt19937's integers are used from the standard library's random machinery: its distributions
// differ between implementations, ours do not, so a seed gives the same scan everywhere.
class TRandom {
public:
    explicit TRandom(std::uint32_t Seed) : FGen(Seed) {}
    // [0, 1) with 53 random bits.
    double Uniform()
    {
        const std::uint64_t a = FGen() >> 5, b = FGen() >> 6;
        return (static_cast<double>(a) * 67108864.0 + static_cast<double>(b)) / 9007199254740992.0;
    }
    double Range(double Lo, double Hi) { return Lo + (Hi - Lo) * Uniform(); }
    int Int(int Lo, int Hi) { return Lo + static_cast<int>(Uniform() * (Hi - Lo + 1)); }  // Lo..Hi
    bool Chance(double P) { return Uniform() < P; }
    double Gauss() { return std::sqrt(-2.0 * std::log(1.0 - Uniform())) * std::cos(2 * Pi * Uniform()); }
    std::uint32_t Next() { return FGen(); }

private:
    std::mt19937 FGen;
};

using TLine = std::vector<cv::Point2d>;

// Coverage of a pixel = clamp(Width / 2 + 0.5 - d, 0, 1) with d the distance of its centre from the
// stroke's centre line: the box-filtered coverage of a straight stroke, symmetric about its centre, so
// that the line's darkness is centred on the exact curve (OpenCV's anti-aliased lines sit up to 0.05 px
// off and come out wider than asked). Strokes of one layer merge by the maximum, so crossings and joints
// are no darker than a line.
class TStrokeLayer {
public:
    TStrokeLayer(int W, int H);
    // Dash > 0: dashes of Dash pixels and gaps of Gap pixels by arc length, the phase running on over
    // the vertices.
    void Stroke(const TLine& Line, double Width, double Dash = 0, double Gap = 0);
    // Img (8-bit BGR) = Img·(1 - a) + Colour·a with a = coverage·Opacity; the layer is cleared.
    void Composite(cv::Mat& Img, const cv::Scalar& Colour, double Opacity = 1.0);

private:
    void Segment(cv::Point2d A, cv::Point2d B, double Width);
    cv::Mat FCov;
};

// Tinted areas (woods, lakes, built-up land), translucent so that what lies below shows through.
void DrawAreas(cv::Mat& Img, TRandom& R);
// Rivers, roads (some cased), straight lines a few degrees off the image axes (a railway, a border),
// place names and point symbols, all drawn over whatever is there.
void DrawFeatures(cv::Mat& Img, TRandom& R);

}  // namespace qvtest::scan
