#include "RecordedCallback.h"

namespace NSCam::v3::pipeline::model::record {

void RecordedCallback::updateFrame(Result const& result) {
    auto const callback = mCallback.promote();
    if (callback == nullptr) {
        return;
    }
    try {
        callback->updateFrame(result);
    } catch (...) {
        mTape->note([](Tape& tape) {
            tape.item(Item::CALLBACK_FAILED);
            tape.out().text(currentExceptionText());
        });
        throw;
    }
}

}  // namespace NSCam::v3::pipeline::model::record
