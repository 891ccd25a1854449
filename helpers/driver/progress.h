#pragma once

#include <cstdint>
#include <functional>

/// How much of a run's work is done.
class Progress {
public:
    /// Called with 0 to 100, only when the value changes.
    using Show = std::function<void(unsigned percent)>;

    Progress(std::uint64_t totalBytes, Show show);

    /// Shows 0.
    void start();

    /// So many more bytes were written or read.
    void add(std::uint64_t bytes);

    /// Shows 100, which nothing else does.
    void finish();

private:
    void show(unsigned percent);

    std::uint64_t totalBytes_;
    Show show_;
    std::uint64_t doneBytes_ = 0;
    unsigned shown_ = ~0U; // none yet
};
