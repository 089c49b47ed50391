#pragma once

#include <stdexcept>

namespace zebcam::tool::base {

/// Options that cannot be carried out, alone or on this recording; the text says which and what was
/// expected.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace zebcam::tool::base
