#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <streambuf>

#include "base/AtomicFile.h"
#include "recording/Recording.h"
#include "recording/RecordingFile.h"

namespace zebcam::tool {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

recording::Recording read(std::string const& content) {
    std::istringstream in(content);
    return recording::readRecording(in, "r.csv");
}

/// A frame without exposure time or any state.
recording::SensorFrame frameOf(uint32_t frameNo, int64_t timestampNs, int64_t durationNs) {
    recording::SensorFrame frame;
    frame.frameNo = frameNo;
    frame.timestampNs = timestampNs;
    frame.durationNs = durationNs;
    frame.readoutNs = durationNs;
    return frame;
}

template <typename Action>
std::string errorOf(Action const& action) {
    try {
        action();
    } catch (recording::RecordingError const& error) {
        return error.what();
    } catch (base::OutputError const& error) {
        return error.what();
    }
    return "no error";
}

/// A column of cells below its name, beside timestamps that are fine.
std::string withColumn(std::string const& name, std::vector<std::string> const& cells) {
    std::string content = "Timestamp[nanosec]," + name + "\n";
    for (size_t i = 0; i < cells.size(); ++i) {
        content += std::to_string(1000 * (i + 1)) + "," + cells[i] + "\n";
    }
    return content;
}

std::string contentOf(fs::path const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(RecordingReader, NamesPlaceAndReasonOfWhatItRefuses) {
    std::string const t = "Timestamp[nanosec]\n";
    std::string const nul("1000\n\0\x01\n", 8);
    struct {
        char const* name;
        std::string content;
        std::string error;
    } const cases[] = {
        {"empty", "", "r.csv: expected a header line, found an empty file"},
        {"header only", t, "r.csv: expected at least two frames, found a header only"},
        {"one frame", t + "1000\n", "r.csv: expected at least two frames, found one"},
        {"no timestamps", "ISO,a\n1,2\n",
         "r.csv:1: expected a column \"Timestamp[nanosec]\" or \"Frame timestamp[nanosec]\", found "
         "neither in a line that begins with \"ISO\""},
        {"both timestamps", "Frame timestamp[nanosec],Timestamp[nanosec]\n1,1\n", "found both"},
        {"twice", "ISO,Timestamp[nanosec],ISO\n1,1,1\n",
         "r.csv:1: column \"ISO\": expected one column of that name, found two, as columns 1 and "
         "3"},
        {"short", withColumn("ISO", {"1"}) + "2000\n",
         "r.csv:3: expected 2 cells as in the header, found 1"},
        {"repeated time", t + "1000\n1000\n",
         "r.csv:3: column \"Timestamp[nanosec]\": expected a time after 1000 of the row before, by "
         "an hour at most, found 1000"},
        {"earlier time", "Frame timestamp[nanosec]\n\n1000\n\n999\n",
         "r.csv:5: column \"Frame timestamp[nanosec]\": expected a time after 1000"},
        {"other clock", t + "1000\n3600000001001\n", "by an hour at most, found 3600000001001"},
        {"time 0", t + "0\n", "r.csv:2: column \"Timestamp[nanosec]\": expected a whole number "},
        {"time too large", t + "4611686018427387904\n", "from 1 to 4611686018427387903"},
        {"time beyond 64 bits", t + "99999999999999999999\n", "found \"99999999999999999999\""},
        {"exponent", t + "1e9\n", "found \"1e9\""},
        {"tail", t + "12abc\n", "found \"12abc\""},
        {"repeated frame", withColumn("Frame No.", {"5", "5"}),
         "r.csv:3: column \"Frame No.\": expected a number greater than 5 of the row before, found "
         "5"},
        {"frame too large", withColumn("Frame No.", {"4294967296"}), "from 0 to 4294967295"},
        {"empty frame", withColumn("Frame No.", {"1", ""}), "found an empty cell"},
        {"long readout", withColumn("Frame readout time[nanosec]", {"3600000000001"}),
         "column \"Frame readout time[nanosec]\": expected a whole number from 0 to 3600000000000"},
        {"lens state", withColumn("Lens state", {"MOVING"}), "from 0 to 255, found \"MOVING\""},
        {"AE stable", withColumn("AE stable", {"2147483648"}), "from -2147483648 to 2147483647"},
        {"error flag", withColumn("Error", {"2"}),
         "column \"Error\": expected a whole number from 0"},
        {"no distance", withColumn("Focus distance", {"nan"}),
         "r.csv:2: column \"Focus distance\": expected a number of diopters, 0 or more, found "},
        {"negative distance", withColumn("Focus distance", {"-0.5"}), "found \"-0.5\""},
        {"NUL", t + nul, "r.csv:3: expected text without control characters, found \"\\x00\\x01\""},
        {"long rubbish", t + std::string(100, 'z'), "found \"" + std::string(40, 'z') + "...\""},
        {"escapes", withColumn("ISO", {"\"a\"\"\xff\\\""}), "found \"a\\\"\\xff\\\\\""},
        {"open quote", t + "\"1000\n2000\n",
         "r.csv:2: expected quotes in pairs around whole cells"},
    };
    for (auto const& test : cases) {
        EXPECT_THAT(errorOf([&] { read(test.content); }), HasSubstr(test.error)) << test.name;
    }
}

/// Gives a header, then the same character for ever or a read error.
class EndlessInput : public std::streambuf {
public:
    explicit EndlessInput(bool isBroken) : mIsBroken(isBroken) {
        setg(mHeader.data(), mHeader.data(), mHeader.data() + mHeader.size());
    }

protected:
    int_type underflow() override {
        if (mIsBroken || ++mGiven > size_t{2} << 20) {
            throw std::runtime_error("the disk is gone");
        }
        setg(&mDigit, &mDigit, &mDigit + 1);
        return mDigit;
    }

private:
    bool const mIsBroken;
    size_t mGiven = 0;
    std::string mHeader = "Timestamp[nanosec]\n";
    char mDigit = '7';
};

TEST(RecordingReader, StopsInALineWithoutEndAndAtAReadError) {
    for (bool const isBroken : {false, true}) {
        EndlessInput input(isBroken);
        std::istream in(&input);
        EXPECT_EQ(errorOf([&] { recording::readRecording(in, "r.csv"); }),
                  isBroken ? "r.csv:2: expected a readable line, found a read error"
                           : "r.csv:2: expected a line of at most 1 MiB, found a longer one");
    }
}

TEST(RecordingReader, AcceptsTheCommonFormsOfCsv) {
    std::string const plain = "Timestamp[nanosec],ISO\n1000,7\n2000,8\n";
    recording::Recording const expected = read(plain);
    ASSERT_EQ(expected.frames.size(), 2u);
    EXPECT_EQ(expected.frames[1].iso, 8);
    std::string const forms[] = {
        "\xef\xbb\xbfTimestamp[nanosec],ISO\n1000,7\n2000,8\n",
        "Timestamp[nanosec],ISO\r\n1000,7\r\n2000,8\r\n",
        "Timestamp[nanosec],ISO\n1000,7\n2000,8",
        "\n Timestamp[nanosec]\t,ISO \n\n 1000, 7\n2000 ,8\n\n",
        "\"Timestamp[nanosec]\",\" ISO \"\n\"1000\",7\n2000,\"8\"\n",
        "ISO,Timestamp[nanosec]\n7,1000\n8,2000\n",
        "Frame timestamp[nanosec],ISO\n1000,7\n2000,8\n",
    };
    for (auto const& form : forms) {
        EXPECT_EQ(read(form).frames, expected.frames) << form;
        EXPECT_EQ(read(form).notes, expected.notes) << form;
    }
}

TEST(RecordingReader, FillsInWhatTheRecordingLacks) {
    // Intervals 100, 300, 102, 101: the median is the mean of 101 and 102, rounded down.
    auto const bare = read("Timestamp[nanosec]\n1000\n1100\n1400\n1502\n1603\n");
    EXPECT_EQ(bare.medianIntervalNs, 101);
    recording::SensorFrame expected = frameOf(3, 1400, 101);
    expected.afMode = 0;
    expected.afState = 0;
    expected.lensState = 0;
    expected.aeStable = 1;
    expected.frameSync = 0;
    expected.sensorId = 0;
    expected.sensorMode = 0;
    EXPECT_EQ(bare.frames[2], expected);

    auto const times = read(
        "Timestamp[nanosec],Exposure time[nanosec],Sensor frame duration[nanosec],Frame readout "
        "time[nanosec]\n1000,30,90,50\n2000,30,90,\n3000,30,,50\n4000,,90,\n5000,95,90,\n");
    EXPECT_EQ(times.frames[0].readoutNs, 50);
    EXPECT_EQ(times.frames[1].readoutNs, 60);
    EXPECT_EQ(times.frames[2].durationNs, 1000);
    EXPECT_EQ(times.frames[3].exposureNs, 0);
    EXPECT_EQ(times.frames[3].readoutNs, 90);
    EXPECT_EQ(times.frames[4].readoutNs, 0) << "an exposure longer than the frame";
}

TEST(RecordingReader, TellsAnEmptyCellFromAMissingColumn) {
    auto const frames = read(
                            "Timestamp[nanosec],ISO,Focus distance,AF mode,AF state,Lens state,AE "
                            "stable,Frame sync,Sensor id,Sensor mode,Error\n"
                            "1000,,,,,,,,,,1\n2000,9,2.5,255,101,1,-7,-8,3,4,0\n")
                            .frames;
    recording::SensorFrame lacking = frameOf(1, 1000, 1000);
    lacking.hasError = true;
    EXPECT_EQ(frames[0], lacking);
    recording::SensorFrame full = frameOf(2, 2000, 1000);
    full.iso = 9;
    full.focusDistance = 2.5f;
    full.afMode = 255;
    full.afState = 101;
    full.lensState = 1;
    full.aeStable = -7;
    full.frameSync = -8;
    full.sensorId = 3;
    full.sensorMode = 4;
    EXPECT_EQ(frames[1], full);
}

TEST(RecordingReader, SeesTheLensMoveInTheFocusDistance) {
    auto const frames =
        read(withColumn("Focus distance", {"1", "1", "1.5", "", "2", "2.0"})).frames;
    std::vector<int> states;
    for (auto const& frame : frames) {
        states.push_back(frame.lensState.value());
    }
    EXPECT_THAT(states, ElementsAre(0, 0, 1, 0, 0, 0));
}

/// Frames with every value at an end of its range, and with none.
recording::Recording extremes() {
    recording::SensorFrame lowest = frameOf(0, 1, 0);
    lowest.focusDistance = 1.17549435e-38f;
    lowest.aeStable = INT32_MIN;
    lowest.frameSync = INT64_MIN;
    recording::SensorFrame highest = frameOf(UINT32_MAX, 3'600'000'000'000, 3'600'000'000'000);
    highest.exposureNs = highest.durationNs;
    highest.iso = highest.aeStable = highest.sensorId = highest.sensorMode = INT32_MAX;
    highest.focusDistance = 0.1f;
    highest.afMode = highest.afState = highest.lensState = 255;
    highest.frameSync = INT64_MAX;
    highest.hasError = true;
    return {"x", {lowest, highest}, {}, 3'599'999'999'999};
}

class OutputFiles : public testing::Test {
protected:
    void SetUp() override { fs::create_directories(folder); }
    void TearDown() override { fs::remove_all(folder); }

    std::vector<std::string> names() const {
        std::vector<std::string> all;
        for (auto const& entry : fs::directory_iterator(folder)) {
            all.push_back(entry.path().filename());
        }
        std::sort(all.begin(), all.end());
        return all;
    }

    fs::path const folder = fs::path(testing::TempDir()) /
                            testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(OutputFiles, AppearWholeOrNotAtAll) {
    std::string const path = folder / "r.csv";
    recording::writeRecording(extremes(), path);
    recording::Recording const copy = recording::readRecording(path);
    EXPECT_EQ(copy.frames, extremes().frames);
    EXPECT_EQ(copy.medianIntervalNs, extremes().medianIntervalNs);
    EXPECT_THAT(copy.notes, IsEmpty());
    std::string const before = contentOf(path);
    {
        base::AtomicFile dropped(path);
        dropped.stream() << "half" << std::flush;
        EXPECT_EQ(contentOf(path), before);
    }
    EXPECT_EQ(contentOf(path), before);

    auto const commit = [](std::string const& to, std::ios::iostate state, bool becomesFolder) {
        base::AtomicFile file(to);
        file.stream().setstate(state);
        if (becomesFolder) {
            fs::create_directory(to);
        }
        file.commit();
    };
    EXPECT_THAT(errorOf([&] { commit(path, std::ios::badbit, false); }),
                HasSubstr("cannot write '" + path + "'"));
    EXPECT_EQ(contentOf(path), before);
    EXPECT_THAT(errorOf([&] { commit(folder / "new", std::ios::goodbit, true); }),
                HasSubstr("directory"));
    EXPECT_THAT(names(), ElementsAre("new", "r.csv"));
}

TEST_F(OutputFiles, KeepLinksAndPermissions) {
    std::ofstream(folder / "real") << "old";
    fs::permissions(folder / "real", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("real", folder / "link");
    base::AtomicFile file(folder / "link");
    file.stream() << "new";
    file.commit();
    EXPECT_EQ(contentOf(folder / "real"), "new");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(fs::status(folder / "real").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_THAT(names(), ElementsAre("link", "real"));
}

TEST_F(OutputFiles, ReportWhatCannotBeWritten) {
    for (std::string const path : {"/nowhere/r.csv", "/dev/full", "/"}) {
        EXPECT_THAT(errorOf([&] { recording::writeRecording(extremes(), path); }),
                    HasSubstr("cannot write '" + path + "': "));
    }
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(RecordingFactsTest, CountsWhatARecordingShows) {
    // Intervals 100, 104, 156, 157, 98: only 157 is more than 1.5 times the median, 104.
    auto recording = read(
        "Timestamp[nanosec],Focus distance,AF state,Error\n"
        "1000,1,,0\n1100,2,2,1\n1204,3,,0\n1360,3,2,0\n1517,3,2,1\n1615,3,2,0\n");
    recording.frames[5].aeStable.reset();
    auto const facts = recording::computeFacts(recording);
    EXPECT_DOUBLE_EQ(facts.meanRateFps, 5e9 / 615);
    EXPECT_EQ(facts.medianIntervalNs, 104);
    EXPECT_EQ(facts.minIntervalNs, 98);
    EXPECT_EQ(facts.maxIntervalNs, 157);
    EXPECT_EQ(facts.jitterNs, 52);
    EXPECT_EQ(facts.gaps, 1u);
    EXPECT_EQ(facts.largestGapNs, 157);
    EXPECT_EQ(facts.missing.afState, 2u);
    EXPECT_EQ(facts.missing.aeStable, 1u);
    EXPECT_EQ(facts.framesWithError, 2u);
    EXPECT_EQ(facts.focusMoves, 2u);
    EXPECT_EQ(recording::computeFacts({}).lengthNs, 0) << "no frames, no times";
}

}  // namespace
}  // namespace zebcam::tool
