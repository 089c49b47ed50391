#include "TextForms.h"

#include <array>
#include <charconv>
#include <string_view>

#include "Streams.h"

namespace NSCam::v3::pipeline {

namespace {

/// Builds a text out of pieces; numbers without going through a stream or a format, which would
/// make these texts, several for each try of a capture, the most costly part of its log.
class Text {
public:
    Text& operator<<(std::string_view text) {
        mText += text;
        return *this;
    }

    template <typename T>
    Text& dec(T number) {
        return number_(number, 10);
    }

    template <typename T>
    Text& hex(T number) {
        return number_(static_cast<std::make_unsigned_t<T>>(number), 16);
    }

    /// An address as 0x…; "0" for null, as a stream prints it.
    Text& address(void const* pointer) {
        auto const value = reinterpret_cast<uintptr_t>(pointer);
        return value != 0 ? (*this << "0x").hex(value) : *this << "0";
    }

    std::string take() { return std::move(mText); }

private:
    template <typename T>
    Text& number_(T number, int base) {
        std::array<char, 24> digits;  // the longest: 20 digits of 64 bits and a sign
        auto const end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base);
        mText.append(digits.data(), end.ptr);
        return *this;
    }

    std::string mText;
};

template <typename Buffers>
void appendStreams(Text& text, Buffers const& buffers) {
    text << "{ ";
    for (auto const& buffer : buffers) {
        if (IStreamInfo const* const info = model::streamInfoOf(buffer)) {
            text.hex(info->getStreamId()) << " ";
        }
    }
    text << "}";
}

void appendIds(Text& text, std::set<StreamId_T> const& streamIds) {
    for (StreamId_T const id : streamIds) {
        text.hex(id) << " ";
    }
}

void appendRequired(Text& text, ZslPolicy::RequiredStreams const& required) {
    text << "{ halImages{";
    appendIds(text, required.halImages);
    text << "} halMetas{";
    appendIds(text, required.halMetas);
    text << "} appMetas{";
    appendIds(text, required.appMetas);
    text << "} }";
}

void appendFrameBuilder(Text& text, NSPipelineContext::IFrameBuilder const* builder) {
    text << " pFB=";
    text.address(builder) << "("
                          << (builder != nullptr ? model::frameTypeName(builder->getFrameType())
                                                 : "?")
                          << ")";
}

}  // namespace

namespace NSPipelineContext {

std::string toString(HistoryBufferSet const& set) {
    Text text;
    (text << "{ F").dec(set.frameNo) << " R";
    text.dec(set.requestNo) << " Ts";
    text.dec(set.timestamp) << " halImage";
    appendStreams(text, set.halImage);
    text << " halMeta";
    appendStreams(text, set.halMeta);
    text << " appMeta";
    appendStreams(text, set.appMeta);
    text << " }";
    return text.take();
}

}  // namespace NSPipelineContext

namespace model {

char const* frameTypeName(uint32_t frameType) {
    constexpr std::array NAMES{"MAIN", "SUB", "PRESUB", "PREDUMMY", "POSTDUMMY"};
    return frameType < NAMES.size() ? NAMES[frameType] : "?";
}

std::string toString(ZslProcessor::BuildFrameParams const& params) {
    Text text;
    text << "{ hbs=" << (params.hbs != nullptr ? NSPipelineContext::toString(*params.hbs) : "X");
    appendFrameBuilder(text, params.pFB.get());
    text << " addiMeta(#";
    text.dec(params.additionalMetas.size()) << ") }";
    return text.take();
}

std::string toString(ZslProcessor::ZslReqObject const& req) {
    Text text;
    (text << "{ requestNo=").dec(req.requestNo) << " duration=";
    text.dec(req.ageMs()) << " zsdTs=";
    text.dec(req.zsdTimestamp) << " pHBP=";
    text.address(req.pHistoryBufferProvider.get()) << " vFrameObj=";
    for (auto const& [key, frame] : req.vFrameObj) {
        (text << "\n").dec(key) << "-{ required=";
        appendRequired(text, *frame.required);
        appendFrameBuilder(text, frame.pFB.get());
        text << " }";
    }
    text << " }";
    return text.take();
}

}  // namespace model
}  // namespace NSCam::v3::pipeline
