// The one conversion between TColor (0x00BBGGRR, red in the low byte) and Qt's QRgb (0xAARRGGBB, the
// word a Format_RGB32 pixel holds). Pixels of an RGB32 image always carry alpha 0xff; TColor has no alpha,
// and its high byte is ignored on the way in.
#pragma once

#include <qvgeo/support/geometry_types.h>

#include <QColor>
#include <QRgb>

#include <cstdint>

namespace qv {

constexpr QRgb ToQRgb(TColor Color)
{
    return 0xff000000u | ((Color & 0xffu) << 16) | (Color & 0xff00u) | ((Color >> 16) & 0xffu);
}

constexpr TColor FromQRgb(QRgb Rgb)
{
    return ((Rgb >> 16) & 0xffu) | (Rgb & 0xff00u) | ((Rgb & 0xffu) << 16);
}

inline QColor ToQColor(TColor Color) { return QColor::fromRgb(ToQRgb(Color)); }

}  // namespace qv
