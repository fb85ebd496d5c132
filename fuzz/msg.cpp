// The MSG reader on any bytes, in both readings (the classic one in both
// stream modes), followed by the writers it feeds: the MIME text of the
// message by both writers (the new one's checked, WriteBoth.h), and its vCard
// or iCalendar text; and the summary in both readings.
#include <cstddef>
#include <cstdint>

#include "core/Log.h"
#include "readers/msg/ReadMSG.h"
#include <quillhaven/WriteEML.h>
#include "WriteBoth.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        qh::Log::setSystemLogEnabled(false);
        return true;
    }();
    (void)quiet;
    qh::ByteView bytes(data, size);
    for (const qh::ReadOptions& options :
         {qh::ReadOptions::classic(false), qh::ReadOptions::classic(true), qh::ReadOptions::complete()}) {
        std::unique_ptr<qh::ReadMSG> reader = qh::ReadMSG::initWithData(bytes, options);
        if (!reader) return 0;
        const qh::Dict* message = reader->returnFullDictionary();
        if (!message) continue;
        qhfuzz::writeBoth(*message);
        std::unique_ptr<qh::WriteEML> writer = qh::WriteEML::initWithDictionary(message);
        if (!writer) continue;
        const std::string* type = message->findString("MessageType");
        if (type && *type == "Contact") (void)writer->exportContacts();
        if (type && *type == "Calendar") (void)writer->exportAppointment();
    }
    (void)qh::ReadMSG::getSummaryForMessage(bytes, qh::ReadOptions::classic(true));
    (void)qh::ReadMSG::getSummaryForMessage(bytes, qh::ReadOptions::complete());
    return 0;
}
