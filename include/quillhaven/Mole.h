#pragma once
// The one door to a compound document held in memory: open it from its bytes,
// read single streams by path, or take the whole tree at once as nested lists
// or dictionaries.
//
// Paths are entry names joined with "/"; a leading "/" is optional, empty
// components are ignored and "/" alone is the root storage.
//
// Stream contents come back as whole sectors (a 100-byte stream held in 64-byte
// small sectors comes back as 128 bytes): consumers that need the exact length
// cut the buffer at the size they know. The dictionary walks take
// `exactStreams = true` to have every stream cut to its directory size instead.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Blob.h>
#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh {

class CompoundDocument;

class Mole {
public:
    // Opens the document; none (and the log line "MOLE Reader - Error opening
    // NSData") when it does not load.
    // Streams whose sectors follow each other in the file are views of the
    // facade's copy of it (which they keep alive), the others copies.
    static std::unique_ptr<Mole> initWithData(ByteView data);
    // The same without copying the bytes, for a caller that is done with the
    // facade before `data` goes away. No stream given out points into `data`:
    // getStream copies the stream, and the whole-document walks copy the file
    // once and give out views of that copy.
    static std::unique_ptr<Mole> initBorrowingData(ByteView data);
    // The same without any copy, for a caller whose bytes are shared: streams
    // whose sectors follow each other in the file come back as views that
    // share `data` (it must not change while any of them lives).
    static std::unique_ptr<Mole> initSharingData(std::shared_ptr<const Bytes> data);
    // A facade with an empty, unopened document.
    static std::unique_ptr<Mole> initialize();

    Mole();
    ~Mole();
    Mole(const Mole&) = delete;
    Mole& operator=(const Mole&) = delete;

    // The stream at `path`; none when the path names no stream (missing, or a
    // storage).
    // classic: whole sectors, not cut at the stream's size; the plug-in, `cat`
    // and the classic readings with `--whole-sectors` get these bytes.
    std::optional<Blob> getStream(std::string_view path) const;

    // Every entry of the tree, depth first in sibling order:
    // {"entryname": full path, "entrysize": size (streams only)}.
    // classic: the list is kept between calls, so a second call lists every
    // entry twice; `ls` calls it once, kept for outside users of the facade.
    Array getDirectory();
    // [{"entryname": name, "objectdata": bytes} | {"entryname": name, "childentry": [...]} | {}]
    Array getOLEArray();
    // name -> Value(Blob) for a stream, Value(Dict) for a storage.
    Dict getOLEDictionary(bool exactStreams = false);
    // As getOLEDictionary, the top level filtered to `names` (all when null);
    // storages whose names begin with "__attach_version" are always taken.
    Dict getOLEDictionaryWithContents(const std::vector<std::string>* names, bool exactStreams = false);

    // Drops the document; later calls answer none or empty.
    void deInitialize();

    // The recursive builders behind the walks; `path` ends with "/".
    void buildDirectory(CompoundDocument& document, const std::string& path);
    Array buildOLEArray(CompoundDocument& document, const std::string& path);
    Dict buildOLEDictionary(CompoundDocument& document, const std::string& path, bool exactStreams = false);
    Dict buildOLEDictionary(CompoundDocument& document, const std::string& path,
                            const std::vector<std::string>* names, bool exactStreams = false);

    // The document the facade reads (null after deInitialize).
    CompoundDocument* compoundDocument() const { return compoundDocument_.get(); }

private:
    struct Walk;
    void buildDirectory(Walk& walk, const std::string& path);
    Array buildOLEArray(Walk& walk, const std::string& path);
    Dict buildOLEDictionary(Walk& walk, const std::string& path, const std::vector<std::string>* names,
                            bool filtered);

    Dict directoryEntry_;
    Array directoryArray_;
    std::unique_ptr<CompoundDocument> compoundDocument_;
};

}  // namespace qh
