#include "explain/LogcatReader.h"

#include <algorithm>

#include "explain/LogcatHeader.h"

namespace zebcam::tool {
namespace {

constexpr std::string_view BUFFER_MARK = "--------- ";

// A log that went through another system may have other line ends, a byte order mark, or two bytes
// a character. Without these bytes they all read the same.
void cleanUp(std::string& line, bool isFirst) {
    if (isFirst) {
        for (std::string_view const mark : {"\xef\xbb\xbf", "\xff\xfe"}) {
            if (line.starts_with(mark)) {
                line.erase(0, mark.size());
            }
        }
    }
    std::erase(line, '\0');
    line.erase(line.find_last_not_of('\r') + 1);
}

}  // namespace

bool LogcatReader::next(LogRecord& record) {
    bool isCut = false;
    while (readLine(mLine, isCut)) {
        ++mLineNumber;
        cleanUp(mLine, mLineNumber == 1);
        if (mLine.find_first_not_of(' ') == std::string::npos) {
            continue;
        }
        if (mLine.starts_with(BUFFER_MARK)) {
            mLongHeader.reset();
        }
        if (auto header = parseLogcatHeader(mLine)) {
            if (header->isLong) {
                mLongHeader = std::move(header->record);
                continue;
            }
            mLongHeader.reset();
            record = std::move(header->record);
        } else {
            record = mLongHeader.value_or(LogRecord());
            record.message = mLine;
        }
        record.sourceLine = mLineNumber;
        record.isCut = isCut;
        return true;
    }
    return false;
}

bool LogcatReader::readLine(std::string& line, bool& isCut) {
    line.clear();
    isCut = false;
    bool isStarted = false;
    while (!mUnread.empty() || fill()) {
        isStarted = true;
        size_t const end = std::min(mUnread.find('\n'), mUnread.size());
        size_t const room = MAX_LINE - line.size();
        isCut = isCut || end > room;
        line.append(mUnread.substr(0, std::min(end, room)));
        bool const isComplete = end < mUnread.size();
        mUnread.remove_prefix(isComplete ? end + 1 : end);
        if (isComplete) {
            return true;
        }
    }
    return isStarted;
}

bool LogcatReader::fill() {
    mIn.read(mBuffer.data(), static_cast<std::streamsize>(mBuffer.size()));
    mUnread = {mBuffer.data(), static_cast<size_t>(mIn.gcount())};
    return !mUnread.empty();
}

}  // namespace zebcam::tool
