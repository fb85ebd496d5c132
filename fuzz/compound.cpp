// Fuzz target for the compound document reader: open, the directory walk,
// every stream it lists, the array and both dictionary walks.
// Seeds in fuzz/corpus/compound/ are writer fixtures (see tests/compound/SeedsTest.cpp).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <quillhaven/Mole.h>
#include "core/Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = (qh::Log::setSystemLogEnabled(false), true);
    (void)quiet;
    auto mole = qh::Mole::initWithData(qh::ByteView(data, size));
    if (!mole) return 0;
    std::size_t total = 0;
    for (const qh::Value& record : mole->getDirectory()) {
        const qh::Dict* entry = record.dict();
        const std::string* name = entry ? entry->findString("entryname") : nullptr;
        if (!name) __builtin_trap();
        if (auto stream = mole->getStream(*name)) total += stream->size();
    }
    (void)mole->getOLEArray();
    (void)mole->getOLEDictionary(false);
    (void)mole->getOLEDictionary(true);
    const std::vector<std::string> names{"__substg1.0_0037001F", "__properties_version1.0"};
    (void)mole->getOLEDictionaryWithContents(&names, true);
    (void)mole->getStream("__substg1.0_10090102");
    mole->deInitialize();
    return total == SIZE_MAX;
}
