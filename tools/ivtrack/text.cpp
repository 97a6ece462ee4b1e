#include "text.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace ivtrack {
namespace {

constexpr std::size_t LONGEST_QUOTE = 60;

template <typename Number>
std::optional<Number> parse_whole(std::string_view text) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::optional<double> parse_number(std::string_view text) {
    const std::optional<double> value = parse_whole<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<std::int64_t> parse_integer(std::string_view text) {
    return parse_whole<std::int64_t>(text);
}

std::string_view trim(std::string_view text) {
    constexpr std::string_view BLANKS = " \t\r";
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::vector<std::string_view> split_columns(std::string_view row) {
    std::vector<std::string_view> columns;
    std::size_t begin = 0;
    for (std::size_t comma = row.find(','); comma != std::string_view::npos;
         comma = row.find(',', begin)) {
        columns.push_back(trim(row.substr(begin, comma - begin)));
        begin = comma + 1;
    }
    columns.push_back(trim(row.substr(begin)));
    return columns;
}

std::string in_quotes(std::string_view text) {
    const bool is_long = text.size() > LONGEST_QUOTE;
    return fmt::format("{:?}{}", text.substr(0, LONGEST_QUOTE), is_long ? "..." : "");
}

std::string display_name(const std::string& path, std::string_view standard) {
    if (path == "-") {
        return std::string(standard);
    }
    // Quotes only where the bare name could not stand in a line.
    const std::string name = fmt::format("{:?}", path);
    return !path.empty() && name.size() == path.size() + 2 ? path : name;
}

double written_coordinate(double pixels) {
    // Adding zero turns a negative zero into a positive one.
    return std::round(pixels * 1000.0) / 1000.0 + 0.0;
}

void complain(std::string_view message) {
    // A standard error that cannot be written leaves nobody to tell.
    std::fputs(fmt::format("ivtrack: {}\n", message).c_str(), stderr);
}

} // namespace ivtrack
