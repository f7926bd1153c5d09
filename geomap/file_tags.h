// The tag table shared by the file family (calibration, landmark and symbol files). Tag indices are used
// by the readers, so the order is fixed; "invalidtag" is last and is what the tag reader reports at the
// end of the input.
#pragma once

#include <array>
#include <string_view>

namespace qv {

enum TXMLTag : int {
    xtGeoMap, xtGeoMapEnd, xtCalLine, xtCorners, xtResolution, xtGMLandmarks, xtGMLandmarksEnd,
    xtLandmark, xtCalQuads, xtLMSymbols, xtLMSymbolsEnd, xtSymbol, xtUTMZone, xtUTMSouth, xtEllipsoid,
    xtInvalidTag
};

inline constexpr std::array<std::string_view, 16> XMLTagNames = {
    "geomap", "/geomap", "calline", "corners", "resolution", "gmlandmarks", "/gmlandmarks", "landmark",
    "calquads", "lmsymbols", "/lmsymbols", "symbol", "utmzone", "utmsouth", "ellipsoid", "invalidtag"};

// The highest index passed to the tag reader.
inline constexpr int XMLTagHigh = xtInvalidTag;

// Signature every header line of the family carries, compared case-insensitively by the readers.
inline constexpr std::string_view XMLSignature = "Quorvanta";

}  // namespace qv
