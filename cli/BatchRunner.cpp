#include "BatchRunner.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qhcli {

namespace batch_runner {

// Results that may wait for an earlier, slower file, per thread.
constexpr std::size_t kWindowPerThread = 4;

class ProgressBar {
public:
    explicit ProgressBar(std::size_t total) : total_(total), shown_(total > 1 && ::isatty(STDERR_FILENO)) {}
    ~ProgressBar() { hide(); }

    // Called before each result is printed: the bar leaves its line so that
    // results and complaints on the same terminal do not run into it.
    void beforeOutput() { hide(); }

    void update(std::size_t done) {
        if (!shown_) return;
        auto now = std::chrono::steady_clock::now();
        // Drawn again at once after output erased it, else at most ten times a second.
        if (drawn_ && done < total_ && now - last_ < std::chrono::milliseconds(100)) return;
        last_ = now;
        drawn_ = true;
        constexpr std::size_t kWidth = 30;
        std::size_t filled = total_ ? done * kWidth / total_ : kWidth;
        std::string bar(filled, '#');
        bar.append(kWidth - filled, '.');
        std::fflush(stdout);
        std::fprintf(stderr, "\r[%s] %zu/%zu", bar.c_str(), done, total_);
        std::fflush(stderr);
    }

private:
    void hide() {
        if (!drawn_) return;
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        drawn_ = false;
    }

    std::size_t total_;
    bool shown_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point last_{};
};

// Every file's buffers are large and short-lived; by default each one would be
// mapped fresh from the system and unmapped again, and the page faults would
// cost more than reading the messages. Keep them on the heap for reuse instead.
void keepLargeBuffersOnTheHeap() {
    static std::once_flag once;
    std::call_once(once, [] {
        mallopt(M_MMAP_THRESHOLD, 64 << 20);
        mallopt(M_TRIM_THRESHOLD, 256 << 20);
    });
}

void runGuarded(const std::function<void(std::size_t)>& work, std::size_t index) {
    try {
        work(index);
    } catch (...) {
        // The caller sees no result for this index and reports the file as failed.
    }
}

}  // namespace batch_runner

void BatchRunner::addJobsOption(CLI::App& command, unsigned& jobs) {
    command.add_option("-j,--jobs", jobs, "Threads to use for several files (default: one per core)");
}

void BatchRunner::run(std::size_t count, unsigned jobs, const std::function<void(std::size_t)>& work,
                      const std::function<void(std::size_t)>& emit) {
    batch_runner::ProgressBar progress(count);
    if (count > 1) batch_runner::keepLargeBuffersOnTheHeap();
    if (jobs == 0) jobs = std::max(1u, std::thread::hardware_concurrency());
    std::size_t threads = std::min<std::size_t>(jobs, count);
    if (threads <= 1) {
        for (std::size_t i = 0; i < count; ++i) {
            batch_runner::runGuarded(work, i);
            progress.beforeOutput();
            emit(i);
            progress.update(i + 1);
        }
        return;
    }

    std::mutex mutex;
    std::condition_variable workerWake, emitterWake;
    std::vector<char> finished(count, 0);
    std::size_t next = 0, emitted = 0;
    const std::size_t window = threads * batch_runner::kWindowPerThread;

    auto worker = [&] {
        for (;;) {
            std::size_t index;
            {
                std::unique_lock lock(mutex);
                workerWake.wait(lock, [&] { return next >= count || next < emitted + window; });
                if (next >= count) return;
                index = next++;
            }
            batch_runner::runGuarded(work, index);
            {
                std::lock_guard lock(mutex);
                finished[index] = 1;
            }
            emitterWake.notify_one();
        }
    };
    std::vector<std::thread> pool;
    pool.reserve(threads);
    for (std::size_t t = 0; t < threads; ++t) pool.emplace_back(worker);

    while (emitted < count) {
        {
            std::unique_lock lock(mutex);
            emitterWake.wait(lock, [&] { return finished[emitted] != 0; });
        }
        progress.beforeOutput();
        emit(emitted);
        {
            std::lock_guard lock(mutex);
            ++emitted;
        }
        workerWake.notify_all();
        progress.update(emitted);
    }
    for (auto& thread : pool) thread.join();
}

}  // namespace qhcli
