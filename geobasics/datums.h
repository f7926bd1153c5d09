// The table of 271 geodetic datums, numbered 1 to 271, each with its reference ellipsoid and its
// seven-parameter shift to WGS 84, and the Helmert datum shift between two of them through WGS 84.
#pragma once

#include <qvgeo/geobasics/ellipsoids.h>

#include <string_view>

namespace qv {

inline constexpr int NumGeoDatums = 271;
inline constexpr int GeoDatumWGS84 = 269;  // all parameters zero

// One datum. The parameters transform from this datum to WGS 84 in the position-vector convention.
// Several datums appear more than once with different regions: the number, not the name, identifies a
// datum. Names and regions are informational and spelled as catalogued (trailing blanks included).
struct TGeoDatum {
    std::string_view Name;    // up to 33 characters
    std::string_view Region;  // up to 35 characters
    TGeoEllipsoid Ellipsoid;
    double dX, dY, dZ;  // translation, metres
    double Scale;       // parts per million; the factor is 1 + Scale·10⁻⁶
    double rX, rY, rZ;  // rotations, arc-seconds
};

// The datum with this number (1 to 271); nullptr for any other number.
const TGeoDatum* GeoDatum(int Number);

// Status results of HelmertTransform.
inline constexpr int HelmertOk = 0;
inline constexpr int HelmertBadSrcDatum = -1;
inline constexpr int HelmertBadDstDatum = -2;
inline constexpr int HelmertBadLatitude = -3;
inline constexpr int HelmertBadLongitude = -4;

// Shifts a position from datum SrcDatum to datum DstDatum (numbers 1 to 271) through WGS 84: geodetic to
// geocentric on the source ellipsoid, the source datum's seven-parameter shift into WGS 84, the target
// datum's parameters negated out of WGS 84 (a first-order inverse: a round trip through two datums with
// rotations leaves residuals of the order of the rotation terms), geocentric to geodetic on the target
// ellipsoid. Lat, Long in degrees, Height in metres; NewLat, NewLong in degrees, NewHeight in metres.
// NewLong lies in [−90°, +90°] (see CartesianToGeo): longitudes beyond ±90° come back folded by 180°;
// HelmertTransformUnfolded gives the true longitude.
//
// The status is checked in this order, a later failure overwriting an earlier one: 0 success, −1 bad
// SrcDatum, −2 bad DstDatum, −3 latitude outside [−90, 90], −4 longitude outside [−180, 180]. With a
// bad latitude or longitude the shift is still computed (its outputs are meaningless); with a datum
// number outside the table the outputs are left unchanged. Nothing is raised.
int HelmertTransform(int SrcDatum, double Lat, double Long, double Height, int DstDatum, double& NewLat,
                     double& NewLong, double& NewHeight);

// HelmertTransform ending in CartesianToGeoUnfolded: the same status, latitude and height, and the true
// longitude in [−180°, +180°].
int HelmertTransformUnfolded(int SrcDatum, double Lat, double Long, double Height, int DstDatum, double& NewLat,
                             double& NewLong, double& NewHeight);

}  // namespace qv
