// The `_quillhaven` extension: the library's front door (readers, writers,
// the preview) for the pure Python package `quillhaven`, which turns paths and
// file objects into bytes before calling here. Every call releases the GIL
// while the message is parsed or written, so threads run in parallel.
#include <pybind11/pybind11.h>

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "PythonValues.h"
#include <quillhaven/Bytes.h>
#include <quillhaven/MessageKeys.h>
#include <quillhaven/Reading.h>
#include "plugin/MsgMetaData.h"
#include "readers/AttachmentFiles.h"
#include <quillhaven/MessageReader.h>
#include "readers/MimeOutput.h"
#include "util/SafeNames.h"
#include "writers/UniqueMessageIds.h"

namespace py = pybind11;

namespace {

// The bytes of a message handed in from Python. A `bytes` object is used in
// place (it cannot change); any other buffer (bytearray, memoryview, mmap) is
// copied first, so that no other thread can change it while it is parsed
// without the GIL.
class Input {
public:
    explicit Input(const py::object& source) {
        if (PyBytes_Check(source.ptr())) {
            held_ = source;
            view_ = qh::ByteView(reinterpret_cast<const std::uint8_t*>(PyBytes_AS_STRING(source.ptr())),
                                 static_cast<std::size_t>(PyBytes_GET_SIZE(source.ptr())));
            return;
        }
        Py_buffer buffer;
        if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_CONTIG_RO) != 0) {
            PyErr_Clear();
            throw py::type_error(std::string("a message must be bytes or another bytes-like object, not ") +
                                 Py_TYPE(source.ptr())->tp_name);
        }
        const auto* begin = static_cast<const std::uint8_t*>(buffer.buf);
        copy_.assign(begin, begin + buffer.len);
        PyBuffer_Release(&buffer);
        view_ = qh::ByteView(copy_);
    }
    qh::ByteView view() const { return view_; }

private:
    py::object held_;
    qh::Bytes copy_;
    qh::ByteView view_;
};

// The kind named by `name` ("msg", "eml", "tnef"), or told by the first bytes for None.
qh::MessageKind kindOf(const py::object& name, qh::ByteView data) {
    if (name.is_none()) return qh::MessageReader::detectKind(data);
    if (!py::isinstance<py::str>(name))
        throw py::type_error(std::string("kind must be a str or None, not ") + Py_TYPE(name.ptr())->tp_name);
    std::string text = name.cast<std::string>();
    std::optional<qh::MessageKind> kind = qh::MessageReader::kindFromName(text);
    if (!kind) throw py::value_error("kind must be 'msg', 'eml', 'tnef' or None, not " + py::repr(name).cast<std::string>());
    return *kind;
}

// classic=False: the complete reading on exact streams; classic=True: the
// classic reading on exact streams; whole_sectors=True: the classic reading on
// whole-sector buffers (the library's own dictionary). As the command's
// default, --classic and --whole-sectors.
qh::ReadOptions optionsOf(bool classic, bool wholeSectors) {
    if (wholeSectors) return qh::ReadOptions::classic(false);
    if (classic) return qh::ReadOptions::classic(true);
    return qh::ReadOptions::complete();
}

py::object readMessage(const py::object& source, const py::object& kindName, bool classic,
                bool wholeSectors) {
    Input input(source);
    qh::MessageKind kind = kindOf(kindName, input.view());
    std::optional<qh::Dict> message;
    {
        py::gil_scoped_release unlocked;
        message = qh::MessageReader::read(input.view(), kind, optionsOf(classic, wholeSectors));
    }
    if (!message) return py::none();
    return qhpy::toPython(*message);
}

py::object summaryOf(const py::object& source, const py::object& kindName, bool classic,
                   bool wholeSectors) {
    Input input(source);
    qh::MessageKind kind = kindOf(kindName, input.view());
    std::optional<qh::Dict> result;
    {
        py::gil_scoped_release unlocked;
        result = qh::MessageReader::summary(input.view(), kind, optionsOf(classic, wholeSectors));
    }
    if (!result) return py::none();
    return qhpy::toPython(*result);
}

