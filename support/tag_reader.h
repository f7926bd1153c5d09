// The tag reader of the XML-like file family (calibrations, landmarks, symbol catalogues).
//
// The files are line-oriented and not general XML: no escaping, no nesting rules. A reader first consumes
// the header lines itself (with std::getline on the same stream), then calls ReadNextTagInStream in a loop
// until it sees its closing tag or the sentinel at the end of TagList.
#pragma once

#include <ios>
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

// The tags of a long XML-like text, read from the stream in large blocks: for readers that take
// thousands of tags and only their attributes (landmark and symbol files). Which tags are found, their
// attribute text and the end of the input follow the rules of ReadNextTagInStream; the content of a
// tag is not taken. The scanner reads ahead of what it has returned; Finish (or the destructor) puts
// the stream back where ReadNextTagInStream would have left it: at the '<' after the content of the
// last tag found, or at the end with eofbit set. A stream that cannot report and restore its position
// (a pipe) is read through ReadNextTagInStream instead, with the same results.
class TTagScanner {
public:
    explicit TTagScanner(std::istream& Stream);
    TTagScanner(const TTagScanner&) = delete;
    TTagScanner& operator=(const TTagScanner&) = delete;
    ~TTagScanner();

    // The next listed tag's index, or High at the end of the input. Attr views the scanner's buffer and
    // stays valid until the next call.
    int Next(std::span<const std::string_view> TagList, int High, std::string_view& Attr);
    void Finish();

private:
    bool Refill();  // drops the buffer before FPos and appends a block; false at the end of the input

    std::istream& FStream;
    bool FBlockwise = false;
    bool FFinished = false;
    bool FAtEnd = false;         // Next reported the end of the input
    bool FAfterTag = false;      // Next returned a listed tag, whose content is still to be skipped
    std::streampos FStart;       // stream position of the first byte read
    std::streamoff FBase = 0;    // offset of FBuf[0] from FStart
    std::size_t FPos = 0;        // scanning position in FBuf
    std::string FBuf;
    std::string FAttr, FContent;  // for the stream-wise reading
};

// Splits an attribute text ("lat=\"48.2\" long='16.3'") in one pass. For every Names[k] (lower-case,
// without blanks or "=", as a name in a file can only be) the value of the first attribute of that
// name, compared without regard to case, goes to Values[k] as the text between its quotes (double or
// single), exactly as it stands: blanks inside the quotes are part of the value, and callers trim where
// their format says so. Absent attributes give a view whose data() is null, present but empty ones an
// empty view that is not null. Blanks may stand around "=". Words without "=" and a quote are passed
// over; an unterminated quote ends the text (that attribute is absent). The views point into Attr.
// Because values are skipped as a whole, a value that itself contains "id=\"...\"" is never taken for
// an attribute.
void SplitTagAttributes(std::string_view Attr, std::span<const std::string_view> Names,
                        std::span<std::string_view> Values);

// The value of the single attribute Name (see SplitTagAttributes), trimmed of blanks at both ends;
// Found tells whether it was present.
std::string TagAttribute(std::string_view Attr, std::string_view Name, bool* Found = nullptr);
// The same value untrimmed, for texts that are kept as read (a calibration's caption).
std::string TagAttributeAsRead(std::string_view Attr, std::string_view Name, bool* Found = nullptr);

}  // namespace qv
