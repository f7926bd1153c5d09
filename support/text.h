// Text and file-name helpers shared by the file readers and writers: keyword lookup, hexadecimal colour
// text, booleans in the file family's styles, file-name surgery, line output and angle formatting.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace qv {

// 1-based position of the first entry of List[0..High] equal to Str (exact, case-sensitive); 0 if none.
// High is clamped to the list's last index, so a High beyond the list never reads outside it.
int StringIx(std::string_view Str, std::span<const std::string_view> List, int High);
int StringIx(std::string_view Str, std::span<const std::string> List, int High);

// Reads hexadecimal digits (either case) from the 1-based position Pos and advances Pos past them.
// No digits: returns 0 and leaves Pos. Leading blanks are not skipped. More than eight digits keep the
// low 32 bits (a colour never has more than eight).
std::uint32_t ScanHex(std::string_view Text, int& Pos);

// Value as exactly Digits upper-case hexadecimal digits, zero-filled; wider values keep their low digits.
std::string Hex(std::uint64_t Value, int Digits);

// A boolean as text in one of the style numbers of the file family: 0 "TRUE"/"FALSE", 1 "T"/"F",
// 2 ".T."/".F.", 3 "1"/"0", 4 "-1"/"0", 5 "FF"/"00", 6 "YES"/"NO", 7 "GOOD"/"BAD", other "TRUE"/"FALSE".
std::string BoolToStr(bool Value, int Style = 0);

// File name without its directory part. Both '/' and '\' separate directories, and a drive prefix
// ("c:") is removed too, because calibration files written on other systems carry such names.
std::string StripPath(std::string_view FName);

// File name without its last extension and that dot; a dot inside a directory name is not an extension.
std::string StripExtension(std::string_view FName);

// Keeps only the characters allowed in a short (8.3) file name: ASCII letters, digits and
// ! # $ % & ' ( ) - @ ^ _ ` { } ~. Everything else, blanks and dots included, is removed.
std::string ReduceStringToFN83CompliantChars(std::string_view S);

// Appends Line and a line end ("\n", the same as every text writer of the library) to the stream.
void WriteLnStream(std::ostream& Stream, std::string_view Line);

// ASCII case mapping and blank trimming, used by every reader of the file family.
std::string LowerCase(std::string_view S);
std::string UpperCase(std::string_view S);
// Blanks, tabs, CR and LF removed at both ends. Inline: the file readers trim every attribute value of
// every tag, where a call into another unit costs as much as the trimming itself.
inline std::string_view Trim(std::string_view S)
{
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!S.empty() && blank(S.front()))
        S.remove_prefix(1);
    while (!S.empty() && blank(S.back()))
        S.remove_suffix(1);
    return S;
}
bool SameText(std::string_view A, std::string_view B);  // ASCII case-insensitive equality

// How an angle is rendered by DegreeToStr. The value never carries a hemisphere letter; the sign is a
// leading "-". Decimals apply to the last component shown.
enum TDegreeFormat : std::uint8_t {
    dfDecimal,       // 48.20833°
    dfDegMin,        // 48°12.500'
    dfDegMinSec,     // 48°12'30.0"
    dfDecimalPlain,  // 48.20833 (no degree sign; for files and machine-readable output)
};

// Angle (degrees) as text. Rounding is done once, in the last component's unit, so 47.99999999° in
// dfDegMinSec with 1 decimal gives 48°00'00.0" and never 47°59'60.0". Decimals is clamped to 0..12.
// Non-finite values are rendered as "nan", "inf" or "-inf".
std::string DegreeToStr(double Value, TDegreeFormat Format, int Decimals);
// The shortest decimal text that reads back as the same double ("0.1", "1e+30", "nan", "-inf").
std::string ShortestText(double Value);

}  // namespace qv
