// The landmark file: the attribute encoding of one landmark ("<landmark lat=... />") in both directions.
// The set-level reader and writer are members of TLandMarkStore (landmark_store.h) and use these.
#pragma once

#include <qvgeo/geomap/landmark_types.h>

#include <string>
#include <string_view>

namespace qv {

// Keyword of the element attribute. lmPlus and lmUserDef get "plus" and "userdef", which the reader
// does not know and takes as lmCross; so does any value outside the enumeration ("cross").
std::string_view LandMarkElementKeyword(TLandMarkElement Kind);
// Keyword (compared without regard to case) to shape; anything but the eight known keywords gives lmCross.
TLandMarkElement ParseLandMarkElement(std::string_view Keyword);

// Font styles as four characters "0"/"1": bold, italic, underline, strike-out.
std::string FontStylesToStr(TFontStyles Styles);
// Each of the first four characters that is "1" sets its style; a shorter text sets fewer.
TFontStyles StrToFontStyles(std::string_view Text);

// The landmark's tag line, without line end: `<landmark lat="..." ... capfst="0000" />`.
std::string LandMarkToTag(const TLandMark& LandMark);
// Fills every field of LandMark from a landmark tag's attribute text; absent or malformed values give 0,
// false or an empty text. The three texts (identifier, caption text, font name) are taken as read,
// blanks at their ends included; the other values are trimmed before they are decoded. Identifier and
// caption text are cut to 15 and 80 characters, the class is
// kept as its low byte, and alignment ordinals outside their enumeration give the template's values
// (centre, top).
void LandMarkFromAttributes(std::string_view Attr, TLandMark& LandMark);

}  // namespace qv
