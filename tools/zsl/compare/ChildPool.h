#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "base/SignalWatch.h"

namespace zebcam::tool::compare {

struct ChildPoolOptions {
    size_t jobs = 1;                                      ///< children at once, at least 1
    std::chrono::nanoseconds timeLimit{600'000'000'000};  ///< of each child, in real time
};

/// How a task ended in its child.
struct ChildOutcome {
    std::string data;     ///< what the task gave
    std::string failure;  ///< why it gave nothing; empty: it did
};

/// Runs in the child. What it gives is not empty, so that a child that ends without it shows; what
/// it throws is the task's failure.
using ChildTask = std::function<std::string(size_t task)>;
/// Called in the order in which the tasks end.
using ChildListener = std::function<void(size_t task, ChildOutcome outcome)>;

/**
 * Runs tasks 0, 1, ... each in a process of its own that is forked from this one: a task that
 * crashes, hangs or changes what is process-wide harms no other. A child has no input; what it
 * prints is kept from this process's outputs, and its last line goes into the failure. Children end
 * with this process, however it ends.
 *
 * Call it while this process has one thread. Throws std::system_error when a child cannot be
 * started, and Interrupted.
 */
void runInChildren(size_t tasks, ChildPoolOptions const& options, base::SignalWatch const& signals,
                   ChildTask const& task, ChildListener const& onEnd);

}  // namespace zebcam::tool::compare
