#pragma once
// The harness of the suites that read the real files of the corpus and compare
// with an independent reader: the files of a kind, one run of the oracle over
// them, and a table of named fields compared between our reading and its own.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <quillhaven/Value.h>
#include "support/CliTestSupport.h"
#include "support/Corpus.h"

namespace qhtest {

using json = nlohmann::json;

// The corpus files of one kind, sorted by name within each suffix: "msg",
// "eml", "tnef" (.tnef, then .dat), "rtf" (.lzfu, then .bin), and "mail" (msg,
// eml and tnef in that order); none when the corpus is absent.
std::vector<std::filesystem::path> corpusOf(const std::string& kind);

// An independent reader: a Python script of tests/ that prints one JSON line
// per file named on its command line, in order; one run reads every file.
struct Oracle {
    std::string script;        // relative to tests/, "msg/olefile_oracle.py"
    std::string modules;       // what it imports ("olefile, json"): absent, the test skips
    std::string program = "";  // a program it runs ("/usr/bin/tnef"): absent, the test skips
};

// The oracle's readings, one per file. Only a missing oracle skips; one that
// fails (an exit status, a line that is no JSON, a file without its line)
// fails the test: QH_REQUIRE_ORACLE does both.
struct OracleRun {
    std::string skipped;
    std::string failure;
    std::vector<json> readings;
};
OracleRun runOracle(const Oracle& oracle, const std::vector<std::filesystem::path>& files);

#define QH_REQUIRE_ORACLE(run)                                     \
    do {                                                           \
        if (!(run).skipped.empty()) GTEST_SKIP() << (run).skipped; \
        ASSERT_EQ((run).failure, "");                              \
    } while (0)

// The text under `key`, "" when there is none.
std::string text(const qh::Dict& dict, std::string_view key);
// The list under `key`, empty when there is none.
const qh::Array& listOf(const qh::Dict& dict, std::string_view key);
// A JSON string's text, "" for anything else (null: the oracle found none).
std::string text(const json& value);

// A file on which our reading and the oracle's part ways on purpose, and why.
struct Difference {
    std::string file;
    std::string field;
    std::string reason;
};
bool listed(const std::vector<Difference>& differences, const std::string& file, const std::string& field);

// Our reading and the oracle's, each given as a JSON object of named fields,
// compared file by file: every field the oracle gives (its object leaves out
// those it has no say on), except the differences listed for the file, must
// be the same in ours. Counts each field compared; prints the counts when it goes.
class FieldTable {
public:
    explicit FieldTable(std::string title, std::vector<Difference> known = {});
    ~FieldTable();
    FieldTable(const FieldTable&) = delete;
    FieldTable& operator=(const FieldTable&) = delete;
    void compare(const std::string& file, const json& ours, const json& theirs);
    std::size_t count(const std::string& field) const;

private:
    std::string title_;
    std::vector<Difference> known_;
    std::map<std::string, std::size_t> counts_;
};

}  // namespace qhtest
