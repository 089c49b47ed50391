#include <cutils/properties.h>
#include <inttypes.h>
#include <platform/Properties.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <stdexcept>
#include <string_view>

namespace {

using PropertyMap = std::map<std::string, std::string, std::less<>>;

/// What is wrong with a property; empty when nothing is.
std::string problemOf(std::string_view key, std::string_view value) {
    if (key.empty()) {
        return "the key is empty";
    }
    // Not what the locale takes for a letter: a file means the same everywhere.
    auto const isKeyCharacter = [](unsigned char c) {
        return (c < 0x80 && std::isalnum(c) != 0) ||
               std::string_view(".-@:_").find(static_cast<char>(c)) != std::string_view::npos;
    };
    if (!std::all_of(key.begin(), key.end(), isKeyCharacter)) {
        return "the key '" + std::string(key) +
               "' has a character other than letters, digits and '.-@:_'";
    }
    if (value.size() >= PROPERTY_VALUE_MAX) {  // the readers' buffers have the final zero, too
        return "the value of '" + std::string(key) + "' has " + std::to_string(value.size()) +
               " bytes, at most " + std::to_string(PROPERTY_VALUE_MAX - 1) + " fit";
    }
    return {};
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view BLANKS = " \t\r\f\v";  // \r: a file written on Windows
    auto const first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

/// Reads `key=value` lines. Calls `onProblem` with "path:line: what" for each malformed line, and
/// with "path: what" for a file that cannot be read.
PropertyMap readFile(std::string const& path,
                     std::function<void(std::string const&)> const& onProblem) {
    PropertyMap properties;
    std::ifstream file(path);
    if (!file) {
        onProblem(path + ": cannot open the property file: " + std::strerror(errno));
        return properties;
    }
    // Lines are told of one by one, so that a user mends all of them at once.
    std::string text;
    for (unsigned lineNo = 1; std::getline(file, text); ++lineNo) {
        auto const line = trimmed(text);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        auto const equals = line.find('=');
        std::string problem = "expected key=value, found '" + std::string(line) + "'";
        if (equals != std::string_view::npos) {
            auto const key = trimmed(line.substr(0, equals));
            auto const value = trimmed(line.substr(equals + 1));
            problem = problemOf(key, value);
            if (problem.empty()) {
                properties.insert_or_assign(std::string(key), std::string(value));
                continue;
            }
        }
        onProblem(path + ":" + std::to_string(lineNo) + ": " + problem);
    }
    if (file.bad()) {
        onProblem(path + ": cannot read the property file");
    }
    return properties;
}

class Store {
public:
    Store() {
        if (char const* path = std::getenv(zebcam::platform::PROPERTY_FILE_VARIABLE)) {
            // Whoever starts a process that needs a property wants the others of the file, too.
            mProperties = readFile(path, [](std::string const& problem) {
                std::fprintf(stderr, "%s (skipped)\n", problem.c_str());
            });
        }
    }

    /// Empty when the property is missing.
    std::string get(std::string_view key) const {
        zebcam::ReadGuard const lock(mLock);
        auto const it = mProperties.find(key);
        return it == mProperties.end() ? std::string() : it->second;
    }

    void set(std::string key, std::string value) {
        zebcam::LockGuard const lock(mLock);
        mProperties.insert_or_assign(std::move(key), std::move(value));
    }

    void add(PropertyMap&& properties) {
        zebcam::LockGuard const lock(mLock);
        // Merging keeps what is there already: the new values, therefore it goes this way round.
        properties.merge(std::move(mProperties));
        mProperties = std::move(properties);
    }

    void clear(std::string const& key) {
        zebcam::LockGuard const lock(mLock);
        mProperties.erase(key);
    }

    /// A copy: whoever lists the properties may set some meanwhile.
    PropertyMap all() const {
        zebcam::ReadGuard const lock(mLock);
        return mProperties;
    }

private:
    mutable zebcam::SharedMutex mLock;
    PropertyMap mProperties GUARDED_BY(mLock);
};

/// Never destroyed: properties are read until the last destructor of the process.
Store& store() {
    static Store& instance = *new Store;
    return instance;
}

template <typename T>
T getInteger(char const* key, T defaultValue) {
    std::string const text = key ? store().get(key) : std::string();
    // As on a device: a text that begins with a number counts, one out of range does not, and the
    // caller's errno is nobody's business here.
    int const savedErrno = errno;
    errno = 0;
    char* end = nullptr;
    intmax_t const value = strtoimax(text.c_str(), &end, 0);
    bool const converted = end != text.c_str() && errno != ERANGE &&
                           value >= std::numeric_limits<T>::min() &&
                           value <= std::numeric_limits<T>::max();
    errno = savedErrno;
    return converted ? static_cast<T>(value) : defaultValue;
}

}  // namespace

extern "C" {

int property_get(char const* key, char* value, char const* default_value) {
    std::string text = key ? store().get(key) : std::string();
    // An empty value is a missing one. A default that is too long is cut, as there is no error.
    if (text.empty() && default_value) {
        text.assign(default_value, strnlen(default_value, PROPERTY_VALUE_MAX - 1));
    }
    std::memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

int8_t property_get_bool(char const* key, int8_t default_value) {
    constexpr std::string_view TRUE_WORDS[] = {"1", "true", "y", "yes", "on"};
    constexpr std::string_view FALSE_WORDS[] = {"0", "false", "n", "no", "off"};
    // The words as the platform knows them, in small letters only.
    std::string const text = key ? store().get(key) : std::string();
    if (std::find(std::begin(TRUE_WORDS), std::end(TRUE_WORDS), text) != std::end(TRUE_WORDS)) {
        return 1;
    }
    if (std::find(std::begin(FALSE_WORDS), std::end(FALSE_WORDS), text) != std::end(FALSE_WORDS)) {
        return 0;
    }
    return default_value;
}

int64_t property_get_int64(char const* key, int64_t default_value) {
    return getInteger<int64_t>(key, default_value);
}

int32_t property_get_int32(char const* key, int32_t default_value) {
    return getInteger<int32_t>(key, default_value);
}

int property_set(char const* key, char const* value) {
    // No exception may leave a C function, and the platform's callers expect a negative errno.
    if (!key || !problemOf(key, value ? value : "").empty()) {
        return -EINVAL;
    }
    store().set(key, value ? value : "");
    return 0;
}

int property_list(void (*propfn)(char const* key, char const* value, void* cookie), void* cookie) {
    for (auto const& [key, value] : store().all()) {
        propfn(key.c_str(), value.c_str(), cookie);
    }
    return 0;
}

}  // extern "C"

namespace zebcam::platform {

void clearProperty(std::string const& key) {
    store().clear(key);
}

void loadProperties(std::string const& path) {
    store().add(
        readFile(path, [](std::string const& problem) { throw std::runtime_error(problem); }));
}

}  // namespace zebcam::platform
