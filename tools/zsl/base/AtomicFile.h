#pragma once

#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>

namespace zebcam::tool::base {

/// An output that cannot be written; the text names path and reason.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * An output file that appears whole or not at all: what is written goes to a temporary file beside
 * it, which commit() moves into place and the destructor removes if that did not happen. A file of
 * that name stays as it was until then. What is no regular file (a device, a pipe) cannot be
 * replaced and is written directly.
 *
 *     AtomicFile file("result.json");
 *     file.stream() << json;
 *     file.commit();
 */
class AtomicFile {
public:
    /// Throws OutputError when the file could not be written.
    explicit AtomicFile(std::string path);
    ~AtomicFile();
    AtomicFile(AtomicFile const&) = delete;
    AtomicFile& operator=(AtomicFile const&) = delete;

    /// Where to write. Errors in its state are reported by commit().
    std::ostream& stream() { return mFile; }

    /// Puts the file in place. Call it once, with nothing written after it. Throws OutputError when
    /// anything could not be written.
    void commit();

private:
    enum class Unopened {};
    AtomicFile(std::string path, Unopened);

    void createTemporary();
    [[noreturn]] void fail(std::string const& reason) const;

    std::string mPath;       ///< as given, for messages
    std::string mTarget;     ///< the file to replace, links followed
    std::string mTemporary;  ///< empty when there is none
    std::ofstream mFile;
};

}  // namespace zebcam::tool::base
