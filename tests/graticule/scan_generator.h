// Synthetic scans of graticule maps with their exact ground truth, for the graticule finder's tests and
// its benchmark. Each scan is made from a seed alone, so a failure can be replayed from its number.
//
// A scan starts from a base map: one of our own generated empty maps (dashed silver graticule, frame,
// labels), or a piece of a bundled map with a graticule drawn over it (equirectangular, Miller or conic,
// so that lines may curve), or a base without any grid. Map content is overprinted (roads, rivers, text,
// symbols, filled areas crossing the lines). Then it is "scanned": turned, scaled, given a perspective,
// lit unevenly, stained, blurred, given noise and compressed as JPEG at a random quality.
//
// Ground truth: Truth(lat, long) is the exact pixel of the scan (pixel centres at whole numbers) at which
// the drawn graticule places that position; every drawn line of latitude φ passes through
// Truth(φ, λ) for all λ on it.
#pragma once

#include <qvgeo/geomap/calib_types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qvtest {

enum TScanBase : std::uint8_t {
    sbEmptyMap,  // GenerateEmptyMap's image: its own dashed silver graticule
    sbWorld,     // a piece of the bundled world map, a graticule drawn over it
    sbNoGrid,    // a bundled map or generated content with no graticule at all
};

enum TScanProjection : std::uint8_t { spEquiRect, spMiller, spConic };

struct TScanRecipe {
    std::uint32_t Seed = 1;
    TScanBase Base = sbEmptyMap;
    TScanProjection Projection = spEquiRect;  // of the drawn graticule (sbEmptyMap: always equirect)
    double Rotation = 0.0;       // degrees, counter-clockwise as seen
    double Scale = 1.0;          // scan pixels per base-map pixel
    double Perspective = 0.0;    // 0..0.02: the scale changes by this share from one edge to the other
    int JpegQuality = 90;        // 40..90; 0: no compression
    double Blur = 0.0;           // Gaussian sigma, scan pixels
    double Noise = 0.0;          // Gaussian sigma, grey levels
    int Stains = 0;
    bool Clutter = true;         // overprinted map content
    // The scan's size is its own: the turned base map on a margin of paper. TargetPixels > 0 scales the
    // whole scan to about that many pixels (the 20 MP timing case).
    double TargetPixels = 0.0;
};

// Recipe N of the benchmark's fixed set (N = 0..199 graticule scans, 200.. scans without one): the
// parameters drawn from the seed within the ranges the finder is promised to handle.
TScanRecipe BenchmarkRecipe(int N);

struct TSyntheticScan {
    TScanRecipe Recipe;
    std::int32_t Width = 0, Height = 0;
    std::vector<std::uint8_t> Grey;  // Width x Height, 8-bit grey, after the JPEG round trip
    bool HasGrid = false;
    double LatSpacing = 0.0, LongSpacing = 0.0;   // degrees between drawn lines
    std::vector<double> Latitudes, Longitudes;    // values of the drawn parallels and meridians
    // The scan pixel of a position on the drawn graticule; false outside the base map.
    std::function<bool(double Lat, double Long, double& X, double& Y)> Truth;
    std::string Description;  // one line: base, projection, rotation, scale, perspective, quality, ...
    // The scan transform: base-map pixel (x, y, 1) -> scan pixel (X·w, Y·w, w), row-major, pixel centres
    // at whole numbers on both sides. Truth is the drawn graticule's base pixel sent through it.
    std::array<double, 9> Homography{};
    // sbEmptyMap: the calibration GenerateEmptyMap gave the base map (its nine quads); empty otherwise.
    qv::TCalibData BaseCalib;
};

TSyntheticScan MakeScan(const TScanRecipe& Recipe);

// Writes the scan as an 8-bit grey PNG (for looking at a failure); false when it cannot.
bool SaveScan(const TSyntheticScan& Scan, const std::string& FName);

}  // namespace qvtest
