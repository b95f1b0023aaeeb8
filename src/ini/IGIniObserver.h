// What the readers of pattern and configuration files tell a check of these files: why a file is
// refused, and where each value is. A run has no observer.
#ifndef QUENDIL_INI_IGINIOBSERVER_H
#define QUENDIL_INI_IGINIOBSERVER_H

#include <cstdint>
#include <string_view>

#include "common/file/IGCmnFile.h"
#include "ini/IGIniTable.h"

/// Why a reader refuses a file.
enum class Refusal : std::uint8_t {
    // characters and lines
    CHARACTER_INVALID,  ///< a character that the file may not contain
    LINE_TOO_LONG,
    QUOTE_UNCLOSED,   ///< a quoted text that does not end on its line
    LINE_EMPTY,       ///< configuration: neither a comment nor KEY=VALUE
    LINE_INVALID,     ///< configuration: no "=", or a line that does not begin with a key
    CARRIAGE_RETURN,  ///< configuration: a line that ends with CR LF
    // statements
    STATEMENT_INVALID,  ///< something else than a keyword or a closing brace
    KEYWORD_UNKNOWN,
    KEYWORD_RESERVED,   ///< REG0 to REG9
    KEYWORD_MISPLACED,  ///< `detail` names the block that it belongs to, "" the top
    KEYWORD_REPEATED,
    EQUAL_MISSING,
    COMMENT_JOINED,  ///< a comment without a blank before it, at `other`: the value continued
    // blocks
    BRACE_MISSING,  ///< no opening brace on the line of the block's keyword, which is at `other`
    BRACE_REPEATED,
    BRACE_TEXT,            ///< text or a comment after an opening brace
    BRACE_UNEXPECTED,      ///< a closing brace outside of any block
    BLOCK_OPEN,            ///< a keyword that can only follow the end of the block at `other`
    BLOCK_UNCLOSED,        ///< the end of the file inside the block at `other`
    BLOCK_MISSING,         ///< no BLOCK in the file
    COMMAND_LINE_MISSING,  ///< at the end of the block at `other`
    PATH_NAME_MISSING,     ///< the same
    // the version of the format
    FORMAT_VERSION_FIRST,  ///< another keyword before it
    FORMAT_VERSION_INVALID,
    FORMAT_VERSION_NEWER,
    FORMAT_VERSION_MISSING,
    // values
    VALUE_BLANK,    ///< a blank outside of quotes
    SETTING_BLANK,  ///< configuration: a blank before or after the "="
    VALUE_MARK,     ///< one of = { } outside of quotes
    VALUE_EMPTY,
    VALUE_TOO_LONG,           ///< `limit` is the longest length in bytes
    SPECIAL_STRING_UNKNOWN,   ///< `detail` is its name with the leading "%"
    SPECIAL_STRING_UNCLOSED,  ///< `detail` is the text from the "%" on
    NUMBER_INVALID,
    NUMBER_RANGE,  ///< outside of `lowest` to `limit`
    PATH_RELATIVE,
    SWITCH_INVALID,  ///< configuration: neither ON nor OFF
    COUNT,
};

/// A place in a text file.
struct TextPlace {
    std::int32_t line = 0;  // from 1; 0 for no place
    std::int32_t column =
        0;  // from 1, in characters; carriage returns are not counted in a pattern
};

/// A mistake in a file.
struct Mistake {
    Refusal reason;
    TextPlace place;
    TextPlace other{};           // of an earlier cause
    std::string_view keyword{};  // that the mistake is about; empty for none
    std::string_view detail{};
    long lowest = 0;
    long limit = 0;
};

/// What a value belongs to.
enum class ValueOwner : std::uint8_t { TOP, BLOCK, ITEM };

/// A value that a reader has accepted.
struct AcceptedValue {
    ValueOwner owner;          // the file, the last block or the last item that was opened
    std::string_view keyword;  // in the spelling of the table of keywords
    TextPlace keyword_place;
    TextPlace place;    // where the value begins
    const char* value;  // as written: quotes and escapes removed
    bool joined;        // a comment follows it without a blank
};

/// What a line with a mistake may do that its reader has not seen.
enum class Skipped : std::uint8_t {
    NOTHING,
    OPENS,   ///< open a block that is not known: reading goes on after that block
    CLOSES,  ///< close a block at its end: reading goes on at that brace
};

/// Observes a reader. Texts are valid during the call only.
class IniObserver {
  public:
    IniObserver(const IniObserver&) = delete;
    IniObserver& operator=(const IniObserver&) = delete;

    /// A mistake. Returns whether to look for more.
    virtual bool refused(const Mistake& mistake) = 0;
    /// Called after a mistake in a pattern file: makes the file continue at the start of its line
    /// `line`, or at another place that `skipped` names. Returns false to stop reading.
    virtual bool resume(IgCmnFileHandle& file, std::int32_t line, Skipped skipped) = 0;
    virtual void accepted(const AcceptedValue& value) = 0;
    /// A BLOCK was opened, or an item of the current block; `item` is null for a BLOCK.
    virtual void opened(TextPlace keyword, const ptn_block& block, const collect_item* item) = 0;

  protected:
    IniObserver() = default;
    ~IniObserver() = default;
};

#endif
