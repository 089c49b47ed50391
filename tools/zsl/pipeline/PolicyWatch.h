#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace zebcam::tool::pipeline {

/// Name of the trace section in which a policy of the user's is asked.
inline constexpr char kPolicySection[] = "policy";

/// While it lives, code of the user's policy runs on this thread. The processor's lock keeps it to
/// one at a time.
class PolicyQuestion {
public:
    /// `what` must outlive the program, as literals do; `requestNo` 0: of no capture.
    explicit PolicyQuestion(char const* what, uint32_t requestNo = 0);
    ~PolicyQuestion();
    PolicyQuestion(PolicyQuestion const&) = delete;
    PolicyQuestion& operator=(PolicyQuestion const&) = delete;
};

/**
 * Has the last word when a user's policy takes the program with it: while it lives, a policy that
 * crashes, or that takes too long for an answer, is told on standard error with what it was asked,
 * temporary files are removed, and the program ends at once, with 128 and the signal, or with
 * `lateStatus`. A signal that somebody else handles, as sanitizers do, is left to them. At most one
 * at a time.
 */
class PolicyWatch {
public:
    static constexpr std::chrono::nanoseconds DEFAULT_LIMIT = std::chrono::minutes(10);

    /// `command` heads the line; `policy` is the library's path; `limit` is for one answer, in real
    /// time.
    PolicyWatch(std::string const& command, std::string const& policy,
                std::chrono::nanoseconds limit, int lateStatus);
    ~PolicyWatch();
    PolicyWatch(PolicyWatch const&) = delete;
    PolicyWatch& operator=(PolicyWatch const&) = delete;

private:
    std::jthread mWatchman;
};

}  // namespace zebcam::tool::pipeline
