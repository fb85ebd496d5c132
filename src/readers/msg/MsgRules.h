#pragma once
// Where the two readings of a message file part ways: one named rule per
// departure, asked by the one path of the MSG reader (ReadMSG, property
// access, recipients, attachments, transport header). docs/readings.md lists
// them beside the other readers' rules.
#include <quillhaven/Reading.h>

namespace qh {

struct MsgRules {
    // classic: cut at a NUL and at a CJK run after four ordinary characters,
    // percent escapes decoded (the plug-in host's previews expect it);
    // complete: keep the text whole, since the cut loses CJK text and the
    // decoding changes links. Only the terminating NUL, control characters
    // other than tab, CR and LF, and surrounding white space go.
    enum class StringCleaning { CutAtWideRun, KeepWhole };
    // classic: 8-bit strings as Windows-1252 (what the family's dictionaries
    // hold); complete: in the message's own code page, since Windows-1252
    // turns every Asian and Cyrillic message into mojibake.
    enum class EightBitText { Windows1252, MessageCodePage };
    // classic: fixed-length records scanned from the stream's first byte and
    // the last one never examined (readers downstream depend on the last
    // record being ignored); complete: every record, aligned after the
    // stream's header, since embedded messages' records are otherwise misread.
    enum class FixedRecords { SkipLastUnaligned, EveryRecordAligned };
    // classic: every recipient under "To", names and addresses read only as
    // UTF-16 (scripts that diff the dictionary depend on it); complete: "To",
    // "CC", "BCC" by recipient type, 8-bit strings too, the SMTP address
    // preferred, since 16 of the corpus' 63 addressed messages lose every name.
    enum class Recipients { AllUnderToUnicodeOnly, ByTypeEitherString };
    // classic: the sender name, and the first address candidate that
    // validates; complete: the SMTP address first, then an address whose type
    // is SMTP, then the transport header's From, since Exchange senders
    // otherwise have no address at all.
    enum class Sender { FirstValidCandidate, SmtpFirst };
    // classic: "Body" as stored and "HTML" from the HTML stream read as UTF-8
    // or from a plain body that is a whole HTML document; complete: the plain
    // body else the RTF's text, the HTML stream in the internet code page else
    // the HTML the RTF encapsulates, since RTF-only messages otherwise have no
    // text.
    enum class Bodies { AsStored, WholeWithRtfFallback };
    // classic: no threading keys and the delivery time alone (the family's
    // dictionaries have none); complete: "MessageID", "InReplyTo",
    // "References", and the submit time when there is no delivery time (sent
    // and draft messages).
    enum class Envelope { DeliveryTimeOnly, ThreadingAndSubmitTime };
    // classic: name texts read in the long name's type with the short name's
    // odd probe, other texts in the name's encoding, an embedded message named
    // "<cut name>.msg" for MIME text (the host's attachment lists depend on
    // it); complete: every text in its own type, an embedded message named
    // from its whole subject with the extension of what it holds (".eml",
    // ".vcf", ".ics"), content ids without angle brackets.
    enum class AttachmentTexts { NameTypeAndMsgSuffix, OwnTypeAndTrueSuffix };
    // classic: an embedded message becomes the EML writer's text (the
    // family's attachment consumers parse that text); complete: standards
    // MIME (MimeWriter), since the classic text is not RFC 5322 conformant.
    // Contacts and appointments are vCard and iCalendar text in both.
    enum class EmbeddedText { ClassicWriter, StandardsMime };
    // classic: a transport header's last field is never filed (readers of
    // these dictionaries rely on it); complete: it is, like every other, and
    // Reply-To is filed too ("ReplyTo"), since replies otherwise go astray.
    enum class HeaderFields { LastNeverFiled, EveryField };
    // classic: without recipient storages "To" is an empty list and the
    // display-To text is never used; complete: its names stand in.
    enum class DisplayTo { Unused, WhenNoRecipients };
    // classic: "Date" is the delivery time in the user's locale and time zone
    // (the host shows it as it stands); complete: the RFC 5322 date-time in
    // UTC, as an .eml's Date field reads: output that does not change with
    // the reader's locale, and no locale date formatter to build (a fifth of
    // a one-file run). Views format "TimeStamp" for the user.
    enum class DateText { UserLocale, Rfc5322 };

    StringCleaning strings;
    EightBitText eightBit;
    FixedRecords records;
    Recipients recipients;
    Sender sender;
    Bodies bodies;
    Envelope envelope;
    AttachmentTexts attachments;
    EmbeddedText embeddedText;
    HeaderFields header;
    DisplayTo displayTo;
    DateText dateText;

    static const MsgRules& of(Reading reading) {
        static constexpr MsgRules kClassic{StringCleaning::CutAtWideRun, EightBitText::Windows1252,
                                           FixedRecords::SkipLastUnaligned, Recipients::AllUnderToUnicodeOnly,
                                           Sender::FirstValidCandidate, Bodies::AsStored,
                                           Envelope::DeliveryTimeOnly, AttachmentTexts::NameTypeAndMsgSuffix,
                                           EmbeddedText::ClassicWriter, HeaderFields::LastNeverFiled, DisplayTo::Unused,
                                           DateText::UserLocale};
        static constexpr MsgRules kComplete{StringCleaning::KeepWhole, EightBitText::MessageCodePage,
                                            FixedRecords::EveryRecordAligned, Recipients::ByTypeEitherString,
                                            Sender::SmtpFirst, Bodies::WholeWithRtfFallback,
                                            Envelope::ThreadingAndSubmitTime, AttachmentTexts::OwnTypeAndTrueSuffix,
                                            EmbeddedText::StandardsMime, HeaderFields::EveryField, DisplayTo::WhenNoRecipients,
                                            DateText::Rfc5322};
        return reading == Reading::complete ? kComplete : kClassic;
    }
    static const MsgRules& classic() { return of(Reading::classic); }
};

}  // namespace qh
