// quillhaven preview [--content-type UTI] [--json] FILE
//
// Loads the preview plug-in the way the desktop's preview service does and
// prints what it hands over: the RTF or UTF-8 text as it stands, or a JSON
// object naming the representation's content type.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>


#include "Commands.h"
#include "Input.h"
#include "Output.h"
#include <quillhaven/Value.h>
#include "plugin/PluginIDs.h"
#include "plugin/shim/ShimHost.h"

namespace qhcli {
namespace cmd_preview {

// Standard input goes to the plug-in, which reads documents by URL, through a
// temporary file that lives as long as the command.
class TemporaryCopy {
public:
    bool write(qh::ByteView bytes) {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder && *folder ? folder : "/tmp") + "/quillhaven-preview-XXXXXX";
        int descriptor = mkstemp(path_.data());
        if (descriptor < 0) {
            path_.clear();
            return false;
        }
        std::size_t written = 0;
        while (written < bytes.size()) {
            ssize_t count = ::write(descriptor, bytes.data() + written, bytes.size() - written);
            if (count <= 0) break;
            written += static_cast<std::size_t>(count);
        }
        ::close(descriptor);
        return written == bytes.size();
    }
    ~TemporaryCopy() {
        if (!path_.empty()) std::remove(path_.c_str());
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

int preview(const std::string& file, const std::string& contentType, bool asJson) {
    TemporaryCopy copy;
    std::string path = file;
    if (file == "-") {
        auto input = Input::readFile("-");
        if (!input || !copy.write(*input)) {
            Output::complain("cannot read standard input");
            return 2;
        }
        path = copy.path();
    }

    auto outcome = qh::shim::ShimHost::generatePreview(path, contentType);
    const QHPreviewRequestRecord& request = outcome.request;
    if (!asJson) {
        if (request.data) Output::out(qh::asText(*request.data));
        return 0;
    }
    qh::Dict document{{"contentType", request.contentType ? qh::Value(*request.contentType) : qh::Value()},
                      {"data", request.data ? qh::Value(*request.data) : qh::Value()}};
    Output::out(qh::Value(std::move(document)).toJsonText() + "\n");
    return 0;
}

const bool registered = Commands::add("preview", [](CLI::App& app, Outcome& outcome) {
    auto* command = app.add_subcommand("preview", "Print the preview the plug-in makes of FILE (RTF or UTF-8 text)");
    auto contentType = std::make_shared<std::string>(qh::plugin::kMsgContentType);
    auto asJson = std::make_shared<bool>(false);
    auto file = std::make_shared<std::string>();
    command->add_option("--content-type", *contentType, "Content type handed to the plug-in")
        ->default_str(std::string(qh::plugin::kMsgContentType));
    command->add_flag("--json", *asJson, "Print {\"contentType\": ..., \"data\": ...} instead of the bytes");
    command->add_option("FILE", *file, "The document (- for standard input)")->required();
    command->callback([&outcome, contentType, asJson, file] {
        outcome.exitCode = Output::guard([&] { return preview(*file, *contentType, *asJson); });
    });
});

}  // namespace cmd_preview
}  // namespace qhcli
