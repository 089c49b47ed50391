#pragma once

#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

/// An ordinary still capture: for each requested frame the oldest history frame from the capture's
/// instant on that passes every criterion. No history frame is offered twice.
class ZslProcessor::DefaultSelector final : public ZslPolicy::ISelector {
public:
    char const* getName() const override { return "DefaultSelector"; }
    SelectOutputParams select(SelectInputParams const& in) const override;
};

/// Continuous shooting: like the default, but whatever has the streams and sensor modes will do,
/// however old it is.
class ZslProcessor::CShotSelector final : public ZslPolicy::ISelector {
public:
    char const* getName() const override { return "CShotSelector"; }
    SelectOutputParams select(SelectInputParams const& in) const override;
};

/// Frames that are to be blended: an unbroken run of history frames that pass every criterion and
/// ends at the capture's instant if it can, or nothing.
class ZslProcessor::MultiframeSelector final : public ZslPolicy::ISelector {
public:
    char const* getName() const override { return "MultiframeSelector"; }
    SelectOutputParams select(SelectInputParams const& in) const override;
};

}  // namespace NSCam::v3::pipeline::model
