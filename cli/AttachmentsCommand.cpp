// quillhaven attachments [--as K] [--whole-sectors] [--expand-tnef] [-d DIR] FILE
#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <vector>

#include "Commands.h"
#include "MessageSource.h"
#include "Output.h"
#include "util/SafeNames.h"

namespace qhcli {
namespace {

// How deep a TNEF stream inside a TNEF stream is still opened.
constexpr int kMaxTnefDepth = 4;

struct Arguments {
    SourceOptions source;
    std::string dir = ".";
    bool expandTnef = false;
    std::string file;
};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

const std::string* itemName(const qh::Dict& item) {
    if (const std::string* name = item.findString("name")) return name;
    return item.findString("fileName");
}

// The item's contents: bytes, or the text an EML part was decoded to.
std::optional<qh::ByteView> itemData(const qh::Dict& item) {
    const qh::Value* data = item.find("data");
    if (!data) return std::nullopt;
    if (const qh::Blob* bytes = data->bytes()) return bytes->view();
    if (const std::string* text = data->string()) return qh::asBytes(*text);
    return std::nullopt;
}

bool isTnef(const qh::Dict& item, qh::ByteView data) {
    static constexpr std::uint8_t kSignature[] = {0x78, 0x9F, 0x3E, 0x22};
    if (data.size() >= sizeof kSignature && std::equal(std::begin(kSignature), std::end(kSignature), data.begin()))
        return true;
    if (const std::string* name = itemName(item); name && equalsIgnoringCase(*name, "winmail.dat")) return true;
    for (const char* key : {"mimeType", "contentType"}) {
        const std::string* type = item.findString(key);
        if (type && (equalsIgnoringCase(*type, "application/ms-tnef") ||
                     equalsIgnoringCase(*type, "application/vnd.ms-tnef")))
            return true;
    }
    return false;
}

class Extractor {
public:
    Extractor(const qh::OutputFolder& folder, const Arguments& arguments) : folder_(folder), arguments_(arguments) {}

    // Writes every item of the list, then (with --expand-tnef) the files inside
    // each item that is a TNEF stream. False on a write error.
    bool writeList(const qh::Dict& message, int tnefDepth) {
        const qh::Array* list = message.findArray("AttachmentList");
        if (!list) return true;
        std::vector<qh::ByteView> tnefStreams;
        for (const qh::Value& value : *list) {
            const qh::Dict* item = value.dict();
            if (!item) continue;
            std::optional<qh::ByteView> data = itemData(*item);
            if (!data) continue;
            const std::string* name = itemName(*item);
            if (!writeFile(name ? *name : std::string(), *data)) return false;
            if (arguments_.expandTnef && isTnef(*item, *data)) tnefStreams.push_back(*data);
        }
        // The streams stay alive: they point into `message`, which outlives this loop.
        for (qh::ByteView stream : tnefStreams) {
            if (tnefDepth >= kMaxTnefDepth) {
                Output::complain("TNEF streams nested too deep; not opened");
                break;
            }
            LoadedMessage inner = MessageSource::run(stream, "tnef", arguments_.source.read(), MessageSource::Want::dictionary);
            if (inner.failed()) {
                Output::complain(inner.problem);
                continue;
            }
            if (const qh::Dict* dictionary = MessageSource::dictionary(inner))
                if (!writeList(*dictionary, tnefDepth + 1)) return false;
        }
        return true;
    }

private:
    bool writeFile(const std::string& name, qh::ByteView data) {
        std::string problem;
        std::optional<std::string> written = folder_.write(qh::SafeNames::sanitize(name, "attachment"), data, problem);
        if (!written) {
            Output::complain(problem);
            return false;
        }
        Output::out(std::to_string(data.size()) + "\t" + *written + "\n");
        return true;
    }

    const qh::OutputFolder& folder_;
    const Arguments& arguments_;
};

int extract(const Arguments& arguments) {
    LoadedMessage loaded = MessageSource::load(arguments.file, arguments.source, MessageSource::Want::dictionary);
    if (loaded.failed()) {
        Output::complain(loaded.problem);
        return 2;
    }
    const qh::Dict* message = MessageSource::dictionary(loaded);
    if (!message) {
        Output::complain("no message in " + arguments.file);
        return 0;
    }
    std::string problem;
    std::optional<qh::OutputFolder> folder = qh::OutputFolder::open(arguments.dir, problem);
    if (!folder) {
        Output::complain(problem);
        return 2;
    }
    Extractor extractor(*folder, arguments);
    return extractor.writeList(*message, 0) ? 0 : 2;
}

const bool registered = Commands::add("attachments", [](CLI::App& app, Outcome& outcome) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = app.add_subcommand("attachments", "Write the attachments of FILE into a folder");
    MessageSource::addOptions(*command, arguments->source);
    command->add_option("-d,--dir", arguments->dir, "Folder to write into (default: the current folder)");
    command->add_flag("--expand-tnef", arguments->expandTnef,
                      "Also write the files inside attachments that are TNEF streams (winmail.dat)");
    command->add_option("FILE", arguments->file, "Message file (\"-\": standard input)")->required();
    command->callback([arguments, &outcome] { outcome.exitCode = Output::guard([&] { return extract(*arguments); }); });
});

}  // namespace
}  // namespace qhcli
