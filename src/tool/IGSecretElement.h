// Elements and attributes of markup: <password>x</password>, <a name="password" value="x"/>, and
// pairs of JSON that are written like attributes. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETELEMENT_H
#define QUENDIL_TOOL_IGSECRETELEMENT_H

#include "tool/IGSecretLine.h"
#include "tool/IGSecretWord.h"

/// Follows the tags of one line, from left to right.
class ElementScan {
  public:
    explicit ElementScan(SecretLine& line) : line_(line) {}

    /// Whether a tag is open: the place is between "<" and ">".
    [[nodiscard]] bool inTag() const { return tag_ != Tag::NONE; }
    /// Whether the last tag of the line names a secret, whose text begins in the next line.
    [[nodiscard]] bool isOpen() const { return secret_element_ && tag_ == Tag::NONE; }

    /// Takes a byte that is no part of a name.
    /// @return the place where to continue: behind the text of an element that was hidden, or
    ///   behind the byte
    std::size_t atSign(std::size_t place) {
        return inTag() || line_.at(place) == '<' ? atTagSign(place) : place + 1;
    }
    /// Takes the name of an element.
    void atName(const secret_name& name);
    /// Hides what belongs to an attribute whose value names a secret: name="password" value="x",
    /// "key": "password", "value": "x", <entry key="password">x</entry>. For "name: password" at
    /// the end of a line, the value may be in the next one.
    /// @return the place where to continue, or 0 when the name is no such attribute
    std::size_t attribute(const secret_name& name);
    /// Hides the text of an element, up to the next tag. A text that begins in the next line is
    /// left to that.
    /// @return the end of the text
    std::size_t element(std::size_t text);

  private:
    // A stretch up to a quote or the end of the line. Each rule that reads ahead in it does so
    // once.
    struct Region {
        std::size_t from = NOWHERE;
        std::size_t to = 0;
        secret_word word;             // the last secret word in it
        bool part = false;            // it is a short one, in a stretch of one name
        bool divided = false;         // ":" or "=" follows that word
        std::size_t value = NOWHERE;  // the quote of a value: name="password" value="x"
        bool value_searched = false;
        std::size_t element = NOWHERE;  // the text of an element: <entry key="password">x
        bool element_searched = false;
    };
    enum class Tag { NONE, NAME, INSIDE };

    std::size_t atTagSign(std::size_t place);
    Region& regionAt(std::size_t place);
    [[nodiscard]] std::size_t attributeValue(const secret_name& name) const;
    [[nodiscard]] std::size_t elementBehind(std::size_t quote) const;
    [[nodiscard]] std::size_t behindAttributes(std::size_t quote) const;
    std::size_t valueBehind(std::size_t quote);

    SecretLine& line_;
    Region region_;
    Tag tag_ = Tag::NONE;
    std::size_t tag_value_ = NOWHERE;  // the quote of the attribute "value" of the tag
    bool secret_element_ = false;      // the open tag names a secret
};

#endif
