#include "view/IGViewDefinition.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <utility>
#include <vector>

#include "view/IGViewExpression.h"
#include "view/IGViewKeys.h"
#include "view/IGViewTable.h"

extern const std::string_view DEFINITIONS;

namespace {

constexpr double VERSION = 1;
constexpr std::size_t BARS_ROWS = 64;
constexpr std::size_t LINES_ROWS = 5000;

bool captures(const Query& query, const std::string& name) {
    const std::string group = "(?P<" + name + ">";
    return query.context.find(group) != std::string::npos ||
           std::any_of(query.find.begin(), query.find.end(), [&](const std::string& text) {
               return text.find(group) != std::string::npos;
           });
}

// The keys of one definition, with the checks that need more than one of them.
class Reader {
  public:
    /// @param check whether expressions and captures are checked, which takes time
    Reader(const nlohmann::json& object, std::string owner, bool check)
        : keys(object, std::move(owner)), check_(check) {}

    std::string name();
    Query query();
    Measure measure(const Query& query);
    Template form(const char* key, bool needed, bool one_match);
    std::vector<Template> forms(const char* key, std::size_t expressions);
    void needCapture(const std::string& name);
    void addName(const char* name) { names_.emplace_back(name); }

    Keys keys;

  private:
    Template form(const char* key, const std::string& text, bool one_match);

