// Reading and writing helpers shared by the landmark and symbol files of the XML-like file family:
// finding a set's header line by id and writing text values so that the family's reader gives them back.
// Public, so that a program can tell its user beforehand how a text will be stored.
#pragma once

#include <qvgeo/support/tag_reader.h>

#include <cstddef>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace qv {

// Reads lines from F until the header of a set: a line that, lower-cased, contains "<" followed by
// TagName (lower-case, e.g. "gmlandmarks") and the family's signature. Returns true at the first header
// whose id attribute (trimmed) equals Id lower-cased, or at the first header at all when Id is empty;
// false when the input ends first. Id itself is not trimmed: " a " finds no set, whatever the file
// holds, because a header's id never keeps blanks at its ends. F is left just after the header line,
// ready for the tag reader.
bool SeekFamilyHeader(std::istream& F, std::string_view TagName, std::string_view Id);

// The form of Text that survives a write and a read: line breaks become blanks, '>' (which would end
// the tag) becomes '_', and a text holding both quote characters has its double quotes turned into
// single ones. Everything else, blanks at the ends included, is kept.
std::string FamilyAttributeText(std::string_view Text);

// Appends ` Name="Value"` for FamilyAttributeText(Value), quoted with '\'' when the text holds '"'.
void AppendTextAttribute(std::string& Line, std::string_view Name, std::string_view Value);

// The same attribute written at p, for writers that fill a character buffer; returns its end. Room
// needed: TextAttributeSize(Name, Value) bytes.
char* PutTextAttribute(char* p, std::string_view Name, std::string_view Value);
constexpr std::size_t TextAttributeSize(std::string_view Name, std::string_view Value)
{
    return Name.size() + Value.size() + 4;  // blank, '=', two quotes
}

}  // namespace qv
