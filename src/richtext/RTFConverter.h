#pragma once
// One pass over an RTF document that writes its text out either as plain
// UTF-8 text or as an HTML document. Groups keep their character state on a
// bounded stack; destinations that carry no text (font, colour and style
// tables, \info, pictures, \* groups the reader does not know) are skipped.
// When the RTF encapsulates HTML (\fromhtml1) the HTML output is the original
// HTML, rebuilt from the \*\htmltag groups and the text outside \htmlrtf.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <quillhaven/Bytes.h>
#include "richtext/RTFCodePages.h"
#include "richtext/RTFTextState.h"
#include "richtext/RTFTokenizer.h"

namespace qh {

class RTFConverter {
public:
    enum class Output { Text, HTML };

    // Groups nested deeper than this are skipped with everything in them: real
    // documents stay far below it, and it bounds the state a hostile one can pile up.
    static constexpr std::size_t kMaxGroupDepth = 256;
    // Longest field instruction kept (a HYPERLINK with its URL); the rest is dropped.
    static constexpr std::size_t kMaxFieldInstruction = 4096;

    explicit RTFConverter(Output output) : output_(output) {}

    // True when the bytes open an RTF document ("{\rtf", after blanks).
    static bool looksLikeRTF(ByteView rtf);
    // The converted document, or std::nullopt when the bytes are not RTF.
    std::optional<std::string> convert(ByteView rtf);

private:
    enum class Destination : std::uint8_t { Document, Skip, FontTable, FieldInstruction, HtmlTag };
    struct GroupState {
        Destination destination = Destination::Document;
        bool bold = false;
        bool italic = false;
        bool underline = false;
        bool hidden = false;
        bool htmlrtf = false;
        std::int32_t ucSkip = 1;
        std::int32_t font = -1;  // -1: the document's default font
        std::uint32_t link = 0;  // 1-based index into links_, 0 outside hyperlinks
    };
    struct Link {
        std::string href;
        bool closed = false;  // written and closed: never opened again
    };
    enum class Break { Paragraph, Line };

    GroupState& state() { return stack_.back(); }
    bool wantsText(const GroupState& group) const;

    void textBytes(ByteView bytes);
    void flushPending();
    void emitText(std::string_view utf8);
    void emitCodePoint(char32_t codePoint);
    void emitUnitsEnd();
    void emitBreak(Break kind);
    void controlWord(const RTFToken& token);
    void controlSymbol(std::uint8_t symbol);
    void groupOpen();
    bool groupClose();
    bool skipRestOfGroup();
    void fieldResult();

    // HTML of ordinary RTF.
    void htmlSyncFormatting(const GroupState& group);
    void htmlCloseInline();
    void htmlAppendEscaped(std::string_view text);
    std::string finishHTML();

    Output output_;
    bool encapsulatedHTML_ = false;
    RTFTokenizer* tokenizer_ = nullptr;
    std::vector<GroupState> stack_;
    bool ignorableNext_ = false;
    std::size_t skipCount_ = 0;
    RTFUnicodeUnits units_;
    RTFFontCodePages fonts_;

    std::string pendingBytes_;
    std::uint16_t pendingCodePage_ = 0;

    std::string body_;
    std::string fieldInstruction_;
    std::vector<Link> links_;

    bool paragraphOpen_ = false;
    bool openBold_ = false;
    bool openItalic_ = false;
    bool openUnderline_ = false;
    std::uint32_t openLink_ = 0;
};

}  // namespace qh
