#include "compound/Stream.h"

#include "compound/CompoundDocument.h"
#include "compound/CompoundDocumentIO.h"
#include "compound/StreamHandler.h"

namespace qh {

Stream::Stream() = default;
Stream::Stream(CompoundDocument& document, std::string_view path) { initialize(&document, path); }
Stream::~Stream() = default;

void Stream::initialize(CompoundDocument* document, std::string_view path) {
    io_ = document ? document->io() : nullptr;
    handler_ = io_ ? io_->streamHandler(path) : nullptr;
}

std::uint64_t Stream::size() const { return handler_ ? handler_->entry.size : 0; }

std::size_t Stream::read(std::uint8_t* data, std::size_t length) {
    return handler_ ? handler_->read(data, length) : 0;
}

bool Stream::fail() const { return !handler_ || handler_->fail; }

void Stream::deInitialize() {
    if (handler_) handler_->deInitialize();
    handler_.reset();
    io_ = nullptr;
}

}  // namespace qh
