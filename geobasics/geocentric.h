// Conversion between geodetic coordinates (latitude, longitude, ellipsoidal height) on a catalogue
// ellipsoid and earth-centred, earth-fixed Cartesian coordinates.
#pragma once

#include <qvgeo/geobasics/ellipsoids.h>

namespace qv {

// Lat, Long in degrees, Height above the ellipsoid in metres; X, Y, Z in metres (X towards longitude 0
// on the equator, Z towards the north pole). Exact closed form; nothing is checked.
void GeoToCartesian(double Lat, double Long, double Height, TGeoEllipsoid Ellipsoid, double& X, double& Y,
                    double& Z);

// The inverse, by Bowring's closed formula without iteration: within 2 µm in position of the exact
// inverse for heights from −11 km to 1000 km (measured against GeographicLib's Geocentric, WGS 84).
// X, Y, Z in metres; Lat, Long in degrees, Height in metres.
//
// The longitude is the one-argument arc tangent of Y/X and always lies in [−90°, +90°]: a point with
// X < 0 comes back folded by 180° (true longitude 120° returns as −60°). This is kept on purpose for
// compatibility with existing results; CartesianToGeoUnfolded gives the full circle.
// Not for the spheres of the catalogue (the flattening is taken as 1/RecipFlattening, which is 1/0
// there) nor for points on the polar axis (X = Y = 0).
void CartesianToGeo(double X, double Y, double Z, TGeoEllipsoid Ellipsoid, double& Lat, double& Long,
                    double& Height);

// CartesianToGeo with the true longitude in [−180°, +180°] (two-argument arc tangent of Y and X); latitude
// and height are those of CartesianToGeo bit for bit. A point on the polar axis (X = Y = 0) gives latitude
// +90° (Z ≥ 0) or −90°, longitude 0 and height |Z| − b. Not for the spheres of the catalogue.
void CartesianToGeoUnfolded(double X, double Y, double Z, TGeoEllipsoid Ellipsoid, double& Lat, double& Long,
                            double& Height);

}  // namespace qv
