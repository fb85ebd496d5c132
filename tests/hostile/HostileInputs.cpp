// The named hostile inputs. Each is a few lines over the fixture writers
// (CompoundWriter and its CompoundFile damage, MsgFixture, TnefWriter and
// MapiBlock, RtfCompressor, MimeBuilder); the name says what it attacks.
#include "hostile/HostileInputs.h"

#include <cstdio>
#include <string>

#include "msg/MsgFixture.h"
#include "readers/tnef/Attributes.h"
#include "support/CompoundWriter.h"
#include "support/MimeBuilder.h"
#include "support/RtfCompressor.h"
#include "support/TnefWriter.h"
#include "util/Base64Codec.h"

namespace qhtest {

namespace {

using qh::Bytes;
using namespace qh::tnef;
using namespace std::string_literals;

Bytes text(std::string_view s) { return qh::toBytes(s); }

// ---------------------------------------------------------------- compound

// A small message-shaped document to damage: small and big streams, a
// storage with children.
CompoundFile sampleDocument() {
    return CompoundWriter::fromDescription(R"(
        __substg1.0_0037001F: "S\x00u\x00b\x00j\x00"
        __substg1.0_1000001F: "B\x00o\x00d\x00y\x00"
        __substg1.0_10090102: 6000 * 41
        __attach_version1.0_#00000000/__substg1.0_37010102: 5000 * 42
        __attach_version1.0_#00000000/__substg1.0_3707001F: "a\x00.\x00t\x00x\x00t\x00"
        __recip_version1.0_#00000000/__substg1.0_3001001F: "N\x00"
    )")
        .build();
}

Bytes damaged(const std::function<void(CompoundFile&)>& damage) {
    CompoundFile file = sampleDocument();
    damage(file);
    return file.bytes;
}

constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
const char* kBig = "__substg1.0_10090102";
const char* kSmall = "__substg1.0_0037001F";

// A document with a master sector (DIFAT) chain: 240 FAT sectors beyond those needed.
CompoundFile withMasterChain() {
    return CompoundWriter().addStream("__substg1.0_0037001F", utf16("Subject")).extraFatSectors(240).build();
}

Bytes nestedDirectories(std::size_t depth) {
    std::string path;
    for (std::size_t i = 0; i < depth; ++i) path += "d/";
    return CompoundWriter().addStream(path + "leaf", std::string_view("x")).bytes();
}

// ---------------------------------------------------------------- MAPI

using Record = MsgFixture::Record;

Bytes noteWith(const std::function<void(MsgFixture&)> add) {
    MsgFixture message;
    message.unicode("", 0x001A, "IPM.Note").unicode("", 0x0037, "Subject").unicode("", 0x1000, "Body");
    add(message);
    return message.build();
}

// A message with one attachment named `name` (long and short name streams).
Bytes attachmentNamed(std::string_view name) {
    return noteWith([&](MsgFixture& m) {
        const std::string a = MsgFixture::attachment(0);
        m.unicode(a, 0x3707, name).unicode(a, 0x3704, name).unicode(a, 0x3001, name);
        m.binary(a, 0x3701, qh::asBytes("attachment bytes"));
        m.properties(a, MsgFixture::kAttachmentHeader, {{0x0003, 0x3705, 1}});
    });
}

// A message whose attachment holds a message whose attachment holds ... `depth` levels.
Bytes embeddedMessages(std::size_t depth) {
    MsgFixture message;
    message.unicode("", 0x0037, "level 0");
    std::string storage;
    for (std::size_t level = 1; level <= depth; ++level) {
        const std::string attachment = MsgFixture::join(storage, MsgFixture::attachment(0));
        message.properties(attachment, MsgFixture::kAttachmentHeader, {{0x0003, 0x3705, 5}});
        storage = attachment + "/__substg1.0_3701000D";
        message.unicode(storage, 0x0037, "level " + std::to_string(level));
        message.properties(storage, MsgFixture::kEmbeddedHeader, {{0x0003, 0x3FFD, 1252}});
    }
    return message.build();
}

// Named-property streams: the GUID stream, the entry stream (8 bytes each:
// name or string offset, GUID index << 1 | string flag, property index) and
// the string stream.
Bytes namedEntries(std::initializer_list<std::array<std::uint32_t, 3>> entries, qh::ByteView strings) {
    Bytes entryStream;
    for (const auto& [nameOrOffset, guidAndKind, index] : entries) {
        appendU32(entryStream, nameOrOffset);
        appendU16(entryStream, static_cast<std::uint16_t>(guidAndKind));
        appendU16(entryStream, static_cast<std::uint16_t>(index));
    }
    return noteWith([&](MsgFixture& m) {
        m.stream("__nameid_version1.0/__substg1.0_00020102", Bytes(16, 0x11));
        m.stream("__nameid_version1.0/__substg1.0_00030102", entryStream);
        m.stream("__nameid_version1.0/__substg1.0_00040102", strings);
        m.unicode("", 0x8000, "named 0").unicode("", 0x8001, "named 1").unicode("", 0x8002, "named 2");
        m.properties("", MsgFixture::kTopHeader, {{0x0003, 0x8003, 7}});
    });
}

// A message whose RTF body is the compressed-RTF stream `stream`.
Bytes rtfBody(const Bytes& stream) {
    return noteWith([&](MsgFixture& m) { m.binary("", 0x1009, stream); });
}

// ---------------------------------------------------------------- compressed RTF

using Tokens = RtfCompressor::Tokens;

// ---------------------------------------------------------------- RTF

std::string repeated(std::string_view piece, std::size_t times) {
    std::string out;
    out.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i) out += piece;
    return out;
}

std::string manyFonts(std::size_t count) {
    std::string out = "{\\rtf1\\ansi\\deff0{\\fonttbl";
    for (std::size_t i = 0; i < count; ++i)
        out += "{\\f" + std::to_string(i) + "\\fcharset" + std::to_string(i % 256) + " F" + std::to_string(i) + ";}";
    return out + "}\\f99999 text\\f50000 more}";
}

std::string deeplyNested() { return "{\\rtf1 " + repeated("{", 100000) + "x" + repeated("}", 100000) + "}"; }

// An RTF text as it reaches every reader: the body of a .msg (stored as MELA,
// the uncompressed form, so megabytes need no encoder time).
Bytes rtfMessage(std::string_view rtf) { return rtfBody(RtfCompressor::uncompressed(rtf)); }

// ---------------------------------------------------------------- TNEF

TnefWriter tnefMessage(std::string_view subject = "Subject") {
    TnefWriter stream;
    stream.attribute(kLevelMessage, kAttTnefVersion, Bytes{0x00, 0x00, 0x01, 0x00})
        .attribute(kLevelMessage, kAttMessageClass, std::string("IPM.Microsoft Mail.Note\0", 24))
        .attribute(kLevelMessage, kAttSubject, std::string(subject) + '\0');
    return stream;
}

Bytes tnefNested(std::size_t depth) {
    Bytes inner = tnefMessage("innermost").bytes();
    for (std::size_t level = 0; level < depth; ++level)
        inner = tnefMessage("level").attachment("winmail.dat", qh::ByteView(inner)).bytes();
    return inner;
}

// A message attached as an object (method 5) whose embedded stream lacks its last `cut` bytes.
Bytes tnefAttachedMessage(std::size_t cut) {
    Bytes object(16, 0x07);  // the interface id before the embedded stream
    Bytes inner = tnefMessage("inner message").bytes();
    inner.resize(inner.size() - cut);
    object.insert(object.end(), inner.begin(), inner.end());
    return tnefMessage()
        .attachment("attached", std::nullopt, MapiBlock().u32(0x37050003, 5).variable(0x3701000D, object).bytes())
        .bytes();
}

// ---------------------------------------------------------------- MIME

std::string mimeNested(std::size_t depth) {
    std::string out = "From: a@example.com\r\nSubject: deep\r\n";
    for (std::size_t i = 0; i < depth; ++i)
        out += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\r\n\r\n--b" + std::to_string(i) + "\r\n";
    return out + "Content-Type: text/plain\r\n\r\ninnermost\r\n";
}

std::string mimeNestedMessages(std::size_t depth) {
    return repeated("Subject: level\r\nContent-Type: message/rfc822\r\n\r\n", depth) + "Subject: last\r\n\r\nbody\r\n";
}

// What an attacker puts in a value to start a header line of their own.
const std::string kInjection = std::string("x\r\n") + kInjectedHeader + " yes\r\n\r\nbody";
const std::string kInjectionLF = std::string("x\n") + kInjectedHeader + " yes";
const std::string kInjectionCR = std::string("x\r") + kInjectedHeader + " yes";

HostileInput compound(const std::string& what, std::function<void(CompoundFile&)> damage) {
    return {"compound-" + what + ".msg", HostileKind::message, [damage] { return damaged(damage); }};
}
HostileInput note(const std::string& what, std::function<void(MsgFixture&)> add) {
    return {"msg-" + what + ".msg", HostileKind::message, [add] { return noteWith(add); }};
}

std::vector<HostileInput> makeTable() {
    const HostileKind M = HostileKind::message;
    const HostileKind L = HostileKind::lzfu;
    std::vector<HostileInput> table;
    for (std::uint16_t shift : {7, 16, 30})
        table.push_back(compound("sector-shift-" + std::to_string(shift), [shift](auto& f) { f.setHeader16(30, shift); }));
    const std::pair<const char*, std::string> attachmentNames[] = {
        {"with-slashes", "a/b\\c/d.txt"},
        {"dot-dot", "../../../../etc/passwd"},
        {"only-dots", ".."},
        {"absolute-path", "/tmp/qh-hostile-absolute"},
        {"windows-absolute-path", "C:\\Windows\\win.ini"},
        {"device", "CON"},
        {"10000-characters", std::string(10000, 'n') + ".txt"},
        {"with-control-characters", "a\0b\x1b[2J\xE2\x80\xAE" "txt.exe"s},
    };
    for (const auto& [what, name] : attachmentNames) {
        table.push_back({std::string("msg-attachment-named-") + what + ".msg", M, [name] { return attachmentNamed(name); }});
    }
    const HostileInput named[] = {
        // ---- compound documents
        {"compound-header-shorter-than-512.msg", M, [] { Bytes b = sampleDocument().bytes; b.resize(300); return b; }},
        compound("mini-sector-shift-15", [](CompoundFile& f) { f.setHeader16(32, 15); }),
        compound("fat-chain-loops-on-itself",
                 [](CompoundFile& f) { f.setFat(f.startSector(kBig), f.startSector(kBig)); }),
        compound("fat-chain-loops-between-two-sectors",
                 [](CompoundFile& f) { f.setFat(f.startSector(kBig) + 1, f.startSector(kBig)); }),
        compound("fat-chain-long-cycle",
                 [](CompoundFile& f) { f.setFat(f.startSector(kBig) + 11, f.startSector(kBig)); }),
        compound("mini-fat-chain-loops",
                 [](CompoundFile& f) { f.setMiniFat(f.startSector(kSmall), f.startSector(kSmall)); }),
        compound("directory-chain-loops", [](CompoundFile& f) { f.setFat(f.directoryStart, f.directoryStart); }),
        {"compound-difat-chain-loops-on-itself.msg", M, [] {
             CompoundFile f = withMasterChain();
             const std::uint32_t first = f.difatSectors.front();
             f.write32(f.sectorOffset(first) + f.sectorSize - 4, first);
             return f.bytes;
         }},
        {"compound-difat-chain-loops-between-two-sectors.msg", M, [] {
             CompoundFile f = withMasterChain();
             f.write32(f.sectorOffset(f.difatSectors.back()) + f.sectorSize - 4, f.difatSectors.front());
             return f.bytes;
         }},
        compound("chain-past-end-of-file", [](CompoundFile& f) { f.setFat(f.startSector(kBig), 100000); }),
        compound("sectors-shared-by-two-streams", [](CompoundFile& f) {
            f.setEntryField("__attach_version1.0_#00000000/__substg1.0_37010102", 116, f.startSector(kBig));
        }),
        compound("fat-sector-count-overflows", [](CompoundFile& f) { f.setHeader32(44, 0x00800001); }),
        compound("mini-fat-and-directory-counts-overflow",
                 [](CompoundFile& f) { f.setHeader32(64, 0xFFFFFFFF), f.setHeader32(40, 0xFFFFFFFF); }),
        compound("directory-entry-past-the-table", [](CompoundFile& f) { f.setEntryField(kSmall, 68, 100000); }),
        compound("directory-siblings-cycle", [](CompoundFile& f) {
            f.setEntryField(kSmall, 68, f.entryNumber(kBig));
            f.setEntryField(kBig, 72, f.entryNumber(kSmall));
        }),
        compound("directory-child-cycles-to-parent", [](CompoundFile& f) {
            f.setEntryField("__attach_version1.0_#00000000", 76, f.entryNumber("__attach_version1.0_#00000000"));
        }),
        compound("directory-child-is-root",
                 [](CompoundFile& f) { f.setEntryField("__recip_version1.0_#00000000", 76, 0); }),
        {"compound-directories-nested-10000-deep.msg", M, [] { return nestedDirectories(10000); }},
        compound("entry-name-length-over-64", [](CompoundFile& f) { f.bytes[f.entryOffset(kSmall) + 64] = 200; }),
        compound("entry-name-length-odd", [](CompoundFile& f) { f.bytes[f.entryOffset(kSmall) + 64] = 13; }),
        compound("stream-size-beyond-the-file", [](CompoundFile& f) { f.setEntryField(kBig, 120, 0x7FFFFFF0); }),
        compound("small-stream-size-beyond-the-mini-stream",
                 [](CompoundFile& f) { f.setEntryField(kSmall, 120, 4000); }),
        compound("v3-high-size-bits-set", [](CompoundFile& f) { f.setEntryField(kBig, 124, 0xFFFFFFFF); }),
        compound("mini-stream-missing",
                 [](CompoundFile& f) { f.setEntryField("", 116, kEndOfChain), f.setEntryField("", 120, 0); }),

        // ---- MAPI properties
        note("property-stream-header-too-short", [](MsgFixture& m) { m.stream("__properties_version1.0", Bytes(20, 1)); }),
        note("property-stream-not-header-plus-records", [](MsgFixture& m) {
             Bytes stream = MsgFixture::records(MsgFixture::kTopHeader, {{0x0003, 0x3FFD, 1252}});
             stream.resize(stream.size() + 5, 0xFF);
             m.stream("__properties_version1.0", stream);
         }),
        note("variable-sizes-disagree-with-streams", [](MsgFixture& m) {
             m.binary("", 0x1013, qh::asBytes("<p>html</p>"));
             m.properties("", MsgFixture::kTopHeader,
                          {{0x001F, 0x0037, 0xFFFFFFF0}, {0x0102, 0x1013, 0x7FFFFFFF}, {0x001F, 0x1000, 2}});
         }),
        note("utf16-of-odd-length", [](MsgFixture& m) {
             m.stream("__substg1.0_0E1D001F", Bytes{'a', 0, 'b', 0, 'c'});
             m.stream("__substg1.0_0042001F", Bytes{0x00, 0xD8, 'x'});  // a lone high surrogate, cut
         }),
        note("multivalue-lengths-disagree-with-items", [](MsgFixture& m) {
             Bytes lengths;
             for (std::uint32_t length : {0xFFFFFFFFu, 7u, 100u, 0u, 3u}) appendU32(lengths, length);
             m.stream("__substg1.0_101F001F", lengths);
             m.stream("__substg1.0_101F001F-00000000", Bytes{'a', 0, 'b', 0, 'c', 0});
             m.stream("__substg1.0_101F001F-00000001", Bytes{'d', 0, 'e'});
             Bytes binaryLengths;
             for (std::uint32_t length : {16u, 0u, 0x7FFFFFFFu, 0u, 8u, 0u}) appendU32(binaryLengths, length);
             m.stream("__substg1.0_11020102", binaryLengths);
             m.stream("__substg1.0_11020102-00000002", Bytes(8, 9));
             m.stream("__substg1.0_10030003", Bytes{1, 2, 3, 4, 5, 6});  // fixed items, not a multiple of 4
             m.properties("", MsgFixture::kTopHeader, {{0x101F, 0x8000, 40}, {0x1102, 0x1102, 3}});
         }),
        {"msg-named-property-indexes-past-their-streams.msg", M, [] {
             Bytes strings;
             appendU32(strings, 0x7FFFFFFF);
             const Bytes name = utf16("name");
             strings.insert(strings.end(), name.begin(), name.end());
             return namedEntries({{0xFFFFFFF0, (5 << 1) | 1, 0},  // string offset past the string stream
                                  {4, (0x7FFF << 1) | 1, 1},      // GUID index past the GUID stream
                                  {0, (3 << 1) | 1, 2},           // offsets going backwards, length too long
                                  {0x8001, 0xFFFF, 0xFFFF}},      // property index past every property
                                 strings);
         }},
        {"msg-embedded-messages-1000-deep.msg", M, [] { return embeddedMessages(1000); }},
        note("code-page-lies-utf8", [](MsgFixture& m) {
             m.ansi("", 0x0E1D, "\xFF\xFE\xC3(\x80 bad UTF-8").ansi("", 0x1000, "\xE2\x82");
             m.properties("", MsgFixture::kTopHeader, {{0x0003, 0x3FFD, 65001}, {0x0003, 0x3FDE, 65001}});
         }),
        note("code-page-lies-utf16-and-unknown", [](MsgFixture& m) {
             m.ansi("", 0x0E1D, "odd").ansi("", 0x0042, "\x1B$B\x1B(J\x1B$)");
             m.properties("", MsgFixture::kTopHeader, {{0x0003, 0x3FFD, 1200}, {0x0003, 0x3FDE, 99999}});
         }),
        note("filetimes-at-the-extremes", [](MsgFixture& m) {
             m.properties("", MsgFixture::kTopHeader,
                          {{0x0040, 0x0039, 0},
                           {0x0040, 0x0E06, 0xFFFFFFFFFFFFFFFFull},
                           {0x0040, 0x3007, 0x7FFFFFFFFFFFFFFFull},
                           {0x0040, 0x3008, 1}});
         }),
        note("values-with-line-breaks", [](MsgFixture& m) {
             m.unicode("", 0x0E1D, kInjection).unicode("", 0x0042, kInjectionLF).unicode("", 0x0065, kInjectionCR);
             m.unicode("", 0x0C1A, kInjection).unicode("", 0x0C1F, kInjectionLF).unicode("", 0x1035, kInjection);
             m.unicode("", 0x0E04, kInjection).unicode("", 0x0E03, kInjectionCR);
             const std::string r = MsgFixture::recipient(0);
             m.unicode(r, 0x3001, kInjection).unicode(r, 0x39FE, kInjectionLF).unicode(r, 0x3003, kInjectionCR);
             m.properties(r, MsgFixture::kAttachmentHeader, {{0x0003, 0x0C15, 1}});
             const std::string valid = MsgFixture::recipient(1);  // a valid address under a hostile name
             m.unicode(valid, 0x3001, kInjection).unicode(valid, 0x39FE, "b@example.com");
             m.unicode(valid, 0x3003, "b@example.com");
             m.properties(valid, MsgFixture::kAttachmentHeader, {{0x0003, 0x0C15, 2}});
             const std::string a = MsgFixture::attachment(0);
             m.unicode(a, 0x3707, kInjection).unicode(a, 0x370E, kInjection).unicode(a, 0x3712, kInjectionLF);
             m.binary(a, 0x3701, qh::asBytes("data"));
             m.properties(a, MsgFixture::kAttachmentHeader, {{0x0003, 0x3705, 1}});
         }),
        note("subject-with-line-breaks", [](MsgFixture& m) { m.unicode("", 0x0037, kInjection); }),

        // ---- compressed RTF, alone and as a message body
        {"lzfu-raw-size-far-beyond-compressed-size.lzfu", L, [] {
             return RtfCompressor::withHeader(Tokens().literals("{\\rtf1 hi}").endMarker(207 + 10).bytes(), 0xFFFFFFF0);
         }},
        {"lzfu-compressed-size-past-the-data.lzfu", L, [] {
             Bytes b = RtfCompressor::compress("{\\rtf1 hello, hello, hello}");
             b[0] = 0xFF, b[1] = 0xFF, b[2] = 0xFF, b[3] = 0x0F;
             return b;
         }},
        {"lzfu-reference-to-bytes-not-yet-written.lzfu", L, [] {
             return RtfCompressor::withHeader(
                 Tokens().literals("{\\rtf1 ").reference(3000, 17).reference(4095, 17).endMarker(207 + 41).bytes(), 41);
         }},
        {"lzfu-early-end.lzfu", L, [] {
             Bytes b = RtfCompressor::compress(repeated("{\\rtf1 some text that repeats} ", 200));
             b.resize(b.size() / 2);
             return b;
         }},
        {"lzfu-output-stops-mid-token.lzfu", L, [] {
             Bytes b = RtfCompressor::compress("{\\rtf1 abcabcabcabcabcabcabcabc}");
             b[4] = 9, b[5] = 0, b[6] = 0, b[7] = 0;  // raw size ends inside a reference
             return b;
         }},
        {"lzfu-mela-with-crc.lzfu", L, [] {
             Bytes b = RtfCompressor::uncompressed("{\\rtf1 stored}");
             b[12] = 0xDE, b[13] = 0xAD, b[14] = 0xBE, b[15] = 0xEF;
             return b;
         }},
        {"lzfu-mela-raw-size-beyond-data.lzfu", L, [] {
             Bytes b = RtfCompressor::uncompressed("{\\rtf1 stored}");
             b[4] = 0xFF, b[5] = 0xFF, b[6] = 0xFF, b[7] = 0x7F;
             return b;
         }},
        {"msg-rtf-body-raw-size-far-beyond.msg", M, [] {
             return rtfBody(RtfCompressor::withHeader(Tokens().literals("{\\rtf1 hi}").endMarker(217).bytes(), 0xFFFFFFF0));
         }},
        {"msg-rtf-body-references-unwritten.msg", M, [] {
             return rtfBody(RtfCompressor::withHeader(Tokens().reference(3000, 17).reference(100, 17).bytes(), 34));
         }},

        // ---- RTF
        {"rtf-100000-nested-groups.msg", M, [] { return rtfMessage(deeplyNested()); }},
        {"rtf-100000-nested-groups.lzfu", L, [] { return RtfCompressor::compress(deeplyNested()); }},
        {"rtf-huge-bin.msg", M,
         [] { return rtfMessage("{\\rtf1\\ansi {\\bin2147483647 abc}{\\bin-5 x}{\\bin99999999999999999999 y} z}"); }},
        {"rtf-huge-uc.msg", M, [] {
             return rtfMessage("{\\rtf1\\ansi\\uc2147483647 \\u1234 abc\\uc-9 \\u-70000 d\\uc99999999999 \\u66 e}");
         }},
        {"rtf-100000-fonts.msg", M, [] { return rtfMessage(manyFonts(100000)); }},
        {"rtf-bad-hex-escapes.lzfu", L,
         [] { return RtfCompressor::compress("{\\rtf1\\ansi \\'zz \\'4 \\'g0 \\'\\'ff\\'"); }},
        {"rtf-megabytes-of-objdata.msg", M, [] {
             return rtfMessage("{\\rtf1\\ansi text{\\object\\objemb{\\*\\objclass Package}{\\*\\objdata " +
                               repeated("0123456789abcdef", 256 * 1024) + "}}}");
         }},
        {"rtf-html-tags-unclosed.msg", M, [] {
             return rtfMessage("{\\rtf1\\ansi\\fromhtml1 " + repeated("{\\*\\htmltag64 <div>}", 20000) +
                               "{\\*\\htmltag <script>alert(1)</script>}\\htmlrtf x}");
         }},

        // ---- TNEF
        {"tnef-attribute-length-past-the-end.tnef", M,
         [] { return tnefMessage().header(kLevelMessage, kAttBody, 0x7FFFFFFF).raw(text("short")).bytes(); }},
        {"tnef-attribute-length-wraps.tnef", M,
         [] { return tnefMessage().header(kLevelMessage, kAttMsgProps, 0xFFFFFFFF).raw(Bytes(40, 0xFF)).bytes(); }},
        {"tnef-types-disagree-with-attributes.tnef", M, [] {
             return tnefMessage()
                 .attribute(kLevelMessage, kAttDateSent, Bytes{1, 2, 3})
                 .attribute(kLevelMessage, kAttPriority, Bytes(100, 7))
                 .attribute(kLevelMessage, kAttOemCodepage, Bytes{1})
                 .attribute(kLevelMessage, kAttMsgProps,
                            MapiBlock().fixed(0x00370003, Bytes{1, 2, 3, 4}).variable(0x0E060040, Bytes(3, 1)).bytes())
                 .bytes();
         }},
        {"tnef-count-times-size-overflows.tnef", M, [] {
             Bytes block;
             appendU32(block, 1);            // one property
             appendU32(block, 0x10140014);  // multi-valued 8-byte integers
             appendU32(block, 0x20000001);  // count x 8 overflows 32 bits
             block.resize(block.size() + 16, 0);
             Bytes variable;
             appendU32(variable, 0x7FFFFFFF);  // properties claimed
             appendU32(variable, 0x11020102);
             appendU32(variable, 0x40000000);  // values claimed
             appendU32(variable, 0xFFFFFFF0);  // first length
             return tnefMessage()
                 .attribute(kLevelMessage, kAttMsgProps, block)
                 .attribute(kLevelMessage, kAttRecipTable, variable)
                 .attachment("a.txt", qh::ByteView(text("x")), variable)
                 .bytes();
         }},
        {"tnef-zero-counts.tnef", M, [] {
             return tnefMessage()
                 .attribute(kLevelMessage, kAttMsgProps, MapiBlock().claimCount(0).bytes())
                 .attribute(kLevelMessage, kAttRecipTable, Bytes{0, 0, 0, 0})
                 .attribute(kLevelMessage, kAttMsgProps, MapiBlock().multi(0x101F001F, {}).multi(0x11020102, {}).bytes())
                 .attachment("", qh::ByteView(), MapiBlock().claimCount(0).bytes())
                 .bytes();
         }},
        {"tnef-strings-without-nul.tnef", M, [] {
             return TnefWriter()
                 .attribute(kLevelMessage, kAttSubject, text("no terminator"))
                 .attribute(kLevelMessage, kAttMessageClass, text("IPM.Note"))
                 .attribute(kLevelMessage, kAttFrom, text("sender without terminator"))
                 .attribute(kLevelMessage, kAttMsgProps,
                            MapiBlock().variable(0x0037001E, text("abc")).variable(0x1000001F, Bytes{'a', 0, 'b'}).bytes())
                 .attachment(std::nullopt, qh::ByteView(text("x")),
                             MapiBlock().variable(0x3707001E, text("name.txt")).bytes())
                 .bytes();
         }},
        {"tnef-bad-checksums.tnef", M, [] {
             return TnefWriter()
                 .attributeWithChecksum(kLevelMessage, kAttSubject, qh::ByteView(text(std::string("Hi\0", 3))), 0xBEEF)
                 .attributeWithChecksum(kLevelMessage, kAttMsgProps, MapiBlock().string8(0x0037001E, "x").bytes(), 0)
                 .bytes();
         }},
        {"tnef-trailing-garbage.tnef", M,
         [] { return tnefMessage().raw(Bytes(3, 0x01)).raw(Bytes(5000, 0xA5)).bytes(); }},
        {"tnef-inside-tnef-50-deep.tnef", M, [] { return tnefNested(50); }},
        {"tnef-attached-message.tnef", M, [] { return tnefAttachedMessage(0); }},
        {"tnef-attached-message-cut-short.tnef", M, [] { return tnefAttachedMessage(7); }},
        {"tnef-values-with-line-breaks.tnef", M, [] {
             return tnefMessage(kInjection)
                 .attribute(kLevelMessage, kAttMsgProps,
                            MapiBlock()
                                .string8(0x0042001E, kInjection)
                                .string8(0x0065001E, kInjectionLF)
                                .string8(0x0C1A001E, kInjectionCR)
                                .string8(0x1035001E, kInjection)
                                .bytes())
                 .attachment(kInjection, qh::ByteView(text("x")),
                             MapiBlock().string8(0x3707001E, kInjection).string8(0x370E001E, kInjectionLF).bytes())
                 .bytes();
         }},

        // ---- MIME
        {"mime-multipart-nested-100000-deep.eml", M, [] { return text(mimeNested(100000)); }},
        {"mime-message-nested-100000-deep.eml", M, [] { return text(mimeNestedMessages(100000)); }},
        {"mime-multipart-without-boundary.eml", M, [] {
             return text(MimeBuilder()
                             .header("From", "a@example.com")
                             .multipart("mixed", "", {MimeBuilder().header("Content-Type", "text/plain").body("one")},
                                        "missing")
                             .str());
         }},
        {"mime-boundary-prefixes-another.eml", M, [] {
             MimeBuilder inner;
             inner.multipart("alternative", "ab", {MimeBuilder().header("Content-Type", "text/plain").body("plain"),
                                                   MimeBuilder().header("Content-Type", "text/html").body("<b>x</b>")});
             return text(MimeBuilder()
                             .header("From", "a@example.com")
                             .multipart("mixed", "a", {inner, MimeBuilder().header("Content-Type", "text/plain").body("--a")})
                             .str());
         }},
        {"mime-empty-boundary-quoted.eml", M, [] {
             return text(MimeBuilder()
                             .multipart("mixed", "\"\"", {MimeBuilder().body("x"), MimeBuilder().body("y")}, "")
                             .str());
         }},
        {"mime-header-line-of-10-megabytes.eml", M, [] {
             return text("From: a@example.com\r\nSubject: " + std::string(10 << 20, 'x') + "\r\n\r\nbody\r\n");
         }},
        {"mime-a-million-headers.eml", M,
         [] { return text("From: a@example.com\r\n" + repeated("X-H: v\r\n", 1000000) + "\r\nbody\r\n"); }},
        {"mime-a-million-folded-lines.eml", M,
         [] { return text("Subject: start\r\n" + repeated(" fold\r\n", 1000000) + "\r\nbody\r\n"); }},
        {"mime-nul-bytes-in-headers.eml", M, [] {
             return text("Subj\0ect: a\0b\r\nFrom: \0<a@example.com>\r\nContent-Type: text/pl\0ain; charset=\0\r\n"
                         "\r\nbody\0body\r\n"s);
         }},
        {"mime-malformed-encoded-words.eml", M, [] {
             return text(MimeBuilder()
                             .header("From", "=?utf-8?B?!!!?= <a@example.com>")
                             .header("Subject", "=?unknown?Q?=ZZ?= =?utf-8?X?a?= =?=?= =?utf-8?B? =?utf-8?Q?=E2=82?= "
                                                "=?utf-16?B?2D3Y?= =?iso-2022-jp?B?GyRC?=" +
                                                    repeated(" =?utf-8?B?QQ==?=", 20000))
                             .header("To", "=?utf-8?Q?a=40b?= <=?utf-8?B?YUBi?=>, \"=?x?q?\" <c@d>")
                             .body("body")
                             .str());
         }},
        {"mime-malformed-rfc2231-parameters.eml", M, [] {
             MimeBuilder part;
             part.header("Content-Type", "application/octet-stream; name*0*=bad''%ZZ; name*99999=x; name*1*=%")
                 .header("Content-Disposition",
                         "attachment; filename*=utf-8'en; filename*0*=%E2%82; filename*4294967296=z; filename*-1=y; "
                         "filename*1*=''%2F..%2F..%2Fescape")
                 .header("Content-Transfer-Encoding", "base64")
                 .body("QUJD");
             return text(MimeBuilder().header("From", "a@example.com").multipart("mixed", "b", {part}).str());
         }},
        {"mime-values-with-line-breaks.eml", M, [] {
             const std::string encoded = "=?utf-8?B?" + qh::base64EncodedString(qh::asBytes(kInjection)) + "?=";
             const std::string qEncoded = std::string("=?utf-8?Q?x=0D=0A") + kInjectedHeader + "_yes?=";
             MimeBuilder part;
             part.header("Content-Type", "text/plain; name=\"" + encoded + "\"")
                 .header("Content-Disposition", "attachment; filename*=utf-8''x%0D%0AX-Injected%3A%20yes")
                 .header("Content-ID", "<" + qEncoded + ">")
                 .body("attached");
             return text(MimeBuilder()
                             .header("From", encoded + " <a@example.com>")
                             .header("To", qEncoded + " <b@example.com>")
                             .header("Cc", "\"" + encoded + "\" <c@example.com>")
                             .header("Subject", encoded)
                             .header("Message-ID", "<" + qEncoded + "@example.com>")
                             .header("Reply-To", qEncoded + " <d@example.com>")
                             .multipart("mixed", "b", {MimeBuilder().header("Content-Type", "text/plain").body("hi"), part})
                             .str());
         }},
        {"mime-attachment-names-escaping.eml", M, [] {
             std::vector<MimeBuilder> parts;
             for (const char* name : {"../../../etc/passwd", "/tmp/qh-hostile-absolute-mime", "CON", "a/b\\c", "..",
                                      "C:\\x.txt"}) {
                 MimeBuilder part;
                 part.header("Content-Type", "application/octet-stream")
                     .header("Content-Disposition", std::string("attachment; filename=\"") + name + "\"")
                     .body("x");
                 parts.push_back(part);
             }
             MimeBuilder longName;
             longName.header("Content-Disposition", "attachment; filename=" + std::string(10000, 'n')).body("y");
             parts.push_back(longName);
             return text(MimeBuilder().header("From", "a@example.com").multipart("mixed", "b", parts).str());
         }},
    };
    table.insert(table.end(), std::begin(named), std::end(named));
    return table;
}

}  // namespace

const std::vector<HostileInput>& hostileInputs() {
    static const std::vector<HostileInput> table = makeTable();
    return table;
}

}  // namespace qhtest
