// The RTF reader on real message bodies: every compressed RTF of the corpus
// converts, and the text it gives shares its words with the message's plain body.
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <quillhaven/Mole.h>
#include "core/TextEncoding.h"
#include "richtext/RTFConverter.h"
#include "richtext/RTFEncapsulatedHTML.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"
#include "support/Oracle.h"
#include "support/RtfCompressor.h"

namespace {

using qhtest::readFileBytes;

// Bodies of HTML mail that the one-pass extraction took (and matched).
int encapsulatedTaken = 0;

void expectConverts(qh::ByteView rtf, const std::string& where) {
    std::optional<std::string> text = qh::RTFReader::stringFromRTFData(rtf);
    std::optional<std::string> html = qh::RTFReader::htmlFromRTFData(rtf);
    ASSERT_TRUE(text.has_value()) << where;
    ASSERT_TRUE(html.has_value()) << where;
    EXPECT_EQ(qh::TextEncoding::sanitizeUTF8(*text), *text) << where << ": text is not UTF-8";
    EXPECT_EQ(qh::TextEncoding::sanitizeUTF8(*html), *html) << where << ": HTML is not UTF-8";
    // Encapsulated HTML comes back as the original markup (at times a bare
    // fragment written by a web mailer); the rest as our own document.
    std::string head = qh::TextEncoding::lowercase(qh::TextEncoding::trimWhitespaceAndNewlines(html->substr(0, 200)));
    if (qh::asText(rtf).find("\\fromhtml1") != std::string_view::npos)
        EXPECT_TRUE(head.starts_with("<")) << where << ": " << head;
    else
        EXPECT_TRUE(head.starts_with("<!doctype html>")) << where;
    // The one-pass extraction of HTML mail gives the converter's HTML.
    if (std::optional<std::string> fast = qh::RTFEncapsulatedHTML::extract(rtf)) {
        ++encapsulatedTaken;
        EXPECT_EQ(*fast, qh::RTFConverter(qh::RTFConverter::Output::HTML).convert(rtf)) << where;
    }
}

// Every compressed RTF of the corpus decodes to the body its peer wrote
// down, comes back through the fixture encoder, and converts.
TEST(RTFReaderCorpus, EveryCompressedRtfDecodesAndConverts) {
    QH_REQUIRE_CORPUS("rtf");
    const auto files = qhtest::corpusOf("rtf");
    ASSERT_FALSE(files.empty());
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename().string());
        std::optional<qh::Bytes> rtf = qh::RTFWangers::getRTFForData(readFileBytes(path));
        ASSERT_TRUE(rtf.has_value());
        std::string expected(qh::asText(readFileBytes(path.string() + ".expected.rtf")));
        if (path.extension() == ".bin") {
            // That peer keeps LF CR in its dictionary; the standard's has CR LF.
            for (std::size_t at = expected.find("\n\r"); at != std::string::npos; at = expected.find("\n\r", at + 2))
                expected.replace(at, 2, "\r\n");
        }
        EXPECT_TRUE(expected.starts_with("{\\rtf"));
        EXPECT_EQ(qh::asText(*rtf), expected);
        EXPECT_EQ(qh::RTFWangers::getRTFForData(qhtest::RtfCompressor::compress(*rtf)), rtf);
        expectConverts(*rtf, path.filename().string());
    }
}

// Words of four or more ASCII letters, in order of first appearance. Link
// targets are left out: plain bodies written from HTML spell them out, the
// RTF shows the link's text.
std::vector<std::string> wordsOf(std::string_view text, std::size_t limit) {
    std::vector<std::string> words;
    std::set<std::string> seen;
    std::istringstream tokens{std::string(text)};
    for (std::string token; words.size() < limit && tokens >> token;) {
        if (token.find("://") != std::string::npos || token.find("mailto:") != std::string::npos ||
            token.find('@') != std::string::npos || token.starts_with("<") || token.starts_with("["))
            continue;
        std::string word;
        for (char c : token + " ") {
            if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
                word.push_back(c);
            } else {
                if (word.size() >= 4 && seen.insert(word).second) words.push_back(word);
                word.clear();
            }
        }
    }
    return words;
}

// The plain body of a message: the Unicode stream cut at its first NUL, else the 8-bit one.
std::string plainBody(const qh::Mole& mole) {
    if (auto unicode = mole.getStream("__substg1.0_1000001F")) {
        qh::ByteView bytes = unicode->view();
        std::size_t length = 0;
        while (length + 1 < bytes.size() && (bytes[length] || bytes[length + 1])) length += 2;
        return qh::TextEncoding::decode(bytes.first(length), qh::StringEncoding::UTF16LE).value_or("");
    }
    if (auto ansi = mole.getStream("__substg1.0_1000001E")) {
        std::string_view text = ansi->text();
        return std::string(text.substr(0, text.find('\0')));
    }
    return {};
}

TEST(RTFReaderCorpus, RtfTextSharesTheWordsOfThePlainBody) {
    QH_REQUIRE_CORPUS("msg");
    int compared = 0;
    for (const auto& path : qhtest::corpusOf("msg")) {
        const std::string name = path.filename().string();
        qh::Bytes file = readFileBytes(path);
        auto mole = qh::Mole::initWithData(file);
        if (!mole) continue;
        auto compressed = mole->getStream("__substg1.0_10090102");
        if (!compressed || !qh::RTFWangers::typeIsRTF(compressed->view())) continue;
        std::optional<qh::Bytes> rtf = qh::RTFWangers::getRTFForData(compressed->view());
        if (!rtf || !qh::asText(*rtf).starts_with("{\\rtf")) continue;
        expectConverts(*rtf, name);

        std::vector<std::string> bodyWords = wordsOf(plainBody(*mole), 60);
        if (bodyWords.size() < 3) continue;
        std::string text = qh::RTFReader::stringFromRTFData(*rtf).value_or("");
        std::size_t found = 0;
        std::string missing;
        for (const std::string& word : bodyWords) {
            if (text.find(word) != std::string::npos) ++found;
            else missing += word + " ";
        }
        // Loose on purpose: bodies and their RTF differ in small ways (link
        // targets written out in the plain body, signatures), never wholesale.
        EXPECT_GE(found * 10, bodyWords.size() * 8) << name << ": missing " << missing;
        ++compared;
    }
    EXPECT_GT(compared, 10);
    EXPECT_GT(encapsulatedTaken, 10);
}

}  // namespace
