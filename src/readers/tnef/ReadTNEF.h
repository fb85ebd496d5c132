#pragma once
// Reads a TNEF stream (winmail.dat) into a message dictionary. The classic
// reading combines two passes over the same bytes: the attribute decoder
// (TNEFDecoder), and a search for fixed property tags and attribute ids
// anywhere in the stream, which adds the sender and the HTML body and
// overwrites what both produce. The complete reading takes everything from the
// decoder (TNEFContent); TnefRules says where the two part ways.
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>
#include "readers/tnef/TNEFContent.h"

namespace qh {

class ReadTNEF {
public:
    // Always a reader; it holds a dictionary only when the data starts with
    // the TNEF signature.
    static std::unique_ptr<ReadTNEF> initWithData(ByteView data);
    // The same in the reading `options` chooses.
    static std::unique_ptr<ReadTNEF> initWithData(ByteView data, const ReadOptions& options);
    // The dictionary of a TNEF stream attached inside another message, read
    // in the reading and within the budget of `context`; none without the signature.
    static std::optional<Dict> readAttachedMessage(ByteView data, TnefReadContext& context);

    // The message dictionary, or null when the data was no TNEF stream.
    const Dict* returnFullDictionary() const;
    // The message dictionary moved out, for a caller done with the reader;
    // none when the data was no TNEF stream.
    std::optional<Dict> takeFullDictionary() { return std::move(mailContent); }
    const Value* getContent(std::string_view key) const;
    // Has no effect: the dictionary is built by initWithData.
    void buildDictionary(ByteView data);

    // The search-based pass over a whole stream, into `dictionary`.
    static void buildTNEFDictionary(Dict& dictionary, ByteView data, bool ignoreAttachments);
    // One MAPI property block decoded by tag search. Always true.
    static bool decodePropertyStream(const std::uint8_t* bytes, std::size_t length, Dict& dictionary);
    // {"data", "name"} records of the title/data attribute pairs found by search.
    static Array retrieveAttachments(ByteView data);
    // {"From", "Subject", "Body"}, or none for fewer than 4 bytes.
    static std::optional<Dict> getSummaryForMessage(ByteView data);
    static std::optional<Dict> getSummaryForMessage(ByteView data, const ReadOptions& options);

private:
    std::optional<Dict> mailContent;
};

}  // namespace qh
