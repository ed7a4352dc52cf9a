// A progress bar on standard error, drawn only when it is a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace ztool {

/// Counts steps towards a known total and redraws one line on standard error when the shown
/// value changes. Draws nothing when standard error is not a terminal (pipes, files, tests),
/// so logs stay clean. The line is cleared on finish() or destruction.
class Progress {
public:
    Progress(std::string label, size_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// One more step done.
    void step();
    /// Clears the bar's line so that a message can take it; the next step draws it again.
    void clear();
    /// Clears the bar's line; nothing is drawn afterwards.
    void finish();

private:
    void draw();

    std::string label_;
    size_t total_;
    size_t done_ = 0;
    bool active_;
};

}  // namespace ztool
