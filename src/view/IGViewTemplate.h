// Texts with places for captures: "{count file system|file systems} above 95 %: {each mount}".
#ifndef QUENDIL_VIEW_IGVIEWTEMPLATE_H
#define QUENDIL_VIEW_IGVIEWTEMPLATE_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// What the places of a template are filled with.
struct TemplateValues {
    /// The value of a capture or of `value`.
    std::function<std::string(std::string_view)> one;
    /// The values of a capture in all matches that are known, in their order; may be empty where no
    /// list is allowed.
    std::function<std::vector<std::string>(std::string_view)> all;
    std::size_t count = 0;
};

/// A text with places: {NAME} a capture, {NAME KiB}, {NAME MiB} or {NAME bytes} a size that people
/// can read, {each NAME} the first values that differ, {each [NAME] of [NAME KiB]} the same of
/// texts that several captures make together, {count} how many, {count ONE|MANY} the same with a
/// word.
/// "{{" is a brace.
class Template {
  public:
    Template() = default;
    /// @param mistake is set if the text is wrong
    explicit Template(std::string_view text, std::string* mistake = nullptr);

    [[nodiscard]] std::string filled(const TemplateValues& values) const;
    /// The names of the captures that it needs.
    [[nodiscard]] std::vector<std::string> names() const;
    /// Whether it has {count} or {each NAME}, which one match alone does not have.
    [[nodiscard]] bool needsAll() const;

  private:
    struct Part {
        enum class Kind : unsigned char { TEXT, CAPTURE, BYTES, EACH, COUNT } kind = Kind::TEXT;
        std::string text;  // the text itself, or the name of the capture
        std::string one;   // of COUNT
        std::string many;
        double factor = 1;         // of BYTES
        std::vector<Part> inside;  // of EACH
    };
    static Part place(std::string_view inside, std::string* mistake);
    static Part plainPart(std::string text);
    static Part capture(std::string_view inside, std::string* mistake);
    static std::vector<Part> partsOfEach(std::string_view inside, std::string* mistake);
    static std::vector<std::string> valuesOf(const Part& each, const TemplateValues& values);

    std::vector<Part> parts_;
};

#endif
