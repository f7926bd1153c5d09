// The number scanner of the file readers. It reads the longest number at a position and reports where
// it stopped, so that lists such as "[48.2,16.3] [48.1,16.4]" are walked item by item.
#pragma once

#include <cstdint>
#include <string_view>

namespace qv {

enum TNumberSyntax : std::uint8_t {
    nsPointOnly = 0,       // "." as decimal separator, no exponent
    nsCommaAllowed = 1,    // "," accepted as decimal separator as well
    nsExponentAllowed = 2, // "E"/"e" exponent accepted
    nsAnyReal = nsCommaAllowed | nsExponentAllowed,
};

// Scans a real number from the 1-based position Pos: leading blanks are skipped, then an optional sign,
// digits, at most one decimal separator, digits, and (when allowed) "E"/"e" with optional sign and
// digits. Scanning stops at the first other character and Pos is set to it (one past the number).
// A text that holds no digits yields 0 with Pos after any blanks and sign that were read.
// An exponent letter not followed by a digit is not part of the number. Exponent digits stop adding to
// the exponent once its magnitude reaches 4201 (they are still consumed); results beyond the double
// range are clamped to +/- uc_MaxDouble, and results below it become 0 with the sign kept.
// The value is the correctly rounded double of the decimal text.
double ScanNumber(std::string_view Text, int& Pos, unsigned Syntax = nsAnyReal);

// Scans an integer from the 1-based position Pos: leading blanks, optional sign, decimal digits.
// Values beyond the 32-bit range are clamped to it. No digits: 0.
std::int32_t ScanInteger(std::string_view Text, int& Pos);

// Whole-text conveniences: the number at the start of Text after blanks (0 when there is none).
double StrToNumber(std::string_view Text, unsigned Syntax = nsAnyReal);
std::int32_t StrToInteger(std::string_view Text);

}  // namespace qv
