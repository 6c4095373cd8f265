#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Numbers read out of text the way the host platform's string class reads them
// (integerValue, longLongValue, floatValue, doubleValue, boolValue), and numbers written
// as text the way its number class describes itself.
namespace vexo::plist::text {

// Leading blanks, an optional sign, decimal digits; stops at the first other character.
// No digits reads as 0; a value beyond the 64-bit range saturates at INT64_MIN / INT64_MAX.
std::int64_t scanInteger(std::string_view text);

// As scanInteger, but the digits are taken as an unsigned 64-bit value (saturating at
// UINT64_MAX); a negative value gives the two's complement of its saturated signed value.
std::uint64_t scanUnsignedInteger(std::string_view text);

// Leading blanks, an optional sign, then a decimal number with an optional fraction and
// exponent ("12", "-0.5", ".25", "1e3"). Anything else reads as 0.
double scanDouble(std::string_view text);
float scanFloat(std::string_view text);

// True when the first character after leading blanks, signs and zeros is one of
// Y, y, T, t or a digit 1-9.
bool scanBool(std::string_view text);

// The value of one hexadecimal digit of either case, or -1 for any other character.
int hexDigitValue(char c);

// Unsigned hexadecimal as the host platform's scanner reads it (scanHexLongLong): leading
// blanks are skipped, an optional "0x"/"0X" prefix is accepted, digits of either case are
// read until the first other character, a value beyond 64 bits saturates at UINT64_MAX.
// Nothing when no hexadecimal digit could be read.
std::optional<std::uint64_t> scanHexUnsigned(std::string_view text);

// Descriptions of numbers as the host platform's number class gives them.
std::string describeInteger(std::int64_t value);
std::string describeUnsigned(std::uint64_t value);
// The shortest text that reads back as the same double (or, for a value that came from a
// single-precision float, as the same float): 0.5 is "0.5", 0.1f is "0.1".
std::string describeReal(double value, bool isSinglePrecision);

} // namespace vexo::plist::text
