// An outside program that uses the installed library: reads a small MIME
// message through the front door, writes it out again and opens bytes that are
// no compound document. Exit 0 when every step gives what it should.
#include <cstdio>
#include <optional>
#include <string_view>

#include <quillhaven/Mole.h>
#include <quillhaven/MessageKeys.h>
#include <quillhaven/MessageReader.h>
#include <quillhaven/WriteEML.h>

int main() {
    constexpr std::string_view kMessage =
        "From: Ann <ann@example.org>\r\nTo: bob@example.org\r\nSubject: Hello from outside\r\n"
        "Content-Type: text/plain; charset=utf-8\r\n\r\nThe body.\r\n";
    const qh::ByteView bytes = qh::asBytes(kMessage);
    if (qh::MessageReader::detectKind(bytes) != qh::MessageKind::eml) return 1;
    const qh::MessageReader reader(qh::ReadOptions::complete());
    const std::optional<qh::Dict> message = reader.read(bytes);
    if (!message) return 2;
    const std::string* subject = message->findString(qh::keys::kSubject);
    if (!subject || *subject != "Hello from outside") return 3;
    auto writer = qh::WriteEML::initWithDictionary(&*message);
    if (!writer || writer->formatOutputFile().find("Hello from outside") == std::string::npos) return 4;
    if (qh::Mole::initWithData(bytes)) return 5;
    std::printf("%s\n", qh::Value(*message).toJsonText().c_str());
    return 0;
}
