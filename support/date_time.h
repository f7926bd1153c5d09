// Dates as the library stores them: double days since 1899-12-30 00:00, the fraction being the time of
// day. Landmark files write them with the picture "yyyymmddHHMMSS".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

// Language of month names in pictures ("mmm"). The library always passes the first value.
enum TLanguage : std::uint8_t { lanEnglish, lanGerman };

// Date and time (proleptic Gregorian calendar) to days since 1899-12-30; false for an invalid date.
bool TryEncodeDateTime(int Year, int Month, int Day, int Hour, int Min, int Sec, double& DateTime);
// Days since 1899-12-30 to its parts, rounded to the nearest second. Values beyond +/-5e11 days are
// clamped there and non-finite values read as the epoch, so no input leaves the integer range.
void DecodeDateTime(double DateTime, int& Year, int& Month, int& Day, int& Hour, int& Min, int& Sec);

// Parses a date and time from Text at the 1-based position Pos by a picture whose tokens are
// yyyy, yy, mmm (month name), mm, dd, HH, MM, SS; any other picture character must match the text
// literally. Numeric tokens take exactly as many digits as the token has letters. On success Pos is
// advanced past the parsed text and the date is returned; on failure Pos is left where parsing stopped
// and the result is 0 (the epoch), which callers treat as "no date".
double ScanDateTime(std::string_view Text, std::string_view Format, TLanguage Language, int& Pos);

// The inverse of ScanDateTime for the same picture tokens.
std::string FormatDateTime(double DateTime, std::string_view Format, TLanguage Language = lanEnglish);

}  // namespace qv
