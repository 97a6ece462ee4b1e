// Small pieces of text: numbers from it, numbers into it, and messages.
#ifndef IVTRACK_TEXT_H
#define IVTRACK_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivtrack {

/// A finite decimal number that fills the whole text, or nothing.
std::optional<double> parse_number(std::string_view text);

/// A decimal integer of 64 bits that fills the whole text, or nothing.
std::optional<std::int64_t> parse_integer(std::string_view text);

/// The text without spaces, tabs and carriage returns around it.
std::string_view trim(std::string_view text);

/// The comma-separated columns of a row, trimmed.
std::vector<std::string_view> split_columns(std::string_view row);

/// The text in quotes, on one line whatever it holds, and cut when it is long.
std::string in_quotes(std::string_view text);

/// How messages call a file: its name on one line, or "<stdin>" (`standard`) for "-".
std::string display_name(const std::string& path, std::string_view standard);

/// A coordinate as it is written: rounded to a thousandth of a pixel, never a negative zero.
double written_coordinate(double pixels);

/// Writes one line, prefixed with the program's name, to standard error.
void complain(std::string_view message);

} // namespace ivtrack

#endif
