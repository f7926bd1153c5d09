// Datum lookup and the seven-parameter Helmert shift through WGS 84.
//
// The backward step out of WGS 84 is deliberately the first-order inverse (all parameters negated, the
// translation removed after rotation and scale), not the exact inverse; results must match that form
// bit for bit, so the expressions below keep the documented order of operations. What depends on the
// datum alone (rotations in radians, scale factors) is computed once per datum with the same
// expressions.
#include <qvgeo/geobasics/datums.h>

#include <qvgeo/geobasics/datum_table.h>
#include <qvgeo/geobasics/geocentric.h>

#include <array>

namespace qv {

namespace {

constexpr double Pi = 3.141592653589793;

struct THelmertParams {
    double dX, dY, dZ;  // metres
    double s;           // 1 + scale·10⁻⁶ forward, 1 − scale·10⁻⁶ backward
    double rX, rY, rZ;  // radians, negated for the backward step
};

struct TDatumParams {
    THelmertParams forward;   // datum -> WGS 84
    THelmertParams backward;  // WGS 84 -> datum, first order
};

double ArcSecToRad(double ArcSec) { return ArcSec * Pi / 648000.0; }

const TDatumParams& Params(int Number)
{
    static const std::array<TDatumParams, NumGeoDatums> table = [] {
        std::array<TDatumParams, NumGeoDatums> t{};
        for (int i = 0; i < NumGeoDatums; ++i) {
            const TGeoDatum& d = detail::GeoDatumTable[i];
            t[i].forward = {d.dX, d.dY, d.dZ, 1.0 + d.Scale * 1e-6, ArcSecToRad(d.rX), ArcSecToRad(d.rY),
                            ArcSecToRad(d.rZ)};
            t[i].backward = {d.dX, d.dY, d.dZ, 1.0 - d.Scale * 1e-6, ArcSecToRad(-d.rX), ArcSecToRad(-d.rY),
                             ArcSecToRad(-d.rZ)};
        }
        return t;
    }();
    return table[Number - 1];
}

}  // namespace

const TGeoDatum* GeoDatum(int Number)
{
    if (Number < 1 || Number > NumGeoDatums)
        return nullptr;
    return &detail::GeoDatumTable[Number - 1];
}

namespace {

// Everything of the shift but the final geocentric-to-geodetic step: the status, and the target datum
// with the shifted X, Y, Z (metres) when both datums exist (nullptr otherwise).
const TGeoDatum* ShiftToTarget(int SrcDatum, double Lat, double Long, double Height, int DstDatum, int& Status,
                               double& X2, double& Y2, double& Z2)
{
    Status = HelmertOk;
    if (SrcDatum < 1 || SrcDatum > NumGeoDatums)
        Status = HelmertBadSrcDatum;
    if (DstDatum < 1 || DstDatum > NumGeoDatums)
        Status = HelmertBadDstDatum;
    // Written as negated ranges so that NaN is rejected too.
    if (!(Lat >= -90.0 && Lat <= 90.0))
        Status = HelmertBadLatitude;
    if (!(Long >= -180.0 && Long <= 180.0))
        Status = HelmertBadLongitude;
    const TGeoDatum* src = GeoDatum(SrcDatum);
    const TGeoDatum* dst = GeoDatum(DstDatum);
    if (!src || !dst)
        return nullptr;  // never read outside the table; the outputs stay as they were

    double X, Y, Z;
    GeoToCartesian(Lat, Long, Height, src->Ellipsoid, X, Y, Z);

    const THelmertParams& f = Params(SrcDatum).forward;
    const double X1 = f.dX + f.s * (X - f.rZ * Y + f.rY * Z);
    const double Y1 = f.dY + f.s * (f.rZ * X + Y - f.rX * Z);
    const double Z1 = f.dZ + f.s * (-f.rY * X + f.rX * Y + Z);

    // b.rX etc. are the negated rotations, so these lines read as the forward step with −r.
    const THelmertParams& b = Params(DstDatum).backward;
    X2 = -b.dX + b.s * (X1 - b.rZ * Y1 + b.rY * Z1);
    Y2 = -b.dY + b.s * (b.rZ * X1 + Y1 - b.rX * Z1);
    Z2 = -b.dZ + b.s * (-b.rY * X1 + b.rX * Y1 + Z1);
    return dst;
}

}  // namespace

int HelmertTransform(int SrcDatum, double Lat, double Long, double Height, int DstDatum, double& NewLat,
                     double& NewLong, double& NewHeight)
{
    int status;
    double X, Y, Z;
    if (const TGeoDatum* dst = ShiftToTarget(SrcDatum, Lat, Long, Height, DstDatum, status, X, Y, Z))
        CartesianToGeo(X, Y, Z, dst->Ellipsoid, NewLat, NewLong, NewHeight);
    return status;
}

int HelmertTransformUnfolded(int SrcDatum, double Lat, double Long, double Height, int DstDatum, double& NewLat,
                             double& NewLong, double& NewHeight)
{
    int status;
    double X, Y, Z;
    if (const TGeoDatum* dst = ShiftToTarget(SrcDatum, Lat, Long, Height, DstDatum, status, X, Y, Z))
        CartesianToGeoUnfolded(X, Y, Z, dst->Ellipsoid, NewLat, NewLong, NewHeight);
    return status;
}

}  // namespace qv
