// Finding the graticule of a scanned map: the drawn parallels and meridians, straight or gently curved,
// turned by up to about ±12°, under JPEG noise, uneven paper, stains and map content that crosses them,
// and their intersections to a fraction of a pixel. The image work runs on OpenCV's imgproc; the grid
// logic (which dark lines form a regular lattice, where a line is missing) is ours.
//
// The result is a TGratGrid (geomap/graticule_grid.h); FitGraticule turns it into a calibration once the
// user has given two values. An image without a graticule gives Found = false and "no graticule found",
// never a guess.
//
// Units: pixels of the image given, pixel centres at whole numbers, y growing downwards.
#pragma once

#include <qvgeo/geomap/graticule_grid.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace qv {

// An 8-bit grey image the caller owns: Height rows of Width bytes, Stride bytes apart.
struct TGreyImage {
    const std::uint8_t* Pixels = nullptr;
    std::int32_t Width = 0, Height = 0;
    std::ptrdiff_t Stride = 0;
};

struct TGratDetectOptions {
    double MaxRotation = 12.0;     // degrees either way of the image axes searched for lines
    double MinSpacing = 20.0;      // pixels: closer lines are not two lines of one graticule
    // Called now and then with the share done (0..1); returning false stops the search, which then
    // returns Found = false with Message "cancelled".
    std::function<bool(double Done)> Progress;
};

// Finds the graticule of Image. Never raises for image content; raises EXELGeoMapError for an image
// that is not one (null pixels, a size below 32 x 32, a stride shorter than a row).
TGratGrid DetectGraticule(const TGreyImage& Image, const TGratDetectOptions& Options = {});

}  // namespace qv
