// Distances and bearings for the viewer's rubber band: the geodesic between two places on the ellipsoid of
// the map's calibration (the places a calibration gives are on that ellipsoid, so measuring them on WGS 84
// would mix datums), and the measure of a band of several legs as the status bar shows it.
#pragma once

#include <qvgeo/geobasics/ellipsoids.h>

#include <QString>

namespace viewer {

struct TGeodesicMeasure {
    double Metres = 0.0;   // length of the geodesic
    double Bearing = 0.0;  // azimuth at the start, degrees clockwise from north, 0 <= Bearing < 360
};

// The shortest path between (Lat1, Long1) and (Lat2, Long2), degrees, on Ellipsoid (its catalogued axes).
// Accurate to the nanometre (GeographicLib's geodesic); nearly antipodal points included. Two equal points
// give 0 m and bearing 0.
TGeodesicMeasure MeasureGeodesic(double Lat1, double Long1, double Lat2, double Long2, qv::TGeoEllipsoid Ellipsoid);

// "743 m", "12.35 km", "144.6 km": whole metres below 1 km, then 10 m, then 100 m steps.
QString DistanceText(double Metres);

// A rubber band of one or more legs. Begin anchors it, Leg closes the leg that ends at the given place and
// starts the next there, Text describes the leg being drawn to a place with the total so far.
class TBandMeasure {
public:
    void Begin(double Lat, double Long, qv::TGeoEllipsoid Ellipsoid);
    void Leg(double Lat, double Long);
    // "144.6 km, bearing 209.3°"; with closed legs also "(total 289.2 km, 2 legs)".
    QString Text(double Lat, double Long) const;
    bool Active() const { return FActive; }
    void End() { FActive = false; }

private:
    bool FActive = false;
    qv::TGeoEllipsoid FEllipsoid = qv::gelWGS84;
    double FLat = 0.0, FLong = 0.0;  // start of the current leg
    double FClosed = 0.0;            // metres of the legs closed so far
    int FLegs = 0;
};

}  // namespace viewer
