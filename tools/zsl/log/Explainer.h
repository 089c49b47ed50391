#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "log/Explanation.h"
#include "log/Logcat.h"
#include "log/ProcessorLine.h"
#include "log/Reasons.h"
#include "log/TryBuilder.h"

namespace zebcam::tool::log {

/**
 * Finds out from the processor's log what became of each capture and why. Takes a log in pieces of
 * any quality: what it cannot use, it counts.
 *
 *     Explainer explainer;
 *     for (LogRecord record; reader.next(record);) {
 *         explainer.feed(record);
 *     }
 *     Explanation const explanation = explainer.finish();
 *
 * A processor holds its lock while it works, so the lines of one thread are in order and lines of
 * several processors mix between threads only; each thread is followed by itself.
 */
class Explainer {
public:
    /// Gets each capture when it is over: served, timed out or flushed.
    using CaptureListener = std::function<void(CaptureExplanation const&)>;

    explicit Explainer(CaptureListener onOver = {}) : mOnOver(std::move(onOver)) {}

    void feed(LogRecord const& record);

    /// What is known until now; open tries are not in it.
    Explanation const& soFar() const { return mExplanation; }

    /// Whether the newest try of a capture that has ended tells the same as the one before but for
    /// its place and age, or whatever it tells; it is then counted with that one.
    bool foldRepeat(uint32_t requestNo, bool evenIfUnlike = false);

    /// The log tells at most the first line of the try that a capture is in now, at this age: it is
    /// counted with the one before.
    void skipRepeat(uint32_t requestNo, int64_t ageMs);

    /// Ends the tries that are open and gives the whole, once.
    Explanation finish();

private:
    using ThreadId = std::pair<std::optional<uint32_t>, std::optional<uint32_t>>;
    using CaptureId = std::pair<std::optional<uint32_t>, uint32_t>;

    /// A thread's place in its sequence of lines.
    struct Thread {
        std::optional<TryBuilder> attempt;
        size_t capture = 0;  ///< of the attempt
        Reasons reasons;
        bool usesLatest = false;  ///< told of the try that begins
    };

    CaptureExplanation* newestOf(uint32_t requestNo);
    void feedLine(LogRecord const& record, std::string_view text);
    void countPlace(LogRecord const& record, ThreadId const& id);
    void take(Thread& thread, LogRecord const& record, ProcessorLine const& line);
    void takeOfPolicy(Thread& thread, LogRecord const& record, ProcessorLine const& line);
    void takeVerdict(Thread& thread, LogRecord const& record, ProcessorLine const& line);
    void takeResult(Thread& thread, LogRecord const& record, ProcessorLine const& line);
    void addToTry(Thread& thread, ProcessorLine const& line);
    void begin(Thread& thread, LogRecord const& record, ProcessorLine const& line);
    void beginWithoutInput(Thread& thread, LogRecord const& record, ProcessorLine const& line);
    void end(Thread& thread, ProcessorLine const* result);
    void tellIfOver(CaptureExplanation const& capture) const;
    size_t captureOf(std::optional<uint32_t> pid, uint32_t requestNo);
    size_t addCapture(std::optional<uint32_t> pid, uint32_t requestNo);

    CaptureListener const mOnOver;
    Explanation mExplanation;
    std::map<ThreadId, Thread> mThreads;
    std::map<CaptureId, size_t> mCaptures;  ///< the newest of each number
    std::optional<ThreadId> mLastThread;
    std::optional<int64_t> mNewestNs;
};

}  // namespace zebcam::tool::log
