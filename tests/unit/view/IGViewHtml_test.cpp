#include "view/IGViewHtml.h"

#include <limits>
#include <string>

#include "view/IGViewGzip.h"

namespace {

using std::string_view_literals::operator""sv;

TEST(IGViewHtml, LeavesNoMarkupOfAText) {
    EXPECT_EQ(escapedHtml("<a href='x'>\"&amp;"), "&lt;a href=&#39;x&#39;&gt;&#34;&amp;amp;");
}

TEST(IGViewHtml, KeepsTabsAndUtf8) {
    EXPECT_EQ(escapedHtml("a\tb \u00e4\u20ac\U0001f600"), "a\tb \u00e4\u20ac\U0001f600");
}

TEST(IGViewHtml, ShowsControlCharactersAsEscapes) {
    EXPECT_EQ(escapedHtml("\x1b[31m\a\n\r\0\x7f"sv), "\\x1b[31m\\x07\\x0a\\x0d\\x00\\x7f");
    EXPECT_EQ(escapedHtml("\u0085\u009b"), "\\u0085\\u009b");
}

TEST(IGViewHtml, ShowsCharactersThatChangeTheOrderOrAreInvisible) {
    EXPECT_EQ(escapedHtml("\u202e\u2066\u2069\u200e\u200f\u061c"),
              "\\u202e\\u2066\\u2069\\u200e\\u200f\\u061c");
    EXPECT_EQ(escapedHtml("\u2028\u2029\ufeff\ufff9\U000e0041"),
              "\\u2028\\u2029\\ufeff\\ufff9\\u{e0041}");
}

TEST(IGViewHtml, ShowsBytesThatAreNotUtf8) {
    EXPECT_EQ(escapedHtml("\xff\xc3(\x80"), "\\xff\\xc3(\\x80");
    EXPECT_EQ(escapedHtml("\xe2\x82"), "\\xe2\\x82") << "cut";
    EXPECT_EQ(escapedHtml("\xc0\xaf\xe0\x80\xaf"), "\\xc0\\xaf\\xe0\\x80\\xaf") << "overlong";
    EXPECT_EQ(escapedHtml("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "surrogate";
    EXPECT_EQ(escapedHtml("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond Unicode";
    EXPECT_EQ(escapedHtml("\xe2<script"), "\\xe2&lt;script") << "does not swallow markup";
}

TEST(IGViewHtml, SaysSizesInTheirUnits) {
    EXPECT_EQ(sizeText(0), "0 B");
    EXPECT_EQ(sizeText(1023), "1023 B");
    EXPECT_EQ(sizeText(1024), "1 KiB");
    EXPECT_EQ(sizeText(1536), "1.5 KiB");
    EXPECT_EQ(sizeText(10 * 1024), "10 KiB");
    EXPECT_EQ(sizeText(1024 * 1024 - 1), "1 MiB");
    EXPECT_EQ(sizeText(std::uint64_t{5} << 40U), "5 TiB");
    EXPECT_EQ(sizeText(std::numeric_limits<std::uint64_t>::max()), "16 EiB");
}

TEST(IGViewHtml, SaysNumbers) {
    EXPECT_EQ(groupedNumber(0), "0");
    EXPECT_EQ(groupedNumber(999), "999");
    EXPECT_EQ(groupedNumber(1000), "1,000");
    EXPECT_EQ(groupedNumber(1234567), "1,234,567");
    EXPECT_EQ(countText(1, "tool"), "1 tool");
    EXPECT_EQ(countText(2000, "tool"), "2,000 tools");
    EXPECT_EQ(decimalText(12.5, 2), "12.5");
    EXPECT_EQ(decimalText(100, 1), "100");
    EXPECT_EQ(decimalText(-0.001, 1), "0");
}

// The inverse, as the page has it.
std::string decoded(std::string_view text) {
    std::string values;
    for (char c = 33; c < 127; ++c) {
        if (c != '&' && c != '<' && c != '>') {
            values += c;
        }
    }
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const bool last = i + 1 == text.size();
        const std::size_t high = last ? 0 : values.find(text[i + 1]);
        bits |= static_cast<std::uint32_t>(values.find(text[i]) + 91 * high) << count;
        for (count += last ? 6 : 13; count >= 8; count -= 8) {
            bytes += static_cast<char>(bits & 0xffU);
            bits >>= 8U;
        }
    }
    return bytes;
}

TEST(IGViewHtml, EncodesBytesOfEverySizeSoThatTheyComeBack) {
    std::string bytes;
    for (int size = 0; size < 600; ++size) {
        const std::string text = encodedBytes(bytes);
        EXPECT_EQ(decoded(text), bytes) << size;
        EXPECT_LE(text.size(), bytes.size() * 16 / 13 + 2);
        EXPECT_EQ(text.find_first_of("&<> \n"), std::string::npos);
        bytes += static_cast<char>(size < 256 ? 255 - size : size * size * 7 / 3);
    }
}

TEST(IGViewHtml, HasHashesInTheFormOfThePolicy) {
    // Of the empty text (FIPS 180-4), and made-up ones whose length needs no sign and one at the
    // end.
    EXPECT_EQ(policyHash("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"),
              "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
    EXPECT_EQ(policyHash("000000"), "AAAA");
    EXPECT_EQ(policyHash("ff"), "/w==");
}

TEST(IGViewHtml, PassesTextsOnEscapedAndMarkupAsItIs) {
    std::string page;
    const Sink sink = [&page](std::string_view piece) {
        page += piece;
        return true;
    };
    HtmlWriter out(sink);
    out << "<li>"_html << std::string("<b>") << 12U << "</li>"_html;
    EXPECT_EQ(page, "") << "short pieces are collected";
    EXPECT_TRUE(out.flush());
    EXPECT_EQ(page, "<li>&lt;b&gt;12</li>");
}

TEST(IGViewHtml, PassesALongPageOnInPiecesAndEndsAtAFailure) {
    std::size_t pieces = 0;
    std::size_t longest = 0;
    const Sink sink = [&](std::string_view piece) {
        longest = std::max(longest, piece.size());
        return ++pieces < 3;
    };
    HtmlWriter out(sink);
    for (int i = 0; i < 100000; ++i) {
        out << "<li>"_html << i;
    }
    EXPECT_FALSE(out.flush());
    EXPECT_EQ(pieces, 3U);
    EXPECT_LT(longest, 40000U);
}

TEST(IGViewGzip, CompressesTextsOneAfterTheOther) {
    Compressor compressor(BEST_COMPRESSION);
    const std::string text(100000, 'x');
    const std::string first(compressor.compressed(text));
    const std::string second(compressor.compressed("other"));
    EXPECT_LT(first.size(), 300U);
    EXPECT_EQ(first.substr(0, 2), "\x1f\x8b");
    EXPECT_EQ(second.substr(0, 2), "\x1f\x8b");
    EXPECT_EQ(std::string(compressor.compressed(text)), first);
}

}  // namespace
