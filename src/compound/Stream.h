#pragma once
// One stream of a compound document opened by path for reading.
#include <cstdint>
#include <memory>
#include <string_view>

namespace qh {

class CompoundDocument;
class CompoundDocumentIO;
class StreamHandler;

class Stream {
public:
    Stream();
    Stream(CompoundDocument& document, std::string_view path);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void initialize(CompoundDocument* document, std::string_view path);
    // The directory size of the stream (0 without one).
    std::uint64_t size() const;
    // Reads at the stream's position; 0 without a stream.
    std::size_t read(std::uint8_t* data, std::size_t length);
    // Yes when no stream could be opened.
    bool fail() const;
    void deInitialize();

    StreamHandler* handler() const { return handler_.get(); }

private:
    CompoundDocumentIO* io_ = nullptr;
    std::unique_ptr<StreamHandler> handler_;
};

}  // namespace qh
