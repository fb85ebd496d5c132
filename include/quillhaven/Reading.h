#pragma once
// How a reader reads: the reading and the stream cut, chosen when the reader
// is made.
//
//  - classic: the dictionary this library has always produced, byte for byte.
//    Other code of the family (the plug-in host, scripts that diff their
//    output) depends on it, so the reader classes default to it.
//  - complete: nothing the file holds is dropped or garbled (every header,
//    every recipient by type, text in its own code page and never cut,
//    attachments paired with their names). The command's default.
//
// Where the two differ, each reader asks a rule table of its own (one place
// per reader); docs/readings.md lists the rules side by side.
namespace qh {

enum class Reading { classic, complete };

struct ReadOptions {
    Reading reading = Reading::classic;
    // Compound-document streams cut to their recorded sizes before anything
    // is read from them (the sender's bytes) instead of whole-sector buffers.
    bool exactStreams = false;

    static ReadOptions classic(bool exactStreams = false) { return {Reading::classic, exactStreams}; }
    static ReadOptions complete() { return {Reading::complete, true}; }
    bool isComplete() const { return reading == Reading::complete; }
};

}  // namespace qh
