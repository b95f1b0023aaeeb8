#include "view/IGViewExpression.h"

#include <algorithm>

namespace {

// With fewer expressions, to try each of them is cheaper than to compile them together.
constexpr std::size_t FEWEST_FOR_FILTER = 4;
// Shorter texts are in too many lines.
constexpr int SHORTEST_TEXT = 3;

re2::StringPiece piece(std::string_view text) {
    return {text.data(), text.size()};
}

std::vector<Expression> expressionsOf(const std::vector<std::string>& texts, bool captures) {
    std::vector<Expression> result;
    result.reserve(texts.size());
    for (const std::string& text : texts) {
        result.emplace_back(text, captures);
    }
    return result;
}

bool checkExpression(const std::string& text, std::vector<std::string>* names,
                     std::string& mistake) {
    const RE2 expression(text, expressionOptions(names != nullptr));
    if (!expression.ok()) {
        mistake = "the expression \"" + text + "\" is wrong: " + expression.error();
        return false;
    }
    if (names != nullptr) {
        for (const auto& [name, group] : expression.NamedCapturingGroups()) {
            names->push_back(name);
        }
    }
    return true;
}

}  // namespace

RE2::Options expressionOptions(bool captures) {
    RE2::Options options;
    options.set_encoding(RE2::Options::EncodingLatin1);
    options.set_log_errors(false);
    options.set_never_capture(!captures);
    options.set_max_mem(EXPRESSION_MEMORY);
    return options;
}

void Expression::compile() {
    if (compiled_ != nullptr) {
        return;
    }
    compiled_ = std::make_unique<RE2>(text_, expressionOptions(captures_));
    if (captures_) {
        for (const auto& [name, group] : compiled_->NamedCapturingGroups()) {
            names_.emplace_back(name, static_cast<std::size_t>(group));
        }
        groups_.resize(static_cast<std::size_t>(std::max(compiled_->NumberOfCapturingGroups(), 0)) +
                       1);
    }
}

bool Expression::matches(std::string_view text) {
    compile();
    return compiled_->Match(piece(text), 0, text.size(), RE2::UNANCHORED, nullptr, 0);
}

bool Expression::matches(std::string_view text, Captures& captures, std::size_t& begin) {
    compile();
    if (!compiled_->Match(piece(text), 0, text.size(), RE2::UNANCHORED, groups_.data(),
                          static_cast<int>(groups_.size()))) {
        return false;
    }
    begin = static_cast<std::size_t>(groups_[0].data() - text.data());
    for (const auto& [name, group] : names_) {
        if (groups_[group].data() != nullptr) {
            captures.emplace_back(name,
                                  std::string_view(groups_[group].data(), groups_[group].size()));
        }
    }
    return true;
}

QueryExpressions::QueryExpressions(const Query& query)
    : find(expressionsOf(query.find, true)),
      unless(expressionsOf(query.unless, false)),
      after(query.after, false),
      context(query.context, true),
      needs(query.needs, false) {
}

// --- one combination of queries ---

ItemReader::Program::Program(std::span<const Query* const> queries)
    : queries_(queries.begin(), queries.end()), filter_(SHORTEST_TEXT) {
    for (const Query* query : queries_) {
        expressions_.emplace_back(*query);
        looks_back_ = looks_back_ || !query->after.empty();
    }
    number();
    may_match_.assign(numbered_.size(), 1);
    if (numbered_.size() >= FEWEST_FOR_FILTER) {
        makeFilter();
    }
}

// Every query has its expressions in `find`, then `context` and `needs`.
void ItemReader::Program::number() {
    for (std::size_t position = 0; position < queries_.size(); ++position) {
        expressions_[position].first = numbered_.size();
        for (const std::string& text : queries_[position]->find) {
            numbered_.push_back(&text);
        }
        numbered_.push_back(&queries_[position]->context);
        numbered_.push_back(&queries_[position]->needs);
    }
}

void ItemReader::Program::makeFilter() {
    for (std::size_t number = 0; number < numbered_.size(); ++number) {
        int id = 0;
        if (!numbered_[number]->empty() &&
            filter_.Add(piece(*numbered_[number]), expressionOptions(false), &id) == RE2::NoError) {
            filtered_.push_back(number);
        }
    }
    if (filtered_.empty()) {
        return;
    }
    std::vector<std::string> texts;
    filter_.Compile(&texts);
    RE2::Options options = expressionOptions(false);
    options.set_case_sensitive(false);  // they are in small letters
    options.set_max_mem(SET_MEMORY);
    auto set = std::make_unique<RE2::Set>(options, RE2::UNANCHORED);
    for (const std::string& text : texts) {
        set->Add(RE2::QuoteMeta(piece(text)), nullptr);
    }
    filter_.AllPotentials({}, &possible_);
    some_always_ = !possible_.empty();
    if (set->Compile()) {
        texts_ = std::move(set);
    }
}

bool ItemReader::Program::isFor(std::span<const Query* const> queries) const {
    return std::equal(queries.begin(), queries.end(), queries_.begin(), queries_.end());
}

bool ItemReader::Program::scan(std::string_view text) {
    if (texts_ == nullptr) {
        return true;
    }
    RE2::Set::ErrorInfo error{};
    found_texts_.clear();
    // Without a place for the numbers it is much faster, and most lines have none of the texts.
    const bool any = texts_->Match(piece(text), nullptr, &error) &&
                     texts_->Match(piece(text), &found_texts_, &error);
    if (error.kind == RE2::Set::kOutOfMemory) {
        may_match_.assign(numbered_.size(), 1);
        return true;
    }
    if (!any && !some_always_) {
        return false;
    }
    filter_.AllPotentials(found_texts_, &possible_);
    may_match_.assign(numbered_.size(), 0);
    for (const int id : possible_) {
        may_match_[filtered_[static_cast<std::size_t>(id)]] = 1;
    }
    return !possible_.empty();
}

bool checkQuery(const Query& query, std::vector<std::string>& names, std::string& mistake) {
    std::vector<std::pair<const std::string*, std::vector<std::string>*>> expressions;
    for (const std::string& text : query.find) {
        expressions.emplace_back(&text, &names);
    }
    for (const std::string& text : query.unless) {
        expressions.emplace_back(&text, nullptr);
    }
    expressions.emplace_back(&query.context, &names);
    expressions.emplace_back(&query.after, nullptr);
    expressions.emplace_back(&query.needs, nullptr);
    return std::all_of(expressions.begin(), expressions.end(), [&](const auto& expression) {
        return checkExpression(*expression.first, expression.second, mistake);
    });
}
