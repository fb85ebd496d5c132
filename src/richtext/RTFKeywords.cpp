#include "richtext/RTFKeywords.h"

#include <cstring>
#include <utility>

namespace qh::rtfwords {

void KeywordTable::emplace(std::string_view word, KeywordEntry entry) {
    const WordKey key = keyOf(word);
    std::size_t i = slotOf(key);
    while (slots_[i].used) i = (i + 1) & kMask;
    slots_[i] = Slot{word, key, entry, true};
}

namespace {

KeywordTable buildTable() {
    KeywordTable t;
    // Destinations whose text is not part of the document's text.
    for (std::string_view word :
         {"colortbl", "stylesheet", "info", "pict", "header", "headerl", "headerr", "headerf", "footer",
          "footerl", "footerr", "footerf", "footnote", "listtable", "listoverridetable", "revtbl", "rsidtbl",
          "filetbl", "pgdsctbl", "template", "themedata", "colorschememapping", "latentstyles", "datastore",
          "xmlnstbl", "generator", "bkmkstart", "bkmkend", "xe", "tc", "txe", "rxe", "pntxta", "pntxtb",
          "objdata", "objclass", "mmathPr", "userprops", "docvar", "fchars", "lchars", "private", "atnid",
          "atnauthor", "annotation", "nonshppict", "comment", "author", "operator", "title", "subject",
          "keywords", "doccomm", "company", "category", "manager", "hlinkbase", "passwordhash", "wgrffmtfilter",
          "mhtmltag", "ftnsep", "ftnsepc", "ftncn", "aftnsep", "aftnsepc", "aftncn", "sp", "formfield"})
        t.emplace(word, KeywordEntry{Keyword::SkipDestination});
    t.emplace("fonttbl", KeywordEntry{Keyword::FontTable});
    t.emplace("fldinst", KeywordEntry{Keyword::FieldInstruction});
    t.emplace("fldrslt", KeywordEntry{Keyword::FieldResult});
    t.emplace("field", KeywordEntry{Keyword::Field});
    t.emplace("htmltag", KeywordEntry{Keyword::HtmlTag});
    t.emplace("b", KeywordEntry{Keyword::Bold});
    t.emplace("i", KeywordEntry{Keyword::Italic});
    for (std::string_view word : {"ul", "uld", "uldash", "uldashd", "uldashdd", "uldb", "ulhwave", "ulldash",
                                  "ulth", "ulthd", "ulthdash", "ulthdashd", "ulthdashdd", "ulthldash",
                                  "ululdbwave", "ulw", "ulwave"})
        t.emplace(word, KeywordEntry{Keyword::Underline});
    t.emplace("ulnone", KeywordEntry{Keyword::UnderlineNone});
    t.emplace("v", KeywordEntry{Keyword::Hidden});
    t.emplace("plain", KeywordEntry{Keyword::Plain});
    t.emplace("f", KeywordEntry{Keyword::Font});
    t.emplace("deff", KeywordEntry{Keyword::DefaultFont});
    t.emplace("fcharset", KeywordEntry{Keyword::FontCharset});
    t.emplace("cpg", KeywordEntry{Keyword::FontCodePage});
    t.emplace("uc", KeywordEntry{Keyword::UnicodeSkip});
    t.emplace("u", KeywordEntry{Keyword::Unicode});
    t.emplace("ansicpg", KeywordEntry{Keyword::AnsiCodePage});
    t.emplace("ansi", KeywordEntry{Keyword::Ansi});
    t.emplace("mac", KeywordEntry{Keyword::Mac});
    t.emplace("pc", KeywordEntry{Keyword::Pc});
    t.emplace("pca", KeywordEntry{Keyword::Pca});
    t.emplace("htmlrtf", KeywordEntry{Keyword::HtmlRtf});
    t.emplace("fromhtml", KeywordEntry{Keyword::FromHtml});
    for (std::string_view word : {"par", "sect", "page"}) t.emplace(word, KeywordEntry{Keyword::Par});
    for (std::string_view word : {"line", "lbr"}) t.emplace(word, KeywordEntry{Keyword::Line});
    t.emplace("tab", KeywordEntry{Keyword::Tab});
    for (std::string_view word : {"cell", "nestcell"}) t.emplace(word, KeywordEntry{Keyword::Cell});
    for (std::string_view word : {"row", "nestrow"}) t.emplace(word, KeywordEntry{Keyword::Row});
    const std::pair<std::string_view, char32_t> characters[] = {
        {"emdash", 0x2014}, {"endash", 0x2013}, {"emspace", 0x2003}, {"enspace", 0x2002},
        {"qmspace", 0x2005}, {"bullet", 0x2022}, {"lquote", 0x2018}, {"rquote", 0x2019},
        {"ldblquote", 0x201C}, {"rdblquote", 0x201D}, {"zwj", 0x200D}, {"zwnj", 0x200C},
        {"ltrmark", 0x200E}, {"rtlmark", 0x200F}, {"zwbo", 0x200B}};
    for (auto [word, character] : characters) t.emplace(word, KeywordEntry{Keyword::Character, character});
    return t;
}

}  // namespace

const KeywordTable& table() {
    static const KeywordTable built = buildTable();
    return built;
}

WordKey keyOf(std::string_view word) {
    WordKey key;
    key.length = static_cast<std::uint32_t>(word.size());
    unsigned char letters[8] = {};
    std::memcpy(letters, word.data(), word.size() < 8 ? word.size() : 8);
    std::memcpy(&key.prefix, letters, 8);
    return key;
}

}  // namespace qh::rtfwords
