// Values that follow the name of a secret without a sign: options, sentences, remarks. Only the
// units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETSENTENCE_H
#define QUENDIL_TOOL_IGSECRETSENTENCE_H

#include "tool/IGSecretNamedLine.h"
#include "tool/IGSecretWord.h"

/// Where the value begins in "the token is x"; 0 when no verb of SAYING_VERBS follows the name.
std::size_t behindVerb(const SecretLine& line, const secret_name& name);

/// Whether the word at `from`, behind "is", is a word of a sentence and no value: a word of
/// ORDINARY_WORDS, or one like "moved" and "usually". Behind a short name any word without a digit
/// is one, and behind "key" any word, because the length of a key is no secret.
bool isOrdinary(const SecretLine& line, const secret_name& name, std::size_t from);

/// Finds the values of one line that follow a name without a sign.
class SentenceScan {
  public:
    /// The line must outlive this.
    explicit SentenceScan(const NamedLine& named) : line_(named.line()), named_(named) {}

    /// Hides the value that follows the name of a secret.
    /// @return the place where to continue, or 0 when no value follows
    std::size_t mark(const secret_name& name);

  private:
    [[nodiscard]] bool takesNextWord(const secret_name& name) const;
    std::size_t argument(const secret_name& name, std::size_t rest);
    [[nodiscard]] bool quotedAtEnd(const secret_name& name, std::size_t quote);
    [[nodiscard]] bool quotedSecret(const secret_name& name, std::size_t quote) const;
    std::size_t sentence(const secret_name& name);
    std::size_t hideSentenceWord(std::size_t from);
    std::size_t remark(const secret_name& name, std::size_t from);
    std::size_t number(const secret_name& name, std::size_t from);
    std::size_t nextWord(const secret_name& name, std::size_t rest);
    [[nodiscard]] std::size_t behindFiller(std::size_t from) const;
    [[nodiscard]] bool followsUser(const secret_name& name) const;
    [[nodiscard]] bool followsPairWord(const secret_name& name);
    [[nodiscard]] bool endsInName(const secret_name& name, bool key) const;
    std::size_t beforeSign(std::size_t from, std::size_t sign);
    std::size_t laterWord(const secret_name& name, std::size_t from);
    [[nodiscard]] std::size_t laterWordEnd(std::size_t from) const;
    [[nodiscard]] std::size_t withoutClosing(std::size_t from, std::size_t end) const;
    [[nodiscard]] bool isLaterValue(std::size_t from, std::size_t to, bool behind_colon) const;
    std::size_t hideLaterValue(std::size_t from, std::size_t value_end, std::size_t end);
    [[nodiscard]] bool mayPrecedeValue(std::size_t from, std::size_t to) const;
    [[nodiscard]] std::size_t behindOpening(std::size_t from) const;
    [[nodiscard]] bool isApostrophe(std::size_t place) const;
    [[nodiscard]] bool isPassword(const secret_name& name) const;

    SecretLine& line_;
    const NamedLine& named_;
    FirstPlace put_;   // " put "
    FirstPlace user_;  // "user "
};

#endif