    bool check_;
    std::vector<std::string> names_{"item", "file"};  // that templates may use
};

std::string Reader::name() {
    std::string name = keys.neededText("name");
    if (!std::all_of(name.begin(), name.end(),
                     [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; })) {
        keys.fail("a name has only the letters a to z and \"-\"");
    }
    return name;
}

Query Reader::query() {
    Query query = readQuery(keys);
    std::string mistake;
    if (check_ && !keys.failed() && !checkQuery(query, names_, mistake)) {
        keys.fail(mistake);
    }
    return query;
}

void Reader::needCapture(const std::string& name) {
    if (check_ && std::find(names_.begin(), names_.end(), name) == names_.end()) {
        keys.fail("no expression captures (?P<" + name + ">...)");
    }
}

Measure Reader::measure(const Query& query) {
    Measure measure;
    measure.date = keys.texts("date");
    if (const nlohmann::json* object = keys.object("of"); object != nullptr) {
        Reader other(*object, "\"of\"", check_);
        measure.of = other.query();
        other.needCapture("value");
        addName("of");
        std::string why;
        if (!other.keys.end(why)) {
            keys.fail(why);
        }
    }
    measure.percent = measure.of || captures(query, "of");
    if (measure.percent && !measure.date.empty()) {
        keys.fail(R"(a date has no percentage: "date" and "of" exclude each other)");
    }
    return measure;
}

Template Reader::form(const char* key, bool needed, bool one_match) {
    return form(key, needed ? keys.neededText(key) : keys.text(key), one_match);
}

// One text, or one for each expression.
std::vector<Template> Reader::forms(const char* key, std::size_t expressions) {
    const std::vector<std::string> texts = keys.neededTexts(key);
    if (texts.size() > 1 && texts.size() != expressions) {
        keys.fail('"' + std::string(key) +
                  "\" is one text, or one for each expression in \"find\"");
    }
    std::vector<Template> result;
    result.reserve(texts.size());
    for (const std::string& text : texts) {
        result.push_back(form(key, text, false));
    }
    return result;
}

Template Reader::form(const char* key, const std::string& text, bool one_match) {
    std::string mistake;
    Template result(text, &mistake);
    if (!mistake.empty()) {
        keys.fail('"' + std::string(key) + "\": " + mistake);
    } else if (one_match && result.needsAll()) {
        keys.fail('"' + std::string(key) + "\" is filled from one match: it cannot count");
    }
    for (const std::string& name : result.names()) {
        needCapture(name);
    }
    return result;
}

// --- the four kinds ---

// "bits" is a number, or an object with a name for each bit.
void readBits(Reader& reader, RuleDefinition& rule) {
    Keys& keys = reader.keys;
    if (!keys.isObject("bits")) {
        rule.bits = keys.count("bits", 0);
        return;
    }
    const std::string mistake = "\"bits\" must have a text for each bit, such as \"16\"";
    for (const auto& [bit, name] : keys.object("bits")->items()) {
        std::uint64_t number = 0;
        const char* const end = bit.data() + bit.size();
        const auto [rest, error] = std::from_chars(bit.data(), end, number);
        if (error != std::errc() || rest != end || !std::has_single_bit(number) ||
            !name.is_string()) {
            keys.fail(mistake);
            return;
        }
        rule.bits |= number;
        rule.names_of_bits.emplace_back(number, name.get<std::string>());
    }
    if (rule.bits == 0) {
        keys.fail(mistake);
    }
    std::sort(rule.names_of_bits.begin(), rule.names_of_bits.end());
    reader.addName("bits");
}

void read(Reader& reader, RuleDefinition& rule) {
    Keys& keys = reader.keys;
    rule.weight = static_cast<Weight>(keys.word("weight", {"critical", "warning", "notice"}, true));
    rule.title = keys.neededText("title");
    rule.remedy = keys.neededText("remedy");
    rule.query = reader.query();
    rule.measure = reader.measure(rule.query);
    rule.above = keys.number("above");
    rule.below = keys.number("below");
    readBits(reader, rule);
    rule.texts = reader.forms("text", rule.query.find.size());
    rule.at_least = keys.count("at_least", 1);
    rule.absent = keys.flag("absent");
    rule.same = keys.flag("same");
    const bool has_captures = std::any_of(rule.texts.begin(), rule.texts.end(),
                                          [](const Template& t) { return !t.names().empty(); });
    if (rule.absent && (rule.measured() || has_captures || rule.texts.size() > 1)) {
        keys.fail("\"absent\" is found without a match: it has no captures and no numbers");
    } else if (rule.measured()) {
        reader.needCapture("value");
    } else if (rule.measure.percent || !rule.measure.date.empty()) {
        keys.fail(R"("of" and "date" need "above" or "below")");
    }
}

void read(Reader& reader, FactDefinition& fact) {
    fact.group = reader.keys.neededText("group");
    fact.label = reader.keys.neededText("label");
    fact.all = reader.keys.flag("all");
    fact.query = reader.query();
    fact.value = reader.form("value", true, true);
}

// "values" has a label for every capture that is a row of its own.
void readValues(Reader& reader, ChartDefinition& chart) {
    const nlohmann::json* object = reader.keys.object("values");
    if (object == nullptr) {
        reader.needCapture("value");
        return;
    }
    const std::string mistake = "\"values\" must have a text for every capture";
    if (object->empty()) {
        reader.keys.fail(mistake);
    }
    for (const auto& [capture, label] : object->items()) {
        if (!label.is_string()) {
            reader.keys.fail(mistake);
            return;
        }
        reader.needCapture(capture);
        chart.values.emplace_back(capture, label.get<std::string>());
    }
}

void read(Reader& reader, ChartDefinition& chart) {
    Keys& keys = reader.keys;
    chart.title = keys.neededText("title");
    chart.unit = keys.neededText("unit");
    chart.kind = static_cast<ChartKind>(keys.word("kind", {"bars", "lines"}, true));
    chart.most = keys.number("most").value_or(0);
    chart.rows = keys.count("rows", chart.kind == ChartKind::BARS ? BARS_ROWS : LINES_ROWS);
    chart.query = reader.query();
    chart.measure = reader.measure(chart.query);
    if (!chart.measure.date.empty()) {
        keys.fail("a chart cannot draw a \"date\"");
    }
    chart.rest = keys.flag("rest");
    chart.sorted = keys.flag("sorted");
    readValues(reader, chart);
    chart.label = reader.form("label", chart.values.empty(), true);
    chart.note = reader.form("note", false, true);
    if (chart.kind == ChartKind::LINES) {
        reader.needCapture("when");
    }
}

void read(Reader& reader, ComparisonDefinition& comparison) {
    comparison.title = reader.keys.neededText("title");
    comparison.query = reader.query();
    comparison.is_volatile = reader.keys.flag("volatile");
    reader.needCapture("key");
}

// --- a whole text ---

template <typename Definition>
void store(std::vector<Definition>& list, Definition definition) {
    const auto known = std::find_if(list.begin(), list.end(), [&](const Definition& other) {
        return other.name == definition.name;
    });
    if (known == list.end()) {
        list.push_back(std::move(definition));
    } else {
        *known = std::move(definition);
    }
}

// What a mistake calls a definition: by its name, or by its position if it has none.
std::string ownerOf(const nlohmann::json& object, const std::string& kind, std::size_t position) {
    const auto name = object.find("name");
    if (name != object.end() && name->is_string()) {
        return kind + " \"" + name->get<std::string>() + '"';
    }
    return kind + ' ' + std::to_string(position);
}

template <typename Definition>
bool readList(const nlohmann::json* list, const std::string& kind, bool check,
              std::vector<Definition>& into, std::string& why) {
    if (list == nullptr) {
        return true;
    }
    std::size_t position = 0;
    for (const nlohmann::json& object : *list) {
        ++position;
        if (!object.is_object()) {
            why = kind + ' ' + std::to_string(position) + ": it must be an object in braces";
            return false;
        }
        Reader reader(object, ownerOf(object, kind, position), check);
        Definition definition;
        definition.name = reader.name();
        read(reader, definition);
        if (!reader.keys.end(why)) {
            return false;
        }
        store(into, std::move(definition));
    }
    return true;
}

bool readAll(const nlohmann::json& object, bool check, DefinitionTable& table, std::string& why) {
    Keys keys(object, "the definitions");
    const auto version = keys.number("version");
    if (version != VERSION) {
        keys.fail("\"version\" must be 1");
    }
    const nlohmann::json* const rules = keys.list("rules");
    const nlohmann::json* const facts = keys.list("facts");
    const nlohmann::json* const charts = keys.list("charts");
    const nlohmann::json* const comparisons = keys.list("comparisons");
    return keys.end(why) && readList(rules, "rule", check, table.rules, why) &&
           readList(facts, "fact", check, table.facts, why) &&
           readList(charts, "chart", check, table.charts, why) &&
           readList(comparisons, "comparison", check, table.comparisons, why);
}

}  // namespace

std::string_view builtInDefinitions() {
    return DEFINITIONS;
}

Definitions::Definitions() : table_(std::make_unique<DefinitionTable>()) {
}
Definitions::~Definitions() = default;

bool Definitions::add(std::string_view text, std::string& why) {
    const nlohmann::json object = nlohmann::json::parse(text, nullptr, false, true);
    if (!object.is_object()) {
        why = object.is_discarded() ? "the definitions are not JSON"
                                    : "the definitions must be an object in braces";
        return false;
    }
    // To compile all expressions of the built-in ones takes too long for every start: a test does
    // it.
    const bool check = text.data() != DEFINITIONS.data();
    auto extended = std::make_unique<DefinitionTable>(*table_);
    if (!readAll(object, check, *extended, why)) {
        return false;
    }
    table_ = std::move(extended);
    return true;
}
