#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <memory>

#include "Tape.h"

namespace NSCam::v3::pipeline::model::record {

/// A selector that forwards to another and records its answers.
class RecordedSelector final : public ZslPolicy::ISelector {
public:
    RecordedSelector(std::shared_ptr<ZslPolicy::ISelector> selector, std::shared_ptr<Tape> tape)
        : mSelector(std::move(selector)), mTape(std::move(tape)) {}

    char const* getName() const override { return mSelector->getName(); }
    SelectOutputParams select(SelectInputParams const& in) const override;

private:
    std::shared_ptr<ZslPolicy::ISelector> const mSelector;
    std::shared_ptr<Tape> const mTape;
};

}  // namespace NSCam::v3::pipeline::model::record
