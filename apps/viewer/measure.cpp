#include "measure.h"

#include <GeographicLib/Geodesic.hpp>

#include <cmath>

namespace viewer {

TGeodesicMeasure MeasureGeodesic(double Lat1, double Long1, double Lat2, double Long2, qv::TGeoEllipsoid Ellipsoid)
{
    const qv::TEllipsoidAxes& e = qv::GeoEllipsoidData[Ellipsoid];
    // The catalogue stores a and b; the flattening is derived, never rounded through 1/f.
    const GeographicLib::Geodesic g(e.a, (e.a - e.b) / e.a);
    double s12 = 0, azi1 = 0, azi2 = 0;
    g.Inverse(Lat1, Long1, Lat2, Long2, s12, azi1, azi2);
    TGeodesicMeasure m;
    m.Metres = s12;
    if (s12 > 0) {
        // GeographicLib gives (-180, 180]; a bearing reads 0..360.
        m.Bearing = azi1 < 0 ? azi1 + 360.0 : azi1;
        if (m.Bearing >= 360.0)
            m.Bearing -= 360.0;
    }
    return m;
}

QString DistanceText(double Metres)
{
    if (Metres < 999.5)
        return QString("%1 m").arg(Metres, 0, 'f', 0);
    if (Metres < 99995.0)
        return QString("%1 km").arg(Metres / 1000.0, 0, 'f', 2);
    return QString("%1 km").arg(Metres / 1000.0, 0, 'f', 1);
}

void TBandMeasure::Begin(double Lat, double Long, qv::TGeoEllipsoid Ellipsoid)
{
    FActive = true;
    FEllipsoid = Ellipsoid;
    FLat = Lat;
    FLong = Long;
    FClosed = 0.0;
    FLegs = 0;
}

void TBandMeasure::Leg(double Lat, double Long)
{
    if (!FActive)
        return;
    FClosed += MeasureGeodesic(FLat, FLong, Lat, Long, FEllipsoid).Metres;
    ++FLegs;
    FLat = Lat;
    FLong = Long;
}

QString TBandMeasure::Text(double Lat, double Long) const
{
    const TGeodesicMeasure m = MeasureGeodesic(FLat, FLong, Lat, Long, FEllipsoid);
    // Rounded before it is shown, so that 359.96 reads 0.0 rather than 360.0.
    double bearing = std::round(m.Bearing * 10.0) / 10.0;
    if (bearing >= 360.0)
        bearing = 0.0;
    QString s = DistanceText(m.Metres) + QString(", bearing %1\u00B0").arg(bearing, 0, 'f', 1);
    if (FLegs > 0)
        s += QString(" (total %1, %2 legs)").arg(DistanceText(FClosed + m.Metres)).arg(FLegs + 1);
    return s;
}

}  // namespace viewer
