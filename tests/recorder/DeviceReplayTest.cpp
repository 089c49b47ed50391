#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "device/DeviceRecordingReader.h"
#include "platform/TempFile.h"
#include "recorder/Crc32.h"
#include "recorder/RecordedScene.h"
#include "report/Reports.h"
#include "run/DeviceReplay.h"
#include "tool/CliFixture.h"

namespace zebcam::test {
namespace {

namespace device = tool::device;
namespace run = tool::run;
namespace record = NSCam::v3::pipeline::model::record;
using testing::HasSubstr;
using tool::contentOf;

device::DeviceRecording readBytes(std::string const& bytes) {
    std::istringstream in(bytes);
    return device::readDeviceRecording(in, "recording");
}

/// What a scene recorded, by what came back to its caller.
struct Played {
    std::vector<std::string> outcomes;
    ZslRecorderStatus status;
};

Played play(Scenario const& scenario, ZslRecorderOptions const& options) {
    RecordedScene scene;
    if (scenario.prepare) {
        scenario.prepare(scene);
    }
    // Properties and characteristics are read when a processor is made.
    scene.zsl = IZslProcessor::createInstance(0, "test");
    if (!options.path.empty()) {
        scene.recorder = ZslRecorder::create(0, scene.zsl, options);
        EXPECT_NE(nullptr, scene.recorder);
        scene.zsl = scene.recorder;
    }
    scenario.play(scene);
    Played played;
    played.status = scene.end();
    played.outcomes = scene.outcomes;
    return played;
}

std::string recordingOf(Scenario const& scenario) {
    TempFile const file("scene.zslrec");
    play(scenario, {.path = file.path});
    return contentOf(file.path);
}

/// What the caller got, as the recording tells it: in the words of a scene's outcomes.
std::vector<std::string> outcomesIn(device::DeviceRecording const& recording) {
    std::vector<std::string> names;
    std::map<uint64_t, std::string> built;
    std::vector<std::string> outcomes;
    for (device::DeviceOperation const& operation : recording.operations) {
        std::string text = operation.outcome.failure.value_or("");
        if (auto const* const call = std::get_if<device::SubmitCall>(&operation.call)) {
            for (size_t i = 0; i < call->frames.size(); ++i) {
                names.push_back(std::to_string(call->requestNo) + "." + std::to_string(i));
            }
        }
        for (device::DeviceStep const& step : operation.steps) {
            if (auto const* const b = std::get_if<device::BuiltStep>(&step)) {
                built[b->builder] = !b->isFromHistory ? "=none"
                                    : b->frameNo      ? "=F" + std::to_string(*b->frameNo)
                                                      : "=F?";
            }
        }
        for (auto const& list : operation.outcome.builders) {
            std::vector<std::string> told;
            for (uint64_t const reference : list) {
                told.push_back(reference == 0
                                   ? "null"
                                   : names.at(reference - 1) +
                                         built.emplace(reference - 1, "=unset").first->second);
            }
            text += fmt::format("[{}]", fmt::join(told, " "));
        }
        for (bool const isLeft : operation.outcome.timestampsLeft) {
            text += isLeft ? "kept" : "removed";
        }
        constexpr char const* KINDS[] = {"", "configure", "submit", "retry", "result", "flush"};
        if (operation.kind != record::Operation::CONFIGURE) {
            outcomes.push_back(KINDS[static_cast<size_t>(operation.kind)] + (" " + text));
        }
    }
    return outcomes;
}

void expectSameReplay(device::DeviceRecording const& recording) {
    run::ReplayResult const result = run::replayDevice(recording).replay;
    EXPECT_TRUE(result.isClean()) << tool::report::verdictText(*result.device);
    EXPECT_EQ(result.device->builtFrames, result.device->sameFrames);
    EXPECT_TRUE(result.ledger.balances());
    EXPECT_THAT(result.failures, testing::IsEmpty());
}

class EveryScenario : public testing::TestWithParam<size_t> {};

TEST_P(EveryScenario, IsTheSameForTheCallerAndInTheReplay) {
    Scenario const& scenario = scenarios()[GetParam()];
    TempFile const file("scene.zslrec");
    Played const bare = play(scenario, {});
    Played const recorded = play(scenario, {.path = file.path});
    EXPECT_EQ(bare.outcomes, recorded.outcomes);
    EXPECT_EQ(ZslRecordingEnd::FINISHED, recorded.status.end);
    EXPECT_EQ(contentOf(file.path).size(), recorded.status.bytesWritten);

    device::DeviceRecording const recording = device::readDeviceRecording(file.path);
    EXPECT_THAT(recording.notes, testing::IsEmpty());
    EXPECT_EQ(recorded.status.operations, recording.operations.size());
    std::vector<std::string> told = outcomesIn(recording);
    told.resize(recorded.outcomes.size());      // without the flush with which the scene ends
    for (size_t i = 0; i < told.size(); ++i) {  // frames without metadata have no name in the scene
        if (size_t const at = recorded.outcomes[i].find("F?"); at != std::string::npos) {
            told[i].replace(at, 2, "F?");
        }
    }
    EXPECT_EQ(recorded.outcomes, told);
    expectSameReplay(recording);
}

INSTANTIATE_TEST_SUITE_P(DeviceReplay, EveryScenario, testing::Range<size_t>(0, scenarios().size()),
                         [](auto const& test) {
                             std::string name = scenarios()[test.param].name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

TEST(Recorder, WritesThingsOnceHoweverOftenTheyAreOffered) {
    std::string const bytes = recordingOf(scenarios()[3]);
    std::string const stream = metaStream(APP)->getStreamName();
    EXPECT_EQ(bytes.find(stream), bytes.rfind(stream));
    device::DeviceRecording const waiting = readBytes(bytes);
    EXPECT_EQ(2, waiting.frames.size());
    EXPECT_LT(2, std::count_if(waiting.operations.begin(), waiting.operations.end(),
                               [](auto const& operation) { return !operation.tries.empty(); }));
}

TEST(DeviceReplay, TellsWhatIsOtherwise) {
    device::DeviceRecording recording = readBytes(recordingOf(scenarios()[0]));
    for (device::DeviceOperation& operation : recording.operations) {
        for (device::DeviceStep& step : operation.steps) {
            if (auto* const b = std::get_if<device::BuiltStep>(&step); b && b->frameNo == 2U) {
                b->frameNo = 1;
            }
        }
    }
    run::ReplayResult const result = run::replayDevice(recording).replay;
    EXPECT_FALSE(result.isClean());
    EXPECT_EQ(1, result.device->operationsThatDiffer);
    EXPECT_EQ(result.device->builtFrames - 1, result.device->sameFrames);
    EXPECT_THAT(tool::report::verdictText(*result.device),
                HasSubstr("on the device frame 0 of request 6 becomes F1"));
}

TEST(DeviceReplay, UsesWhatIsWholeOfACutFile) {
    std::string const whole = recordingOf(scenarios()[2]);
    size_t const operations = readBytes(whole).operations.size();
    size_t last = 0;
    for (size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        try {
            device::DeviceRecording const cut = readBytes(whole.substr(0, size));
            EXPECT_FALSE(cut.notes.empty());
            EXPECT_LE(last, cut.operations.size());
            if (last != cut.operations.size()) {
                last = cut.operations.size();
                expectSameReplay(cut);
            }
        } catch (device::DeviceRecordingError const&) {
            EXPECT_EQ(0, last) << "an error although there are whole operations";
        }
    }
    EXPECT_EQ(operations, last);
}

TEST(DeviceReplay, NoticesEveryFlippedBit) {
    std::string const whole = recordingOf(scenarios()[0]);
    for (size_t bit = 0; bit < 8 * whole.size(); bit += 3) {
        std::string flipped = whole;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        try {
            EXPECT_FALSE(readBytes(flipped).notes.empty()) << "bit " << bit;
        } catch (device::DeviceRecordingError const& error) {
            EXPECT_THAT(error.what(), HasSubstr("expected"));
        }
    }
}

/// The file with its checksums made right again.
std::string sealed(std::string bytes) {
    for (size_t at = record::FILE_HEADER_BYTES; at + record::BLOCK_HEADER_BYTES <= bytes.size();) {
        size_t const begin = at + record::BLOCK_HEADER_BYTES;
        uint32_t size = 0;
        std::memcpy(&size, &bytes[at + 4], sizeof size);
        size = std::min(size, static_cast<uint32_t>(bytes.size() - begin));
        record::Crc32 crc;
        crc.add(reinterpret_cast<uint8_t const*>(bytes.data()) + begin, size);
        uint32_t const sum = crc.value();
        std::memcpy(&bytes[at + 8], &sum, sizeof sum);
        at = begin + size;
    }
    return bytes;
}

TEST(DeviceReplay, SurvivesWhateverAFileHolds) {
    std::minstd_rand random(7);
    size_t replayed = 0;
    for (Scenario const& scenario : scenarios()) {
        std::string const whole = recordingOf(scenario);
        ASSERT_EQ(whole, sealed(whole));
        for (int i = 0; i < 150; ++i) {
            std::string other = whole;
            for (size_t changes = 1 + random() % 3; changes > 0; --changes) {
                other[12 + random() % (other.size() - 12)] = static_cast<char>(random());
            }
            try {
                run::replayDevice(readBytes(sealed(other)));
                ++replayed;
            } catch (std::exception const& error) {
                EXPECT_STRNE("", error.what());
            }
        }
    }
    EXPECT_LT(100, replayed) << "nearly everything is refused before it is replayed";
}

TEST(DeviceReplay, IsDoneByTheTool) {
    TempFile const file("tool.zslrec");
    play(scenarios()[0], {.path = file.path});
    tool::Outcome const good = tool::zsl({"replay", file.path, "--explain"});
    EXPECT_EQ(0, good.status) << good.err;
    EXPECT_THAT(good.out, testing::AllOf(HasSubstr("1 waited"), HasSubstr("F4"),
                                         HasSubstr("same decisions")));
    std::string bytes = contentOf(file.path);
    std::istringstream piped(bytes);
    std::streambuf* const input = std::cin.rdbuf(piped.rdbuf());
    tool::Outcome const fromPipe = tool::zsl({"replay", "-"});
    std::cin.rdbuf(input);
    EXPECT_EQ(0, fromPipe.status) << fromPipe.err;
    EXPECT_THAT(fromPipe.out, HasSubstr("same decisions"));
    for (std::string const command : {"live", "compare"}) {
        EXPECT_EQ(tool::zsl({command, file.path}).err.substr(0, 200),
                  "zsl " + command + ": " + file.path +
                      ": expected a CSV file, found a recording of a device, which zsl replay "
                      "takes\n");
    }
    try {
        readBytes("a recording of birds");
        ADD_FAILURE() << "read";
    } catch (device::DeviceRecordingError const& error) {
        EXPECT_STREQ(
            "recording: byte 0: expected a recording of a device, found 20 bytes of "
            "something else",
            error.what());
    }
    bytes[8] = 9;
    TempFile const newer("newer.zslrec", bytes);
    tool::Outcome const unknown = tool::zsl({"replay", newer.path});
    EXPECT_EQ(2, unknown.status);
    EXPECT_THAT(unknown.err, HasSubstr("byte 8: expected version 1, found version 9"));
}

TEST(Recorder, EndsEarlyAndLeavesTheCameraAlone) {
    Scenario const& scenario = scenarios()[2];
    Played const bare = play(scenario, {});
    TempFile const file("bounded.zslrec");
    struct Bound {
        ZslRecorderOptions options;
        ZslRecordingEnd end;
        int writeError;
        rlim_t largestFile;
        bool isReadable;
    } const bounds[] = {{{.path = file.path, .maxFileBytes = 700},
                         ZslRecordingEnd::FILE_FULL,
                         0,
                         RLIM_INFINITY,
                         true},
                        {{.path = file.path, .maxFileBytes = 0},
                         ZslRecordingEnd::FILE_FULL,
                         0,
                         RLIM_INFINITY,
                         false},
                        {{.path = file.path},
                         ZslRecordingEnd::WRITE_FAILED,
                         EFBIG,
                         record::FILE_HEADER_BYTES,
                         false}};
    std::signal(SIGXFSZ, SIG_IGN);  // the write fails instead
    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    for (Bound const& bound : bounds) {
        rlimit const limited{std::min(bound.largestFile, unlimited.rlim_cur), unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
        Played const recorded = play(scenario, bound.options);
        setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_EQ(bound.writeError, recorded.status.writeError);
        EXPECT_EQ(bare.outcomes, recorded.outcomes);
        EXPECT_EQ(bound.end, recorded.status.end);
        EXPECT_LT(0, recorded.status.unrecorded);
        EXPECT_GE(std::max<uint64_t>(bound.options.maxFileBytes, 64), contentOf(file.path).size());
        if (!bound.isReadable) {
            EXPECT_THROW(device::readDeviceRecording(file.path), device::DeviceRecordingError);
            continue;
        }
        device::DeviceRecording const recording = device::readDeviceRecording(file.path);
        EXPECT_EQ(recorded.status.operations, recording.operations.size());
        EXPECT_THAT(recording.notes, testing::ElementsAre(HasSubstr("operations: file full;")));
        expectSameReplay(recording);
    }
}

TEST(Recorder, EndsAtAnOperationThatItsMemoryCannotTake) {
    TempFile const file("memory.zslrec");
    RecordedScene scene({.path = file.path, .memoryBytes = 4096});
    ASSERT_EQ(0, scene.zsl->configure(scene.config()));
    IMetadata large;
    for (uint32_t tag = 0; tag < 100; ++tag) {
        put<double>(large, tag, 0.5);
    }
    for (uint32_t frameNo = 1; frameNo <= 8; ++frameNo) {
        ExposedFrame frame(frameNo);
        frame.metas[APP] += large;
        scene.expose({frame});
    }
    scene.submit(scene.capture(5));
    scene.submit(scene.capture(6));
    EXPECT_THAT(scene.outcomes, testing::ElementsAre("submit [5.0=F1]", "submit [6.0=F2]"));
    ZslRecorderStatus const status = scene.end();
    EXPECT_EQ(ZslRecordingEnd::MEMORY_FULL, status.end);
    EXPECT_EQ(1, status.operations);  // the configuration
    EXPECT_THAT(scene.lines(), testing::Contains(testing::StartsWith(
                                   file.path + ": ends after 1 operations: memory full")));
    EXPECT_THAT(device::readDeviceRecording(file.path).notes,
                testing::ElementsAre(HasSubstr("ended early, after 1 operations")));
}

TEST(Recorder, GoesRoundItsMemoryManyTimes) {
    constexpr size_t MEMORY = 4096;
    TempFile const file("round.zslrec");
    {
        RecordedScene scene({.path = file.path, .memoryBytes = MEMORY});
        ASSERT_EQ(0, scene.zsl->configure(scene.config()));
        for (uint32_t requestNo = 1; requestNo <= 150; ++requestNo) {
            scene.expose({requestNo});
            scene.submit(scene.capture(requestNo));
            // As long as the writer keeps up, nothing is too much.
            for (int i = 0; i < 5'000 && scene.recorder->status().operations <= requestNo; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        ZslRecorderStatus const status = scene.end();
        EXPECT_EQ(ZslRecordingEnd::FINISHED, status.end);
        EXPECT_LT(4 * MEMORY, status.bytesWritten);
    }
    expectSameReplay(device::readDeviceRecording(file.path));
}

TEST(Recorder, IsNotMadeWithoutItsFile) {
    RecordedScene scene;
    for (char const* const path : {"/nonexistent/recording", "/dev/full"}) {
        EXPECT_EQ(nullptr, ZslRecorder::create(0, scene.zsl, {.path = path}));
        EXPECT_THAT(scene.log.back().message, HasSubstr(path));
        EXPECT_EQ(LogLine::Output::Android, scene.log.back().output);
    }
    EXPECT_EQ(nullptr, ZslRecorder::create(0, nullptr, {.path = "/nonexistent/recording"}));
    scene.end();
}

TEST(Recorder, RecordsTheTrueOrderOfSeveralThreads) {
    TempFile const file("threads.zslrec");
    std::optional<LogCapture> quiet(std::in_place, LogSettings(), [](LogLine const&) {});
    auto const history = std::make_shared<HistoryProvider>(8);
    {
        android::sp<ZslRecorder> const recorder = ZslRecorder::create(
            0, IZslProcessor::createInstance(0, "threads"), {.path = file.path});
        pipeline::policy::ParsedStreamInfoMap_P1 streams;
        streams[0].pAppMeta_DynamicP1 = metaStream(APP);
        android::sp<RecordingCallback> const callback = new RecordingCallback;
        recorder->configure({.pParsedStreamInfo_P1 = &streams, .pCallback = callback});
        std::vector<std::thread> threads;
        threads.emplace_back([&] {
            for (uint32_t frameNo = 1; frameNo <= 200; ++frameNo) {
                ExposedFrame frame(frameNo);
                frame.timestamp = systemTime(SYSTEM_TIME_BOOTTIME);
                history->arrive(frame.set());
                recorder->processZslPendingRequest(frameNo);
            }
        });
        for (uint32_t thread = 1; thread <= 2; ++thread) {
            threads.emplace_back([&, thread] {
                for (uint32_t i = 0; i < 50; ++i) {
                    ZslRequestParams params;
                    params.requestNo = 1000 * thread + i;
                    params.pHistoryBufferProvider = history;
                    params.vFrameBuilder = {
                        std::make_shared<FrameBuilder>(params.requestNo, FRAME_TYPE_MAIN)};
                    params.vReqResult = {std::make_shared<pipeline::policy::RequestResultParams>()};
                    params.vReqResult[0]->required = {{RAW}, {HAL}, {APP}};
                    if (thread == 2) {
                        params.pPolicyParams = std::make_shared<ZslPolicy::ZslPolicyParams>();
                    }
                    recorder->submitZslRequest(std::move(params));
                    recorder->onFrameUpdated(
                        1000 * thread + i,
                        {.outputAppMetas = {}, .isFrameEnd = true, .outputHalMetas = {}});
                }
                recorder->flush();
            });
        }
        LinePrinter printer;
        recorder->debug(printer, {});
        for (auto& thread : threads) {
            thread.join();
        }
        recorder->flush();
        EXPECT_FALSE(recorder->hasZslPendingRequest());
    }
    quiet.reset();
    device::DeviceRecording const recording = device::readDeviceRecording(file.path);
    EXPECT_EQ(1 + 200 + 2 * 101 + 1, recording.operations.size());
    expectSameReplay(recording);
}

}  // namespace
}  // namespace zebcam::test
