// The calibration records of a map: model and graticule-line enumerations, corner positions, reference
// points (graticule-line points and calibration quads) and the TCalibData record with its array limits.
// These are shared by the calibration object, the calibration file, the map control and the atlas.
#pragma once

#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/support/geometry_types.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

// Ordinals are those of the calibration file's model keywords; keep the order.
enum TCalibModel : std::uint8_t {
    cmParabolicIp, cmBiquadraticPn, cmConicConformal, cmMillerCylindrical, cmEquiRect, cmUTM, cmUndefined
};
inline constexpr int NumCalibModels = 7;

// The model keywords of the calibration file, indexed by TCalibModel.
inline constexpr std::array<std::string_view, NumCalibModels> CalibModelKeywords = {
    "parabolicip", "biquadraticpn", "conicconformal", "millercylindrical", "equirect", "utm", "undefined"};

enum TGratLineKind : std::uint8_t { gtlMeridian, gtlParallel };

enum TCorners : std::uint8_t { gcoTopLeft, gcoBottomLeft, gcoBottomRight, gcoTopRight };

// Geographic positions of the four corner pixels of the map image, indexed by TCorners.
using TCornerArray = std::array<TCoords, 4>;

// A calibration quad: a pixel and its geographic position in degrees. Under the UTM model Latitude holds
// the northing and Longitude the easting, both in metres.
struct TCalQuad {
    double Latitude = 0.0;
    double Longitude = 0.0;
    std::int32_t MapX = 0;
    std::int32_t MapY = 0;
    friend bool operator==(const TCalQuad&, const TCalQuad&) = default;
};

inline constexpr int MaxCalLines = 25;         // graticule lines per map
inline constexpr int MaxCalLinePoints = 10;    // points per graticule line
inline constexpr int MaxCalQuads = 200;        // calibration quads per map

// A drawn meridian (LineValue = its longitude) or parallel (LineValue = its latitude), in degrees, and
// the pixels that lie on it. Only CalPoints[0 .. NumPoints-1] are meaningful; the public numbering of
// the points is 1-based.
struct TCalibLine {
    TGratLineKind LineType = gtlMeridian;
    double LineValue = 0.0;
    std::int32_t NumPoints = 0;
    std::array<TPoint, MaxCalLinePoints> CalPoints{};
    friend bool operator==(const TCalibLine&, const TCalibLine&) = default;
};

// The calibration of one map. Counts may be set by callers that fill the record directly; every routine
// of the library clamps them to the array limits before indexing.
struct TCalibData {
    std::string MapFName;       // file name of the map image
    std::string Caption;
    TCornerArray Corners{};
    double Resolution = 0.0;    // metres per pixel along the middle row; 0 = unknown
    std::int32_t NumCalLines = 0;
    std::array<TCalibLine, MaxCalLines> CalLines{};
    std::int32_t NumCalQuads = 0;
    std::array<TCalQuad, MaxCalQuads> CalQuads{};
    std::int32_t UTMZone = 0;
    bool UTMSouth = false;
    TGeoEllipsoid Ellipsoid = gelWGS84;
    friend bool operator==(const TCalibData&, const TCalibData&) = default;
};

// The counts of a record, clamped to 0 .. the array limit: safe loop bounds over data of unknown origin.
inline int ValidCalLines(const TCalibData& D) { return D.NumCalLines < 0 ? 0 : (D.NumCalLines > MaxCalLines ? MaxCalLines : D.NumCalLines); }
inline int ValidCalQuads(const TCalibData& D) { return D.NumCalQuads < 0 ? 0 : (D.NumCalQuads > MaxCalQuads ? MaxCalQuads : D.NumCalQuads); }
inline int ValidLinePoints(const TCalibLine& L) { return L.NumPoints < 0 ? 0 : (L.NumPoints > MaxCalLinePoints ? MaxCalLinePoints : L.NumPoints); }

}  // namespace qv
