// The catalogue of the 61 reference ellipsoids (identifier, display name, semi-axes) and the functions
// that turn axes, flattening and eccentricity into one another. All lengths in metres.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qv {

// Ordinals index the three tables below and the ellipsoid column of the datum table; keep the order.
enum TGeoEllipsoid : std::uint8_t {
    gelWGS84, gelWGS72, gelWGS66, gelWGS60, gelClrk80RGS, gelClrk66, gelBess41, gelBess41Jap,
    gelBess41Nam, gelNewInt67, gelInt24, gelEver69, gelEver56, gelEver48, gelEver30Ind, gelEverPak,
    gelEverest, gelGRS80, gelAiry30, gelModifAiry, gelFish68, gelFish60, gelModifFish60, gelAuNat65,
    gelKrass40, gelHough60, gelSphere, gelIndo74, gelHelm06, gelSGS85, gelSAm69, gelATS77, gelAuthSph,
    gelBesselMod, gelCGCS2000, gelClrk58, gelClrk66Mich, gelClrk80, gelClrk80Arc, gelClrk80Benoit,
    gelClrk80IGN, gelClrk80intfoot, gelClrk80SGA22, gelDan76, gelEver30, gelEver75, gelGEM10C, gelGRS67,
    gelGRS67Mod, gelHughes80, gelIAG75, gelInt24AuthSph, gelOSU86F, gelOSU91A, gelPlessis17,
    gelPopVisSphere, gelPZ90, gelStruve60, gelWarOffice, gelHongKong63, gelNahrwan29
};
inline constexpr int NumGeoEllipsoids = 61;

enum THemisphere : std::uint8_t { hemiNorth, hemiSouth };

// Semi-major axis a and semi-minor axis b in metres; a == b marks a sphere.
struct TEllipsoidAxes {
    double a;
    double b;
};

// The published tables, indexed by TGeoEllipsoid. The axes are stored exactly as catalogued: the datum
// shift and the map calibrations depend on them bit for bit, so b is never re-derived from a flattening.
extern const std::array<std::string_view, NumGeoEllipsoids> GeoEllipsoidId;    // "gelWGS84", ...
extern const std::array<std::string_view, NumGeoEllipsoids> GeoEllipsoidName;  // "WGS 1984", ...
extern const std::array<TEllipsoidAxes, NumGeoEllipsoids> GeoEllipsoidData;

// The ellipsoid whose identifier is Id (exact spelling); false when there is none.
bool FindGeoEllipsoid(std::string_view Id, TGeoEllipsoid& Ellipsoid);

// First eccentricity squared e² = 1 - b²/a² of a catalogue entry (0 for a sphere). No range check.
double GeoEllEccSquared(TGeoEllipsoid Ellipsoid);
// e² of the ellipsoid with these two axes, given in either order (the larger is the semi-major axis).
double GeoEllEccSquared(double a, double b);
// e² = 2f - f² with f = 1/RecipFlat; 0 when RecipFlat is 0 (a sphere).
double GeoEllEccSquared(double RecipFlat);

// Reciprocal flattening 1/f = 1/(1 - b/a) of a catalogue entry; 0 for a sphere.
double RecipFlattening(TGeoEllipsoid Ellipsoid);
// 1/(1 - b/a), 0 if a == b. Not symmetric: b > a gives a negative result, on purpose.
double RecipFlattening(double a, double b);
// 1/f from e²: 0 for e² = 0, 1/(1 - sqrt(1 - e²)) for 0 < e² <= 1. For e² outside [0, 1] nothing is
// raised and the result is meaningless: callers must not use it.
double RecipFlattening(double EccSquared);

// Semi-minor axis from a and 1/f: a for RecipFlat = 0; raises EXELGeoBasicsError
// "invalid reciprocal flattening" for RecipFlat < 0.
double EllipsoidMinAxFlat(double a, double RecipFlat);
// Semi-minor axis a*sqrt(1 - e²); raises EXELGeoBasicsError "invalid eccentricity" for e² < 0.
// e² > 1 is not checked and yields NaN.
double EllipsoidMinAxEcc(double a, double EccSquared);

}  // namespace qv
