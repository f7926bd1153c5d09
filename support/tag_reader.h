// The tag reader of the XML-like file family (calibrations, landmarks, symbol catalogues).
//
// The files are line-oriented and not general XML: no escaping, no nesting rules. A reader first consumes
// the header lines itself (with std::getline on the same stream), then calls ReadNextTagInStream in a loop
// until it sees its closing tag or the sentinel at the end of TagList.
#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace qv {

// Scans forward to the next tag "<name attributes>" whose name (compared case-insensitively) is one of
// TagList[0..High] and returns its index. Tags that are not in the list ("<?xml ...?>", comments, unknown
// elements) are passed over. For a listed tag:
//  - Attr receives the text after the name up to '>', trimmed ("type=\"parallel\" value=\"48\"");
//    a self-closing "/" at the end is kept out;
//  - Content receives the text after '>' up to the next '<' (which is left unread), trimmed of blanks
//    and line ends at both ends. Closing tags ("/geomap") have empty Attr and usually empty Content.
// At the end of the input the result is High (the caller's sentinel, "invalidtag"). A tag that is never
// closed by '>' ends the input. High is clamped to the list's last index.
int ReadNextTagInStream(std::istream& Stream, std::span<const std::string_view> TagList, int High,
                        std::string& Attr, std::string& Content);

// Splits an attribute text ("lat=\"48.2\" long='16.3'") in one pass. For every Names[k] (lower-case) the
// value of the first attribute of that name, compared without regard to case, goes to Values[k] as the
// text between its quotes (double or single), exactly as it stands: blanks inside the quotes are part
// of the value, and callers trim where their format says so. Absent attributes give a view whose
// data() is null, present but empty ones an empty view that is not null. Blanks may stand around "=".
// Words without "=" and a quote are passed over; an unterminated quote ends the text (that attribute is
// absent). The views point into Attr. Because values are skipped as a whole, a value that itself
// contains "id=\"...\"" is never taken for an attribute.
void SplitTagAttributes(std::string_view Attr, std::span<const std::string_view> Names,
                        std::span<std::string_view> Values);

// The value of the single attribute Name (see SplitTagAttributes), trimmed of blanks at both ends;
// Found tells whether it was present.
std::string TagAttribute(std::string_view Attr, std::string_view Name, bool* Found = nullptr);
// The same value untrimmed, for texts that are kept as read (a calibration's caption).
std::string TagAttributeAsRead(std::string_view Attr, std::string_view Name, bool* Found = nullptr);

}  // namespace qv
