#include "RecordedBuilder.h"

namespace NSCam::v3::pipeline::model::record {

uint32_t RecordedBuilder::getFrameType() const {
    mTape->note([](Tape& tape) { tape.submissionClock(); });
    return mBuilder->getFrameType();
}

void RecordedBuilder::setHalImageStreamBuffer(StreamId_T streamId,
                                              android::sp<IImageStreamBuffer> const& buffer) {
    mTape->note([&](Tape& tape) {
        OutSets::Set set;
        if (!mHistorySet && tape.outSets().take(buffer.get(), set)) {
            mHistorySet = std::move(set);
        }
    });
    mBuilder->setHalImageStreamBuffer(streamId, buffer);
}

void RecordedBuilder::setAppMetaStreamBuffer(StreamId_T streamId,
                                             android::sp<IMetaStreamBuffer> const& buffer) {
    mTape->note([&](Tape&) {
        int64_t ns = 0;
        if (!mSensorTimestamp && readSensorTimestamp(buffer, ns)) {
            mSensorTimestamp = ns;
        }
    });
    mBuilder->setAppMetaStreamBuffer(streamId, buffer);
}

void RecordedBuilder::setFrameTimestamp(int64_t ns) {
    mTimestamp = ns;
    mBuilder->setFrameTimestamp(ns);
}

void RecordedBuilder::setBuiltFromHistory(bool builtFromHistory) {
    mTape->note([&](Tape& tape) {
        OutSets::Set set;
        if (builtFromHistory && !mHistorySet &&
            tape.outSets().take(mSensorTimestamp.value_or(mTimestamp), set)) {
            mHistorySet = std::move(set);
        }
        tape.item(Item::BUILT);
        tape.out().number(mNumber);
        tape.out().number((builtFromHistory ? flag::IS_FROM_HISTORY : 0) |
                          (mHistorySet ? flag::HAS_HISTORY_FRAME : 0) |
                          (mHistorySet && mHistorySet->isClone ? flag::IS_CLONE : 0));
        tape.out().signedNumber(mTimestamp);
        if (mHistorySet) {
            tape.out().number(mHistorySet->frameNo);
        }
    });
    mBuilder->setBuiltFromHistory(builtFromHistory);
}

}  // namespace NSCam::v3::pipeline::model::record
