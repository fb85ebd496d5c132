#pragma once
// Writes a message dictionary, from any of the readers, out as the text of an
// RFC 822 / MIME message, and contacts and appointments as vCard / iCalendar.
#include <memory>
#include <string>
#include <string_view>

#include <quillhaven/Value.h>

namespace qh {

class WriteEML {
public:
    // Keeps a copy of the dictionary; null when there is none.
    static std::unique_ptr<WriteEML> initWithDictionary(const Dict* dictionary);
    explicit WriteEML(Dict dictionary);

    // The whole message text.
    std::string formatOutputFile() const;
    // The value under `key`, or null.
    const Value* checkContent(std::string_view key) const;
    // The "AttachmentList" array, or null.
    const Array* attachmentArray() const;

    // vCard 3.0 text of a contact dictionary.
    std::string exportContacts() const;
    // iCalendar text of an appointment dictionary.
    std::string exportAppointment() const;

private:
    Dict dictionary_;
};

}  // namespace qh
