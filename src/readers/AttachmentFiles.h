#pragma once
// The files a message carries, in the order they are unpacked: every item of
// its attachment list that holds data, then, when asked, the files inside the
// items that are TNEF streams (winmail.dat), read in the same reading. The
// command's `attachments` and the Python package's `attachments` both walk
// them through here.
#include <functional>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>

namespace qh {

class AttachmentFiles {
public:
    struct File {
        const Dict& item;       // the attachment item it comes from
        std::string_view name;  // the item's "name" (or "fileName"); empty when it has none
        ByteView data;          // its bytes, or the text an EML part was decoded to
    };

    // Calls `visit` for each file in order; stops, answering false, as soon as
    // `visit` does. `complain` hears why a nested TNEF stream was not opened.
    static bool walk(const Dict& message, const ReadOptions& options, bool expandTnef,
                     const std::function<bool(const File&)>& visit,
                     const std::function<void(std::string_view)>& complain = {});

    // Whether an item is a TNEF stream: by its signature, its name
    // (winmail.dat) or its declared type.
    static bool isTnef(const Dict& item, ByteView data);
};

}  // namespace qh
