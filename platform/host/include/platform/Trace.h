#pragma once

#include <sys/types.h>
#include <zebcam/ThreadSafety.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

/// The host's trace sink behind the `atrace_*` functions. Off until something is attached.
namespace zebcam::platform {

/// Takes trace sections. Called on the thread that opens or closes the section; calls from
/// several threads may overlap. Must not throw, and must not attach or detach a sink.
class ITraceSink {
public:
    virtual ~ITraceSink() = default;
    virtual void beginSection(char const* name) = 0;
    virtual void endSection() = 0;
};

/// Attaches a sink (not owned; null detaches) and tells which tags are enabled, as bits of
/// ATRACE_TAG_* from <cutils/trace.h>. It takes the place of the one before, and when the call
/// returns, nobody is inside that one any more. The sink must outlive its attachment; it may hear
/// of the end of a section whose beginning it did not see, and the other way round.
void setTraceSink(ITraceSink* sink, uint64_t enabledTags);

/// Environment variable that names a file to write for the whole process, with all tags.
inline constexpr char TRACE_FILE_VARIABLE[] = "ZEBCAM_TRACE";

/**
 * Writes sections to a file in the Trace Event Format (JSON), which ui.perfetto.dev opens. Attached
 * while it lives; among several the newest is written. Sections that are open when the file ends
 * are closed in it.
 */
class TraceFile final : public ITraceSink {
public:
    /// Throws std::runtime_error, naming the path, if the file cannot be created.
    TraceFile(std::string const& path, uint64_t enabledTags);
    ~TraceFile() override;

    void beginSection(char const* name) override;
    void endSection() override;

private:
    void write(char phase, pid_t thread, char const* name) REQUIRES(mLock);

    Mutex mLock;
    std::FILE* mFile GUARDED_BY(mLock) = nullptr;
    bool mIsFirst GUARDED_BY(mLock) = true;
    std::map<pid_t, unsigned> mOpenSections GUARDED_BY(mLock);  ///< by thread
};

}  // namespace zebcam::platform
