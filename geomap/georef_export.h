// Georeferenced export and import of a calibration: a raster VRT with ground control points, a world
// file for the affine models, a plain list of control points, and the readers that turn a world file or
// a control-point list back into a calibration record.
//
// Pixel conventions — the trap of this file. A calibration's pixel (x, y) is the pixel in column x and
// row y, and the position it carries is that of the pixel's centre. Image coordinates in a VRT and in a
// control-point list put (0, 0) at the top-left corner of the image, so the centre of pixel (x, y) is at
// (x + 0.5, y + 0.5) there. A world file, on the other hand, gives the position of the centre of the
// top-left pixel: its C and F are the calibration's position of pixel (0, 0), with no half-pixel shift.
//
// Coordinates: longitude and latitude in degrees (X, Y) for the geographic models, declared as EPSG:4326;
// easting and northing in metres for the UTM model, in the calibration's zone and hemisphere (EPSG
// 326zz/327zz on WGS 84, a WKT of the same projection on any other ellipsoid).
#pragma once

#include <qvgeo/geomap/calib_types.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace qv {

class TMapCalibration;

// A control point in image coordinates (see above) with its place: X longitude or easting, Y latitude
// or northing.
struct TGroundControlPoint {
    double Pixel = 0.0;
    double Line = 0.0;
    double X = 0.0;
    double Y = 0.0;
    friend bool operator==(const TGroundControlPoint&, const TGroundControlPoint&) = default;
};

// Where the control points of an export come from.
enum TGCPSource : std::uint8_t {
    gcsAuto,             // reference points where a polynomial of the model's own form refits them to
                         // the same transform (equirect and utm: 3 or more, biquadraticpn: 6 or more),
                         // else the fit on a grid
    gcsReferencePoints,  // the calibration quads
    gcsFitGrid,          // the fit evaluated on GridSize x GridSize pixels spread over the whole image
};

// The control points of a calibration. The grid needs the image size (TMapCalibration::ImageSize) and
// skips pixels whose position is invalid. Raises EXELGeoMapError when fewer than 3 points result, when
// reference points are asked of a model without quads, or for GridSize outside 2..100.
std::vector<TGroundControlPoint> CalibGCPs(const TMapCalibration& Cal, TGCPSource Source = gcsAuto,
                                           int GridSize = 5);

// The coordinate system of the exported coordinates: "EPSG:4326" for the geographic models,
// "EPSG:326zz"/"EPSG:327zz" for UTM on WGS 84, otherwise the WKT of UTMWKT.
std::string CalibCRS(const TCalibData& Data, TCalibModel Model);
// The UTM projection of a zone and hemisphere on an ellipsoid as WKT (version 1, one line), with the
// EPSG authority on WGS 84: what a ".prj" file beside a world file holds.
std::string UTMWKT(std::int32_t Zone, bool South, TGeoEllipsoid Ellipsoid);

// The bands of an image file as a raster reader presents them: 1 band with a colour table for BMP of up
// to 8 bits a pixel, 3 bands (red, green, blue) for deeper BMP, 1 (grey), 3 (RGB) or 4 (CMYK) for JPEG.
struct TImageBands {
    int Count = 0;
    std::vector<std::uint32_t> Palette;  // entries 0x00RRGGBB, for a 1-band palette image
};
// False for files that are not a readable BMP or JPEG header.
bool ReadImageBands(const std::string& FName, TImageBands& Bands);

// Writes a VRT over the map image SourceFName (written into the file as given; RelativeToVRT tells a
// reader to resolve it beside the VRT) with the image size of Cal, the bands, the control points and
// CalibCRS. File names are escaped for XML. Raises EXELGeoMapError when the image size is unknown or
// the stream fails.
void WriteGeoRefVRT(std::ostream& F, const TMapCalibration& Cal, const std::vector<TGroundControlPoint>& GCPs,
                    const std::string& SourceFName, bool RelativeToVRT, const TImageBands& Bands);

// A world file: X = A·x + B·y + C, Y = D·x + E·y + F for the centre of pixel (x, y).
struct TWorldFile {
    double A = 0.0, D = 0.0, B = 0.0, E = 0.0, C = 0.0, F = 0.0;  // in file order
    friend bool operator==(const TWorldFile&, const TWorldFile&) = default;
};

// The world file of an affine calibration (cmEquiRect: degrees; cmUTM: metres in the calibration's
// zone). Raises EXELGeoMapError for the other models, whose pixel-to-place relation is not affine.
TWorldFile CalibWorldFile(const TMapCalibration& Cal);
// Six lines in fixed-point notation, trailing zeros dropped; Metres selects the decimals: 8 for the
// pixel terms and 4 for C and F in metres, 12 and 10 in degrees (10 micrometres at the origin, a
// millimetre 10000 pixels away). More would only write out the least-squares noise of the fit, whose
// relative size grows with the image (about 1e-13 of C for a few thousand pixels). A world file read
// and written again reproduces its text when it has no more digits than these.
void WriteWorldFile(std::ostream& Out, const TWorldFile& W, bool Metres);
// Exactly six numbers, one a line (blank lines at the end allowed); false with a message otherwise, or
// when the pixel axes are degenerate (A·E − B·D = 0).
bool ReadWorldFile(std::istream& In, TWorldFile& W, std::string& Error);
// A calibration record of an image of Width x Height pixels with four quads at the centres of its corner
// pixels: cmEquiRect with degrees, or cmUTM with metres in Zone (1..60) and hemisphere South. MapFName,
// caption and ellipsoid are left to the caller. Raises EXELGeoMapError for other models or bad sizes.
TCalibData WorldFileToCalib(const TWorldFile& W, std::int32_t Width, std::int32_t Height, TCalibModel Model,
                            std::int32_t Zone = -1, bool South = false);

// A control-point list: comment lines ("#") naming the model, image, coordinate system and columns, then
// one point a line, "pixel line X Y", numbers in their shortest exact form.
void WriteGCPList(std::ostream& Out, const TMapCalibration& Cal, const std::vector<TGroundControlPoint>& GCPs);
// Reads "pixel line X Y" lines, skipping blank and "#" lines. False with "line N: ..." on the first bad
// line or when there are no points.
bool ReadGCPList(std::istream& In, std::vector<TGroundControlPoint>& GCPs, std::string& Error);
// The quads of a control-point list: each image coordinate becomes the pixel whose centre is nearest
// (rounded half to even), X and Y become longitude and latitude (or easting and northing). Raises
// EXELGeoMapError for more than 200 points or a pixel beyond 32 bits.
void GCPsToCalib(const std::vector<TGroundControlPoint>& GCPs, TCalibData& Data);

}  // namespace qv
