#include "Parameters.h"

#include <cutils/properties.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kit {

namespace {

constexpr char PREFIX[] = "vendor.debug.camera3.zsl.policy.";

}  // namespace

std::string Parameters::textOf(char const* name) {
    mNames.insert(mNames.end() - 1, name);
    char text[PROPERTY_VALUE_MAX] = "";
    if (mPolicy != nullptr) {
        property_get((std::string(PREFIX) + name).c_str(), text, "");
    }
    return text;
}

void Parameters::refuse(char const* name, std::string const& text, std::string const& expected) {
    std::fprintf(stderr, "%s: %s%s is '%s': expected %s\n", mPolicy, PREFIX, name, text.c_str(),
                 expected.c_str());
    mAreGood = false;
}

void Parameters::readNumber(char const* name, double& value, double max, bool isWhole,
                            char const* unit) {
    std::string const text = textOf(name);
    if (text.empty()) {
        return;
    }
    char* stop = nullptr;
    double const number = std::strtod(text.c_str(), &stop);
    // The comparisons are false for what is no number.
    bool const isGood = *stop == '\0' && std::isdigit(static_cast<unsigned char>(text.front())) &&
                        number >= 0 && number <= max && (!isWhole || number == std::floor(number));
    if (isGood) {
        value = number;
        return;
    }
    char expected[80];
    std::snprintf(expected, sizeof expected, "0 to %g%s%.20s", max, *unit != '\0' ? " " : "", unit);
    refuse(name, text, expected);
}

size_t Parameters::readWord(char const* name, std::initializer_list<char const*> words) {
    std::string const text = textOf(name);
    std::string expected;
    size_t position = 0;
    for (char const* const word : words) {
        if (text == word) {
            return position;
        }
        expected.append(position == 0 ? "" : " or ").append(word);
        ++position;
    }
    if (!text.empty()) {
        refuse(name, text, expected);
    }
    return 0;
}

}  // namespace kit
