// Writes HTML: the markup of the page, which is in this program, and texts from the archive, which
// are not to be trusted and cannot become markup.
#ifndef QUENDIL_VIEW_IGVIEWHTML_H
#define QUENDIL_VIEW_IGVIEWHTML_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "view/IGViewSink.h"

/// A text without markup and without characters that a reader cannot see or that change the order
/// of others: these, and bytes that are not UTF-8, become visible escapes such as "\x1b" and
/// "\u202e". Tabs are kept. It is safe as a text, and in quotes as an attribute.
std::string escapedHtml(std::string_view text);

/// A size for readers, in bytes and their binary multiples: "68 B", "1.2 KiB", "120 KiB".
std::string sizeText(std::uint64_t bytes);
/// "12,345"
std::string groupedNumber(std::uint64_t number);
/// A number with at most this many digits after the point, and no zeros at its end: "12.5".
std::string decimalText(double value, int digits);
/// "1 tool", "2,000 tools"
std::string countText(std::uint64_t number, std::string_view what);

/// Bytes as text for a data block: 13 bits in two of the 91 characters that are neither markup nor
/// blank, the lowest first; at the end 6 bits or fewer in one. A sixteenth shorter than base64.
std::string encodedBytes(std::string_view bytes);
/// The hash of a script or style as Content-Security-Policy has it (base64), from hexadecimal
/// digits.
std::string policyHash(std::string_view hexadecimal);

/// Markup of the page: only a literal can become one.
class Markup {
  public:
    [[nodiscard]] constexpr std::string_view text() const { return text_; }

  private:
    // NOLINTNEXTLINE(misc-unused-parameters): its name is that of the language
    friend consteval Markup operator""_html(const char* text, std::size_t size);
    consteval explicit Markup(std::string_view text) : text_(text) {}
    std::string_view text_;
};

consteval Markup operator""_html(const char* text, std::size_t size) {
    return Markup(std::string_view(text, size));
}

/// Passes the page on in pieces of some KiB.
class HtmlWriter {
  public:
    explicit HtmlWriter(const Sink& sink) : sink_(sink) {}
    HtmlWriter(const HtmlWriter&) = delete;
    HtmlWriter& operator=(const HtmlWriter&) = delete;
    ~HtmlWriter() = default;

    HtmlWriter& operator<<(Markup markup) { return add(markup.text()); }
    /// A text from anywhere.
    HtmlWriter& operator<<(std::string_view text) { return add(escapedHtml(text)); }
    template <std::integral Number>
    HtmlWriter& operator<<(Number number) {
        return add(std::to_string(number));
    }
    /// The script, the style, or a data block: bytes as they are.
    HtmlWriter& embed(std::string_view bytes) { return add(bytes); }

    /// Passes on what is left.
    /// @return false if a piece could not be written
    bool flush();

  private:
    HtmlWriter& add(std::string_view piece);

    const Sink& sink_;
    std::string buffer_;
    bool good_ = true;
};

#endif
