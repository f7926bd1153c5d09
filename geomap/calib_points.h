// Filling a TCalibData record without a map: appending graticule-line points and calibration quads within
// the record's limits (25 lines of 10 points, 200 quads). TMapCalibration's AddCalibPoint uses the same
// rules; tools that build a record from a list of points (geotool calib fit, an editor's import) call
// these and learn which limit refused a point.
#pragma once

#include <qvgeo/geomap/calib_types.h>

#include <cstdint>

namespace qv {

enum TCalibAppend : std::uint8_t {
    caAppended,    // the point was stored
    caLinesFull,   // a new line was needed and the record has 25 already
    caLineFull,    // the line has 10 points already
    caQuadsFull,   // the record has 200 quads already
};

// The line of exactly this kind and value (1-based), 0 when there is none.
int FindCalLine(const TCalibData& Data, TGratLineKind Kind, double Value);

// Appends pixel P to the line of this kind and value, opening a new last line when there is none.
TCalibAppend AppendLinePoint(TCalibData& Data, TGratLineKind Kind, double Value, TPoint P);

// Appends Quad as the last quad.
TCalibAppend AppendCalQuad(TCalibData& Data, const TCalQuad& Quad);

}  // namespace qv