py::object convertMessage(const py::object& source, const py::object& kindName, bool classic,
                   bool wholeSectors) {
    Input input(source);
    qh::MessageKind kind = kindOf(kindName, input.view());
    std::optional<std::string> text;
    {
        py::gil_scoped_release unlocked;
        qh::ReadOptions options = optionsOf(classic, wholeSectors);
        std::optional<qh::Dict> message = qh::MessageReader::read(input.view(), kind, options);
        text = qh::MimeOutput::write(message ? &*message : nullptr, options);
    }
    if (!text) return py::none();
    return py::bytes(*text);
}

// File names given out in one list, as the command gives them when it writes
// the files into an empty folder: the safe form of each name, and the first
// free numbered form when it is taken.
class NameList {
public:
    std::string take(std::string_view name) {
        std::string safe = qh::SafeNames::sanitize(name, "attachment");
        std::string candidate = safe;
        // Numbers below the one remembered are all taken, so each name costs
        // one step however many attachments share it.
        unsigned& next = nextNumber_.try_emplace(safe, 2).first->second;
        while (taken_.count(candidate)) candidate = qh::SafeNames::numbered(safe, next++);
        taken_.insert(candidate);
        return candidate;
    }

private:
    std::unordered_set<std::string> taken_;
    std::unordered_map<std::string, unsigned> nextNumber_;
};

struct AttachmentFile {
    std::string name;
    std::string fileName;
    qh::Bytes data;
    std::optional<std::string> mimeType;
};

py::list attachmentsOf(const py::object& source, const py::object& kindName, bool classic,
                     bool wholeSectors, bool expandTnef) {
    Input input(source);
    qh::MessageKind kind = kindOf(kindName, input.view());
    std::vector<AttachmentFile> files;
    {
        py::gil_scoped_release unlocked;
        qh::ReadOptions options = optionsOf(classic, wholeSectors);
        std::optional<qh::Dict> message = qh::MessageReader::read(input.view(), kind, options);
        if (message) {
            NameList names;
            // The files inside a TNEF stream live only while it is walked: copy them.
            qh::AttachmentFiles::walk(*message, options, expandTnef, [&](const qh::AttachmentFiles::File& file) {
                const std::string* type = file.item.findString(qh::keys::kAttachMimeType);
                files.push_back({std::string(file.name), names.take(file.name),
                                 qh::Bytes(file.data.begin(), file.data.end()),
                                 type && !type->empty() ? std::optional<std::string>(*type) : std::nullopt});
                return true;
            });
        }
    }
    py::list out;
    for (const AttachmentFile& file : files) {
        py::dict entry;
        entry["name"] = qhpy::textToPython(file.name);
        entry["file_name"] = qhpy::textToPython(file.fileName);
        entry["data"] = qhpy::bytesToPython(file.data);
        entry["mime_type"] = file.mimeType ? py::object(qhpy::textToPython(*file.mimeType)) : py::none();
        out.append(std::move(entry));
    }
    return out;
}

// What the preview plug-in hands its host for a document: the content type
// and the bytes, or nothing. Failures set no preview, as in the plug-in.
py::object previewOf(const py::object& source) {
    Input input(source);
    qh::PreviewBody body;
    {
        py::gil_scoped_release unlocked;
        try {
            body = qh::msgMetaData(input.view());
        } catch (const std::exception&) {
            body = std::monostate();
        }
    }
    if (auto* text = std::get_if<std::string>(&body)) return py::make_tuple("public.plain-text", py::bytes(*text));
    if (auto* rtf = std::get_if<qh::Bytes>(&body)) return py::make_tuple("public.rtf", qhpy::bytesToPython(*rtf));
    return py::none();
}

std::string detectKind(const py::object& source) {
    Input input(source);
    return std::string(qh::MessageReader::kindName(qh::MessageReader::detectKind(input.view())));
}

