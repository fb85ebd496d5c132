// Every byte-level decoder of the text utilities on arbitrary bytes: base64,
// hex, quoted-printable, encoded words, the TNEF UTF-16 conversion, address
// headers, value clean-up, bytes-to-text and the submission date. Round trips
// that must hold are checked and abort when they do not.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "util/AddressLists.h"
#include "util/Base64Codec.h"
#include "util/DataWangers.h"
#include "util/DateData.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"
#include "util/WindowsCodePageWangers.h"

using namespace qh;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView input(data, size);
    // The header-sized operations get a header-sized prefix: whole files from
    // the replayed corpus would only make the run slow, not find more.
    const ByteView head = input.first(std::min<std::size_t>(size, 16 * 1024));
    const std::string_view text = asText(input);
    const std::string_view headText = asText(head);

    Bytes decoded = NewBase64Decode(input);
    if (decoded.size() > size) std::abort();
    (void)dataFromBase64String(text);
    (void)DataWangers::b64DecodeDataString(text);
    if (NewBase64Decode(asBytes(NewBase64Encode(input, true))) != Bytes(input.begin(), input.end())) std::abort();
    if (!input.empty()) {
        auto back = DataWangers::b64DecodeDataString(DataWangers::b64EncodeData(input));
        if (!back || *back != Bytes(input.begin(), input.end())) std::abort();
    }

    (void)DataWangers::cleanNonHexCharsFromHexString(text);
    (void)DataWangers::dataFromHexString(text);

    (void)WebWangers::decodeQuotedPrintableString(text, "quoted-printable");
    (void)WebWangers::decodedQuotedPrintable(text);
    (void)WebWangers::createQuotedPrintableFromString(text);
    (void)WebWangers::decodeUTF8B(text);
    (void)WebWangers::decodeUTF8Q(text);
    (void)WebWangers::removePercentEncodingFromString(text);
    (void)WindowsCodePageWangers::decodeCP1255B(text);
    (void)WindowsCodePageWangers::decodeCP1255FromMimeEncodedString(text);

    std::string utf8 = makeUTF8(input);
    if (utf8.size() > size * 3 / 2) std::abort();

    Array addresses = processEmailAddresses(headText);
    if (addresses.empty()) std::abort();
    (void)buildHTMLContactList(addresses);
    (void)WebWangers::validateEmailAddress(headText);

    (void)StringWangers::zapGremlins(text);
    (void)StringWangers::replaceDoubleNewline(text);
    (void)StringWangers::isHTML(text);
    (void)StringWangers::stringFromCString(input);
    (void)typeIsHTML(input);
    for (StringEncoding encoding : {StringEncoding::ASCII, StringEncoding::UTF8, StringEncoding::UTF16,
                                    StringEncoding::UTF16LE, StringEncoding::Windows1255})
        (void)DataWangers::getStringFromData(input, encoding, "fuzz", 0);
    (void)formatDateData(head);
    (void)DataWangers::searchForBytes(input.first(std::min<std::size_t>(size, 4)), input.subspan(std::min<std::size_t>(size, 4)));
    return 0;
}
