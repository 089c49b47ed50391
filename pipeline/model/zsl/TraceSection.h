#pragma once

#include <cutils/trace.h>

extern "C" {
void atrace_begin_body(char const* name);
void atrace_end_body();
}

namespace NSCam::v3::pipeline::model {

/// A trace section of the camera tag, open while it lives. It closes what it opened, whatever
/// happens to the enabled tags in between.
class TraceSection {
public:
    explicit TraceSection(char const* name)
        : mIsOpen((atrace_get_enabled_tags() & ATRACE_TAG_CAMERA) != 0) {
        if (mIsOpen) {
            atrace_begin_body(name);
        }
    }
    ~TraceSection() {
        if (mIsOpen) {
            atrace_end_body();
        }
    }
    TraceSection(TraceSection const&) = delete;
    TraceSection& operator=(TraceSection const&) = delete;

private:
    bool const mIsOpen;
};

}  // namespace NSCam::v3::pipeline::model
