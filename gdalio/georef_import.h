// The georeferencing of a raster turned into a calibration record: a geotransform with its coordinate
// system (GeoTIFF or any raster GDAL reads), ground control points with theirs, a world file beside an
// image, a `.map` calibration file, a `.points` control-point list. The result says which calibration
// model was chosen and why, and how well it fits the points it was made from (per point and rms, in
// metres and pixels).
//
// How the model is chosen:
// - a geotransform (or world file) on a geographic coordinate system whose ellipsoid is one of ours,
//   in degrees from Greenwich: cmEquiRect, four points at the centres of the corner pixels;
// - a geotransform on a UTM zone (OGR's reading of the CRS) whose ellipsoid is one of ours, in metres:
//   cmUTM, four points likewise in easting/northing;
// - anything else, and every set of control points: places in latitude/longitude (on the CRS's own
//   datum when its ellipsoid is one of ours, else transformed to WGS 84, with a note), then every quad
//   model that the number of points allows is fitted (equirect, utm when the points come in a UTM zone,
//   Miller, conic, biquadratic) and the one with the smallest rms residual in metres wins. A model
//   that passes through every point (as many points as coefficients) only wins when no model has
//   points to spare; on equal residuals (within a millimetre) the simpler model, earlier in that list,
//   wins.
// A geotransform on another projection is sampled on a grid of GridSize x GridSize pixel centres.
//
// Pixels: control points come in image coordinates ((0, 0) the top-left corner of the image). Each
// becomes the pixel the coordinate falls in, floor(pixel), floor(line); its place is moved from the
// coordinate to that pixel's centre by the change, over that move, of a least-squares polynomial of all
// points (second order with 10 points or more, else first): the move is at most half a pixel, so the
// polynomial's own error hardly enters, and each point keeps its residual. Points that fall outside the image are
// left out with a note; more than 200 points (the most a calibration holds) are thinned evenly, except
// in a `.points` file, where they are an error.
#pragma once

#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calib_types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

enum TGeoRefFormat : std::uint8_t {
    grfRaster,     // a raster with a geotransform or control points (GeoTIFF and every format GDAL reads)
    grfWorldFile,  // a world file; the image beside it gives the size
    grfMapFile,    // a `.map` calibration file (read by GDAL, which also opens the image it names)
    grfPoints,     // a `.points` control-point list; the image beside it gives the size
};

struct TGeoRefOptions {
    // The image of a world file or `.points` file; empty: the image beside it with the same name (for
    // `.points`, the file's name without ".points"; for a world file, any raster GDAL opens with the
    // world file's base name). For a raster or `.map` it replaces the image the calibration names.
    std::string Image;
    // The coordinate system of the coordinates, overriding the file's (.prj, "#CRS:", the raster's):
    // anything OGR's SetFromUserInput takes ("EPSG:32633", a WKT, a PROJ string). Or a UTM zone 1..60
    // of WGS 84 with its hemisphere (Zone 0: none).
    std::string CRS;
    int Zone = 0;
    bool South = false;
    // Image size when no image can be opened (world file, `.points`); 0 x 0: from the image.
    std::int32_t Width = 0, Height = 0;
    int GridSize = 10;  // 2..14: pixels sampled per side for a geotransform on another projection
};

struct TGeoRefCandidate {
    TCalibModel Model = cmUndefined;
    TCalibDiagnosis Diagnosis = cdgOK;
    double RmsMetres = 0.0;
    double RmsPixels = 0.0;
};

struct TGeoRefImport {
    TCalibData Data;                 // MapFName: the image; quads; zone, hemisphere, ellipsoid
    TCalibModel Model = cmUndefined;
    std::int32_t Width = 0, Height = 0;
    std::string CRSName;             // the name of the coordinate system the coordinates came in
    std::string Source;              // "geotransform", "world file", "ground control points", ...
    std::string Reason;              // why Model was chosen
    std::vector<TGeoRefCandidate> Candidates;  // every model fitted, in the order tried (empty: affine data)
    TCalibResiduals Residuals;       // of Model over Data's quads (per point and rms, pixels and metres)
    // A geotransform on another projection: the calibration against the coordinate system's own places
    // at the pixels midway between the sampled ones, where a fit errs most (metres; -1: not computed).
    double CheckMaxMetres = -1.0, CheckRmsMetres = -1.0;
    int CheckPoints = 0;
    std::vector<std::string> Notes;  // what the user should know: datum transformed, points dropped, ...
};

// Reads FName as Format. Raises EXELGeoMapError with "georeference import: ..." and GDAL's own reason
// (a file GDAL refuses), "line N: ..." (a bad `.points` line) or what is missing (no coordinate system:
// give a CRS or zone; fewer than 3 points inside the image; no georeferencing at all).
TGeoRefImport ImportGeoRef(const std::string& FName, TGeoRefFormat Format, const TGeoRefOptions& Options = {});

// Whether GDAL finds georeferencing for the raster FName: a geotransform (its own, or a world file beside
// it) or ground control points. False, without a message, for files GDAL does not open.
bool HasGeoRef(const std::string& FName);

// The size in pixels of any raster GDAL reads; false (nothing printed) when GDAL cannot open it.
bool ReadRasterSize(const std::string& FName, std::int32_t& Width, std::int32_t& Height);

}  // namespace qv
