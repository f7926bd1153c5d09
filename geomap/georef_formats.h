// Two more plain-text georeferencing formats beside those of georef_export.h: the `.map` calibration
// format (a header line, an image name, a datum line, a projection line and up to 30 "PointNN,xy,..."
// lines in degrees and minutes) and the `.points` control-point list of raster georeferencing tools
// (an optional "#CRS: <wkt>" line, a header, then "mapX,mapY,pixelX,pixelY,enable,dX,dY,residual").
// Writing them needs no GDAL; reading a `.map` is GDAL's job (gdalio/georef_import.h), reading a
// `.points` file is done here because GDAL does not read it.
//
// Pixel conventions, the trap of both formats (see georef_export.h for ours): a calibration's pixel
// (x, y) carries the place of the pixel's centre, image coordinate (x + 0.5, y + 0.5).
// - `.points`: pixelX is the image coordinate across, pixelY the image coordinate down *negated* (the
//   image's y axis points up there), so the centre of the top-left pixel is "0.5,-0.5".
// - `.map`: "xy" holds whole numbers, and GDAL reads them as image coordinates: "xy, 10, 20" is the
//   top-left corner of pixel (10, 20), half a pixel from its centre. The writer therefore puts each
//   point at the corner of its pixel and gives it the place the calibration has there (the mean of the
//   four pixel centres around the corner), so that GDAL and the calibration agree on every pixel.
#pragma once

#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/geomap/georef_export.h>

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

class TMapCalibration;

// The first line of a `.map` calibration file, which readers check before anything else.
extern const std::string_view MapFileMagic;

// Most points a `.map` file holds (Point01 .. Point30); readers ignore any beyond.
inline constexpr int MaxMapFilePoints = 30;

// The places of a `.map` file: the calibration's fit on a grid of 5 x 5 pixels spread over the image
// (not the reference points, whose residuals a reader would fit differently from this calibration);
// latitude and longitude in degrees on the calibration's ellipsoid, written as datum "WGS 84" in a
// latitude/longitude projection (a calibration names an ellipsoid, never a datum). ImageName is written
// as the image line (readers look for it as written, then beside the `.map`), Title as the title line.
// Raises EXELGeoMapError without a model, without an image size or when a place is not valid.
void WriteMapFile(std::ostream& Out, const TMapCalibration& Cal, const std::string& ImageName,
                  const std::string& Title);

// A `.points` file of the calibration's control points (CalibGCPs with Source): "#CRS:" with the WKT
// of CalibCRS, the 8-column header, and one enabled point a line with its residual in pixels under the
// calibration's own fit (dX, dY in the file's axes: across and up). Raises EXELGeoMapError as
// CalibGCPs does.
void WritePointsFile(std::ostream& Out, const TMapCalibration& Cal, TGCPSource Source = gcsAuto);

// The WKT (version 1, one line) of latitude/longitude in degrees on Ellipsoid: EPSG:4326 on WGS 84.
std::string GeographicWKT(TGeoEllipsoid Ellipsoid);

// A `.points` file read: the CRS line's text (empty when there is none) and the enabled points as image
// coordinates (Pixel = pixelX, Line = -pixelY) with X = mapX, Y = mapY.
struct TPointsFile {
    std::string CRS;
    std::vector<TGroundControlPoint> Points;
    int Disabled = 0;  // points with enable 0, left out
};

// Reads a `.points` file. Blank lines are skipped; the header (either column set, "pixel" or "source"
// naming the image columns) must come before the points; every point line has the header's number of
// comma-separated fields, finite numbers, enable 0 or 1. False with "line N: ..." for the first bad
// line, for a 201st enabled point, or with a message when the file has no header or no enabled point.
bool ReadPointsFile(std::istream& In, TPointsFile& File, std::string& Error);

}  // namespace qv
