#include <cutils/trace.h>
#include <platform/Trace.h>
#include <unistd.h>
#include <utils/Timers.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

using zebcam::LockGuard;
using zebcam::ReadGuard;
using zebcam::SharedMutex;
using zebcam::platform::ITraceSink;

namespace {

/// Who is attached; the last one is written to. Sinks are called under the shared lock, so that
/// none is detached and destroyed while a call is inside it.
class Attachments {
public:
    // Those of files stack up, the one of setTraceSink is replaced: a tool that listens to the
    // sections must not end a trace that the user asked for.
    void attach(ITraceSink* sink, uint64_t tags) {
        LockGuard const lock(mLock);
        mSinks.push_back({sink, tags});
        publishTags();
    }

    void detach(ITraceSink* sink) {
        LockGuard const lock(mLock);
        std::erase_if(mSinks, [sink](Attachment const& a) { return a.sink == sink; });
        publishTags();
    }

    void replaceDirect(ITraceSink* sink, uint64_t tags) {
        LockGuard const lock(mLock);
        ITraceSink const* const before = std::exchange(mDirect, sink);
        std::erase_if(mSinks, [before](Attachment const& a) { return a.sink == before; });
        if (sink) {
            mSinks.push_back({sink, tags});
        }
        publishTags();
    }

    template <typename Call>
    void withSink(Call const& call) {
        ReadGuard const lock(mLock);
        if (!mSinks.empty()) {
            call(*mSinks.back().sink);
        }
    }

    /// Read before every section and without the lock: a tag more or less at the moment of an
    /// attachment does no harm, for a sink takes ends without beginnings.
    uint64_t tags() const { return mTags.load(std::memory_order_relaxed); }

private:
    struct Attachment {
        ITraceSink* sink;
        uint64_t tags;
    };

    void publishTags() REQUIRES(mLock) {
        mTags.store(mSinks.empty() ? 0 : mSinks.back().tags, std::memory_order_relaxed);
    }

    SharedMutex mLock;
    std::vector<Attachment> mSinks GUARDED_BY(mLock);
    ITraceSink* mDirect GUARDED_BY(mLock) = nullptr;  ///< the one of setTraceSink
    std::atomic<uint64_t> mTags{0};
};

/// Never destroyed: sections are opened until the last destructor of the process.
Attachments& attachments() {
    static Attachments& instance = *new Attachments;
    return instance;
}

void appendEscaped(std::string& out, char const* text) {
    for (; *text != '\0'; ++text) {
        auto const c = static_cast<unsigned char>(*text);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += *text;
        } else if (c < 0x20 || c > 0x7e) {  // names need not be UTF-8, which JSON insists on
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", c);
            out += code;
        } else {
            out += *text;
        }
    }
}

}  // namespace

extern "C" {

uint64_t atrace_get_enabled_tags() {
    return attachments().tags();
}

void atrace_begin_body(char const* name) {
    attachments().withSink([name](ITraceSink& sink) { sink.beginSection(name ? name : ""); });
}

void atrace_end_body() {
    attachments().withSink([](ITraceSink& sink) { sink.endSection(); });
}

}  // extern "C"

namespace zebcam::platform {

void setTraceSink(ITraceSink* sink, uint64_t enabledTags) {
    attachments().replaceDirect(sink, enabledTags);
}

TraceFile::TraceFile(std::string const& path, uint64_t enabledTags) {
    mFile = std::fopen(path.c_str(), "we");
    if (!mFile) {
        throw std::runtime_error(path + ": cannot create the trace file: " + std::strerror(errno));
    }
    // An event a line, and the list closed at the end: what a killed process leaves behind is
    // still a trace, for the viewers take a list without its end.
    std::fputc('[', mFile);
    attachments().attach(this, enabledTags);
}

TraceFile::~TraceFile() {
    attachments().detach(this);  // from here on nobody is in a section of this file
    for (auto& [thread, depth] : mOpenSections) {
        for (; depth > 0; --depth) {
            write('E', thread, nullptr);
        }
    }
    // A destructor cannot throw, and a trace that lacks its end would be taken for the whole.
    std::fputs("\n]\n", mFile);
    bool const isBroken = std::ferror(mFile) != 0;
    if (std::fclose(mFile) != 0 || isBroken) {
        std::fprintf(stderr, "the trace file could not be written completely\n");
    }
}

void TraceFile::write(char phase, pid_t thread, char const* name) {
    std::string event = mIsFirst ? "\n{\"ph\":\"" : ",\n{\"ph\":\"";
    mIsFirst = false;
    event += phase;
    if (name) {
        event += "\",\"cat\":\"camera\",\"name\":\"";
        appendEscaped(event, name);
    }
    // The clock that a virtual clock moves, so that a replay's trace shows recorded times. In
    // microseconds, as the format wants it; a double would lose the nanoseconds.
    int64_t const ns = systemTime(SYSTEM_TIME_BOOTTIME);
    std::fprintf(mFile, "%s\",\"pid\":%d,\"tid\":%d,\"ts\":%" PRId64 ".%03d}", event.c_str(),
                 static_cast<int>(getpid()), static_cast<int>(thread), ns / 1000,
                 static_cast<int>(ns % 1000));
}

void TraceFile::beginSection(char const* name) {
    LockGuard const lock(mLock);
    ++mOpenSections[gettid()];
    write('B', gettid(), name);
}

void TraceFile::endSection() {
    LockGuard const lock(mLock);
    // A section that began before the file has no beginning in it, and its end would close another.
    auto const it = mOpenSections.find(gettid());
    if (it == mOpenSections.end() || it->second == 0) {
        return;
    }
    --it->second;
    write('E', gettid(), nullptr);
}

namespace {

/// The trace of the whole process, from the load of this library to the end.
std::unique_ptr<TraceFile> const gProcessTrace = []() -> std::unique_ptr<TraceFile> {
    char const* path = std::getenv(TRACE_FILE_VARIABLE);
    if (!path || *path == '\0') {
        return nullptr;
    }
    // A process that cannot be traced runs on: the trace is a help, not its purpose.
    try {
        return std::make_unique<TraceFile>(path, ATRACE_TAG_VALID_MASK);
    } catch (std::exception const& e) {
        std::fprintf(stderr, "%s: %s\n", TRACE_FILE_VARIABLE, e.what());
        return nullptr;
    }
}();

}  // namespace

}  // namespace zebcam::platform
