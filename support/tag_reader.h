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

// The value of attribute Name in an attribute text: the text between the quote that follows `Name=` and
// the next quote of the same kind (double or single), trimmed of blanks. The name is matched
// case-insensitively and as a whole word ("id" does not match inside "myid"). Absent or unterminated:
// Found is false and the result is empty.
std::string TagAttribute(std::string_view Attr, std::string_view Name, bool* Found = nullptr);

}  // namespace qv
