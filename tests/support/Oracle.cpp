#include "support/Oracle.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace qhtest {

namespace fs = std::filesystem;

std::vector<fs::path> corpusOf(const std::string& kind) {
    static const std::map<std::string, std::vector<std::pair<std::string, std::string>>> kinds = {
        {"msg", {{"msg", ".msg"}}}, {"eml", {{"eml", ".eml"}}}, {"tnef", {{"tnef", ".tnef"}, {"tnef", ".dat"}}},
        {"rtf", {{"rtf", ".lzfu"}, {"rtf", ".bin"}}}};
    std::vector<fs::path> files;
    for (const std::string& each : kind == "mail" ? std::vector<std::string>{"msg", "eml", "tnef"} : std::vector{kind}) {
        for (const auto& [sub, suffix] : kinds.at(each)) {
            for (const fs::path& path : corpusFiles(sub, suffix)) files.push_back(path);
        }
    }
    return files;
}

OracleRun runOracle(const Oracle& oracle, const std::vector<fs::path>& files) {
    OracleRun run;
    if (!oracle.program.empty() && ::access(oracle.program.c_str(), X_OK) != 0) {
        run.skipped = oracle.program + " is not installed";
    } else if (!pythonHas(oracle.modules)) {
        run.skipped = "python3 with " + oracle.modules + " is not installed";
    }
    if (!run.skipped.empty()) return run;
    std::vector<std::string> argv{"/usr/bin/python3", std::string(QH_SOURCE_DIR) + "/tests/" + oracle.script};
    for (const fs::path& file : files) argv.push_back(file.string());
    const CliResult result = runProgram(argv);
    if (result.exitCode != 0) {
        run.failure = oracle.script + " failed: " + result.err;
        return run;
    }
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        run.readings.push_back(json::parse(line, nullptr, false));
        if (run.readings.back().is_discarded()) {
            run.failure = oracle.script + " wrote no JSON: " + line.substr(0, 200);
            return run;
        }
    }
    if (run.readings.size() != files.size()) {
        run.failure = oracle.script + " read " + std::to_string(run.readings.size()) + " of " +
                      std::to_string(files.size()) + " files";
    }
    return run;
}

bool listed(const std::vector<Difference>& differences, const std::string& file, const std::string& field) {
    return std::any_of(differences.begin(), differences.end(),
                       [&](const Difference& d) { return d.file == file && d.field == field; });
}

std::string text(const qh::Dict& dict, std::string_view key) {
    const std::string* value = dict.findString(key);
    return value ? *value : std::string();
}

const qh::Array& listOf(const qh::Dict& dict, std::string_view key) {
    static const qh::Array none;
    const qh::Array* list = dict.findArray(key);
    return list ? *list : none;
}

std::string text(const json& value) { return value.is_string() ? value.get<std::string>() : std::string(); }

namespace {

// Equal values; for texts, where they first part.
::testing::AssertionResult sameJson(const json& ours, const json& theirs) {
    if (ours == theirs) return ::testing::AssertionSuccess();
    if (!ours.is_string() || !theirs.is_string()) {
        const auto shown = [](const json& value) {
            return value.dump(-1, ' ', false, json::error_handler_t::replace).substr(0, 2000);
        };
        return ::testing::AssertionFailure() << "ours " << shown(ours) << "\ntheirs " << shown(theirs);
    }
    const std::string& a = ours.get_ref<const std::string&>();
    const std::string& b = theirs.get_ref<const std::string&>();
    std::size_t at = 0;
    while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
    return ::testing::AssertionFailure() << "texts differ at byte " << at << " of " << a.size() << " / " << b.size()
                                         << ": ours \"" << a.substr(at, 40) << "\", theirs \"" << b.substr(at, 40)
                                         << "\"";
}

}  // namespace

FieldTable::FieldTable(std::string title, std::vector<Difference> known)
    : title_(std::move(title)), known_(std::move(known)) {}

FieldTable::~FieldTable() {
    std::string counts;
    for (const auto& [field, count] : counts_) counts += " " + field + "=" + std::to_string(count);
    std::printf("%s:%s\n", title_.c_str(), counts.c_str());
}

void FieldTable::compare(const std::string& file, const json& ours, const json& theirs) {
    for (const auto& [field, value] : theirs.items()) {
        if (listed(known_, file, field)) continue;
        EXPECT_TRUE(sameJson(ours.contains(field) ? ours[field] : json(), value)) << title_ << ", " << file << ": " << field;
        ++counts_[field];
    }
}

std::size_t FieldTable::count(const std::string& field) const {
    auto found = counts_.find(field);
    return found == counts_.end() ? 0 : found->second;
}

}  // namespace qhtest
