// Helpers of the viewer's map files (map_files.cpp, which also holds the window's file and calibration
// workflows).
#pragma once

#include <qvgeo/geoatlas/geo_atlas.h>

#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace viewer {

// The settings keys of the folders and single calibration files the window registers at every start.
inline constexpr const char* kFoldersKey = "atlas/folders";
inline constexpr const char* kMapsKey = "atlas/maps";

// What a file or folder given to the viewer (File → Open, dropped on the window) holds, by its name and,
// for ".xml", its first lines: a folder of maps, a calibration file, a landmark file, waypoints (GPX, KML,
// GeoPackage, GeoJSON), or a picture to show (any raster, a ".map" calibration with its image).
enum class TPathKind { Missing, Folder, Calibration, Landmarks, Waypoints, Picture };
TPathKind KindOfPath(const std::string& Path);

// "1 map", "0 maps", "2 maps".
QString MapCountText(std::int64_t N);

// The BMP and JPEG images of Folder (not its subfolders) that no calibration file there names, in name
// order, each with the reason it is not a map of the atlas.
std::vector<qv::TAtlasFileProblem> UncalibratedImages(const std::string& Folder);

// The text of a calibration file with its first calibration (the one the atlas registers and a reader
// without id takes) replaced by Write's text for that calibration's id, from the comment line before its
// header to its "</geomap>"; every other line kept byte for byte, so that the file's other calibrations
// survive a save. When Old holds no calibration: Write's text for DefaultId with the XML header line.
std::string ReplaceFirstCalibration(const std::string& Old, const std::string& DefaultId,
                                    const std::function<std::string(const std::string& Id, bool WithHeader)>& Write);

}  // namespace viewer
