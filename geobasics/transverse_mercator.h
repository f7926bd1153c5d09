// The Transverse Mercator projection about any central meridian, the UTM grid built on it (zones with the
// Norway and Svalbard exceptions, latitude bands, scale factor 0.9996, false origins) and the UPS grid of
// the polar caps.
//
// The Transverse Mercator kernel is the classic series in the longitude difference up to its eighth
// power, without a scale factor of its own; UTM applies 0.9996 on top. Being a truncated series it loses
// accuracy away from the central meridian. Measured against GeographicLib's exact Transverse Mercator
// (WGS 84, latitudes −80° to 84° every 0.1°, grid distance on the UTM plane):
//
//   distance from the central meridian   forward     inverse     forward + inverse round trip
//   up to 1°                              0.1 µm      0.3 µm      0.2 µm
//   up to 3° (every standard UTM zone)    16 µm       4 µm        12 µm
//   up to 4°                              76 µm       23 µm       58 µm
//   up to 6° (widened zones 32V, 31X-37X) 0.8 mm      0.4 mm      0.7 mm
//   up to 9°                              11 mm       14 mm       15 mm
//
// UPS is a closed form (with a converging Newton iteration in the inverse) and agrees with GeographicLib's
// polar stereographic UPS to 0.1 µm.
//
// Nothing here throws or reports errors: a position outside the UTM area gives zone 0.
#pragma once

#include <qvgeo/geobasics/ellipsoids.h>

#include <string>

namespace qv {

inline constexpr double UTMScaleFactor = 0.9996;
inline constexpr double UTMFalseEasting = 500000.0;         // metres
inline constexpr double UTMFalseNorthingSouth = 10000000.0;  // metres, southern hemisphere only
inline constexpr double UPSScaleFactor = 0.994;
inline constexpr double UPSFalseOrigin = 2000000.0;          // metres, both easting and northing

// Length of the meridian arc from the equator to latitude Phi (radians) on the ellipsoid, in metres;
// negative for southern latitudes.
double ArcLengthOfMeridian(double Phi, TGeoEllipsoid Ellipsoid);

// Central meridian of UTM zone Zone (1 to 60) in radians: (6·Zone − 183)°. 0 for any other zone number.
double UTMCentralMeridian(int Zone);

// Transverse Mercator kernel. Phi, Lambda: latitude and longitude (radians); Lambda0: central meridian
// (radians). X: easting from the central meridian, Y: northing from the equator, both in metres, with
// no scale factor and no false origin.
void LatLongToTM(double Phi, double Lambda, double Lambda0, TGeoEllipsoid Ellipsoid, double& X, double& Y);

// Inverse of LatLongToTM. X, Y: unscaled easting and northing (metres) relative to the central meridian
// Lambda0 (radians) and the equator. Phi, Lambda: latitude and longitude (radians). A northing past a
// pole continues over it on the opposite meridian (Lambda about Lambda0 + π), so Phi stays within ±π/2
// as long as the series holds; within a few kilometres of a pole and off the central meridian it does not
// (the terms in tan φ blow up) and the result means nothing. Lambda is not wrapped into ±π.
void TMToLatLong(double X, double Y, double Lambda0, TGeoEllipsoid Ellipsoid, double& Phi, double& Lambda);

// UTM zone and latitude band of a position. Lat, Long in degrees. Inside the UTM area
// (−80 ≤ Lat ≤ 84, −180 ≤ Long < 180) Zone is 1 to 60 and Band one of "CDEFGHJKLMNPQRSTUVWX" (X runs
// from 72° to 84° inclusive); the Norway (32V) and Svalbard (31X, 33X, 35X, 37X) exceptions apply.
// Outside the area Zone is 0 and Band is a blank (' ').
void GeoToUTMZone(double Lat, double Long, int& Zone, char& Band);

// The zone as text, zone number followed by the band letter ("33T"); empty outside the UTM area.
std::string GeoToUTMZone(double Lat, double Long);

// Geographic to UTM. Lat, Long in degrees. Zone: 1 to 60, from GeoToUTMZone (band discarded).
// Easting, Northing in metres with the false easting 500000 m; a negative projected northing gets the
// southern false northing 10000000 m added, so the hemisphere is decided by the sign of the northing
// and is not returned. Outside the UTM area Zone is 0 and the point is still projected about the
// Greenwich meridian: the caller must test Zone.
void LatLongToUTM(double Lat, double Long, TGeoEllipsoid Ellipsoid, int& Zone, double& Easting,
                  double& Northing);

// UTM to geographic. Easting, Northing in metres; Zone 1 to 60 (any other value silently uses the
// Greenwich meridian); South: the northing carries the southern false northing. Lat, Long in degrees.
// Long runs on continuously across the zone's edges: west of zone 1 it is below −180, east of zone 60
// above 180, so that a map calibrated in such a zone keeps corners and outlines that do not jump across
// the globe. WrapLongitude brings it into the range that LatLongToUTM takes. A grid position past a pole
// comes back on the opposite meridian (with the TMToLatLong caveat near the poles).
void UTMToLatLong(double Easting, double Northing, int Zone, bool South, TGeoEllipsoid Ellipsoid, double& Lat,
                  double& Long);

// The same meridian in −180 ≤ Long < 180 (the range of the UTM area), exactly: a longitude already in
// that range is returned with its bits, 180 becomes −180, ±540 becomes −180. NaN and infinities are
// returned as they are.
double WrapLongitude(double Long);

// Geographic to UPS. Lat, Long in degrees; latitude 0 and above counts as the northern cap. X, Y:
// UPS easting and northing in metres, scale factor 0.994, false origin 2000000 m. The latitude is not
// checked to be polar.
void LatLongToUPS(double Lat, double Long, TGeoEllipsoid Ellipsoid, double& X, double& Y);

// UPS to geographic. X, Y in metres; South: southern cap. Lat, Long in degrees. The polar distance is
// found by at most six Newton rounds from the spherical solution.
void UPSToLatLong(double X, double Y, bool South, TGeoEllipsoid Ellipsoid, double& Lat, double& Long);

}  // namespace qv
