#include <cutils/properties.h>
#include <policy/zsl/ISelector.h>
#include <policy/zsl/Reasons.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

// One library for each way in which a plug-in behaves, told apart by PLUGIN_KIND.

namespace {

using NSCam::ZslPolicy::ISelector;

/// Locks the oldest free frame on every try and serves nothing.
class Hoarder : public ISelector {
public:
    char const* getName() const override { return "Hoarder"; }
    SelectOutputParams select(SelectInputParams const& in) const override {
        SelectOutputParams out;
        for (auto const& [frameNo, frame] : in.historyFrames) {
            if (!frame.isLocked) {
                out.ops[frameNo] = SelectOutputParams::LOCK;
                break;
            }
        }
        return out;
    }
};

/// Serves every second frame of the capture, or as its parameter says, from a copy of the newest.
class Cloner : public ISelector {
public:
    char const* getName() const override { return "Cloner"; }
    SelectOutputParams select(SelectInputParams const& in) const override {
        SelectOutputParams out;
        for (auto const& [index, info] : in.frameInfos) {
            if (index % mEvery == 0 && !in.historyFrames.empty()) {
                out.selected[index] = {in.historyFrames.rbegin()->first, true, {}};
            }
        }
        return out;
    }

private:
    uint32_t const mEvery =
        static_cast<uint32_t>(property_get_int32("vendor.debug.camera3.zsl.policy.every", 2));
};

/// Takes nothing, and says why.
class Picky : public ISelector {
public:
    char const* getName() const override { return "Picky"; }
    SelectOutputParams select(SelectInputParams const& in) const override {
        for (auto const& [frameNo, frame] : in.historyFrames) {
            NSCam::ZslPolicy::reject(*this, in, frame, "softness", "2.1 < 5.0");
        }
        return {};
    }
};

class Thrower : public ISelector {
public:
    char const* getName() const override { return "Thrower"; }
    SelectOutputParams select(SelectInputParams const&) const override {
        throw std::runtime_error("no idea");
    }
};

/// Takes the process with it.
class Aborter : public ISelector {
public:
    char const* getName() const override { return "Aborter"; }
    SelectOutputParams select(SelectInputParams const&) const override {
        std::fputs("the tables are gone\n", stderr);
        std::abort();
    }
};

/// Never comes back.
class Sleeper : public ISelector {
public:
    char const* getName() const override { return "Sleeper"; }
    SelectOutputParams select(SelectInputParams const&) const override {
        for (;;) {
            pause();
        }
    }
};

/// Acts as somebody who ends the program that started this process, and then sleeps.
class Interrupter : public Sleeper {
public:
    SelectOutputParams select(SelectInputParams const& in) const override {
        kill(getppid(), SIGTERM);
        return Sleeper::select(in);
    }
};

[[maybe_unused]] ISelector* nothing() {
    return nullptr;
}

[[maybe_unused]] ISelector* refuse() {
    throw std::runtime_error("not today");
}

template <typename Selector>
ISelector* make() {
    return new Selector;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ISelector* PLUGIN_ENTRY() {
    return PLUGIN_MAKE();
}
