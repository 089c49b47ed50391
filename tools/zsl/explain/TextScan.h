#pragma once

#include <charconv>
#include <concepts>
#include <string_view>

namespace zebcam::tool {

/// Takes a text apart from the left. The first piece that is not as expected makes the scan fail
/// for good, so that only the end of a chain needs a look.
class TextScan {
public:
    explicit TextScan(std::string_view text) : mRest(text) {}

    TextScan& lit(std::string_view expected) {
        mIsGood = mIsGood && mRest.starts_with(expected);
        if (mIsGood) {
            mRest.remove_prefix(expected.size());
        }
        return *this;
    }

    template <std::integral T>
    TextScan& num(T& value) {
        auto const [end, error] = std::from_chars(mRest.data(), mRest.data() + mRest.size(), value);
        mIsGood = mIsGood && error == std::errc();
        if (mIsGood) {
            mRest.remove_prefix(static_cast<size_t>(end - mRest.data()));
        }
        return *this;
    }

    /// What stands before the next `end`, which is taken too.
    TextScan& until(std::string_view end, std::string_view& text) {
        size_t const at = mRest.find(end);
        mIsGood = mIsGood && at != std::string_view::npos;
        if (mIsGood) {
            text = mRest.substr(0, at);
            mRest.remove_prefix(at + end.size());
        }
        return *this;
    }

    TextScan& blanks() {
        size_t const at = mRest.find_first_not_of(' ');
        mRest.remove_prefix(at == std::string_view::npos ? mRest.size() : at);
        return *this;
    }

    /// Whether `text` comes next; it is taken if it does. Never fails.
    bool has(std::string_view text) {
        bool const isNext = mIsGood && mRest.starts_with(text);
        if (isNext) {
            mRest.remove_prefix(text.size());
        }
        return isNext;
    }

    bool isGood() const { return mIsGood; }
    bool isDone() const { return mIsGood && mRest.empty(); }
    std::string_view rest() const { return mRest; }

private:
    std::string_view mRest;
    bool mIsGood = true;
};

}  // namespace zebcam::tool
