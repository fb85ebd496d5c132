#pragma once
// Where the classic and the complete reading of a TNEF stream part ways: one
// table, asked by the stream loop, the property decoder and the dictionary
// builder. Each rule says what the classic reading does, who depends on it,
// and why the complete reading departs. docs/readings.md lists them.
#include <quillhaven/Reading.h>

namespace qh {

struct TnefRules {
    // Attribute ids: classic compares the whole 32 bits (type half included);
    // complete compares the id half, as MS-OXTNEF keys attributes (some
    // writers leave the type half zero: tp-minimal_attachment.tnef).
    bool matchIdHalfOnly;
    // A zero-size attribute: classic ends the stream there (its dictionary
    // stops at that point); complete hands it on empty and goes on.
    bool zeroSizeEndsStream;
    // A checksum mismatch: classic stops at that attribute; complete uses the
    // attribute all the same (the sum guards nothing a reader can repair).
    bool checksumMismatchEndsStream;
    // Bytes after the last attribute that do not form one: classic reads them
    // as a header and may stop on a stale id; complete ends quietly.
    bool trailingBytesEndQuietly;
    // The attributes beyond the twelve of the classic table (date received,
    // attachment dates, OEM code page, recipient table): complete only.
    bool readEveryAttribute;
    // An attachment attribute before any attAttachRendData: classic puts it in
    // the never-reported list head; complete opens an attachment for it.
    bool attachmentOpensRecord;
    // MAPI values as MS-OXTNEF encodes them: named properties' string names
    // consumed, every value of a multi-valued property, currency and
    // application time 8 bytes, CLSID 16, UTF-16 text decoded as UTF-16.
    // Classic keeps its narrower reading, on which its stored texts depend.
    bool exactPropertyValues;
    // The search pass (fixed tags anywhere in the stream, overwriting what the
    // decoder found): classic keeps it, the plug-in host's dictionaries were
    // made with it; complete leaves it out (it mispairs attachment names and
    // data, and writes a 1601 date when the time property is zero).
    bool searchPass;
    // The dictionary: classic takes subject, RTF/HTML by content sniffing and
    // "Date" from the date sent only; complete takes subject, sender,
    // recipients by type, dates, all three bodies and the message id from
    // the attributes and the message's MAPI properties, strings in their code
    // page, and attachments from their MAPI block as well.
    bool completeDictionary;

    static const TnefRules& of(Reading reading) {
        // classic: byte for byte the dictionaries the plug-in host and the
        // scripts that diff our output have always had.
        static constexpr TnefRules kClassic{false, true, true, false, false, false, false, true, false};
        static constexpr TnefRules kComplete{true, false, false, true, true, true, true, false, true};
        return reading == Reading::complete ? kComplete : kClassic;
    }
};

}  // namespace qh
