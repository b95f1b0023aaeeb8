#include <array>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "check/IGCheckReport.h"
#include "companion/IGJson.h"

using nlohmann::ordered_json;

namespace {

ordered_json placeOf(TextPlace place) {
    return {{"line", place.line}, {"column", place.column}};
}

// One object with the findings and their number.
class JsonReport final : public Report {
  public:
    void begin() override { std::fputs(R"({"version": 1, "findings": [)", stdout); }

    void add(CheckedFile& file) override {
        for (const Finding& finding : file.findings) {
            ordered_json value{{"file", file.name}};
            if (finding.place.line != 0) {
                value.update(placeOf(finding.place));
            }
            value["level"] = nameOf(finding.rule->level);
            value["rule"] = finding.rule->name;
            value["message"] = finding.text;
            if (finding.note_place.line != 0) {
                value["note"] = placeOf(finding.note_place);
                value["note"]["message"] = finding.note;
            }
            findings_.add(value);
        }
    }

    void end(const Totals& totals) override {
        const ordered_json summary{{"files", totals.files},
                                   {"errors", totals.errors},
                                   {"warnings", totals.warnings},
                                   {"truncated", totals.truncated},
                                   {"unreadable", totals.unreadable}};
        std::printf("\n], \"summary\": %s}\n", dumped(summary).c_str());
    }

  private:
    ListWriter findings_;
};

constexpr const char* SARIF_SCHEMA = "https://json.schemastore.org/sarif-2.1.0.json";

// A path as a URI reference: absolute for an absolute path.
std::string uriOf(const std::string& path) {
    constexpr const char* KEPT = "/-_.~";
    std::string uri = path.starts_with("/") ? "file://" : "";
    for (const char c : path) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') ||
                           (c != '\0' && std::string(KEPT).find(c) != std::string::npos);
        std::array<char, 4> coded{};
        std::snprintf(coded.data(), coded.size(), "%%%02X", static_cast<unsigned char>(c));
        uri += plain ? std::string(1, c) : coded.data();
    }
    return uri;
}

// The format of static analysis results, version 2.1.0 (OASIS).
class SarifReport final : public Report {
  public:
    void begin() override {
        ordered_json rules = ordered_json::array();
        for (const Rule& rule : allRules()) {
            rules.push_back({{"id", rule.name},
                             {"shortDescription",
                              {{"text", rule.summary == nullptr ? rule.text : rule.summary}}},
                             {"defaultConfiguration", {{"level", nameOf(rule.level)}}}});
        }
        const ordered_json tool{
            {"driver",
             {{"name", "quendil-check"}, {"version", QUENDIL_RELEASE}, {"rules", rules}}}};
        std::printf(
            "{\"$schema\": \"%s\", \"version\": \"2.1.0\", \"runs\": [{\"tool\": %s, "
            "\"columnKind\": \"unicodeCodePoints\", \"results\": [",
            SARIF_SCHEMA, dumped(tool).c_str());
    }

    void add(CheckedFile& file) override {
        for (const Finding& finding : file.findings) {
            ordered_json value{{"ruleId", finding.rule->name},
                               {"ruleIndex", indexOf(*finding.rule)},
                               {"level", nameOf(finding.rule->level)},
                               {"message", {{"text", finding.text}}},
                               {"locations", {locationOf(file, finding.place)}}};
            if (finding.note_place.line != 0) {
                ordered_json note = locationOf(file, finding.note_place);
                note["id"] = 1;
                note["message"] = {{"text", finding.note}};
                value["relatedLocations"] = {note};
            }
            results_.add(value);
        }
    }

    void end(const Totals& totals) override {
        const ordered_json invocation{{"executionSuccessful", totals.unreadable == 0}};
        std::printf("\n], \"invocations\": [%s]}]}\n", dumped(invocation).c_str());
    }

  private:
    static ordered_json locationOf(const CheckedFile& file, TextPlace place) {
        ordered_json physical{{"artifactLocation", {{"uri", uriOf(file.name)}}}};
        if (place.line != 0) {
            physical["region"] = {{"startLine", place.line}, {"startColumn", place.column}};
        }
        return {{"physicalLocation", physical}};
    }

    ListWriter results_;
};

}  // namespace

std::unique_ptr<Report> makeJsonReport() {
    return std::make_unique<JsonReport>();
}

std::unique_ptr<Report> makeSarifReport() {
    return std::make_unique<SarifReport>();
}
