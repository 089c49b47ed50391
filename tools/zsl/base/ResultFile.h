#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>

#include "base/AtomicFile.h"

namespace zebcam::tool::base {

/// Where a command's result goes if it was asked for: a file that appears whole or not at all, or
/// standard output for the path `-`. Made before the work begins, so that nobody waits for a result
/// that cannot be written.
class ResultFile {
public:
    /// Throws OutputError when the file could not be written. `standard` must outlive the object.
    ResultFile(std::optional<std::string> const& path, std::ostream& standard)
        : mStandard(path == "-" ? &standard : nullptr) {
        if (path && mStandard == nullptr) {
            mFile.emplace(*path);
        }
    }

    /// Whether it goes to standard output, instead of what people would read there.
    bool isStandard() const { return mStandard != nullptr; }

    /// Has `write` write it, once; does nothing when nobody asked for it. Throws OutputError.
    void put(std::function<void(std::ostream&)> const& write) {
        if (mFile) {
            write(mFile->stream());
            mFile->commit();
        } else if (mStandard != nullptr) {
            write(*mStandard);
        }
    }

private:
    std::ostream* const mStandard;
    std::optional<AtomicFile> mFile;
};

}  // namespace zebcam::tool::base
