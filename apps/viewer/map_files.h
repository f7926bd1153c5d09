// Helpers of the viewer's map files (map_files.cpp, which also holds the window's file and calibration
// workflows).
#pragma once

#include <qvgeo/geoatlas/geo_atlas.h>

#include <QString>

#include <cstdint>
#include <string>
#include <vector>

namespace viewer {

// "1 map", "0 maps", "2 maps".
QString MapCountText(std::int64_t N);

// The BMP and JPEG images of Folder (not its subfolders) that no calibration file there names, in name
// order, each with the reason it is not a map of the atlas.
std::vector<qv::TAtlasFileProblem> UncalibratedImages(const std::string& Folder);

}  // namespace viewer
