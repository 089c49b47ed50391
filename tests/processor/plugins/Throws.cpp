#include <policy/zsl/ISelector.h>

#include <exception>

namespace {

using NSCam::ZslPolicy::ISelector;

/// Its code and its text are the library's.
class Failure final : public std::exception {
public:
    char const* what() const noexcept override { return mText.c_str(); }

private:
    std::string const mText = NSCam::ZslPolicy::toString(
        {{{0, {ISelector::ZslFrameResult::NO_FRAME, false, {{1, nullptr}}}}}, {{103, {}}}});
};

class Thrower final : public ISelector {
public:
    char const* getName() const override { return "Thrower"; }
    SelectOutputParams select(SelectInputParams const&) const override { throw Failure(); }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ISelector* create() {
    return new Thrower;
}
