#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <policy/zsl/RecordedColumns.h>

#include <filesystem>
#include <sstream>

#include "CliFixture.h"
#include "base/AtomicFile.h"
#include "pipeline/FrameFactory.h"
#include "recording/Recording.h"

namespace zebcam::tool {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

recording::InputOptions const kAnyRate{.anyRate = true};

recording::Recording read(std::string const& content) {
    std::istringstream in(content);
    return recording::readRecording(in, "r.csv", kAnyRate);
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

/// A column of cells below its name, beside timestamps that are fine.
std::string withColumn(std::string const& name, std::vector<std::string> const& cells) {
    std::string content = "Timestamp[nanosec]," + name + "\n";
    for (size_t i = 0; i < cells.size(); ++i) {
        content += std::to_string(1000 * (i + 1)) + "," + cells[i] + "\n";
    }
    return content;
}

TEST(RecordingReader, NamesPlaceAndReasonOfWhatItRefuses) {
    std::string const t = "Timestamp[nanosec]\n";
    std::string const nul("1000\n\0\x01\n", 8);
    std::pair<std::string, std::string> const cases[] = {
        {"", "r.csv: expected a header line, found an empty file"},
        {t, "r.csv: expected at least two frames, found a header only"},
        {t + "1000\n", "r.csv: expected at least two frames, found one"},
        {"ISO,a\n1,2\n",
         "r.csv:1: expected a column \"Timestamp[nanosec]\" or \"Frame timestamp[nanosec]\", found "
         "neither in a line that begins with \"ISO\""},
        {"Frame timestamp[nanosec],Timestamp[nanosec]\n1,1\n", "found two, as columns 1 and 2"},
        {"ISO,Timestamp[nanosec],ISO\n1,1,1\n",
         "r.csv:1: column \"ISO\": expected one such column, found two, as columns 1 and 3"},
        {withColumn("ISO", {"1"}) + "2000\n",
         "r.csv:3: expected 2 cells as in the header, found 1"},
        {t + "1000\n1000\n",
         "r.csv:3: column \"Timestamp[nanosec]\": expected a time after 1000 of the row before, by "
         "an hour at most, found 1000"},
        {"Frame timestamp[nanosec]\n\n1000\n\n999\n",
         "r.csv:5: column \"Frame timestamp[nanosec]\": expected a time after 1000"},
        {t + "1000\n3600000001001\n", "by an hour at most, found 3600000001001"},
        {t + "0\n", "r.csv:2: column \"Timestamp[nanosec]\": expected a whole number "},
        {t + "4611686018427387904\n", "from 1 to 4611686018427387903"},
        {t + "99999999999999999999\n", "found \"99999999999999999999\""},
        {t + std::string((1 << 20) + 1, '7'),
         "r.csv:2: expected a line of at most 1 MiB, found a longer one"},
        {t + "28670339410000.5\n", "found \"28670339410000.5\""},
        {t + "1e19\n", "found \"1e19\""},
        {"1000,5\n2000,6\n", "put the columns' names before it, as in \"Timestamp[nanosec],Frame"},
        {"time,ISO\n1,2\n", "if \"time\" has them, name it \"Timestamp[nanosec]\" (or micros"},
        {"a|Timestamp[nanosec]\n1|2\n", "if \"a|Timestamp[nanosec]\" has them, name it"},
        {"a|b\n1|2\n", "the separator looks like \"|\" and must be a comma, a semicolon or a tab"},
        {"timestamp_ns,timestamp_us\n1,1\n", "found two, as columns 1 and 2"},
        {"timestamp\n0.7\n1.4\n",
         "r.csv:3: column \"timestamp\": expected a unit in the column's name, as in "
         "\"Timestamp[nanosec]\" (or microsec, millisec, sec), found an interval of 0.7 that fits "
         "several"},
        {"timestamp[sec]\n0\n",
         "expected a time in seconds that is from 1 to 4611686018427387903 ns, found \"0\""},
        {t + "12abc\n", "found \"12abc\""},
        {withColumn("Frame No.", {"5", "5"}),
         "r.csv:3: column \"Frame No.\": expected a number greater than 5 of the row before, found "
         "5"},
        {withColumn("Frame No.", {"4294967295"}), "from 0 to 4294967294"},
        {withColumn("Frame No.", {"1", ""}), "found an empty cell"},
        {withColumn("Frame readout time[nanosec]", {"3600000000001"}),
         "column \"Frame readout time[nanosec]\": expected a whole number from 0 to 3600000000000"},
        {withColumn("Lens state", {"MOVING"}), "from 0 to 255, found \"MOVING\""},
        {withColumn("AE stable", {"2147483648"}), "from -2147483648 to 2147483647"},
        {withColumn("Error", {"2"}), "column \"Error\": expected a whole number from 0"},
        {withColumn("Focus distance", {"nan"}),
         "r.csv:2: column \"Focus distance\": expected a number of diopters, 0 or more, found "},
        {withColumn("Focus distance", {"-0.5"}), "found \"-0.5\""},
        {withColumn("Focus distance", {"1e308"}), "found \"1e308\""},
        {t + nul, "r.csv:3: expected text without control characters, found \"\\x00\\x01\""},
        {t + std::string(100, 'z'), "found \"" + std::string(40, 'z') + "...\""},
        {withColumn("ISO", {"\"a\"\"\xff\\\""}), "found \"a\\\"\\xff\\\\\""},
        {t + "\"1000\n2000\n", "r.csv:2: expected quotes in pairs around whole cells"},
    };
    for (auto const& [content, error] : cases) {
        EXPECT_THAT(errorOf([&, &text = content] { read(text); }), HasSubstr(error));
    }
}

TEST(RecordingReader, AcceptsTheCommonFormsOfCsv) {
    recording::Recording const expected = read("Timestamp[nanosec],ISO\n1000,7\n2000,8\n");
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

TEST(RecordingReader, ReadsOtherShapesAndSaysHow) {
    // Frames of 33.4 ms from 28670.33941 s on.
    std::tuple<std::string, std::string> const shapes[] = {
        {"28670339410000\n28670372810000\n", "no header: every line is read as a timestamp"},
        {"28670.339410000\n28670.372810000\n", "read as seconds, which their interval fits alone"},
        {"t\n2.867033941e10\n28670372810.0\n", "read as microseconds, which"},
        {"28670339.41\n28670372.81\n", "read as milliseconds, which"},
        {"timestamp;x\n28670339410000;0,5\n28670372810000;0,5\n", "separated by semicolons"},
        {"28670339410000\n28670372810000\n", "read as nanoseconds, which"},
        {"x\ttimestamp_us\n\t28670339410\n\t28670372810\n", "separated by tabs"},
        {"timestamp[nanosec]\n28670339410000.0\n2.867037281e+13\n",
         "other names of columns: \"timestamp[nanosec]\" for \"Timestamp[nanosec]\""},
        {"x,Timestamp [microsec]\n,28670339410\n,28670372810\n",
         "\"Timestamp [microsec]\" for \"Timestamp[nanosec]\" in microseconds"},
        {"# by a logger\n\n#timestamp [ns],x\n28670339410000,a\n28670372810000,b\n",
         "\"timestamp [ns]\" for"},
        {"# by a logger\nSensor timestamp (s),x\n28670.33941,\n28670.3728100000004,\n",
         "\"Sensor timestamp (s)\" for \"Timestamp[nanosec]\" in seconds"},
    };
    for (auto const& [content, note] : shapes) {
        std::istringstream in(content);
        auto const recording = recording::readRecording(in, "r.csv");
        EXPECT_THAT(recording.frames, ElementsAre(frameOf(1, 28'670'339'410'000, 33'400'000),
                                                  frameOf(2, 28'670'372'810'000, 33'400'000)))
            << content;
        EXPECT_THAT(recording.notes, testing::Contains(HasSubstr(note))) << content;
    }
    auto const times =
        read("timestamp_ms,Exposure Time (us),iso,focus_distance\n1,20.5,7,1e-300\n2,,8,0\n");
    EXPECT_EQ(times.frames[0].exposureNs, 20'500);
    EXPECT_EQ(times.frames[1].iso, 8);
    EXPECT_EQ(times.frames[0].focusDistance, 0.0F) << "too small for a float";
}

TEST(RecordingReader, RefusesRatesThatNoSensorHas) {
    auto const refusal = [](std::string const& content) {
        std::istringstream in(content);
        return errorOf([&] { recording::readRecording(in, "r.csv"); });
    };
    std::string const t = "Timestamp[nanosec]\n";
    EXPECT_EQ(refusal(t + "28670339\n28670372\n28670406\n"),
              "r.csv: expected 1 to 2000 frames/s, found 3.0303e+07; the timestamps look like "
              "milliseconds: name the column \"Timestamp[millisec]\", or give --any-rate");
    EXPECT_THAT(refusal("timestamp_us\n28670339410000\n28670372810000\n"),
                HasSubstr("look like nanoseconds"));
    EXPECT_EQ(refusal(t + "1000000\n1500000\n"), "no error");
    EXPECT_EQ(refusal(t + "1000000\n1001000000\n"), "no error");
    EXPECT_THAT(refusal(t + "1000000\n2001000000\n"),
                HasSubstr("if that is right, give --any-rate"));
}

TEST(RecordingReader, FillsInWhatTheRecordingLacks) {
    // Intervals 100, 300, 102, 101: the median is the mean of 101 and 102, rounded down.
    auto const bare = read("Timestamp[nanosec]\n1000\n1100\n1400\n1502\n1603\n");
    EXPECT_EQ(bare.medianIntervalNs, 101);
    EXPECT_EQ(bare.frames[2], frameOf(3, 1400, 101)) << "and asserts no state";

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

TEST(RecordingReader, BringsColumnsOfYourOwnToAPolicy) {
    auto const recording = read(
        "Timestamp[nanosec],Sharpness,Gyro,who,\"a,\"\"b\"\"\",Sharpness\n"
        "1000,2,7,me,1,9\n2000,nan,8,2,2e300,9\n3000,0.5,9,,,9\n");
    std::vector<std::string> names;
    for (recording::DataColumn const& column : recording.dataColumns) {
        names.push_back(column.name);
        EXPECT_EQ(column.tag >> 28, 0xbU) << "no vendor's";
    }
    EXPECT_THAT(names, ElementsAre("Sharpness", "Gyro", "a,\"b\""));
    EXPECT_THAT(recording.notes,
                testing::Contains("columns that are unknown and hold no numbers are ignored: "
                                  "\"who\", \"Sharpness\""));
    EXPECT_EQ(recording.frames[0].data[1].value, (std::variant<int64_t, double>(int64_t{7})));
    EXPECT_EQ(recording.frames[0].data[2].value, (std::variant<int64_t, double>(1.0)));
    std::ostringstream copy;
    recording::writeRecording(recording, copy);
    EXPECT_EQ(read(copy.str()).frames, recording.frames);

    pipeline::FrameFactory factory;
    std::vector<std::optional<double>> sharpness;
    for (recording::SensorFrame const& frame : recording.frames) {
        auto const buffer = factory.sensorFrame(frame).appMeta.at(0);
        NSCam::IMetadata* const metadata = buffer->tryReadLock("test");
        sharpness.push_back(NSCam::ZslPolicy::recordedColumn({{nullptr, metadata}}, "Sharpness"));
        EXPECT_TRUE(metadata->entryFor(NSCam::ANDROID_SENSOR_EXPOSURE_TIME).isEmpty());
        buffer->unlock("test", metadata);
    }
    EXPECT_THAT(sharpness, ElementsAre(2.0, std::nullopt, 0.5));
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
    recording::SensorFrame highest = frameOf(UINT32_MAX - 1, 3'600'000'000'000, 3'600'000'000'000);
    highest.exposureNs = highest.durationNs;
    highest.iso = highest.aeStable = highest.sensorId = highest.sensorMode = INT32_MAX;
    highest.focusDistance = 0.1f;
    highest.afMode = highest.afState = highest.lensState = 255;
    highest.frameSync = INT64_MAX;
    highest.hasError = true;
    highest.videoFrame = recording::MAX_FRAMES - 1;
    return {"x", {lowest, highest}, {}, 3'599'999'999'999};
}

using OutputFiles = CliTest;

TEST_F(OutputFiles, AppearWholeOrNotAtAll) {
    std::string const file = path("r.csv");
    recording::writeRecording(extremes(), file);
    recording::Recording const copy = recording::readRecording(file, kAnyRate);
    EXPECT_EQ(copy.frames, extremes().frames);
    EXPECT_EQ(copy.medianIntervalNs, extremes().medianIntervalNs);
    EXPECT_THAT(copy.notes, IsEmpty());
    std::string const before = contentOf(file);
    {
        base::AtomicFile dropped(file);
        dropped.stream() << "half" << std::flush;
        EXPECT_EQ(contentOf(file), before);
    }
    EXPECT_EQ(contentOf(file), before);

    auto const commit = [](std::string const& to, std::ios::iostate state, bool becomesFolder) {
        base::AtomicFile output(to);
        output.stream().setstate(state);
        if (becomesFolder) {
            fs::create_directory(to);
        }
        output.commit();
    };
    EXPECT_THAT(errorOf([&] { commit(file, std::ios::badbit, false); }),
                HasSubstr("cannot write '" + file + "'"));
    EXPECT_EQ(contentOf(file), before);
    EXPECT_THAT(errorOf([&] { commit(path("new"), std::ios::goodbit, true); }),
                HasSubstr("directory"));
    EXPECT_THAT(files(), UnorderedElementsAre("new", "r.csv"));
}

TEST_F(OutputFiles, KeepLinksAndPermissions) {
    auto const onlyOwner = fs::perms::owner_read | fs::perms::owner_write;
    fs::permissions(write("real", "old"), onlyOwner);
    fs::create_symlink("real", path("link"));
    base::AtomicFile file(path("link"));
    file.stream() << "new";
    file.commit();
    EXPECT_EQ(contentOf(path("real")), "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(fs::status(path("real")).permissions(), onlyOwner);
    EXPECT_THAT(files(), UnorderedElementsAre("link", "real"));
}

TEST_F(OutputFiles, ReportWhatCannotBeWritten) {
    for (std::string const to : {"/nowhere/r.csv", "/dev/full", "/"}) {
        EXPECT_THAT(errorOf([&] { recording::writeRecording(extremes(), to); }),
                    HasSubstr("cannot write '" + to + "': "));
    }
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(RecordingFactsTest, CountsWhatARecordingShows) {
    // Intervals 100, 104, 156, 157, 98: only 157 is more than 1.5 times the median, 104.
    auto const recording = read(
        "Timestamp[nanosec],Focus distance,AF state,Error,AE stable\n1000,1,,0,1\n1100,2,2,1,1\n"
        "1204,3,,0,0\n1360,3,2,0,1\n1517,3,2,1,1\n1615,3,2,0,\n");
    auto const facts = recording::computeFacts(recording);
    EXPECT_DOUBLE_EQ(facts.meanRateFps, 5e9 / 615);
    EXPECT_THAT((std::vector{facts.medianIntervalNs, facts.minIntervalNs, facts.maxIntervalNs,
                             facts.jitterNs, facts.largestGapNs}),
                ElementsAre(104, 98, 157, 52, 157));
    EXPECT_EQ(facts.gaps, 1u);
    EXPECT_EQ(facts.missing.afState, 2u);
    EXPECT_EQ(facts.missing.aeStable, 1u);
    EXPECT_EQ(facts.missing.sensorMode, 0u) << "has no column, which is told apart";
    EXPECT_TRUE(recording.lacks(recording::Column::SensorMode));
    EXPECT_FALSE(recording.lacks(recording::Column::LensState)) << "seen in the distance";
    EXPECT_EQ(facts.framesWithError, 2u);
    EXPECT_EQ(facts.focusMoves, 2u);
    EXPECT_EQ(recording::computeFacts({}).lengthNs, 0) << "no frames, no times";
}

}  // namespace
}  // namespace zebcam::tool
