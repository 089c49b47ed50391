#define ATRACE_TAG ATRACE_TAG_CAMERA
#include "pipeline/PolicyWatch.h"

#include <cutils/trace.h>
#include <fmt/format.h>
#include <unistd.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <stop_token>
#include <string_view>
#include <vector>

#include "base/AtomicFile.h"
#include "base/Text.h"

namespace zebcam::tool::pipeline {

namespace {

constexpr std::array kCrashes{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// What is going on, for a signal handler, which may read atomics and fixed texts only.
std::atomic<char const*> gWhat{nullptr};  ///< the last question; null: none so far
std::atomic<uint32_t> gRequestNo{0};
std::atomic<int64_t> gAskedNs{0};  ///< real time of the question that is open; 0: none is
std::array<char, 512> gHead{};     ///< begins the line: command and policy

int64_t realNowNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// A line made without memory of the heap.
class SignalText {
public:
    SignalText& operator<<(std::string_view text) {
        size_t const size = std::min(text.size(), mText.size() - mSize);
        std::memcpy(mText.data() + mSize, text.data(), size);
        mSize += size;
        return *this;
    }
    /// `select() for capture 3`.
    SignalText& addQuestion() {
        *this << gWhat.load();
        if (uint32_t const requestNo = gRequestNo; requestNo > 0) {
            *this << " for capture " << int64_t{requestNo};
        }
        return *this;
    }
    SignalText& operator<<(int64_t number) {
        std::array<char, 24> digits;
        auto const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return *this << std::string_view(digits.data(), static_cast<size_t>(end - digits.data()));
    }
    /// Whether anybody reads it makes no difference any more.
    void print() const {
        [[maybe_unused]] auto const n = write(STDERR_FILENO, mText.data(), mSize);
    }

private:
    std::array<char, 1024> mText;
    size_t mSize = 0;
};

// Async-signal-safe, all of it.
void onCrash(int signal) {
    SignalText line;
    line << gHead.data();
    if (gAskedNs != 0) {
        (line << " crashed in ").addQuestion();
    } else if (gWhat.load() != nullptr) {
        // Its answer may be what the processor could not bear.
        (line << ": the program crashed after its answer to ").addQuestion();
    } else {
        line << ": the program crashed before it was asked";
    }
    char const* const name = sigdescr_np(signal);
    line << ": signal " << int64_t{signal} << " (" << (name != nullptr ? name : "unknown") << ")\n";
    line.print();
    base::AtomicFile::removeTemporaries();
    _exit(128 + signal);
}

/// A stack of the thread's own for the handler: a policy may have used up the other.
class SignalStack {
public:
    SignalStack() {
        stack_t const own{mMemory.data(), 0, mMemory.size()};
        sigaltstack(&own, &mBefore);
    }
    ~SignalStack() { sigaltstack(&mBefore, nullptr); }
    SignalStack(SignalStack const&) = delete;
    SignalStack& operator=(SignalStack const&) = delete;

private:
    std::vector<char> mMemory = std::vector<char>(64UL << 10U);
    stack_t mBefore{};
};

/// Puts `to` in the place of `from`, for each signal whose action is that.
void exchangeHandlers(void (*from)(int), void (*to)(int)) {
    for (int const signal : kCrashes) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == from) {
            action.sa_handler = to;
            // A crash of the handler itself ends the program as if there were none.
            constexpr auto kOnce = static_cast<int>(SA_ONSTACK | SA_RESETHAND);
            action.sa_flags = to == onCrash ? kOnce : 0;
            sigaction(signal, &action, nullptr);
        }
    }
}

void watchAnswers(std::stop_token const& stop, std::chrono::nanoseconds limit, int lateStatus) {
    // Nobody wakes it but the stop token, so that the mutex guards nothing.
    Mutex mutex;
    std::condition_variable_any wake;
    LockGuard const lock(mutex);
    std::chrono::nanoseconds const step = std::min<std::chrono::nanoseconds>(
        limit / 4 + std::chrono::milliseconds(1), std::chrono::milliseconds(100));
    while (!wake.wait_for(mutex, stop, step, [&stop] { return stop.stop_requested(); })) {
        int64_t const askedNs = gAskedNs;
        if (askedNs == 0 || realNowNs() - askedNs < limit.count()) {
            continue;
        }
        SignalText line;
        (line << gHead.data() << " gave no answer to ").addQuestion()
            << " within " << base::formatDuration(limit.count()) << " (--time-limit)\n";
        line.print();
        base::AtomicFile::removeTemporaries();
        // Whoever waits for the answer would hold up every other way out.
        _exit(lateStatus);
    }
}

}  // namespace

PolicyQuestion::PolicyQuestion(char const* what, uint32_t requestNo) {
    thread_local SignalStack const stack;
    gWhat = what;
    gRequestNo = requestNo;
    gAskedNs = realNowNs();
    ATRACE_BEGIN(kPolicySection);
}

PolicyQuestion::~PolicyQuestion() {
    ATRACE_END();
    gAskedNs = 0;
}

PolicyWatch::PolicyWatch(std::string const& command, std::string const& policy,
                         std::chrono::nanoseconds limit, int lateStatus) {
    gWhat = nullptr;
    gHead = {};
    fmt::format_to_n(gHead.data(), gHead.size() - 1, "{}: policy {}", command, policy);
    exchangeHandlers(SIG_DFL, onCrash);
    mWatchman = std::jthread([limit, lateStatus](std::stop_token const& stop) {
        watchAnswers(stop, limit, lateStatus);
    });
}

PolicyWatch::~PolicyWatch() {
    exchangeHandlers(onCrash, SIG_DFL);
}

}  // namespace zebcam::tool::pipeline
