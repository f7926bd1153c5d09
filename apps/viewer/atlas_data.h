// The viewer's bundled atlas: maps generated on first use into a data folder (nothing large is kept in
// the repository), the UTM-calibrated Vienna scan copied from the samples, the sample GeoJSON imported
// into a geographic database beside them.
#pragma once

#include <string>

namespace viewer {

struct TAtlasFiles {
    std::string MapDir;        // the calibration files and images the atlas registers
    std::string DBName;        // the geographic database (Austria: borders, rivers, lakes, towns, roads)
    std::string LandmarkFile;  // sample landmarks (Vienna sights), set id "sights"
    std::string SymbolFile;    // the symbol catalogue of the landmark editor (read from the samples)
};

// Fills DataDir (created when missing) unless it already holds an atlas of this layout; a second call
// costs only a few file checks. Raises std::runtime_error when a sample is missing or a file cannot be
// written.
TAtlasFiles PrepareBundledAtlas(const std::string& DataDir, const std::string& SamplesDir);

// The samples folder: $QVGEO_SAMPLES when set, the installed share/qvgeo/samples beside the program, or
// the source tree's data/samples this program was built from.
std::string FindSamplesDir(const std::string& ProgramDir);

// The equirectangular world map's geographic rectangle (degrees) and its graticule spacing.
inline constexpr double WorldLatMin = -90, WorldLatMax = 90, WorldLongMin = -180, WorldLongMax = 180;

}  // namespace viewer
