#pragma once

#include "World.h"

namespace zebcam::test {

/// Hears of early shutters.
class World::Listener final : public IAppCallback {
public:
    explicit Listener(World& world) : mWorld(world) {}
    void updateFrame(Result const& result) override { mWorld.hear(*this, result); }

private:
    World& mWorld;
};

}  // namespace zebcam::test
