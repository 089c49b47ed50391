#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

namespace kit {

/// What a policy is told with `zsl --policy-option NAME=VALUE`, or with `setprop` on a device: each
/// parameter NAME is the system property `vendor.debug.camera3.zsl.policy.NAME`. All policies of a
/// process share them, so that a name should tell whose it is where two mean different things.
///
/// A library that exports the names of those that it reads as `parameterNames` has `zsl` refuse
/// others.
///
/// A value that makes no sense costs a line on standard error and leaves the variable as it was.
class Parameters {
public:
    /// `policy` heads the lines on standard error; it is not copied. Null: none is set, for who
    /// wants to know their names alone.
    explicit Parameters(char const* policy) : mPolicy(policy) {}

    /// Replaces `value`, if the parameter is set, by its number from 0 to `max`; `unit` is for the
    /// line on standard error. `name` is not copied.
    template <typename Number>
    void read(char const* name, Number& value, double max, char const* unit = "") {
        auto number = static_cast<double>(value);
        readNumber(name, number, max, std::is_integral_v<Number>, unit);
        value = static_cast<Number>(number);
    }

    /// Position of the parameter's word among `words`; 0 if it is not set.
    size_t readWord(char const* name, std::initializer_list<char const*> words);

    /// Of all that were read so far, ended by a null.
    std::vector<char const*> const& names() const { return mNames; }

    /// Whether everything that was read made sense.
    bool areGood() const { return mAreGood; }

private:
    std::string textOf(char const* name);  ///< empty where the parameter is not set
    void readNumber(char const* name, double& value, double max, bool isWhole, char const* unit);
    void refuse(char const* name, std::string const& text, std::string const& expected);

    char const* mPolicy;
    std::vector<char const*> mNames{nullptr};
    bool mAreGood = true;
};

}  // namespace kit
