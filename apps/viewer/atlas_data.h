// The viewer's bundled atlas, made on first use in a data folder: the world map and the UTM-calibrated
// Vienna scan copied from the samples, regional maps drawn by the map generator, the sample GeoJSON
// imported into a geographic database beside them.
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

}  // namespace viewer
