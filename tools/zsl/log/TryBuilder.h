#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "log/Explanation.h"
#include "log/Logcat.h"
#include "log/ProcessorLine.h"

namespace zebcam::tool::log {

/// Builds the explanation of one try from its lines. The lines up to the verdicts come one by one;
/// what they mean together is worked out at the end.
class TryBuilder {
public:
    /// A try whose first lines are not in the log.
    TryBuilder(LogRecord const& first, uint32_t requestNo);
    TryBuilder(LogRecord const& first, line::TryBegin const& begin);

    uint32_t requestNo() const { return mRequestNo; }
    bool hasInput() const { return mTry.hasInput; }
    /// Lines that tell what is wanted must follow.
    bool isInputOpen() const { return mIsInputOpen; }
    void cutInput();

    /// Whether a verdict on the frame can be one of this try: frames are judged in ascending order.
    bool canJudge(uint32_t frameNo) const;
    void judge(Candidate frame, bool startsOver);

    void add(line::Wanted const& wanted);
    void add(line::BadStream const& stream);
    void add(line::BadSet const& set);
    void add(line::TagValue const& pureRaw);
    void add(line::Selector const& selector);
    void add(line::PolicyEnd const& end);
    void add(line::PolicyNote const& note);
    void add(line::Selected const& selected);
    void add(line::SelectorSkipped const& skipped);
    void add(line::EarlierSelection const& earlier);
    void add(line::OrderFate const& order);
    void add(line::HandOverFailed const& failure);
    void add(line::TimedOut const& timedOut);
    void add(line::OutCount const& count);
    void add(line::OutFrame const& frame);
    void add(line::LeftInFlight const& left);
    void add(line::LockedOf const& selector);
    void add(line::BufferSet const& set);
    void addError(std::string text);

    /// `before`: the capture's try before this one, null for none; `result`: null when its line is
    /// not there.
    TryExplanation finish(TryExplanation const* before, line::Result const* result);

private:
    line::Selection merged(TryExplanation const* before) const;
    std::vector<ServedFrame> chosenFrames(TryExplanation const* before) const;
    std::set<uint64_t> frameIndicesBut(std::vector<ServedFrame> const& chosen,
                                       TryExplanation const* before) const;
    void explainServed(TryExplanation const* before);
    void explainCandidates();
    void explainOrders(TryExplanation const* before);
    void explainStreams(Candidate& frame) const;
    Candidate* find(uint32_t frameNo);
    void addMissing(uint32_t frameNo, Verdict verdict, std::optional<uint64_t> index);

    uint32_t mRequestNo;
    TryExplanation mTry;
    bool mIsInputOpen = false;
    size_t mTaken = 0;  ///< of the run that is being judged
    std::string mBadStream;
    bool mIsPureRaw = false;
    std::optional<line::Selection> mSelected, mEarlier, mLeft;
    std::vector<line::OrderFate> mFates;
    std::map<uint32_t, bool> mLost;  ///< chosen sets not handed over; true: streams are missing
    std::optional<size_t> mOutCount;
    std::vector<std::optional<uint32_t>> mOut;
    std::optional<std::string> mLockedOf;
    std::map<uint32_t, StreamList> mSets;  ///< contents as far as a dump showed them
};

}  // namespace zebcam::tool::log
