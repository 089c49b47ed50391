#pragma once

namespace NSCam {

/// Names a type as a value, so that an overload or a template can be picked by it.
template <typename T>
struct Type2Type {
    using Type = T;
};

}  // namespace NSCam
