// Cursors by number, as the controls name them: the standard shapes (crDefault 0 and the negative
// numbers) and the package's own cursors from its resources, registered under 1000 and up on first use.
// An application may register more numbers; an unknown number gives the arrow.
#pragma once

#include <QCursor>

#include <cstdint>
#include <string>

namespace qv {

using TCursor = std::int32_t;

inline constexpr TCursor crDefault = 0, crArrow = -2, crCross = -3, crIBeam = -4, crSizeAll = -22,
                         crHourGlass = -11, crHandPoint = -21;
// The package's cursors; the atlas uses 1000 and 1001 for its zoom and pan modes.
inline constexpr TCursor crGeoZoom = 1000, crGeoHand = 1001, crGeoZoomWindow = 1002, crGeoSelect = 1003,
                         crGeoLandMark = 1004;

// A cursor image from the package's resources by name ("CURGEOZOOM", "CURGEOHAND", "CURGEOZOOMWIN",
// "CURGEOSELECT", "CURGEOLANDMARK"), with its hot spot; the arrow when there is no such resource.
QCursor LoadCursorResource(const std::string& Name);

void RegisterCursor(TCursor Number, const QCursor& Cursor);
QCursor GetCursor(TCursor Number);

}  // namespace qv
