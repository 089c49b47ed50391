#pragma once

#include <pipeline/IHistoryBufferProvider.h>
#include <policy/zsl/ZslTypes.h>

#include <list>
#include <memory>

namespace NSCam::v3::pipeline::model {

using NSPipelineContext::HistoryBufferSet;
using HistoryProviderPtr = std::shared_ptr<NSPipelineContext::IHistoryBufferProvider>;

/// Buffer sets by position: they are moved by relinking nodes, never copied.
using BufferSets = std::list<HistoryBufferSet>;

/// Fills `history` with the provider's sets, less every problematic one (an image with an error,
/// or, if asked for, pure-raw metadata), which goes back as released. False: no history.
bool getHistoryBuffers(HistoryProviderPtr const& provider, bool checkPureRaw, BufferSets& history);

/// Whether the set has a buffer of every required stream.
bool containsRequiredStreamBuffer(HistoryBufferSet const& set,
                                  ZslPolicy::RequiredStreams const& required);

/// Releases and removes every buffer whose stream is not required.
void releaseUnrequiredStreamBuffer(HistoryBufferSet& set,
                                   ZslPolicy::RequiredStreams const& required);

/// Takes the set of a frame out of the history or else the locked list, trimmed to what is
/// required; null, with an error line, when neither has one that fits.
std::shared_ptr<HistoryBufferSet> getSelectedHbs(uint32_t frameNo, BufferSets& history,
                                                 BufferSets& locked,
                                                 ZslPolicy::RequiredStreams const& required);

/// The same with a clone; the set itself stays in its list, and a clone that does not fit is
/// destroyed.
std::shared_ptr<HistoryBufferSet> getClonedHbs(uint32_t frameNo, BufferSets& history,
                                               BufferSets& locked,
                                               ZslPolicy::RequiredStreams const& required,
                                               HistoryProviderPtr const& provider);

/// Takes the first set of the history that has what is required, trimmed; null when none has.
std::shared_ptr<HistoryBufferSet> getTimedoutHbs(BufferSets& history,
                                                 ZslPolicy::RequiredStreams const& required);

/// The first set of that frame number, or end.
BufferSets::iterator findSet(BufferSets& sets, uint32_t frameNo);

/**
 * The provider's history for the time of one selection.
 *
 * What is in `sets` at the end, however that comes about, goes back to the provider as unused, and
 * the selection is completed there.
 */
class HistoryLease {
public:
    /// A null provider is reported and counts as one without history.
    HistoryLease(HistoryProviderPtr provider, bool checkPureRaw);
    ~HistoryLease();
    HistoryLease(HistoryLease const&) = delete;
    HistoryLease& operator=(HistoryLease const&) = delete;

    BufferSets& sets() { return mSets; }

    /// Ends the lease now instead of at destruction.
    void giveBack();

private:
    HistoryProviderPtr const mProvider;
    BufferSets mSets;
    bool mIsOver = false;
};

}  // namespace NSCam::v3::pipeline::model
