#pragma once

#include <stdexcept>

#include "World.h"

namespace zebcam::test {

/// What the plug-ins of a world throw.
class PluginFailure : public std::runtime_error {
public:
    PluginFailure() : std::runtime_error("plug-in") {}
};

/// Hears of early shutters.
class World::Listener final : public IAppCallback {
public:
    explicit Listener(World& world) : mWorld(world) {}
    void updateFrame(Result const& result) override { mWorld.hear(*this, result); }

private:
    World& mWorld;
};

/// A policy that is given with a capture: answers as the capture says, sense or nonsense, and looks
/// at what it is shown.
class World::Given final : public ISelector {
public:
    Given(World& world, Press& press, Faults faults);
    char const* getName() const override;
    Answer select(SelectInputParams const& in) const override;

private:
    void choose(SelectInputParams const& in, Answer& answer) const;
    void order(SelectInputParams const& in, Answer& answer) const;
    void noteOrder(Answer::OpT op, uint32_t frameNo, SelectInputParams const& in) const;
    AdditionalMetas metasOf(Pick const& pick) const;
    void fail() const;

    World& mWorld;
    Press& mPress;
    Faults const mFaults;
    std::string const mName;
    mutable unsigned mCalls = 0;
};

}  // namespace zebcam::test
