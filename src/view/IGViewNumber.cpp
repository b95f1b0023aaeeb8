#include "view/IGViewNumber.h"

#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <ctime>

namespace {

constexpr double KIBI = 1024;
constexpr std::string_view PREFIXES = "KMGTPE";
// Longer texts are no numbers or dates.
constexpr std::size_t LONGEST_NUMBER = 64;

// What a unit multiplies: "K", "kB", "Gi", "MiB", "%", "B" or nothing.
std::optional<double> factorOf(std::string_view unit) {
    double factor = 1;
    if (unit.empty() || unit == "%" || unit == "B") {
        return factor;
    }
    const char letter = unit[0] == 'k' ? 'K' : unit[0];
    const std::size_t power = PREFIXES.find(letter);
    const std::string_view rest = unit.substr(1);
    if (power == std::string_view::npos ||
        !(rest.empty() || rest == "i" || rest == "B" || rest == "iB")) {
        return {};
    }
    for (std::size_t step = 0; step <= power; ++step) {
        factor *= KIBI;
    }
    return factor;
}

}  // namespace

std::optional<double> readNumber(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (text.size() > LONGEST_NUMBER || error != std::errc() || !std::isfinite(value)) {
        return {};
    }
    std::string_view unit(rest, static_cast<std::size_t>(end - rest));
    if (!unit.empty() && unit.front() == ' ') {
        unit.remove_prefix(1);
    }
    const std::optional<double> factor = factorOf(unit);
    return factor ? std::optional(value * *factor) : std::nullopt;
}

std::optional<std::int64_t> readDate(std::string_view text, const std::string& format) {
    if (text.size() > LONGEST_NUMBER) {
        return {};
    }
    std::tm moment = {};
    moment.tm_mday = 1;
    const std::string terminated(text);
    // The names of months do not depend on the user's locale.
    static const locale_t C_LOCALE = ::newlocale(LC_ALL_MASK, "C", nullptr);
    const char* const rest = ::strptime_l(terminated.c_str(), format.c_str(), &moment, C_LOCALE);
    if (rest == nullptr || *rest != '\0') {
        return {};
    }
    return static_cast<std::int64_t>(::timegm(&moment));
}

std::string shortNumber(double value) {
    const bool whole = std::fabs(value) >= 100 || std::fabs(value - std::round(value)) < 0.05;
    std::array<char, 400> text{};  // the largest double has 309 digits
    const auto [end, error] =
        std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed, whole ? 0 : 1);
    const std::string result(text.begin(), end);
    return result == "-0" ? "0" : result;
}

std::string shownBytes(double bytes) {
    std::size_t power = 0;
    while (std::fabs(bytes) >= KIBI && power < PREFIXES.size()) {
        bytes /= KIBI;
        ++power;
    }
    if (power == 0) {
        return shortNumber(bytes) + " B";
    }
    return shortNumber(bytes) + ' ' + PREFIXES[power - 1] + "iB";
}
