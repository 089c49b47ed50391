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

/**
 * Builds the explanation of one try from its lines. The lines up to the verdicts come one by one;
 * what they mean together is worked out at the end, because
 * - a choice is carried out in this try only if its set is not in flight, which a later line tells;
 *   else it stays with the capture until a later try finds the set in the history;
 * - the lines on built frames name no wanted frame: they come in ascending order of their indices,
 *   first those of choices, then those that the time-out served;
 * - a frame that was taken and yet not chosen was part of a run that was not completed.
 *
 * Any line may be missing. What then cannot be told stays empty.
 */
class TryBuilder {
public:
    /// `line` is the first one: a TryBegin, or another one when the log lacks that.
    TryBuilder(LogRecord const& record, ProcessorLine const& line);

    uint32_t requestNo() const { return mRequestNo; }
    bool hasInput() const { return mTry.hasInput; }
    /// Lines that tell what is wanted must follow.
    bool isInputOpen() const { return mIsInputOpen; }
    void cutInput();

    /// Whether a verdict on the frame can be one of this try: frames are judged in ascending order.
    bool canJudge(uint32_t frameNo) const;
    /// `startsOver`: the run of frames that was taken before is not wanted any more.
    void judge(Candidate frame, bool startsOver);

    void add(ProcessorLine const& line);
    /// A library's policy gives a reason. It may look at a frame once for each wanted one; its last
    /// word counts.
    void addRejected(Candidate frame);
    void addError(std::string text) { mTry.errors.push_back(std::move(text)); }

    /// `before`: the capture's try before this one, null for none; `result`: null when its line is
    /// not there.
    TryExplanation finish(TryExplanation const* before, ProcessorLine const* result);

private:
    void addBadSet(uint32_t frameNo);
    void addChoice(ProcessorLine const& line);
    void addOutcome(ProcessorLine const& line);
    Selection chosenSoFar(TryExplanation const* before) const;
    std::set<uint64_t> openIndices(TryExplanation const* before) const;
    void explainServed(Selection const& chosen, TryExplanation const* before);
    void explainCandidates();
    void explainChoice(Candidate& frame, uint64_t index) const;
    void explainStreams(Candidate& frame) const;
    void explainOrders(Selection const& chosen);
    void addUnjudged(uint32_t frameNo, Verdict verdict, std::optional<uint64_t> index);

    uint32_t mRequestNo;
    TryExplanation mTry;
    bool mIsInputOpen = false;
    size_t mTaken = 0;  ///< of the run that is being judged

    // Of the set that the next BadSet names.
    std::string mBadStream;
    bool mIsPureRaw = false;

    // What the lines tell; none: there was no such line.
    std::optional<Selection> mSelected, mEarlier, mLeft;
    std::vector<Order> mFates;
    std::map<uint32_t, bool> mLost;  ///< chosen sets not handed over; true: streams are missing
    std::optional<size_t> mOutCount;
    std::vector<std::optional<uint32_t>> mOut;
    std::optional<std::string> mLockedOf;  ///< selector whose locked sets are being listed
    std::map<uint32_t, StreamList> mSets;  ///< contents as far as a dump showed them
};

}  // namespace zebcam::tool::log
