#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zebcam::tool::base {

/// What a word means to its reader.
enum class Tone : uint8_t { Plain, Heading, Good, Doubtful, Bad, Faint };

/// How a text is set: as wide as its reader's terminal, and with or without colours. What is made
/// without asking is fit for files.
struct TextStyle {
    size_t columns = 100;
    bool hasColour = false;

    /// `text` in the colour of `tone`. Line ends may stand within it.
    std::string paint(std::string_view text, Tone tone) const;
};

/// Fit for what reads file descriptor `fd`: the width of its terminal, else what the environment's
/// COLUMNS says, else 100; colours on a terminal that knows them, unless NO_COLOR is set.
TextStyle styleFor(int fd);

}  // namespace zebcam::tool::base