// The name `convert -d` gives the output of an input path: its file name
// without the extension, made safe, ".eml".
std::string convertedName(const std::string& inputPath) {
    return qh::SafeNames::sanitize(std::filesystem::path(inputPath).stem().string(), "message") + ".eml";
}

// Every message's buffers are large and short-lived; by default the C library
// maps each one fresh from the system and unmaps it again, and for a batch of
// files the page faults cost more than reading the messages. Bulk work keeps
// them on the heap for reuse instead, as the command does for several files.
// Process-wide, so only the bulk functions ask for it.
void keepLargeBuffersOnHeap() {
#if defined(__GLIBC__)
    static std::once_flag once;
    std::call_once(once, [] {
        mallopt(M_MMAP_THRESHOLD, 64 << 20);
        mallopt(M_TRIM_THRESHOLD, 256 << 20);
    });
#endif
}

}  // namespace

PYBIND11_MODULE(_quillhaven, module) {
    qhpy::importDateTime();
    module.doc() = "The compiled core of the quillhaven package; use the functions of `quillhaven` instead.";
    module.attr("__version__") = QH_VERSION;

    const auto data = py::arg("data");
    module.def("read", &readMessage, data, py::arg("kind") = py::none(), py::arg("classic") = false,
               py::arg("whole_sectors") = false,
               "The message dictionary of `data` (bytes-like), or None when it holds no message.");
    module.def("summary", &summaryOf, data, py::arg("kind") = py::none(), py::arg("classic") = false,
               py::arg("whole_sectors") = false,
               "The reader's short summary of `data` ({'Subject', 'Body', 'From'}), or None.");
    module.def("convert", &convertMessage, data, py::arg("kind") = py::none(), py::arg("classic") = false,
               py::arg("whole_sectors") = false, "The message in `data` as MIME text (bytes), or None.");
    module.def("attachments", &attachmentsOf, data, py::arg("kind") = py::none(), py::arg("classic") = false,
               py::arg("whole_sectors") = false, py::arg("expand_tnef") = false,
               "The files the message in `data` carries: dicts of name, file_name, data, mime_type.");
    module.def("preview", &previewOf, data,
               "The preview plug-in's result for `data`: (content type, bytes) or None.");
    module.def("detect_kind", &detectKind, data, "'msg', 'tnef' or 'eml', as told by the first bytes.");
    module.def("keep_large_buffers_on_heap", &keepLargeBuffersOnHeap,
               "Keeps large buffers on the C heap for reuse (process-wide; for bulk work).");
    py::class_<qh::UniqueMessageIds>(module, "UniqueMessageIds",
                                     "The Message-IDs of one run of conversions, kept unique as convert -d does.")
        .def(py::init<>())
        .def_static(
            "find",
            [](const py::bytes& text) -> py::object {
                std::optional<std::string_view> id = qh::UniqueMessageIds::find(std::string_view(text));
                if (!id) return py::none();
                return qhpy::textToPython(*id);
            },
            py::arg("text"), "The Message-ID in the header of a written message, or None.")
        .def(
            "add", [](qh::UniqueMessageIds& ids, const std::string& id) { return ids.add(id); }, py::arg("id"),
            "Remembers `id`; False when it was seen before.")
        .def(
            "make_unique",
            [](qh::UniqueMessageIds& ids, const py::bytes& text) {
                std::string written(text);
                ids.makeUnique(written);
                return py::bytes(written);
            },
            py::arg("text"), "`text` with a fresh Message-ID when an earlier message had its own.");
    module.def("safe_name", &qh::SafeNames::sanitize, py::arg("name"), py::arg("fallback"),
               "`name` made safe to create inside one folder; `fallback` when nothing is left of it.");
    module.def("numbered", &qh::SafeNames::numbered, py::arg("name"), py::arg("n"),
               "The n-th candidate for a name that is taken: 'a.txt' -> 'a (n).txt'.");
    module.def("converted_name", &convertedName, py::arg("input_path"),
               "The file name `convert -d` gives the message converted from `input_path`.");
}
