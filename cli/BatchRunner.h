#pragma once
// Runs one piece of work per input file on a few threads and hands the
// results back in input order, on the calling thread, as soon as each one and
// all before it are done; a progress bar on standard error when that is a
// terminal.
#include <cstddef>
#include <functional>

#include <CLI/CLI.hpp>

namespace qhcli {

class BatchRunner {
public:
    // Adds -j/--jobs (0, the default: one thread per core).
    static void addJobsOption(CLI::App& command, unsigned& jobs);

    // Calls work(i) for every i in [0, count) on up to `jobs` threads, and
    // emit(i) on the calling thread in order of i. work(i) must only touch
    // state of its own index; an exception from it is swallowed (emit(i)
    // still runs and finds whatever work left). Only a bounded window of
    // finished results waits for emitting, so memory stays bounded when one
    // early file is slow.
    static void run(std::size_t count, unsigned jobs, const std::function<void(std::size_t)>& work,
                    const std::function<void(std::size_t)>& emit);
};

}  // namespace qhcli
