// Helpers of the viewer's map files (map_files.cpp, which also holds the window's file and calibration
// workflows).
#pragma once

#include <qvgeo/geoatlas/geo_atlas.h>
#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/georef_import.h>
#endif

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
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

// A name the viewer shows as a picture in a folder of maps: BMP, JPEG, PNG, TIFF, JPEG 2000, WebP, GIF,
// a ".map" calibration (any case).
bool IsPictureName(const std::string& Path);

#if QVGEO_WITH_GDAL
// The georeferencing a picture brings: its calibration (model, points, residuals) and the picture's
// absolute path.
struct TFoundGeoRef {
    qv::TGeoRefImport Import;
    std::string Image;
};
#else
struct TFoundGeoRef {};
#endif
// The georeferencing of Path: a ".map" or ".points" file, a ".points" list beside the picture (Path +
// ".points"), or GDAL's (the file's own geotransform or control points, a world file beside it). None
// when there is none; none with the reason in Problem when there is one that cannot be used.
std::optional<TFoundGeoRef> FindGeoRef(const std::string& Path, std::string& Problem);
// Writes Found as a calibration file (id "1") into a folder of its own under CacheDir, beside a link to
// the picture, and returns the file's path: what the atlas registers for a georeferenced picture.
std::string CacheCalibrationOf(const TFoundGeoRef& Found, const std::string& CacheDir);
// The viewer's cache folder of such calibrations (the user's cache location, "georeferenced").
std::string ViewerCacheDir();

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
