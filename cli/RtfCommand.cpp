// quillhaven rtf [--text | --html] FILE: FILE holds one compressed-RTF stream;
// prints the decoded RTF, or its plain text or HTML.
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Commands.h"
#include "Input.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"

namespace cmd_rtf {

enum class Form { RTF, Text, HTML };

int printRTF(const std::string& path, Form form) {
    auto data = qhcli::Input::readFile(path);
    if (!data) {
        std::cerr << "quillhaven rtf: cannot read " << path << "\n";
        return 2;
    }
    std::optional<qh::Bytes> rtf = qh::RTFWangers::getRTFForData(*data);
    if (!rtf) {
        std::cerr << "quillhaven rtf: " << path << " is no compressed RTF\n";
        return 1;
    }
    std::optional<std::string> converted;
    if (form == Form::Text) converted = qh::RTFReader::stringFromRTFData(*rtf);
    else if (form == Form::HTML) converted = qh::RTFReader::htmlFromRTFData(*rtf);
    else converted = std::string(qh::asText(*rtf));
    if (!converted) {
        std::cerr << "quillhaven rtf: " << path << " does not decode to RTF\n";
        return 1;
    }
    std::fwrite(converted->data(), 1, converted->size(), stdout);
    std::fflush(stdout);
    return 0;
}

const bool registered = qhcli::Commands::add("rtf", [](CLI::App& app, qhcli::Outcome& outcome) {
    auto* command = app.add_subcommand("rtf", "Decode a compressed-RTF stream and print the RTF, its text or its HTML");
    auto file = std::make_shared<std::string>();
    auto text = std::make_shared<bool>(false);
    auto html = std::make_shared<bool>(false);
    auto* textFlag = command->add_flag("--text", *text, "Print the plain text of the RTF");
    auto* htmlFlag = command->add_flag("--html", *html, "Print the RTF as an HTML document");
    textFlag->excludes(htmlFlag);
    command->add_option("FILE", *file, "The stream's bytes, or - for standard input")->required();
    command->callback([file, text, html, &outcome] {
        outcome.exitCode = printRTF(*file, *text ? Form::Text : *html ? Form::HTML : Form::RTF);
    });
});

}  // namespace cmd_rtf
