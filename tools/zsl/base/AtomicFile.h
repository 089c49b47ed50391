#pragma once

#include <fstream>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

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

    /// Removes the temporary files of all that this process made and that live, for a program that
    /// ends without its destructors. Async-signal-safe.
    static void removeTemporaries();

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

/**
 * Files of a folder of which none appears before all are written: they are made under newFile() in
 * a temporary folder in it, which the destructor removes with all that is left there. The folder is
 * made if there is none, and removed again if nothing came of it. What else it holds stays.
 */
class AtomicFolder {
public:
    /// Throws OutputError when nothing could be written there.
    explicit AtomicFolder(std::string path);
    ~AtomicFolder();
    AtomicFolder(AtomicFolder const&) = delete;
    AtomicFolder& operator=(AtomicFolder const&) = delete;

    std::string const& path() const { return mPath; }
    /// Where to write the file of that name, from a child process as well.
    std::string newFile(std::string const& name) const { return mTemporary + "/" + name; }
    /// Where it is to be found afterwards.
    std::string file(std::string const& name) const { return mPath + "/" + name; }

    /// Puts the files of these names in place, one after the other. Throws OutputError at the first
    /// that cannot be; those before it stay.
    void commit(std::vector<std::string> const& names) const;

private:
    [[noreturn]] void fail(std::error_code const& error) const;

    std::string const mPath;
    std::string mTemporary;
    bool mIsNew = false;
};

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
